// Eight threads do everything at once to eight ports: each exported function that takes a port, with drawn
// arguments, closes and reopens among them, callbacks that close, devices that go and come. Nobody looks at single
// results here. What counts: nothing crashes, hangs or leaks, and every line works when the storm is over.
//
//     brisolt-storm SECONDS [SEED]
#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <deque>
#include <memory>
#include <mutex>
#include <random>
#include <vector>

#include <poll.h>
#include <sys/resource.h>
#include <unistd.h>

#include "brisolt.h"
#include "brisolt_host.h"
#include "support/files.h"
#include "support/pty.h"
#include "support/timing.h"

using namespace brisolt::test;

namespace {

constexpr int32_t portCount = 8;
constexpr std::size_t roomSize = 65536;
constexpr int32_t ptyPorts = 4;                    // the last ones
constexpr int32_t calmPort = 9;                    // nothing happens to it
constexpr int32_t emptyPort = 10;                  // has no block that it could forget
constexpr int32_t firstFree = 125, lastFree = 128; // those that ComHostOpen takes

const char* folder = nullptr;
std::atomic<long> calls{0}, opens{0}, lossless{0}, losses{0};
std::atomic<bool> over{false};

/// Ports 1 and 2 are a null modem, 3 and 4 loops, 5 to 8 terminals, of which two are waited for when they go.
std::string pathOf(int32_t port) {
    static constexpr const char* plain[] = {"null-modem:storm", "null-modem:storm?paced=yes", "loop:a",
                                            "loop:b?dtr=off"};
    if (port <= 4)
        return plain[port - 1];
    return std::string(folder) + "/tty" + std::to_string(port) + (port <= 6 ? "?keep=yes" : "");
}

/// The far ends of the terminals: they send back what comes, and go now and then.
class Terminals {
public:
    Terminals() {
        for (int32_t port = portCount - ptyPorts + 1; port <= portCount; ++port)
            plug(port);
        thread_ = std::jthread([this](const std::stop_token& stop) { run(stop); });
    }

private:
    std::unique_ptr<Pty>& end(int32_t port) { return ends_[static_cast<std::size_t>(portCount - port)]; }
    void plug(int32_t port) {
        auto fresh = std::make_unique<Pty>();
        const std::string link = std::string(folder) + "/tty" + std::to_string(port);
        std::filesystem::create_symlink(fresh->slavePath(), link + "new");
        std::filesystem::rename(link + "new", link);
        end(port) = std::move(fresh); // the old one's name is anybody's as soon as it is gone
    }
    void run(const std::stop_token& stop) {
        std::minstd_rand random(7);
        for (auto next = std::chrono::steady_clock::now(); !stop.stop_requested();) {
            bool moved = false;
            for (const auto& one : ends_) {
                char bytes[4096];
                const ssize_t count = read(one->master(), bytes, sizeof bytes);
                moved =
                    moved || (count > 0 && write(one->master(), bytes, static_cast<std::size_t>(count)) > 0);
            }
            if (!moved)
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
            if (over || std::chrono::steady_clock::now() < next)
                continue;
            plug(portCount - static_cast<int32_t>(random() % ptyPorts));
            ++losses;
            next += std::chrono::milliseconds(100 + random() % 400);
        }
    }
    std::array<std::unique_ptr<Pty>, ptyPorts> ends_;
    std::jthread thread_;
};

/// These run on the library's threads, too.
int32_t closeSometimes(int32_t port) {
    thread_local std::minstd_rand random(static_cast<uint32_t>(port));
    return random() % 256 == 0 ? ComClose(port) : 0;
}
int32_t onPort(int32_t port) {
    char bytes[64];
    ComRead(port, bytes, sizeof bytes);
    return closeSometimes(port);
}
int32_t onRead(int32_t, void*, int32_t count) {
    return count / 2;
}
int32_t onWrite(int32_t port, const void*, int32_t count) {
    closeSometimes(port);
    return count;
}
template <class... Numbers> int32_t onSetting(int32_t port, Numbers...) {
    closeSometimes(port);
    return 1;
}

/// Arguments, one after the other.
class Draw {
public:
    explicit Draw(uint32_t seed) : random_(seed), room_(roomSize) {
        window_ = ComHostCreateWindow([](void*, int32_t, uint32_t, uintptr_t, intptr_t) {}, nullptr);
    }
    Draw(const Draw&) = delete;
    Draw& operator=(const Draw&) = delete;
    ~Draw() { ComHostDestroyWindow(window_); }
    uint32_t below(uint32_t limit) { return static_cast<uint32_t>(random_()) % limit; }
    template <class Values> auto of(const Values& values) {
        return values[below(static_cast<uint32_t>(std::size(values)))];
    }

    int32_t anyOf(int32_t first, int32_t last) {
        return first + static_cast<int32_t>(below(static_cast<uint32_t>(last - first + 1)));
    }
    int32_t port() { return below(3) == 0 ? anyOf(firstFree, lastFree) : anyOf(1, portCount); }
    static int32_t portWithoutBlocks() { return emptyPort; }
    int32_t number() { return of(std::array{-1, 0, 1, 2, 3, 13, 26, 100, 255, 700, 4000}); }
    int32_t smallNumber() { return static_cast<int32_t>(1 + below(3)); }
    int32_t dataBits() { return static_cast<int32_t>(7 + below(2)); }
    int32_t baudRate() { return of(std::array{0, 1200, 9600, 115200, 3000000}); }
    int32_t ringSize() { return of(std::array{16, 2048, 4096, 20000}); }
    int32_t time() { return of(std::array{0, 1, 5, 20, 60}); }
    int32_t events() { return of(std::array{0x8, 0x80, 0x1000, 0x31f8}); }
    int32_t window() { return below(2) == 0 ? window_ : 0; }
    uint32_t thread() { return below(2) == 0 ? ComHostThreadId() : 0; }
    int32_t handle() {
        const int32_t handle = below(4) == 0 ? ComHostOpenDevice(pathOf(anyOf(1, portCount)).c_str()) : -1;
        handles_.push_back(handle);
        return handle;
    }
    const char* text() { return of(std::array<const char*, 6>{"", "abc", "AT|", "login: ", "8N1", "T*x?y"}); }
    const char* const* texts() {
        static constexpr const char* all[4000] = {"ab", "login:"};
        return all;
    }
    const char* fileName() {
        return keep(std::string(folder) + "/" + of(std::array{"a", "b", "c", "d.ini", "no/where"}));
    }
    const char* devicePath() { return keep(pathOf(anyOf(1, portCount))); }
    void* room() { return room_.data(); }
    template <class Record> Record* record() {
        static thread_local Record record{};
        if constexpr (
            requires { record.size; } && !requires { record.packets; })
            record.size = sizeof record;
        return &record;
    }
    template <class Function> Function callback() {
        if constexpr (std::is_same_v<Function, ComPortFunc>)
            return below(2) == 0 ? onPort : nullptr;
        else if constexpr (std::is_same_v<Function, ComReadFunc>)
            return below(8) == 0 ? onRead : nullptr;
        else if constexpr (std::is_same_v<Function, ComWriteFunc>)
            return below(8) == 0 ? onWrite : nullptr;
        else if constexpr (std::is_same_v<Function, ComPortValueFunc>)
            return below(2) == 0 ? onSetting<int32_t> : nullptr;
        else if constexpr (std::is_same_v<Function, ComSetParmsFunc>)
            return below(2) == 0 ? onSetting<int32_t, int32_t, int32_t> : nullptr;
        else
            return nullptr;
    }
    void afterwards() {
        for (const int32_t handle : handles_)
            if (handle >= 0)
                ComHostCloseDevice(handle);
        for (const int32_t handle : files_)
            ComCloseFile(calmPort, handle);
        handles_.clear();
        files_.clear();
        kept_.clear();
        ComHostMessage message;
        while (below(8) != 0 && ComHostGetMessage(&message, below(4) == 0 ? time() : 0) == 1)
            ComHostDispatchMessage(&message);
    }
    void keepFile(int32_t handle) { files_.push_back(handle); }

private:
    const char* keep(std::string text) { return kept_.emplace_back(std::move(text)).c_str(); }

    std::minstd_rand random_;
    std::vector<char> room_;
    std::vector<int32_t> handles_, files_;
    std::deque<std::string> kept_;
    int32_t window_;
};

struct Call {
    const char* name;
    void (*make)(Draw& with);
};
const Call table[] = {
#include <storm_calls.inc>
};

/// What each thread does now, for whoever wonders why it does not end.
std::array<std::atomic<const char*>, portCount> busyWith;

bool isEnd(const std::string& name) {
    return name.find("Close") != std::string::npos || name.find("CLOSEPORT") != std::string::npos;
}

bool openAs(int32_t port, Draw& draw) {
    ComHostMapDevice(port, pathOf(port).c_str());
    return ComOpen("COM", port, 115200, 8, 1, 1, static_cast<uint32_t>(draw.ringSize()),
                   static_cast<uint32_t>(draw.ringSize())) == port;
}
/// Lossless, with rings of 64 KB, on a number that is free and not mapped. One that nobody draws is no use.
bool openAnew(int32_t wanted, Draw& draw) {
    ComHostMapDevice(wanted, nullptr);
    const int32_t port = ComHostOpen(draw.devicePath(), 115200, nullptr);
    if (port > 0 && port < firstFree)
        ComHostClose(port, 0);
    lossless += port >= firstFree ? 1 : 0;
    return port >= firstFree;
}

void rage(std::size_t self, uint32_t seed) {
    Draw draw(seed);
    while (!over) {
        const int32_t port = draw.port();
        if (ComOpenState(port) == 0 && draw.below(4) != 0) {
            busyWith[self] = "an open";
            opens += (port <= portCount ? openAs(port, draw) : openAnew(port, draw)) ? 1 : 0;
            continue;
        }
        const Call& call = draw.of(table);
        if (isEnd(call.name) && draw.below(2) != 0)
            continue; // else most ports would be closed most of the time
        busyWith[self] = call.name;
        call.make(draw);
        draw.afterwards();
        ++calls;
    }
    busyWith[self] = nullptr;
}

void closeAll() {
    for (int32_t port = 1; port <= lastFree; ++port) {
        if (port == calmPort)
            continue;
        ComHostClose(port, 0);
        ComVirtualClose(port);
        ComGetModem_End(port); // a list of modems is the program's to end
    }
}

/// Whether the bytes come, behind what a far end may have had on its way since the storm.
bool hears(int32_t port, const std::string& bytes) {
    std::string heard;
    char piece[256];
    for (int32_t got = 1; got > 0 && heard.find(bytes) == std::string::npos;) {
        got = ComHostRead(port, piece, sizeof piece, 500000);
        heard.append(piece, static_cast<std::size_t>(std::max(got, 0)));
    }
    return heard.find(bytes) != std::string::npos;
}

/// Whether each line carries bytes.
bool linesWork() {
    bool right = true;
    const auto opened = [](int32_t port) { return ComHostOpen(pathOf(port).c_str(), 115200, nullptr); };
    for (int32_t port = 2; port <= portCount; ++port) {
        int32_t ends[2] = {-1, -1};
        const auto comes = [&](std::size_t end, int32_t which) {
            return eventually([&] { return (ends[end] = opened(which)) > 0; });
        };
        const bool pair = port == 2;
        const char* wrong = nullptr;
        if (!comes(0, port) || (pair && !comes(1, 1)))
            wrong = "does not open";
        else if (ComHostWrite(ends[0], "still", 5, 500000) != 5)
            wrong = "takes nothing";
        else if (!hears(ends[pair ? 1 : 0], "still"))
            wrong = "hears nothing";
        right = right && wrong == nullptr;
        if (wrong != nullptr)
            std::printf("after the storm %s %s\n", pathOf(port).c_str(), wrong);
        ComHostClose(ends[0], 0);
        ComHostClose(ends[1], 0);
    }
    return right;
}

bool ends(std::vector<std::jthread>& threads) {
    const bool all = eventually(
        [] {
            closeAll(); // ends every wait
            return std::all_of(busyWith.begin(), busyWith.end(),
                               [](const auto& one) { return one == nullptr; });
        },
        std::chrono::seconds(60));
    for (const auto& one : busyWith)
        if (const char* name = one)
            std::printf("does not end: %s\n", name);
    if (all)
        threads.clear();
    return all;
}

} // namespace

int main(int count, char** words) {
    const double seconds = count > 1 ? std::atof(words[1]) : 10;
    const auto seed = static_cast<uint32_t>(count > 2 ? std::atol(words[2]) : std::random_device()());
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const TempDir place;
    folder = place.path().c_str();
    const rlimit small{1 << 20, RLIM_INFINITY}; // logs that grow run into the limit
    setrlimit(RLIMIT_FSIZE, &small);
    const FastClock fast(500); // a wait is over before its thread has nothing else to do for long
    ComHostSetMessageBox([](const char*, const char*) {});
    const Terminals terminals;
    over = true;
    ComVirtualOpen(calmPort);
    bool right = linesWork();
    closeAll();
    const long descriptors = entriesOf("/proc/self/fd"), threads = entriesOf("/proc/self/task");
    over = false;
    std::printf("%zu functions, seed %u\n", std::size(table), seed);
    std::fflush(stdout);
    {
        std::vector<std::jthread> all;
        for (std::size_t i = 0; i < portCount; ++i)
            all.emplace_back(rage, i, seed + static_cast<uint32_t>(i));
        std::this_thread::sleep_for(std::chrono::duration<double>(seconds));
        over = true;
        if (!ends(all))
            std::abort(); // with a stack of every thread where somebody looks
    }
    closeAll();
    right = linesWork() && right;
    const bool flat = eventually([&] {
        return entriesOf("/proc/self/fd") <= descriptors + 2 && entriesOf("/proc/self/task") <= threads + 1;
    });
    std::printf("%ld calls, %ld opens (%ld by ComHostOpen), %ld devices went; descriptors %ld then %ld, "
                "threads %ld then %ld\n",
                calls.load(), opens.load(), lossless.load(), losses.load(), descriptors,
                entriesOf("/proc/self/fd"), threads, entriesOf("/proc/self/task"));
    if (!flat)
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
            std::printf("open: %s\n", read_symlink(entry).c_str());
    return right && flat ? 0 : 1;
}
