#include "line_text.h"

#include <array>
#include <string_view>
#include <utility>

#include <brisolt.h>
#include <brisolt_host.h>

std::string lineText(int32_t port) {
    ComHostLineState state{};
    state.size = sizeof state;
    if (ComHostGetLine(port, &state) != 1)
        return "the settings of the line cannot be read";
    constexpr std::string_view parities = "NOEMS";
    constexpr std::array<std::string_view, 3> stops{"1", "1.5", "2"};
    std::string text = std::to_string(state.baudRate) + " " + std::to_string(state.dataBits);
    text += parities[state.parity < parities.size() ? state.parity : 0];
    text += stops[state.stopBits < stops.size() ? state.stopBits : 0];
    if ((state.flags & COM_HOST_LINE_CTS_OUTPUT) != 0)
        text += ", RTS/CTS";
    if ((state.flags & COM_HOST_LINE_DSR_OUTPUT) != 0)
        text += ", DTR/DSR";
    if ((state.flags & COM_HOST_LINE_XON_OUTPUT) != 0)
        text += ", XON/XOFF";
    return text;
}

std::string linesText(int32_t port) {
    return linesText(port, ComHostGetLines(port));
}

std::string linesText(int32_t port, int32_t lines) {
    if (lines < 0)
        return ComHostGetPortState(port) == COM_HOST_DEVICE_THERE ? "the device has no modem lines"
                                                                  : "the device is not there";
    constexpr std::array<std::pair<std::string_view, int32_t>, 6> names{{{"DTR", COM_HOST_MODEM_DTR},
                                                                         {"RTS", COM_HOST_MODEM_RTS},
                                                                         {"CTS", COM_HOST_MODEM_CTS},
                                                                         {"DSR", COM_HOST_MODEM_DSR},
                                                                         {"DCD", COM_HOST_MODEM_CARRIER},
                                                                         {"RI", COM_HOST_MODEM_RING}}};
    std::string text;
    for (const auto& [name, bit] : names) {
        text += text.empty() ? "" : ", ";
        text += name;
        text += (lines & bit) != 0 ? " on" : " off";
    }
    return text;
}

std::string countersText(int32_t port) {
    ComHostCounters counters{};
    counters.size = sizeof counters;
    if (ComHostGetCounters(port, &counters) != 1)
        return "nothing has been counted";
    const std::array<std::pair<std::string_view, uint32_t>, 11> rest{{{"CTS changes", counters.cts},
                                                                      {"DSR changes", counters.dsr},
                                                                      {"DCD changes", counters.carrier},
                                                                      {"rings", counters.ring},
                                                                      {"breaks", counters.breaks},
                                                                      {"framing errors", counters.framing},
                                                                      {"parity errors", counters.parity},
                                                                      {"overruns", counters.overrun},
                                                                      {"overflows", counters.overflow},
                                                                      {"times gone", counters.gone},
                                                                      {"times back", counters.back}}};
    std::string text =
        "received " + std::to_string(counters.received) + ", sent " + std::to_string(counters.sent);
    for (const auto& [name, count] : rest)
        if (count > 0)
            text += ", " + std::string(name) + " " + std::to_string(count);
    return text;
}
