// Telephony over the scripted service.
#pragma once

#include <gtest/gtest.h>

#include "port/ports.h"
#include "support/files.h"
#include "telephony/scripted_service.h"

namespace brisolt::test {

namespace result = service::result;
namespace message = service::message;
namespace callState = service::callState;
namespace deviceState = service::deviceState;
namespace disconnectedBy = service::disconnectedBy;

/// With its log, in quick time.
struct Telephony {
    explicit Telephony(std::vector<ScriptedModem> modems = {{"Modem A"}, {"Modem B"}})
        : service(std::move(modems)) {}
    ~Telephony() { Com_TAPI_Shutdown(); }

    /// By default modems have time enough on the busiest machine.
    int32_t initialise(uint32_t waitSeconds = 500) const {
        ComTAPI_SetModemWaitTime(waitSeconds);
        return ComTAPI_INIT(directory.file("log").c_str());
    }
    std::string log() const { return contentsOf(directory.file("log")); }
    /// How often the log has an entry that is exactly this text.
    int32_t logged(const std::string& entry) const {
        const std::string text = log() + "\r\n[";
        const std::string wanted = " p129]" + entry + "\r\n[";
        int32_t count = 0;
        for (auto at = text.find(wanted); at != std::string::npos; at = text.find(wanted, at + 1))
            ++count;
        return count;
    }
    void expectLogged(std::initializer_list<const char*> entries) const {
        for (const char* entry : entries)
            EXPECT_EQ(logged(entry), 1) << entry;
    }

    TempDir directory;
    FastClock fast;
    ScriptedService service;
};

/// Two of them, ready for calls.
struct TwoModems : testing::Test, Telephony {
    void SetUp() override { ASSERT_EQ(initialise(), 2); }

    static int32_t connect(const char* number = "5551", const char* mode = "T") {
        return ComTAPI_Connect("Modem A", number, mode);
    }
    static int32_t arm(const char* name = "Modem A", int32_t rings = 1) {
        return ComTAPI_AutoAnswer(name, rings);
    }
    static int32_t state(const char* name = "Modem A") { return ComTAPI_GetAutoAnswerState(name); }
    static bool reaches(int32_t wanted, const char* name = "Modem A") {
        return eventually([=] { return (ComServiceMessagePump(), state(name)) == wanted; });
    }
    static void disconnect() {
        ComTAPI_Disconnect("Modem A");
        ComTAPI_Disconnect("Modem B");
    }
    /// Nothing is left at the service, and the devices may be used again.
    void expectIdle() {
        EXPECT_EQ(service.openLines(), 0U);
        EXPECT_EQ(service.liveCalls(), 0U);
        EXPECT_EQ(ComOpenState(130), 0);
    }
};

} // namespace brisolt::test
