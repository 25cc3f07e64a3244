// brisolt ports: what serial devices this machine has.
#include <algorithm>
#include <array>
#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>

#include <brisolt_host.h>

#include "arguments.h"
#include "commands.h"
#include "failure.h"
#include "interruption.h"
#include "link.h"
#include "output.h"

namespace {

struct PortsOptions {
    std::string pattern;
    bool json = false, watch = false, names = false;
};

using Devices = std::vector<ComHostDeviceInfo>;

bool fits(const ComHostDeviceInfo& info, const std::string& pattern) {
    const auto lower = [](std::string_view text) {
        std::string result(text);
        std::transform(result.begin(), result.end(), result.begin(),
                       [](unsigned char byte) { return std::tolower(byte); });
        return result;
    };
    std::array<char, 16> ids{};
    std::snprintf(ids.data(), ids.size(), "%04x:%04x", static_cast<unsigned>(info.vendorId) & 0xffffU,
                  static_cast<unsigned>(info.productId) & 0xffffU);
    const std::string all =
        lower(std::string(info.path) + "\n" + info.stablePath + "\n" + info.description + "\n" +
              info.manufacturer + "\n" + info.product + "\n" + info.serialNumber + "\n" + info.driver + "\n" +
              info.location + "\n" + (info.vendorId >= 0 ? ids.data() : ""));
    return all.find(lower(pattern)) != std::string::npos;
}

Devices listDevices(const std::string& pattern) {
    Devices devices;
    ComHostDeviceInfo info{};
    info.size = sizeof info;
    int32_t result = ComHostGetDeviceInfo(0, &info);
    for (int32_t index = 1; result == 1; result = ComHostGetDeviceInfo(index++, &info))
        if (fits(info, pattern))
            devices.push_back(info);
    if (result < 0)
        throw Failure(hostReason(result));
    return devices;
}

std::string ids(const ComHostDeviceInfo& info) {
    if (info.vendorId < 0)
        return "-";
    std::array<char, 16> text{};
    std::snprintf(text.data(), text.size(), "%04x:%04x", static_cast<unsigned>(info.vendorId),
                  static_cast<unsigned>(info.productId));
    return text.data();
}

std::string holder(const ComHostDeviceInfo& info) {
    return info.holder > 0 ? std::string(info.holderName) + " (" + std::to_string(info.holder) + ")" : "-";
}

std::string json(const ComHostDeviceInfo& info) {
    const auto number = [](int32_t value) { return value < 0 ? "null" : std::to_string(value); };
    std::string text = "{\"device\": " + jsonString(info.path);
    const std::array<std::pair<std::string_view, const char*>, 7> texts{{{"stable", info.stablePath},
                                                                         {"description", info.description},
                                                                         {"manufacturer", info.manufacturer},
                                                                         {"product", info.product},
                                                                         {"serial", info.serialNumber},
                                                                         {"driver", info.driver},
                                                                         {"location", info.location}}};
    for (const auto& [key, value] : texts)
        text += ", " + jsonString(key) + ": " + (*value == '\0' ? "null" : jsonString(value));
    text += ", \"vid\": " + number(info.vendorId) + ", \"pid\": " + number(info.productId) +
            ", \"interface\": " + number(info.interfaceNumber);
    return text + ", \"holder\": " +
           (info.holder > 0 ? "{\"pid\": " + std::to_string(info.holder) +
                                  ", \"name\": " + jsonString(info.holderName) + "}"
                            : "null") +
           "}";
}

using Row = std::array<std::string, 6>;

Row rowOf(const ComHostDeviceInfo& info) {
    const auto orDash = [](const std::string& text) { return text.empty() ? "-" : text; };
    const std::string product = *info.product != '\0' ? info.product : info.description;
    return {info.path,           ids(info),    orDash(info.serialNumber),
            orDash(info.driver), holder(info), orDash(product)};
}

/// Of a text without wide characters; what is cut off is cut between characters.
std::string cut(const std::string& text, std::size_t width) {
    std::size_t characters = 0;
    for (std::size_t i = 0; i < text.size(); ++i)
        if ((static_cast<unsigned char>(text[i]) & 0xc0) != 0x80 && ++characters > width)
            return text.substr(0, i);
    return text;
}

std::size_t widthOf(const std::string& text) {
    return static_cast<std::size_t>(std::count_if(text.begin(), text.end(), [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xc0) != 0x80;
    }));
}

void printTable(const Devices& devices) {
    std::vector<Row> rows{{"DEVICE", "VID:PID", "SERIAL", "DRIVER", "HELD BY", "PRODUCT"}};
    for (const ComHostDeviceInfo& info : devices) {
        rows.push_back(rowOf(info));
        for (std::string& cell : rows.back())
            cell = printable(cell);
    }
    std::array<std::size_t, 6> widths{};
    for (const Row& row : rows)
        for (std::size_t i = 0; i < row.size(); ++i)
            widths[i] = std::max(widths[i], widthOf(row[i]));
    const std::size_t terminal = columns(STDOUT_FILENO);
    for (const Row& row : rows) {
        std::string line;
        for (std::size_t i = 0; i < row.size(); ++i)
            line += row[i] + (i + 1 < row.size() ? std::string(widths[i] - widthOf(row[i]) + 2, ' ') : "");
        std::puts((terminal > 0 ? cut(line, terminal) : line).c_str());
    }
}

void printJson(const Devices& devices) {
    std::string text = "[";
    for (const ComHostDeviceInfo& info : devices)
        text += (text.size() > 1 ? ",\n " : "\n ") + json(info);
    std::puts((text + (devices.empty() ? "]" : "\n]")).c_str());
}

/// A line for each device that one list has and the other has not.
void tellChanges(const Devices& before, const Devices& now, const PortsOptions& options, bool came) {
    for (const ComHostDeviceInfo& info : now) {
        const auto same = [&info](const ComHostDeviceInfo& other) {
            return std::string_view(info.path) == other.path &&
                   std::string_view(info.location) == other.location &&
                   std::string_view(info.serialNumber) == other.serialNumber;
        };
        if (std::any_of(before.begin(), before.end(), same))
            continue;
        if (options.json)
            std::printf("{\"event\": \"%s\", \"time\": %s, \"device\": %s}\n", came ? "come" : "gone",
                        jsonString(timeOfDay()).c_str(), json(info).c_str());
        else
            std::printf("%s %s  %s  %s\n", timeOfDay().c_str(), came ? "+" : "-",
                        printable(info.path).c_str(), printable(info.description).c_str());
    }
    std::fflush(stdout);
}

int watch(const PortsOptions& options) {
    if (ComHostSetDeviceMessage(0, ComHostThreadId()) != 1)
        throw Failure("this host does not tell when a device comes or goes: " + hostReason(-1));
    Devices devices;
    for (;;) {
        const Devices now = listDevices(options.pattern);
        tellChanges(now, devices, options, false);
        tellChanges(devices, now, options, true);
        devices = now;
        if (std::ferror(stdout) != 0)
            return exitFailed;
        pollfd entry{ComHostMessageDescriptor(), POLLIN, 0};
        poll(&entry, 1, -1);
        takeNews();
        if (interruption::asked())
            return exitInterrupted;
    }
}

int runPorts(const PortsOptions& options) {
    if (options.watch)
        return watch(options);
    const Devices devices = listDevices(options.pattern);
    if (options.names) {
        for (const ComHostDeviceInfo& info : devices)
            std::puts(printable(info.path).c_str());
    } else if (options.json) {
        printJson(devices);
    } else if (!devices.empty()) {
        printTable(devices);
    } else if (options.pattern.empty()) {
        std::puts("No serial devices found. A USB adapter shows up here as soon as it is plugged in.");
    } else {
        complain("no serial device fits \"" + options.pattern + "\"");
    }
    return devices.empty() && !options.pattern.empty() ? exitFailed : exitDone;
}

} // namespace

Command addPorts(CLI::App& app) {
    static PortsOptions options;
    CLI::App* ports = app.add_subcommand("ports", "List the serial devices of this machine. None is opened.");
    ports->add_option(
        "pattern", options.pattern,
        "Only devices in whose path, numbers, product, serial number, driver or socket this occurs");
    auto* json = ports->add_flag("--json", options.json, "As JSON; with --watch an object a line");
    ports->add_flag("--watch", options.watch, "List them, then a line whenever one comes or goes");
    ports->add_flag("--names", options.names, "Their paths alone, for scripts")->excludes(json);
    ports->footer(footer("", {"brisolt ports", "brisolt ports --json ftdi", "brisolt ports --watch"}));
    return {ports, [] { return runPorts(options); }};
}
