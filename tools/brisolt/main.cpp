// brisolt: what serial devices are there, and a plain terminal on one of them.
#include <charconv>
#include <clocale>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <limits>
#include <sstream>
#include <stdexcept>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "commands.h"
#include "output.h"

namespace {

constexpr std::size_t nameLimit = 260; // of the library, for devices and traces
constexpr int32_t highest = std::numeric_limits<int32_t>::max();

/// The parser's own range takes a number that is none for one that is too small, and writes out every digit of
/// the highest one it knows.
CLI::Validator wholeNumber(int32_t least, int32_t most) {
    const auto refusal = [least, most](const std::string& text) -> std::string {
        int32_t value = 0;
        const char* end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        if (error == std::errc{} && stop == end && value >= least && value <= most)
            return {};
        return "\"" + text + "\" is no number from " + std::to_string(least) + " to " + std::to_string(most);
    };
    return {refusal, ""};
}

CLI::Validator name() {
    const auto refusal = [](const std::string& text) -> std::string {
        if (text.empty())
            return "the name is empty";
        return text.size() < nameLimit
                   ? ""
                   : "the name is longer than " + std::to_string(nameLimit - 1) + " bytes";
    };
    return {refusal, ""};
}

void addTerm(CLI::App& app, TermOptions& options) {
    CLI::App* term =
        app.add_subcommand("term", "A terminal on a serial device. With pipes instead of a terminal "
                                   "it sends its standard input and prints what comes back. On a "
                                   "terminal Ctrl-] quits.");
    term->add_option("device", options.device, "Device file, or SCHEME:REST")->required()->check(name());
    term->add_option("--baud", options.baud, "Bits per second")
        ->check(wholeNumber(1, highest))
        ->capture_default_str();
    term->add_option("--data", options.dataBits, "Data bits")
        ->check(wholeNumber(4, 8))
        ->capture_default_str();
    term->add_option("--parity", options.parity, "Parity")
        ->check(CLI::IsMember({"none", "odd", "even", "mark", "space"}))
        ->capture_default_str();
    term->add_option("--stop", options.stopBits, "Stop bits")
        ->check(CLI::IsMember({"1", "2", "1.5"}))
        ->capture_default_str();
    term->add_option("--flow", options.flow, "Flow control")
        ->check(CLI::IsMember({"none", "rtscts", "xonxoff", "dtrdsr"}))
        ->capture_default_str();
    term->add_flag("--echo", options.echo, "Show what is sent, too");
    term->add_flag("--crlf", options.crlf, "Send the end of a line as carriage return and line feed");
    term->add_option("--log", options.log, "Trace every read and write of the device to this file")
        ->check(name())
        ->type_name("FILE");
    term->add_option("--linger", options.lingerMs,
                     "Milliseconds of quiet after the end of the input before the program ends")
        ->check(wholeNumber(0, highest))
        ->capture_default_str();
}

int run(int argc, char** argv) {
    CLI::App app("Serial devices from the command line");
    TermOptions termOptions;
    app.require_subcommand(1);
    const CLI::App* ports = app.add_subcommand("ports", "List the serial devices of this machine");
    addTerm(app, termOptions);
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        std::ostringstream help, complaint;
        const int code = app.exit(error, help, complaint);
        std::fputs(printable(help.str()).c_str(), stdout);
        std::fputs(printable(complaint.str()).c_str(), stderr);
        return code == 0 ? exitDone : exitUsage;
    }
    return ports->parsed() ? listPorts() : runTerminal(termOptions);
}

/// A device that was opened under the number of a closed standard stream would be given our texts. What stands
/// there instead is empty to read and refuses to be written.
void fillClosedStreams() {
    for (int stream = STDIN_FILENO; stream <= STDERR_FILENO; ++stream)
        if (fcntl(stream, F_GETFD) < 0 && open("/dev/null", O_RDONLY | O_NOCTTY) < 0)
            throw std::runtime_error("/dev/null cannot be opened");
}

} // namespace

int main(int argc, char** argv) {
    // Whatever the user's own locale: what is written in a name does not depend on who looks.
    std::setlocale(LC_CTYPE, "C.UTF-8");
    try {
        fillClosedStreams();
        return afterOutput(run(argc, argv));
    } catch (const std::exception& error) {
        complain(error.what());
        return exitFailed;
    }
}
