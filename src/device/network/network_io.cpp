// Bytes on and off a network line, without ever waiting.
#include <algorithm>
#include <cerrno>
#include <cstring>

#include "device/network/network_device.h"
#include "platform/mutex.h"

namespace brisolt::network {

namespace {

constexpr int32_t floodLimit = 65536; ///< bytes that one read takes when most of them are no data

int32_t sizeOf(std::span<const uint8_t> bytes) noexcept {
    return static_cast<int32_t>(bytes.size());
}

/// What has come for others than the reader, to be told without the lock.
struct Heard {
    NetworkDevice& device;
    ComPort::News news;
};

// Called in takeData, with the lock.
void hear(void* self, std::span<const uint8_t> message) noexcept LOCKS_UNCHECKED {
    auto& heard = *static_cast<Heard*>(self);
    const ComPort::News news = heard.device.comPort.hear(message);
    heard.news.counters |= news.counters;
    heard.news.answered |= news.answered;
    heard.news.flow |= news.flow;
}

/// Data off the stream into `to`. Falls short only when no more is there.
int32_t takeData(NetworkDevice& device, std::span<uint8_t> to, Heard& heard, bool& over) noexcept
    WITH_LOCK(device.mutex) {
    int32_t kept = 0;
    for (int32_t taken = 0; kept < sizeOf(to) && taken < floodLimit;) {
        const int32_t room = sizeOf(to) - kept;
        const int32_t got = device.stream.read(to.data() + kept, room);
        over = got < 0;
        if (got <= 0)
            break;
        taken += got;
        kept += device.kind.telnet ? device.telnet.filter(to.data() + kept, got, device.outgoing,
                                                          {.hear = hear, .self = &heard})
                                   : got;
        if (got < room &&
            !device.telnet.inCommand()) // the host stops at an urgent byte, which is one of a command
            break;
    }
    return kept;
}

/// The gate shows what the socket does not. With the lock.
void showGate(NetworkDevice& device) noexcept WITH_LOCK(device.mutex) {
    const bool holds = !device.heldBack.empty() || device.stream.heldBack();
    if (holds != device.heldBackShown)
        device.gate.showHeldBack(holds);
    device.heldBackShown = holds;
}

/// Without the lock: whoever is told looks at the device.
void tell(NetworkDevice& device, const Heard& heard) noexcept {
    if (heard.news.answered)
        device.news.set();
    if (!heard.news.counters)
        return;
    const MutexLock guard(device.watchMutex);
    if (device.changed != nullptr)
        device.changed(device.argument);
}

/// After the lock's holder has taken something in. A far end that has left holds nobody off.
void settle(NetworkDevice& device, const Heard& heard, bool over) noexcept WITH_LOCK(device.mutex) {
    device.over = device.over || over;
    sendOutgoing(device);
    showGate(device);
    if (heard.news.counters)
        device.errors.fetch_or(device.comPort.takeErrors());
    if (heard.news.flow || over)
        setHeldOff(device, device.comPort.suspended() && !over);
}

int32_t readGuarded(NetworkDevice& device, std::span<uint8_t> to) noexcept {
    Heard heard{device, {}};
    bool over = false;
    int32_t got = 0;
    {
        const MutexLock guard(device.mutex);
        const bool wasFull = device.heldBack.size() == device.heldBack.capacity();
        heard.news.answered = wasFull; // there is room for the answer now
        got = static_cast<int32_t>(device.heldBack.read(to));
        got += takeData(device, to.subspan(static_cast<std::size_t>(got)), heard, over);
        settle(device, heard, over);
    }
    if (over && got == 0)
        setGone(device);
    tell(device, heard);
    return got;
}

} // namespace

void setHeldOff(NetworkDevice& device, bool on) noexcept {
    if (on)
        device.resumed.clear();
    device.suspended = on;
    if (!on)
        device.resumed.set();
}

void takeIn(NetworkDevice& device) noexcept {
    Heard heard{device, {}};
    bool over = false;
    bool holds = false;
    {
        const MutexLock guard(device.mutex);
        std::array<uint8_t, 4096> piece;
        for (bool more = true; more && !over;) {
            const std::size_t room = device.heldBack.capacity() - device.heldBack.size();
            const std::span<uint8_t> to = std::span(piece).first(std::min(piece.size(), room));
            const int32_t got = takeData(device, to, heard, over);
            device.heldBack.append(to.first(static_cast<std::size_t>(got)));
            more = got == sizeOf(to) && got > 0;
        }
        holds = !device.heldBack.empty();
        settle(device, heard, over);
    }
    if (over && !holds)
        setGone(device);
    tell(device, heard);
}

int32_t read(void* device, void* buffer, int32_t count) noexcept {
    NetworkDevice& line = of(device);
    if (buffer == nullptr || count <= 0)
        return 0;
    if (line.kind.holdsBack())
        return readGuarded(line, {static_cast<uint8_t*>(buffer), static_cast<std::size_t>(count)});
    const int32_t got = line.stream.read(buffer, count);
    if (got < 0)
        setGone(line);
    return std::max(got, 0);
}

void dropInput(NetworkDevice& device) noexcept {
    std::array<uint8_t, 4096> dropped;
    int32_t left = static_cast<int32_t>(std::min<uint32_t>(bytesHeld(device), INT32_MAX));
    while (left > 0) {
        const int32_t got = read(&device, dropped.data(), std::min(left, sizeOf(dropped)));
        if (got <= 0)
            return;
        left -= got; // no more than there was: a far end that floods us must not keep us here
    }
}

uint32_t bytesHeld(NetworkDevice& device) noexcept {
    if (!device.kind.holdsBack())
        return static_cast<uint32_t>(streams::bytesToRead(device.stream.socket()));
    takeIn(device); // what the socket holds are not all bytes for a reader
    const MutexLock guard(device.mutex);
    return static_cast<uint32_t>(device.heldBack.size());
}

// ---- out

bool sendOutgoing(NetworkDevice& device) noexcept {
    bool all = device.stream.flush();
    while (all && !device.outgoing.empty()) {
        const std::span<const uint8_t> front = device.outgoing.front();
        const int32_t sent = device.stream.write(front.data(), sizeOf(front));
        device.outgoing.drop(static_cast<std::size_t>(std::max(sent, 0)));
        all = sent == sizeOf(front);
    }
    all = all && device.stream.flush();
    if (all == device.roomWatched) { // whoever sleeps on the gate sends the rest when there is room
        device.gate.watchRoom(!all);
        device.roomWatched = !all;
    }
    return all;
}

void sendOn(NetworkDevice& device) noexcept {
    if (!device.kind.holdsBack())
        return;
    const MutexLock guard(device.mutex);
    sendOutgoing(device);
}

namespace {

using Bytes = std::span<const uint8_t>;

/// Bytes of which some are 255, each of which is sent twice. Bytes taken, or a negative error number.
int32_t sendDoubled(NetworkDevice& device, Bytes bytes) noexcept WITH_LOCK(device.mutex) {
    std::array<uint8_t, 4096> doubled;
    std::size_t size = 0;
    for (std::size_t i = 0; i < bytes.size() && size + 2 <= doubled.size(); ++i) {
        doubled[size++] = bytes[i];
        if (bytes[i] == Telnet::iac)
            doubled[size++] = Telnet::iac;
    }
    const int32_t sent = device.stream.write(doubled.data(), static_cast<int32_t>(size));
    if (sent < 0)
        return sent;
    int32_t taken = 0;
    for (int32_t left = sent; left > 0; ++taken) {
        const bool twice = bytes[static_cast<std::size_t>(taken)] == Telnet::iac;
        if (twice && left == 1)
            device.outgoing.push(Telnet::iac); // its other half
        left -= twice ? 2 : 1;
    }
    return taken;
}

/// The next bytes that can be sent in one go.
int32_t sendPiece(NetworkDevice& device, Bytes bytes) noexcept WITH_LOCK(device.mutex) {
    constexpr std::size_t worthIt = 2048; ///< bytes without a 255 that are sent as they stand
    const void* const first =
        device.kind.telnet ? std::memchr(bytes.data(), Telnet::iac, bytes.size()) : nullptr;
    const std::size_t plain =
        first == nullptr ? bytes.size()
                         : static_cast<std::size_t>(static_cast<const uint8_t*>(first) - bytes.data());
    if (plain == bytes.size() || plain >= worthIt)
        return device.stream.write(bytes.data(), static_cast<int32_t>(plain));
    return sendDoubled(device, bytes);
}

/// With the lock.
int32_t sendData(NetworkDevice& device, Bytes bytes, int32_t& error) noexcept WITH_LOCK(device.mutex) {
    std::size_t taken = 0;
    while (taken < bytes.size() && sendOutgoing(device)) {
        const int32_t sent = sendPiece(device, bytes.subspan(taken));
        if (sent < 0)
            error = -sent;
        if (sent <= 0)
            break;
        taken += static_cast<std::size_t>(sent);
    }
    sendOutgoing(device);
    return static_cast<int32_t>(taken);
}

} // namespace

int32_t writeNow(NetworkDevice& device, Bytes bytes, int32_t& error) noexcept {
    error = device.gone ? ENODEV : 0;
    if (device.gone || device.suspended)
        return 0;
    int32_t taken = 0;
    if (device.kind.holdsBack()) {
        const MutexLock guard(device.mutex);
        taken = sendData(device, bytes, error);
    } else {
        taken = device.stream.write(bytes.data(), sizeOf(bytes));
        error = std::max(-taken, 0);
    }
    if (error != 0 && bytesHeld(device) == 0) // else its last words are still to be read
        setGone(device);
    return std::max(taken, 0);
}

int32_t unsent(void* device) noexcept {
    NetworkDevice& line = of(device);
    if (line.gone)
        return 0;
    const int32_t left = streams::unconfirmed(line.stream.socket());
    if (!line.kind.holdsBack())
        return left;
    const MutexLock guard(line.mutex);
    return left + (sendOutgoing(line) ? 0 : 1);
}

} // namespace brisolt::network
