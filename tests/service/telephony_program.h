// A program of the telephony service in the hands of a test: the module by its entry points, two modems, and
// the messages that come while the test waits for one.
#pragma once

#include <algorithm>
#include <chrono>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <dlfcn.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include "brisolt_host.h"
#include "modem/simulator.h"
#include "service/refusals.h"
#include "support/temp_dir.h"
#include "telephony/service_records.h"

namespace brisolt::test {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

/// The module and the host functions that it works with, which are those of the library it was linked to.
struct ServiceModule {
    void* handle = dlopen(BRISOLT_SERVICE, RTLD_NOW);
    template <class Function> Function* entry(const char* name) const {
        auto* const found = reinterpret_cast<Function*>(handle == nullptr ? nullptr : dlsym(handle, name));
        EXPECT_NE(found, nullptr) << name;
        return found;
    }
    service::LineInitialize* initialize = entry<service::LineInitialize>("lineInitialize");
    service::LineShutdown* shutdown = entry<service::LineShutdown>("lineShutdown");
    service::LineNegotiateVersion* negotiate =
        entry<service::LineNegotiateVersion>("lineNegotiateAPIVersion");
    service::LineGetDeviceCapabilities* deviceCapabilities =
        entry<service::LineGetDeviceCapabilities>("lineGetDevCapsA");
    service::LineOpen* open = entry<service::LineOpen>("lineOpenA");
    service::LineClose* close = entry<service::LineClose>("lineClose");
    service::LineSetStatusMessages* statusMessages =
        entry<service::LineSetStatusMessages>("lineSetStatusMessages");
    service::LineGetAddressStatus* addressStatus =
        entry<service::LineGetAddressStatus>("lineGetAddressStatusA");
    service::LineGetAddressCapabilities* addressCapabilities =
        entry<service::LineGetAddressCapabilities>("lineGetAddressCapsA");
    service::LineGetId* getId = entry<service::LineGetId>("lineGetIDA");
    service::LineMakeCall* makeCall = entry<service::LineMakeCall>("lineMakeCallA");
    service::LineAnswer* answer = entry<service::LineAnswer>("lineAnswer");
    service::LineDrop* drop = entry<service::LineDrop>("lineDrop");
    service::LineDeallocateCall* deallocate = entry<service::LineDeallocateCall>("lineDeallocateCall");
    service::LineGetCallStatus* callStatus = entry<service::LineGetCallStatus>("lineGetCallStatus");
    service::LineSetDeviceConfiguration* setConfiguration =
        entry<service::LineSetDeviceConfiguration>("lineSetDevConfigA");
    int32_t (*getMessage)(ComHostMessage*,
                          int32_t) = entry<int32_t(ComHostMessage*, int32_t)>("ComHostGetMessage");
    int32_t (*dispatch)(const ComHostMessage*) =
        entry<int32_t(const ComHostMessage*)>("ComHostDispatchMessage");
};

struct Message {
    uint32_t device, message;
    uintptr_t instance, p1, p2, p3;
};

struct TelephonyProgram : testing::Test {
    ServiceModule service;
    uint32_t application = 0;
    uint32_t devices = 0;

    TelephonyProgram() { setenv("BRISOLT_TELEPHONY", folder_.path().c_str(), 1); }
    ~TelephonyProgram() override {
        if (application != 0)
            service.shutdown(application);
        received().clear();
        reaction() = nullptr;
    }
    static std::vector<Message>& received() {
        static std::vector<Message> messages;
        return messages;
    }
    /// What the program does about a message, inside the callback.
    static std::function<void(const Message&)>& reaction() {
        static std::function<void(const Message&)> function;
        return function;
    }
    static void callback(uint32_t device, uint32_t message, uintptr_t instance, uintptr_t p1, uintptr_t p2,
                         uintptr_t p3) {
        const Message one{device, message, instance, p1, p2, p3};
        received().push_back(one);
        if (reaction())
            reaction()(one);
    }

    std::string profilePath() const { return folder_.file("telephony.ini"); }
    void writeProfile(const std::string& text) const { std::ofstream(profilePath()) << text; }
    int32_t start() { return service.initialize(&application, nullptr, callback, "test", &devices); }
    int32_t start(const std::string& profile) {
        writeProfile(profile);
        return start();
    }
    int32_t openLine(uint32_t device, uint32_t& line, uint32_t privileges = service::privilege::none,
                     uintptr_t instance = 0) const {
        int32_t result = service.open(application, device, &line, service::highestVersion, 0, instance,
                                      privileges, service::media::dataModem, nullptr);
        if (result == 0)
            service.statusMessages(line, service::statusMessages::allLine,
                                   service::statusMessages::allAddress);
        return result;
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
    static const Message* find(uint32_t call, uint32_t state) {
        auto& all = received();
        const auto found = std::find_if(all.begin(), all.end(), [&](const Message& one) {
            return one.device == call && one.message == service::message::callState && one.p1 == state;
        });
        return found == all.end() ? nullptr : &*found;
    }
    /// The call is told to be in that state; the detail of that, -1 when it is not told in time.
    int64_t untilState(const uint32_t& call, uint32_t state, Milliseconds limit = Milliseconds(20000)) const {
        until([&] { return find(call, state) != nullptr; }, limit);
        const Message* const found = find(call, state);
        EXPECT_NE(found, nullptr) << "call " << call << " is not told to be in state " << state;
        return found == nullptr ? -1 : static_cast<int64_t>(found->p2);
    }
    /// The communications handle of a connected call.
    int commHandle(uint32_t call) const {
        struct {
            service::VariableString head{};
            uint32_t handle = 0;
        } identifier;
        identifier.head.sizes.total = sizeof identifier;
        EXPECT_EQ(service.getId(0, 0, call, service::select::call, &identifier.head, service::modemClass), 0);
        EXPECT_EQ(identifier.head.stringOffset, sizeof identifier.head);
        return static_cast<int>(identifier.handle);
    }
    uint32_t stateOf(uint32_t call) const {
        service::CallStatus status{};
        status.sizes.total = sizeof status;
        return service.callStatus(call, &status) == 0 ? status.callState : 0;
    }

private:
    TempDir folder_;
};

/// What arrives at a descriptor until there is so much, or nothing more comes.
inline std::string readFrom(int descriptor, std::size_t count, Milliseconds limit = Milliseconds(10000)) {
    std::string bytes;
    pollfd entry{descriptor, POLLIN, 0};
    const auto end = Clock::now() + limit;
    while (bytes.size() < count && Clock::now() < end) {
        char some[4096];
        const auto left = std::chrono::ceil<Milliseconds>(end - Clock::now()).count();
        if (poll(&entry, 1, static_cast<int>(left)) <= 0)
            break;
        const ssize_t got = read(descriptor, some, std::min(sizeof some, count - bytes.size()));
        if (got <= 0)
            break;
        bytes.append(some, static_cast<std::size_t>(got));
    }
    return bytes;
}

inline void writeTo(int descriptor, std::string_view bytes) {
    pollfd entry{descriptor, POLLOUT, 0};
    while (!bytes.empty() && poll(&entry, 1, 10000) > 0) {
        const ssize_t count = write(descriptor, bytes.data(), bytes.size());
        bytes.remove_prefix(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
    EXPECT_TRUE(bytes.empty());
}

/// Two modems that can call each other, in a profile of their own.
struct TwoModems : TelephonyProgram {
    static simulated::Options options(const char* number) {
        simulated::Options options;
        options.number = number;
        options.timeScale = 20;
        return options;
    }
    simulated::Exchange exchange;
    std::unique_ptr<simulated::Simulator> here =
        std::make_unique<simulated::Simulator>(simulated::ptyLine(), exchange, options("100"));
    std::unique_ptr<simulated::Simulator> there =
        std::make_unique<simulated::Simulator>(simulated::ptyLine(), exchange, options("200"));

    std::string profile() const {
        return "[Here]\ndevice = " + here->path() + "\n[There]\ndevice = " + there->path() + "\n";
    }
    void SetUp() override {
        ASSERT_EQ(start(profile()), 0);
        ASSERT_EQ(devices, 2U);
    }
    uint32_t call(uint32_t line, const char* number) const {
        uint32_t handle = 0;
        EXPECT_GT(service.makeCall(line, &handle, number, 0, nullptr), 0);
        return handle;
    }
};

} // namespace brisolt::test
