// brisolt: serial devices from the command line.
#include <algorithm>
#include <array>
#include <clocale>
#include <cstdio>
#include <exception>
#include <sstream>
#include <string>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "failure.h"
#include "interruption.h"
#include "output.h"

namespace {

int run(int argc, char** argv) {
    CLI::App app("Serial devices from the command line", "brisolt");
    app.require_subcommand(1);
    app.set_version_flag("--version", "brisolt " BRISOLT_VERSION, "Print the version");
    const std::vector<Command> commands{addPorts(app), addTerm(app),  addSend(app),    addReceive(app),
                                        addChat(app),  addLines(app), addMonitor(app), addTap(app)};
    app.footer(
        "\"brisolt COMMAND --help\" tells the options of a command.\n\nExamples:\n"
        "  brisolt ports\n  brisolt term /dev/ttyUSB0 115200\n  brisolt send firmware.bin /dev/ttyUSB0");
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::ostringstream help, complaint;
        const int code = app.exit(error, help, complaint);
        std::fputs(printable(help.str()).c_str(), stdout);
        std::fputs(printable(complaint.str()).c_str(), stderr);
        if (code == 0)
            return exitDone;
        const auto meant = std::find_if(commands.begin(), commands.end(),
                                        [](const Command& command) { return command.app->parsed(); });
        return meant != commands.end() ? meant->usage : exitUsage;
    }
    for (const Command& command : commands)
        if (command.app->parsed())
            return command.run();
    return exitUsage;
}

/// A device that was opened under the number of a closed standard stream would be given our texts. What stands
/// there instead is empty to read and refuses to be written.
void fillClosedStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDONLY | O_NOCTTY) < 0)
            throw Failure("/dev/null cannot be opened");
}

int runAndComplain(int argc, char** argv) {
    try {
        fillClosedStreams();
        interruption::begin();
        return afterOutput(run(argc, argv));
    } catch (const Failure& failure) {
        if (!interruption::asked())
            complain(failure.what());
        return failure.code;
    } catch (const std::exception& error) {
        complain(error.what());
        return exitFailed;
    }
}

} // namespace

int main(int argc, char** argv) {
    // Whatever the user's own locale: what is written in a name does not depend on who looks.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    const int code = runAndComplain(argc, argv);
    interruption::obey();
    return code;
}
