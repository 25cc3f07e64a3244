#include "scenarios.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <thread>
#include <utility>

#include "brisolt.h"
#include "brisolt_host.h"
#include "far_end.h"

namespace brisolt::faults {
namespace {

using test::eventually;
using Codes = std::initializer_list<int32_t>;

/// Milliseconds of a clock that runs fifty times as fast. A host that is down needs none.
int32_t patience(const Scene& scene) {
    return scene.lasting ? 10000 : 300000;
}
constexpr Codes openCodes{-1, -20, -21, -22, -23, -24, -25, -28, -29, -30, -36, -37, -38, -39};
constexpr Codes exchangeCodes{0, -1, -2, -4, -5};
constexpr Codes anyMinus{0, -1, -2, -3, -4, -5, -6};

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
        scene.step("ComHostOpen", number, openCodes);
    }
    OpenPort(const OpenPort&) = delete;
    OpenPort& operator=(const OpenPort&) = delete;
    ~OpenPort() { close(0); }
    bool close(int32_t milliseconds) {
        if (number <= 0)
            return false;
        const int32_t result = call(ComHostClose, std::exchange(number, 0), milliseconds);
        scene.holds(result >= 0, "an open port was not closed");
        return result == 1;
    }
    explicit operator bool() const { return number > 0; }

    /// All of it, unless the library says otherwise; a signal may come in the middle.
    bool write(const std::string& text) const {
        std::size_t done = 0;
        while (done < text.size()) {
            const auto left = static_cast<int32_t>(text.size() - done);
            const void* const rest = text.data() + done;
            const int32_t taken = throughSignals(ComHostWrite, number, rest, left, patience(scene));
            if (!scene.step("ComHostWrite", taken, exchangeCodes))
                return false;
            done += static_cast<std::size_t>(taken);
        }
        return true;
    }
    std::string read(std::size_t count) const {
        std::string got;
        char piece[500];
        while (got.size() < count) {
            const int32_t more =
                throughSignals(ComHostRead, number, static_cast<void*>(piece),
                               std::min<int32_t>(500, int32_t(count - got.size())), patience(scene));
            if (!scene.step("ComHostRead", more, exchangeCodes))
                break;
            got.append(piece, static_cast<std::size_t>(more));
        }
        return got;
    }
    bool drain() const {
        return scene.step("ComHostDrain", throughSignals(ComHostDrain, number, patience(scene)),
                          exchangeCodes);
    }
    bool isThere() const { return call(ComHostGetPortState, number) == 1; }
};

/// Written, come back, all of it and in order: what arrives is a beginning of what was sent whatever fails.
bool echoes(Scene& scene, const OpenPort& port, const FarEnd& far, const std::string& text) {
    const bool sent = port.write(text) && port.drain();
    if (sent)
        scene.holds(far.receives(text),
                    "bytes that have left did not arrive: " + std::to_string(far.received().size()));
    const std::string arrived = far.received();
    scene.holds(text.starts_with(arrived), "other bytes arrived than were written");
    if (!sent)
        return false;
    const std::string back = port.read(text.size());
    scene.holds(text.starts_with(back), "other bytes were read than came");
    scene.holds(back == text || !port.isThere() || scene.lasting,
                "bytes were lost on a line that is there: " + std::to_string(back.size()));
    return back == text;
}

bool terminal(Scene& scene) {
    FarEnd far(FarEnd::echo);
    OpenPort port(scene, far.path());
    return port && echoes(scene, port, far, pattern(3000)) && port.close(patience(scene));
}

/// The calls that programs have made for thirty years.
bool classic(Scene& scene) {
    FarEnd far(FarEnd::echo);
    constexpr int32_t port = 5;
    call(ComHostMapDevice, port, far.path().c_str());
    if (!scene.step("ComOpen", call(ComOpen, "COM", port, 9600, 8, 1, 1, 4096U, 4096U), openCodes))
        return false;
    std::string text = pattern(700), back(text.size(), 0);
    call(ComHostSetLossless, port, 1);
    call(ComSetBaud, port, 38400);
    bool done = call(ComWrite, port, static_cast<void*>(text.data()), sizeOf(text)) == sizeOf(text);
    const int32_t count = call(ComReadTimed, port, static_cast<void*>(back.data()), sizeOf(text), 2000);
    back.resize(static_cast<std::size_t>(std::max(count, 0)));
    scene.holds(text.starts_with(back), "other bytes came back than were written");
    if (!done || back != text)
        scene.step("ComReadTimed", -count, {-count});
    done = done && back == text;
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
        const bool sent = from->write(text) && from->drain();
        const std::string got = sent ? to->read(text.size()) : "";
        scene.holds(text.starts_with(got), "other bytes came than were written");
        done = done && got == text;
    }
    return done && near.close(patience(scene)) && far.close(patience(scene));
}

bool slowPeer(Scene& scene) {
    FarEnd far(FarEnd::echo, std::chrono::milliseconds(20));
    OpenPort port(scene, far.path());
    return port && echoes(scene, port, far, pattern(20000)) && port.close(patience(scene));
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
            return scene.step(what,
                              eventually([&] { return call(ComHostGetPortState, port.number) == state; },
                                         std::chrono::seconds(5))
                                  ? 1
                                  : 0,
                              {0});
        };
        done = turns("the device goes", 3) && port.write("queued");
        far.emplace(FarEnd::echo);
        std::filesystem::create_symlink(far->path(), link + "new");
        std::filesystem::rename(link + "new", link);
        done = done && turns("it comes back", 1) && port.drain() && far->receives("queued") &&
               port.read(6) == "queued";
    }
    port.close(0);
    std::filesystem::remove(link);
    return done;
}

bool profile(Scene& scene) {
    const std::string path = scene.file("settings.ini");
    const std::string before = "; mine\n[line]\nrate=9600\n";
    put(path, before);
    bool done = scene.step("ComWriteProfString",
                           call(ComWriteProfString, "line", "rate", "19200", path.c_str()), {0});
    const std::string after = contentOf(path);
    scene.holds(done ? after == "; mine\n[line]\nrate=19200\n" : after == before,
                "a write of a profile left: " + after);
    char value[16] = "";
    call(ComGetProfString, "line", "rate", "none", value, 16U, path.c_str());
    const std::string got = value;
    scene.holds(got == "none" || got == (done ? "19200" : "9600"), "a profile read gave " + got);
    ComPortParms parms{};
    const bool port = scene.step("ComWriteProfPortParms",
                                 call(ComWriteProfPortParms, "port", &parms, path.c_str(), 1), {0});
    scene.holds(contentOf(path).starts_with(after), "what was in the profile is gone");
    return done && got == "19200" && port && call(ComGetProfPortParms, "port", &parms, path.c_str()) == 1;
}

bool files(Scene& scene) {
    const std::string source = scene.file("source"), copy = scene.file("copy"), moved = scene.file("moved");
    const std::string text = pattern(200000), old = "old";
    put(source, text);
    put(copy, old);
    bool done = scene.step("ComCopyFile", call(ComCopyFile, copy.c_str(), source.c_str()), anyMinus);
    scene.holds(contentOf(copy) == (done ? text : old), "a copy is neither the old file nor the new one");
    const std::string before = contentOf(copy);
    const bool appended =
        scene.step("ComAppendFile", call(ComAppendFile, copy.c_str(), source.c_str()), anyMinus);
    scene.holds(contentOf(copy) == (appended ? before + text : before) ||
                    (scene.lasting && !appended && contentOf(copy).starts_with(before)),
                "an append is neither none nor whole");
    scene.holds(contentOf(source) == text, "the source was harmed");
    const bool gone = scene.step("ComMoveFile", call(ComMoveFile, moved.c_str(), source.c_str()), anyMinus);
    scene.holds(gone ? contentOf(moved) == text && !isThere(source) : contentOf(source) == text,
                "a move lost its file");
    scene.holds(!isThere(moved) || contentOf(moved) == text, "a move left half a file");
    for (const auto& entry : std::filesystem::directory_iterator(scene.folder().path()))
        scene.holds(!entry.path().filename().string().starts_with(".brisolt"), "a draft stayed");
    done = done && appended && gone && call(ComDeleteFile, copy.c_str()) == 1;
    std::filesystem::remove(copy);
    std::filesystem::remove(moved);
    return done;
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
    const bool closed = call(ComBufferFileWrite_Close, port.number) == 1;
    if (done && closed)
        scene.holds(contentOf(path) == text, "the buffered writer lost bytes");
    done = done && closed;

    const std::string folder = scene.file("captured"), log = scene.file("log");
    std::filesystem::create_directory(folder);
    done = scene.step("ComSetDebugFileOnFail", call(ComSetDebugFileOnFail, port.number, folder.c_str(), 1000),
                      {-1, -2}) &&
           done;
    call(ComSetProtocolDebugFile, port.number, log.c_str(), "faults");
    const bool captured =
        call(ComWriteDebugFileOnFail, port.number, static_cast<const void*>("entry"), 5) > 0;
    const bool saved =
        scene.step("ComDebugFileOnFail_Save", call(ComDebugFileOnFail_Save, port.number), anyMinus);
    if (done && captured && saved) {
        std::string all;
        for (const auto& entry : std::filesystem::directory_iterator(folder))
            all += contentOf(entry.path());
        scene.holds(all.find("entry") != std::string::npos, "the capture's save has not what was captured");
    }
    call(ComSetDebugFile, port.number, log.c_str(), "title");
    call(ComWriteDebugFileString, port.number, "a line");
    port.close(0);
    return done && captured && saved;
}

bool transfer(Scene& scene) {
    OpenPort near(scene, "null-modem:text"), far(scene, "null-modem:text");
    if (!near || !far)
        return false;
    const std::string sent = scene.file("sent"), got = scene.file("got");
    const std::string text = pattern(60);
    put(sent, text);
    bool done = true;
    for (const auto& [from, to] : {std::pair{&near, &far}, {&far, &near}}) {
        int32_t result = 0;
        {
            const std::jthread sender([&, port = from->number] {
                const Spared here;
                result = call(ComSendA, port, sent.c_str());
                call(ComPutc, port, 26);
            });
            done =
                scene.step("ComRecvA",
                           call(ComRecvA, to->number, got.c_str(), 27, 26, scene.lasting ? 10 : 100), {-1}) &&
                done;
        }
        done = done && result == 1;
        scene.holds(text.starts_with(contentOf(got)), "other bytes were received than were sent");
        done = done && contentOf(got) == text;
    }
    return done && near.close(patience(scene)) && far.close(patience(scene));
}

bool scripting(Scene& scene) {
    FarEnd far(
        [](std::string& pending) { return pending.ends_with("\r") ? (pending.clear(), "login: ") : ""; });
    OpenPort port(scene, far.path());
    if (!port)
        return false;
    int32_t at = 0;
    call(ComPuts, port.number, "hello|");
    const char* const prompts[] = {"busy", "login:"};
    const char* const answers[] = {"", "me|"};
    bool done = scene.step("ComStimulus", call(ComStimulus, port.number, "login:", "guest|", 100, 500),
                           {2, 3, -1, -4, port.number});
    done = call(ComStimulusArray, port.number, prompts, answers, 2, 200, 500) == 2 && done;
    done = done && eventually([&] { return call(ComPeekString, port.number, "n:", &at) == 1; },
                              std::chrono::seconds(2));
    port.close(0);
    return done;
}

bool modem(Scene& scene) {
    FarEnd far(FarEnd::modem());
    OpenPort port(scene, far.path());
    if (!port)
        return false;
    bool done = scene.step("ComSetModem",
                           call(ComSetModem, port.number, BRISOLT_MODEMS, "ITU-T V.250 Standard", 1, 1, 1, 1,
                                1, 1, scene.file("log").c_str()),
                           {-1, -2, -5, -6});
    done = call(CSetModemParmDialTime, port.number, 0) >= 0 && done;
    done = scene.step("ComDial", call(ComDial, port.number, "5551"), {0, -1}) && done;
    done = done && port.drain();
    if (done)
        scene.holds(eventually([&] { return far.received().ends_with("5551\r"); }, std::chrono::seconds(5)),
                    "the number did not arrive: " + far.received());
    port.close(0);
    return done;
}

bool telephony(Scene& scene) {
#ifdef BRISOLT_SERVICE
    FarEnd far(FarEnd::modem());
    put(scene.file("telephony.ini"), "[One]\ndevice = " + far.path() + "\nflow = none\nhangup = escape\n");
    setenv("BRISOLT_TELEPHONY", scene.folder().path().c_str(), 1);
    // Without it the library would take a service for missing, for good.
    bool done = scene.step("ComHostMapModule", call(ComHostMapModule, "TAPI32.DLL", BRISOLT_SERVICE), {-1}) &&
                scene.step("ComTAPI_INIT", call(ComTAPI_INIT, scene.file("log").c_str()), {-1, -2, -3});
    if (done) {
        call(ComTAPI_SetModemWaitTime, scene.lasting ? 10U : 400U);
        const int32_t port = call(ComTAPI_Connect, "One", "5551", "T");
        done = port > 0;
        scene.holds(port > 0 || (port >= -30 && port < 0), "ComTAPI_Connect gave " + std::to_string(port));
        if (done) {
            char back[6] = "";
            done = call(ComPuts, port, "hello") > 0 &&
                   call(ComReadTimed, port, static_cast<void*>(back), 5, patience(scene) / 10) == 5;
            scene.holds(!done || std::string(back) == "hello", "other bytes came over the call");
        }
        call(ComTAPI_Disconnect, "One");
    }
    call(Com_TAPI_Shutdown);
    return done;
#else
    return scene.holds(true, "");
#endif
}

bool devices(Scene& scene) {
    char path[260] = "", text[260] = "";
    ComHostDeviceInfo info{};
    info.size = sizeof info;
    const int32_t first = call(ComHostGetDevice, 0, path, 260, text, 260),
                  more = call(ComHostGetDeviceInfo, 0, &info);
    OpenPort port(scene, "usb:dead:beef"); // lists what there is, and is not there
    scene.holds(first >= 0 && more >= 0,
                "listing gave " + std::to_string(first) + ", " + std::to_string(more));
    return port.number == -25;
}

} // namespace

bool Scene::step(const char* what, int64_t result, std::initializer_list<int32_t> failures) {
    if (result <= 0) {
        char why[200] = "";
        ComHostGetErrorText(why, sizeof why);
        refused_ = std::string(what) + " gave " + std::to_string(result) + " (" + why + ")";
    }
    const bool mayFail = std::find(failures.begin(), failures.end(), result) != failures.end();
    return !mayFail && holds(result > 0, refused_);
}

bool Scene::holds(bool promise, const std::string& text) {
    if (!promise && wrong_.empty())
        wrong_ = text;
    return promise;
}

const std::vector<Scenario> scenarios{
    {"terminal", terminal},  {"classic", classic},     {"null modem", nullModem}, {"slow peer", slowPeer},
    {"kept port", keptPort}, {"profile", profile},     {"files", files},          {"port files", portFiles},
    {"transfer", transfer},  {"scripting", scripting}, {"modem", modem},          {"telephony", telephony},
    {"devices", devices},
};

} // namespace brisolt::faults
