#include "device/null_modem_end.h"

#include <algorithm>
#include <system_error>

namespace brisolt {

namespace {

// A device without handshake must hold what arrives between two looks of its reader, so a program that
// asks for tiny queues gets these.
constexpr uint32_t smallestInput = 4096;
constexpr uint32_t smallestOutput = 1024;

constexpr uint32_t noLimit = 0xFFFFFFFF;

uint8_t dataMask(const ComHostLineState& state) noexcept {
    return static_cast<uint8_t>((1u << state.dataBits) - 1u);
}

bool framingDiffers(const ComHostLineState& a, const ComHostLineState& b) noexcept {
    return a.baudRate != b.baudRate || a.dataBits != b.dataBits || a.stopBits != b.stopBits;
}

} // namespace

NullModemEnd::NullModemEnd(NullModemCable& itsCable, const NullModemStart& start) noexcept
    : cable(itsCable), paced(start.paced), autobaud(start.autobaud), dtr(start.dtr), rts(start.rts),
      inLimit_(smallestInput), outLimit_(smallestOutput) {
    state.size = sizeof state;
    state.baudRate = 9600;
    state.flags = COM_HOST_LINE_BINARY | (dtr ? uint32_t{COM_HOST_LINE_DTR_ON} : 0) |
                  (rts ? uint32_t{COM_HOST_LINE_RTS_ON} : 0);
    state.xonLimit = smallestInput / 4;
    state.xoffLimit = smallestInput / 4;
    state.dataBits = 8;
    state.parity = COM_HOST_PARITY_NONE;
    state.stopBits = COM_HOST_STOP_1;
    state.xonChar = 0x11;
    state.xoffChar = 0x13;
    state.eofChar = 0x1A;
    timeouts = {sizeof timeouts, noLimit, 0, 0, 0, 2000};
}

int32_t NullModemEnd::setUp() noexcept {
    if (readable.descriptor() < 0 || bell.descriptor() < 0)
        return -static_cast<int32_t>(std::errc::too_many_files_open);
    return setQueues(0, 0);
}

// ---- Settings ----------------------------------------------------------------------------------------

int32_t NullModemEnd::setState(const ComHostLineState& wanted) noexcept {
    if (wanted.dataBits < 4 || wanted.dataBits > 8 || wanted.parity > COM_HOST_PARITY_SPACE ||
        wanted.stopBits > COM_HOST_STOP_2 || wanted.baudRate == 0)
        return -static_cast<int32_t>(std::errc::invalid_argument);

    // A pin follows its setting only when that changes: a new baud rate must not raise a DTR that the
    // program has lowered to hang up.
    constexpr uint32_t dtrFlags = COM_HOST_LINE_DTR_ON | COM_HOST_LINE_DTR_HANDSHAKE;
    constexpr uint32_t rtsFlags = COM_HOST_LINE_RTS_ON | COM_HOST_LINE_RTS_HANDSHAKE;
    const uint32_t changed = state.flags ^ wanted.flags;
    if ((changed & dtrFlags) != 0)
        dtr = (wanted.flags & dtrFlags) != 0;
    if ((changed & rtsFlags) != 0)
        rts = (wanted.flags & rtsFlags) != 0;

    state = wanted;
    state.size = sizeof state;
    if (!has(COM_HOST_LINE_XON_OUTPUT))
        heldByXoff_ = false;
    inputChanged();
    return 1;
}

int32_t NullModemEnd::setQueues(uint32_t inSize, uint32_t outSize) noexcept {
    const size_t in = std::max(inSize, smallestInput);
    const size_t out = std::max(outSize, smallestOutput);
    if (!input.reserve(in) || !output.reserve(out))
        return -static_cast<int32_t>(std::errc::not_enough_memory);
    inLimit_ = in;
    outLimit_ = out;
    inputChanged();
    return 1;
}

const ComHostLineState& NullModemEnd::framing() const noexcept {
    return autobaud && peer != nullptr && !peer->autobaud ? peer->state : state;
}

uint64_t NullModemEnd::characterNanoseconds() const noexcept {
    constexpr uint64_t stopHalfBits[] = {2, 3, 4};
    const ComHostLineState& framed = framing();
    const uint64_t parityBits = framed.parity == COM_HOST_PARITY_NONE ? 0 : 1;
    const uint64_t halfBits = 2 * (1 + framed.dataBits + parityBits) + stopHalfBits[framed.stopBits];
    return halfBits * 500'000'000 / framed.baudRate;
}

uint32_t NullModemEnd::writeMilliseconds(uint64_t count) const noexcept {
    const bool notSet = timeouts.writeConstant == 0 && timeouts.writeMultiplier == 0;
    if (notSet || timeouts.writeConstant == noLimit)
        return noLimit;
    const uint64_t total = timeouts.writeConstant + timeouts.writeMultiplier * count;
    return static_cast<uint32_t>(std::min<uint64_t>(total, noLimit - 1));
}

// ---- Lines -------------------------------------------------------------------------------------------

bool NullModemEnd::dtrPin() const noexcept {
    return dtr && !(inputHigh_ && has(COM_HOST_LINE_DTR_HANDSHAKE));
}

bool NullModemEnd::rtsPin() const noexcept {
    return rts && !(inputHigh_ && has(COM_HOST_LINE_RTS_HANDSHAKE));
}

uint32_t NullModemEnd::modemLines() const noexcept {
    if (peer == nullptr)
        return 0;
    return (peer->rtsPin() ? uint32_t{COM_HOST_MODEM_CTS} : 0) |
           (peer->dtrPin() ? uint32_t{COM_HOST_MODEM_DSR | COM_HOST_MODEM_CARRIER} : 0) |
           (ring ? uint32_t{COM_HOST_MODEM_RING} : 0);
}

void NullModemEnd::meet(NullModemEnd& newPeer) noexcept {
    peer = &newPeer;
    if (newPeer.breakOn)
        note(COM_HOST_ERROR_BREAK);
    saidXoff_ = false;
    flowCharacter.reset();
    inputChanged();
}

void NullModemEnd::part() noexcept {
    // A device that closes lets the one it has stopped go on; nobody else could.
    if (peer->saidXoff_)
        heldByXoff_ = false;
    peer = nullptr;
}

void NullModemEnd::setBreak(bool on) noexcept {
    if (on && !breakOn && peer != nullptr)
        peer->note(COM_HOST_ERROR_BREAK);
    breakOn = on;
}

bool NullModemEnd::heldByLines() const noexcept {
    const uint32_t lines = modemLines();
    return (has(COM_HOST_LINE_CTS_OUTPUT) && (lines & COM_HOST_MODEM_CTS) == 0) ||
           (has(COM_HOST_LINE_DSR_OUTPUT) && (lines & COM_HOST_MODEM_DSR) == 0);
}

// ---- Bytes -------------------------------------------------------------------------------------------

/// The data that leaves next, as far as it lies side by side.
std::span<const uint8_t> NullModemEnd::nextBytes() const noexcept {
    return output.empty() ? handed : output.front();
}

void NullModemEnd::haveLeft(size_t count) noexcept {
    if (output.empty())
        handed = handed.subspan(count);
    else
        output.drop(count);
}

std::optional<NullModemEnd::Flight> NullModemEnd::nextCharacter() noexcept {
    if (heldByLines())
        return std::nullopt;
    if (flowCharacter) {
        const Flight next{*flowCharacter, false, 0};
        flowCharacter.reset();
        return next;
    }
    if (heldByXoff_ || nextBytes().empty())
        return std::nullopt;
    const Flight next{nextBytes().front(), true, 0};
    haveLeft(1);
    return next;
}

void NullModemEnd::arrive(uint8_t value) noexcept {
    if (has(COM_HOST_LINE_DSR_SENSITIVITY) && !peer->dtrPin())
        return;
    const ComHostLineState& ours = framing();
    const ComHostLineState& theirs = peer->framing();
    value &= dataMask(theirs);
    if (framingDiffers(ours, theirs)) {
        note(COM_HOST_ERROR_FRAMING);
        value = static_cast<uint8_t>(~value) & dataMask(ours);
    } else if (ours.parity != theirs.parity) {
        note(COM_HOST_ERROR_PARITY);
        if (has(COM_HOST_LINE_PARITY_CHECK) && has(COM_HOST_LINE_ERROR_REPLACE))
            value = state.errorChar;
    } else if (swallowed(value)) {
        return;
    }
    if (value == 0 && has(COM_HOST_LINE_NULL_STRIP))
        return;
    if (input.size() >= inLimit_) {
        note(COM_HOST_ERROR_RX_OVERFLOW);
        return;
    }
    input.push(value);
    inputChanged();
}

/// Whether every byte of the peer's reaches the input as it is.
bool NullModemEnd::takesPlainBytes() const noexcept {
    constexpr uint32_t looksAtBytes =
        COM_HOST_LINE_DSR_SENSITIVITY | COM_HOST_LINE_NULL_STRIP | COM_HOST_LINE_XON_OUTPUT;
    const ComHostLineState& ours = framing();
    const ComHostLineState& theirs = peer->framing();
    return (state.flags & looksAtBytes) == 0 && !framingDiffers(ours, theirs) &&
           ours.parity == theirs.parity && ours.dataBits == 8;
}

/// How many bytes can arrive before the input holds the peer off, or overflows.
size_t NullModemEnd::roomBeforeChange() const noexcept {
    const size_t limit = inputHigh_ ? inLimit_ : upperLimit();
    return limit - std::min(limit, input.size());
}

void NullModemEnd::sendRun() noexcept {
    if (peer == nullptr || nextBytes().empty() || heldByXoff_ || breakOn)
        return;
    const bool somethingFirst = flight || flowCharacter || peer->flight || peer->flowCharacter;
    if (somethingFirst || heldByLines() || !peer->takesPlainBytes())
        return;
    for (;;) {
        const size_t count = std::min(nextBytes().size(), peer->roomBeforeChange());
        if (count == 0)
            break;
        peer->input.append(nextBytes().first(count));
        haveLeft(count);
    }
    peer->inputChanged();
}

bool NullModemEnd::swallowed(uint8_t value) noexcept {
    if (!has(COM_HOST_LINE_XON_OUTPUT) || (value != state.xonChar && value != state.xoffChar))
        return false;
    // Where both characters are the same, it lets us go on: a line must not stop for good.
    heldByXoff_ = value != state.xonChar;
    return true;
}

size_t NullModemEnd::upperLimit() const noexcept {
    return inLimit_ - std::min<size_t>(inLimit_, state.xoffLimit);
}

void NullModemEnd::inputChanged() noexcept {
    if (input.size() > upperLimit())
        inputHigh_ = true;
    else if (input.size() < state.xonLimit || input.empty())
        inputHigh_ = false;

    const bool stop = inputHigh_ && has(COM_HOST_LINE_XON_INPUT);
    if (stop != saidXoff_) {
        saidXoff_ = stop;
        flowCharacter = stop ? state.xoffChar : state.xonChar;
    }
}

int32_t NullModemEnd::read(std::span<uint8_t> to) noexcept {
    const size_t taken = input.read(to);
    if (taken != 0)
        inputChanged();
    return static_cast<int32_t>(taken);
}

void NullModemEnd::purge(uint32_t what) noexcept {
    if ((what & (COM_HOST_PURGE_TX | COM_HOST_PURGE_TX_ABORT)) != 0)
        takeBack();
    if ((what & COM_HOST_PURGE_TX) != 0)
        output.clear();
    if ((what & COM_HOST_PURGE_RX) != 0) {
        input.clear();
        inputChanged();
    }
}

size_t NullModemEnd::room() const noexcept {
    // The bytes of a complete write stay the last, so that they can be taken back.
    return completing || output.size() >= outLimit_ ? 0 : outLimit_ - output.size();
}

void NullModemEnd::takeBack() noexcept {
    takenBack += handed.size();
    handed = {};
}

uint32_t NullModemEnd::holding(uint32_t wanted) const noexcept {
    uint32_t held = 0;
    if (!input.empty())
        held |= nullModemReadable;
    if (room() != 0)
        held |= nullModemWritable;
    if (!completing)
        held |= nullModemTurn;
    if (waitingToLeave() == 0)
        held |= nullModemDrained;
    if (waitingToLeave() == 0 || takenBack != 0)
        held |= nullModemWritten;
    return held & wanted;
}

void NullModemEnd::showReadable() noexcept {
    if (input.empty() == !shownReadable_)
        return;
    shownReadable_ = !shownReadable_;
    if (shownReadable_)
        readable.set();
    else
        readable.clear();
}

void NullModemEnd::note(uint32_t error) noexcept {
    errors |= error;
    switch (error) {
    case COM_HOST_ERROR_BREAK: ++counted.breaks; break;
    case COM_HOST_ERROR_FRAMING: ++counted.framing; break;
    case COM_HOST_ERROR_PARITY: ++counted.parity; break;
    case COM_HOST_ERROR_RX_OVERFLOW: ++counted.overflow; break;
    default: break;
    }
    moved = true;
}

void NullModemEnd::countLines() noexcept {
    const uint32_t lines = modemLines();
    const uint32_t changed = lines ^ shownLines;
    if (changed == 0)
        return;
    shownLines = lines;
    moved = true;
    counted.cts += (changed & COM_HOST_MODEM_CTS) != 0 ? 1 : 0;
    counted.dsr += (changed & COM_HOST_MODEM_DSR) != 0 ? 1 : 0;
    counted.carrier += (changed & COM_HOST_MODEM_CARRIER) != 0 ? 1 : 0;
    counted.ring += (changed & ~lines & COM_HOST_MODEM_RING) != 0 ? 1 : 0;
}

} // namespace brisolt
