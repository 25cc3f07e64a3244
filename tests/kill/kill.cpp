// Kills a process at random moments of what it writes, and looks at what is left. Where the header promises a whole
// file or the old one, it has to be that; where it promises less, no more than that may be missing.
//
//     brisolt-kill [KILLS]
#include <algorithm>
#include <array>
#include <csignal>
#include <cstdio>
#include <random>
#include <vector>

#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include "brisolt.h"
#include "brisolt_host.h"
#include "support/files.h"

namespace {

using namespace brisolt::test;

std::string folder;
std::string file(const char* name) {
    return folder + "/" + name;
}
void put(const std::string& path, const std::string& content) {
    std::ofstream(path, std::ios::binary) << content;
}

/// Of one kind and size each, so that a mixture shows.
std::string block(char kind, std::size_t size = 300000) {
    return std::string(size, kind);
}
/// Whole lines of one text, but for the last.
bool isLog(const std::string& text, const std::string& line) {
    for (std::size_t at = 0; at < text.size(); at += line.size())
        if (text.compare(at, line.size(), line, 0, std::min(line.size(), text.size() - at)) != 0)
            return false;
    return true;
}
std::string profileOf(int round) {
    return "[line]\nrate=" + std::to_string(round) + "\nnote=" + std::string(3000, 'x') + "\n";
}

/// What is written again and again until the kill, and what the file has to be afterwards.
struct Row {
    const char* name;
    void (*prepare)();
    void (*write)(int round);
    bool (*isRight)();
};

bool noDraftOrWhole(const char* of) {
    return std::all_of(std::filesystem::directory_iterator(folder), {}, [&](const auto& entry) {
        const std::string name = entry.path().filename();
        return !name.starts_with(".brisolt-") || contentsOf(entry.path()) == contentsOf(file(of));
    });
}

const Row rows[] = {
    {"profile", [] { put(file("ini"), profileOf(0)); },
     [](int round) { ComWriteProfInt("line", "rate", round, file("ini").c_str()); },
     [] {
         const std::string text = contentsOf(file("ini"));
         return text == profileOf(ComGetProfInt("line", "rate", -1, file("ini").c_str()));
     }},
    {"copy over a file",
     [] {
         put(file("a"), block('a'));
         put(file("b"), block('b'));
         put(file("to"), block('b'));
     },
     [](int round) { ComCopyFile(file("to").c_str(), file(round % 2 == 0 ? "a" : "b").c_str()); },
     [] {
         const std::string text = contentsOf(file("to"));
         return (text == block('a') || text == block('b')) && contentsOf(file("a")) == block('a') &&
                std::all_of(std::filesystem::directory_iterator(folder), {}, [](const auto& entry) {
                    return !entry.path().filename().string().starts_with(".brisolt-") ||
                           file_size(entry) == 300000;
                });
     }},
    {"copy to a new file", [] { put(file("a"), block('a')); },
     [](int) {
         std::filesystem::remove(file("to"));
         ComCopyFile(file("to").c_str(), file("a").c_str());
     },
     [] {
         const std::string text = contentsOf(file("to"));
         return (text.empty() ? !std::filesystem::exists(file("to")) : text == block('a')) &&
                noDraftOrWhole("a");
     }},
    {"move", [] { put(file("a"), block('a')); },
     [](int round) {
         const char* const names[] = {"a", "b"};
         ComMoveFile(file(names[(round + 1) % 2]).c_str(), file(names[round % 2]).c_str());
     },
     [] {
         const std::string first = contentsOf(file("a")), second = contentsOf(file("b"));
         const bool whole =
             (first.empty() || first == block('a')) && (second.empty() || second == block('a'));
         return whole && !(first.empty() && second.empty());
     }},
    {"append", [] { put(file("a"), block('a', 9000)), put(file("to"), "start"); },
     [](int) { ComAppendFile(file("to").c_str(), file("a").c_str()); },
     [] {
         const std::string text = contentsOf(file("to"));
         return text.starts_with("start") && text.find_first_not_of('a', 5) == text.npos &&
                contentsOf(file("a")) == block('a', 9000);
     }},
    {"log", [] { put(file("log"), ""); }, [](int) { ComWriteDebugFileStringNL(5, "a line of a log"); },
     [] {
         const std::string text = contentsOf(file("log"));
         const std::size_t start = text.find("a line of a log"), end = text.find("a line", start + 1);
         return start == text.npos || end == text.npos ||
                isLog(text.substr(start), text.substr(start, end - start));
     }},
    {"capture", [] { std::filesystem::create_directory(file("captured")); },
     [](int) {
         ComWriteDebugFileOnFail(5, "captured bytes..", 16);
         ComDebugFileOnFail_Save(5);
     },
     [] {
         const std::filesystem::directory_iterator all(file("captured"));
         return std::all_of(begin(all), end(all), [](const auto& entry) {
             const std::string text = contentsOf(entry.path());
             return isLog(text, "captured bytes..");
         });
     }},
    {"buffered writer", [] {}, [](int) { ComBufferFileWrite_Next(5, block('w', 9999).c_str(), 9999); },
     [] { return contentsOf(file("buffered")).find_first_not_of('w') == std::string::npos; }},
};

[[noreturn]] void writeOn(const Row& row, volatile int* begun) {
    ComHostMapDevice(5, "loop:kill");
    ComOpen("COM", 5, 9600, 8, 1, 1, 4096, 4096);
    ComSetDebugFile(5, file("log").c_str(), "kill");
    ComSetDebugFileOnFail(5, file("captured").c_str(), 4000);
    ComBufferFileWrite_Start(5, file("buffered").c_str(), 0); // a file of its own: it is made now
    *begun = 1;
    for (int round = 0;; ++round)
        row.write(round);
}

bool killOnce(const Row& row, std::minstd_rand& random, volatile int* begun) {
    const TempDir place;
    folder = place.path();
    row.prepare();
    *begun = 0;
    const pid_t process = fork();
    if (process == 0)
        writeOn(row, begun);
    while (*begun == 0)
        usleep(100);
    usleep(static_cast<useconds_t>(random() % 5000));
    kill(process, SIGKILL);
    waitpid(process, nullptr, 0);
    if (row.isRight())
        return true;
    std::printf("%s: a kill left:\n", row.name);
    for (const auto& entry : std::filesystem::recursive_directory_iterator(folder))
        if (entry.is_regular_file())
            std::printf("    %s, %ju bytes: %.60s\n", entry.path().c_str(), entry.file_size(),
                        contentsOf(entry.path()).c_str());
    return false;
}

} // namespace

int main(int count, char** words) {
    const int kills = count > 1 ? std::atoi(words[1]) : 400;
    std::setvbuf(stdout, nullptr, _IOLBF, BUFSIZ); // nothing waits for a child to print it again
    std::minstd_rand random(std::random_device{}());
    auto* const begun = static_cast<volatile int*>(
        mmap(nullptr, sizeof(int), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    std::array<int, std::size(rows)> wrong{};
    for (int i = 0; i < kills; ++i)
        wrong[i % std::size(rows)] += killOnce(rows[i % std::size(rows)], random, begun) ? 0 : 1;
    bool right = true;
    for (std::size_t i = 0; i < std::size(rows); ++i) {
        std::printf("%-20s %6zu kills %4d wrong\n", rows[i].name,
                    (static_cast<std::size_t>(kills) + std::size(rows) - 1 - i) / std::size(rows), wrong[i]);
        right = right && wrong[i] == 0;
    }
    return right ? 0 : 1;
}
