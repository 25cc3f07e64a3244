#include "telephone_call.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>

#include <brisolt.h>
#include <brisolt_host.h>

#include "modem/simulator.h"
#include "port.h"
#include "text.h"

// A build without the service still demonstrates the rest.
#ifndef BRISOLT_SERVICE
#define BRISOLT_SERVICE ""
#endif

namespace {

/// A line of the service and the modem at it.
struct TelephoneLine {
    const char* name;
    const char* number;
    simulated::Simulator modem;

    TelephoneLine(const char* lineName, const char* telephone, simulated::Exchange& exchange)
        : name(lineName), number(telephone), modem(simulated::ptyLine(), exchange, options(telephone)) {}

    static simulated::Options options(const char* telephone) {
        simulated::Options options;
        options.number = telephone;
        options.timeScale = 4; // nobody wants to watch a telephone ring
        options.log = [telephone](std::string_view text) {
            std::printf("  modem %s: %.*s\n", telephone, static_cast<int>(text.size()), text.data());
        };
        return options;
    }
    std::string profile() const {
        return std::string("[").append(name).append("]\ndevice = ").append(modem.path()).append("\n");
    }
};

/// Telephony while it lives: initialised, with these two lines and no other.
class Telephony {
public:
    Telephony(const TelephoneLine& caller, const TelephoneLine& called, const std::string& directory)
        : caller_(caller), called_(called) {
        writeFile(directory + "/telephony.ini", caller.profile() + called.profile());
        setenv("BRISOLT_TELEPHONY", directory.c_str(), 1);
        // Not one that is installed already.
        need(ComHostMapModule("TAPI32.DLL", BRISOLT_SERVICE) == 1, "ComHostMapModule");
        const int32_t lines = ComTAPI_INIT((directory + "/telephony.txt").c_str());
        if (lines != 2) {
            Com_TAPI_Shutdown();
            need(false, "ComTAPI_INIT: " + std::to_string(lines));
        }
    }
    Telephony(const Telephony&) = delete;
    Telephony& operator=(const Telephony&) = delete;
    /// Also what has stopped half way lets go of the modems before they end.
    ~Telephony() {
        ComTAPI_Disconnect(caller_.name);
        ComTAPI_Disconnect(called_.name);
        Com_TAPI_Shutdown();
    }

private:
    const TelephoneLine& caller_;
    const TelephoneLine& called_;
};

/// Everything about a call comes as a message; the ends do not connect at the same moment.
void awaitBothEnds(const TelephoneLine& caller, const TelephoneLine& called) {
    constexpr int32_t underWay = 101, connected = 100, answered = 105;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    int32_t dialling = underWay, answering = 0;
    while (dialling != connected || answering != answered) {
        need(dialling == connected || dialling == underWay, "the call fails: " + std::to_string(dialling));
        need(std::chrono::steady_clock::now() < end,
             "no connection: " + std::to_string(dialling) + ", " + std::to_string(answering));
        ComHostMessage message{};
        if (ComHostGetMessage(&message, 20) == 1)
            ComHostDispatchMessage(&message);
        dialling = ComTAPI_Connect_Status(caller.name);
        answering = ComTAPI_GetAutoAnswerState(called.name);
    }
}

void connect(const TelephoneLine& caller, const TelephoneLine& called) {
    std::printf("  \"%s\" waits for a call, \"%s\" dials %s\n", called.name, caller.name, called.number);
    int32_t result = ComTAPI_AutoAnswer(called.name, 1);
    need(result == 1, "ComTAPI_AutoAnswer: " + std::to_string(result));
    result = ComTAPI_Connect_Thread(caller.name, called.number, "T");
    need(result == 1, "ComTAPI_Connect_Thread: " + std::to_string(result));
    awaitBothEnds(caller, called);
}

void tell(int32_t from, int32_t to, const std::string& message) {
    constexpr int32_t patience = 5000; // milliseconds
    const auto size = static_cast<int32_t>(message.size());
    need(ComHostWrite(from, message.data(), size, patience) == size,
         "ComHostWrite on port " + std::to_string(from));
    std::string heard;
    for (int32_t count = 1; count > 0 && heard.size() < message.size();) {
        std::array<char, 64> piece{};
        count = ComHostRead(to, piece.data(), piece.size(), patience);
        heard.append(piece.data(), static_cast<std::size_t>(std::max(count, 0)));
    }
    need(heard == message, "port " + std::to_string(to) + " hears \"" + heard + '"');
    std::printf("  port %d hears from port %d: %s\n", to, from, heard.c_str());
}

void hangUp(const TelephoneLine& line) {
    std::printf("  \"%s\" hangs up\n", line.name);
    const int32_t result = ComTAPI_Disconnect(line.name);
    need(result == 1, "ComTAPI_Disconnect: " + std::to_string(result));
    need(line.modem.waitFor(simulated::Phase::idle), "the modem stays in the call");
}

} // namespace

void callByTelephony(const std::string& directory) {
    if (std::string(BRISOLT_SERVICE).empty()) {
        std::puts("\nA call through the telephony service: left out, the service is not part of this build.");
        return;
    }
    std::puts("\nA call through the telephony service, between two lines with a modem each");
    simulated::Exchange exchange;
    const TelephoneLine desk("Desk", "300", exchange), hall("Hall", "400", exchange);
    const Telephony telephony(desk, hall, directory);
    connect(desk, hall);
    const int32_t here = ComTAPI_GetPort(desk.name), there = ComTAPI_GetAutoAnswer_ConnectPort(hall.name);
    need(here > 0 && there > 0 && here != there && there == ComTAPI_GetPort(hall.name),
         "the ports of the call: " + std::to_string(here) + ", " + std::to_string(there));
    tell(here, there, "Good morning. Is anybody there?");
    tell(there, here, "Yes. Good morning!");
    hangUp(desk);
    hangUp(hall);
    need(Com_TAPI_Shutdown() == 1, "Com_TAPI_Shutdown");
    std::puts("  The lines are those of telephony.ini; all that was asked of them is in telephony.txt.");
}
