// brisolt: what serial devices are there, and a plain terminal on one of them.
#include <cstdio>
#include <exception>

#include <CLI/CLI.hpp>

#include "commands.h"

namespace {

void addTerm(CLI::App& app, TermOptions& options) {
    CLI::App* term =
        app.add_subcommand("term", "A terminal on a serial device. With pipes instead of a terminal "
                                   "it sends its standard input and prints what comes back.");
    term->add_option("device", options.device, "Device file, or SCHEME:REST")->required();
    term->add_option("--baud", options.baud, "Bits per second")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    term->add_option("--data", options.dataBits, "Data bits")->check(CLI::Range(4, 8))->capture_default_str();
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
        ->type_name("FILE");
    term->add_option("--linger", options.lingerMs,
                     "Milliseconds of quiet after the end of the input before the program ends")
        ->check(CLI::NonNegativeNumber)
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
        return app.exit(error) == 0 ? exitDone : exitUsage;
    }
    return ports->parsed() ? listPorts() : runTerminal(termOptions);
}

} // namespace

int main(int argc, char** argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "brisolt: %s\n", error.what());
        return exitFailed;
    }
}
