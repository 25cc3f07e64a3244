#include "scenarios.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <thread>
#include <utility>

#include "brisolt.h"
#include "brisolt_host.h"
#include "far_end.h"
#include "network/far_end.h"
#include "seam.h"
#include "support/descriptor_io.h"

namespace brisolt::faults {
namespace {

using test::eventually;
using Codes = std::initializer_list<int32_t>;

/// Milliseconds of a clock that runs fifty times as fast. A host that is down needs none.
int32_t patience(const Scene& scene) {
    return scene.lasting ? 10000 : 300000;
}
constexpr Codes openCodes{-1, -20, -21, -22, -23, -24, -25, -28, -29, -30, -36, -37, -38, -39};
constexpr Codes gone{-2};
constexpr Codes copyCodes{-1, -2, -3, -4};
constexpr bool told = true; // the header promises a text

/// Bytes of which each kind of cut shows; no NUL, which some files end at.
std::string pattern(std::size_t count) {
    std::string bytes(count, 0);
    for (std::size_t i = 0; i < count; ++i)
        bytes[i] = static_cast<char>('!' + (i * 7 + i / 90) % 90);
    return bytes;
}
std::string contentOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}
void put(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}
bool isThere(const std::string& path) {
    return std::filesystem::exists(path);
}
int32_t sizeOf(const std::string& text) {
    return static_cast<int32_t>(text.size());
}

/// Whether the device of a port is there.
bool isOnline(int32_t port) {
    return call(ComHostGetPortState, port) == 1;
}

/// -5 is a signal's, and whoever wants to goes on.
template <class... Arguments> int32_t throughSignals(Arguments... arguments) {
    int32_t result = -5;
    for (int i = 0; i < 10 && result == -5; ++i)
        result = call(arguments...);
    return result;
}

/// An open port. However it is closed, the close works.
struct OpenPort {
    Scene& scene;
    int32_t number;
    OpenPort(Scene& where, const std::string& path)
        : scene(where), number(call(ComHostOpen, path.c_str(), 115200, nullptr)) {
        scene.step("ComHostOpen", number, openCodes, told);
    }
    OpenPort(const OpenPort&) = delete;
    OpenPort& operator=(const OpenPort&) = delete;
    ~OpenPort() { close(0); }
    void close(int32_t milliseconds) {
        if (number > 0)
            scene.holds(call(ComHostClose, std::exchange(number, 0), milliseconds) >= 0,
                        "an open port was not closed");
    }
    /// With all that was written gone.
    bool finish() {
        return exchanged("ComHostClose", call(ComHostClose, std::exchange(number, 0), patience(scene)));
    }
    explicit operator bool() const { return number > 0; }

    /// A step of an exchange: what is waited for in vain comes late only on a host that is down, or not at all.
    bool exchanged(const char* what, int32_t result) const {
        return result == 0 ? scene.comes(what, false, true) : scene.step(what, result, gone);
    }
    /// How much of it was taken: all, unless the library says otherwise; a signal may come in the middle.
    std::size_t write(const std::string& text) const {
        std::size_t done = 0;
        while (done < text.size()) {
            const auto left = static_cast<int32_t>(text.size() - done);
            const void* const rest = text.data() + done;
            const int32_t taken = throughSignals(ComHostWrite, number, rest, left, patience(scene));
            if (!exchanged("ComHostWrite", taken))
                break;
            done += static_cast<std::size_t>(taken);
        }
        return done;
    }
    /// A read that fails takes nothing: the rest is there when the host is well again.
    std::string read(std::size_t count) const {
        std::string got;
        char piece[500];
        for (int failures = 0; got.size() < count && failures < 2;) {
            const int32_t more =
                throughSignals(ComHostRead, number, static_cast<void*>(piece),
                               std::min<int32_t>(500, int32_t(count - got.size())), patience(scene));
            if (exchanged("ComHostRead", more))
                got.append(piece, static_cast<std::size_t>(more));
            else
                failures += scene.lasting ? 2 : 1;
        }
        return got;
    }
    bool drain() const {
        return exchanged("ComHostDrain", throughSignals(ComHostDrain, number, patience(scene)));
    }
};

/// What has come of bytes that were taken: a beginning whatever fails, and all as long as the device is there.
bool whole(Scene& scene, int32_t port, const std::string& text, std::size_t taken, const std::string& came,
           bool left = false) {
    const bool isThere = left || isOnline(port);
    scene.holds(text.starts_with(came), "other bytes came than were written");
    scene.holds(came.size() >= taken || !isThere || scene.lasting,
                "bytes were lost on a line that is there: " + std::to_string(came.size()) + " came of " +
                    std::to_string(taken));
    return came == text;
}

/// Come back, all that was taken and in order.
bool echoed(Scene& scene, const OpenPort& port, const FarEnd& far, const std::string& text,
            std::size_t taken) {
    const bool left = port.drain();
    if (left || (!scene.lasting && isOnline(port.number)))
        far.receives(text.substr(0, taken));
    return whole(scene, port.number, text, taken, far.received(), left) &&
           whole(scene, port.number, text, taken, port.read(taken));
}

bool echoes(Scene& scene, const OpenPort& port, const FarEnd& far, const std::string& text) {
    return echoed(scene, port, far, text, port.write(text));
}

bool terminal(Scene& scene) {
    FarEnd far(FarEnd::echo);
    OpenPort port(scene, far.path());
    return port && echoes(scene, port, far, pattern(3000)) && port.finish();
}

/// The calls that programs have made for thirty years.
bool classic(Scene& scene) {
    FarEnd far(FarEnd::echo);
    constexpr int32_t port = 5;
    call(ComHostMapDevice, port, far.path().c_str());
    if (!scene.step("ComOpen", call(ComOpen, "COM", port, 9600, 8, 1, 1, 4096U, 4096U), openCodes, told))
        return false;
    std::string text = pattern(700), back(text.size(), 0);
    scene.holds(call(ComHostSetLossless, port, 1) == 1, "an open port is not made lossless");
    call(ComSetBaud, port, 38400);
    const int32_t taken = call(ComWrite, port, static_cast<void*>(text.data()), sizeOf(text));
    const int32_t count =
        call(ComReadTimed, port, static_cast<void*>(back.data()), taken, patience(scene) / 10);
    back.resize(static_cast<std::size_t>(std::max(count, 0)));
    const bool done = whole(scene, port, text, static_cast<std::size_t>(std::max(taken, 0)), back);
    scene.comes("what ComWrite sent", done, isOnline(port));
    scene.holds(call(ComClose, port) == 1, "an open port was not closed");
    return done;
}

bool nullModem(Scene& scene) {
    OpenPort near(scene, "null-modem:faults"), far(scene, "null-modem:faults?paced=yes");
    if (!near || !far)
        return false;
    const std::string text = pattern(3000);
    bool done = true;
    for (const auto& [from, to] : {std::pair{&near, &far}, {&far, &near}}) {
        const std::size_t taken = from->write(text);
        from->drain();
        done = whole(scene, to->number, text, taken, to->read(taken)) && done;
    }
    return done && near.finish() && far.finish();
}

bool slowPeer(Scene& scene) {
    FarEnd far(FarEnd::echo, std::chrono::milliseconds(20));
    OpenPort port(scene, far.path());
    return port && echoes(scene, port, far, pattern(20000)) && port.finish();
}

bool keptPort(Scene& scene) {
    const std::string link = scene.file("device");
    std::optional<FarEnd> far(FarEnd::echo);
    std::filesystem::create_symlink(far->path(), link);
    OpenPort port(scene, link + "?keep=yes");
    bool done = port && echoes(scene, port, *far, "before");
    std::filesystem::remove(link);
    far.reset();
    if (done) {
        const auto turns = [&](const char* what, int32_t state) {
            const auto turned = [&] { return call(ComHostGetPortState, port.number) == state; };
            return scene.comes(what, eventually(turned, std::chrono::seconds(scene.lasting ? 2 : 8)), true);
        };
        const std::string text = "queued";
        const std::size_t taken = turns("the device goes", 3) ? port.write(text) : 0;
        far.emplace(FarEnd::echo);
        std::filesystem::create_symlink(far->path(), link + "new");
        std::filesystem::rename(link + "new", link);
        done = taken > 0 && turns("it comes back", 1) && echoed(scene, port, *far, text, taken);
    }
    port.close(0);
    std::filesystem::remove(link);
    return done;
}

/// The same with a peer on the network; hear(count) is what it has got.
bool converses(Scene& scene, OpenPort& port, const std::function<std::string(std::size_t)>& hear,
               const std::function<void(const std::string&)>& say) {
    const std::string text = pattern(2000);
    const std::size_t taken = port.write(text);
    const bool left = port.drain();
    if (!whole(scene, port.number, text, taken, left || !scene.lasting ? hear(taken) : ""))
        return false;
    say(text);
    return whole(scene, port.number, text, text.size(), port.read(text.size())) && port.finish();
}

bool plainSocket(Scene& scene) {
    const test::Listener listener;
    OpenPort port(scene, listener.path("?connect=200000"));
    if (!port)
        return false;
    const test::Connection peer = listener.accept();
    return converses(
        scene, port,
        [&](std::size_t count) { return test::readFrom(peer.socket(), count, std::chrono::seconds(5)); },
        [&](const std::string& text) { peer.say(text); });
}

bool remotePort(Scene& scene) {
    test::RemoteServer server;
    OpenPort port(scene, server.path("?connect=200000&answer=200000")); // 4 s of this clock
    std::string heard;
    return port && converses(
                       scene, port,
                       [&](std::size_t count) {
                           eventually([&] { return (heard += server.heard()).size() >= count; },
                                      std::chrono::seconds(5));
                           return heard;
                       },
                       [&](const std::string& text) { server.say(text); });
}

bool network(Scene& scene) {
    return plainSocket(scene) && remotePort(scene);
}

bool profile(Scene& scene) {
    const std::string path = scene.file("settings.ini");
    const std::string before = "; mine\n[line]\nrate=9600\n";
    put(path, before);
    bool done = scene.step("ComWriteProfString",
                           call(ComWriteProfString, "line", "rate", "19200", path.c_str()), {0}, told);
    const std::string after = contentOf(path);
    scene.holds(done ? after == "; mine\n[line]\nrate=19200\n" : after == before,
                "a write of a profile left: " + after);
    char value[16] = "";
    call(ComGetProfString, "line", "rate", "none", value, 16U, path.c_str());
    const std::string got = value;
    scene.holds(got == "none" || got == (done ? "19200" : "9600"), "a profile read gave " + got);
    ComPortParms parms{};
    const bool port = scene.step("ComWriteProfPortParms",
                                 call(ComWriteProfPortParms, "port", &parms, path.c_str(), 1), {0}, told);
    scene.holds(contentOf(path).starts_with(after), "what was in the profile is gone");
    const bool read = !port || scene.step("ComGetProfPortParms",
                                          call(ComGetProfPortParms, "port", &parms, path.c_str()), {0});
    // A file that cannot be read has no keys.
    return done && scene.step("ComGetProfString", got == "19200" ? 1 : 0, {0}) && port && read;
}

bool files(Scene& scene) {
    const std::string source = scene.file("source"), copy = scene.file("copy"), moved = scene.file("moved");
    const std::string text = pattern(40000), old = "old";
    put(source, text);
    put(copy, old);
    bool done = scene.step("ComCopyFile", call(ComCopyFile, copy.c_str(), source.c_str()), copyCodes, told);
    scene.holds(contentOf(copy) == (done ? text : old), "a copy is neither the old file nor the new one");
    const std::string before = contentOf(copy);
    const bool appended =
        scene.step("ComAppendFile", call(ComAppendFile, copy.c_str(), source.c_str()), copyCodes, told);
    scene.holds(contentOf(copy) == (appended ? before + text : before) ||
                    (scene.lasting && !appended && contentOf(copy).starts_with(before)),
                "an append is neither none nor whole");
    scene.holds(contentOf(source) == text, "the source was harmed");
    const int32_t result = call(ComMoveFile, moved.c_str(), source.c_str());
    const bool away = scene.step("ComMoveFile", result, {-1, -2, -3, -4, -5}, told);
    scene.holds(away ? !isThere(source) : contentOf(source) == text, "a move lost its file");
    scene.holds((away || result == -5) == isThere(moved), "a move is neither none nor whole");
    scene.holds(!isThere(moved) || contentOf(moved) == text, "a move left half a file");
    for (const auto& entry : std::filesystem::directory_iterator(scene.folder().path()))
        if (entry.path().filename().string().starts_with(".brisolt")) {
            scene.holds(scene.lasting, "a draft stayed");
            std::filesystem::remove(entry.path());
        }
    const bool deleted = scene.step("ComDeleteFile", call(ComDeleteFile, copy.c_str()), {0});
    scene.holds(deleted == !isThere(copy), "a delete says otherwise than it did");
    done = done && appended && away && deleted;
    std::filesystem::remove(copy);
    std::filesystem::remove(moved);
    return done;
}

/// What is captured is in one file more or, when that fails, still in the ring.
bool saves(Scene& scene, int32_t port, const std::string& folder) {
    const auto all = [&] {
        std::string texts;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            texts += contentOf(entry.path());
        return texts;
    };
    const std::string before = all();
    scene.holds(call(ComWriteDebugFileOnFail, port, static_cast<const void*>("entry"), 5) == 1,
                "a ring that is there took nothing");
    const bool saved = scene.step("ComDebugFileOnFail_Save", call(ComDebugFileOnFail_Save, port), {-3}, told);
    if (!saved && !scene.lasting)
        scene.holds(call(ComDebugFileOnFail_Save, port) == 1, "a save does not work after one that failed");
    const std::string after = all();
    scene.holds(after.size() > before.size() ? after.find("entry") != std::string::npos
                                             : scene.lasting && !saved,
                "the capture's save has not what was captured");
    return saved;
}

/// What a port does with files: the buffered writer, the capture, a debug log.
bool portFiles(Scene& scene) {
    OpenPort port(scene, "loop:files");
    if (!port)
        return false;
    const std::string path = scene.file("written"), text = pattern(70000);
    std::filesystem::remove(path);
    bool done = scene.step("ComBufferFileWrite_Start",
                           call(ComBufferFileWrite_Start, port.number, path.c_str(), 1), {-1});
    done = done && scene.step("Next",
                              call(ComBufferFileWrite_Next, port.number,
                                   static_cast<const void*>(text.data()), sizeOf(text)),
                              {-1});
    const bool closed =
        scene.step("ComBufferFileWrite_Close", call(ComBufferFileWrite_Close, port.number), {-1});
    if (done && closed)
        scene.holds(contentOf(path) == text, "the buffered writer lost bytes");
    done = done && closed;

    const std::string folder = scene.file("captured"), log = scene.file("log");
    std::filesystem::create_directory(folder);
    const bool captures = scene.step("ComSetDebugFileOnFail",
                                     call(ComSetDebugFileOnFail, port.number, folder.c_str(), 1000), {-2});
    call(ComSetProtocolDebugFile, port.number, log.c_str(), "faults");
    const bool saved = captures && saves(scene, port.number, folder);
    call(ComSetDebugFile, port.number, log.c_str(), "title");
    call(ComWriteDebugFileString, port.number, "a line");
    port.close(0);
    return done && saved;
}

bool transfer(Scene& scene) {
    OpenPort near(scene, "null-modem:text"), far(scene, "null-modem:text");
    if (!near || !far)
        return false;
    const std::string sent = scene.file("sent"), got = scene.file("got");
    std::string text, arrives;             // a line feed alone gets a carriage return
    for (int line = 0; line < 2; ++line) { // not more: a character takes its millisecond and some calls
        text += pattern(70) + (line % 2 == 0 ? "\r\n" : "\n");
        arrives += pattern(70) + "\r\n";
    }
    bool done = true;
    for (const auto& [from, to] : {std::pair{&near, &far}, {&far, &near}}) {
        constexpr int32_t ended = 2, timeOver = 3;
        int32_t sending = 0, ending = 0, result = 0;
        put(sent, text);
        std::filesystem::remove(got);
        {
            const std::jthread sender([&, port = from->number] {
                sending = call(ComSendA, port, sent.c_str());
                ending = call(ComPutc, port, 26);
            });
            result = call(ComRecvA, to->number, got.c_str(), 27, 26, scene.lasting ? 10 : 300);
        }
        done =
            (result == timeOver ? scene.comes("ComRecvA", false, ending == 1)
                                : scene.step("ComRecvA", result == ended ? 1 : std::min(result, 0), {-1})) &&
            done;
        done = scene.step("ComSendA", sending, {-1}) && scene.step("ComPutc", ending, {0}) && done;
        const std::string came = contentOf(got);
        scene.holds(arrives.starts_with(came), "other bytes were received than were sent");
        scene.holds(!done || came == arrives, "a transfer without a failure lost bytes");
        text.resize(72); // back the first line
        arrives.resize(72);
    }
    return done && near.finish() && far.finish();
}

bool scripting(Scene& scene) {
    FarEnd far(
        [](std::string& pending) { return pending.ends_with("\r") ? (pending.clear(), "login: ") : ""; });
    OpenPort port(scene, far.path());
    if (!port)
        return false;
    const auto answered = [&](const char* what, bool came) {
        return scene.comes(what, came, isOnline(port.number));
    };
    const int32_t seconds = scene.lasting ? 10 : 500;
    int32_t at = 0;
    const char* const prompts[] = {"busy", "login:"};
    const char* const answers[] = {"", "me|"};
    scene.holds(call(ComPuts, port.number, "hello|") == 1, "ComPuts does not know an open port");
    bool done =
        answered("ComStimulus", call(ComStimulus, port.number, "login:", "guest|", 100, seconds) == 1) &&
        answered("ComStimulusArray",
                 call(ComStimulusArray, port.number, prompts, answers, 2, 200, seconds) == 2) &&
        answered("ComPeekString", eventually([&] { return call(ComPeekString, port.number, "n:", &at) == 1; },
                                             std::chrono::seconds(scene.lasting ? 1 : 5)));
    if (done)
        scene.holds(far.received() == "hello\rguest\rme\r", "an answer did not arrive: " + far.received());
    port.close(0);
    return done;
}

bool modem(Scene& scene) {
    FarEnd far(FarEnd::modem());
    OpenPort port(scene, far.path());
    if (!port)
        return false;
    const int32_t set = call(ComSetModem, port.number, BRISOLT_MODEMS, "ITU-T V.250 Standard", 1, 1, 1, 1, 1,
                             1, scene.file("log").c_str());
    bool done = set == -5 || set == -6 ? scene.comes("ComSetModem", false, isOnline(port.number))
                                       : scene.step("ComSetModem", set, {-1, -2});
    done =
        scene.step("CSetModemParmDialTime", call(CSetModemParmDialTime, port.number, 0) >= 0 ? 1 : 0, {}) &&
        done;
    done = scene.step("ComDial", call(ComDial, port.number, "5551"), {-1}) && done;
    done = done && port.drain();
    if (done)
        scene.holds(eventually([&] { return far.received().ends_with("5551\r"); }, std::chrono::seconds(5)),
                    "the number did not arrive: " + far.received());
    port.close(0);
    return done;
}

#ifdef BRISOLT_SERVICE
/// Over a call that stands: what is sent comes back.
bool talks(Scene& scene, int32_t port) {
    const std::string text = "hello";
    std::string back(text.size(), 0);
    call(ComHostSetLossless, port, 1);
    call(ComPuts, port, text.c_str());
    const int32_t count =
        call(ComReadTimed, port, static_cast<void*>(back.data()), sizeOf(text), patience(scene) / 10);
    back.resize(static_cast<std::size_t>(std::max(count, 0)));
    scene.holds(text.starts_with(back), "other bytes came over the call");
    // A failure of the service's own, or of its modem, may have ended the call.
    return back == text || scene.step("what came over the call", 0, {0});
}

bool telephony(Scene& scene) {
    FarEnd far(FarEnd::modem());
    put(scene.file("telephony.ini"), "[One]\ndevice = " + far.path() + "\nflow = none\nhangup = escape\n");
    setenv("BRISOLT_TELEPHONY", scene.folder().path().c_str(), 1);
    // Without it the library would take a service for missing, for good.
    bool done = scene.step("ComHostMapModule", call(ComHostMapModule, "TAPI32.DLL", BRISOLT_SERVICE), {-1}) &&
                scene.step("ComTAPI_INIT", call(ComTAPI_INIT, scene.file("log").c_str()), {-1, -2, -3});
    if (done) {
        call(ComTAPI_SetModemWaitTime, scene.lasting ? 10U : 400U);
        const int32_t port = call(ComTAPI_Connect, "One", "5551", "T");
        done = scene.step("ComTAPI_Connect", port,
                          {-4, -5, -10, -11, -12, -14, -15, -16, -17, -18, -19, -20, -21, -22, -23, -24, -25,
                           -26, -27}) &&
               talks(scene, port);
        scene.holds(call(ComTAPI_Disconnect, "One") == 1, "a device was not disconnected");
    }
    scene.holds(call(Com_TAPI_Shutdown) == 1, "telephony does not end");
    return done;
}
#endif

struct Listing {
    std::string text; ///< up to what fails
    bool failed = false;
};

Listing listing(Scene& scene) {
    Listing list;
    char path[260] = "", text[500] = "";
    ComHostDeviceInfo info{};
    info.size = sizeof info;
    const auto asked = [&](const char* what, int32_t result) {
        list.failed = (result < 0 && !scene.step(what, result, {-1}, told)) || list.failed;
        return result == 1;
    };
    for (int32_t i = 0; asked("ComHostGetDevice", call(ComHostGetDevice, i, path, 260, text, 260)); ++i)
        list.text += path + std::string(" ") + text + "\n";
    if (asked("ComHostGetDeviceInfo", call(ComHostGetDeviceInfo, 0, &info)))
        list.text += info.path + std::string(info.stablePath) + info.description + info.serialNumber + "\n";
    const OpenPort port(scene, "usb:dead:beef"); // which is not there
    ComHostGetErrorText(text, sizeof text);
    list.failed = list.failed || std::string(text).find("none fits") == std::string::npos;
    list.text += text;
    return list;
}

bool devices(Scene& scene) {
    static const std::string plain = [&] {
        const Spared here; // more than any call
        return listing(scene).text;
    }();
    const Listing now = listing(scene);
    scene.holds(now.text == plain || now.failed, "the list is another: " + now.text);
    return now.text == plain;
}

} // namespace

bool Scene::step(const char* what, int64_t result, std::initializer_list<int32_t> failures, bool told) {
    if (result > 0)
        return true;
    char why[500] = "";
    ComHostGetErrorText(why, sizeof why);
    refused_ = std::string(what) + " gave " + std::to_string(result) + " (" + why + ")";
    holds(std::find(failures.begin(), failures.end(), result) != failures.end(), refused_);
    holds(!told || lasting || why[0] != '\0', refused_ + " without a word"); // which may take memory
    return false;
}

bool Scene::comes(const char* what, bool came, bool isThere) {
    return came || step((what + std::string(" in vain")).c_str(), 0, {0}) ||
           (holds(lasting || !isThere, refused_) && false);
}

bool Scene::holds(bool promise, const std::string& text) {
    if (!promise && wrong_.empty())
        wrong_ = text;
    return promise;
}

const std::vector<Scenario> scenarios{
    {"terminal", terminal},  {"classic", classic},     {"null modem", nullModem}, {"slow peer", slowPeer},
    {"kept port", keptPort}, {"profile", profile},     {"files", files},          {"port files", portFiles},
    {"transfer", transfer},  {"scripting", scripting}, {"modem", modem, 5},       {"telephony", telephony},
    {"devices", devices},    {"network", network},
};

} // namespace brisolt::faults
