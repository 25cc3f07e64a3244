#include "socat_line.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <thread>

#include <brisolt_host.h>

#include "port.h"
#include "process.h"
#include "progress.h"
#include "text.h"

namespace {

constexpr int32_t blockSize = 4096;
constexpr int32_t patience = 10000; // milliseconds

void send(int32_t port, const std::string& bytes) {
    Progress progress("sent to socat", bytes.size());
    const auto size = static_cast<int32_t>(bytes.size());
    for (int32_t sent = 0; sent < size;) {
        const int32_t count =
            ComHostWrite(port, bytes.data() + sent, std::min(size - sent, blockSize), patience);
        need(count > 0, "ComHostWrite: " + std::to_string(count));
        sent += count;
        progress.at(static_cast<std::size_t>(sent));
    }
}

std::string receive(int32_t port, std::size_t size) {
    Progress progress("received from socat", size);
    std::string bytes;
    while (bytes.size() < size) {
        std::array<char, blockSize> block{};
        const auto wanted = std::min(size - bytes.size(), block.size());
        const int32_t count = ComHostRead(port, block.data(), static_cast<int32_t>(wanted), patience);
        need(count > 0, "ComHostRead: " + std::to_string(count));
        bytes.append(block.data(), static_cast<std::size_t>(count));
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
    const std::string bytes = readFile(directory + "/" + text);

    // Reading on until we are gone keeps the pseudo terminal open while its last bytes are on their way.
    const std::string job = "head -c " + std::to_string(bytes.size()) +
                            " >stored-by-socat.txt; cat stored-by-socat.txt; cat >/dev/null";
    Process farEnd({"socat", "PTY,link=line,rawer,wait-slave,pty-interval=0.05", "SYSTEM:" + job}, directory);
    waitForFile(farEnd, directory + "/line");
    std::printf("\nA line to another program: socat, on the other side of %s\n",
                std::filesystem::read_symlink(directory + "/line").c_str());
    {
        const Port port(directory + "/line", directory + "/trace-socat.txt");
        send(port, bytes);
        writeFile(directory + "/back-from-socat.txt", receive(port, bytes.size()));
    }
    if (!farEnd.succeeds(5))
        std::puts("  socat did not end by itself when the port was closed.");
    return {"stored-by-socat.txt", "back-from-socat.txt"};
}
