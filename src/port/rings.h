// The receive and the transmit ring. The positions live in the port's record; storage and size are the
// ring's own, so that no parameter record that a caller writes can make it step outside.
#pragma once

#include <cstdint>
#include <span>

#include "port/shared.h"

namespace brisolt {

struct ReceiveRing {
    uint8_t* storage = nullptr;
    int32_t size = 0;
    Shared<int32_t>* tail = nullptr; ///< the oldest unread byte
    Shared<int32_t>* head = nullptr; ///< where the next byte goes; equal to size when full from 0

    int32_t count() const noexcept;
    /// Where the writer may put bytes now, in one piece. Empty when it must wait for a reader.
    std::span<uint8_t> room() const noexcept;
    void filled(int32_t bytes) noexcept; ///< that many bytes were put into room()
    /// The unread bytes in ring order, in up to two pieces.
    struct Pieces {
        std::span<uint8_t> first, second;
    };
    Pieces unread() const noexcept;
    /// A ring that was filled from 0 to its end takes nothing until it is emptied; with this it goes on at
    /// its start as soon as the reader has moved on.
    void wrapFull() noexcept;
    void clear() noexcept;
};

struct TransmitRing {
    uint8_t* storage = nullptr;
    int32_t size = 0;
    Shared<int32_t>* tail = nullptr; ///< the next byte for the device
    Shared<int32_t>* head = nullptr; ///< where the next queued byte goes

    bool empty() const noexcept { return tail->load() == head->load(); }
    int32_t count() const noexcept;
    void normalise() noexcept;
    int32_t queue(std::span<const uint8_t> bytes) noexcept; ///< how many it took
    /// The next bytes for the device in one piece.
    std::span<const uint8_t> next() noexcept;
    void sent(int32_t bytes) noexcept; ///< they are gone from the ring
    void clear() noexcept;
};

} // namespace brisolt
