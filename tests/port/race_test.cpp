// Threads that do everything at once to the same few ports. Nobody checks single bytes here: what counts is
// that each call gives a result it may give, that nothing crashes, hangs or leaks, and that every port works
// when the storm is over. Run it for longer with --gtest_repeat.
#include <array>
#include <atomic>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "port/ports.h"
#include "port/tracked_memory.h"
#include "support/pty.h"
#include "support/temp_dir.h"

using namespace brisolt;
using namespace brisolt::test;

namespace {

constexpr int32_t portCount = 8;
constexpr int32_t workerCount = 6;
constexpr auto stormTime = std::chrono::seconds(3);
constexpr int32_t ringSize = 4096;

/// Ports 1 to 4 are two null modems, one of them with line time; 5 to 8 are pseudo terminals whose far end
/// sends everything back. Ports 7 and 8 adopt handles.
class Lines {
public:
    explicit Lines(std::atomic<bool>& stop) : stop_(stop) {
        for (int32_t port = 1; port <= 4; ++port)
            ComHostMapDevice(port, port <= 2 ? "null-modem:race" : "null-modem:race-slow?paced");
        for (int32_t port = 5; port <= portCount; ++port)
            ComHostMapDevice(port, ptyOf(port).slavePath().c_str());
        echo_ = std::thread([this] { echo(); });
    }
    ~Lines() {
        stop_ = true;
        echo_.join();
    }

    int32_t open(int32_t port) {
        if (port <= 6)
            return ComOpen("COM", port, 115200, 8, 1, 1, ringSize, ringSize);
        return adopt(port);
    }

private:
    Pty& ptyOf(int32_t port) { return ptys_[static_cast<std::size_t>(port - 5)]; }

    int32_t adopt(int32_t port) {
        const int32_t handle = ComHostOpenDevice(ptyOf(port).slavePath().c_str());
        if (handle < 0)
            return -25;
        const int32_t result = CPreOpen(port, 115200, 8, 1, 1, handle);
        ComHostCloseDevice(handle); // the port keeps working
        return result;
    }
    void echo() {
        while (!stop_) {
            std::array<pollfd, 4> set{};
            for (std::size_t i = 0; i < set.size(); ++i)
                set[i] = {ptys_[i].master(), POLLIN, 0};
            bool moved = false;
            if (poll(set.data(), set.size(), 10) > 0)
                for (const pollfd& one : set)
                    moved = sendBack(one.fd) || moved;
            if (!moved) // a master without a slave polls ready all the time
                std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
    static bool sendBack(int master) {
        std::array<char, 4096> bytes{};
        const ssize_t count = read(master, bytes.data(), bytes.size());
        // What finds no room is lost, like on a line without handshake.
        return count > 0 && write(master, bytes.data(), static_cast<std::size_t>(count)) > 0;
    }

    std::atomic<bool>& stop_;
    std::array<Pty, 4> ptys_;
    std::thread echo_;
};

std::atomic<int64_t> opens;
std::atomic<int64_t> closes;
std::atomic<int32_t> wrongResults;

void expect(bool right, const char* what, int64_t result) {
    if (!right && wrongResults.fetch_add(1) < 10)
        ADD_FAILURE() << what << " gave " << result;
}
void expectIn(int64_t least, int64_t most, const char* what, int64_t result) {
    expect(result >= least && result <= most, what, result);
}

void closeEither(int32_t port, bool pre) {
    const int32_t result = pre ? ComPreClose(port) : ComClose(port);
    expect(result == 1 || result == -1, "close", result);
    closes += result == 1 ? 1 : 0;
}

/// Runs on I/O threads, inside their rounds.
int32_t onData(int32_t port) {
    static std::atomic<uint32_t> calls{0};
    std::array<char, 64> bytes{};
    if (ComStatus(port) > 0)
        expectIn(-1, 64, "ComRead in a notification", ComRead(port, bytes.data(), 64));
    if (calls.fetch_add(1) % 256 == 255)
        closeEither(port, false);
    return 0;
}

class Worker {
public:
    Worker(Lines& lines, const std::string& logPath, uint32_t seed)
        : lines_(lines), logPath_(logPath), random_(seed) {}

    void run(const std::atomic<bool>& stop) {
        while (!stop) {
            const auto port = static_cast<int32_t>(1 + pick(portCount));
            if (ComOpenState(port) == 0)
                open(port);
            else
                operate(port);
        }
    }

private:
    uint32_t pick(uint32_t below) { return static_cast<uint32_t>(random_()) % below; }
    int32_t pickInt(uint32_t below) { return static_cast<int32_t>(pick(below)); }

    void open(int32_t port) {
        const int32_t result = lines_.open(port);
        // -2: somebody was quicker; -25: the device of the life before has not let go yet.
        expect(result == port || result == -2 || result == -25, "open", result);
        if (result != port)
            return;
        ++opens;
        ComSetWriteTimeout(port, 2000); // an adopted port would wait without limit
    }

    void operate(int32_t port) {
        // Seldom, since they take long: the storm must consist of many calls.
        switch (pick(2000)) {
        case 0:
        case 1: closeEither(port, false); break;
        case 2: closeEither(port, true); break;
        case 3:
        case 4:
        case 5: wait(port); break;
        default: pick(8) == 0 ? set(port) : move(port); break;
        }
    }

    void move(int32_t port) {
        std::array<char, 700> bytes{};
        const int32_t count = 1 + pickInt(static_cast<uint32_t>(bytes.size()) - 1);
        switch (pick(10)) {
        case 0: expectIn(-1, 255, "ComGetc", ComGetc(port)); break;
        case 1: expectIn(-1, 1, "ComPutc", ComPutc(port, 'x')); break;
        case 2:
            expectIn(-1, count, "ComReadBufToEmpty", ComReadBufToEmpty(port, bytes.data(), 'y', count - 1));
            break;
        case 3: expectIn(-1, count, "ComWrite", ComWrite(port, bytes.data(), count)); break;
        case 4: expectIn(-1, ringSize, "ComStatus", ComStatus(port)); break;
        case 5: expectIn(-1, 1 << 20, "ComOutBufStatus", ComOutBufStatus(port)); break;
        case 6: expectIn(-1, 0x1F, "ComGetLineError", ComGetLineError(port)); break;
        default: expectIn(-1, count, "ComRead", ComRead(port, bytes.data(), count)); break;
        }
    }

    void wait(int32_t port) {
        std::array<char, 100> bytes{};
        switch (pick(6)) {
        case 0: expectIn(-1, 1, "ComSleepMS", ComSleepMS(port, pickInt(200))); break;
        case 1: expectIn(-1, 4, "ComReadBuf", ComReadBuf(port, bytes.data(), 0, 99, 1)); break;
        case 2: expectIn(-1, 99, "ComReadBufToQuiet", ComReadBufToQuiet(port, bytes.data(), 100, 1)); break;
        case 3: expectIn(-1, 1, "ComFlush", ComFlush(port)); break;
        case 4: expectIn(-1, 1, "ComFlushImmediate", ComFlushImmediate(port)); break;
        default: expectIn(-1, 100, "ComReadTimed", ComReadTimed(port, bytes.data(), 100, 50)); break;
        }
    }

    void set(int32_t port) {
        const bool on = pick(2) == 0;
        switch (pick(14)) {
        case 0: expectIn(-1, 1, "ComSetFlow", ComSetFlow(port, pickInt(3))); break;
        case 1: ComSetBackgroundTimeout(port, pick(100)); break;
        case 2: on ? ComSuspend(port) : ComResume(port); break;
        case 3: on ? ComSuspendPortWriteThru(port) : ComResumePortWriteThru(port); break;
        case 4: ComCancel(port); break;
        case 5: ComHostSetLossless(port, on ? 1 : 0); break;
        case 6: ComSetNotifyMessageOnAnyCharCallBackFunc(port, on ? onData : nullptr); break;
        case 7: ComSetPortDebugFile(port, pick(8) == 0 ? logPath_.c_str() : nullptr); break;
        case 8: ComSetPortMaxWriteChars(port, pickInt(1300)); break;
        case 9: on ? ComSetDTR(port) : ComClearDTR(port); break;
        case 10: ComSetBackgroundPriority(port, pickInt(11)); break;
        case 11: expectIn(-1, 1, "ComFlushOutBuf", ComFlushOutBuf(port)); break;
        case 12: ComSetYield(port, on ? 1 : 0); break;
        default: // released by the close
            if (ComMalloc(port, pick(5000)) == nullptr)
                ADD_FAILURE() << "no tracked memory";
            break;
        }
    }

    Lines& lines_;
    std::string logPath_;
    std::minstd_rand random_;
};

int64_t openDescriptors() {
    const std::filesystem::directory_iterator all("/proc/self/fd");
    return std::distance(begin(all), end(all));
}

int32_t ioThreads() {
    int32_t count = 0;
    std::error_code gone; // a thread may end while it is looked at
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task", gone)) {
        std::string name;
        std::getline(std::ifstream(task.path() / "comm"), name);
        count += name == "brisolt-io" ? 1 : 0;
    }
    return count;
}

/// Whether bytes written to one port can be read from another (or come back to the same).
void expectLine(int32_t from, int32_t to) {
    EXPECT_EQ(send(from, "still alive"), 11);
    EXPECT_EQ(receive(to, 11), "still alive") << "from port " << from << " to port " << to;
}

void expectAllWork(Lines& lines) {
    for (int32_t port = 1; port <= portCount; ++port)
        ASSERT_TRUE(eventually([&] { return lines.open(port) == port; })) << port;
    for (const auto& [from, to] : {std::pair{1, 2}, {2, 1}, {3, 4}, {4, 3}, {5, 5}, {6, 6}, {7, 7}, {8, 8}})
        expectLine(from, to);
    for (int32_t port = 1; port <= portCount; ++port)
        EXPECT_EQ(ComClose(port), 1);
}

TEST(PortRaceAlone, EverythingAtOnceOnTheSamePorts) {
    const TempDir directory;
    std::atomic<bool> stop{false};
    std::atomic<bool> stopEcho{false};
    const FastClock fast;
    Lines lines(stopEcho);
    opens = closes = 0;
    expectAllWork(lines);
    const int64_t descriptorsBefore = openDescriptors();

    std::vector<std::thread> workers;
    for (uint32_t i = 0; i < workerCount; ++i)
        workers.emplace_back([&, i] { Worker(lines, directory.file("trace"), i + 1).run(stop); });
    std::this_thread::sleep_for(stormTime);
    stop = true;
    for (std::thread& worker : workers)
        worker.join();
    EXPECT_GT(closes, 5);

    for (int32_t port = 1; port <= portCount; ++port)
        EXPECT_TRUE(eventually([&] { return closeEither(port, false), ComOpenState(port) == 0; })) << port;
    EXPECT_EQ(opens, closes) << "of closes at once one closes";
    EXPECT_TRUE(eventually([] { return ioThreads() == 0; })) << ioThreads() << " I/O threads are left";
    // This thread keeps one more once a close has made it wait for a null modem.
    EXPECT_TRUE(eventually([&] { return openDescriptors() <= descriptorsBefore + 1; }))
        << openDescriptors() << " descriptors, before there were " << descriptorsBefore;
    for (int32_t port = 1; port <= portCount; ++port)
        EXPECT_EQ(tracked::outstanding(port), 0U) << port;
    expectAllWork(lines);
}

} // namespace
