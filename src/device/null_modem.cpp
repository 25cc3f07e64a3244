// The driver behind "null-modem:NAME", "null-modem:NAME?paced" and "null-modem:NAME?autobaud": the first open
// of a name gets one end of a cable, the second the other, so that a program can be tried without hardware.
//
//   queues       An end holds at least 4096 bytes of input and 1024 of output, more when setQueues asks for
//                more. Input that finds its queue full is lost and counts as an overflow.
//   not plugged  With the other end closed all lines are low, and what is written goes nowhere unless a low
//                line holds it off.
//   mismatch     A peer with another baud rate, data size or stop bits reads each byte with all its bits
//                turned over, as a framing error; one with another parity alone reads it as a parity error.
//   autobaud     An end opened with it is framed as its peer is, like a modem that looks at what it is sent.
//   break        is told to the peer once; bytes whose time falls into it are lost.
//   paced        A cable is paced as long as an end that asked for it is open. No thread moves its bytes:
//                a poll of the handle alone sees them only once some call has looked at the cable.
//   closing      drops what has not left; a peer that an XOFF had stopped goes on.
//   a new end    has 9600 baud, 8N1, DTR and RTS raised unless its path says otherwise, no handshake, two seconds
//                for a write.
#include <chrono>
#include <span>
#include <string>
#include <system_error>
#include <utility>

#include "device/device.h"
#include "device/null_modem_cable.h"
#include "device/null_modem_cables.h"
#include "device/null_modem_write.h"
#include "platform/error_text.h"

namespace brisolt {

namespace {

using Inside = NullModemCable::Inside;

int32_t failure(std::errc reason) noexcept {
    return -static_cast<int32_t>(reason);
}

NullModemEnd& endOf(void* device) noexcept {
    return *static_cast<NullModemEnd*>(device);
}

/// Whether the caller's record is there and as long as ours.
template <typename Record> bool complete(const Record* record) noexcept {
    return record != nullptr && record->size >= sizeof(Record);
}

// ---- Open and closed -----------------------------------------------------------------------------------

int32_t openEnd(void* context, const char* path, void** device, int32_t* handle) noexcept {
    if (path == nullptr || device == nullptr || handle == nullptr)
        return failure(std::errc::invalid_argument);
    return openCable(*static_cast<const CableKind*>(context), path, {}, device, handle);
}

void closeEnd(void* device) noexcept {
    closeCableEnd(endOf(device));
}

// ---- Settings and lines --------------------------------------------------------------------------------

int32_t getProperties(void*, ComHostProperties* properties) noexcept {
    if (!complete(properties))
        return failure(std::errc::invalid_argument);
    constexpr uint32_t anyRate = 0x10000000;
    *properties = {};
    properties->size = sizeof *properties;
    properties->packetLength = sizeof *properties;
    properties->packetVersion = 2;
    properties->serviceMask = 1; // a serial line
    properties->maxBaud = anyRate;
    properties->provSubType = 1; // of the RS-232 kind
    properties->provCapabilities = COM_HOST_CAN_PARITY_CHECK;
    properties->settableParams = 0x3F; // parity and its check, rate, data and stop bits, handshake
    properties->settableBaud = anyRate;
    return 1;
}

int32_t getLineState(void* device, ComHostLineState* state) noexcept {
    if (!complete(state))
        return failure(std::errc::invalid_argument);
    const Inside inside(endOf(device));
    *state = endOf(device).state;
    return 1;
}

int32_t setLineState(void* device, const ComHostLineState* state) noexcept {
    if (!complete(state))
        return failure(std::errc::invalid_argument);
    int32_t result;
    {
        const Inside inside(endOf(device));
        result = endOf(device).setState(*state);
    }
    if (result < 0)
        setErrorTextFrom({endOf(device).cable.kind().scheme, endOf(device).cable.name(), ": no line has ",
                          std::to_string(state->baudRate), " baud, ", std::to_string(state->dataBits),
                          " data bits (4 to 8), parity ", std::to_string(state->parity),
                          " (0 to 4), stop bits ", std::to_string(state->stopBits), " (0 to 2)"});
    return result;
}

int32_t getTimeouts(void* device, ComHostTimeouts* timeouts) noexcept {
    if (!complete(timeouts))
        return failure(std::errc::invalid_argument);
    const Inside inside(endOf(device));
    *timeouts = endOf(device).timeouts;
    return 1;
}

int32_t setTimeouts(void* device, const ComHostTimeouts* timeouts) noexcept {
    if (!complete(timeouts))
        return failure(std::errc::invalid_argument);
    const Inside inside(endOf(device));
    endOf(device).timeouts = *timeouts;
    endOf(device).timeouts.size = sizeof *timeouts;
    return 1;
}

int32_t setQueues(void* device, uint32_t inSize, uint32_t outSize) noexcept {
    const Inside inside(endOf(device));
    return endOf(device).setQueues(inSize, outSize);
}

/// Lines and errors are told whatever the mask says, so there is nothing to do for it.
int32_t setEventMask(void*, uint32_t) noexcept {
    return 1;
}

int32_t purge(void* device, uint32_t what) noexcept {
    const Inside inside(endOf(device));
    endOf(device).purge(what);
    return 1;
}

int32_t controlLine(void* device, uint32_t function) noexcept {
    NullModemEnd& end = endOf(device);
    const Inside inside(end);
    switch (function) {
    case COM_HOST_LINE_RESUME: end.resume(); return 1;
    case COM_HOST_LINE_SET_RTS:
    case COM_HOST_LINE_CLEAR_RTS: end.rts = function == COM_HOST_LINE_SET_RTS; return 1;
    case COM_HOST_LINE_SET_DTR:
    case COM_HOST_LINE_CLEAR_DTR: end.dtr = function == COM_HOST_LINE_SET_DTR; return 1;
    case COM_HOST_LINE_SET_BREAK:
    case COM_HOST_LINE_CLEAR_BREAK: end.setBreak(function == COM_HOST_LINE_SET_BREAK); return 1;
    default: return failure(std::errc::invalid_argument);
    }
}

int32_t getModemStatus(void* device, uint32_t* lines) noexcept {
    if (lines == nullptr)
        return failure(std::errc::invalid_argument);
    const Inside inside(endOf(device));
    *lines = endOf(device).modemLines();
    return 1;
}

int32_t getStatus(void* device, uint32_t wanted, ComHostStatus* status) noexcept {
    if (!complete(status))
        return failure(std::errc::invalid_argument);
    NullModemEnd& end = endOf(device);
    const Inside inside(end);
    status->size = sizeof *status;
    status->errors = 0;
    if ((wanted & COM_HOST_WANT_ERRORS) != 0)
        std::swap(status->errors, end.errors);
    status->inQueue = static_cast<uint32_t>(end.input.size());
    status->outQueue = static_cast<uint32_t>(end.waitingToLeave());
    return 1;
}

// ---- Reading, writing, waiting -------------------------------------------------------------------------

int32_t read(void* device, void* buffer, int32_t count) noexcept {
    if (buffer == nullptr || count <= 0)
        return 0;
    const Inside inside(endOf(device));
    return endOf(device).read({static_cast<uint8_t*>(buffer), static_cast<size_t>(count)});
}

int32_t write(void* device, const void* buffer, int32_t count, uint32_t how, int32_t* error) noexcept {
    int32_t reason = 0;
    int32_t taken = 0;
    if (buffer != nullptr && count > 0) {
        const std::span bytes(static_cast<const uint8_t*>(buffer), static_cast<size_t>(count));
        taken = how == COM_HOST_WRITE_NOW ? nullModemWriteNow(endOf(device), bytes)
                                          : nullModemWriteComplete(endOf(device), bytes, reason);
    }
    if (error != nullptr)
        *error = reason;
    return taken;
}

int32_t flush(void* device) noexcept {
    return nullModemFlush(endOf(device));
}

int32_t wait(void* device, uint32_t events, int32_t wake, int32_t milliseconds) noexcept {
    const auto limit =
        milliseconds < 0
            ? clock::Deadline::never()
            : clock::Deadline::at(std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds));
    const uint32_t wanted = events & (COM_HOST_WAIT_READ | COM_HOST_WAIT_WRITE);
    NullModemEnd& end = endOf(device);
    Inside inside(end);
    bool interrupted = false;
    const uint32_t held = end.cable.wait(inside, end, wanted, wake, limit, &interrupted);
    return interrupted ? failure(std::errc::interrupted)
                       : static_cast<int32_t>(held); // what holds goes on holding
}

void cancel(void* device, int32_t on) noexcept {
    const Inside inside(endOf(device));
    endOf(device).cancelled = on != 0;
    endOf(device).cancels += on != 0 ? 1 : 0;
}

int32_t counters(void* device, ComHostCounters* counters) noexcept {
    NullModemEnd& end = endOf(device);
    const Inside inside(end);
    const uint32_t size = counters->size;
    *counters = end.counted;
    counters->size = size;
    return 1;
}

uint32_t watch(void* device, uint32_t events, void (*changed)(void*), void* argument) noexcept {
    NullModemEnd& end = endOf(device);
    end.cable.watch(end, events != 0 ? changed : nullptr, argument);
    return events;
}

int32_t unsent(void* device) noexcept {
    NullModemEnd& end = endOf(device);
    const Inside inside(end);
    return static_cast<int32_t>(end.waitingToLeave());
}

constexpr CableKind nullModemKind{.scheme = "null-modem:",
                                  .options = "is not possible here; possible: paced=yes, autobaud=yes, dtr, "
                                             "rts, close, low-latency, rs485=rts, rs485-rts, rs485-before, "
                                             "rs485-after, keep",
                                  .taken = "both ends are open",
                                  .isLoop = false};

} // namespace

int32_t openCable(const CableKind& kind, const char* path, const DeviceOptions& options, void** device,
                  int32_t* handle) noexcept {
    CableAddress address = cableAddress(kind, path);
    if (!address.option.empty()) {
        setErrorTextFrom({path, ": the option \"", address.option, "\" ", address.wrong});
        return failure(std::errc::invalid_argument);
    }
    if (!address.wrong.empty()) {
        setErrorTextFrom({path, ": ", address.wrong});
        return failure(std::errc::invalid_argument);
    }
    address.start.dtr = options.dtr != LineStart::lower;
    address.start.rts = options.rts != LineStart::lower;
    NullModemEnd* end = nullptr;
    if (const int32_t opened = openCableEnd(kind, address, end); opened < 0)
        return opened;
    *device = end;
    *handle = end->readable.descriptor();
    return 1;
}

ComHostDriver cableDriver(const CableKind& kind) noexcept {
    return {
        .size = sizeof(ComHostDriver),
        .context = const_cast<CableKind*>(&kind), // NOLINT: handed back to openEnd alone
        .open = openEnd,
        .adopt = nullptr,
        .close = closeEnd,
        .properties = getProperties,
        .getLineState = getLineState,
        .setLineState = setLineState,
        .getTimeouts = getTimeouts,
        .setTimeouts = setTimeouts,
        .setQueues = setQueues,
        .setEventMask = setEventMask,
        .purge = purge,
        .line = controlLine,
        .modemStatus = getModemStatus,
        .status = getStatus,
        .read = read,
        .write = write,
        .flush = flush,
        .wait = wait,
        .cancel = cancel,
        .descriptor = nullptr,
        .counters = counters,
        .watch = watch,
        .unsent = unsent,
        .state = nullptr,
    };
}

const ComHostDriver& drivers::nullModem() noexcept {
    static const ComHostDriver driver = cableDriver(nullModemKind);
    return driver;
}

int32_t drivers::openNullModem(const char* path, const DeviceOptions& options, void** device,
                               int32_t* handle) noexcept {
    return openCable(nullModemKind, path, options, device, handle);
}

bool drivers::ringNullModem(const char* path, bool on) noexcept {
    return ringCable(nullModemKind, path, on);
}

} // namespace brisolt
