// The commands, one file each. Each adds itself to the command line.
#pragma once

#include <functional>

namespace CLI {
class App;
}

struct Command {
    CLI::App* app;
    std::function<int()> run; ///< returns the exit code; throws Failure
    int usage = 2;            ///< the exit code of a command line that makes no sense
};

Command addPorts(CLI::App& app);
Command addTerm(CLI::App& app);
Command addSend(CLI::App& app);
Command addReceive(CLI::App& app);
Command addChat(CLI::App& app);
Command addLines(CLI::App& app);
Command addMonitor(CLI::App& app);
Command addTap(CLI::App& app);
