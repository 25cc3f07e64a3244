// Text files that are sent and received step by step, beside a file that is read or written block by block
// with the bare calls.
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <sched.h>

#include <brisolt.h>
#include <brisolt_host.h>

#include "far_end.h"
#include "rows.h"
#include "wakeful.h"

namespace bench {
namespace {

constexpr int32_t port = 1; // that of the line which our side opens
constexpr int32_t chunk = 9999;
constexpr int32_t noEnd = 256; // the bytes that come have all values

struct ScratchFile {
    ScratchFile() {
        std::string name = (std::filesystem::temp_directory_path() / "brisolt-bench-XXXXXX").string();
        const int descriptor = mkstemp(name.data());
        if (descriptor < 0)
            throw std::runtime_error("no file to measure with");
        std::fclose(fdopen(descriptor, "w"));
        path = name;
    }
    ScratchFile(const ScratchFile&) = delete;
    ScratchFile& operator=(const ScratchFile&) = delete;
    ~ScratchFile() { std::filesystem::remove(path); }
    std::string path;
};

void check(bool good, const char* what) {
    if (!good)
        throw std::runtime_error(what);
}

using Job = void (*)(Line& line, const std::string& file, std::size_t total);

void sendBlocks(Line& line, const std::string& file, std::size_t total) {
    std::ifstream in(file, std::ios::binary);
    std::vector<char> block(chunk);
    for (std::size_t sent = 0; sent < total;) {
        in.read(block.data(), chunk);
        const auto got = static_cast<std::size_t>(in.gcount());
        check(got > 0, "raw: the file is too short");
        line.send(block.data(), got, got);
        sent += got;
    }
    char endMarker = 26;
    line.send(&endMarker, 1, 1);
}

void sendSteps(Line&, const std::string& file, std::size_t) {
    int32_t result = CInitSndAPkt(port, file.c_str(), chunk) == 1 ? 5 : -1;
    while (result == 5)
        result = CSendAPkt(port);
    check(result == 1, "brisolt: the file was not sent");
    check(ComHostDrain(port, 10000) == 1, "brisolt: the file did not leave");
}

void receiveBlocks(Line& line, const std::string& file, std::size_t total) {
    std::ofstream out(file, std::ios::binary);
    std::vector<char> block(chunk);
    for (std::size_t left = total; left > 0;) {
        const std::size_t count = std::min(left, block.size());
        line.receive(block.data(), count, count);
        out.write(block.data(), static_cast<std::streamsize>(count));
        left -= count;
    }
}

void receiveSteps(Line&, const std::string& file, std::size_t total) {
    check(CInitRcvAPkt(port, file.c_str(), 27, noEnd, 25) == 1, "brisolt: the file was not created");
    while (static_cast<std::size_t>(ComGetBytes(port)) < total) {
        check(CRecvAPkt(port) == 5, "brisolt: the file was not received");
        if (ComStatus(port) == 0)
            ComSleepMS(port, 1);
    }
}

Cost measure(const Side& side, bool sending, std::size_t total, bool twoCores, Job job) {
    const Wakeful wakeful;
    const int core = sched_getcpu();
    pin(core);
    FarEnd farEnd(1, twoCores ? -1 : core);
    const ScratchFile file;
    if (sending)
        std::ofstream(file.path, std::ios::binary) << std::string(total, 'x');
    const std::unique_ptr<Line> line = side.open(farEnd.paths().front());
    const Stopwatch watch;
    if (sending)
        farEnd.sink(total + 1);
    else
        farEnd.source(total);
    job(*line, file.path, total);
    farEnd.finish();
    const Cost cost = watch.read();
    pin(-1);
    check(std::filesystem::file_size(file.path) == total || &side != &brisoltSide, "a wrong number of bytes");
    return cost;
}

} // namespace

std::vector<Row> transferRows(const Options& options) {
    const std::size_t total = options.quick ? 1048576 : 4194304;
    const auto row = [&](const std::string& name, const std::string& title, bool sending, Job raw, Job ours) {
        return Row{name, title, [=](const std::vector<const Side*>&) {
                       return pair(options.rounds, {&rawSide, &brisoltSide}, [=](const Side& side) {
                           return measure(side, sending, total, options.twoCores,
                                          &side == &rawSide ? raw : ours);
                       });
                   }};
    };
    return {row("text-send", "text file, steps of 9999 bytes", true, sendBlocks, sendSteps),
            row("text-receive", "text file, received in steps", false, receiveBlocks, receiveSteps)};
}

} // namespace bench
