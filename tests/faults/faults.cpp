// Fails every call of the host that the scenarios make: the first, the second, and so on until a run meets none;
// that call alone, it and all that follow, moving half of what was asked for, or interrupted. Each in a process of
// its own, which has to keep the promises of its scenario, leave nothing behind, and do all of it right afterwards.
//
//     brisolt-faults [--seconds N] [--scenario NAME] [--mode NAME] [--from N] [--point N] [--jobs N]
//
// --seconds thins the points evenly, so that it takes about so long. --point tries that one and tells where it is.
// --jobs tries so many at once: most of a run is waiting.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <deque>
#include <filesystem>
#include <fstream>
#include <map>
#include <new>
#include <random>
#include <string>

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include "brisolt_host.h"
#include "scenarios.h"
#include "seam.h"
#include "support/timing.h"

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/lsan_interface.h>
static bool blocksLeak() {
    return __lsan_do_recoverable_leak_check() != 0;
}
#else
static bool blocksLeak() {
    return false; // the build with the address sanitizer looks
}
#endif

using namespace brisolt;
using namespace brisolt::faults;
using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

namespace {

constexpr auto limitOfARun = std::chrono::seconds(40);
constexpr int leastOfSlow = 5;

enum class Stage { run, again, cleanup, done };
constexpr const char* stageNames[] = {"in the run", "in the run after it", "at the end", ""};

/// What a process has beside what it began with.
struct Left {
    long descriptors = 0, threads = 0;
};

/// What a run tells, in memory that outlives it.
struct Report {
    Meter meter;
    std::atomic<Stage> stage{Stage::run};
    bool whole = false;
    Left left;
    char refused[100] = "", wrong[400] = "";
};

struct Options {
    double seconds = 0;
    std::string scenario, mode;
    long from = 1, point = 0;
    std::size_t jobs = 1;
};

long entriesOf(const char* folder) {
    std::error_code gone;
    return std::distance(std::filesystem::directory_iterator(folder, gone),
                         std::filesystem::directory_iterator());
}

std::string lockOfOurs() {
    for (const auto& entry : std::filesystem::directory_iterator("/run/lock")) {
        int32_t process = 0;
        if (entry.path().filename().string().starts_with("LCK..") && std::ifstream(entry.path()) >> process &&
            process == getpid())
            return entry.path();
    }
    return {};
}

uint64_t signalMask() {
    sigset_t mask;
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    uint64_t bits = 0;
    for (int signal = 1; signal < 64; ++signal)
        bits |= static_cast<uint64_t>(sigismember(&mask, signal) == 1) << signal;
    return bits;
}

/// What is left of the runs when all is closed: no more than one without a failure leaves.
void lookForRemains(Scene& scene, const Left& most, Report& report, uint64_t mask, bool hostWasDown) {
    const auto settles = [](const char* folder, long count) {
        test::eventually([&] { return entriesOf(folder) <= count; }, std::chrono::seconds(10));
        return entriesOf(folder);
    };
    report.left.threads = settles("/proc/self/task", most.threads);
    report.left.descriptors = settles("/proc/self/fd", most.descriptors);
    scene.holds(report.left.threads <= most.threads, "threads are left");
    if (report.left.descriptors > most.descriptors) {
        std::string open;
        std::error_code gone;
        for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
            open += " " + std::filesystem::read_symlink(entry.path(), gone).string();
        scene.holds(false, "descriptors are left:" + open);
    }
    scene.holds(signalMask() == mask, "the signal mask is another");
    const std::string lock = lockOfOurs();
    const bool couldRemove = !hostWasDown && std::strcmp(report.meter.call, "unlink") != 0;
    scene.holds(lock.empty() || !couldRemove, "a lock file is left: " + lock);
    std::filesystem::remove(lock);
    scene.holds(!blocksLeak(), "blocks of memory leak");
}

/// What a thread keeps for its waits is there from now on, whether it had to wait or not.
void haveQueue() {
    ComHostMessage none{};
    ComHostGetMessage(&none, 1);
}

void countLeft(Report& report) {
    haveQueue();
    std::this_thread::sleep_for(std::chrono::milliseconds(20)); // threads may be on their way out
    report.left.threads = entriesOf("/proc/self/task");
    report.left.descriptors = entriesOf("/proc/self/fd");
}

/// A thread of before may be on its way out of a device that can be open once.
bool isHeld(const std::string& refused) {
    const auto says = [&](const char* text) { return refused.find(text) != std::string::npos; };
    return says("is open already") || says("both ends are open") || says("locked by");
}

[[noreturn]] void runScenario(const Scenario& scenario, Mode mode, long point, bool trace,
                              const Report& before, Report& report) {
    const Spared here;
    const uint64_t mask = signalMask();
    {
        const test::FastClock fast(scenario.haste);
        Scene scene(mode == Mode::on && point > 0);
        arm(report.meter, mode, point, trace);
        report.whole = scenario.run(scene);
        scene.refused().copy(report.refused, sizeof report.refused - 1);
        disarm();
        scene.holds(report.whole || !scene.refused().empty(), "it was not done, and no call told a failure");
        if (point == 0)
            countLeft(report);
        const Left most = point == 0 ? report.left : before.left;
        report.stage = Stage::again;
        scene.again();
        bool works = false;
        test::eventually([&] { return (works = scenario.run(scene)) || !isHeld(scene.refused()); },
                         std::chrono::seconds(10));
        scene.holds(works, "it does not work afterwards: " + scene.refused());
        report.stage = Stage::cleanup;
        haveQueue();
        lookForRemains(scene, most, report, mask, mode == Mode::on && point > 0);
        scene.wrong().copy(report.wrong, sizeof report.wrong - 1);
    }
    report.stage = Stage::done;
    _exit(0);
}

Report& newReport() {
    void* const memory =
        mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        std::abort();
    return *new (memory) Report;
}

/// How a process ended: "" by itself, else in words.
std::string endOf(pid_t process) {
    const int handle = static_cast<int>(syscall(SYS_pidfd_open, process, 0));
    pollfd entry{handle, POLLIN, 0};
    const bool ended = poll(&entry, 1, static_cast<int>(std::chrono::milliseconds(limitOfARun).count())) > 0;
    close(handle);
    if (!ended) {
        kill(process, SIGABRT); // a sanitizer tells where it hangs
        usleep(500000);
        kill(process, SIGKILL);
    }
    int status = 0;
    waitpid(process, &status, 0);
    if (!ended)
        return "hangs";
    if (WIFSIGNALED(status))
        return "ends with signal " + std::to_string(WTERMSIG(status));
    return WEXITSTATUS(status) == 0 ? "" : "ends with status " + std::to_string(WEXITSTATUS(status));
}

class Runner {
public:
    Runner(const Options& options) : options_(options) {}

    bool run(const Scenario& scenario) {
        scenario_ = &scenario;
        row_ = {};
        Report& plain = newReport();
        const auto start = Clock::now();
        if (!wentWell(begin(Mode::on, 0, newReport(), plain)) || !plain.whole) {
            std::printf("%s: fails by itself: %s%s\n", scenario.name, plain.wrong, plain.refused);
            return false;
        }
        each_ = Seconds(Clock::now() - start).count() / 2;
        // A slow one in little time: one mode, another each time.
        constexpr int modes = static_cast<int>(Mode::count);
        const bool slow = share > 0 && 2 * each_ > share;
        const int only = slow ? static_cast<int>(random_() % modes) : modes;
        least_ = slow ? leastOfSlow : 1;
        bool right = true;
        for (int mode = 0; mode < modes; ++mode)
            if ((options_.mode.empty() && (!slow || mode == only)) || options_.mode == modeNames[mode])
                right = allPoints(static_cast<Mode>(mode), plain) && right;
        std::printf("%-12s %7ld %7ld %8ld %7ld\n", scenario.name, row_.points, row_.whole, row_.refused,
                    row_.wrong);
        std::fflush(stdout);
        return right;
    }
    void printKinds() const {
        std::printf("\n%-12s %7s %7s\n", "kind", "points", "wrong");
        for (const auto& [kind, row] : kinds_)
            std::printf("%-12s %7ld %7ld\n", kind.c_str(), row.points, row.wrong);
    }
    double share = 0; ///< of the seconds, for one mode of one scenario; 0 no limit

private:
    struct Row {
        long points = 0, whole = 0, refused = 0, wrong = 0;
    };

    /// A run that has begun.
    struct Attempt {
        Mode mode;
        long point;
        Report* report;
        pid_t process;
        std::string errors; ///< a file
    };

    /// How far it is to the next point: as many as there is time for.
    double strideFrom(double at, double all, double used, int tried) const {
        const double left = all - at + 1;
        const double inTime = (share - used) / (tried == 0 ? each_ : used / tried);
        const double tries = share == 0 ? left : std::max(inTime, static_cast<double>(least_ - tried));
        return std::max(1.0, tries < 1 ? left : left / tries);
    }

    bool allPoints(Mode mode, const Report& plain) {
        const auto start = Clock::now();
        const auto all = static_cast<double>(plain.meter.met[static_cast<int>(mode)]);
        std::deque<Attempt> underWay;
        bool right = true, over = false;
        int begun = 0, tried = 0;
        for (double at = static_cast<double>(options_.from); !over || !underWay.empty();) {
            if (!over && underWay.size() < options_.jobs) {
                const double used = Seconds(Clock::now() - start).count();
                const double stride = strideFrom(at, all, used, tried);
                // Somewhere in a part of its own.
                const auto thinned =
                    static_cast<long>(at + std::uniform_real_distribution(0.0, stride)(random_));
                underWay.push_back(
                    begin(mode, options_.point > 0 ? options_.point : thinned, plain, newReport()));
                at += stride;
                over = options_.point > 0 || (share > 0 && used > share && begun + 1 >= least_);
                ++begun;
                continue;
            }
            over = !finish(underWay.front(), right) || over;
            underWay.pop_front();
            ++tried;
        }
        return right;
    }
    /// False: it met no point any more.
    bool finish(const Attempt& attempt, bool& right) {
        const bool fine = wentWell(attempt);
        const bool met = attempt.report->meter.failed > 0;
        if (met)
            count(*attempt.report, fine);
        if (!fine)
            right = told(attempt);
        munmap(attempt.report, sizeof *attempt.report);
        std::filesystem::remove(attempt.errors);
        return met;
    }
    void count(const Report& report, bool fine) {
        ++row_.points;
        ++(!fine ? row_.wrong : report.whole ? row_.whole : row_.refused);
        Row& kind = kinds_[report.meter.kind];
        ++kind.points;
        kind.wrong += fine ? 0 : 1;
    }
    Attempt begin(Mode mode, long point, const Report& before, Report& report) {
        const std::string errors = folder_.file("errors-" + std::to_string(++begun_));
        std::fflush(stdout);
        const pid_t process = fork();
        if (process == 0) {
            if (options_.point == 0)
                dup2(open(errors.c_str(), O_CREAT | O_TRUNC | O_WRONLY, 0600), STDERR_FILENO);
            setenv("TMPDIR", folder_.path().c_str(), 1);
            runScenario(*scenario_, mode, point, options_.point > 0, before, report);
        }
        return {mode, point, &report, process, errors};
    }
    /// Waits for its end.
    static bool wentWell(const Attempt& attempt) {
        Report& report = *attempt.report;
        const std::string end = endOf(attempt.process);
        const bool harmless = attempt.mode == Mode::partly || attempt.mode == Mode::interrupted;
        if (!end.empty())
            (end + " " + stageNames[static_cast<int>(report.stage.load())])
                .copy(report.wrong, sizeof report.wrong - 1);
        // Parts of blocks, and interruptions, are nothing that a program hears of.
        else if (report.wrong[0] == '\0' && !report.whole && harmless)
            std::snprintf(report.wrong, sizeof report.wrong, "it did not go on: %s", report.refused);
        return report.wrong[0] == '\0';
    }
    bool told(const Attempt& attempt) const {
        std::printf("brisolt-faults --scenario '%s' --mode %s --point %ld: %s: %s\n", scenario_->name,
                    modeNames[static_cast<int>(attempt.mode)], attempt.point, attempt.report->meter.call,
                    attempt.report->wrong);
        std::ifstream errors(attempt.errors);
        std::string line;
        for (int lines = 0; lines < 12 && std::getline(errors, line); ++lines)
            std::printf("    %s\n", line.c_str());
        std::fflush(stdout);
        return false;
    }

    Options options_;
    test::TempDir folder_;
    std::minstd_rand random_{std::random_device()()};
    const Scenario* scenario_ = nullptr;
    long begun_ = 0;
    double each_ = 0; ///< seconds of a run of it
    int least_ = 1;   ///< points of a mode, whatever time they take
    Row row_;
    std::map<std::string, Row> kinds_;
};

bool read(Options& options, int count, char** words) {
    for (int i = 1; i + 1 < count; i += 2) {
        const std::string word = words[i], value = words[i + 1];
        if (word == "--seconds")
            options.seconds = std::atof(value.c_str());
        else if (word == "--scenario")
            options.scenario = value;
        else if (word == "--mode")
            options.mode = value;
        else if (word == "--from")
            options.from = std::atol(value.c_str());
        else if (word == "--point")
            options.point = std::atol(value.c_str());
        else if (word == "--jobs")
            options.jobs = std::max(std::strtoul(value.c_str(), nullptr, 10), 1UL);
        else
            return false;
    }
    return count % 2 == 1;
}

} // namespace

/// A lock file that could not be deleted stays as long as its process, and meanwhile another program may get a pseudo
/// terminal of that name. Where the host allows it, such files are ours alone.
static void haveOwnLockFiles() {
    if (unshare(CLONE_NEWNS) == 0 && mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0)
        mount("locks", "/run/lock", "tmpfs", 0, nullptr);
}

int main(int count, char** words) {
    Options options;
    if (!read(options, count, words)) {
        std::fputs("brisolt-faults [--seconds N] [--scenario NAME] [--mode NAME] [--from N] [--point N] "
                   "[--jobs N]\n",
                   stderr);
        return 2;
    }
    haveOwnLockFiles();
    Runner runner(options);
    runner.share =
        options.seconds / static_cast<double>(scenarios.size() * static_cast<std::size_t>(Mode::count));
    std::printf("%-12s %7s %7s %8s %7s\n", "scenario", "points", "whole", "refused", "wrong");
    bool right = true;
    for (const Scenario& scenario : scenarios)
        if (options.scenario.empty() || options.scenario == scenario.name)
            right = runner.run(scenario) && right;
    runner.printKinds();
    return right ? 0 : 1;
}
