// A program of the telephony service in the hands of a test: the module by its entry points, modems, and the
// messages that come while the test waits for one.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <fstream>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "brisolt_host.h"
#include "modem/simulator.h"
#include "service/refusals.h"
#include "support/pty.h"
#include "support/temp_dir.h"
#include "telephony/service_records.h"

namespace brisolt::test {

namespace service_ = brisolt::service;
namespace state = service_::callState;
namespace cause = service_::disconnectedBy;
namespace result = service_::result;
namespace privilege = service_::privilege;
using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

/// The module and the host functions that it works with, which are those of the library it was linked to.
struct ServiceModule {
    void* handle = dlopen(BRISOLT_SERVICE, RTLD_NOW);
    struct Symbol {
        void* address;
        template <class Function> operator Function*() const { return reinterpret_cast<Function*>(address); }
    };
    Symbol entry(const char* name) const { return {dlsym(handle, name)}; }
    service::LineInitialize* initialize = entry("lineInitialize");
    service::LineShutdown* shutdown = entry("lineShutdown");
    service::LineNegotiateVersion* negotiate = entry("lineNegotiateAPIVersion");
    service::LineGetDeviceCapabilities* deviceCapabilities = entry("lineGetDevCapsA");
    service::LineOpen* open = entry("lineOpenA");
    service::LineClose* close = entry("lineClose");
    service::LineSetStatusMessages* statusMessages = entry("lineSetStatusMessages");
    service::LineGetAddressStatus* addressStatus = entry("lineGetAddressStatusA");
    service::LineGetAddressCapabilities* addressCapabilities = entry("lineGetAddressCapsA");
    service::LineGetId* getId = entry("lineGetIDA");
    service::LineMakeCall* makeCall = entry("lineMakeCallA");
    service::LineAnswer* answer = entry("lineAnswer");
    service::LineDrop* drop = entry("lineDrop");
    service::LineDeallocateCall* deallocate = entry("lineDeallocateCall");
    service::PortOpen* portOpen = entry("brisoltPortOpen");
    service::LineGetCallStatus* callStatus = entry("lineGetCallStatus");
    service::LineSetDeviceConfiguration* setConfiguration = entry("lineSetDevConfigA");
    decltype(ComHostGetMessage)* getMessage = entry("ComHostGetMessage");
    decltype(ComHostDispatchMessage)* dispatch = entry("ComHostDispatchMessage");
};

/// Of threads that go on when a host fails.
inline thread_local bool sparedThread = false;

/// A modem of which every byte is known. It agrees to every command and connects at once when it is to dial;
/// from then on, until it is put on hook, the line is the test's.
struct PlainModem {
    explicit PlainModem(std::string itsConnect = "\r\nCONNECT\r\n", std::string itsOk = "\r\nOK\r\n")
        : ok(std::move(itsOk)), connect(std::move(itsConnect)) {}
    Pty line;
    const std::string ok, connect;
    std::atomic<bool> online{false};
    void unplug() {
        thread_ = {}; // nobody is inside
        line.close();
    }

private:
    void obey(const std::stop_token& over) {
        sparedThread = true;
        for (std::string command; !over.stop_requested();) {
            if (online)
                std::this_thread::sleep_for(Milliseconds(5));
            else
                command += line.read(1, Milliseconds(20));
            if (!command.ends_with('\r'))
                continue;
            online = command.starts_with("ATD");
            line.write(online ? connect : ok);
            command.clear();
        }
    }
    std::jthread thread_{[this](const std::stop_token& over) { obey(over); }};
};

struct Message {
    uint32_t device, message;
    uintptr_t instance, p1, p2, p3;
    bool isCallState() const { return message == service::message::callState; }
};

struct TelephonyProgram : testing::Test {
    ServiceModule service;
    uint32_t application = 0, devices = 0, line = 0, outgoing = 0;

    TelephonyProgram() { setenv("BRISOLT_TELEPHONY", folder_.path().c_str(), 1); }
    ~TelephonyProgram() override {
        service.shutdown(application);
        received.clear();
        reaction = nullptr;
    }
    static inline std::vector<Message> received;
    /// What the program does about a message, inside the callback.
    static inline std::function<void(const Message&)> reaction;
    static void callback(uint32_t device, uint32_t message, uintptr_t instance, uintptr_t p1, uintptr_t p2,
                         uintptr_t p3) {
        received.push_back({device, message, instance, p1, p2, p3});
        if (reaction)
            reaction(Message(received.back()));
    }

    std::string profilePath() const { return folder_.file("telephony.ini"); }
    void writeProfile(const std::string& profile) const { std::ofstream(profilePath()) << profile; }
    int32_t start() { return service.initialize(&application, nullptr, callback, "test", &devices); }
    int32_t startAt(const std::string& device) {
        writeProfile("[One]\ndevice = " + device + "\n");
        return start();
    }
    int32_t openLine(uint32_t device, uint32_t& opened, uint32_t privileges = service::privilege::none,
                     uintptr_t instance = 0) const {
        const int32_t said = service.open(application, device, &opened, service::highestVersion, 0, instance,
                                          privileges, service::media::dataModem, nullptr);
        return said != 0 ? said : service.statusMessages(opened, ~0U, ~0U);
    }
    int32_t configure(const std::string& text, uint32_t device = 0) const {
        return service.setConfiguration(device, text.data(), static_cast<uint32_t>(text.size()),
                                        service_::modemClass);
    }
    uint32_t call(const char* number) const {
        uint32_t handle = 0;
        EXPECT_GT(service.makeCall(line, &handle, number, 0, nullptr), 0);
        return handle;
    }

    /// Handles messages until the condition holds.
    bool until(const std::function<bool()>& holds, Milliseconds limit = Milliseconds(20000)) const {
        const auto end = Clock::now() + limit;
        ComHostMessage message{};
        while (!holds() && Clock::now() < end)
            if (service.getMessage(&message, 20) == 1)
                service.dispatch(&message);
        return holds();
    }
    /// The call is told to be in that state; the detail of that, -1 when it is not told in time.
    int64_t untilState(const uint32_t& call, uint32_t state) const {
        int64_t detail = -1;
        const bool told = until([&] {
            for (const Message& one : received)
                if (one.device == call && one.isCallState() && one.p1 == state)
                    detail = static_cast<int64_t>(one.p2);
            return detail >= 0;
        });
        EXPECT_TRUE(told) << "call " << call << " is not told to be in state " << state;
        return detail;
    }
    void openAt(const PlainModem& modem) {
        ASSERT_EQ(startAt(modem.line.slavePath()), 0);
        ASSERT_EQ(openLine(0, line), 0);
    }
    /// A call over that modem, from the beginning.
    void callOver(const PlainModem& modem) {
        openAt(modem);
        outgoing = call("T200");
        ASSERT_EQ(untilState(outgoing, service::callState::connected), 0);
    }
    /// All states that a call was told to be in.
    static std::vector<uintptr_t> story(uint32_t call) {
        std::vector<uintptr_t> states;
        for (const Message& one : received)
            if (one.device == call && one.isCallState())
                states.push_back(one.p1);
        return states;
    }
    /// The communications handle of a connected call.
    int commHandle(uint32_t call) const {
        uint32_t record[7] = {sizeof record};
        auto* const head = reinterpret_cast<service::VariableString*>(record);
        EXPECT_EQ(service.getId(0, 0, call, service::select::call, head, service::modemClass), 0);
        EXPECT_EQ(head->stringOffset, sizeof *head);
        return static_cast<int>(record[6]);
    }
    uint32_t stateOf(uint32_t call) const {
        service::CallStatus status{};
        status.sizes.total = sizeof status;
        return service.callStatus(call, &status) == 0 ? status.callState : 0;
    }

private:
    TempDir folder_;
};

inline void writeTo(int descriptor, std::string_view bytes) {
    EXPECT_EQ(writeTo(descriptor, bytes, Milliseconds(60000)), bytes.size());
}

/// Two modems that can call each other.
struct TwoModems : TelephonyProgram {
    simulated::Exchange exchange;
    std::unique_ptr<simulated::Simulator> here = simulator("100"), there = simulator("200");

    TwoModems() {
        writeProfile("[Here]\ndevice = " + here->path() + "\n[There]\ndevice = " + there->path() + "\n");
        EXPECT_EQ(start(), 0);
    }
    std::unique_ptr<simulated::Simulator> simulator(const char* number) {
        simulated::Options options;
        options.number = number;
        options.timeScale = 20;
        return std::make_unique<simulated::Simulator>(simulated::ptyLine(), exchange, options);
    }
};

} // namespace brisolt::test
