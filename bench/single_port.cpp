#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <memory>
#include <stdexcept>
#include <thread>

#include <sched.h>

#include "far_end.h"
#include "rows.h"
#include "wakeful.h"

namespace bench {
namespace {

using Job = std::function<Cost(Line&, FarEnd&)>;

/// Two processors of those we may use, the same one twice if there is but one.
struct Cores {
    int ours = 0, other = 0;
};

Cores chooseCores() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    sched_getaffinity(0, sizeof allowed, &allowed);
    Cores cores{-1, -1};
    for (int i = 0; i < CPU_SETSIZE; ++i) {
        if (!CPU_ISSET(i, &allowed))
            continue;
        cores.other = cores.ours < 0 ? i : cores.ours;
        cores.ours = i;
    }
    return cores;
}

void checkPattern(const std::vector<char>& bytes) {
    std::array<char, 65536> pattern;
    for (std::size_t i = 0; i < pattern.size(); ++i)
        pattern[i] = patternAt(i);
    for (std::size_t at = 0; at < bytes.size(); at += pattern.size())
        if (std::memcmp(&bytes[at], pattern.data(), std::min(pattern.size(), bytes.size() - at)) != 0)
            throw std::runtime_error("bytes behind " + std::to_string(at) + " arrived wrong");
}

/// The median trip on the clock, the mean in processor time.
Cost roundTrips(Line& line, FarEnd& farEnd, std::size_t count) {
    farEnd.echo(count);
    std::vector<double> trips(count);
    const Stopwatch all;
    for (double& trip : trips) {
        const auto start = std::chrono::steady_clock::now();
        line.roundTrip();
        trip = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    }
    const Cost cost = all.read();
    farEnd.finish();
    return {median(trips), cost.cpu / static_cast<double>(count)};
}

Cost receive(Line& line, FarEnd& farEnd, std::size_t total, std::size_t call) {
    std::vector<char> bytes(total);
    const Stopwatch watch;
    farEnd.source(total);
    line.receive(bytes.data(), total, call);
    const Cost cost = watch.read();
    farEnd.finish();
    checkPattern(bytes);
    return cost;
}

Cost send(Line& line, FarEnd& farEnd, std::size_t total, std::size_t call) {
    std::vector<char> bytes(total, 'x');
    const Stopwatch watch;
    farEnd.sink(total);
    line.send(bytes.data(), total, call);
    farEnd.finish();
    return watch.read();
}

using Exchange = void (*)(Line& line, char* to, char* from, std::size_t total, std::size_t call);

void asTheSideDoes(Line& line, char* to, char* from, std::size_t total, std::size_t call) {
    line.exchange(to, from, total, call);
}

void byThreads(Line& line, char* to, char* from, std::size_t total, std::size_t call) {
    std::thread writer([&] { line.send(from, total, call); });
    line.receive(to, total, call);
    writer.join();
}

Cost exchange(Line& line, FarEnd& farEnd, std::size_t total, std::size_t call, Exchange how) {
    std::vector<char> in(total), out(total, 'x');
    const Stopwatch watch;
    farEnd.exchange(total);
    how(line, in.data(), out.data(), total, call);
    farEnd.finish();
    const Cost cost = watch.read();
    checkPattern(in);
    return cost;
}

/// What a pseudo terminal holds at once is soon read, so it is filled several times.
Cost readSingly(Line& line, FarEnd& farEnd, int times) {
    std::vector<char> bytes(2048);
    Cost sum;
    for (int i = 0; i < times; ++i) {
        farEnd.source(bytes.size());
        farEnd.finish();
        for (int wait = 0; line.waiting() < bytes.size(); ++wait) {
            if (wait > 5000)
                throw std::runtime_error("bytes did not come");
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        const Stopwatch watch;
        line.readSingly(bytes.data(), bytes.size());
        const Cost cost = watch.read();
        checkPattern(bytes);
        sum = {sum.wall + cost.wall, sum.cpu + cost.cpu};
    }
    return sum;
}

std::vector<Cost> compare(const std::vector<const Side*>& sides, const Options& options, const Job& job,
                          Reach reach) {
    const Cores cores = chooseCores();
    const Wakeful wakeful;
    pin(cores.ours);
    FarEnd farEnd(1, options.twoCores ? cores.other : cores.ours, reach);
    std::vector<Cost> ratios = pair(options.rounds, sides, [&](const Side& side) {
        const std::unique_ptr<Line> line = side.open(farEnd.paths().front());
        roundTrips(*line, farEnd, 50);
        return job(*line, farEnd);
    });
    pin(-1);
    return ratios;
}

} // namespace

std::vector<Row> singlePortRows(const Options& options) {
    std::vector<Row> rows;
    const auto add = [&](const std::string& name, const std::string& title, const Job& job,
                         Reach reach = Reach::terminal) {
        rows.push_back({name, title,
                        [options, job, reach](const std::vector<const Side*>& sides) {
                            return compare(sides, options, job, reach);
                        },
                        reach == Reach::terminal ? Row::everybody : Row::overNetwork});
    };
    const std::size_t total = options.quick ? 1048576 : 4194304;
    const std::size_t trips = options.quick ? 500 : 2000;
    const int fillings = options.quick ? 5 : 20;

    add("roundtrip", "one byte there and back, median",
        [=](Line& line, FarEnd& farEnd) { return roundTrips(line, farEnd, trips); });
    // In the place of the same calls from C; the others have no part in it.
    rows.push_back({"cpp-roundtrip", "the same, by brisolt.hpp", [=](const std::vector<const Side*>& sides) {
                        const auto job = [=](Line& line, FarEnd& farEnd) {
                            return roundTrips(line, farEnd, trips);
                        };
                        return compare({sides.front(), &cppSide}, options, job, Reach::terminal);
                    }});
    for (const std::size_t kilobytes : {1U, 4U, 64U}) {
        const std::string size = std::to_string(kilobytes);
        add("receive-" + size + "k", "device to program, calls of " + size + " KB",
            [=](Line& line, FarEnd& farEnd) { return receive(line, farEnd, total, kilobytes * 1024); });
    }
    for (const std::size_t kilobytes : {1U, 4U, 64U}) {
        const std::string size = std::to_string(kilobytes);
        add("send-" + size + "k", "program to device, calls of " + size + " KB",
            [=](Line& line, FarEnd& farEnd) { return send(line, farEnd, total, kilobytes * 1024); });
    }
    // A program in one loop is woken once for both; a thread each way is how calls that wait are used.
    add("exchange", "both directions at once, calls of 4 KB",
        [=](Line& line, FarEnd& farEnd) { return exchange(line, farEnd, total, 4096, asTheSideDoes); });
    add("threads", "the same, a thread each way",
        [=](Line& line, FarEnd& farEnd) { return exchange(line, farEnd, total, 4096, byThreads); });
    add("getc", "bytes that wait, read one by one",
        [=](Line& line, FarEnd& farEnd) { return readSingly(line, farEnd, fillings); });

    const std::size_t much = options.quick ? 32U << 20 : 256U << 20;
    const auto trip = [=](Line& line, FarEnd& farEnd) { return roundTrips(line, farEnd, trips); };
    add("tcp-roundtrip", "tcp: one byte there and back", trip, Reach::tcp);
    add("remote-roundtrip", "rfc2217: one byte there and back, to tcp", trip, Reach::remotePort);
    add(
        "tcp-receive", "tcp: to program, calls of 64 KB",
        [=](Line& line, FarEnd& farEnd) { return receive(line, farEnd, much, 65536); }, Reach::tcp);
    add(
        "tcp-send", "tcp: from program, calls of 64 KB",
        [=](Line& line, FarEnd& farEnd) { return send(line, farEnd, much, 65536); }, Reach::tcp);
    return rows;
}

} // namespace bench
