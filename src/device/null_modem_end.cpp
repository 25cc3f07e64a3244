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

NullModemEnd::NullModemEnd(NullModemCable& itsCable, bool takesLineTime, bool adaptsToPeer) noexcept
    : cable(itsCable), paced(takesLineTime), autobaud(adaptsToPeer), inLimit_(smallestInput),
      outLimit_(smallestOutput) {
    state.size = sizeof state;
    state.baudRate = 9600;
    state.flags = COM_HOST_LINE_BINARY | COM_HOST_LINE_DTR_ON | COM_HOST_LINE_RTS_ON;
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

void NullModemEnd::setQueues(uint32_t inSize, uint32_t outSize) noexcept {
    inLimit_ = std::max(inSize, smallestInput);
    outLimit_ = std::max(outSize, smallestOutput);
    inputChanged();
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
        errors |= COM_HOST_ERROR_BREAK;
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
        peer->errors |= COM_HOST_ERROR_BREAK;
    breakOn = on;
}

bool NullModemEnd::heldByLines() const noexcept {
    const uint32_t lines = modemLines();
    return (has(COM_HOST_LINE_CTS_OUTPUT) && (lines & COM_HOST_MODEM_CTS) == 0) ||
           (has(COM_HOST_LINE_DSR_OUTPUT) && (lines & COM_HOST_MODEM_DSR) == 0);
}

// ---- Bytes -------------------------------------------------------------------------------------------

std::optional<NullModemEnd::Flight> NullModemEnd::nextCharacter() noexcept {
    if (heldByLines())
        return std::nullopt;
    if (flowCharacter) {
        const Flight next{*flowCharacter, false, 0};
        flowCharacter.reset();
        return next;
    }
    if (heldByXoff_ || output.empty())
        return std::nullopt;
    const Flight next{output.front(), true, 0};
    output.pop_front();
    ++sent;
    return next;
}

void NullModemEnd::arrive(uint8_t value) noexcept {
    if (has(COM_HOST_LINE_DSR_SENSITIVITY) && !peer->dtrPin())
        return;
    const ComHostLineState& ours = framing();
    const ComHostLineState& theirs = peer->framing();
    value &= dataMask(theirs);
    if (framingDiffers(ours, theirs)) {
        errors |= COM_HOST_ERROR_FRAMING;
        value = static_cast<uint8_t>(~value) & dataMask(ours);
    } else if (ours.parity != theirs.parity) {
        errors |= COM_HOST_ERROR_PARITY;
        if (has(COM_HOST_LINE_PARITY_CHECK) && has(COM_HOST_LINE_ERROR_REPLACE))
            value = state.errorChar;
    } else if (swallowed(value)) {
        return;
    }
    if (value == 0 && has(COM_HOST_LINE_NULL_STRIP))
        return;
    if (input.size() >= inLimit_) {
        errors |= COM_HOST_ERROR_RX_OVERFLOW;
        return;
    }
    input.push_back(value);
    inputChanged();
}

bool NullModemEnd::swallowed(uint8_t value) noexcept {
    if (!has(COM_HOST_LINE_XON_OUTPUT) || (value != state.xonChar && value != state.xoffChar))
        return false;
    // Where both characters are the same, it lets us go on: a line must not stop for good.
    heldByXoff_ = value != state.xonChar;
    return true;
}

void NullModemEnd::inputChanged() noexcept {
    const size_t upper = inLimit_ - std::min<size_t>(inLimit_, state.xoffLimit);
    if (input.size() > upper)
        inputHigh_ = true;
    else if (input.size() < state.xonLimit || input.empty())
        inputHigh_ = false;

    const bool stop = inputHigh_ && has(COM_HOST_LINE_XON_INPUT);
    if (stop != saidXoff_) {
        saidXoff_ = stop;
        flowCharacter = stop ? state.xoffChar : state.xonChar;
    }
}

int32_t NullModemEnd::read(uint8_t* buffer, int32_t count) noexcept {
    const auto taken =
        std::min(static_cast<std::ptrdiff_t>(count), static_cast<std::ptrdiff_t>(input.size()));
    if (taken <= 0)
        return 0;
    std::copy_n(input.begin(), taken, buffer);
    input.erase(input.begin(), input.begin() + taken);
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
    // The bytes of a complete write stay the last of the queue, so that they can be taken back.
    return completing != 0 || output.size() >= outLimit_ ? 0 : outLimit_ - output.size();
}

void NullModemEnd::takeBack() noexcept {
    if (completing == 0 || completeEnded)
        return;
    completeEnded = true;
    output.resize(output.size() - std::min<uint64_t>(completing, output.size()));
}

uint32_t NullModemEnd::holding(uint32_t wanted) const noexcept {
    uint32_t held = 0;
    if (!input.empty())
        held |= nullModemReadable;
    if (room() != 0)
        held |= nullModemWritable;
    if (completing == 0)
        held |= nullModemTurn;
    if (waitingToLeave() == 0)
        held |= nullModemDrained;
    if (waitingToLeave() == 0 || completeEnded)
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

} // namespace brisolt
