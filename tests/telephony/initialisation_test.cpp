// Binding to the service, registration, and the table of devices.

#include "platform/error_text.h"
#include "support/limit.h"
#include "telephony/telephony_log.h"
#include "telephony/two_modems.h"

namespace brisolt::test {
namespace {

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
    telephony.expectLogged({"Device 1 = Modem B", "Equiped TAPI Port Device: 1 Name: Modem B Virt_Port: 131",
                            "DevCaps doesn't support data modem features - Media Modes."});
    EXPECT_EQ(Com_TAPI_Shutdown(), 1);
    EXPECT_EQ(telephony.service.count("lineShutdown"), 1);
    EXPECT_EQ(ComTAPI_GetModemName(0, empty), -6);
    EXPECT_EQ(telephony.initialise(), 2);
    EXPECT_EQ(telephony.service.count("lineInitialize"), 2);
}

TEST(TelephonyInitialisation, ADeviceThatIsNotFitEndsTheTableAndTheLogTellsWhy) {
    const char* const modes = "DevCaps doesn't support known data modem modes - bearer modes: 10.";
    const char* const calls = "DevCaps doesn't support making calls. - Probably not a modem";
    const char *const name = "DevCaps doesn't have a valid line name.", *const unnamed = "Line Unnamed";
    const std::tuple<ScriptedModem, const char*, const char*> unfit[] = {
        {{.name = "B", .version = 0}, "Line Unavailable", "Couldn't NegotiateAPIVersion."},
        {{.name = "B", .bearerModes = 0x10}, unnamed, modes},
        {{.name = "B", .lineFeatures = 0xF7}, unnamed, calls},
        {{.name = "B", .nameFormat = 2}, unnamed, name},
        {{.name = "B", .nameOffset = 0xFFFFFFF0}, unnamed, name},
        {{.name = ""}, "Line Name is Empty", "Line name started with a NULL."},
    };
    for (const auto& [modem, shown, entry] : unfit) {
        Telephony telephony({{"Modem A"}, modem});
        EXPECT_EQ(telephony.initialise(), 1) << entry;
        EXPECT_EQ(nameOf(1), shown);
        telephony.expectLogged({entry});
    }
}

TEST(TelephonyInitialisation, AFullTableHoldsSeventyFiveDevicesAndTheStartOfTheirNames) {
    std::vector<ScriptedModem> modems(80);
    for (std::size_t index = 0; index < modems.size(); ++index)
        modems[index].name = "Modem " + std::to_string(index);
    modems[1].name = std::string(5000, 'x');
    Telephony telephony(modems);
    EXPECT_EQ(telephony.initialise(), 75);
    EXPECT_EQ(ComTAPI_GetPort("Modem 74"), 204);
    EXPECT_EQ(ComTAPI_GetPort("Modem 75"), -1);
    EXPECT_EQ(nameOf(1), std::string(74, 'x'));
    EXPECT_EQ(ComTAPI_GetPort(std::string(74, 'x').c_str()), 131);
}

TEST(TelephonyInitialisation, WithoutAUsableFirstDeviceTheCountIsTheServicesOwn) {
    Telephony telephony({{.name = "A", .mediaModes = 0}});
    telephony.service.reportedDevices = 200; // beyond the table, which lookups must not leave
    EXPECT_EQ(telephony.initialise(), -1);
    EXPECT_EQ(ComTAPI_GetModemCount(), 200);
    EXPECT_EQ(nameOf(0), "");
    EXPECT_EQ(ComTAPI_Connect("A", "1", "T"), -3);
    EXPECT_EQ(telephony.initialise(), -2);
}

TEST(TelephonyInitialisation, KeepsAWaitTimeThatAModemCanMeet) {
    Telephony telephony;
    telephony.service.onMakeCall = [](uint32_t) {};
    for (uint32_t seconds : {5U, 11U, 4294988U}) { // the milliseconds of the last would wrap to 20 s
        EXPECT_EQ(telephony.initialise(seconds), 2);
        const uint32_t begun = clock::ticks();
        EXPECT_EQ(ComTAPI_Connect("Modem A", "1", "T"), -20);
        const uint32_t time = clock::ticks() - begun;
        EXPECT_GE(time, 11000U);
        EXPECT_EQ(time < 90000, seconds == 11) << seconds;
        Com_TAPI_Shutdown();
    }
}

TEST(TelephonyInitialisation, RefusalsAreFinalAndRequestsToCallAgainAreMet) {
    Telephony telephony;
    telephony.service.answer("lineInitialize",
                             {result::noDevices, result::reinitialising, result::componentMissing,
                              result::driverTwice, result::code(0x99)},
                             result::callAgain1); // and the last without an end
    for (int32_t outcome : {-2, -1, -3, -3, -3, -3}) {
        EXPECT_EQ(telephony.initialise(), outcome);
        EXPECT_EQ(ComOpenState(129), 1);
        EXPECT_EQ(ComTAPI_Connect("Modem A", "1", "T"), -2);
        EXPECT_EQ(telephony.initialise(), -2);
        Com_TAPI_Shutdown();
    }
    telephony.expectLogged(
        {"There are no devices configured for Telephony use. Install a Modem using the Control Panel",
         "lineInitialize unhandled error: -2147483495"});
    EXPECT_EQ(telephony.service.count("lineShutdown"), 0);
    const std::string again =
        "Configuration information relating to Telephony services appears to be corrupt";
    const int32_t before = telephony.logged(again);
    telephony.service.answer("lineInitialize", {result::callAgain1, result::callAgain2, result::callAgain3});
    telephony.service.answer("lineNegotiateAPIVersion", std::deque<int32_t>(8, result::callAgain2));
    EXPECT_EQ(telephony.initialise(), 2);
    EXPECT_EQ(telephony.logged(again), before + 11);
}

TEST_F(TwoModems, WhoseContextWasClosedByHandLeaveNoLineBehind) {
    ASSERT_EQ(arm(), 1);
    ASSERT_EQ(ComVirtualClose(129), 1);
    EXPECT_EQ(initialise(), 2);
    EXPECT_EQ(service.openLines(), 0U);
    EXPECT_EQ(arm(), 1);
    EXPECT_EQ(service.count("lineInitialize"), 1) << "the registration stays";
}

TEST(TelephonyInitialisation, RecordsGrowUntilTheyFitButNotWithoutEnd) {
    Telephony telephony;
    telephony.service.padding = [](uint32_t offered) { return offered < 9000 ? offered + 1000 : 0; };
    EXPECT_EQ(telephony.initialise(), 2);
    EXPECT_EQ(ComTAPI_Connect("Modem A", "1", "T"), 130);
    ComTAPI_Disconnect("Modem A");
    for (uint32_t step : {uint32_t{8}, uint32_t{1} << 31}) {
        Com_TAPI_Shutdown();
        telephony.service.padding = [=](uint32_t offered) { return offered + step; };
        EXPECT_EQ(telephony.initialise(), -1);
    }
    EXPECT_EQ(telephony.logged("Out of Memory error, canceling action"), 2);
}

TEST(TelephonyModule, OneThatCannotBeLoadedIsMissedForGood) {
    FastClock fast;
    ComHostMapModule("tapi32.dll", "/nonexistent/service.so");
    EXPECT_EQ(ComTAPI_INIT(nullptr), -3);
    EXPECT_NE(errorText().find("/nonexistent/service.so"), std::string::npos);
    Com_TAPI_Shutdown();
    ComHostMapModule("TAPI32.DLL", BRISOLT_TEST_SERVICE);
    EXPECT_EQ(ComTAPI_INIT(""), -3);
    for (const char* name : {"", static_cast<const char*>(nullptr)})
        EXPECT_EQ(ComHostMapModule(name, "x"), -1);
}

TEST(TelephonyModule, OneThatOnlyWantedADescriptorIsLoadedByTheNextCall) {
    Telephony telephony;
    const std::string path = telephony.directory.file("service.so"); // the module itself is loaded already
    std::filesystem::create_symlink(BRISOLT_TEST_SERVICE, path);
    ComHostMapModule("TAPI32.DLL", path.c_str());
    {
        const NoDescriptors none;
        EXPECT_EQ(ComTAPI_INIT(nullptr), -3);
        EXPECT_NE(errorText().find(path), std::string::npos);
        Com_TAPI_Shutdown();
    }
    EXPECT_EQ(telephony.initialise(), 2);
}

TEST(TelephonyModule, OneWithoutTheEntryPointsIsNoService) {
    Telephony telephony;
    ComHostMapModule("TAPI32.DLL", "libm.so.6");
    EXPECT_EQ(telephony.initialise(), -3);
    telephony.expectLogged({"lineInitialize unhandled error: -2147483575"});
}

TEST_F(TwoModems, WriteALogInWhichNothingIsLost) {
    constexpr int32_t each = 300;
    auto write = [](const char* who) {
        for (int32_t i = 0; i < each; ++i)
            telephony::log("%s", who);
    };
    std::thread first(write, "first"), second(write, "second");
    for (int32_t i = 0; i < each; ++i) // these may lose, as everywhere, but must not make others lose
        ComWriteDebugFile(129, "program");
    first.join();
    second.join();
    EXPECT_EQ(logged("first"), each);
    EXPECT_EQ(logged("second"), each);
}

} // namespace
} // namespace brisolt::test
