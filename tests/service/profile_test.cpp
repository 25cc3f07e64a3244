// Which modems a profile names, and what is said about one that is wrong.
#include <filesystem>

#include "telephony_program.h"

using brisolt::test::TelephonyProgram;
namespace service_ = brisolt::service;

namespace {

struct Profiles : TelephonyProgram {
    /// What a start with such a profile says; it has to give no devices.
    std::string complaint(const std::string& profile) {
        testing::internal::CaptureStderr();
        devices = 7;
        EXPECT_EQ(start(profile), service_::result::noDevices) << profile;
        EXPECT_EQ(devices, 0U);
        return testing::internal::GetCapturedStderr();
    }
    service_::DeviceCapabilities capabilities(uint32_t device, std::string& name) const {
        char space[400] = {};
        auto* const record = reinterpret_cast<service_::DeviceCapabilities*>(space);
        record->sizes.total = sizeof space;
        EXPECT_EQ(service.deviceCapabilities(application, device, service_::highestVersion, 0, record), 0);
        name = space + record->nameOffset;
        EXPECT_EQ(record->nameSize, name.size() + 1);
        EXPECT_EQ(record->sizes.needed, record->sizes.used);
        return *record;
    }
};

} // namespace

TEST_F(Profiles, SectionsAreTheLinesInTheirOrder) {
    ASSERT_EQ(start("\n; comment\n# another\r\n[ Office modem ]\nDevice=/dev/ttyS9\n\n"
                    "[Leased]\n\tdevice = \"/dev/ttyS8\"\nspeed = 9600\nbearer=Data\nhangup = escape\n"
                    "flow = none\ninit = ATZ|AT&F\ndial = ATM0D\nanswer = ATX4A"),
              0);
    EXPECT_EQ(devices, 2U);
    std::string name;
    const auto office = capabilities(0, name);
    EXPECT_EQ(name, "Office modem");
    EXPECT_EQ(office.bearerModes, service_::bearer::voice);
    EXPECT_EQ(office.mediaModes, service_::media::dataModem);
    EXPECT_EQ(office.lineFeatures, service_::feature::lineMakeCall);
    EXPECT_EQ(office.nameFormat, service_::stringFormat::plain);
    const auto leased = capabilities(1, name);
    EXPECT_EQ(name, "Leased");
    EXPECT_EQ(leased.bearerModes, service_::bearer::data);
    EXPECT_EQ(leased.maxRate, 9600U);
    EXPECT_NE(leased.permanentLineId, office.permanentLineId);
}

TEST_F(Profiles, MissingTellsWhere) {
    testing::internal::CaptureStderr();
    EXPECT_EQ(start(), service_::result::noDevices);
    EXPECT_NE(testing::internal::GetCapturedStderr().find(profilePath()), std::string::npos);

    // Without a folder of its own: the user's, then everybody's.
    unsetenv("BRISOLT_TELEPHONY");
    const std::string config = std::filesystem::path(profilePath()).parent_path();
    setenv("XDG_CONFIG_HOME", config.c_str(), 1);
    testing::internal::CaptureStderr();
    EXPECT_EQ(start(), service_::result::noDevices);
    EXPECT_EQ(testing::internal::GetCapturedStderr(),
              "telephony: no modems: there is no " + config +
                  "/brisolt/telephony.ini nor /etc/brisolt/telephony.ini\n");
    std::filesystem::create_directory(config + "/brisolt");
    std::ofstream(config + "/brisolt/telephony.ini") << "[A]\ndevice = /dev/ttyS9\n";
    EXPECT_EQ(start(), 0);
}

TEST_F(Profiles, WrongOnesTellPathAndLine) {
    const struct {
        const char* profile;
        const char* place;
    } wrong[] = {
        {"[A]\ndevice = /dev/a\nsped = 3\n", ":3: unknown key \"sped\""},
        {"[A]\ndevice = /dev/a\nspeed = fast\n", ":3: speed = \"fast\": has to be bits a second"},
        {"[A]\ndevice = /dev/a\nspeed = 9600x\n", ":3: speed"},
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
        {"; nothing\n", ": no [modem] in it"},
        {"", ": no [modem] in it"},
    };
    for (const auto& one : wrong) {
        const std::string said = complaint(one.profile);
        EXPECT_TRUE(said.starts_with("telephony: " + profilePath() + one.place)) << said;
        EXPECT_EQ(std::count(said.begin(), said.end(), '\n'), 1) << said;
    }
}
