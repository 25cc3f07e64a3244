// What the command line can ask for. Each returns the program's exit code.
#pragma once

#include <cstdint>
#include <string>

/// 0 done, 1 something failed (standard error tells), 2 the command line makes no sense.
enum ExitCode { exitDone = 0, exitFailed = 1, exitUsage = 2 };

struct TermOptions {
    std::string device;
    int32_t baud = 9600;
    int32_t dataBits = 8;
    std::string parity = "none";
    std::string stopBits = "1";
    std::string flow = "none";
    std::string log;        ///< a trace of the port goes there; empty: none
    int32_t lingerMs = 300; ///< how long to listen on when the input has ended and the line is quiet
    bool echo = false;
    bool crlf = false;
};

int listPorts();
int runTerminal(const TermOptions& options);
