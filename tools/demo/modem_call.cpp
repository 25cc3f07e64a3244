#include "modem_call.h"

#include <array>
#include <chrono>
#include <cstdio>

#include <brisolt.h>

#include "modem/simulator.h"
#include "port.h"
#include "progress.h"

namespace {

using Texts = std::vector<std::string>;

constexpr int32_t endMarker = 26; ///< what a text transfer sends behind the text
constexpr int32_t escapeKey = 27;
constexpr const char* modemName = "Hayes Compatible Standard";

/// A modem with a telephone number, the port at it, and where that port's doings are told.
struct Station {
    std::string number;
    std::string protocolLog;
    simulated::Simulator modem;
    Port port;

    Station(const char* telephone, simulated::Exchange& exchange, const std::string& directory)
        : number(telephone), protocolLog(directory + "/protocol-" + number + ".txt"),
          modem(simulated::nullModemLine("demo-" + number), exchange, options(number)),
          port(modem.path(), directory + "/trace-" + number + ".txt") {}

    static simulated::Options options(const std::string& telephone) {
        simulated::Options options;
        options.number = telephone;
        options.log = [telephone](std::string_view text) {
            std::printf("  modem %s: %.*s\n", telephone.c_str(), static_cast<int>(text.size()), text.data());
        };
        return options;
    }
};

void setUp(const Station& station, bool answers) {
    constexpr int32_t send = 1, on = 1, hardware = 1, rtsCts = 0;
    // The modem is about to be told that it may hold us off by CTS.
    need(ComSetFlow(station.port, rtsCts) == 1, "ComSetFlow");
    const int32_t result = ComSetModem(station.port, BRISOLT_MODEMS, modemName, send, send, on, hardware, on,
                                       answers ? 1 : 0, station.protocolLog.c_str());
    need(result == 1, "ComSetModem: " + std::to_string(result) + ", see " + station.protocolLog);

    // A modem online takes a command for data, so the escape goes in front. And what is received is to be
    // the text to the last byte, with the line ends that it has.
    ComModemParms modem{};
    ComAsciiParms ascii{};
    need(ComGetModemParms(station.port, &modem) == 1 && ComGetAsciiParms(station.port, &ascii) == 1, "parms");
    std::snprintf(modem.discStr, sizeof modem.discStr, "+++~~ATH0|");
    ascii.addCR = 0;
    need(ComSetModemParms(station.port, &modem) == 1 && ComSetAsciiParms(station.port, &ascii) == 1, "parms");
}

/// Takes what the modem says up to the end of its CONNECT line.
void awaitConnect(const Station& station) {
    std::array<char, 100> rate{};
    need(ComStimulus(station.port, "CONNECT", "", 1000, 10) == 1 &&
             ComReadBuf(station.port, rate.data(), '\n', rate.size() - 1, 5) == 2,
         "no CONNECT from the modem " + station.number);
    need(ComCarrier(station.port) == 1, "a connection without carrier");
}

void call(const Station& here, const Station& there) {
    std::printf("  port %d dials %s\n", static_cast<int32_t>(here.port), there.number.c_str());
    const int32_t result = ComDial(here.port, there.number.c_str());
    need(result == 1, "ComDial: " + std::to_string(result));
    awaitConnect(here);
    awaitConnect(there);
}

/// Both ends step by step; how far it is comes from the progress record of the one that receives.
void transfer(const Station& from, const std::string& text, const Station& to, const std::string& copy) {
    constexpr int32_t chunk = 2048, inProgress = 5, endOfFile = 1, endCharacter = 2;
    need(ComRA_Start(to.port, copy.c_str(), escapeKey, endMarker, 20) == 1, copy + " cannot be received");
    need(ComSA_Start(from.port, text.c_str(), chunk) == 1, text + " cannot be sent");
    CSetTotal(to.port, text.c_str());
    Progress progress("from " + from.number + " to " + to.number,
                      static_cast<std::size_t>(ComGetTotal(to.port)));
    int32_t sending = inProgress, receiving = inProgress;
    while (sending == inProgress || receiving == inProgress) {
        if (sending == inProgress)
            sending = ComSA_Next(from.port);
        else
            ComSleepMS(to.port, 1);
        if (receiving == inProgress)
            receiving = ComRA_Next(to.port);
        progress.at(static_cast<std::size_t>(ComGetBytes(to.port)));
    }
    need(sending == endOfFile && receiving == endCharacter,
         "transfer: " + std::to_string(sending) + ", " + std::to_string(receiving));
}

void hangUp(const Station& here, const Station& there) {
    std::printf("  port %d hangs up\n", static_cast<int32_t>(here.port));
    need(ComDisc(here.port) == 1, "ComDisc");
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (ComCarrier(here.port) != 0 || ComCarrier(there.port) != 0) {
        need(std::chrono::steady_clock::now() < end, "carrier stays after the hang-up");
        ComSleepMS(there.port, 10);
    }
}

} // namespace

std::vector<std::string> carryOverCall(const std::string& directory, const std::string& text) {
    std::printf("\nA call between two modems, each on a null modem, set up as a \"%s\"\n", modemName);
    Texts copies{"received-by-200.txt", "back-at-100.txt"};
    const auto path = [&directory](const std::string& name) { return directory + "/" + name; };
    simulated::Exchange exchange;
    const Station here("100", exchange, directory), there("200", exchange, directory);
    setUp(there, true);
    setUp(here, false);
    call(here, there);
    transfer(here, path(text), there, path(copies[0]));
    transfer(there, path(copies[0]), here, path(copies[1]));
    hangUp(here, there);
    return copies;
}
