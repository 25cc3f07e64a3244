// Ports that work for hours: 32 lines of two ports each, 8 of them null modems, the others pairs of terminals with this
// program as the wire. They send now one way and now the other, with pauses, closes and reopens; terminals are
// unplugged with bytes under way and stay away for up to two seconds. What arrives is compared byte for byte. At each
// line that is printed all stand still for a moment: what the process holds then must not grow, and nothing of it is
// left when all is closed.
//
//     brisolt-soak HOURS
#include <atomic>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <mutex>
#include <random>
#include <thread>
#include <vector>

#include <malloc.h>
#include <unistd.h>

#include "brisolt_host.h"
#include "support/files.h"
#include "support/pty.h"
#include "support/timing.h"

#ifdef __SANITIZE_ADDRESS__
/// What the sanitizer keeps of freed blocks looks like a leak.
extern "C" const char* __asan_default_options() {
    return "quarantine_size_mb=1:thread_local_quarantine_size_kb=16";
}
#endif

using namespace brisolt::test;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

constexpr int lineCount = 32;
constexpr int32_t patience = 300000;     // a machine may stand still for a minute
constexpr long few = 4, blocksMore = 64; // descriptors and threads; KB: what may come on top

std::atomic<bool> over{false};
std::atomic<long long> moved{0}, unplugs{0}, reopens{0}, wrong{0};

void expect(bool right, const char* what, int line) {
    if (!right && ++wrong <= 20) {
        char text[300] = "";
        ComHostGetErrorText(text, sizeof text);
        std::printf("line %d: %s (%s)\n", line, what, text);
    }
}

int32_t opened(const std::string& path, int line) {
    const int32_t port = ComHostOpen(path.c_str(), 115200, nullptr);
    expect(port > 0, "does not open", line);
    return port;
}

/// All that comes from a port up to `last`.
std::string readTo(int32_t port, const std::string& last) {
    std::string got;
    char bytes[4096];
    while (!got.ends_with(last)) {
        const int32_t more = ComHostRead(port, bytes, sizeof bytes, patience);
        if (more <= 0)
            break;
        got.append(bytes, static_cast<std::size_t>(more));
    }
    return got;
}

/// Where the lines wait while somebody looks at what they hold.
class Gate {
public:
    void pass() {
        std::unique_lock guard(mutex_);
        ++waiting_;
        changed_.notify_all();
        changed_.wait(guard, [this] { return !closed_; });
        --waiting_;
    }
    /// False: one of them does not come.
    bool close() {
        std::unique_lock guard(mutex_);
        closed_ = true;
        return changed_.wait_for(guard, milliseconds(patience),
                                 [this] { return waiting_ == lineCount || wrong != 0; });
    }
    void open() {
        const std::lock_guard guard(mutex_);
        closed_ = false;
        changed_.notify_all();
    }

private:
    std::mutex mutex_;
    std::condition_variable changed_;
    bool closed_ = false;
    int waiting_ = 0;
};
Gate gate;

/// Two ports, each with a path of its own; what goes into one has to come out of the other, both ways.
struct Line {
    Line(int which, const std::string& folder)
        : number(which), random(static_cast<uint32_t>(which)), isCable(which % 4 == 0),
          link(folder + "/tty" + std::to_string(which)) {
        for (std::size_t end = 0; end < 2 && !isCable; ++end)
            plug(end);
        openBoth();
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    ~Line() { closeBoth(); }

    void run() {
        for (; !over && wrong == 0; gate.pass()) {
            exchange();
            const auto chance = random() % 50;
            if (chance == 0)
                reopen();
            else if (chance == 1 && !isCable)
                unplug(random() % 2);
            else if (chance == 2 && !isCable)
                abandon(random() % 2);
            else
                std::this_thread::sleep_for(milliseconds(random() % 200));
        }
    }

private:
    std::string linkOf(std::size_t end) const { return link + (end == 0 ? "a" : "b"); }
    std::string pathOf(std::size_t end) const {
        return isCable ? "null-modem:soak" + std::to_string(number) : linkOf(end) + "?keep=yes";
    }
    void plug(std::size_t end) {
        plugged[end] = std::make_unique<Pty>();
        std::filesystem::create_symlink(plugged[end]->slavePath(), linkOf(end));
    }
    void pull(std::size_t end) {
        std::filesystem::remove(linkOf(end)); // what it leads to is another line's as soon as it is gone
        plugged[end]->close();
    }
    std::string drawn(std::size_t most) {
        std::string bytes(1 + random() % most, 0);
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        return bytes;
    }
    void write(std::size_t end, const std::string& bytes) {
        expect(ComHostWrite(ports[end], bytes.data(), static_cast<int32_t>(bytes.size()), patience) ==
                   static_cast<int32_t>(bytes.size()),
               "is not written", number);
        moved += static_cast<long long>(bytes.size());
    }
    void openBoth() {
        for (std::size_t end = 0; end < 2; ++end)
            ports[end] = opened(pathOf(end), number);
        ComHostSetLine(ports[0], 0, nullptr,
                       isCable ? 0 : -1); // RTS and CTS hold back what the ring has no room for
        ComHostSetLine(ports[1], 0, nullptr, isCable ? 0 : -1);
    }
    void closeBoth() {
        expect(ComHostClose(ports[0], patience) == 1 && ComHostClose(ports[1], patience) == 1,
               "does not close empty", number);
    }
    void reopen() {
        closeBoth();
        openBoth();
        ++reopens;
    }
    /// A device goes with bytes under way both ways. What it took with it is lost; all else arrives, in order, once.
    void unplug(std::size_t end) {
        const std::string before = drawn(40000), away = drawn(6000), after = drawn(2000);
        write(end, before); // for the most part the driver or the ring has it, and nobody reads
        const std::string in = drawn(4000);
        plugged[end]->write(in, milliseconds(0));
        const std::string first = plugged[end]->read(random() % before.size(), milliseconds(patience));
        pull(end);
        const auto isIn = [&](int32_t state) {
            return eventually([&] { return ComHostGetPortState(ports[end]) == state; },
                              milliseconds(patience));
        };
        expect(isIn(3), "is not missed", number);
        write(end, away);
        std::this_thread::sleep_for(milliseconds(random() % 2000));
        plug(end);
        expect(isIn(1), "is not back", number);

        std::string rest;
        for (auto last = Clock::now() + milliseconds(patience); !rest.ends_with(away) && Clock::now() < last;)
            rest += plugged[end]->readToQuiet(milliseconds(5));
        expect(before.starts_with(first) && rest.ends_with(away) &&
                   first.size() + rest.size() <= before.size() + away.size() &&
                   (before + away).ends_with(rest),
               "a hole in what was sent, or the same again", number);
        plugged[end]->write(after, milliseconds(patience));
        const std::string got = readTo(ports[end], after);
        expect(got.ends_with(after) && in.starts_with(got.substr(0, got.size() - after.size())),
               "a hole in what was received, or the same again", number);
        ++unplugs;
    }
    /// The program has enough of a device that is away, and opens it anew when it is there.
    void abandon(std::size_t end) {
        pull(end);
        const bool missed = random() % 2 == 0;
        expect(!missed ||
                   eventually([&] { return ComHostGetPortState(ports[end]) == 3; }, milliseconds(patience)),
               "is not missed", number);
        expect(ComHostClose(ports[end], 0) == 1, "does not close while it is away", number);
        plug(end);
        ports[end] = opened(pathOf(end), number);
        ++unplugs;
    }
    void exchange() {
        const std::string bytes = drawn(6000);
        const std::size_t from = random() % 2;
        const std::jthread writer([&] { write(from, bytes); });
        if (!isCable)
            carry(from, bytes.size());
        expect(readTo(ports[1 - from], bytes) == bytes, "other bytes came", number);
    }
    /// The wire between two terminals.
    void carry(std::size_t from, std::size_t count) {
        while (count > 0) {
            const std::string piece =
                plugged[from]->read(std::min<std::size_t>(count, 1000), milliseconds(patience));
            if (piece.empty() || plugged[1 - from]->write(piece, milliseconds(patience)) != piece.size())
                return expect(false, "the wire stands still", number);
            count -= piece.size();
        }
    }

    int number;
    std::minstd_rand random;
    bool isCable;
    std::string link;
    std::unique_ptr<Pty> plugged[2];
    int32_t ports[2] = {0, 0};
};

/// What the process has. Blocks are in use; the memory is what of it the host has given.
struct Holdings {
    long blocks = static_cast<long>((mallinfo2().uordblks + mallinfo2().hblkhd) / 1024), memory = 0;
    long descriptors = entriesOf("/proc/self/fd"), threads = entriesOf("/proc/self/task");
    Holdings() {
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages >> memory;
        memory = memory * sysconf(_SC_PAGESIZE) / 1024;
    }
    void raiseTo(const Holdings& other) {
        for (auto one : {&Holdings::blocks, &Holdings::memory, &Holdings::descriptors, &Holdings::threads})
            this->*one = std::max(this->*one, other.*one);
    }
    void print(const char* when) const {
        std::printf(
            "%s %8lld KB moved %6lld reopens %6lld unplugs %6ld KB in use %6ld KB memory %4ld descriptors "
            "%3ld threads\n",
            when, moved.load() / 1024, reopens.load(), unplugs.load(), blocks, memory, descriptors, threads);
    }
};

/// Each line's thread is at the gate. Those of the library that have nothing left to do may be on their way out.
Holdings quietMoment() {
    expect(gate.close(), "stands still", -1);
    std::this_thread::sleep_for(milliseconds(300));
    const Holdings now;
    gate.open();
    return now;
}

} // namespace

int main(int count, char** words) {
    // What threads keep of freed blocks would hide a slow leak: this program starts again without it.
    if (setenv("GLIBC_TUNABLES", "glibc.malloc.tcache_count=0", 0) == 0 &&
        std::getenv("BRISOLT_SOAK") == nullptr && setenv("BRISOLT_SOAK", "again", 1) == 0)
        execv("/proc/self/exe", words);
    const double hours = count > 1 ? std::atof(words[1]) : 0.005;
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const TempDir folder;
    const Holdings start;
    std::vector<std::unique_ptr<Line>> lines;
    for (int i = 0; i < lineCount; ++i)
        lines.push_back(std::make_unique<Line>(i, folder.path().string()));
    std::vector<std::jthread> threads;
    for (const auto& line : lines)
        threads.emplace_back([&line] { line->run(); });

    const auto begin = Clock::now();
    const auto length =
        std::chrono::duration_cast<milliseconds>(std::chrono::duration<double, std::ratio<3600>>(hours));
    const auto step = std::min(milliseconds(60000), length / 4);
    const auto warm = std::min(milliseconds(600000), length / 4);
    // Nothing is warm by then: a thread has its eventfd from its first wait on, and a sanitizer takes memory.
    const bool isShort = length < milliseconds(180000);
    std::unique_ptr<Holdings> early;
    bool flat = true;
    for (auto next = begin + step; wrong == 0 && next <= begin + length; next += step) {
        std::this_thread::sleep_until(next);
        const Holdings now = quietMoment();
        now.print((std::to_string((next - begin) / std::chrono::seconds(1)) + " s").c_str());
        if (early == nullptr)
            early = std::make_unique<Holdings>(now);
        if (next - begin <= warm)
            early->raiseTo(now);
        flat = flat && now.descriptors <= early->descriptors + (isShort ? lineCount : few) &&
               now.threads <= early->threads + few && now.blocks <= early->blocks + blocksMore &&
               now.memory <= early->memory + (isShort ? early->memory / 4 + 2048 : 1024);
    }
    over = true;
    gate.open();
    threads.clear();
    lines.clear();
    const bool empty = eventually([&] {
        const Holdings now;
        return now.descriptors <= start.descriptors + few &&
               now.threads <= start.threads + 1; // a sanitizer has one of its own
    });
    Holdings().print("closed");
    std::printf("%lld wrong, %s, %s\n", wrong.load(), flat ? "flat" : "it grows",
                empty ? "nothing left" : "something is left");
    return wrong == 0 && flat && empty ? 0 : 1;
}
