// What it costs to wait for one of twenty strings while bytes come one by one: the stimulus call beside a
// program that reads the same bytes from the same port and searches all of them anew after each.
#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <brisolt.h>
#include <brisolt_host.h>

#include "rows.h"

namespace bench {
namespace {

constexpr int32_t port = 30, farPort = 31;
constexpr int32_t stringCount = 20;
constexpr const char* device = "null-modem:matching";

/// The two ends of a cable inside the process, with bytes waiting in the ring of one.
class Waiting {
public:
    explicit Waiting(std::string bytes) {
        for (const int32_t number : {port, farPort}) {
            ComHostMapDevice(number, device);
            if (ComOpen("bench", number, 115200, 8, 1, 1, 16384, 16384) != number)
                throw std::runtime_error("a port on a null modem does not open");
            ComSetBackgroundTimeout(number, 0);
        }
        // A null modem without a handshake loses what its other end has no room for.
        constexpr std::size_t piece = 2048;
        for (std::size_t sent = 0; sent < bytes.size(); sent += piece) {
            const std::size_t count = std::min(piece, bytes.size() - sent);
            ComWrite(farPort, bytes.data() + sent, static_cast<int32_t>(count));
            await(static_cast<int32_t>(sent + count));
        }
    }
    Waiting(const Waiting&) = delete;
    Waiting& operator=(const Waiting&) = delete;
    ~Waiting() {
        ComClose(farPort);
        ComClose(port);
    }

private:
    static void await(int32_t count) {
        for (int wait = 0; ComStatus(port) < count; ++wait) {
            if (wait > 5000)
                throw std::runtime_error("bytes did not come");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
    }
};

/// Strings whose beginnings come all the time, their ends never.
std::vector<std::string> strings() {
    std::vector<std::string> all;
    for (int32_t i = 0; i < stringCount; ++i)
        all.push_back("line " + std::to_string(i) + " is up");
    return all;
}

std::string received(std::size_t size) {
    std::string text;
    for (std::size_t i = 0; text.size() < size; ++i)
        text += "line " + std::to_string(i % stringCount) + " is down\r\n";
    text.resize(size);
    return text;
}

Cost plain(std::size_t size) {
    const Waiting line(received(size));
    const std::vector<std::string> awaited = strings();
    std::string text;
    const Stopwatch watch;
    for (char byte; text.size() < size && ComRead(port, &byte, 1) == 1;) {
        text += byte;
        for (const std::string& string : awaited)
            if (std::strstr(text.c_str(), string.c_str()) != nullptr)
                throw std::runtime_error("found what was not sent");
    }
    return watch.read();
}

Cost ours(std::size_t size) {
    const Waiting line(received(size));
    const std::vector<std::string> awaited = strings();
    std::vector<const char*> stimuli;
    for (const std::string& string : awaited)
        stimuli.push_back(string.c_str());
    const std::vector<const char*> answers(stimuli.size(), "");
    const Stopwatch watch;
    if (ComStimulusArray(port, stimuli.data(), answers.data(), stringCount, static_cast<int32_t>(size), 60) !=
        -3)
        throw std::runtime_error("the stimulus call did not take all bytes");
    return watch.read();
}

std::vector<Cost> compare(int rounds, std::size_t size) {
    std::vector<double> wall, cpu;
    Cost first;
    for (int round = 0; round < rounds; ++round) {
        first = plain(size);
        const Cost cost = ours(size);
        wall.push_back(cost.wall / first.wall);
        cpu.push_back(cost.cpu / first.cpu);
    }
    return {first, {median(wall), median(cpu)}};
}

} // namespace

std::vector<Row> matchingRows(const Options& options) {
    std::vector<Row> rows;
    for (const std::size_t size : {1000U, 3000U, 9000U})
        rows.push_back(
            {"match-" + std::to_string(size),
             std::to_string(size) + " bytes for 20 strings, to searching anew",
             [options, size](const std::vector<const Side*>&) { return compare(options.rounds, size); }});
    return rows;
}

} // namespace bench
