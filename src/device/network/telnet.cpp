#include "device/network/telnet.h"

#include <algorithm>
#include <cstring>

namespace brisolt::network {

namespace {

constexpr uint8_t endOfMessage = 240, startOfMessage = 250;
constexpr uint8_t will = 251, wont = 252, doIt = 253, dont = 254;
constexpr uint8_t binary = 0, suppressGoAhead = 3;

/// Of both sides. A server that wants the com-port option offered first may ask for it by offering it itself.
bool isWanted(uint8_t option) noexcept {
    return option == binary || option == suppressGoAhead || option == Telnet::comPortOption;
}

bool hasRoom(const ByteRing& outgoing, std::size_t count) noexcept {
    return outgoing.capacity() - outgoing.size() >= count;
}

void say(ByteRing& outgoing, uint8_t verb, uint8_t option) noexcept {
    const uint8_t words[] = {Telnet::iac, verb, option};
    if (hasRoom(outgoing, sizeof words))
        outgoing.append(words);
}

} // namespace

void Telnet::offer(ByteRing& outgoing) noexcept {
    for (uint8_t option : {binary, suppressGoAhead}) {
        weDo_[option] = theyDo_[option] = true;
        say(outgoing, will, option);
        say(outgoing, doIt, option);
    }
    weDo_[comPortOption] = true;
    say(outgoing, will, comPortOption);
}

bool Telnet::put(ByteRing& outgoing, uint8_t command, std::span<const uint8_t> value) noexcept {
    constexpr std::size_t frame = 6;
    if (!hasRoom(outgoing, frame + 2 * value.size()))
        return false;
    const uint8_t head[] = {iac, startOfMessage, comPortOption, command};
    const uint8_t tail[] = {iac, endOfMessage};
    outgoing.append(head);
    for (uint8_t byte : value) {
        outgoing.push(byte);
        if (byte == iac)
            outgoing.push(iac);
    }
    outgoing.append(tail);
    return true;
}

/// What one of two sides does has changed, or is to change. Only a change is answered, or both would go on for ever.
void Telnet::negotiate(uint8_t option, ByteRing& outgoing) noexcept {
    const bool aboutUs = verb_ == doIt || verb_ == dont;
    const bool on = verb_ == doIt || verb_ == will;
    bool& now = aboutUs ? weDo_[option] : theyDo_[option];
    if (option == comPortOption && (on || aboutUs)) // some servers offer it where others agree to ours
        comPort_ = on ? ComPort::agreed : ComPort::refused;
    if (on && !isWanted(option)) {
        say(outgoing, aboutUs ? wont : dont, option);
        return;
    }
    if (now == on)
        return;
    now = on;
    say(outgoing, aboutUs ? (on ? will : wont) : (on ? doIt : dont), option);
}

void Telnet::command(uint8_t byte) noexcept {
    switch (byte) {
    case will:
    case wont:
    case doIt:
    case dont:
        verb_ = byte;
        seen_ = Seen::verb;
        break;
    case startOfMessage:
        messageSize_ = 0;
        seen_ = Seen::message;
        break;
    default: seen_ = Seen::data; break; // nothing that concerns a line
    }
}

void Telnet::collect(uint8_t byte) noexcept {
    if (messageSize_ < message_.size())
        message_[messageSize_] = byte;
    ++messageSize_;
}

void Telnet::messageOver(const Listener& listener) noexcept {
    if (messageSize_ > 1 && messageSize_ <= message_.size() && message_[0] == comPortOption) {
        comPort_ = ComPort::agreed; // who speaks it has agreed to it
        listener.hear(listener.self, std::span(message_).subspan(1, messageSize_ - 1));
    }
    seen_ = Seen::data;
}

int32_t Telnet::filter(uint8_t* bytes, int32_t count, ByteRing& outgoing, const Listener& listener) noexcept {
    if (seen_ == Seen::data && std::memchr(bytes, iac, static_cast<std::size_t>(count)) == nullptr)
        return count;
    int32_t kept = 0;
    for (int32_t i = 0; i < count; ++i) {
        const uint8_t byte = bytes[i];
        switch (seen_) {
        case Seen::data:
            if (byte == iac)
                seen_ = Seen::iac;
            else
                bytes[kept++] = byte;
            break;
        case Seen::iac:
            if (byte == iac) {
                bytes[kept++] = byte;
                seen_ = Seen::data;
            } else {
                command(byte);
            }
            break;
        case Seen::verb:
            negotiate(byte, outgoing);
            seen_ = Seen::data;
            break;
        case Seen::message:
            if (byte == iac)
                seen_ = Seen::messageIac;
            else
                collect(byte);
            break;
        case Seen::messageIac:
            if (byte == endOfMessage) {
                messageOver(listener);
            } else if (byte == iac) {
                collect(byte);
                seen_ = Seen::message;
            } else {
                command(byte); // a message that was never ended
            }
            break;
        }
    }
    return kept;
}

} // namespace brisolt::network
