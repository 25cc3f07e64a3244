#include <algorithm>
#include <cstring>
#include <string>

#include "device/device.h"
#include "platform/error_text.h"
#include "port/device_setup.h"
#include "port/framing_text.h"
#include "port/open_close.h"
#include "port/opening.h"
#include "port/port_table.h"
#include "port/trace.h"

namespace brisolt {

namespace {

constexpr uint32_t leastRing = 2048;

bool isDirectName(const OpenArguments& arguments) noexcept {
    return arguments.deviceName != nullptr && std::strcmp(arguments.deviceName, "THUNK") == 0;
}

void storeArguments(PortRecord& record, const OpenArguments& arguments) noexcept {
    record.baudRate = arguments.baudRate;
    record.parityCode = arguments.parity;
    record.stopCode = arguments.stopBits;
    record.dataBits = arguments.dataBits;
    record.rxBufSize = static_cast<int32_t>(std::max(arguments.rxSize, leastRing));
    record.txBufSize = static_cast<int32_t>(std::max(arguments.txSize, leastRing));
}

/// The port's device under its first name, for ports 1 to 9 also under the second; or any other.
int32_t openDevice(Port& port, const char* wanted) {
    int32_t number = port.number;
    std::string path = "\\\\.\\COM" + std::to_string(number);
    std::string alternative = number < 10 ? "COM" + std::to_string(number) : "COM";
    trace(port, "CreateFile Call ComString:<%s> ", path.c_str());
    if (wanted != nullptr)
        return port.device.open(wanted) > 0 ? 0 : -25;
    int32_t result = port.device.open(path);
    if (result > 0)
        return 0;
    trace(port, "INVALID_HANDLE_VALUE return from CreateFile - GetLastError Code:%ld",
          -static_cast<long>(result));
    trace(port, "Trying alternative string %s", alternative.c_str());
    if (number < 10)
        result = port.device.open(alternative);
    if (result > 0)
        return 0;
    trace(port, "INVALID_HANDLE_VALUE return from CreateFile - GetLastError Code:%ld  Aborting",
          -static_cast<long>(result));
    return -25;
}

int32_t adoptDevice(Port& port, int32_t handle) {
    trace(port, "Opening Port: %d", port.number.load());
    trace(port, "Return from CreateFile: %d", handle);
    return port.device.adopt(handle) > 0 ? 0 : -25;
}

int32_t setUpDevice(Port& port, const OpenArguments& arguments, Opened opened) noexcept {
    ComHostProperties properties{};
    properties.size = sizeof properties;
    if (int32_t code = readProperties(port, opened, properties); code < 0)
        return code;
    if (int32_t code = setUpQueues(port, opened); code < 0)
        return code;
    return setUpLine(port, arguments, opened, properties);
}

/// What people want today, before anybody can find the port.
void makeReady(Port& port) noexcept {
    port.record->threadSleep = 0;
    port.lossless = 1;
    port.wakeThread();
}

/// A device that cannot go at a rate stays at the one it had, and everything on its line would be garbage. (Framings are
/// not looked at: a pseudo terminal has but one.)
int32_t checkRate(Port& port, const OpenArguments& arguments) {
    const uint32_t real = port.lineStateCopy().baudRate;
    if (!rateIsOff(static_cast<uint32_t>(arguments.baudRate), real))
        return 0;
    setErrorText(std::string("cannot open ") + arguments.path + ": the device runs at " +
                 std::to_string(real) + " baud when " + std::to_string(arguments.baudRate) + " is asked for");
    return -36;
}

/// What all opens do once their device is there.
int32_t finishOpen(Opening& opening, const OpenArguments& arguments, Opened opened) {
    Port& port = opening.port();
    storeArguments(*port.record, arguments);
    int32_t code = setUpDevice(port, arguments, opened);
    if (code >= 0 && arguments.path != nullptr)
        code = checkRate(port, arguments);
    if (code < 0)
        return code;
    setDefaults(*port.record, port.number, arguments.deviceName, opened);
    port.record->ioMode = opened == Opened::own && isDirectName(arguments) ? ioDirect : ioThreaded;
    code = startPort(port);
    if (opened == Opened::own)
        trace(port, code < 0 ? "_beginthread Failure - Aborting" : "Port Successfully Opened");
    if (code < 0)
        return code;
    port.device.setUpDone();
    if (arguments.path != nullptr)
        makeReady(port);
    return opening.succeed();
}

/// After these an adopted handle is closed: its owner asked for a framing that does not exist.
bool closesHandle(int32_t code, const OpenArguments& arguments) noexcept {
    bool badDataBits = arguments.dataBits < 4 || arguments.dataBits > 8;
    return code == -33 || code == -35 || (code == -34 && badDataBits);
}

} // namespace

namespace {

int32_t openOwn(Opening& opening, const OpenArguments& arguments) {
    if (opening.code() < 0)
        return opening.code();
    Port& port = opening.port();
    trace(port, "Opening Port: %d DevName:%s Baudrate:%d Data Bits:%d Parity:%d Stop Bits:%d",
          arguments.number, arguments.deviceName == nullptr ? "" : arguments.deviceName, arguments.baudRate,
          arguments.dataBits, arguments.parity, arguments.stopBits);
    if (int32_t code = openDevice(port, arguments.path); code < 0)
        return code;
    return finishOpen(opening, arguments, Opened::own);
}

} // namespace

int32_t openPort(const OpenArguments& arguments) {
    Opening opening(arguments.number, std::max(arguments.rxSize, leastRing),
                    std::max(arguments.txSize, leastRing));
    return openOwn(opening, arguments);
}

namespace {

constexpr int32_t portTaken = -2;

/// The number is mapped to the path as long as the port is open; not at all when the open fails.
class OpenedName {
public:
    OpenedName(int32_t number, const char* path)
        : number_(number), kept_(deviceNames::mapOpened(number, path)) {
        if (!kept_)
            setErrorText("cannot open a device: its path has more than 259 bytes");
    }
    ~OpenedName() {
        if (!open_)
            deviceNames::endOpened(number_);
    }
    OpenedName(const OpenedName&) = delete;
    OpenedName& operator=(const OpenedName&) = delete;
    bool kept() const noexcept { return kept_; }
    void keep() noexcept { open_ = true; }

private:
    int32_t number_;
    bool kept_;
    bool open_ = false;
};

} // namespace

int32_t openPortOn(const OpenArguments& arguments, int32_t handle) {
    Opening opening(arguments.number, std::max(arguments.rxSize, leastRing),
                    std::max(arguments.txSize, leastRing));
    if (opening.code() < 0)
        return opening.code();
    Port& port = opening.port();
    if (int32_t code = adoptDevice(port, handle); code < 0)
        return code;
    int32_t result = finishOpen(opening, arguments, Opened::adopted);
    if (closesHandle(result, arguments))
        port.closeCallersHandle = 1;
    return result;
}

int32_t openPath(const char* path, int32_t baudRate, const char* framingText) {
    constexpr int32_t highest = 128;
    constexpr uint32_t ringSize = 65536;
    Framing framing;
    if (path == nullptr || baudRate < 0) {
        setErrorText(path == nullptr ? "cannot open a device: no path given"
                                     : "cannot open " + std::string(path) + ": a baud rate of " +
                                           std::to_string(baudRate));
        return -1;
    }
    // Before its own number is mapped to it, which may be the one that it names.
    const std::string device = deviceNames::resolve(path);
    if (int32_t code = readFraming(framingText, framing); code < 0)
        return code;
    for (int32_t number = highest; number >= firstPort; --number) {
        if (deviceNames::isMapped(number) || !table::maySuggest(number))
            continue;
        Opening opening(number, ringSize, ringSize);
        if (opening.code() == portTaken)
            continue;
        if (opening.code() < 0)
            return opening.code();
        OpenedName name(number, device.c_str());
        if (!name.kept())
            return -25;
        int32_t result = openOwn(opening, {.deviceName = "",
                                           .number = number,
                                           .baudRate = baudRate,
                                           .dataBits = framing.dataBits,
                                           .parity = framing.parity,
                                           .stopBits = framing.stopBits,
                                           .rxSize = ringSize,
                                           .txSize = ringSize,
                                           .path = device.c_str()});
        if (result > 0)
            name.keep();
        return result;
    }
    setErrorText("cannot open " + std::string(path) + ": no port number from 1 to 128 is free");
    return -28;
}

} // namespace brisolt
