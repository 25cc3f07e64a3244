// What comes from elsewhere: a modem's answers, a network peer, a tty that marks its errors, a telephony service.
#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include <dlfcn.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include "brisolt.h"
#include "brisolt_host.h"
#include "device/network/com_port.h"
#include "device/network/telnet.h"
#include "lying_service.h"
#include "platform/posix/tty/tty_device.h"
#include "port/port_defaults.h"
#include "support/bare_port.h"
#include "support/timing.h"
#include "targets.h"

namespace brisolt::fuzz {
namespace {

/// For what waits: the library's minutes pass in milliseconds.
void hurry() {
    static const test::FastClock fast(20000);
}

/// All that the port has to send; nobody sends it.
std::string sent(Port& port) {
    std::string bytes;
    while (!port.tx.empty()) {
        const std::span<const uint8_t> piece = port.tx.next();
        bytes.append(piece.begin(), piece.end());
        port.tx.sent(static_cast<int32_t>(piece.size()));
    }
    return bytes;
}
void receive(Port& port, std::string_view bytes) {
    const std::span<uint8_t> room = port.rx.room();
    const std::size_t count = std::min(room.size(), bytes.size());
    std::copy_n(bytes.begin(), count, room.begin());
    port.rx.filled(static_cast<int32_t>(count));
}

/// Else it was closed, whatever has its number now.
bool isTerminal(int descriptor) {
    struct stat found {};
    return fstat(descriptor, &found) == 0 && found.st_rdev == makedev(5, 2);
}

} // namespace

namespace {

/// What a dial that waits for carrier sees at each look, and what has to come of it.
struct Looks {
    std::string_view left;
    int32_t outcome = -1;
    bool is(char wanted, int32_t result) {
        const bool right = !left.empty() && left.front() == wanted;
        left.remove_prefix(left.empty() ? 0 : 1);
        if (right)
            outcome = result;
        return right;
    }
} looks;

/// `seen` begins with the escape character. What the modem says meanwhile stays for whoever reads.
void dialWaiting(Port& port, const std::string& number, std::string_view seen) {
    constexpr char carrier = 'C';
    receive(port, seen);
    const std::size_t answered = port.rx.unread().first.size();
    looks = {.left = seen.substr(1)};
    port.record->escapeChar = static_cast<uint8_t>(seen.front());
    port.record->carrierFunc = [](int32_t) -> int32_t { return looks.is(carrier, 1) ? 1 : 0; };
    port.record->escapeFunc = [](int32_t, int32_t character) -> int32_t {
        return looks.is(static_cast<char>(character), 0) ? 1 : 0;
    };
    require(CSetModemParmDialTime(8, 20) >= 0 && ComDial(8, number.c_str()) == looks.outcome);
    port.record->carrierFunc = nullptr;
    port.record->escapeFunc = nullptr;
    require(port.rx.unread().first.size() == answered);
    port.rx.clear();
    sent(port);
}

} // namespace

/// The modem answers each command with the next line of the input. All of them an OK: it is set up; a reset or an
/// initialisation without one: it says so; and nothing else comes of it. The first line is a number, of which
/// exactly what it says is dialled; with a second one it is dialled again, and waited for.
void modemAnswers(std::string_view input) {
    hurry();
    static test::BarePort port(8);
    setDefaults(*port->record, 8, "modem", Opened::own);
    port->record->ioMode = ioThreaded; // by a thread that does not exist
    const auto nextLine = [&] {
        const std::string line(input.substr(0, input.find('\n')));
        input.remove_prefix(std::min(line.size() + 1, input.size()));
        return line;
    };
    const std::string number = nextLine().substr(0, 100);
    require(CSetModemParmDialTime(8, 0) >= 0 && ComDial(8, number.c_str()) == 1);
    std::string dialled = std::string("ATDT") + number.c_str() + "\r";
    std::erase(dialled, '~');
    std::replace(dialled.begin(), dialled.end(), '|', '\r');
    require(sent(*port) == dialled);
    if (const std::string seen = nextLine(); !seen.empty())
        dialWaiting(*port, number, seen);

    bool allOk = true;
    int32_t result = ComSetModem_Start(8, BRISOLT_MODEMS, "ITU-T V.250 Standard", 1, 1, 1, 1, 1, 1, nullptr);
    for (; result == 5; result = ComSetModem_Next(8)) {
        if (sent(*port).empty())
            continue;
        const std::string answer = nextLine();
        allOk = allOk && answer.substr(0, 50).find("OK") != answer.npos && answer.find('\0') == answer.npos;
        receive(*port, answer);
    }
    require(result == 1 || (!allOk && (result == -5 || result == -6)));
    port->rx.clear();
}

/// The input comes in pieces whose sizes it says itself: no more bytes come out than go in, and the answers fit.
void networkPeer(std::string_view input) {
    network::Telnet telnet;
    network::ComPort port;
    ByteRing outgoing;
    require(outgoing.reserve(64));
    telnet.offer(outgoing);
    port.ask(network::rate, 9600);
    const network::Telnet::Listener listener{.hear =
                                                 [](void* self, std::span<const uint8_t> message) noexcept {
                                                     static_cast<network::ComPort*>(self)->hear(message);
                                                 },
                                             .self = &port};
    while (input.size() > 1) {
        const std::size_t length =
            std::min<std::size_t>(input.size() - 1, 1U + static_cast<uint8_t>(input[0]));
        // Of its own, so that a step beyond it shows.
        std::vector<uint8_t> piece(input.begin() + 1,
                                   input.begin() + 1 + static_cast<std::ptrdiff_t>(length));
        const int32_t kept =
            telnet.filter(piece.data(), static_cast<int32_t>(piece.size()), outgoing, listener);
        require(kept >= 0 && kept <= static_cast<int32_t>(length) && outgoing.size() <= outgoing.capacity());
        if (length % 2 == 0)
            outgoing.clear();
        input.remove_prefix(1 + length);
    }
    ComHostLineState state{};
    port.show(state);
    require(state.stopBits <= COM_HOST_STOP_2);
}

/// Bytes as the kernel marks them, every eighth value a broken one, come out as they went in, however they are cut; of
/// bytes as no kernel would mark them no more come out than went in.
void marks(std::string_view input) {
    if (input.empty())
        return;
    const std::optional<uint8_t> errorChar =
        input[0] % 2 == 0 ? std::nullopt : std::optional(static_cast<uint8_t>(input[0]));
    std::vector<uint8_t> marked, plain;
    for (const char character : input.substr(1)) {
        const auto byte = static_cast<uint8_t>(character);
        const bool broken = byte % 8 == 0;
        if (broken)
            marked.insert(marked.end(), {0xFF, 0});
        else if (byte == 0xFF)
            marked.push_back(byte);
        marked.push_back(byte);
        plain.push_back(broken ? errorChar.value_or(byte) : byte);
    }
    const auto undone = [&](const std::vector<uint8_t>& bytes) {
        std::vector<uint8_t> got;
        tty::MarkFilter filter;
        for (std::size_t at = 0, turn = 0; at < bytes.size(); ++turn) {
            const std::size_t size = std::min<std::size_t>(
                1 + static_cast<uint8_t>(input[turn % input.size()]) % 5, bytes.size() - at);
            std::vector<uint8_t> piece(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                                       bytes.begin() + static_cast<std::ptrdiff_t>(at + size));
            const int32_t kept = filter.undo(piece.data(), static_cast<int32_t>(size), errorChar);
            require(kept >= 0 && kept <= static_cast<int32_t>(size));
            got.insert(got.end(), piece.begin(), piece.begin() + kept);
            at += size;
        }
        return got;
    };
    require(undone(marked) == plain);
    undone({input.begin(), input.end()});
}

/// From the initialisation to the shutdown at a service that lies: each call gives what it may, all of them end, and
/// no handle of a call is left open.
void telephony(std::string_view input) {
    hurry();
    static Lies lies;
    static const bool loaded = [] {
        ComHostSetMessageBox([](const char*, const char*) {});
        void* const module = dlopen(BRISOLT_LYING_SERVICE, RTLD_NOW);
        require(module != nullptr && ComHostMapModule(service::moduleName, BRISOLT_LYING_SERVICE) == 1);
        *static_cast<Lies**>(dlsym(module, "lies")) = &lies;
        return true;
    }();
    require(loaded);
    lies.left = input;
    lies.callback = nullptr;
    lies.handles.clear();
    ComTAPI_SetModemWaitTime(10);
    const int32_t count = ComTAPI_INIT(nullptr);
    require(count >= -3 && count <= 75);
    char name[75] = "";
    for (int32_t device = 0; device < std::min(count, 2); ++device) {
        ComTAPI_GetModemName(device, name);
        const int32_t port = ComTAPI_Connect(name, "5551", "T");
        require((port < 0 && port >= -30) || port == 130 || port == 131);
        if (port > 0)
            require(ComOpenState(port) == 1 || input.size() > lies.left.size());
        lies.talk(lineHandle, callHandle);
        ComTAPI_Disconnect(name);
        const int32_t armed = ComTAPI_AutoAnswer(name, 1);
        require(armed == 1 || (armed < 0 && armed >= -30));
        lies.talk(lineHandle, callHandle);
        ComServiceMessagePump();
        require(ComTAPI_GetAutoAnswerState(name) >= 0 || name[0] == '\0');
        ComTAPI_Disconnect(name);
    }
    require(Com_TAPI_Shutdown() == 1);
    for (const int handle : lies.handles) // the port's thread, in real time, may be the last to leave
        require(test::eventually([=] { return !isTerminal(handle); }));
}

} // namespace brisolt::fuzz
