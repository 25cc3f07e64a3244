// brisolt-modem: a modem on a pseudo terminal, which other such modems of this machine can call.
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include "modem/host_failure.h"
#include "modem/simulator.h"

namespace {

using namespace simulated;

constexpr const char* description =
    R"(A simulated modem on a pseudo terminal, for trying programs without hardware. The path of the
terminal is printed; open it with any program that uses modems. Modems with a number can be called
by others of the same user on this machine. It runs until it is ended (Ctrl-C).
)";
constexpr const char* footer = R"(
Two modems, one of which answers by itself, and a terminal at the other:
  brisolt-modem --number 200 --stored 'S0=1&D0' --link /tmp/modem200 &
  brisolt-modem --number 100 --link /tmp/modem100 &
  brisolt term /tmp/modem100        then type ATDT200

A pseudo terminal has no modem lines: a program sees a call by CONNECT, RING and NO CARRIER only.
DTR is up while a program has the terminal open at a speed other than 0; without DTR a modem answers no
call unless &D0 is set.)";

struct Arguments {
    Options modem;
    std::string link;
    std::string exchange;
    std::vector<std::string> busy, ringing, withoutTone;
    std::vector<std::string> silent, refused, slow;
    std::size_t noise = 0;
    std::size_t dropBytes = 0;
    int dropTime = 0;
    int training = 1000;
    bool unplugged = false;
    bool verbose = false;
};

/// Where the modems of a user find one another unless they are told otherwise.
std::string defaultExchange() {
    const char* const own = std::getenv("XDG_RUNTIME_DIR");
    const std::filesystem::path place =
        own != nullptr && *own != '\0' ? std::filesystem::path(own) : std::filesystem::temp_directory_path();
    return (place / ("brisolt-exchange-" + std::to_string(getuid()))).string();
}

void addModem(CLI::App& app, Arguments& arguments) {
    app.add_option("--number", arguments.modem.number, "Its telephone number; without one it can call only")
        ->type_name("DIGITS");
    app.add_option("--exchange", arguments.exchange,
                   "Folder by which modems find one another (one for each user unless given)")
        ->type_name("FOLDER");
    app.add_option("--link", arguments.link, "Keep a symbolic link to the terminal there")->type_name("PATH");
    app.add_option("--stored", arguments.modem.stored, "Command line that it has stored, such as S0=1")
        ->type_name("COMMANDS");
    app.add_option("--rate", arguments.modem.rate, "Bits per second of its connections")
        ->type_name("BPS")
        ->check(CLI::PositiveNumber.description(""))
        ->capture_default_str();
    app.add_option("--training", arguments.training, "Milliseconds from picking up to CONNECT")
        ->type_name("MS")
        ->check(CLI::NonNegativeNumber.description(""))
        ->capture_default_str();
    app.add_option("--time-scale", arguments.modem.timeScale,
                   "How many times as fast its time runs, up to 1000")
        ->type_name("N")
        ->check(CLI::Range(1, 1000).description(""))
        ->capture_default_str();
    app.add_flag("--verbose", arguments.verbose, "Tell on standard error what happens");
}

void addNumbers(CLI::App& app, Arguments& arguments) {
    const auto add = [&app](const char* name, std::vector<std::string>& numbers, const char* what) {
        app.add_option(name, numbers, what)
            ->type_name("NUMBER")
            ->group("What numbers do when this modem dials them");
    };
    add("--busy", arguments.busy, "Busy");
    add("--ringing", arguments.ringing, "Rings for ever");
    add("--no-dialtone", arguments.withoutTone, "Does not even get a dial tone");
}

void addFaultOptions(CLI::App& app, Arguments& arguments) {
    const char* const group = "Faults";
    const auto lines = [&](const char* name, std::vector<std::string>& texts, const char* form,
                           const char* what) {
        app.add_option(name, texts, what)->type_name(form)->group(group);
    };
    lines("--silent", arguments.silent, "TEXT[:N]",
          "Command lines with TEXT are lost, the first N or all of them (empty: any line)");
    lines("--refuse", arguments.refused, "TEXT[:N]", "Command lines with TEXT get ERROR");
    lines("--slow", arguments.slow, "TEXT:MS", "Command lines with TEXT are answered MS milliseconds late");
    app.add_flag("--unplugged", arguments.unplugged, "It is not plugged into the telephone line")
        ->group(group);
    app.add_option("--noise", arguments.noise, "A byte of noise behind every N bytes to the program")
        ->type_name("N")
        ->group(group);
    app.add_option("--drop-after-bytes", arguments.dropBytes,
                   "The line is cut after N bytes of the first call")
        ->type_name("N")
        ->group(group);
    app.add_option("--drop-after-ms", arguments.dropTime,
                   "The line is cut MS milliseconds after the first CONNECT")
        ->type_name("MS")
        ->check(CLI::NonNegativeNumber.description(""))
        ->group(group);
}

/// TEXT:NUMBER, or TEXT alone with the number `otherwise`.
std::pair<std::string, int> textAndNumber(const std::string& argument, int otherwise) {
    const std::size_t colon = argument.rfind(':');
    if (colon == std::string::npos)
        return {argument, otherwise};
    const std::string number = argument.substr(colon + 1);
    if (number.empty() || number.size() > 9 || number.find_first_not_of("0123456789") != std::string::npos)
        throw std::runtime_error("\"" + argument + "\": no number behind the colon");
    return {argument.substr(0, colon), std::stoi(number)};
}

void addFaults(Simulator& modem, const Arguments& arguments) {
    const auto add = [&modem](Mishap mishap, const std::vector<std::string>& texts) {
        for (const std::string& argument : texts) {
            const auto [text, times] = textAndNumber(argument, -1);
            modem.add({.mishap = mishap, .text = text, .times = times});
        }
    };
    add(Mishap::silence, arguments.silent);
    add(Mishap::refusal, arguments.refused);
    for (const std::string& argument : arguments.slow) {
        const auto [text, delay] = textAndNumber(argument, 1000);
        modem.add({.mishap = Mishap::slowness, .text = text, .delay = Milliseconds(delay)});
    }
    modem.setNoise(arguments.noise);
    modem.dropAfterBytes(arguments.dropBytes);
    if (arguments.dropTime > 0)
        modem.dropAfter(Milliseconds(arguments.dropTime));
}

void setFates(Exchange& exchange, const Arguments& arguments) {
    const auto set = [&exchange](Fate fate, const std::vector<std::string>& numbers) {
        for (const std::string& number : numbers)
            exchange.set(Exchange::digits(number), fate);
    };
    set(Fate::busy, arguments.busy);
    set(Fate::ringsForEver, arguments.ringing);
    set(Fate::noDialtone, arguments.withoutTone);
}

/// Runs until one of the signals ends it.
void run(Arguments& arguments, const sigset_t& ending) {
    Exchange exchange(arguments.exchange.empty() ? defaultExchange() : arguments.exchange);
    setFates(exchange, arguments);
    arguments.modem.training = Milliseconds(arguments.training);
    arguments.modem.dialtone = !arguments.unplugged;
    if (arguments.verbose)
        arguments.modem.log = [](std::string_view text) {
            std::fprintf(stderr, "%.*s\n", static_cast<int>(text.size()), text.data());
        };
    arguments.modem.failed = [] { kill(getpid(), SIGTERM); };
    Simulator modem(ptyLine(arguments.link), exchange, arguments.modem);
    addFaults(modem, arguments);
    // Whoever started us reads this line and knows that the terminal is there.
    if (std::puts(modem.path().c_str()) < 0 || std::fflush(stdout) != 0)
        failHost("standard output: " + modem.path() + " cannot be written");
    int signal = 0;
    sigwait(&ending, &signal);
    modem.rethrowFailure();
}

/// A standard stream that is closed would give its number to the next thing opened, the terminal say.
void fillStandardStreams() {
    int opened = 0;
    while (opened >= 0 && opened <= STDERR_FILENO)
        opened = open("/dev/null", O_RDONLY); // so that what is written fails
    if (opened >= 0)
        close(opened);
}

} // namespace

int main(int argc, char** argv) {
    // Blocked before there is a thread, so that all of them go to sigwait.
    sigset_t ending;
    sigemptyset(&ending);
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        // What nohup or a shell has told us not to hear would be waited for all the same.
        struct sigaction action {};
        if (sigaction(signal, nullptr, &action) == 0 && action.sa_handler != SIG_IGN)
            sigaddset(&ending, signal);
    }
    pthread_sigmask(SIG_BLOCK, &ending, nullptr);

    fillStandardStreams();
    try {
        CLI::App app(description, "brisolt-modem");
        app.set_version_flag("--version", "brisolt-modem " BRISOLT_VERSION, "Print the version");
        app.footer(footer);
        Arguments arguments;
        addModem(app, arguments);
        addNumbers(app, arguments);
        addFaultOptions(app, arguments);
        try {
            app.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return app.exit(error) == 0 ? 0 : 2;
        }
        run(arguments, ending);
        return 0;
    } catch (const std::bad_alloc&) {
        std::fputs("brisolt-modem: out of memory\n", stderr);
        return 1;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "brisolt-modem: %s\n", error.what());
        return 1;
    }
}
