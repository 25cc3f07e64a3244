// Which modems a profile names, and what is said about one that is wrong.
#include <filesystem>

#include "telephony_program.h"

using namespace brisolt::test;

struct Profiles : TelephonyProgram {
    /// What a start says that has to give no devices.
    std::string complaint() {
        testing::internal::CaptureStderr();
        devices = 7;
        EXPECT_EQ(start(), result::noDevices);
        EXPECT_EQ(devices, 0U);
        return testing::internal::GetCapturedStderr();
    }
};

TEST_F(Profiles, SectionsAreTheLinesInTheirOrder) {
    writeProfile("\xEF\xBB\xBF; an editor's mark is in front\n# another\r\n[ Office modem ]\n"
                 "Device=/dev/ttyS9\n\n[Leased]\n\tdevice = \"/dev/ttyS8\"\nspeed = 9600\nbearer=Data\n"
                 "hangup = escape\nflow = none\ninit = \"ATZ|AT &F ;\"\ndial = ATM0D\nanswer = ATX4A");
    ASSERT_EQ(start(), 0);
    EXPECT_EQ(devices, 2U);
    struct {
        service_::DeviceCapabilities fixed;
        char name[100];
    } lines[2] = {};
    for (const uint32_t device : {0U, 1U}) {
        auto& [record, name] = lines[device];
        record.sizes.total = sizeof lines[device];
        EXPECT_EQ(service.deviceCapabilities(application, device, service_::highestVersion, 0, &record), 0);
        EXPECT_STREQ(name, device == 0 ? "Office modem" : "Leased");
        EXPECT_EQ(record.nameSize, std::string(name).size() + 1);
        EXPECT_EQ(record.nameFormat, service_::stringFormat::plain);
        EXPECT_EQ(record.sizes.needed, record.sizes.used);
        EXPECT_EQ(record.bearerModes, device == 0 ? service_::bearer::voice : service_::bearer::data);
        EXPECT_EQ(record.maxRate, device == 0 ? 115200U : 9600U);
        EXPECT_EQ(record.mediaModes, service_::media::dataModem);
        EXPECT_EQ(record.lineFeatures, service_::feature::lineMakeCall);
    }
    EXPECT_NE(lines[0].fixed.permanentLineId, lines[1].fixed.permanentLineId);
}

TEST_F(Profiles, MissingTellsWhere) {
    EXPECT_NE(complaint().find(profilePath()), std::string::npos);
    // Without a folder of its own: the user's, then everybody's.
    unsetenv("BRISOLT_TELEPHONY");
    const std::string config = std::filesystem::path(profilePath()).parent_path();
    setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    EXPECT_EQ(complaint(), "telephony: no modems: there is no " + config +
                               "/brisolt/telephony.ini nor /etc/brisolt/telephony.ini\n");
    std::filesystem::create_directory(config + "/brisolt");
    std::ofstream(config + "/brisolt/telephony.ini") << "[A]\ndevice = /dev/ttyS9\n";
    EXPECT_EQ(start(), 0);
}

TEST_F(Profiles, WrongOnesTellPathAndLine) {
    const char* const wrong[][2] = {
        {"[A]\ndevice = /dev/a\nsped = 3\n", ":3: unknown key \"sped\""},
        {"[A]\ndevice = /dev/a\nspeed = 9600x\n", ":3: speed = \"9600x\": has to be bits a second"},
        {"[A]\nspeed = 9600 ; x\n", ":2: speed = \"9600 ; x\": has to be bits a second (a comment has to"},
        {"[A]\ndevice = /a\t# x\n", ":2: device = \"/a\t# x\": has to be the path of a serial device (a com"},
        {"[A]\ndevice = /dev/a\nspeed = 0\n", ":3: speed"},
        {"[A]\n\ndevice = /dev/a\nhangup = loudly\n", ":4: hangup = \"loudly\": has to be dtr or escape"},
        {"[A]\ndevice = /dev/a\ndial = AT\tD\n", ":3: dial"},
        {"[A]\ndevice =\n", ":2: device"},
        {"[A]\nspeed = 300\n[B]\ndevice = /dev/b\n", ":1: [A] has no device"},
        {"[B]\ndevice = /dev/b\n[A]", ":3: [A] has no device"},
        {"[A]\ndevice = /dev/a\n[A]\ndevice = /dev/b\n", ":3: a second modem [A]"},
        {"device = /dev/a\n", ":1: stands before the first [modem]"},
        {"[A\n", ":1: no ]"},
        {"[]\n", ":1: a modem without a name"},
        {"[A]\nrubbish\n", ":2: neither"},
        {"", ": no [modem] in it"},
    };
    for (const auto& [profile, place] : wrong) {
        writeProfile(profile);
        const std::string said = complaint();
        EXPECT_TRUE(said.starts_with("telephony: " + profilePath() + place)) << said;
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    }
}
