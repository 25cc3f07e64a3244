#include "device/network/com_port.h"

#include <algorithm>
#include <cstdlib>
#include <iterator>
#include <utility>

namespace brisolt::network {

namespace {

// Values of the option beside those that are numbers by themselves.
constexpr uint32_t outNone = ComPort::noFlow, outXon = 2, outRts = 3, outCarrier = 17, outDsr = 19;
constexpr uint32_t inNone = 14, inXon = 15, inRts = 16, inDtr = 18;

/// A rate that is near enough for the far end to be understood: hosts tell what they really run at.
bool isNear(uint32_t asked, uint32_t answered) noexcept {
    const int64_t difference = std::abs(int64_t{asked} - int64_t{answered});
    return difference * 100 <= int64_t{asked} * 3;
}
bool isSame(uint32_t asked, uint32_t answered) noexcept {
    return asked == answered;
}

/// A flow control of one direction: the flag of a line state and the value of the option.
struct Flow {
    uint32_t flag, value;
};
constexpr Flow outFlows[] = {{0, outNone},
                             {COM_HOST_LINE_XON_OUTPUT, outXon},
                             {COM_HOST_LINE_CTS_OUTPUT, outRts},
                             {COM_HOST_LINE_DSR_OUTPUT, outDsr}};
constexpr Flow inFlows[] = {{0, inNone},
                            {COM_HOST_LINE_XON_INPUT, inXon},
                            {COM_HOST_LINE_RTS_HANDSHAKE, inRts},
                            {COM_HOST_LINE_DTR_HANDSHAKE, inDtr}};

constexpr uint32_t flagsOf(std::span<const Flow> flows) noexcept {
    uint32_t flags = 0;
    for (const Flow& flow : flows)
        flags |= flow.flag;
    return flags;
}
/// 0: the option has no value for that.
uint32_t valueOf(std::span<const Flow> flows, uint32_t flags) noexcept {
    for (const Flow& flow : flows)
        if (flow.flag == (flags & flagsOf(flows)))
            return flow.value;
    return 0;
}
void showFlow(std::span<const Flow> flows, ComHostLineState& state, uint32_t value) noexcept {
    state.flags &= ~flagsOf(flows);
    for (const Flow& flow : flows)
        if (flow.value == value)
            state.flags |= flow.flag;
}

// The option counts 1, 2, 1.5.
constexpr uint8_t stopCodes[] = {1, 3, 2};
uint32_t stopOf(const ComHostLineState& state) noexcept {
    return state.stopBits < std::size(stopCodes) ? stopCodes[state.stopBits] : 0;
}
void showStop(ComHostLineState& state, uint32_t value) noexcept {
    for (std::size_t i = 0; i < std::size(stopCodes); ++i)
        if (stopCodes[i] == value)
            state.stopBits = static_cast<uint8_t>(i);
}

/// All there is to know of a setting.
struct Row {
    Setting setting;
    const char* name;
    uint8_t command;
    std::size_t bytes; ///< of its value
    uint32_t least, most;
    bool (*matches)(uint32_t asked, uint32_t answered) noexcept;
    uint32_t (*of)(const ComHostLineState& state) noexcept;
    void (*show)(ComHostLineState& state, uint32_t value) noexcept;
};
using Line = ComHostLineState;
constexpr Row rows[settingCount] = {
    {flowOut, "flow control", ComPort::setControl, 1, outNone, outDsr, isSame,
     [](const Line& s) noexcept { return valueOf(outFlows, s.flags); },
     [](Line& s, uint32_t value) noexcept { showFlow(outFlows, s, value); }},
    {flowIn, "flow control of what comes", ComPort::setControl, 1, inNone, inDtr, isSame,
     [](const Line& s) noexcept { return valueOf(inFlows, s.flags); },
     [](Line& s, uint32_t value) noexcept { showFlow(inFlows, s, value); }},
    {rate, "baud rate", ComPort::setRate, 4, 1, UINT32_MAX, isNear,
     [](const Line& s) noexcept { return s.baudRate; },
     [](Line& s, uint32_t value) noexcept { s.baudRate = value; }},
    {dataBits, "data bits", ComPort::setDataBits, 1, 5, 8, isSame,
     [](const Line& s) noexcept { return uint32_t{s.dataBits}; },
     [](Line& s, uint32_t value) noexcept { s.dataBits = static_cast<uint8_t>(value); }},
    {parity, "parity", ComPort::setParity, 1, 1, 5, isSame,
     [](const Line& s) noexcept { return uint32_t{s.parity} + 1; },
     [](Line& s, uint32_t value) noexcept { s.parity = static_cast<uint8_t>(value - 1); }},
    {stopBits, "stop bits", ComPort::setStopBits, 1, 1, 3, isSame, stopOf, showStop},
};

/// The answers to one command are told apart by their values.
const Row* rowOf(uint8_t command, uint32_t value) noexcept {
    const auto isIn = [value](const Row& row) { return value >= row.least && value <= row.most; };
    if (command == ComPort::setControl) {
        if (value <= outRts || value == outCarrier || value == outDsr)
            return value >= outNone ? &rows[flowOut] : nullptr;
        return isIn(rows[flowIn]) ? &rows[flowIn] : nullptr;
    }
    for (const Row& row : rows)
        if (row.command == command && isIn(row))
            return &row;
    return nullptr;
}

uint32_t numberOf(std::span<const uint8_t> bytes) noexcept {
    uint32_t number = 0;
    for (uint8_t byte : bytes)
        number = number << 8 | byte;
    return number;
}

/// A flow control that holds both directions off the same way is one value of the option.
bool coversBoth(uint32_t out, uint32_t in) noexcept {
    return (out == outNone && in == inNone) || (out == outXon && in == inXon) ||
           (out == outRts && in == inRts);
}

constexpr std::pair<uint32_t, uint8_t> controls[] = {
    {COM_HOST_LINE_SET_BREAK, 5}, {COM_HOST_LINE_CLEAR_BREAK, 6}, {COM_HOST_LINE_SET_DTR, 8},
    {COM_HOST_LINE_CLEAR_DTR, 9}, {COM_HOST_LINE_SET_RTS, 11},    {COM_HOST_LINE_CLEAR_RTS, 12},
};

std::string textOf(Setting setting, uint32_t value) {
    if (setting == stopBits && value <= 3)
        return std::string(rows[setting].name) + (value == 1 ? " 1" : value == 2 ? " 2" : " 1.5");
    if (setting == parity && value >= 1 && value <= 5)
        return std::string(rows[setting].name) + ' ' + "NOEMS"[value - 1];
    return std::string(rows[setting].name) + ' ' + std::to_string(value);
}

} // namespace

bool ComPort::valuesOf(const ComHostLineState& state, Values& values, std::string& error) {
    for (const Row& row : rows) {
        values[row.setting] = row.of(state);
        if (values[row.setting] >= row.least && values[row.setting] <= row.most)
            continue;
        error = "a remote port has no such " + std::string(row.name) +
                (row.setting == dataBits ? " (possible: 5 to 8)" : "");
        return false;
    }
    return true;
}

void ComPort::show(ComHostLineState& state) const noexcept {
    for (const Row& row : rows)
        if (settings_[row.setting].known)
            row.show(state, settings_[row.setting].value);
}

SettingBits ComPort::differing(const Values& values) const noexcept {
    SettingBits differ = 0;
    for (const Row& row : rows) {
        const State& now = settings_[row.setting];
        const uint32_t wanted = values[row.setting];
        const bool asAsked = now.asked == wanted && row.matches(wanted, now.value);
        if (!now.known || (now.value != wanted && !asAsked))
            differ |= bitOf(row.setting);
    }
    if ((differ & flowSettings) != 0 && coversBoth(values[flowOut], values[flowIn]))
        differ = (differ & ~flowSettings) | bitOf(flowOut);
    return differ;
}

ComPort::Message ComPort::ask(Setting setting, uint32_t value) noexcept {
    State& now = settings_[setting];
    now.asked = value;
    ++now.owed;
    due_ |= bitOf(setting);
    refused_ &= ~bitOf(setting);
    Message message{.command = rows[setting].command, .bytes = {}, .size = rows[setting].bytes};
    for (std::size_t i = message.size; i > 0; --i, value >>= 8)
        message.bytes[i - 1] = static_cast<uint8_t>(value);
    return message;
}

ComPort::Message ComPort::controlFor(uint32_t lineFunction) noexcept {
    for (const auto& [function, value] : controls)
        if (function == lineFunction)
            return {.command = setControl, .bytes = {value}, .size = 1};
    return {.command = setControl, .bytes = {}, .size = 0};
}

void ComPort::giveUp() noexcept {
    for (const Row& row : rows) {
        State& now = settings_[row.setting];
        if ((due_ & bitOf(row.setting)) == 0)
            continue;
        now.known = (bitOf(row.setting) & flowSettings) != 0; // which is so until something else is told
        now.value = now.asked;
    }
    due_ = 0;
    refused_ = 0;
}

std::string ComPort::describe(Setting setting) const {
    return textOf(setting, settings_[setting].asked);
}

std::string ComPort::describeAnswer(Setting setting) const {
    return textOf(setting, settings_[setting].value);
}

/// Whether it is the one that is waited for.
bool ComPort::answer(Setting setting, uint32_t value) noexcept {
    const Row& row = rows[setting];
    State& now = settings_[setting];
    now.owed -= now.owed > 0 ? 1 : 0;
    now.known = true;
    now.value = value;
    if (setting == flowOut && coversBoth(value, value + (inNone - outNone))) {
        settings_[flowIn].known = true; // one value for both directions
        settings_[flowIn].value = value + (inNone - outNone);
    }
    if ((due_ & bitOf(setting)) == 0)
        return false;
    const bool matches = row.matches(now.asked, value);
    if (!matches && now.owed > 0)
        return false; // a late one
    due_ &= ~bitOf(setting);
    if (!matches)
        refused_ |= bitOf(setting);
    return true;
}

ComPort::News ComPort::hear(std::span<const uint8_t> message) noexcept {
    News news;
    const uint8_t command = message[0] >= fromServer ? static_cast<uint8_t>(message[0] - fromServer) : 0;
    const std::span<const uint8_t> value = message.subspan(1);
    switch (command) {
    case setRate:
    case setDataBits:
    case setParity:
    case setStopBits:
    case setControl: {
        const std::size_t size = command == setRate ? 4 : 1;
        if (value.size() < size) // some servers send more than the value
            break;
        const uint32_t number = numberOf(value.first(size));
        if (const Row* row = rowOf(command, number))
            news.answered = answer(row->setting, number);
        break;
    }
    case suspend:
    case resume:
        suspended_ = command == suspend;
        news.flow = true;
        break;
    case notifyLineState:
    case notifyModemState: {
        if (value.size() != 1)
            break;
        const ComHostCounters before = counters_;
        if (command == notifyLineState)
            hearLineState(value[0]);
        else
            hearModemState(value[0]);
        news.counters = !std::equal(&before.cts, &before.gone, &counters_.cts);
        break;
    }
    default: break; // answers that nobody waits for
    }
    return news;
}

void ComPort::hearLineState(uint8_t state) noexcept {
    static constexpr struct {
        uint8_t bit;
        uint32_t ComHostCounters::*counter;
        uint32_t error;
    } errors[] = {
        {0x02, &ComHostCounters::overrun, COM_HOST_ERROR_OVERRUN},
        {0x04, &ComHostCounters::parity, COM_HOST_ERROR_PARITY},
        {0x08, &ComHostCounters::framing, COM_HOST_ERROR_FRAMING},
        {0x10, &ComHostCounters::breaks, COM_HOST_ERROR_BREAK},
    };
    for (const auto& [bit, counter, error] : errors)
        if ((state & bit) != 0) {
            ++(counters_.*counter);
            errors_ |= error;
        }
}

// The first one tells how the lines are. A line that is as it was although it has changed has changed twice.
void ComPort::hearModemState(uint8_t state) noexcept {
    static constexpr struct {
        uint8_t change;
        uint32_t line;
        uint32_t ComHostCounters::*counter;
    } lines[] = {
        {0x01, COM_HOST_MODEM_CTS, &ComHostCounters::cts},
        {0x02, COM_HOST_MODEM_DSR, &ComHostCounters::dsr},
        {0x08, COM_HOST_MODEM_CARRIER, &ComHostCounters::carrier},
    };
    constexpr uint8_t ringEnded = 0x04;
    constexpr uint32_t inputs =
        COM_HOST_MODEM_CTS | COM_HOST_MODEM_DSR | COM_HOST_MODEM_RING | COM_HOST_MODEM_CARRIER;
    const uint32_t now = state & inputs; // the same bits
    const uint32_t changed = now ^ modemLines_;
    const bool first = !std::exchange(modemKnown_, true);
    const bool stoppedRinging = (changed & COM_HOST_MODEM_RING) != 0 && (now & COM_HOST_MODEM_RING) == 0;
    modemLines_ = now;
    if (first)
        return;
    for (const auto& [change, line, counter] : lines)
        counters_.*counter += (changed & line) != 0 ? 1U : (state & change) != 0 ? 2U : 0U;
    counters_.ring += stoppedRinging || (state & ringEnded) != 0 ? 1U : 0U;
}

} // namespace brisolt::network
