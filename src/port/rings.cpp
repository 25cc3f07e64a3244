#include "port/rings.h"

#include <algorithm>
#include <cstring>

namespace brisolt {

namespace {

std::span<uint8_t> piece(uint8_t* storage, int32_t from, int32_t to) {
    return {storage + from, static_cast<std::size_t>(to - from)};
}

int32_t distance(int32_t tail, int32_t head, int32_t size) {
    return head >= tail ? head - tail : size - tail + head;
}

} // namespace

int32_t ReceiveRing::count() const noexcept {
    return storage == nullptr ? 0 : distance(*tail, *head, size);
}

// Behind the reader one slot stays free, else a full ring would look empty. From an empty ring whose
// reader stands at 0 the writer may use all of it: the head then rests on the size.
std::span<uint8_t> ReceiveRing::room() const noexcept {
    if (storage == nullptr)
        return {};
    int32_t write = *head;
    int32_t read = *tail;
    return write < read ? piece(storage, write, read - 1) : piece(storage, write, size);
}

void ReceiveRing::filled(int32_t bytes) noexcept {
    int32_t write = *head;
    bool toTheEnd = write >= *tail && bytes > 0 && write + bytes == size;
    if (toTheEnd)
        *head = *tail > 0 ? 0 : size;
    else
        *head = write + bytes;
}

ReceiveRing::Pieces ReceiveRing::unread() const noexcept {
    if (storage == nullptr)
        return {};
    int32_t read = *tail;
    int32_t write = *head;
    if (write >= read)
        return {piece(storage, read, write), {}};
    return {piece(storage, read, size), piece(storage, 0, write)};
}

void ReceiveRing::wrapFull() noexcept {
    if (*head == size && *tail > 0)
        *head = 0;
}

void ReceiveRing::clear() noexcept {
    if (storage == nullptr)
        return;
    *tail = 0;
    *head = 0;
}

int32_t TransmitRing::count() const noexcept {
    return storage == nullptr ? 0 : distance(*tail, *head, size);
}

void TransmitRing::normalise() noexcept {
    if (*tail < 0 || *tail >= size)
        *tail = 0;
    if (*head < 0)
        *head = 0;
    if (*head > size)
        *head = size;
}

int32_t TransmitRing::queue(std::span<const uint8_t> bytes) noexcept {
    if (bytes.empty())
        return 0;
    normalise();
    int32_t write = *head;
    int32_t read = *tail;
    auto count = static_cast<int32_t>(std::min<std::size_t>(bytes.size(), INT32_MAX));
    if (write < read) {
        int32_t taken = std::min(count, read - write - 1);
        std::memcpy(storage + write, bytes.data(), static_cast<std::size_t>(taken));
        *head = write + taken;
        return taken;
    }
    int32_t first = std::min(count, size - write);
    std::memcpy(storage + write, bytes.data(), static_cast<std::size_t>(first));
    if (first == count || read == 0) {
        *head = write + first;
        return first;
    }
    int32_t rest = std::min(count - first, read - 1);
    std::memcpy(storage, bytes.data() + first, static_cast<std::size_t>(rest));
    *head = rest;
    return first + rest;
}

std::span<const uint8_t> TransmitRing::next() noexcept {
    if (storage == nullptr)
        return {};
    normalise();
    int32_t read = *tail;
    int32_t write = *head;
    if (read == write) {
        clear();
        return {};
    }
    return read < write ? piece(storage, read, write) : piece(storage, read, size);
}

void TransmitRing::sent(int32_t bytes) noexcept {
    int32_t read = *tail + bytes;
    if (read == *head) {
        clear();
        return;
    }
    *tail = read >= size ? 0 : read;
    if (*tail == *head)
        clear();
}

void TransmitRing::clear() noexcept {
    if (storage == nullptr)
        return;
    *tail = 0;
    *head = 0;
}

} // namespace brisolt
