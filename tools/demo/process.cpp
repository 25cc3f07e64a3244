#include "process.h"

#include <chrono>
#include <csignal>
#include <system_error>
#include <thread>

#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

Process::Process(std::vector<std::string> words, const std::string& directory) {
    std::vector<char*> pointers;
    pointers.reserve(words.size() + 1);
    for (std::string& word : words)
        pointers.push_back(word.data());
    pointers.push_back(nullptr);

    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addchdir_np(&actions, directory.c_str());
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    // A group of its own, so that the programs that it starts can be ended with it.
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP);
    const int error = posix_spawnp(&id_, pointers[0], &actions, &attributes, pointers.data(), environ);
    posix_spawnattr_destroy(&attributes);
    posix_spawn_file_actions_destroy(&actions);
    if (error != 0)
        throw std::system_error(error, std::generic_category(), words[0]);
}

Process::~Process() {
    if (running()) {
        kill(-id_, SIGTERM);
        waitpid(id_, &status_, 0);
    }
}

bool Process::running() {
    if (!ended_)
        ended_ = waitpid(id_, &status_, WNOHANG) != 0;
    return !ended_;
}

bool Process::succeeds(int seconds) {
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (running() && std::chrono::steady_clock::now() < end)
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    return ended_ && WIFEXITED(status_) && WEXITSTATUS(status_) == 0;
}
