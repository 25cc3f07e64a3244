// What people and devices may hand to the parsers, however odd: nothing crashes, and what has a plain counterpart
// gives what that gives. `--target=NAME` chooses; with libFuzzer it makes up inputs, without (replay.cpp) it takes
// those that were found before.
#include "targets.h"

#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <vector>

#include <fnmatch.h>

#include "brisolt.h"
#include "device/device_path.h"
#include "device/network/network_path.h"
#include "device/null_modem_cables.h"
#include "device/usb_path.h"
#include "diag/hex_dump.h"
#include "modem/command_line.h"
#include "modem/dialling.h"
#include "modem/s_registers.h"
#include "port/blocks.h"
#include "port/framing_text.h"
#include "port/open_close.h"
#include "port/port_table.h"
#include "port/trace.h"
#include "script/stimulus_match.h"
#include "script/wildcard.h"
#include "service/profile.h"
#include "support/bare_port.h"
#include "support/temp_dir.h"
#include "util/file_match.h"

namespace brisolt::fuzz {
namespace {

const test::TempDir& folder() {
    static const test::TempDir one;
    return one;
}
const std::string& fileWith(const char* name, std::string_view content) {
    static std::string path;
    path = folder().file(name);
    std::ofstream(path, std::ios::binary) << content;
    return path;
}
/// The input in two at its first line end.
std::pair<std::string, std::string> parts(std::string_view input) {
    const std::size_t end = std::min(input.find('\n'), input.size());
    return {std::string(input.substr(0, end)), std::string(input.substr(std::min(end + 1, input.size())))};
}

/// Whatever stands in a profile: a key that is written can be read, and a second write changes nothing else.
void profile(std::string_view input) {
    const std::string path = fileWith("profile.ini", input);
    const char* const file = path.c_str();
    char value[300] = "";
    ComGetProfString("line", "rate", "none", value, sizeof value, file);
    ComPortParms parms{};
    ComModemParms modem{};
    ComGetProfPortParms("line", &parms, file);
    ComGetProfModemParms("line", &modem, file);
    require(ComWriteProfString("line", "rate", "9600", file) == 1);
    ComGetProfString("line", "rate", "none", value, sizeof value, file);
    require(std::string(value) == "9600");
    const auto text = [&] {
        std::ifstream stream(path, std::ios::binary);
        return std::string(std::istreambuf_iterator<char>(stream), {});
    };
    const std::string before = text();
    require(ComWriteProfString("line", "rate", "9600", file) == 1 && text() == before);
}

void modemDatabase(std::string_view input) {
    const std::string path = fileWith("modems.txt", input);
    char fields[12][512];
    const auto next = [&](auto function, auto... first) {
        return function(7, first..., fields[0], fields[1], fields[2], fields[3], fields[4], fields[5],
                        fields[6], fields[7], fields[8], fields[9], fields[10], fields[11]);
    };
    int32_t result = next(ComGetModem_Start, path.c_str());
    for (std::size_t records = 0; result == 0 && records <= input.size(); ++records)
        result = next(ComGetModem_Next);
    ComGetModem_End(7);
}

void telephonyProfile(std::string_view input) {
    fileWith("telephony.ini", input);
    setenv("BRISOLT_TELEPHONY", folder().path().c_str(), 1);
    for (const service::ModemSettings& modem : service::readModems())
        require(!modem.device.empty() && !modem.name.empty());
    service::ModemSettings settings, before;
    if (!service::changeSettings(settings, input))
        require(settings.init == before.init && settings.speed == before.speed &&
                settings.device == before.device);
}

/// Reading is all or nothing, and says why.
void devicePath(std::string_view input) {
    for (const bool foreign : {false, true}) {
        DevicePath device;
        std::string error;
        if (!readDevicePath(input, foreign, device, error))
            require(!error.empty());
    }
    for (const network::Kind& kind : {network::Kind{"tcp:", false, false},
                                      {"tls:", false, true},
                                      {"rfc2217:", true, false},
                                      {"rfc2217-tls:", true, true}}) {
        DevicePath device; // without the library's own options, as the driver gets it
        network::Path there;
        std::string error;
        const bool read = readDevicePath(std::string(kind.scheme).append(input), true, device, error) &&
                          network::readPath(kind, device.name, there, error);
        require(read ? !there.host.empty() && !there.port.empty() && there.connectMs >= 1 : !error.empty());
    }
    for (const CableKind& kind :
         {CableKind{"null-modem:", "possible", "", false}, {"loop:", "possible", "", true}}) {
        const std::string text = std::string(kind.scheme).append(input);
        const CableAddress address = cableAddress(kind, text);
        require(address.wrong.empty() ? !address.name.empty() && !(kind.isLoop && address.start.autobaud)
                                      : address.option.empty() || text.find(address.option) != text.npos);
    }
    std::string path, error;
    const std::string name(input);
    if (drivers::isUsbPath(name) && !drivers::findUsbDevice(name, path, error))
        require(!error.empty());
    Framing framing;
    if (readFraming(name.c_str(), framing) == 0) {
        Framing again;
        require(readFraming(framingText(framing).c_str(), again) == 0 && again.dataBits == framing.dataBits &&
                again.parity == framing.parity && again.stopBits == framing.stopBits);
    }
}

/// The rules of the search (script/wildcard.h) without anything that makes it fast: bytes that the pattern takes at the
/// start of the text, 0 it does not match.
std::size_t plainAttempt(const char* text, const char* pattern, bool& wild) {
    const char* const start = text;
    for (bool literal = false; *pattern != 0;) {
        if (*pattern == '?') {
            wild = true;
            const bool open = pattern[1] == '*';
            pattern += open ? 2 : 0;
            const auto taken = static_cast<std::size_t>(text - start);
            if (open && *pattern == 0)
                return taken + std::strlen(text);
            if (open && plainAttempt(text, pattern, wild) == 0)
                return *text == 0 ? 0 : taken + 1;
            if (*text == 0)
                return 0;
            ++text;
            if (*++pattern == 0)
                return taken + 1;
        }
        if (pattern[1] == '*') {
            wild = wild || literal;
            for (; *text != 0 && *text == *pattern; ++text)
                literal = wild = true;
            pattern += 2;
        } else if (*text != 0 && *text == *pattern) {
            ++text;
            ++pattern;
            literal = true;
        } else {
            return 0;
        }
    }
    return static_cast<std::size_t>(text - start);
}
std::optional<std::size_t> plainSearch(const std::string& text, const char* pattern) {
    std::optional<std::size_t> firstWild;
    bool wild = false;
    for (std::size_t place = 0; place < text.size(); ++place) {
        if (plainAttempt(text.c_str() + place, pattern, wild) != 0)
            return firstWild ? firstWild : place;
        if (wild && !firstWild)
            firstWild = place;
    }
    return std::nullopt;
}

/// Without wildcards the search is the plain one; file names are found as the host's own matcher finds them, and the
/// check that takes no second look matches no more than that.
void wildcards(std::string_view input) {
    const auto [pattern, text] = parts(input);
    const auto found = wildSearch(text.c_str(), pattern.c_str());
    const char* const plain = std::strstr(text.c_str(), pattern.c_str());
    const std::string_view shown = pattern.c_str(); // up to a NUL
    if (!shown.empty() && text[0] != '\0' && shown.find_first_of("?*") == shown.npos)
        require(plain == nullptr ? !found
                                 : found && *found == static_cast<std::size_t>(plain - text.c_str()));
    if (found)
        require(*found <= std::strlen(text.c_str()));
    const std::string name = text.c_str();
    if (shown.size() < 16 && name.size() < 100)
        require(found == plainSearch(name, pattern.c_str()));
    if (shown.size() > 80 || shown.find_first_of("[\\/") != shown.npos || name.find('/') != name.npos)
        return; // more to the host's
    const std::string glob(shown);
    const bool hidden = name.starts_with('.') && !glob.starts_with('.');
    if (glob != "*.*")
        require(searchFinds(glob, name) == (!hidden && fnmatch(glob.c_str(), name.c_str(), 0) == 0));
    if (checkFileMatch(glob, name) == 1)
        require(fnmatch(glob.c_str(), name.c_str(), 0) == 0);
    ComCheckFileMatch(glob.c_str(), name.c_str());
}

/// The search that goes on from where it was finds what one over all of it finds, which a NUL that is kept ends.
void stimulus(std::string_view input) {
    const auto [first, rest] = parts(input);
    const auto [second, bytes] = parts(rest);
    if (first.empty() || second.empty() || bytes.size() > 9000)
        return;
    static test::BarePort port(9);
    clearMatch(*port);
    const char* const awaited[] = {first.c_str(), second.c_str()};
    const Dropped dropped{.nul = first[0] % 2 == 0, .byte255 = first[0] % 4 < 2};
    StimulusMatch match(*port, awaited, dropped);
    std::string seen;
    for (std::size_t at = 0; at < bytes.size();) {
        const std::size_t size =
            std::min<std::size_t>(1 + static_cast<unsigned char>(bytes[at]) % 7, bytes.size() - at);
        const int32_t found = match.add({reinterpret_cast<const uint8_t*>(bytes.data()) + at, size});
        for (const char byte : bytes.substr(at, size))
            if (!(byte == '\0' && dropped.nul) && !(byte == '\xff' && dropped.byte255))
                seen += byte;
        at += size;
        const bool hasFirst = std::strstr(seen.c_str(), awaited[0]) != nullptr,
                   hasSecond = std::strstr(seen.c_str(), awaited[1]) != nullptr;
        require(found == (hasFirst ? 0 : hasSecond ? 1 : found < 0 ? found : -1));
        if (found >= 0)
            return;
    }
}

void commandLine(std::string_view input) {
    simulated::CommandLine line;
    simulated::SRegisters registers;
    std::string echo;
    for (const char byte : input)
        if (line.take(byte, registers, echo)) {
            std::string_view commands = line.commands();
            while (const auto command = simulated::nextCommand(commands))
                if (command->name == "D")
                    simulated::planDialling(command->text, true, registers);
        }
}

void formats(std::string_view input) {
    const std::span bytes(reinterpret_cast<const uint8_t*>(input.data()), input.size());
    static test::BarePort port(10);
    static const std::string trace = fileWith("trace", ""); // it grows, and is not read
    require(setTraceFile(*port, trace.c_str()) == 1);
    if (std::filesystem::file_size(trace) > 1'000'000)
        std::filesystem::resize_file(trace, 0);
    traceBytes(*port, "what came", bytes);
    for (const HexDump& form : {debugDump, verifyDump, protocolDump})
        require(hexDump(form, bytes).size() <= 5 * form.limit + 100);
    for (const char byte : input) {
        char text[3] = "";
        ComConvertBytetoHEXASCII(static_cast<uint8_t>(byte), text);
    }
    std::vector<char> room(input.size() * 8 + 64);
    const std::string text(input);
    ComConvertStringtoHEXString(room.data(), input.data(), static_cast<uint32_t>(input.size()));
    ComConvertHEXASCIItoByte(text.c_str());
    char drive[300], directory[300], name[300], extension[300];
    if (text.size() < 260) {
        ComSplitPath(text.c_str(), drive, directory, name, extension);
        ComStripFileName(text.c_str(), name, directory);
    }
}

} // namespace

const std::vector<Target> targets{
    {"profile", profile},
    {"modem-database", modemDatabase},
    {"telephony-ini", telephonyProfile},
    {"device-path", devicePath},
    {"wildcards", wildcards},
    {"stimulus", stimulus},
    {"command-line", commandLine},
    {"formats", formats},
    {"modem-answers", modemAnswers},
    {"network-peer", networkPeer},
    {"marks", marks},
    {"telephony", telephony},
};

} // namespace brisolt::fuzz
