// What a path may ask of a tty beside its settings: bytes handed over one by one, and the kernel's half duplex.
#include <cerrno>
#include <cstring>
#include <string>

#include <fcntl.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include "platform/error_text.h"
#include "platform/posix/kernel_files.h"
#include "platform/posix/tty/tty_device.h"

namespace brisolt::tty {
namespace {

/// How long an adapter collects bytes before it hands them over, in milliseconds, where it lets that be set.
std::string latencyTimerFile(const TtyDevice& tty) {
    const std::string device = kernelFiles::resolved(tty.path);
    return "/sys/class/tty/" + device.substr(device.rfind('/') + 1) + "/device/latency_timer";
}

bool writeFile(const std::string& file, const std::string& text) noexcept {
    const int32_t descriptor = ::open(file.c_str(), O_WRONLY | O_CLOEXEC);
    if (descriptor < 0)
        return false;
    const bool written = ::write(descriptor, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    ::close(descriptor);
    return written;
}

// A device that cannot is as good as it gets.
void applyLowLatency(TtyDevice& tty) {
    serial_struct serial{};
    if (ioctl(tty.descriptor, TIOCGSERIAL, &serial) == 0 && (serial.flags & ASYNC_LOW_LATENCY) == 0) {
        const int32_t before = serial.flags;
        serial.flags |= ASYNC_LOW_LATENCY;
        if (ioctl(tty.descriptor, TIOCSSERIAL, &serial) == 0)
            tty.undo.serialFlags = before;
    }
    const std::string file = latencyTimerFile(tty);
    const std::string before = kernelFiles::firstLine(file);
    if (!before.empty() && before != "1" && writeFile(file, "1"))
        tty.undo.latencyTimer = before;
}

void setFlag(uint32_t& flags, uint32_t flag, bool on) noexcept {
    flags = on ? flags | flag : flags & ~flag;
}

int32_t refuse(const TtyDevice& tty, const std::string& what, int32_t error) {
    setErrorText("cannot open " + tty.path + " with " + what);
    return error;
}

void ask(serial_rs485& bus, const Rs485Options& wanted) noexcept {
    setFlag(bus.flags, SER_RS485_ENABLED, true);
    setFlag(bus.flags, SER_RS485_RTS_ON_SEND, wanted.rtsHigh);
    setFlag(bus.flags, SER_RS485_RTS_AFTER_SEND, !wanted.rtsHigh);
    setFlag(bus.flags, SER_RS485_RX_DURING_TX, wanted.echo);
    if (wanted.resistor != Rs485Resistor::leave)
        setFlag(bus.flags, SER_RS485_TERMINATE_BUS, wanted.resistor == Rs485Resistor::on);
    bus.delay_rts_before_send = wanted.beforeMs;
    bus.delay_rts_after_send = wanted.afterMs;
}

// Some drivers tell of a mode that they do not have; only the setting shows. What they do not have of it they leave
// out or cut down, and a bus on which others rely on it would not work.
int32_t applyRs485(TtyDevice& tty) {
    serial_rs485 bus{};
    const bool readable = ioctl(tty.descriptor, TIOCGRS485, &bus) == 0;
    const serial_rs485 before = bus;
    ask(bus, tty.options.rs485);
    if (ioctl(tty.descriptor, TIOCSRS485, &bus) != 0) {
        const int32_t error = errno;
        return refuse(tty,
                      std::string("rs485=driver: its driver has no RS-485 mode (") + std::strerror(error) +
                          "); rs485=rts may do",
                      error);
    }
    if (readable)
        tty.undo.rs485 = before;
    ioctl(tty.descriptor, TIOCGRS485, &bus); // a driver that cannot say has written it back above
    const std::string otherwise = grantedOtherwise(tty.options.rs485, bus);
    if (otherwise.empty())
        return 0;
    if (readable)
        ioctl(tty.descriptor, TIOCSRS485, &before);
    return refuse(tty, "rs485=driver as asked: its driver can do it with " + otherwise, EINVAL);
}

int32_t apply(TtyDevice& tty) {
    if (tty.options.rs485.mode == Rs485Mode::rts && !tty.hasModemLines)
        return refuse(tty, "rs485=rts: it has no RTS line", EINVAL);
    if (tty.options.lowLatency)
        applyLowLatency(tty);
    return tty.options.rs485.mode == Rs485Mode::driver ? applyRs485(tty) : 0;
}

} // namespace

std::string grantedOtherwise(const Rs485Options& wanted, const serial_rs485& granted) {
    const auto has = [&granted](uint32_t flag) { return (granted.flags & flag) != 0; };
    if (!has(SER_RS485_ENABLED))
        return "rs485=off";
    const struct {
        bool asGranted;
        std::string granted;
    } parts[] = {
        {has(SER_RS485_RTS_ON_SEND) == wanted.rtsHigh,
         has(SER_RS485_RTS_ON_SEND) ? "rs485-rts=high" : "rs485-rts=low"},
        {has(SER_RS485_RX_DURING_TX) == wanted.echo,
         has(SER_RS485_RX_DURING_TX) ? "rs485-echo=yes" : "rs485-echo=no"},
        {wanted.resistor == Rs485Resistor::leave ||
             has(SER_RS485_TERMINATE_BUS) == (wanted.resistor == Rs485Resistor::on),
         has(SER_RS485_TERMINATE_BUS) ? "rs485-termination=on" : "rs485-termination=off"},
        {granted.delay_rts_before_send == wanted.beforeMs,
         "rs485-before=" + std::to_string(granted.delay_rts_before_send)},
        {granted.delay_rts_after_send == wanted.afterMs,
         "rs485-after=" + std::to_string(granted.delay_rts_after_send)},
    };
    std::string text;
    for (const auto& part : parts)
        if (!part.asGranted)
            text.append(text.empty() ? "" : ", ").append(part.granted);
    return text;
}

int32_t applyOptions(TtyDevice& tty) noexcept try { return apply(tty); } catch (...) {
    return ENOMEM;
}

void undoOptions(TtyDevice& tty) noexcept try {
    if (!tty.options.restore)
        return;
    serial_struct serial{};
    if (tty.undo.serialFlags.has_value() && ioctl(tty.descriptor, TIOCGSERIAL, &serial) == 0) {
        serial.flags = *tty.undo.serialFlags;
        ioctl(tty.descriptor, TIOCSSERIAL, &serial);
    }
    if (tty.undo.rs485.has_value())
        ioctl(tty.descriptor, TIOCSRS485, &*tty.undo.rs485);
    if (!tty.undo.latencyTimer.empty())
        writeFile(latencyTimerFile(tty), tty.undo.latencyTimer);
} catch (...) { // NOLINT(bugprone-empty-catch): without memory it stays as it is
}

} // namespace brisolt::tty
