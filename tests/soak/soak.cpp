// Ports that work for hours: 32 null-modem cables or terminals, on each two ports or a port and an echo that send back
// and forth, with pauses, closes, reopens and devices that go. What arrives is compared byte for byte, and what the
// process holds must not grow.
//
//     brisolt-soak HOURS
#include <atomic>
#include <cstdio>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include <malloc.h>
#include <unistd.h>

#include "brisolt_host.h"
#include "support/files.h"
#include "support/pty.h"

using namespace brisolt::test;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

namespace {

constexpr int lineCount = 32; // of two ports each
constexpr int32_t patience = 60000;

std::atomic<bool> over{false};
std::atomic<int64_t> moved{0}, unplugs{0}, reopens{0}, wrong{0};

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

std::string read(int32_t port, std::size_t count) {
    std::string got(count, 0);
    std::size_t have = 0;
    while (have < count) {
        const int32_t more =
            ComHostRead(port, got.data() + have, static_cast<int32_t>(count - have), patience);
        if (more <= 0)
            break;
        have += static_cast<std::size_t>(more);
    }
    got.resize(have);
    return got;
}

/// Two ports, each with a path of its own; what goes into one has to come out of the other, both ways.
struct Line {
    Line(int which, const std::string& folder)
        : number(which), random(static_cast<uint32_t>(which)), isCable(which % 2 == 0),
          link(folder + "/tty" + std::to_string(which)) {
        plug();
        openBoth();
    }
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    ~Line() { closeBoth(); }

    void run() {
        while (!over && wrong == 0) {
            exchange();
            switch (random() % 50) {
            case 0: reopen(); break;
            case 1: unplug(); break;
            default: std::this_thread::sleep_for(milliseconds(random() % 200));
            }
        }
    }

private:
    void plug() {
        for (std::size_t end = 0; end < 2 && !isCable; ++end) {
            auto fresh = std::make_unique<Pty>();
            const std::string path = link + (end == 0 ? "a" : "b");
            std::filesystem::create_symlink(fresh->slavePath(), path + "new");
            std::filesystem::rename(path + "new", path);
            plugged[end] = std::move(fresh); // the old one's name is another line's as soon as it is gone
        }
    }
    std::string pathOf(std::size_t end) const {
        return isCable ? "null-modem:soak" + std::to_string(number)
                       : link + (end == 0 ? "a" : "b") + "?keep=yes";
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
    /// Both devices go and others come; nothing was under way.
    void unplug() {
        if (isCable)
            return reopen();
        plug();
        const auto back = [this] {
            return ComHostGetPortState(ports[0]) == 1 && ComHostGetPortState(ports[1]) == 1 &&
                   plugged[0]->connected() && plugged[1]->connected();
        };
        const auto end = Clock::now() + milliseconds(patience);
        while (!back() && Clock::now() < end)
            std::this_thread::sleep_for(milliseconds(5));
        expect(back(), "is not back", number);
        ++unplugs;
    }
    void exchange() {
        std::string bytes(1 + random() % 6000, 0);
        for (char& byte : bytes)
            byte = static_cast<char>(random());
        const std::size_t from = random() % 2;
        const std::jthread writer([&] {
            expect(ComHostWrite(ports[from], bytes.data(), static_cast<int32_t>(bytes.size()), patience) ==
                       static_cast<int32_t>(bytes.size()),
                   "is not written", number);
        });
        if (!isCable)
            carry(from, bytes.size());
        expect(read(ports[1 - from], bytes.size()) == bytes, "other bytes came", number);
        moved += static_cast<int64_t>(bytes.size());
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

struct Holdings {
    long memory = 0, descriptors = entriesOf("/proc/self/fd"), threads = entriesOf("/proc/self/task");
    Holdings() {
        long pages = 0;
        std::ifstream("/proc/self/statm") >> pages >> memory;
        memory = memory * sysconf(_SC_PAGESIZE) / 1024;
    }
};

} // namespace

int main(int count, char** words) {
    const double hours = count > 1 ? std::atof(words[1]) : 0.005;
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ);
    const TempDir folder;
    std::vector<std::unique_ptr<Line>> lines;
    for (int i = 0; i < lineCount; ++i)
        lines.push_back(std::make_unique<Line>(i, folder.path().string()));
    std::vector<std::jthread> threads;
    for (const auto& line : lines)
        threads.emplace_back([&line] { line->run(); });

    const auto start = Clock::now();
    const auto end = start + std::chrono::duration_cast<milliseconds>(
                                 std::chrono::duration<double, std::ratio<3600>>(hours));
    const milliseconds step(
        std::min<int64_t>(60000, std::chrono::duration_cast<milliseconds>(end - start).count() / 4 + 1));
    std::unique_ptr<Holdings> early;
    bool flat = true;
    for (auto next = start + step; wrong == 0 && next <= end; next += step) {
        std::this_thread::sleep_until(next);
        const Holdings now;
        std::printf(
            "%6ld s %9ld KB moved %6ld reopens %6ld unplugs %7ld KB memory %4ld descriptors %3ld threads\n",
            static_cast<long>(std::chrono::duration_cast<std::chrono::seconds>(next - start).count()),
            moved.load() / 1024, reopens.load(), unplugs.load(), now.memory, now.descriptors, now.threads);
        if (early == nullptr && next - start >= (end - start) / 4)
            early = std::make_unique<Holdings>(now);
        // A line that is being opened or unplugged has a little more for a moment.
        constexpr long moment = 4 * lineCount;
        flat = flat && (early == nullptr || (now.memory < early->memory * 5 / 4 + 2048 &&
                                             now.descriptors <= early->descriptors + moment &&
                                             now.threads <= early->threads + moment));
    }
    over = true;
    threads.clear();
    std::printf("%ld wrong, %s\n", wrong.load(), flat ? "flat" : "it grows");
    return wrong == 0 && flat ? 0 : 1;
}
