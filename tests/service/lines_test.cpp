// Lines: opening and closing them, modems that do not answer, and callers that ask for nonsense.
#include <sys/file.h>

#include "support/pty.h"
#include "telephony_program.h"

using namespace brisolt::test;
namespace service_ = brisolt::service;
namespace result = brisolt::service::result;

namespace {

struct Lines : TwoModems {
    uint32_t line = 0;
    bool canCall() const {
        service_::AddressStatus status{};
        status.sizes.total = sizeof status;
        EXPECT_EQ(service.addressStatus(line, 0, &status), 0);
        return status.addressFeatures == service_::feature::addressMakeCall;
    }
};

/// One line at whatever the test is.
struct OneLine : TelephonyProgram {
    uint32_t line = 0;
    Clock::time_point begun = Clock::now();
    auto took() const { return Clock::now() - begun; }
    void startAt(const std::string& device, const std::string& more = {}) {
        ASSERT_EQ(start("[One]\ndevice = " + device + "\n" + more), 0);
        begun = Clock::now();
    }
};

} // namespace

TEST_F(Lines, OpenSetUpTheModemAndClose) {
    ASSERT_EQ(openLine(0, line), 0);
    EXPECT_EQ(here->commands(), (std::vector<std::string>{"ATE0Q0V1S0=0", "AT&F&C1&D2X4", "ATE0Q0V1S0=0"}));
    EXPECT_TRUE(canCall());
    service_::VariableString identifier{};
    identifier.sizes.total = sizeof identifier;
    EXPECT_EQ(service.getId(line, 0, 0, service_::select::line, &identifier, "COMM/DataModem"), 0);
    EXPECT_EQ(identifier.sizes.needed, sizeof identifier);

    uint32_t second = 0;
    EXPECT_EQ(openLine(0, second), result::lineInUse);
    EXPECT_EQ(openLine(1, second), 0) << "another modem is another line";
    EXPECT_EQ(service.close(line), 0);
    const int other = open(here->path().c_str(), O_RDWR | O_NOCTTY);
    EXPECT_EQ(flock(other, LOCK_EX | LOCK_NB), 0) << "nobody holds it any more";
    close(other);
    EXPECT_EQ(service.close(line), result::badLine);
    EXPECT_EQ(openLine(0, line), 0) << "and can be opened again at once";
}

TEST_F(Lines, AnotherProgramHoldsIt) {
    const int other = open(here->path().c_str(), O_RDWR | O_NOCTTY);
    ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0);
    EXPECT_EQ(openLine(0, line), result::lineInUse);
    close(other);
    ASSERT_EQ(openLine(0, line), 0);
    const int late = open(here->path().c_str(), O_RDWR | O_NOCTTY);
    EXPECT_TRUE(late < 0 || flock(late, LOCK_EX | LOCK_NB) != 0) << "and we hold it against others";
    close(late);
}

TEST_F(Lines, ModemThatIsSlowOrRefuses) {
    here->add({.mishap = simulated::Mishap::silence, .text = "E0Q0V1", .times = 1});
    EXPECT_EQ(openLine(0, line), 0) << "the first greeting may get lost";
    testing::internal::CaptureStderr();
    there->add({.mishap = simulated::Mishap::refusal, .text = "&F"});
    EXPECT_EQ(openLine(1, line), result::operationFailed);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "telephony: [There] " + there->path() + ": the modem refuses AT&F&C1&D2X4\n");
}

TEST_F(Lines, ModemLeftInACallIsTakenOutOfIt) {
    const int other = open(here->path().c_str(), O_RDWR | O_NOCTTY);
    ASSERT_EQ(openLine(1, line, service_::privilege::owner), 0);
    reaction() = [&](const Message& one) {
        if (one.message == service_::message::callState && one.p1 == service_::callState::offering)
            service.answer(one.device, nullptr, 0);
    };
    writeTo(other, "ATD200\r");
    ASSERT_TRUE(until([&] { return here->status().phase == simulated::Phase::online; }));
    // It stays open beside us, so nothing but the escape ends the call.
    uint32_t mine = 0;
    EXPECT_EQ(openLine(0, mine), 0);
    EXPECT_EQ(here->status().phase, simulated::Phase::idle);
    close(other);
}

TEST_F(OneLine, NoModemAnswers) {
    Pty silent;
    startAt(silent.slavePath());
    testing::internal::CaptureStderr();
    EXPECT_EQ(openLine(0, line), result::operationFailed);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "telephony: [One] " + silent.slavePath() + ": no modem answers\n");
    EXPECT_FALSE(silent.connected());
}

TEST_F(OneLine, NoDevice) {
    startAt("/dev/there-is-none");
    testing::internal::CaptureStderr();
    EXPECT_EQ(openLine(0, line), result::componentMissing);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "telephony: [One] /dev/there-is-none: No such file or directory\n");
    EXPECT_EQ(service.setConfiguration(0, "device = /dev/null", 18, service_::modemClass), 0);
    testing::internal::CaptureStderr();
    EXPECT_EQ(openLine(0, line), result::componentMissing);
    EXPECT_NE(testing::internal::GetCapturedStderr().find("/dev/null: "), std::string::npos);
    EXPECT_EQ(service.setConfiguration(0, "colour = red", 12, service_::modemClass), result::badParameter);
}

TEST_F(OneLine, ShutdownEndsAnOpeningAtOnce) {
    Pty silent;
    startAt(silent.slavePath());
    testing::internal::CaptureStderr();
    std::thread opener([&] { EXPECT_EQ(openLine(0, line), result::operationFailed); });
    EXPECT_FALSE(silent.read(3).empty()) << "it has begun";
    begun = Clock::now();
    EXPECT_EQ(service.shutdown(application), 0);
    opener.join();
    EXPECT_LT(took(), Milliseconds(1000)) << "a silent modem takes longer than that to be given up";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_FALSE(silent.connected());
    EXPECT_EQ(service.shutdown(application), result::badApplication);
    application = 0;
}

TEST_F(Lines, UnpluggedWhileNothingHappens) {
    ASSERT_EQ(openLine(0, line), 0);
    here.reset();
    EXPECT_TRUE(until([&] {
        return !received().empty() && received().back().message == service_::message::lineDeviceState &&
               received().back().p1 == service_::deviceState::disconnected;
    }));
    EXPECT_FALSE(canCall());
    uint32_t call = 0;
    EXPECT_EQ(service.makeCall(line, &call, "T200", 0, nullptr), result::operationFailed);
    EXPECT_EQ(service.close(line), 0);
}

TEST_F(Lines, SmallRecordsGetWhatFits) {
    char space[300] = {};
    auto* const capabilities = reinterpret_cast<service_::DeviceCapabilities*>(space);
    const auto ask = [&](uint32_t total) {
        capabilities->sizes.total = total;
        return service.deviceCapabilities(application, 0, service_::highestVersion, 0, capabilities);
    };
    EXPECT_EQ(ask(251), result::recordTooSmall);
    EXPECT_EQ(ask(0), result::recordTooSmall);
    EXPECT_EQ(ask(252), 0);
    EXPECT_EQ(capabilities->sizes.needed, 257U);
    EXPECT_EQ(capabilities->sizes.used, 252U);
    EXPECT_EQ(capabilities->nameSize, 0U);
    EXPECT_EQ(space[252], 0);
    EXPECT_EQ(ask(257), 0);
    EXPECT_STREQ(space + capabilities->nameOffset, "Here");

    service_::AddressCapabilities address{};
    address.sizes.total = sizeof address;
    EXPECT_EQ(service.addressCapabilities(application, 1, 0, service_::highestVersion, 0, &address), 0);
    EXPECT_EQ(address.lineDeviceId, 1U);
    address.sizes.total = 227;
    EXPECT_EQ(service.addressCapabilities(application, 1, 0, 0, 0, &address), result::recordTooSmall);
}

TEST_F(Lines, VersionsThatBothKnow) {
    uint32_t version = 0;
    service_::ExtensionId extension{{1, 2, 3, 4}};
    EXPECT_EQ(service.negotiate(application, 0, 0x10003, 0x20002, &version, &extension), 0);
    EXPECT_EQ(version, 0x20002U);
    EXPECT_EQ(extension.words[3], 0U);
    EXPECT_EQ(service.negotiate(application, 0, 0x10001, 0x10004, &version, nullptr), 0);
    EXPECT_EQ(version, 0x10004U);
    EXPECT_EQ(service.negotiate(application, 0, 0x20003, 0x30000, &version, nullptr),
              result::incompatibleVersion);
    EXPECT_EQ(service.negotiate(application, 0, 0x10000, 0x10002, &version, nullptr),
              result::incompatibleVersion);
    EXPECT_EQ(service.negotiate(application, 2, 0x10003, 0x20002, &version, nullptr), result::badDevice);
}

TEST_F(Lines, NonsenseIsRefused) {
    ASSERT_EQ(openLine(0, line), 0);
    uint32_t number = 0;
    service_::VariableString identifier{};
    identifier.sizes.total = sizeof identifier;
    EXPECT_EQ(service.initialize(nullptr, nullptr, callback, "x", &number), result::nullPointer);
    EXPECT_EQ(service.initialize(&number, nullptr, nullptr, "x", &number), result::nullPointer);
    EXPECT_EQ(service.deviceCapabilities(application, 0, 0, 0, nullptr), result::nullPointer);
    EXPECT_EQ(service.addressStatus(line, 0, nullptr), result::nullPointer);
    EXPECT_EQ(service.negotiate(application, 0, 0, ~0U, nullptr, nullptr), result::nullPointer);
    EXPECT_EQ(service.getId(line, 0, 0, 1, nullptr, service_::modemClass), result::nullPointer);
    EXPECT_EQ(service.getId(line, 0, 0, 1, &identifier, nullptr), result::nullPointer);
    EXPECT_EQ(service.getId(line, 0, 0, 1, &identifier, "wave/in"), result::badClass);
    EXPECT_EQ(service.getId(line, 0, 0, 3, &identifier, service_::modemClass), result::badSelect);
    EXPECT_EQ(service.getId(line, 0, line, 4, &identifier, service_::modemClass), result::badCall);
    EXPECT_EQ(service.makeCall(line, nullptr, "1", 0, nullptr), result::nullPointer);
    EXPECT_EQ(service.makeCall(line, &number, nullptr, 0, nullptr), result::nullPointer);
    EXPECT_EQ(service.makeCall(application, &number, "1", 0, nullptr), result::badLine);
    for (const char* bad : {"", "T1\rATZ", "T1;", "no number", "\xFF"})
        EXPECT_EQ(service.makeCall(line, &number, bad, 0, nullptr), result::badNumber) << bad;
    EXPECT_EQ(service.makeCall(line, &number, std::string(81, '1').c_str(), 0, nullptr), result::badNumber);
    service_::CallParameters parameters{};
    EXPECT_EQ(service.makeCall(line, &number, "1", 0, &parameters), result::recordTooSmall);
    parameters.totalSize = sizeof parameters;
    parameters.bearerMode = service_::bearer::data;
    EXPECT_EQ(service.makeCall(line, &number, "1", 0, &parameters), result::badBearer);
    EXPECT_EQ(service.open(line, 0, &number, 0, 0, 0, 1, 16, nullptr), result::badApplication);
    EXPECT_EQ(service.open(application, 9, &number, 0, 0, 0, 1, 16, nullptr), result::badDevice);
    EXPECT_EQ(service.open(application, 1, nullptr, 0, 0, 0, 1, 16, nullptr), result::nullPointer);
    EXPECT_EQ(service.open(application, 1, &number, 0, 0, 0, 0, 16, nullptr), result::badPrivileges);
    EXPECT_EQ(service.open(application, 1, &number, 0, 0, 0, 5, 16, nullptr), result::badPrivileges);
    EXPECT_EQ(service.open(application, 1, &number, 0, 0, 0, 4, 4, nullptr), result::badMedia);
    EXPECT_EQ(service.setConfiguration(0, nullptr, 1, service_::modemClass), result::nullPointer);
    for (const uint32_t wrong : {0U, line, application, ~0U}) {
        EXPECT_EQ(service.answer(wrong, nullptr, 0), result::badCall);
        EXPECT_EQ(service.drop(wrong, nullptr, 0), result::badCall);
        EXPECT_EQ(service.deallocate(wrong), result::badCall);
        EXPECT_EQ(service.callStatus(wrong, nullptr), result::badCall);
    }
    EXPECT_TRUE(canCall()) << "none of it has changed anything";
}
