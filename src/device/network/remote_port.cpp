// Requests to a remote serial port. Whoever asks waits for the answer himself: what comes meanwhile is put where the
// reader finds it, and when another thread takes the answer in, that one wakes him.
#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <utility>

#include "device/network/network_device.h"
#include "platform/error_text.h"
#include "platform/mutex.h"

namespace brisolt::network {

namespace {

/// What whoever waits for an answer looks at.
struct Outlook {
    Telnet::ComPort agreement;
    SettingBits due, refused;
    bool sends, takes; ///< something is left to send; there is room for what comes
};

Outlook lookAt(NetworkDevice& device) noexcept {
    const MutexLock guard(device.mutex);
    return {.agreement = device.telnet.comPort(),
            .due = device.comPort.due(),
            .refused = device.comPort.refused(),
            .sends = device.roomWatched,
            .takes = device.heldBack.size() < device.heldBack.capacity()};
}

void sleep(NetworkDevice& device, const Outlook& outlook, const clock::Deadline& until) noexcept {
    const bool looks = outlook.takes || outlook.sends;
    streams::wait({.socket = looks ? device.stream.socket() : -1,
                   .forRead = outlook.takes,
                   .forWrite = outlook.sends,
                   .signal = device.news.descriptor(),
                   .milliseconds = until.realMillisecondsLeft()});
    if (outlook.sends)
        sendOn(device);
}

/// Waits until `done` says so. 0, or why it is over before.
template <class Done> int32_t await(NetworkDevice& device, Done done) noexcept {
    const clock::Deadline until = clock::Deadline::in(device.path.answerMs);
    for (;;) {
        device.news.clear();
        takeIn(device);
        const Outlook outlook = lookAt(device);
        if (done(outlook))
            return 0;
        if (device.gone || device.over)
            return ENODEV;
        if (device.cancelled)
            return ECANCELED;
        if (until.passed())
            return ETIMEDOUT;
        sleep(device, outlook, until);
    }
}

bool put(NetworkDevice& device, uint8_t command, std::span<const uint8_t> value) noexcept {
    const MutexLock guard(device.mutex);
    const bool fits = Telnet::put(device.outgoing, command, value);
    sendOutgoing(device);
    return fits;
}

/// All at once: they are of different kinds. 0, or an error number.
int32_t ask(NetworkDevice& device, SettingBits settings, const ComPort::Values& values,
            SettingBits answered) noexcept {
    bool fits = true;
    {
        const MutexLock guard(device.mutex);
        for (uint8_t i = 0; i < settingCount; ++i) {
            const auto setting = static_cast<Setting>(i);
            if ((settings & bitOf(setting)) == 0)
                continue;
            const ComPort::Message message = device.comPort.ask(setting, values[i]);
            fits = Telnet::put(device.outgoing, message.command, message.value()) && fits;
        }
        sendOutgoing(device);
    }
    if (!fits)
        return ENOBUFS;
    return await(device, [answered](const Outlook& seen) { return (seen.due & answered) == 0; });
}

/// "baud rate 9600, parity E": those of the settings, as they were asked for or answered.
std::string list(const ComPort& port, SettingBits settings, std::string (ComPort::*describe)(Setting) const) {
    std::string text;
    for (uint8_t i = 0; i < settingCount; ++i)
        if (const auto setting = static_cast<Setting>(i); (settings & bitOf(setting)) != 0)
            text.append(text.empty() ? "" : ", ").append((port.*describe)(setting));
    return text;
}

void tellRefused(const Path& path, const ComPort& port, SettingBits refused) noexcept try {
    setErrorText(path.whole + ": the far end runs at " + list(port, refused, &ComPort::describeAnswer) +
                 " when " + list(port, refused, &ComPort::describe) + " is asked for");
} catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): then there is no text
}

void tellSilent(const Path& path, const ComPort& port, SettingBits silent, int32_t error) noexcept try {
    const std::string what = " when asked for " + list(port, silent, &ComPort::describe);
    setErrorText(path.whole + ": the far end " +
                 (error == ETIMEDOUT
                      ? "does not answer" + what + " (within " + std::to_string(path.answerMs) + " ms)"
                  : error == ENODEV ? "has closed the connection" + what
                                    : "has not answered" + what + ": " + std::strerror(error)));
} catch (const std::bad_alloc&) { // NOLINT(bugprone-empty-catch): then there is no text
}

/// Ends the requests that were made. 0, or an error number, which the error text explains.
int32_t conclude(NetworkDevice& device, int32_t error, SettingBits mayBeSilent,
                 SettingBits mayDiffer) noexcept {
    const MutexLock guard(device.mutex);
    const bool wasAsked = error == 0 || error == ETIMEDOUT;
    const SettingBits silent = device.comPort.due() & ~(wasAsked ? mayBeSilent : 0);
    const SettingBits refused = device.comPort.refused() & ~mayDiffer;
    if (refused != 0)
        tellRefused(device.path, device.comPort, refused);
    else if (silent != 0)
        tellSilent(device.path, device.comPort, silent, error);
    device.comPort.giveUp();
    return refused != 0 ? EINVAL : silent != 0 ? std::max(error, 1) : 0;
}

} // namespace

int32_t beginRemotePort(NetworkDevice& device, std::string& error) {
    {
        const MutexLock guard(device.mutex);
        device.telnet.offer(device.outgoing);
        sendOutgoing(device);
    }
    Telnet::ComPort agreement = Telnet::ComPort::asked;
    const int32_t failed = await(device, [&agreement](const Outlook& seen) {
        agreement = seen.agreement;
        return agreement != Telnet::ComPort::asked || !seen.takes;
    });
    if (agreement == Telnet::ComPort::agreed) {
        constexpr uint8_t everyError = 0x1E, everyLine = 0xFF;
        put(device, ComPort::setLineMask, {&everyError, 1});
        put(device, ComPort::setModemMask, {&everyLine, 1});
        put(device, ComPort::notifyModemState, {}); // how they are now
        return 1;
    }
    if (failed == ENODEV)
        error = "the far end has closed the connection";
    else
        error =
            "the far end is no remote serial port: it does not speak telnet with the com-port option (tcp: "
            "takes its bytes as they are)";
    return failed != 0 ? -failed : -EOPNOTSUPP;
}

namespace {

/// What the line is, as far as it is known.
ComPort::Values valuesNow(NetworkDevice& device) {
    ComHostLineState state{};
    {
        const MutexLock guard(device.settingsMutex);
        state = device.line;
    }
    const MutexLock guard(device.mutex);
    device.comPort.show(state);
    ComPort::Values values{};
    std::string error;
    ComPort::valuesOf(state, values, error);
    return values;
}

/// Whoever was not answered goes back to what was before: that is said, and not waited for a second time.
int32_t goBack(NetworkDevice& device, const ComPort::Values& values, SettingBits differ) noexcept {
    ask(device, differ, values, 0);
    const MutexLock guard(device.mutex);
    device.comPort.giveUp();
    return -ETIMEDOUT;
}

} // namespace

int32_t setRemoteLine(NetworkDevice& device, const ComHostLineState& state) noexcept try {
    ComPort::Values values{};
    std::string error;
    if (!ComPort::valuesOf(state, values, error)) {
        setErrorText(device.path.whole + ": " + error);
        return -EINVAL;
    }
    const MutexLock request(device.requestMutex);
    const ComPort::Values before = valuesNow(device);
    const std::optional<ComPort::Values> wayBack = std::exchange(device.wayBack, std::nullopt);
    SettingBits differ = 0;
    bool first = false;
    bool flows = false;
    {
        const MutexLock guard(device.mutex);
        differ = device.comPort.differing(values);
        first = !device.comPort.isSet();
        flows = device.comPort.flows();
    }
    if (values == wayBack)
        return goBack(device, values, differ);
    // Some servers add one flow control to the other unless they are told to have none.
    if ((differ & flowSettings) != 0 && flows && values[flowOut] != ComPort::noFlow) {
        ComPort::Values none = values;
        none[flowOut] = ComPort::noFlow;
        ask(device, bitOf(flowOut), none, bitOf(flowOut));
        conclude(device, 0, flowSettings, flowSettings);
        differ |= bitOf(flowOut);
    }
    // Flow control is asked for first and needs no answer: on a new line the answers to the rest come behind it.
    const SettingBits needed = first ? differ & ~flowSettings : differ;
    // One that differs by direction is a rare thing, of which silence says that it is not there.
    const bool rareFlow = (differ & bitOf(flowIn)) != 0;
    const int32_t failed = ask(device, differ, values, needed);
    const int32_t result = conclude(device, failed, rareFlow ? 0 : flowSettings, first ? flowSettings : 0);
    if (result == ETIMEDOUT)
        device.wayBack = before;
    return result == 0 ? 1 : -result;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

int32_t tellRemote(NetworkDevice& device, uint8_t command, std::span<const uint8_t> value) noexcept {
    if (device.gone)
        return -ENODEV;
    return put(device, command, value) ? 1 : -ENOBUFS;
}

} // namespace brisolt::network
