// Kills a process at random moments of what it writes, and looks at what is left. Where the header promises a whole
// file or the old one, it has to be that; where it promises less, no more than that may be missing: what a call has
// confirmed is there. Another process then writes on.
//
//     brisolt-kill [KILLS]
#include <algorithm>
#include <array>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <new>
#include <random>

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "brisolt.h"
#include "brisolt_host.h"
#include "support/files.h"
#include "support/pty.h"

namespace {

using namespace brisolt::test;

/// What the process that is killed tells.
struct Shared {
    std::atomic<int> confirmed = 0;
    std::atomic<std::size_t> logHeader = 0;
    std::atomic<bool> begun = false, refused = false;
};
Shared* told;

std::string folder;
std::string file(const char* name) {
    return folder + "/" + name;
}
void put(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}
/// Of a file that grows: line ends count one byte.
std::string grown(const char* name) {
    std::string bytes = contentsOf(file(name));
    std::erase(bytes, '\r');
    return bytes;
}

/// The bytes of one round, of which every eight tell which.
std::string block(int round, std::size_t size) {
    char number[9];
    std::snprintf(number, sizeof number, "\n%07d", round);
    std::string bytes;
    while (bytes.size() < size)
        bytes += number;
    return bytes;
}
constexpr std::size_t large = 300000, medium = 9000, small = 3000, line = 40;
constexpr std::size_t held = 64000; ///< what the buffered writer keeps to itself

/// The blocks of all rounds from 0 on, the last perhaps in part; those up to `confirmed`, but for `missing` bytes, are
/// there, and no more than one more.
bool goesOnTo(int confirmed, std::string_view bytes, std::size_t size, std::size_t missing = 0) {
    const auto all = static_cast<std::size_t>(confirmed) * block(0, size).size();
    for (int round = 0; !bytes.empty() || all > 0; ++round) {
        const std::string next = block(round, size);
        if (bytes.size() <= next.size())
            return round <= confirmed && next.starts_with(bytes) &&
                   static_cast<std::size_t>(round) * next.size() + bytes.size() + missing >= all;
        if (!bytes.starts_with(next))
            return false;
        bytes.remove_prefix(next.size());
    }
    return true;
}
std::string profileOf(int round) {
    return "[line]\nrate=" + std::to_string(round) + "\nnote=" + std::string(100'000, 'x') + "\n";
}
bool isSource(const char* name, int which = 0) {
    return contentsOf(file(name)) == block(which, large);
}
bool isThere(const char* name) {
    return std::filesystem::exists(file(name));
}
/// Never a part.
bool isNoneOrSource(const char* name) {
    return !isThere(name) || isSource(name);
}

int32_t openPort() {
    ComHostMapDevice(5, "loop:kill");
    ComOpen("COM", 5, 9600, 8, 1, 1, 4096, 4096);
    ComSetDebugFile(5, file("log").c_str(), "kill");
    ComSetDebugFileOnFail(5, file("captured").c_str(), small);
    return ComBufferFileWrite_Start(5, file("buffered").c_str(), 0); // a file of its own: it is made now
}
std::unique_ptr<Pty> device;

/// What is written in each round until the kill, and by another process in round `next`, and what is there then.
struct Row {
    const char* name;
    const char* target; ///< a file at whose end blocks of that size are written
    std::size_t size;
    int drafts; ///< at most, until the next write, where the host has files without a name
    void (*prepare)();
    bool (*write)(int round);
    bool (*isRight)(int confirmed);
    bool (*isWritten)(int round) = nullptr;
};
constexpr int next = 9'000'000;

const Row rows[] = {
    {"profile", nullptr, 0, 1, [] { put(file("ini"), profileOf(0)); },
     [](int round) { return ComWriteProfInt("line", "rate", round + 1, file("ini").c_str()) == 1; },
     [](int confirmed) {
         const std::string text = contentsOf(file("ini"));
         return text == profileOf(confirmed) || text == profileOf(confirmed + 1);
     },
     [](int round) { return contentsOf(file("ini")) == profileOf(round + 1) && !isThere(".ini.new"); }},
    {"copy over a file", nullptr, 0, 1,
     [] {
         put(file("0"), block(0, large));
         put(file("1"), block(1, large));
         put(file("to"), block(1, large));
     },
     [](int round) { return ComCopyFile(file("to").c_str(), file(round % 2 == 0 ? "0" : "1").c_str()) == 1; },
     [](int) { return (isSource("to") || isSource("to", 1)) && isSource("0") && isSource("1", 1); },
     [](int) { return isSource("to"); }},
    {"copy to a new file", nullptr, 0, 0, [] { put(file("0"), block(0, large)); },
     [](int) {
         std::filesystem::remove(file("to"));
         return ComCopyFile(file("to").c_str(), file("0").c_str()) == 1;
     },
     [](int) { return isNoneOrSource("to") && isSource("0"); }, [](int) { return isSource("to"); }},
    {"move", nullptr, 0, 0, [] { put(file("0"), block(0, large)); },
     [](int) { // to where it is not
         const bool there = isThere("0");
         return ComMoveFile(file(there ? "1" : "0").c_str(), file(there ? "0" : "1").c_str()) == 1;
     },
     [](int) { return (isThere("0") || isThere("1")) && isNoneOrSource("0") && isNoneOrSource("1"); },
     [](int) { return isThere("0") != isThere("1") && isNoneOrSource("0") && isNoneOrSource("1"); }},
    {"append", "to", medium, 0, [] { put(file("to"), ""); },
     [](int round) {
         put(file("0"), block(round, medium));
         return ComAppendFile(file("to").c_str(), file("0").c_str()) == 1;
     },
     [](int confirmed) { return goesOnTo(confirmed, grown("to"), medium); }},
    {"log", "log", line, 0, [] { put(file("log"), ""); },
     // It puts a line end before it.
     [](int round) { return ComWriteDebugFileStringNL(5, block(round, line).c_str() + 1) == 1; },
     [](int confirmed) { return goesOnTo(confirmed, grown("log").substr(told->logHeader), line); }},
    {"capture", nullptr, 0, 0, [] { std::filesystem::create_directory(file("captured")); },
     [](int round) {
         const std::string bytes = block(round, small);
         return ComWriteDebugFileOnFail(5, bytes.data(), static_cast<int32_t>(bytes.size())) == 1 &&
                ComDebugFileOnFail_Save(5) == 1;
     },
     [](int confirmed) {
         int whole = 0;
         for (const auto& one : std::filesystem::directory_iterator(file("captured"))) {
             const std::string text = contentsOf(one.path());
             const int round = std::atoi(text.c_str());
             if (round < confirmed && text == block(round, small))
                 ++whole;
             else if (!block(confirmed, small).starts_with(text))
                 return false;
         }
         return whole >= std::min(confirmed, 8); // older ones are deleted
     },
     [](int round) {
         const std::filesystem::directory_iterator all(file("captured"));
         return std::any_of(begin(all), end(all),
                            [&](const auto& one) { return contentsOf(one.path()) == block(round, small); });
     }},
    {"buffered writer", "buffered", medium, 0, [] { put(file("buffered"), ""); },
     [](int round) {
         return ComBufferFileWrite_Next(5, block(round, medium).c_str(), medium) == 1 &&
                (round < next || ComBufferFileWrite_Close(5) == 1);
     },
     [](int confirmed) { return goesOnTo(confirmed, grown("buffered"), medium, held); }},
    {"lock file", nullptr, 0, 0, [] { device = std::make_unique<Pty>(); },
     [](int) {
         const int32_t port = ComHostOpen(device->slavePath().c_str(), 9600, nullptr);
         return port > 0 && ComHostClose(port, 0) == 1;
     },
     [](int) { return true; }}, // that the next process opens it is the proof
};

/// Whether the host has files without a name here: else a draft has one from the start, and may be a part.
bool hasNameless() {
    const int descriptor = open(folder.c_str(), O_TMPFILE | O_RDWR | O_CLOEXEC, 0600);
    return descriptor >= 0 && close(descriptor) == 0;
}
/// -1: one that should be whole is not.
int draftsHere() {
    int count = 0;
    for (const auto& one : std::filesystem::directory_iterator(folder)) {
        const std::string name = one.path().filename();
        count += name.starts_with('.') ? 1 : 0;
        if (name.starts_with(".brisolt-") && hasNameless() && file_size(one) != large)
            return -1;
    }
    return count;
}

[[noreturn]] void writeOn(const Row& row) {
    openPort();
    told->logHeader = grown("log").size();
    told->begun = true;
    while (row.write(told->confirmed))
        ++told->confirmed;
    told->refused = true;
    _exit(1);
}
bool writesNext(const Row& row) {
    const pid_t process = fork();
    if (process == 0)
        _exit(openPort() == 1 && row.write(next) ? 0 : 1);
    int status = -1;
    waitpid(process, &status, 0);
    return status == 0;
}

struct Result {
    int kills = 0, confirmed = 0, drafts = 0, wrong = 0;
};

void killOnce(const Row& row, std::minstd_rand& random, Result& result) {
    const TempDir place;
    folder = place.path();
    row.prepare();
    new (told) Shared;
    const pid_t process = fork();
    if (process == 0)
        writeOn(row);
    while (!told->begun)
        usleep(100);
    usleep(static_cast<useconds_t>(random() % (random() % 4 == 0 ? 40000 : 5000)));
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);

    const int drafts = draftsHere(), most = row.drafts + (hasNameless() ? 0 : 1);
    const std::string before = row.target != nullptr ? grown(row.target) : "";
    const auto isWritten = [&] {
        if (row.isWritten != nullptr)
            return row.isWritten(next);
        const std::string now = row.target != nullptr ? grown(row.target) : "";
        return now.starts_with(before) && (row.size == 0 || now.ends_with(block(next, row.size)));
    };
    const char* wrong = told->refused                   ? "a write was refused"
                        : drafts < 0 || drafts > most   ? "drafts"
                        : !row.isRight(told->confirmed) ? "what is left"
                        : !writesNext(row)              ? "the next write was refused"
                        : !isWritten()                  ? "what the next write left"
                        : draftsHere() > drafts         ? "more drafts"
                                                        : nullptr;
    ++result.kills;
    result.confirmed += told->confirmed;
    result.drafts += std::max(drafts, 0);
    if (wrong == nullptr)
        return;
    ++result.wrong;
    std::printf("%s, %d writes confirmed: %s\n", row.name, told->confirmed.load(), wrong);
    for (const auto& one : std::filesystem::recursive_directory_iterator(folder))
        if (one.is_regular_file())
            std::printf("    %s, %ju bytes: %.60s\n", one.path().c_str(), one.file_size(),
                        contentsOf(one.path()).c_str());
}

} // namespace

int main(int count, char** words) {
    const int kills = count > 1 ? std::atoi(words[1]) : 400;
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // nothing waits for a child to print it again
    std::minstd_rand random(std::random_device{}());
    told = static_cast<Shared*>(
        mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::array<Result, std::size(rows)> results{};
    for (std::size_t i = 0; i < static_cast<std::size_t>(kills); ++i)
        killOnce(rows[i % std::size(rows)], random, results[i % std::size(rows)]);
    bool right = true;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        const Result& sum = results[i];
        const bool idle = sum.kills > 20 && sum.confirmed == 0;
        std::printf("%-20s %6d kills %8d writes confirmed %5d drafts left %4d wrong%s\n", rows[i].name,
                    sum.kills, sum.confirmed, sum.drafts, sum.wrong, idle ? ": nothing was written" : "");
        right = right && sum.wrong == 0 && !idle;
    }
    return right ? 0 : 1;
}
