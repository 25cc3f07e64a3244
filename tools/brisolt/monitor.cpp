// brisolt monitor: devices at a glance. What comes is counted and thrown away.
#include <array>
#include <chrono>
#include <cstdio>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <poll.h>
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

namespace {

using Clock = std::chrono::steady_clock;

struct MonitorOptions {
    LineOptions line;
    std::vector<std::string> devices;
    int32_t seconds = 0; ///< 0: until ended
    bool json = false, keep = false;
};

constexpr std::size_t blockSize = 16384;

/// One device, and what is known of the second that is over.
struct Watched {
    explicit Watched(const LineOptions& options, const std::string& path) : link(options, path) {
        before.size = now.size = sizeof now;
        ComHostGetCounters(link.number(), &before);
        now = before;
    }
    /// True when there may be more at once.
    bool throwAway() {
        if (gone)
            return false;
        try {
            return !link.read(blockSize).empty();
        } catch (const Failure&) {
            gone = true;
            return false;
        }
    }
    void look() {
        before = now;
        ComHostGetCounters(link.number(), &now);
    }
    uint64_t in() const { return now.received - before.received; }
    uint64_t out() const { return now.sent - before.sent; }
    uint64_t errors() const { return uint64_t{now.framing} + now.parity + now.overrun + now.overflow; }
    std::string_view state() const {
        constexpr std::array<std::string_view, 4> names{"closed", "there", "gone", "waiting"};
        return names[static_cast<std::size_t>(ComHostGetPortState(link.number())) % names.size()];
    }

    Link link;
    ComHostCounters before{}, now{};
    bool gone = false;
};

/// The lines that are on, each always in the same column.
std::string lineLetters(int32_t lines) {
    constexpr std::array<std::pair<std::string_view, int32_t>, 6> names{{{"DTR ", COM_HOST_MODEM_DTR},
                                                                         {"RTS ", COM_HOST_MODEM_RTS},
                                                                         {"CTS ", COM_HOST_MODEM_CTS},
                                                                         {"DSR ", COM_HOST_MODEM_DSR},
                                                                         {"DCD ", COM_HOST_MODEM_CARRIER},
                                                                         {"RI", COM_HOST_MODEM_RING}}};
    if (lines < 0)
        return "-";
    std::string text;
    for (const auto& [name, bit] : names)
        text += (lines & bit) != 0 ? std::string(name) : std::string(name.size(), ' ');
    return text;
}

class Monitor {
public:
    explicit Monitor(const MonitorOptions& options);
    int run();

private:
    void wait(Clock::time_point until);
    void show();
    void showTable();
    void showJson() const;
    bool allGone() const;

    const MonitorOptions& options_;
    std::vector<std::unique_ptr<Watched>> ports_;
    std::size_t width_ = 6;
    bool shown_ = false;
};

Monitor::Monitor(const MonitorOptions& options) : options_(options) {
    for (const std::string& device : options.devices) {
        LineOptions line = options.line;
        line.device = device;
        ports_.push_back(
            std::make_unique<Watched>(line, options.keep ? withOption(device, "keep=yes") : device));
        width_ = std::max(width_, printable(device).size());
    }
}

int Monitor::run() {
    auto next = Clock::now();
    const auto end = next + std::chrono::seconds(options_.seconds);
    while (options_.seconds == 0 || next < end) {
        next += std::chrono::seconds(1);
        wait(next);
        show();
        if (interruption::asked())
            return exitInterrupted;
        if (allGone())
            ports_.front()->link.failGone();
        if (std::ferror(stdout) != 0)
            return exitFailed;
    }
    return exitDone;
}

/// Until then, while everything that comes is read.
void Monitor::wait(Clock::time_point until) {
    while (!interruption::asked()) {
        takeNews();
        bool more = false;
        for (const auto& port : ports_)
            more = port->throwAway() || more;
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
        if (left <= 0)
            return;
        pollfd entry{ComHostMessageDescriptor(), POLLIN, 0};
        poll(&entry, 1, more ? 0 : static_cast<int>(left) + 1);
    }
}

void Monitor::show() {
    for (const auto& port : ports_)
        port->look();
    options_.json ? showJson() : showTable();
    std::fflush(stdout);
}

/// On a terminal in the place of the table before.
void Monitor::showTable() {
    const std::size_t columnsThere = columns(STDOUT_FILENO);
    const auto print = [columnsThere](std::string line) {
        if (columnsThere > 0)
            line = line.substr(0, columnsThere - 1) + "\033[K";
        std::puts(line.c_str());
    };
    std::array<char, 512> line{};
    const int width = static_cast<int>(width_);
    if (columnsThere > 0 && shown_)
        std::printf("\r\033[%zuA", ports_.size() + 1);
    if (columnsThere > 0 || !shown_) {
        std::snprintf(line.data(), line.size(), "%-*s  %-7s  %9s  %9s  %6s  %6s  %s", width, "DEVICE",
                      "STATE", "IN/s", "OUT/s", "ERRORS", "BREAKS", "LINES");
        print(line.data());
    }
    shown_ = true;
    for (const auto& port : ports_) {
        std::snprintf(line.data(), line.size(), "%-*s  %-7s  %9s  %9s  %6llu  %6u  %s", width,
                      printable(port->link.device()).c_str(), std::string(port->state()).c_str(),
                      amount(static_cast<double>(port->in())).c_str(),
                      amount(static_cast<double>(port->out())).c_str(),
                      static_cast<unsigned long long>(port->errors()), port->now.breaks,
                      lineLetters(ComHostGetLines(port->link.number())).c_str());
        print(line.data());
    }
}

void Monitor::showJson() const {
    std::string text = "{\"time\": " + jsonString(timeOfDay()) + ", \"ports\": [";
    for (const auto& port : ports_) {
        const ComHostCounters& now = port->now;
        const int32_t lines = ComHostGetLines(port->link.number());
        text += text.back() == '[' ? "{" : ", {";
        text +=
            "\"device\": " + jsonString(port->link.device()) + ", \"state\": " + jsonString(port->state());
        const std::array<std::pair<std::string_view, uint64_t>, 11> numbers{{{"in_per_second", port->in()},
                                                                             {"out_per_second", port->out()},
                                                                             {"received", now.received},
                                                                             {"sent", now.sent},
                                                                             {"framing", now.framing},
                                                                             {"parity", now.parity},
                                                                             {"overrun", now.overrun},
                                                                             {"overflow", now.overflow},
                                                                             {"breaks", now.breaks},
                                                                             {"gone", now.gone},
                                                                             {"back", now.back}}};
        for (const auto& [key, value] : numbers)
            text += ", " + jsonString(key) + ": " + std::to_string(value);
        text +=
            ", \"lines\": " + (lines < 0 ? "null" : jsonString(linesText(port->link.number(), lines))) + "}";
    }
    std::puts((text + "]}").c_str());
}

bool Monitor::allGone() const {
    for (const auto& port : ports_)
        if (!port->gone)
            return false;
    return true;
}

int runMonitor(const MonitorOptions& options) {
    return Monitor(options).run();
}

} // namespace

Command addMonitor(CLI::App& app) {
    static MonitorOptions options;
    CLI::App* monitor = app.add_subcommand(
        "monitor",
        "Open devices, read and throw away: a line for each, every second, with its bytes each way, lines "
        "and errors");
    monitor
        ->add_option("device", options.devices,
                     "Device files, usb:VID:PID or SCHEME:REST, with ?KEY=VALUE options")
        ->required()
        ->check(name());
    addLine(*monitor, options.line);
    monitor->add_flag("--json", options.json, "A line of JSON each second");
    monitor->add_flag("--keep", options.keep, "Wait for devices that go away until they are back");
    monitor->add_option("--seconds", options.seconds, "End after so many seconds (0: run until ended)")
        ->check(wholeNumber(0, 1000000000))
        ->type_name("S")
        ->capture_default_str();
    monitor->footer(footer("", {"brisolt monitor /dev/ttyUSB0",
                                "brisolt monitor --keep /dev/ttyUSB0 /dev/ttyUSB1 -b 57600",
                                "brisolt monitor --json --seconds 10 /dev/ttyS0"}));
    return {monitor, [] { return runMonitor(options); }};
}
