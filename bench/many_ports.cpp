#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stdexcept>
#include <thread>

#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include "far_end.h"
#include "rows.h"

namespace bench {
namespace {

constexpr std::size_t echoLines = 64;
constexpr std::size_t memoryLines = 64;

/// The number behind the first line that begins with `key`.
long fieldOf(const std::string& path, const std::string& key) {
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);)
        if (line.rfind(key, 0) == 0)
            return std::strtol(line.c_str() + key.size(), nullptr, 10);
    return 0;
}

long switchesOfAllThreads() {
    long sum = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task"))
        sum += fieldOf(task.path() / "status", "voluntary_ctxt_switches:");
    return sum;
}

long residentKilobytes() {
    return fieldOf("/proc/self/smaps_rollup", "Rss:");
}

/// What was set in motion by opening has come to rest.
void settle() {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
}

/// A process of its own for each figure: nothing that ran before is counted with it.
double runChild(const std::string& what, const Side& side, std::size_t lines) {
    int ends[2];
    if (pipe(ends) != 0)
        throw std::runtime_error("pipe");
    const pid_t child = fork();
    if (child == 0) {
        dup2(ends[1], STDOUT_FILENO);
        const std::string count = std::to_string(lines);
        execl("/proc/self/exe", "brisolt-bench", "--child", what.c_str(), side.name, count.c_str(), nullptr);
        _exit(127);
    }
    close(ends[1]);
    FILE* output = fdopen(ends[0], "r");
    double value = 0;
    const bool got = std::fscanf(output, "%lf", &value) == 1;
    std::fclose(output);
    waitpid(child, nullptr, 0);
    if (!got)
        throw std::runtime_error(what + " of " + side.name + " could not be measured");
    return value;
}

std::vector<Cost> compareEchoes(const std::vector<const Side*>& sides, const Options& options, Reach reach) {
    constexpr std::size_t size = 16;
    const int times = options.quick ? 20 : 100;
    FarEnd farEnd(echoLines, -1, reach);
    return pair(options.rounds, sides, [&](const Side& side) {
        const std::unique_ptr<Lines> lines = side.openMany(farEnd.paths());
        // Once to warm up.
        farEnd.echo(echoLines * size);
        lines->roundTrips(1, size);
        farEnd.finish();
        settle(); // the load of threads just started moves everybody about on the processors
        const Stopwatch watch;
        farEnd.echo(echoLines * size * static_cast<std::size_t>(times));
        lines->roundTrips(times, size);
        const Cost cost = watch.read();
        farEnd.finish();
        return cost;
    });
}

std::vector<Cost> compareInChildren(const std::string& what, std::size_t lines,
                                    const std::vector<const Side*>& sides) {
    return pair(1, sides, [&](const Side& side) { return Cost{runChild(what, side, lines), 1}; });
}

} // namespace

int measureInChild(const std::string& what, const Side& side, std::size_t lines) {
    // The masters of the lines are in this process, too.
    rlimit limit{};
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_NOFILE, &limit);

    std::optional<FarEnd> farEnd; // of a network, where an open wants to be answered
    if (what == "idle-tcp" || what == "idle-remote")
        farEnd.emplace(lines, -1, what == "idle-tcp" ? Reach::tcp : Reach::remotePort);
    std::vector<std::unique_ptr<Lines>> opened;
    opened.push_back(side.openMany(farEnd ? farEnd->paths() : silentLines(what == "memory" ? 1 : lines)));
    settle();
    if (what == "memory") {
        const long before = residentKilobytes();
        opened.push_back(side.openMany(silentLines(lines)));
        settle();
        std::printf("%f\n", static_cast<double>(residentKilobytes() - before) / static_cast<double>(lines));
        std::fflush(stdout);
        _exit(0);
    }
    const long before = switchesOfAllThreads();
    opened.front()->idle(2000);
    std::printf("%ld\n", switchesOfAllThreads() - before);
    std::fflush(stdout);
    // Nobody waits for so many ports to be closed in good order.
    _exit(0);
}

std::vector<Row> manyPortRows(const Options& options) {
    using Sides = std::vector<const Side*>;
    std::vector<Row> rows;
    rows.push_back({"echo-64", "64 ports echo, one thread serves them",
                    [options](const Sides& sides) { return compareEchoes(sides, options, Reach::terminal); },
                    Row::manyLines});
    rows.push_back({"tcp-echo-64", "tcp: 64 ports echo, to a bare epoll",
                    [options](const Sides& sides) { return compareEchoes(sides, options, Reach::tcp); },
                    Row::manyLinesOverNetwork});
    for (const std::size_t lines : {1U, 16U, 64U, 256U}) {
        const std::string count = std::to_string(lines);
        rows.push_back({"idle-" + count,
                        count + (lines == 1 ? " idle port" : " idle ports") + ", context switches",
                        [lines](const Sides& sides) { return compareInChildren("idle", lines, sides); },
                        Row::manyLines, false});
    }
    for (const std::string reach : {"tcp", "remote"})
        rows.push_back(
            {reach + "-idle-64",
             (reach == "tcp" ? "tcp" : "rfc2217") + std::string(": 64 idle ports, context switches"),
             [reach](const Sides& sides) { return compareInChildren("idle-" + reach, echoLines, sides); },
             Row::manyLinesOverNetwork, false});
    rows.push_back({"memory", "memory of one more port, 4 KB rings",
                    [](const Sides& sides) { return compareInChildren("memory", memoryLines, sides); },
                    Row::manyLines, false});
    return rows;
}

} // namespace bench
