// How a command ends when it cannot go on.
#pragma once

#include <stdexcept>
#include <string>

enum ExitCode {
    exitDone = 0,
    exitFailed = 1, ///< standard error tells
    exitUsage = 2,  ///< the command line makes no sense
    exitGone = 3,   ///< the device went away
    exitTime = 4,   ///< the time was over
    exitInterrupted = 130
};

/// Caught by main, which shows the text and returns the code.
struct Failure : std::runtime_error {
    explicit Failure(const std::string& text, int exitCode = exitFailed)
        : std::runtime_error(text), code(exitCode) {}
    int code;
};
