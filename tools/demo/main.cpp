// brisolt-demo: carries a real text over a line to a program that knows nothing of this library, and back.
//
// The far end is socat on the other side of a pseudo terminal. It stores what we send in a file, then sends
// that file back. In the end sha256sum and we ourselves look whether all three copies are the same.
#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>
#include <string>
#include <thread>

#include <unistd.h>

#include <brisolt.h>
#include <brisolt_host.h>

#include "process.h"
#include "text.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t textSize = 300000;
constexpr int32_t port = 1;
constexpr int32_t blockSize = 4096;
constexpr auto stallLimit = std::chrono::seconds(10);

/// How far a transfer is. Redraws one line on a terminal; elsewhere only the end is told.
class Progress {
public:
    Progress(const char* what, std::size_t total) : what_(what), total_(total) {}

    void at(std::size_t done) {
        if (done != done_)
            lastStep_ = Clock::now();
        else if (Clock::now() - lastStep_ > stallLimit)
            throw std::runtime_error(std::string(what_) + ": nothing moves any more");
        done_ = done;
        if (isatty(STDOUT_FILENO) != 0 || done == total_)
            print(done == total_ ? '\n' : '\r');
    }

private:
    void print(char end) const {
        const double seconds = std::chrono::duration<double>(Clock::now() - start_).count();
        std::printf("%-8s %7zu of %zu bytes, %.2f s%c", what_, done_, total_, seconds, end);
        std::fflush(stdout);
    }

    const char* what_;
    std::size_t total_;
    std::size_t done_ = 0;
    Clock::time_point start_ = Clock::now();
    Clock::time_point lastStep_ = start_;
};

class Port {
public:
    Port(const std::string& path, const std::string& trace) {
        ComHostMapDevice(port, path.c_str());
        const int32_t result = ComOpen("demo", port, 115200, 8, 1, 1, 65536, 65536);
        if (result != port) {
            std::array<char, 256> why{};
            ComHostGetErrorText(why.data(), why.size());
            throw std::runtime_error(path + ": result " + std::to_string(result) + " " + why.data());
        }
        ComHostSetLossless(port, 1);
        ComSetBackgroundTimeout(port, 0);
        ComSetPortDebugFile(port, trace.c_str());
    }
    Port(const Port&) = delete;
    Port& operator=(const Port&) = delete;
    ~Port() { ComClose(port); }

    void send(std::string bytes) {
        Progress progress("sent", bytes.size());
        const auto size = static_cast<int32_t>(bytes.size());
        // What is in the ring has not left yet; the rest is on its way.
        for (int32_t taken = 0, gone = 0; gone < size;) {
            const int32_t count = ComWrite(port, bytes.data() + taken, std::min(size - taken, blockSize));
            taken += std::max(count, 0);
            gone = taken - ComOutBufStatus(port);
            progress.at(static_cast<std::size_t>(std::max(gone, 0)));
            if (count <= 0)
                ComSleepMS(port, 1);
        }
    }

    std::string receive(std::size_t size) {
        Progress progress("received", size);
        std::string bytes;
        while (bytes.size() < size) {
            std::array<char, blockSize> block{};
            const auto wanted = std::min(size - bytes.size(), block.size());
            const int32_t count = ComReadTimed(port, block.data(), static_cast<int32_t>(wanted), 100);
            bytes.append(block.data(), static_cast<std::size_t>(std::max(count, 0)));
            progress.at(bytes.size());
        }
        return bytes;
    }
};

void waitForFile(Process& maker, const std::string& path) {
    const auto end = Clock::now() + stallLimit;
    while (!std::filesystem::exists(path)) {
        if (!maker.running() || Clock::now() > end)
            throw std::runtime_error("socat made no pseudo terminal");
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

bool demonstrate(const std::string& directory) {
    const Text text = realText(textSize);
    const std::string size = std::to_string(text.bytes.size());
    writeFile(directory + "/original.txt", text.bytes);
    std::printf("A text of %s bytes from %s.\n", size.c_str(), text.source.c_str());

    // Reading on until we are gone keeps the pseudo terminal open while its last bytes are on their way.
    const std::string job = "head -c " + size + " >stored.txt; cat stored.txt; cat >/dev/null";
    Process farEnd({"socat", "PTY,link=line,rawer,wait-slave,pty-interval=0.05", "SYSTEM:" + job}, directory);
    waitForFile(farEnd, directory + "/line");
    std::printf("The far end is socat, on the other side of %s.\n",
                std::filesystem::read_symlink(directory + "/line").c_str());

    std::string returned;
    {
        Port line(directory + "/line", directory + "/trace.txt");
        line.send(text.bytes);
        returned = line.receive(text.bytes.size());
    }
    writeFile(directory + "/returned.txt", returned);
    if (!farEnd.succeeds(5))
        std::puts("socat did not end by itself when the port was closed.");

    std::fflush(stdout);
    Process digests({"sha256sum", "original.txt", "stored.txt", "returned.txt"}, directory);
    const bool digested = digests.succeeds(10);
    return digested && readFile(directory + "/stored.txt") == text.bytes && returned == text.bytes;
}

} // namespace

int main() {
    std::string directory = (std::filesystem::temp_directory_path() / "brisolt-demo-XXXXXX").string();
    try {
        if (mkdtemp(directory.data()) == nullptr)
            throw std::runtime_error(directory + ": cannot be made");
        const bool same = demonstrate(directory);
        std::puts(same ? "All three are the same." : "The copies DIFFER.");
        std::printf("Files and the trace of the port, trace.txt, are in %s\n", directory.c_str());
        return same ? 0 : 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "\nbrisolt-demo: %s\nWhat there is lies in %s\n", error.what(),
                     directory.c_str());
        return 1;
    }
}
