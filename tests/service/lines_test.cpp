// Lines: opening and closing them, modems that do not answer, and callers that ask for nonsense.
#include <sys/file.h>
#include <sys/ioctl.h>

#include <asm/termbits.h>

#include "telephony_program.h"

using namespace brisolt::test;

struct Lines : TwoModems {
    bool canCall() const {
        service_::AddressStatus status{};
        status.sizes.total = sizeof status;
        EXPECT_EQ(service.addressStatus(line, 0, &status), 0);
        return status.addressFeatures == service_::feature::addressMakeCall;
    }
};

TEST_F(Lines, OpenSetUpTheModemAndClose) {
    ASSERT_EQ(openLine(0, line), 0);
    EXPECT_EQ(here->commands(), (std::vector<std::string>{"ATE0Q0V1S0=0", "AT&F&C1&D2X4", "ATE0Q0V1S0=0"}));
    EXPECT_TRUE(canCall());
    service_::VariableString identifier{};
    identifier.sizes.total = sizeof identifier;
    EXPECT_EQ(service.getId(line, 0, 0, service_::select::line, &identifier, "COMM/DataModem"), 0);
    EXPECT_EQ(identifier.sizes.needed, sizeof identifier);

    EXPECT_EQ(openLine(0, outgoing), result::lineInUse);
    EXPECT_EQ(openLine(1, outgoing), 0) << "another modem is another line";
    EXPECT_EQ(service.close(line), 0);
    const int other = open(here->path().c_str(), O_RDWR | O_NOCTTY);
    ASSERT_EQ(flock(other, LOCK_EX | LOCK_NB), 0) << "nobody holds it any more";
    EXPECT_EQ(service.close(line), result::badLine);
    EXPECT_EQ(openLine(0, line), result::lineInUse) << "by another program";
    close(other);
    ASSERT_EQ(openLine(0, line), 0);
    const int late = open(here->path().c_str(), O_RDWR | O_NOCTTY);
    EXPECT_TRUE(late < 0 || flock(late, LOCK_EX | LOCK_NB) != 0) << "and we hold it against others";
    close(late);
    here.reset(); // unplugged while nothing happens
    EXPECT_TRUE(until([&] {
        return !received.empty() && received.back().message == service_::message::lineDeviceState &&
               received.back().p1 == service_::deviceState::disconnected;
    }));
    EXPECT_FALSE(canCall());
    EXPECT_EQ(service.makeCall(line, &outgoing, "T200", 0, nullptr), result::operationFailed);
    EXPECT_EQ(service.close(line), 0);
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

TEST_F(TelephonyProgram, NoDeviceAndNoModemAndAnOpeningThatIsCalledOff) {
    Pty silent;
    const std::string path = silent.slavePath(), ours = ": a modem of the telephony service cannot have ";
    const std::string unknown = path + "?colour=red: unknown option \"colour=red\"; possible: dtr, rts";
    const std::tuple<std::string, int32_t, std::string> refusals[] = {
        {"/dev/there-is-none", result::componentMissing, ": No such file or directory\n"},
        {"/dev/null", result::componentMissing, ": Inappropriate ioctl for device\n"},
        {path + "?keep=yes", result::operationFailed, ours + "keep=yes\n"},
        {path + "?keep=no&marks=yes", result::operationFailed, ours + "marks=yes\n"},
        {path + "?colour=red", result::componentMissing, ": cannot open " + unknown},
        {path, result::operationFailed, ": no modem answers\n"},
    };
    ASSERT_EQ(startAt("/dev/there-is-none"), 0);
    EXPECT_EQ(configure("colour = red"), result::badParameter);
    for (const auto& [device, code, why] : refusals) {
        testing::internal::CaptureStderr();
        EXPECT_EQ(configure("device = " + device), 0);
        EXPECT_EQ(openLine(0, line), code) << device;
        const std::string told = testing::internal::GetCapturedStderr();
        EXPECT_TRUE(told.starts_with("telephony: [One] " + device + why)) << told;
        EXPECT_EQ(told.find('\n'), told.size() - 1) << told;
    }
    silent.readToQuiet();
    testing::internal::CaptureStderr();
    std::thread opener([&] { EXPECT_EQ(openLine(0, line), result::operationFailed); });
    EXPECT_FALSE(silent.read(3).empty()) << "it has begun";
    const auto begun = Clock::now();
    EXPECT_EQ(service.shutdown(application), 0);
    opener.join();
    EXPECT_LT(Clock::now() - begun, Milliseconds(1500)) << "a silent modem is given up after 5 s";
    EXPECT_FALSE(silent.connected());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(service.shutdown(std::exchange(application, 0)), result::badApplication);
}

TEST_F(TelephonyProgram, RatesAreThoseThatOtherProgramsKnow) {
    PlainModem modem;
    callOver(modem);
    const int terminals[] = {modem.line.master(), commHandle(outgoing)};
    termios2 settings{};
    for (const int terminal : terminals) {
        ASSERT_EQ(ioctl(terminal, TCGETS2, &settings), 0);
        EXPECT_EQ(settings.c_cflag & CBAUD, tcflag_t{B115200});
        settings.c_cflag = (settings.c_cflag & ~tcflag_t{CBAUD}) | B1200;
        ioctl(terminal, TCSETS2, &settings);
        ioctl(terminal, TCGETS2, &settings);
        EXPECT_EQ(settings.c_ispeed, 1200U) << "another program's rate holds both ways";
    }
    close(terminals[1]);
    modem.online = false;
    EXPECT_EQ(service.close(line), 0);
    EXPECT_EQ(configure("speed = 250000\ndevice = " + modem.line.slavePath() + "?low-latency=on"), 0);
    EXPECT_EQ(openLine(0, line), 0);
    ioctl(terminals[0], TCGETS2, &settings);
    EXPECT_EQ(settings.c_ospeed, 250000U);
    EXPECT_EQ(settings.c_ispeed, 250000U);
}

TEST_F(Lines, SmallRecordsGetWhatFitsAndVersionsAreThoseThatBothKnow) {
    char space[300] = {};
    auto* const record = reinterpret_cast<service_::DeviceCapabilities*>(space);
    for (const uint32_t total : {0U, 251U, 252U, 257U}) {
        record->sizes.total = total;
        EXPECT_EQ(service.deviceCapabilities(application, 0, service_::highestVersion, 0, record),
                  total < 252 ? result::recordTooSmall : 0);
        EXPECT_EQ(record->sizes.needed, total < 252 ? 0U : 257U);
        EXPECT_EQ(record->sizes.used, total < 252 ? 0U : total);
        EXPECT_STREQ(space + 252, total < 257 ? "" : "Here");
        EXPECT_EQ(record->nameOffset, total < 257 ? 0U : 252U);
    }
    service_::AddressCapabilities address{};
    for (const int32_t result : {result::recordTooSmall, 0}) {
        address.sizes.total = result == 0 ? 228 : 227;
        EXPECT_EQ(service.addressCapabilities(application, 1, 0, service_::highestVersion, 0, &address),
                  result);
        EXPECT_EQ(address.lineDeviceId, result == 0 ? 1U : 0U);
    }
    constexpr uint32_t versions[][3] = {{0x10003, 0x20002, 0x20002},
                                        {0x10001, 0x10004, 0x10004},
                                        {0x20003, 0x30000, 0},
                                        {0x10000, 0x10002, 0}};
    for (const auto& [low, high, common] : versions) {
        uint32_t version = 0;
        service_::ExtensionId extension{{1, 2, 3, 4}};
        EXPECT_EQ(service.negotiate(application, 0, low, high, &version, &extension),
                  common == 0 ? result::incompatibleVersion : 0);
        EXPECT_EQ(version, common);
        EXPECT_EQ(extension.words[3], common == 0 ? 4U : 0U);
        EXPECT_EQ(service.negotiate(application, 2, low, high, &version, nullptr), result::badDevice);
    }
}

TEST_F(Lines, NonsenseIsRefused) {
    ASSERT_EQ(openLine(0, line), 0);
    service_::VariableString identifier{};
    identifier.sizes.total = sizeof identifier;
    const char* const modem = service_::modemClass;
    for (const int32_t said :
         {service.initialize(nullptr, nullptr, callback, "x", &outgoing),
          service.initialize(&outgoing, nullptr, nullptr, "x", &outgoing),
          service.negotiate(application, 0, 0, ~0U, nullptr, nullptr),
          service.deviceCapabilities(application, 0, 0, 0, nullptr), service.addressStatus(line, 0, nullptr),
          service.open(application, 1, nullptr, 0, 0, 0, 1, 16, nullptr),
          service.setConfiguration(0, nullptr, 1, modem), service.getId(line, 0, 0, 1, nullptr, modem),
          service.getId(line, 0, 0, 1, &identifier, nullptr),
          service.makeCall(line, nullptr, "1", 0, nullptr),
          service.makeCall(line, &outgoing, nullptr, 0, nullptr)})
        EXPECT_EQ(said, result::nullPointer);
    EXPECT_EQ(service.getId(line, 0, 0, 1, &identifier, "wave/in"), result::badClass);
    EXPECT_EQ(service.getId(line, 0, 0, 3, &identifier, modem), result::badSelect);
    EXPECT_EQ(service.getId(line, 0, line, 4, &identifier, modem), result::badCall);
    EXPECT_EQ(service.makeCall(application, &outgoing, "1", 0, nullptr), result::badLine);
    const std::string tooLong(81, '1');
    for (const char* bad : {"", "T1\rATZ", "T1;", "no number", "\xFF", tooLong.c_str()})
        EXPECT_EQ(service.makeCall(line, &outgoing, bad, 0, nullptr), result::badNumber) << bad;
    service_::CallParameters parameters{};
    EXPECT_EQ(service.makeCall(line, &outgoing, "1", 0, &parameters), result::recordTooSmall);
    parameters.totalSize = sizeof parameters;
    parameters.bearerMode = service_::bearer::data;
    EXPECT_EQ(service.makeCall(line, &outgoing, "1", 0, &parameters), result::badBearer);
    EXPECT_EQ(openLine(9, outgoing), result::badDevice);
    EXPECT_EQ(openLine(1, outgoing, 0), result::badPrivileges);
    EXPECT_EQ(openLine(1, outgoing, privilege::none | privilege::owner), result::badPrivileges);
    EXPECT_EQ(service.open(line, 1, &outgoing, 0, 0, 0, 1, 16, nullptr), result::badApplication);
    EXPECT_EQ(service.open(application, 1, &outgoing, 0, 0, 0, 4, 4, nullptr), result::badMedia);
    for (const uint32_t wrong : {0U, line, application, ~0U})
        for (const int32_t said : {service.answer(wrong, nullptr, 0), service.drop(wrong, nullptr, 0),
                                   service.deallocate(wrong), service.callStatus(wrong, nullptr)})
            EXPECT_EQ(said, result::badCall);
    EXPECT_TRUE(canCall()) << "none of it has changed anything";
}
