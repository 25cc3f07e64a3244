// brisolt lines: the modem lines of a device, shown, set and watched.
#include <array>
#include <cstdio>
#include <string>
#include <string_view>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include <brisolt.h>
#include <brisolt_host.h>

#include "arguments.h"
#include "commands.h"
#include "failure.h"
#include "interruption.h"
#include "line_text.h"
#include "link.h"
#include "output.h"
#include "port.h"

namespace {

struct LinesOptions {
    LineOptions line;
    std::string dtr, rts;
    int32_t breakMs = 0;
    bool watch = false;
};

constexpr uint32_t watched = COM_HOST_EVENT_CTS | COM_HOST_EVENT_DSR | COM_HOST_EVENT_CARRIER |
                             COM_HOST_EVENT_RING | COM_HOST_EVENT_BREAK | COM_HOST_EVENT_ERROR |
                             COM_HOST_EVENT_GONE | COM_HOST_EVENT_BACK;

/// What one line was set to stays so behind the end of the command, and the others are not touched at all.
std::string untouched(const std::string& device) {
    return withOption(withOption(withOption(device, "dtr=leave"), "rts=leave"), "close=leave");
}

void set(const Port& port, const std::string& name, bool on, int32_t (*raise)(int32_t),
         int32_t (*lower)(int32_t)) {
    if ((on ? raise : lower)(port.number()) != 1)
        port.fail("the device has no " + name, exitFailed);
}

void sendBreak(const Port& port, int32_t milliseconds) {
    if (ComSetBreak_ON(port.number()) != 1)
        port.fail("the device cannot send a break", exitFailed);
    const bool whole = pauseFor(milliseconds);
    ComSetBreak_OFF(port.number());
    if (!whole)
        throw Failure("interrupted", exitInterrupted);
}

/// A line whose level is named, and a counter of what has none.
struct Watched {
    std::string_view name;
    int32_t bit; ///< 0: what is counted has no level
    uint32_t ComHostCounters::*counter;
};
constexpr std::array<Watched, 9> table{{{"CTS", COM_HOST_MODEM_CTS, &ComHostCounters::cts},
                                        {"DSR", COM_HOST_MODEM_DSR, &ComHostCounters::dsr},
                                        {"DCD", COM_HOST_MODEM_CARRIER, &ComHostCounters::carrier},
                                        {"ring", 0, &ComHostCounters::ring},
                                        {"break", 0, &ComHostCounters::breaks},
                                        {"framing error", 0, &ComHostCounters::framing},
                                        {"parity error", 0, &ComHostCounters::parity},
                                        {"overrun", 0, &ComHostCounters::overrun},
                                        {"overflow", 0, &ComHostCounters::overflow}}};

void tellChanges(const ComHostCounters& before, const ComHostCounters& now, int32_t lines) {
    const std::string time = timeOfDay();
    for (const Watched& each : table) {
        const uint32_t changes = now.*each.counter - before.*each.counter;
        if (changes == 0)
            continue;
        std::string text(each.name);
        if (each.bit != 0 && lines >= 0)
            text += (lines & each.bit) != 0 ? " on" : " off";
        if (changes > 1)
            text += " (" + std::to_string(changes) + " times)";
        std::printf("%s %s\n", time.c_str(), text.c_str());
    }
    if (now.gone != before.gone)
        std::printf("%s device gone\n", time.c_str());
    if (now.back != before.back)
        std::printf("%s device back\n", time.c_str());
    std::fflush(stdout);
}

int watch(const Port& port) {
    ComHostCounters seen{};
    seen.size = sizeof seen;
    ComHostGetCounters(port.number(), &seen);
    if (ComHostSetEventMessage(port.number(), watched, 0, ComHostThreadId()) != 1)
        port.fail("the device tells no changes of its lines", exitFailed);
    std::printf("%s %s\n", timeOfDay().c_str(), linesText(port.number()).c_str());
    std::fflush(stdout);
    ComHostMessage message{};
    while (!interruption::asked() && std::ferror(stdout) == 0) {
        ComHostCounters now = seen;
        if (ComHostGetCounters(port.number(), &now) == 1)
            tellChanges(seen, now, ComHostGetLines(port.number()));
        seen = now;
        if (port.gone())
            port.failGone();
        ComHostGetMessage(&message, -1);
    }
    return interruption::asked() ? exitInterrupted : exitFailed;
}

int runLines(const LinesOptions& options) {
    const Port port(options.line, untouched(options.line.device));
    const bool none = ComHostGetLines(port.number()) == -4;
    if (none && (options.watch || !options.dtr.empty() || !options.rts.empty() || options.breakMs == 0))
        port.fail("the device has no modem lines", exitFailed);
    if (!options.dtr.empty())
        set(port, "DTR", options.dtr == "on", ComSetDTR, ComClearDTR);
    if (!options.rts.empty())
        set(port, "RTS", options.rts == "on", ComSetRTS, ComClearRTS);
    if (options.breakMs > 0)
        sendBreak(port, options.breakMs);
    if (options.watch)
        return watch(port);
    if (!none)
        std::puts(linesText(port.number()).c_str());
    return exitDone;
}

} // namespace

Command addLines(CLI::App& app) {
    static LinesOptions options;
    CLI::App* lines = app.add_subcommand(
        "lines",
        "Show the modem lines of a device, set them, or tell each change. DTR and RTS that are not named are "
        "left as they are, and what was set stays set behind the end.");
    addDevice(*lines, options.line);
    lines->add_option("--dtr", options.dtr, "Raise or lower DTR: on or off")
        ->transform(oneOf({"on", "off"}))
        ->type_name("LEVEL");
    lines->add_option("--rts", options.rts, "Raise or lower RTS: on or off")
        ->transform(oneOf({"on", "off"}))
        ->type_name("LEVEL");
    lines->add_option("--break", options.breakMs, "Send a break of so many milliseconds")
        ->check(wholeNumber(1, 60000))
        ->type_name("MS");
    lines->add_flag("--watch", options.watch, "Tell each change, break and error with its time, until ended");
    addLine(*lines, options.line);
    lines->footer(footer("", {"brisolt lines /dev/ttyUSB0", "brisolt lines /dev/ttyUSB0 --dtr off --rts on",
                              "brisolt lines /dev/ttyS0 --watch"}));
    return {lines, [] { return runLines(options); }};
}
