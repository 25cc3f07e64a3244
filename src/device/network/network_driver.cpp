// The driver behind "tcp:", "rfc2217:", "tls:" and "rfc2217-tls:": lines to other machines.
//
//   tcp, tls     bytes only: settings are taken and go nowhere, there are no lines
//   rfc2217      a serial port at the far end: what it answers is what the line is. A setting waits for its answer;
//                DTR, RTS, break and a purge do not. A purge before a change of settings stays here: at the far end it
//                would take away what a driver would have sent before.
//   a new line   has 9600 baud, 8N1 until it is set, and two seconds for a write
//   write        what the connection has taken is sure to go, and counts as written
//   closing      lets go what was taken, as far as the far end takes it
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <memory>
#include <new>

#include "device/device.h"
#include "device/network/network_device.h"
#include "platform/error_text.h"
#include "platform/mutex.h"

namespace brisolt::network {

namespace {

constexpr std::size_t heldBackSize = 65536;
constexpr std::size_t outgoingSize = 4096;
constexpr uint32_t defaultWriteLimit = 2000; // milliseconds

// Nobody else has the line as yet.
bool setUpRoom(NetworkDevice& device) noexcept LOCKS_UNCHECKED {
    if (device.interruption.descriptor() < 0 || device.news.descriptor() < 0 ||
        device.resumed.descriptor() < 0)
        return false;
    return !device.kind.holdsBack() ||
           (device.heldBack.reserve(heldBackSize) && device.outgoing.reserve(outgoingSize) &&
            device.gate.open(device.stream.socket()));
}

void setDefaults(NetworkDevice& device) noexcept LOCKS_UNCHECKED {
    device.line.size = sizeof device.line;
    device.line.baudRate = 9600;
    device.line.flags = COM_HOST_LINE_BINARY | COM_HOST_LINE_DTR_ON | COM_HOST_LINE_RTS_ON;
    device.line.dataBits = 8;
    device.timeouts.size = sizeof device.timeouts;
    device.timeouts.writeConstant = defaultWriteLimit;
}

/// 1, or a negative error number: then `error` says why.
int32_t connect(NetworkDevice& device, const char* path, std::string& error) {
    if (!readPath(device.kind, path, device.path, error))
        return -EINVAL;
    if (const int32_t result = device.stream.open(device.kind, device.path, error); result < 0)
        return result;
    if (!setUpRoom(device)) {
        error = std::strerror(EMFILE);
        return -EMFILE;
    }
    if (device.kind.telnet)
        return beginRemotePort(device, error);
    if (device.kind.holdsBack())
        takeIn(device); // the handshake may have brought some bytes
    return 1;
}

int32_t open(void* context, const char* path, void** device, int32_t* handle) noexcept try {
    if (path == nullptr || device == nullptr || handle == nullptr)
        return -EINVAL;
    auto line = std::make_unique<NetworkDevice>(*static_cast<const Kind*>(context));
    std::string error;
    setDefaults(*line);
    if (const int32_t result = connect(*line, path, error); result < 0) {
        setErrorTextFrom({"cannot open ", path, ": ", error});
        return result;
    }
    *handle = descriptor(line.get()) >= 0 ? descriptor(line.get()) : line->stream.socket();
    *device = line.release();
    return 1;
} catch (const std::bad_alloc&) {
    return -ENOMEM;
}

void close(void* device) noexcept {
    const std::unique_ptr<NetworkDevice> line(&of(device));
    sendOn(*line);
}

int32_t properties(void*, ComHostProperties* properties) noexcept {
    constexpr uint32_t anyRate = 0x10000000;
    *properties = {};
    properties->size = sizeof *properties;
    properties->packetLength = sizeof *properties;
    properties->packetVersion = 2;
    properties->serviceMask = 1; // a serial line
    properties->maxBaud = anyRate;
    properties->provSubType = 0x100; // over a network
    properties->provCapabilities = COM_HOST_CAN_PARITY_CHECK;
    properties->settableParams = 0x3F; // parity and its check, rate, data and stop bits, handshake
    properties->settableBaud = anyRate;
    return 1;
}

int32_t getLineState(void* device, ComHostLineState* state) noexcept {
    NetworkDevice& line = of(device);
    {
        const MutexLock guard(line.settingsMutex);
        *state = line.line;
    }
    if (line.kind.telnet) {
        const MutexLock guard(line.mutex);
        line.comPort.show(*state);
    }
    return line.gone ? -ENODEV : 1;
}

int32_t setLineState(void* device, const ComHostLineState* state) noexcept {
    NetworkDevice& line = of(device);
    if (line.gone)
        return -ENODEV;
    if (line.kind.telnet)
        if (const int32_t result = setRemoteLine(line, *state); result < 0)
            return result;
    const MutexLock guard(line.settingsMutex);
    line.line = *state;
    return 1;
}

int32_t getTimeouts(void* device, ComHostTimeouts* timeouts) noexcept {
    const MutexLock guard(of(device).settingsMutex);
    *timeouts = of(device).timeouts;
    return 1;
}

int32_t setTimeouts(void* device, const ComHostTimeouts* timeouts) noexcept {
    const MutexLock guard(of(device).settingsMutex);
    of(device).timeouts = *timeouts;
    return 1;
}

int32_t purge(void* device, uint32_t what) noexcept {
    NetworkDevice& line = of(device);
    constexpr uint32_t aborts = COM_HOST_PURGE_TX_ABORT | COM_HOST_PURGE_RX_ABORT;
    if ((what & COM_HOST_PURGE_TX_ABORT) != 0)
        interruptWrites(line);
    if ((what & COM_HOST_PURGE_RX) != 0)
        dropInput(line);
    const auto parts = static_cast<uint8_t>(((what & COM_HOST_PURGE_RX) != 0 ? 1 : 0) |
                                            ((what & COM_HOST_PURGE_TX) != 0 ? 2 : 0));
    if (!line.kind.telnet || (what & aborts) != 0 || parts == 0)
        return 1;
    return tellRemote(line, ComPort::purgeData, {&parts, 1});
}

int32_t controlLine(void* device, uint32_t function) noexcept {
    NetworkDevice& line = of(device);
    if (function == COM_HOST_LINE_RESUME) {
        const MutexLock guard(line.mutex);
        setHeldOff(line, false);
    }
    const ComPort::Message message = ComPort::controlFor(function);
    if (message.size == 0)
        return function == COM_HOST_LINE_RESUME ? 1 : -EINVAL;
    return line.kind.telnet ? tellRemote(line, message.command, message.value()) : 1;
}

int32_t modemStatus(void* device, uint32_t* lines) noexcept {
    NetworkDevice& line = of(device);
    takeIn(line); // where the program watches the descriptor, nobody may have read what tells of them
    const MutexLock guard(line.mutex);
    *lines = line.comPort.modemLines();
    return line.gone ? -ENODEV : 1;
}

int32_t status(void* device, uint32_t wanted, ComHostStatus* status) noexcept {
    NetworkDevice& line = of(device);
    if ((wanted & COM_HOST_WANT_IN) != 0)
        status->inQueue = bytesHeld(line);
    if (line.errors.load(std::memory_order_relaxed) != 0 && (wanted & COM_HOST_WANT_ERRORS) != 0)
        status->errors = line.errors.exchange(0);
    status->outQueue = 0; // what was taken is on its way
    return 1;
}

void cancel(void* device, int32_t on) noexcept {
    NetworkDevice& line = of(device);
    line.cancelled = on != 0;
    if (on == 0)
        return;
    interruptWrites(line);
    line.news.set();
}

int32_t counters(void* device, ComHostCounters* counters) noexcept {
    NetworkDevice& line = of(device);
    if (!line.kind.telnet)
        return -ENOTTY;
    const MutexLock guard(line.mutex);
    const uint32_t size = counters->size;
    *counters = line.comPort.counters();
    counters->size = size;
    counters->gone = line.gone ? 1 : 0;
    return 1;
}

uint32_t watch(void* device, uint32_t events, void (*changed)(void*), void* argument) noexcept {
    NetworkDevice& line = of(device);
    const MutexLock guard(line.watchMutex);
    line.changed = events != 0 ? changed : nullptr;
    line.argument = argument;
    return line.kind.telnet ? events : 0;
}

int32_t state(void* device) noexcept {
    return of(device).gone ? COM_HOST_DEVICE_GONE : COM_HOST_DEVICE_THERE;
}

ComHostDriver driverFor(const Kind& kind) noexcept {
    return {
        .size = sizeof(ComHostDriver),
        .context = const_cast<Kind*>(&kind), // NOLINT: handed back to open alone
        .open = open,
        .adopt = nullptr,
        .close = close,
        .properties = properties,
        .getLineState = getLineState,
        .setLineState = setLineState,
        .getTimeouts = getTimeouts,
        .setTimeouts = setTimeouts,
        .setQueues = nullptr,
        .setEventMask = nullptr,
        .purge = purge,
        .line = controlLine,
        .modemStatus = kind.telnet ? modemStatus : nullptr,
        .status = status,
        .read = read,
        .write = write,
        .flush = flush,
        .wait = wait,
        .cancel = cancel,
        .descriptor = descriptor,
        .counters = counters,
        .watch = watch,
        .unsent = unsent,
        .state = state,
    };
}

constexpr Kind tcpKind{.scheme = "tcp:", .telnet = false, .tls = false};
constexpr Kind tlsKind{.scheme = "tls:", .telnet = false, .tls = true};
constexpr Kind remoteKind{.scheme = "rfc2217:", .telnet = true, .tls = false};
constexpr Kind remoteTlsKind{.scheme = "rfc2217-tls:", .telnet = true, .tls = true};

} // namespace

void setGone(NetworkDevice& device) noexcept {
    device.gone = true;
    device.news.set();
    device.resumed.set(); // nobody is held off by it any more
}

} // namespace brisolt::network

namespace brisolt::drivers {

const ComHostDriver& tcp() noexcept {
    static const ComHostDriver driver = network::driverFor(network::tcpKind);
    return driver;
}

const ComHostDriver& tls() noexcept {
    static const ComHostDriver driver = network::driverFor(network::tlsKind);
    return driver;
}

const ComHostDriver& remotePort() noexcept {
    static const ComHostDriver driver = network::driverFor(network::remoteKind);
    return driver;
}

const ComHostDriver& remotePortTls() noexcept {
    static const ComHostDriver driver = network::driverFor(network::remoteTlsKind);
    return driver;
}

} // namespace brisolt::drivers
