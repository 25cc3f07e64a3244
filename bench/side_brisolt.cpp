// The library by its rings: ComWrite, ComReadTimed, and many ports by messages.
#include <algorithm>
#include <array>
#include <stdexcept>
#include <thread>

#include <brisolt.h>
#include <brisolt_host.h>

#include "side.h"

namespace bench {
namespace {

constexpr int32_t hundredths = 500; // of a second that a read waits for its bytes
constexpr uint32_t largeRing = 262144;

void openPort(int32_t port, const std::string& path, uint32_t ringSize) {
    ComHostMapDevice(port, path.c_str());
    const int32_t result = ComOpen("bench", port, 115200, 8, 1, 1, ringSize, ringSize);
    if (result != port) {
        std::array<char, 256> why{};
        ComHostGetErrorText(why.data(), why.size());
        throw std::runtime_error(path + ": result " + std::to_string(result) + " " + why.data());
    }
    ComHostSetLossless(port, 1);
    ComSetBackgroundTimeout(port, 0);
}

/// Ends a loop in which nothing has moved for some 10 s of waits of a millisecond.
void countWait(int& waits) {
    if (++waits > 10000)
        throw std::runtime_error("brisolt: nothing moves any more");
}

class BrisoltLine : public Line {
public:
    explicit BrisoltLine(const std::string& path) { openPort(port, path, largeRing); }
    ~BrisoltLine() override { ComClose(port); }

    void roundTrip() override {
        char byte = 'x';
        if (ComWrite(port, &byte, 1) != 1 || ComReadTimed(port, &byte, 1, hundredths) != 1)
            throw std::runtime_error("brisolt: the byte did not come back");
    }

    void receive(char* to, std::size_t total, std::size_t call) override {
        for (std::size_t got = 0; got < total;) {
            const auto wanted = static_cast<int32_t>(std::min(call, total - got));
            receiveExactly(to + got, wanted);
            got += static_cast<std::size_t>(wanted);
        }
    }

    void send(char* from, std::size_t total, std::size_t call) override {
        int waits = 0;
        for (std::size_t sent = 0; sent < total;) {
            if (write(from, sent, total, call) == 0) {
                countWait(waits);
                ComSleepMS(port, 1);
            }
        }
    }

    /// The ring is kept full and empties itself while this thread waits for what comes.
    void exchange(char* to, char* from, std::size_t total, std::size_t call) override {
        int waits = 0;
        for (std::size_t got = 0, sent = 0; got < total || sent < total;) {
            const int32_t taken = sent < total ? write(from, sent, total, call) : 0;
            if (got < total) {
                got += readSome(to + got, std::min(call, total - got));
            } else if (taken == 0) {
                countWait(waits);
                ComSleepMS(port, 1);
            }
        }
    }

    std::size_t waiting() override { return static_cast<std::size_t>(ComStatus(port)); }

    void readSingly(char* to, std::size_t count) override {
        for (std::size_t i = 0; i < count; ++i)
            to[i] = static_cast<char>(ComGetc(port));
    }

private:
    static constexpr int32_t port = 1;

    /// Waits for a byte and takes what else is there.
    static std::size_t readSome(char* to, std::size_t most) {
        receiveExactly(to, 1);
        const int32_t more = ComRead(port, to + 1, static_cast<int32_t>(most) - 1);
        return 1 + static_cast<std::size_t>(more);
    }

    static void receiveExactly(char* to, int32_t count) {
        if (ComReadTimed(port, to, count, hundredths) != count)
            throw std::runtime_error("brisolt: bytes did not come");
    }

    static int32_t write(char* from, std::size_t& sent, std::size_t total, std::size_t call) {
        const int32_t taken = ComWrite(port, from + sent, static_cast<int32_t>(std::min(call, total - sent)));
        if (taken < 0)
            throw std::runtime_error("brisolt: the port is closed");
        sent += static_cast<std::size_t>(taken);
        return taken;
    }
};

class BrisoltLines : public Lines {
public:
    explicit BrisoltLines(const std::vector<std::string>& paths) {
        for (const std::string& path : paths) {
            const int32_t port = freePort();
            openPort(port, path, smallBuffer);
            ComSetNotifyThreadMessageAnyChar(port, ComHostThreadId());
            ports_.push_back(port);
        }
    }

    ~BrisoltLines() override {
        std::vector<std::thread> closers;
        for (const int32_t port : ports_)
            closers.emplace_back([port] { ComClose(port); });
        for (std::thread& closer : closers)
            closer.join();
    }

    void roundTrips(int times, std::size_t size) override {
        std::array<char, largestMessage> message{};
        const auto count = static_cast<int32_t>(size);
        std::array<int, 257> left{};
        for (const int32_t port : ports_) {
            left[static_cast<std::size_t>(port)] = times;
            ComWrite(port, message.data(), count);
        }
        for (std::size_t open = ports_.size(); open > 0;) {
            ComHostMessage arrived{};
            if (ComHostGetMessage(&arrived, 10000) != 1)
                throw std::runtime_error("brisolt: no notification came");
            const auto port = static_cast<int32_t>(arrived.second);
            int& trips = left.at(static_cast<std::size_t>(port));
            if (trips == 0 || ComStatus(port) < count)
                continue;
            ComRead(port, message.data(), count);
            if (--trips == 0)
                --open;
            else
                ComWrite(port, message.data(), count);
        }
    }

    void idle(int milliseconds) override {
        ComHostMessage message{};
        ComHostGetMessage(&message, milliseconds);
    }

private:
    static int32_t freePort() {
        int32_t port = 1;
        while (ComOpenState(port) == 1)
            ++port;
        return port;
    }

    std::vector<int32_t> ports_;
};

} // namespace

const Side brisoltSide{
    "its rings",
    [](const std::string& path) -> std::unique_ptr<Line> { return std::make_unique<BrisoltLine>(path); },
    [](const std::vector<std::string>& paths) -> std::unique_ptr<Lines> {
        return std::make_unique<BrisoltLines>(paths);
    }};

} // namespace bench
