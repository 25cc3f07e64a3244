#include "socat_line.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include <brisolt.h>

#include "port.h"
#include "process.h"
#include "progress.h"
#include "text.h"

namespace {

constexpr int32_t blockSize = 4096;

void send(int32_t port, std::string bytes) {
    Progress progress("sent to socat", bytes.size());
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

std::string receive(int32_t port, std::size_t size) {
    Progress progress("received from socat", size);
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

void waitForFile(Process& maker, const std::string& path) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (!std::filesystem::exists(path)) {
        need(maker.running() && std::chrono::steady_clock::now() < end, "socat made no pseudo terminal");
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
}

} // namespace

std::vector<std::string> carryOverSocat(const std::string& directory, const std::string& text) {
    constexpr int32_t number = 1;
    const std::string bytes = readFile(directory + "/" + text);

    // Reading on until we are gone keeps the pseudo terminal open while its last bytes are on their way.
    const std::string job = "head -c " + std::to_string(bytes.size()) +
                            " >stored-by-socat.txt; cat stored-by-socat.txt; cat >/dev/null";
    Process farEnd({"socat", "PTY,link=line,rawer,wait-slave,pty-interval=0.05", "SYSTEM:" + job}, directory);
    waitForFile(farEnd, directory + "/line");
    std::printf("\nA line to another program: socat, on the other side of %s\n",
                std::filesystem::read_symlink(directory + "/line").c_str());
    {
        const Port port(number, directory + "/line", directory + "/trace-socat.txt");
        send(port, bytes);
        writeFile(directory + "/back-from-socat.txt", receive(port, bytes.size()));
    }
    if (!farEnd.succeeds(5))
        std::puts("  socat did not end by itself when the port was closed.");
    return {"stored-by-socat.txt", "back-from-socat.txt"};
}
