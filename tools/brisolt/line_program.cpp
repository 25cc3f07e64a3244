#include "line_program.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <optional>
#include <sstream>

#include <fcntl.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "failure.h"
#include "interruption.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr std::size_t blockSize = 8192;
// So much may wait on either side: enough for a window of the protocol, and not so much that a cancel takes long.
constexpr std::size_t mostWaiting = 16384;
// Well within what a signal leaves us before it ends the program.
constexpr auto farewell = milliseconds(1000);

class Descriptor {
public:
    explicit Descriptor(int number = -1) : number_(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() { reset(); }
    int get() const { return number_; }
    void reset(int number = -1) {
        if (number_ >= 0)
            ::close(number_);
        number_ = number;
    }

private:
    int number_;
};

/// The program itself. Ended and waited for at the end.
class Child {
public:
    explicit Child(const LineProgram& program);
    Child(const Child&) = delete;
    Child& operator=(const Child&) = delete;
    ~Child() {
        if (id_ > 0) {
            kill(id_, SIGKILL);
            waitpid(id_, nullptr, 0);
        }
    }
    /// Its exit code, 128 and more for a signal.
    int wait() {
        int status = 0;
        while (waitpid(id_, &status, 0) < 0 && errno == EINTR) {
        }
        id_ = -1;
        return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    void interrupt() const { kill(id_, SIGINT); }
    void stop() const { kill(id_, SIGKILL); }

    Descriptor line, words; ///< its standard input and output; its standard error

private:
    pid_t id_ = -1;
};

Child::Child(const LineProgram& program) {
    std::array<int, 2> pair{-1, -1}, pipe{-1, -1};
    if (socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, pair.data()) != 0)
        throw Failure(std::string("socketpair: ") + std::strerror(errno));
    line.reset(pair[0]);
    const Descriptor childLine(pair[1]);
    if (pipe2(pipe.data(), O_CLOEXEC) != 0)
        throw Failure(std::string("pipe: ") + std::strerror(errno));
    words.reset(pipe[0]);
    const Descriptor childWords(pipe[1]);
    fcntl(line.get(), F_SETFL, O_NONBLOCK);
    fcntl(words.get(), F_SETFL, O_NONBLOCK);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, childLine.get(), STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, childLine.get(), STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(&actions, childWords.get(), STDERR_FILENO);
    if (!program.folder.empty())
        posix_spawn_file_actions_addchdir_np(&actions, program.folder.c_str());
    // A group of its own: Ctrl-C is ours, and we end it in a way that its far end understands.
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    sigset_t defaults;
    sigemptyset(&defaults);
    sigaddset(&defaults, SIGPIPE);
    sigaddset(&defaults, SIGINT); // by which we end it, whatever our own shell makes of it
    posix_spawnattr_setsigdefault(&attributes, &defaults);
    posix_spawnattr_setsigmask(&attributes, static_cast<const sigset_t*>(interruption::originalMask()));
    posix_spawnattr_setflags(&attributes,
                             POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETPGROUP);
    std::vector<char*> arguments;
    for (const std::string& argument : program.command)
        arguments.push_back(const_cast<char*>(argument.c_str()));
    arguments.push_back(nullptr);
    const int error =
        posix_spawn(&id_, program.command[0].c_str(), &actions, &attributes, arguments.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0) {
        id_ = -1;
        throw Failure(program.command[0] + ": " + std::strerror(error));
    }
}

/// What moves between the two.
class Pump {
public:
    Pump(Link& link, const LineProgram& program, const TransferOptions& options, const TransferUser& user)
        : link_(link), program_(program), options_(options), user_(user), child_(program) {}

    void run() {
        while (!childOver_ || (link_.unsent() > 0 && !ending_))
            turn();
        if (ending_)
            child_.stop();
        const int code = child_.wait();
        if (ending_)
            throw Failure(program_.command[0] + ": " + reason_, code_);
        if (code != 0)
            throw Failure(program_.command[0] + ": " + lastWords());
    }

private:
    void turn();
    void fromLink();
    void toChild();
    void fromChild();
    void fromWords();
    void giveUp(const std::string& reason, int code);
    void tellProgress(uint64_t exact, uint64_t total) const;
    std::string lastWords() const;

    Link& link_;
    const LineProgram& program_;
    const TransferOptions& options_;
    const TransferUser& user_;
    Child child_;
    std::string toChild_, words_;
    uint64_t onLine_ = 0; ///< bytes in the direction of the file
    bool exact_ = false;  ///< the program itself has told how far it is
    bool childOver_ = false, ending_ = false;
    std::string reason_;
    int code_ = exitFailed;
    Clock::time_point lastMove_ = Clock::now(), endBy_{};
};

void Pump::turn() {
    if (takeNews().quit || interruption::asked())
        giveUp("interrupted", exitInterrupted);
    fromLink();
    toChild();
    std::vector<pollfd> entries;
    link_.watch(entries);
    const bool room = link_.unsent() < mostWaiting && !childOver_;
    entries.push_back({childOver_ ? -1 : child_.line.get(),
                       static_cast<short>((room ? POLLIN : 0) | (toChild_.empty() ? 0 : POLLOUT)), 0});
    entries.push_back({child_.words.get(), POLLIN, 0});
    entries.push_back({user_.input, POLLIN, 0});
    const auto until = ending_ ? endBy_ : lastMove_ + std::chrono::seconds(options_.timeout);
    const auto left = std::chrono::duration_cast<milliseconds>(until - Clock::now()).count() + 1;
    poll(entries.data(), entries.size(), static_cast<int>(std::max<int64_t>(left, 0)));
    link_.settle();
    if (room && entries[2].revents != 0)
        fromChild();
    if (entries[3].revents != 0)
        fromWords();
    if (entries[4].revents != 0 && user_.giveUp())
        giveUp("given up", exitInterrupted);
    if (Clock::now() >= until) {
        if (ending_)
            childOver_ = true;
        else
            giveUp("nothing has moved for " + std::to_string(options_.timeout) + " s", exitTime);
    }
}

void Pump::fromLink() {
    if (toChild_.size() >= mostWaiting)
        return;
    const std::string bytes = link_.read(blockSize);
    if (bytes.empty())
        return;
    lastMove_ = Clock::now();
    toChild_ += bytes;
    if (!program_.sending) {
        onLine_ += bytes.size();
        tellProgress(0, 0);
    }
}

void Pump::toChild() {
    if (toChild_.empty() || childOver_)
        return;
    const ssize_t count = send(child_.line.get(), toChild_.data(), toChild_.size(), MSG_NOSIGNAL);
    if (count > 0)
        toChild_.erase(0, static_cast<std::size_t>(count));
}

void Pump::fromChild() {
    std::array<char, blockSize> bytes{};
    const ssize_t count = ::read(child_.line.get(), bytes.data(), bytes.size());
    if (count > 0) {
        link_.write({bytes.data(), static_cast<std::size_t>(count)});
        if (program_.sending) {
            lastMove_ = Clock::now();
            onLine_ += static_cast<uint64_t>(count);
            tellProgress(0, 0);
        }
    } else if (count == 0 || (errno != EAGAIN && errno != EINTR)) {
        childOver_ = true;
    }
}

/// "Bytes received: 1024/ 5000 BPS:..." is the one place where the size of a received file is told.
void Pump::fromWords() {
    std::array<char, 4096> bytes{};
    const ssize_t count = ::read(child_.words.get(), bytes.data(), bytes.size());
    if (count == 0 || (count < 0 && errno != EAGAIN && errno != EINTR)) {
        child_.words.reset();
        return;
    }
    words_.append(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    if (words_.size() > 8192)
        words_.erase(0, words_.size() - 4096);
    const std::size_t place = words_.rfind("\rBytes ", words_.rfind('/'));
    unsigned long long done = 0, total = 0;
    if (place != std::string::npos &&
        std::sscanf(&words_[place], "\rBytes %*[^:]:%llu/%llu", &done, &total) == 2 && total > 0) {
        exact_ = true;
        tellProgress(done, total);
    }
}

void Pump::tellProgress(uint64_t exact, uint64_t total) const {
    if (total > 0) {
        user_.progress(exact, total);
        return;
    }
    const auto guess = static_cast<uint64_t>(static_cast<double>(onLine_) * program_.payload);
    if (!exact_)
        user_.progress(program_.total > 0 ? std::min(guess, program_.total) : guess, program_.total);
}

/// The program tells its far end; it is given time for that.
void Pump::giveUp(const std::string& reason, int code) {
    if (ending_)
        return;
    ending_ = true;
    reason_ = reason;
    code_ = code;
    endBy_ = Clock::now() + farewell;
    link_.discard();
    if (!childOver_)
        child_.interrupt();
}

std::string Pump::lastWords() const {
    std::string last = "failed";
    std::string line;
    for (const char byte : words_ + "\n") {
        if (byte != '\r' && byte != '\n' && byte != '\b') {
            line += byte;
            continue;
        }
        const bool says = line.find_first_not_of(' ') != std::string::npos &&
                          line.find("Transfer incomplete") == std::string::npos;
        if (says)
            last = line;
        line.clear();
    }
    return last;
}

} // namespace

std::string programPath(const std::vector<std::string>& names) {
    const char* const path = std::getenv("PATH");
    std::istringstream folders(path != nullptr ? path : "/usr/local/bin:/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');)
        for (const std::string& program : names)
            if (std::string file = (folder.empty() ? "." : folder) + "/" + program;
                access(file.c_str(), X_OK) == 0)
                return file;
    throw Failure(names.front() + " is not there; install lrzsz for transfers by xmodem, ymodem and zmodem");
}

void runOnLink(Link& link, const LineProgram& program, const TransferOptions& options,
               const TransferUser& user) {
    Pump(link, program, options, user).run();
}
