// The rings beside rings of the simplest kind: a queue, filled byte by byte by the few rules there are.
#include <array>
#include <deque>
#include <random>

#include "support/bare_port.h"
#include "support/open_port.h"

namespace brisolt {
namespace {

constexpr uint32_t seeds = 40;
constexpr int32_t turns = 3000;

/// A ring as a queue of bytes and the two positions, one byte at a time.
struct NaiveRing {
    int32_t size;
    bool wrapsLate; ///< a head at the end goes back to the start with the next byte, not at once
    std::deque<uint8_t> bytes{};
    int32_t tail = 0, head = 0;

    bool put(uint8_t byte) {
        if (head == size && tail > 1 && wrapsLate)
            head = 0;
        if (head == size || head == tail - 1)
            return false;
        bytes.push_back(byte);
        ++head;
        if (head == size && tail > 0 && !wrapsLate)
            head = 0;
        return true;
    }
    void settle() {
        if (bytes.empty())
            tail = head = 0;
        else if (tail == size)
            tail = 0;
    }
    uint8_t take() {
        const uint8_t byte = bytes.front();
        bytes.pop_front();
        ++tail;
        settle();
        return byte;
    }
};

/// Sizes from tiny to roomy, other chunks and another order with every seed.
struct RandomRings {
    std::mt19937 random;
    int32_t size;

    explicit RandomRings(uint32_t seed) : random(seed), size(between(2, seed % 2 == 0 ? 8 : 60)) {}
    int32_t between(int32_t least, int32_t most) {
        return std::uniform_int_distribution<int32_t>(least, most)(random);
    }
    uint8_t byte() { return static_cast<uint8_t>(random()); }
};

/// Takes turns with every seed, each on a ring of its own.
template <class Play> void playEverySeed(Play play) {
    for (uint32_t seed = 0; seed < seeds && !testing::Test::HasFatalFailure(); ++seed) {
        SCOPED_TRACE(testing::Message() << "seed " << seed);
        RandomRings random(seed);
        play(random);
    }
}

TEST(ReceiveRing, MatchesANaiveRing) {
    playEverySeed([](RandomRings& random) {
        test::BarePort port(5, static_cast<uint32_t>(random.size), 2048);
        port->record->ioMode = ioThreaded;
        ReceiveRing& ring = port->rx;
        NaiveRing naive{.size = random.size, .wrapsLate = false};
        for (int32_t turn = 0; turn < turns; ++turn) {
            if (random.between(0, 1) == 0) {
                // A device fills what room there is, in one piece.
                auto room = ring.room();
                const auto filled = random.between(0, static_cast<int32_t>(room.size()));
                for (int32_t i = 0; i < filled; ++i) {
                    room[static_cast<std::size_t>(i)] = random.byte();
                    ASSERT_TRUE(naive.put(room[static_cast<std::size_t>(i)]));
                }
                ring.filled(filled);
            } else {
                const int32_t count = random.between(1, random.size + 3);
                const std::string got = test::readUpTo(5, count);
                ASSERT_EQ(got.size(),
                          std::min<std::size_t>(naive.bytes.size(), static_cast<std::size_t>(count)));
                for (const char byte : got)
                    ASSERT_EQ(static_cast<uint8_t>(byte), naive.take());
            }
            ASSERT_EQ(ring.count(), static_cast<int32_t>(naive.bytes.size()));
            ASSERT_EQ(*ring.tail, naive.tail);
            ASSERT_EQ(*ring.head, naive.head);
            // It says "full" exactly when one more byte would not go in.
            ASSERT_EQ(ring.room().empty(), !NaiveRing(naive).put(0));
        }
    });
}

TEST(TransmitRing, MatchesANaiveRing) {
    playEverySeed([](RandomRings& random) {
        test::BarePort port(5, 2048, static_cast<uint32_t>(random.size));
        TransmitRing& ring = port->tx;
        NaiveRing naive{.size = random.size, .wrapsLate = true};
        for (int32_t turn = 0; turn < turns; ++turn) {
            if (random.between(0, 1) == 0) {
                std::vector<uint8_t> bytes(static_cast<std::size_t>(random.between(0, random.size + 3)));
                for (uint8_t& byte : bytes)
                    byte = random.byte();
                const int32_t taken = ring.queue(bytes);
                for (std::size_t i = 0; i < static_cast<std::size_t>(taken); ++i)
                    ASSERT_TRUE(naive.put(bytes[i]));
                const bool tookAll = taken == static_cast<int32_t>(bytes.size());
                ASSERT_TRUE(tookAll || !NaiveRing(naive).put(0)) << "turned away what there was room for";
            } else {
                const auto piece = ring.next();
                ASSERT_EQ(piece.empty(), naive.bytes.empty());
                const int32_t sent = random.between(0, static_cast<int32_t>(piece.size()));
                for (const uint8_t byte : piece.first(static_cast<std::size_t>(sent)))
                    ASSERT_EQ(byte, naive.take());
                ring.sent(sent);
            }
            ASSERT_EQ(ComOutBufStatus(5), static_cast<int32_t>(naive.bytes.size()));
            ASSERT_EQ(ring.empty(), naive.bytes.empty());
            ASSERT_TRUE(!naive.bytes.empty() || (*ring.tail == 0 && *ring.head == 0));
        }
    });
}

// A block that a caller has moved the positions of must not lead the ring outside its storage.
TEST(TransmitRing, PositionsFromOutsideAreBroughtBack) {
    test::BarePort port(5);
    for (const auto& [tail, head, tailAfter, headAfter] : {std::array{-5, 10, 0, 10},
                                                           {10, -1, 10, 0},
                                                           {2048, 7, 0, 7},
                                                           {3, 9999, 3, 2048},
                                                           {-1, -1, 0, 0},
                                                           {5000, 5000, 0, 2048}}) {
        port->record->txTail = tail;
        port->record->txHead = head;
        port->tx.normalise();
        EXPECT_EQ(port->record->txTail, tailAfter) << tail << ' ' << head;
        EXPECT_EQ(port->record->txHead, headAfter) << tail << ' ' << head;
    }
}

} // namespace
} // namespace brisolt
