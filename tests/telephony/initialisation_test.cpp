// Binding to the service, registration, and the table of devices.
#include <ostream>

#include <gtest/gtest.h>

#include "telephony/scripted_service.h"
#include "telephony/telephony_log.h"

namespace brisolt::test {
namespace {

namespace result = service::result;

std::string nameOf(int32_t index) {
    char name[75];
    return ComTAPI_GetModemName(index, name) == 1 ? name : "";
}

TEST(TelephonyInitialisation, ListsTheUnbrokenRunOfUsableDevices) {
    Telephony telephony({{"Modem A"}, {"Modem B"}, {.name = "No media", .mediaModes = 0}, {"Modem D"}});
    EXPECT_EQ(ComTAPI_GetModemCount(), -1);
    EXPECT_EQ(ComTAPI_GetPort("Modem A"), -6);
    EXPECT_EQ(Com_TAPI_Shutdown(), 1);

    EXPECT_EQ(telephony.initialise(), 2);
    EXPECT_EQ(telephony.initialise(), -2);
    EXPECT_EQ(ComTAPI_GetModemCount(), 2);
    EXPECT_EQ(nameOf(1), "Modem B");
    EXPECT_EQ(nameOf(2), "Line Unnamed");
    char empty[75] = "?";
    for (int32_t index : {-1, 3, 74, 75, INT32_MAX})
        EXPECT_EQ(ComTAPI_GetModemName(index, empty), 0);
    EXPECT_STREQ(empty, "");
    EXPECT_EQ(ComTAPI_GetModemName(0, nullptr), 0);
    EXPECT_EQ(ComTAPI_GetPort("Modem B"), 131);
    for (const char* name : {"modem b", "Modem D", "Line Unnamed", "", static_cast<const char*>(nullptr)})
        EXPECT_EQ(ComTAPI_GetPort(name), -1);
    EXPECT_NE(telephony.log().find("TAPI LOG BEGIN"), std::string::npos);
    EXPECT_EQ(telephony.logged("Device 1 = Modem B"), 1);
    EXPECT_EQ(telephony.logged("Equiped TAPI Port Device: 1 Name: Modem B Virt_Port: 131"), 1);
    EXPECT_EQ(telephony.logged("DevCaps doesn't support data modem features - Media Modes."), 1);

    EXPECT_EQ(Com_TAPI_Shutdown(), 1);
    EXPECT_EQ(telephony.service.count("lineShutdown"), 1);
    EXPECT_EQ(ComTAPI_GetModemName(0, empty), -6);
    EXPECT_EQ(telephony.initialise(), 2);
    EXPECT_EQ(telephony.service.count("lineInitialize"), 2);
}

TEST(TelephonyInitialisation, KeepsAWaitTimeThatAModemCanMeet) {
    Telephony telephony;
    telephony.service.onMakeCall = [](uint32_t) {};
    auto timeOfSilentCall = [&](uint32_t seconds) {
        EXPECT_EQ(telephony.initialise(seconds), 2);
        const uint32_t begun = clock::ticks();
        EXPECT_EQ(ComTAPI_Connect("Modem A", "1", "T"), -20);
        const uint32_t time = clock::ticks() - begun;
        Com_TAPI_Shutdown();
        return time;
    };
    EXPECT_GE(timeOfSilentCall(5), 90000U);
    EXPECT_GE(timeOfSilentCall(4294988), 90000U); // its milliseconds do not fit, and would wrap to 20 s
    const uint32_t kept = timeOfSilentCall(11);
    EXPECT_GE(kept, 11000U);
    EXPECT_LT(kept, 90000U);
}

// ---- one device that is not fit

struct Unfit {
    const char* what;
    ScriptedModem modem;
    const char* name;
    const char* entry;
};
void PrintTo(const Unfit& tested, std::ostream* out) {
    *out << tested.what;
}

class UnfitDevice : public testing::TestWithParam<Unfit> {};

TEST_P(UnfitDevice, EndsTheTableAndTheLogTellsWhy) {
    Telephony telephony({{"Modem A"}, GetParam().modem});
    EXPECT_EQ(telephony.initialise(), 1);
    EXPECT_EQ(nameOf(1), GetParam().name);
    EXPECT_EQ(telephony.logged(GetParam().entry), 1) << telephony.log();
}

INSTANTIATE_TEST_SUITE_P(
    TelephonyInitialisation, UnfitDevice,
    testing::Values(
        Unfit{"Version", {.name = "B", .version = 0}, "Line Unavailable", "Couldn't NegotiateAPIVersion."},
        Unfit{"Bearer",
              {.name = "B", .bearerModes = 0x10},
              "Line Unnamed",
              "DevCaps doesn't support known data modem modes - bearer modes: 10."},
        Unfit{"NoCalls",
              {.name = "B", .lineFeatures = 0xF7},
              "Line Unnamed",
              "DevCaps doesn't support making calls. - Probably not a modem"},
        Unfit{"NameFormat",
              {.name = "B", .nameFormat = 2},
              "Line Unnamed",
              "DevCaps doesn't have a valid line name."},
        Unfit{"NameOutside",
              {.name = "B", .nameOffset = 0xFFFFFFF0},
              "Line Unnamed",
              "DevCaps doesn't have a valid line name."},
        Unfit{"NameEmpty", {.name = ""}, "Line Name is Empty", "Line name started with a NULL."}),
    [](const auto& tested) { return tested.param.what; });

TEST(TelephonyInitialisation, ANameIsCutToItsField) {
    Telephony telephony({{"Modem A"}, {std::string(5000, 'x')}});
    EXPECT_EQ(telephony.initialise(), 2);
    EXPECT_EQ(nameOf(1), std::string(74, 'x'));
    EXPECT_EQ(ComTAPI_GetPort(std::string(74, 'x').c_str()), 131);
}

TEST(TelephonyInitialisation, AFullTableHoldsSeventyFiveDevices) {
    std::vector<ScriptedModem> modems;
    for (int32_t index = 0; index < 80; ++index)
        modems.push_back({"Modem " + std::to_string(index)});
    Telephony telephony(modems);
    EXPECT_EQ(telephony.initialise(), 75);
    EXPECT_EQ(ComTAPI_GetPort("Modem 74"), 204);
    EXPECT_EQ(ComTAPI_GetPort("Modem 75"), -1);
}

TEST(TelephonyInitialisation, WithoutAUsableFirstDeviceTheCountIsTheServicesOwn) {
    Telephony telephony({{.name = "A", .mediaModes = 0}});
    telephony.service.reportedDevices = 200; // beyond the table, which lookups must not leave
    EXPECT_EQ(telephony.initialise(), -1);
    EXPECT_EQ(ComTAPI_GetModemCount(), 200);
    EXPECT_EQ(nameOf(0), "");
    EXPECT_EQ(ComTAPI_Connect("A", "1", "T"), -3);
    EXPECT_EQ(ComTAPI_Connect("", "1", "T"), -3);
    EXPECT_EQ(telephony.initialise(), -2);
}

// ---- what the service answers

TEST(TelephonyInitialisation, RefusedRegistrations) {
    Telephony telephony;
    telephony.service.answer("lineInitialize",
                             {result::noDevices, result::reinitialising, result::componentMissing,
                              result::resourceUnavailable, result::code(0x99)});
    for (int32_t outcome : {-2, -1, -3, -3, -3}) {
        EXPECT_EQ(telephony.initialise(), outcome);
        EXPECT_EQ(ComOpenState(129), 1);
        EXPECT_EQ(ComTAPI_Connect("Modem A", "1", "T"), -2);
        EXPECT_EQ(telephony.initialise(), -2);
        Com_TAPI_Shutdown();
    }
    EXPECT_EQ(
        telephony.logged(
            "There are no devices configured for Telephony use. Install a Modem using the Control Panel"),
        1);
    EXPECT_EQ(
        telephony.logged("A Telephony resource is temporarily unavaiable. This could mean a short wait is "
                         "necessary or that a non-TAPI application is using the line."),
        1);
    EXPECT_EQ(telephony.logged("lineInitialize unhandled error: -2147483495"), 1);
    EXPECT_EQ(telephony.service.count("lineShutdown"), 0);
    EXPECT_EQ(telephony.initialise(), 2);
}

TEST(TelephonyInitialisation, AContextThatWasClosedByHandLeavesNoLineBehind) {
    Telephony telephony;
    ASSERT_EQ(telephony.initialise(), 2);
    ASSERT_EQ(ComTAPI_AutoAnswer("Modem A", 1), 1);
    ASSERT_EQ(ComVirtualClose(129), 1);
    EXPECT_EQ(telephony.initialise(), 2);
    EXPECT_EQ(telephony.service.openLines(), 0U);
    EXPECT_EQ(ComTAPI_AutoAnswer("Modem A", 1), 1);
    EXPECT_EQ(telephony.service.openLines(), 1U);
    EXPECT_EQ(telephony.service.count("lineInitialize"), 1) << "the registration stays";
}

TEST(TelephonyInitialisation, RequestsAreRepeatedWhileTheServiceAsksForIt) {
    Telephony telephony;
    telephony.service.answer("lineInitialize", {result::callAgain1, result::callAgain2, result::callAgain3});
    telephony.service.answer("lineNegotiateAPIVersion", std::vector<int32_t>(8, result::callAgain2));
    EXPECT_EQ(telephony.initialise(), 2);
    EXPECT_EQ(telephony.service.count("lineInitialize"), 4);
    EXPECT_EQ(
        telephony.logged("Configuration information relating to Telephony services appears to be corrupt"),
        11);
}

TEST(TelephonyInitialisation, AServiceThatNeverGetsFurtherIsGivenUp) {
    Telephony telephony;
    telephony.service.answerAlways("lineInitialize", result::callAgain1);
    EXPECT_EQ(telephony.initialise(), -3);
}

TEST(TelephonyInitialisation, RecordsGrowUntilTheyFit) {
    Telephony telephony;
    telephony.service.padding = [](uint32_t offered) { return offered < 9000 ? offered + 1000 : 0; };
    EXPECT_EQ(telephony.initialise(), 2);
    EXPECT_EQ(nameOf(0), "Modem A");
    EXPECT_EQ(ComTAPI_Connect("Modem A", "1", "T"), 130);
    ComTAPI_Disconnect("Modem A");
}

TEST(TelephonyInitialisation, RecordsThatGrowWithoutEndAreGivenUp) {
    for (uint32_t step : {uint32_t{8}, uint32_t{1} << 31}) {
        Telephony telephony;
        telephony.service.padding = [=](uint32_t offered) { return offered + step; };
        EXPECT_EQ(telephony.initialise(), -1);
        EXPECT_EQ(telephony.logged("Out of Memory error, canceling action"), 1);
    }
}

TEST(TelephonyInitialisation, AServiceThatCannotBeLoadedIsMissedForGood) {
    FastClock fast;
    ComHostMapModule("tapi32.dll", "/nonexistent/service.so");
    EXPECT_EQ(ComTAPI_INIT(nullptr), -3);
    char text[300];
    EXPECT_GT(ComHostGetErrorText(text, sizeof text), 0);
    EXPECT_NE(std::string(text).find("/nonexistent/service.so"), std::string::npos);
    Com_TAPI_Shutdown();
    ComHostMapModule("TAPI32.DLL", BRISOLT_TEST_SERVICE);
    EXPECT_EQ(ComTAPI_INIT(""), -3);
    EXPECT_EQ(ComHostMapModule(nullptr, "x"), -1);
    EXPECT_EQ(ComHostMapModule("", "x"), -1);
}

TEST(TelephonyLog, EntriesOfThreadsAndOfTheProgramAllArrive) {
    constexpr int32_t each = 300;
    Telephony telephony;
    ASSERT_EQ(telephony.initialise(), 2);
    auto write = [](const char* who) {
        for (int32_t i = 0; i < each; ++i)
            telephony::log("%s", who);
    };
    std::thread first(write, "first");
    std::thread second(write, "second");
    for (int32_t i = 0; i < each; ++i) // these may lose, as everywhere, but must not make others lose
        ComWriteDebugFile(129, "program");
    first.join();
    second.join();
    EXPECT_EQ(telephony.logged("first"), each);
    EXPECT_EQ(telephony.logged("second"), each);
}

} // namespace
} // namespace brisolt::test
