#include "support/peer_process.h"

#include <array>
#include <cerrno>
#include <csignal>
#include <system_error>
#include <thread>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

namespace brisolt::test {
namespace {

using Clock = std::chrono::steady_clock;

void check(int error, const char* what) {
    if (error != 0)
        throw std::system_error(error, std::generic_category(), what);
}

std::array<int, 2> makePipe() {
    std::array<int, 2> ends{};
    check(pipe2(ends.data(), O_CLOEXEC) == 0 ? 0 : errno, "pipe");
    return ends;
}

} // namespace

PeerProcess::PeerProcess(const std::string& program, const std::vector<std::string>& arguments,
                         Options options) {
    // A peer that ends early must show as a failed write, not end the test program.
    signal(SIGPIPE, SIG_IGN);
    const auto input = makePipe();
    const auto output = makePipe();

    std::vector<std::string> words{program};
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], STDIN_FILENO);
    posix_spawn_file_actions_adddup2(&actions, output[1], STDOUT_FILENO);
    if (options.captureErrors)
        posix_spawn_file_actions_adddup2(&actions, output[1], STDERR_FILENO);
    if (options.inherit >= 0)
        posix_spawn_file_actions_adddup2(&actions, options.inherit, options.inherit);
    const int error = posix_spawn(&id_, program.c_str(), &actions, nullptr, pointers.data(), environ);
    posix_spawn_file_actions_destroy(&actions);

    close(input[0]);
    close(output[1]);
    input_ = input[1];
    output_ = output[0];
    if (error != 0) {
        closeInput();
        close(output_);
        check(error, program.c_str());
    }
}

PeerProcess::~PeerProcess() {
    if (!exitCode_) {
        kill(SIGKILL);
        wait();
    }
    closeInput();
    close(output_);
}

bool PeerProcess::fill(Clock::time_point end) {
    const auto left = std::chrono::ceil<Milliseconds>(end - Clock::now()).count();
    pollfd entry{output_, POLLIN, 0};
    if (left < 0 || poll(&entry, 1, static_cast<int>(left)) <= 0)
        return false;
    std::array<char, 4096> bytes{};
    const ssize_t count = ::read(output_, bytes.data(), bytes.size());
    if (count <= 0)
        return false;
    pending_.append(bytes.data(), static_cast<std::size_t>(count));
    return true;
}

std::optional<std::string> PeerProcess::readLine(Milliseconds limit) {
    const auto end = Clock::now() + limit;
    for (;;) {
        if (const std::size_t length = pending_.find('\n'); length != std::string::npos) {
            std::string line = pending_.substr(0, length);
            pending_.erase(0, length + 1);
            return line;
        }
        if (!fill(end))
            return std::nullopt;
    }
}

std::string PeerProcess::readAll(Milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (fill(end)) {
    }
    return std::exchange(pending_, {});
}

bool PeerProcess::write(std::string_view bytes) {
    while (!bytes.empty()) {
        const ssize_t count = ::write(input_, bytes.data(), bytes.size());
        if (count <= 0)
            return false;
        bytes.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

void PeerProcess::closeInput() {
    if (input_ >= 0)
        close(input_);
    input_ = -1;
}

int PeerProcess::wait(Milliseconds limit) {
    const auto end = Clock::now() + limit;
    while (!exitCode_) {
        int status = 0;
        if (waitpid(id_, &status, WNOHANG) == id_)
            exitCode_ = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        else if (Clock::now() >= end)
            return -1;
        else
            std::this_thread::sleep_for(Milliseconds(2));
    }
    return *exitCode_;
}

void PeerProcess::kill(int signal) {
    // Once reaped, the number may belong to somebody else.
    if (!exitCode_)
        ::kill(id_, signal);
}

} // namespace brisolt::test
