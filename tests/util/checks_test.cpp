// The checks by known values, and beside a second implementation that works bit by bit.
#include <random>
#include <span>

#include "platform/memory.h"
#include "support/open_port.h"

namespace brisolt {
namespace {

using Bytes = std::span<const uint8_t>;

uint32_t crcBits(uint32_t polynomial, uint32_t r, Bytes bytes) {
    for (uint8_t byte : bytes)
        for (int bit = 7; bit >= 0; --bit)
            r = (r << 1 & 0xFFFF) ^ (((r >> 15) & 1) != (byte >> bit & 1U) ? polynomial : 0);
    return r;
}

uint32_t check32Bits(Bytes bytes, bool withSign) {
    uint32_t r = 0;
    const auto step = [&r](uint32_t byte) {
        uint32_t entry = r >> 8 & 0xFF;
        for (int bit = 0; bit < 8; ++bit)
            entry = entry >> 1 ^ (entry & 1 ? 0xEDB88320 : 0);
        r = r << 8 ^ entry ^ byte;
    };
    for (uint8_t byte : bytes)
        step(withSign && byte >= 0x80 ? 0xFFFFFF00 | byte : byte);
    step(0), step(0);
    return r;
}

int32_t lengthOf(Bytes bytes) {
    return static_cast<int32_t>(bytes.size());
}
Bytes bytesOf(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

TEST(Checks, CheckValues) {
    const auto checksOf = [](const std::string& bytes, int32_t length) {
        return std::vector<uint32_t>{ComCRC16(bytes.data(), length), ComCRC16M(bytes.data(), length, 0x70000),
                                     ComCRC32(bytes.data(), length), ComGen_CRC(bytes.data(), length)};
    };
    EXPECT_EQ(checksOf("123456789", 9), (std::vector<uint32_t>{0x31C3, 0x7FEE8, 0x5EB444B9, 0xCA10}));
    EXPECT_EQ(checksOf("\xFF", 1), (std::vector<uint32_t>{0x1EF0, 0x70202, 0x2DFDEF8D, 0xFFD7}));
    for (int32_t length : {0, -1, INT32_MIN}) {
        EXPECT_EQ(checksOf("data", length), (std::vector<uint32_t>{0, 0x70000, 0, 0xD7})) << length;
        EXPECT_EQ(ComCKSUM32("data", length), 0U);
    }
}

TEST(Checks, BitByBitTheSame) {
    std::mt19937 random(20261125); // NOLINT(cert-msc*): every run finds the same
    const std::string all = test::pattern(5000);
    for (std::size_t count = 0; count < 200; ++count) {
        Bytes bytes = bytesOf(all).subspan(random() % 2500, count < 100 ? count : random() % 2500);
        uint32_t start = static_cast<uint32_t>(random());
        ASSERT_EQ(ComCRC16(bytes.data(), lengthOf(bytes)), crcBits(0x1021, 0, bytes));
        ASSERT_EQ(ComCRC16M(bytes.data(), lengthOf(bytes), start),
                  (start & 0xFFFF0000) | crcBits(0x8005, start & 0xFFFF, bytes));
        ASSERT_EQ(ComCRC32(bytes.data(), lengthOf(bytes)), check32Bits(bytes, false));
    }
}

TEST(Checks, Sums) {
    std::vector<uint8_t> many(20'000'000, 0xFF);
    many[7] = 0x0F;
    const uint64_t total = 255ULL * (many.size() - 1) + 15;
    const auto of = [&](auto function) -> uint64_t { return function(many.data(), lengthOf(many)); };
    EXPECT_EQ(of(ComCKSUM8), total % 0x100);
    EXPECT_EQ(of(ComCKSUM16), total % 0x10000);
    EXPECT_EQ(of(ComCKSUM32), total % 0x100000000);
    for (const uint64_t sum : {of(ComXORSUM8), of(ComXORSUM16), of(ComXORSUM32)})
        EXPECT_EQ(sum, 0xF0U);
}

struct FileChecks : testing::Test {
    int32_t checkOf(const std::string& bytes) {
        return ComCRC32_File(files.make("data", bytes).c_str(), &check);
    }
    test::Files files;
    std::string path = files.path("data");
    uint32_t check = 4711;
};

TEST_F(FileChecks, TakeBytesWithTheirSignAndBlocksAlike) {
    EXPECT_EQ(checkOf("\x80"), 1);
    EXPECT_EQ(check, 0x2062F1C9U);
    for (std::size_t count : {0U, 31999U, 32000U, 32001U, 64000U}) {
        const std::string bytes = test::pattern(count);
        EXPECT_EQ(checkOf(bytes), count);
        EXPECT_EQ(check, check32Bits(bytesOf(bytes), true)) << count;
    }
}

TEST_F(FileChecks, WhatCannotBeReadLeavesTheValue) {
    for (const std::string& none : {path, files.path("")})
        EXPECT_EQ(ComCRC32_File(none.c_str(), &check), -1);
    EXPECT_EQ(ComCRC32_File("/proc/self/mem", &check), -4);
    {
        std::ofstream writer(path);
        EXPECT_EQ(ComCRC32_File(path.c_str(), &check), -1);
    }
    memory::failAllocations(0, 1);
    EXPECT_EQ(ComCRC32_File(path.c_str(), &check), -2);
    memory::failAllocations(0, 0);
    EXPECT_EQ(check, 4711U);
    EXPECT_EQ(checkOf("abc"), 3);
}

TEST_F(FileChecks, HandlesMessagesBetweenBlocks) {
    int handled = 0;
    // Each message posts the next: one a block can be handled, when something is handled at all.
    int32_t window = ComHostCreateWindow(
        [](void* context, int32_t self, uint32_t, uintptr_t, intptr_t) {
            if (++*static_cast<int*>(context) < 3)
                ComHostPostMessage(self, 0x8000, 0, 0);
        },
        &handled);
    ComHostPostMessage(window, 0x8000, 0, 0);
    EXPECT_EQ(checkOf(test::pattern(100000)), 100000);
    EXPECT_EQ(handled, 3);
    ComHostDestroyWindow(window);
}

} // namespace
} // namespace brisolt
