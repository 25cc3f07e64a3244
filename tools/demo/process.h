// A program of the system's that works for the demonstration.
#pragma once

#include <string>
#include <vector>

#include <sys/types.h>

class Process {
public:
    /// Starts words[0], looked up as a shell would, in `directory`. Throws when there is no such program.
    Process(std::vector<std::string> words, const std::string& directory);
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    /// Ends it, and what it started, if it still runs.
    ~Process();

    bool running();
    /// True when it ended well within the time.
    bool succeeds(int seconds);

private:
    pid_t id_ = -1;
    bool ended_ = false;
    int status_ = 0;
};
