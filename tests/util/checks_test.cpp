// Every check against a second implementation that works bit by bit, over random bytes, lengths and pieces.
#include <cstdint>
#include <fcntl.h>
#include <fstream>
#include <gtest/gtest.h>
#include <random>
#include <span>
#include <string>
#include <unistd.h>
#include <vector>

#include "api/brisolt.h"
#include "api/brisolt_host.h"
#include "platform/memory.h"
#include "support/temp_dir.h"

namespace brisolt {
namespace {

using Bytes = std::span<const uint8_t>;

// ---- bit by bit

uint32_t crcBits(uint32_t polynomial, uint32_t r, Bytes bytes) {
    for (uint8_t byte : bytes)
        for (int bit = 7; bit >= 0; --bit) {
            bool out = ((r >> 15) & 1) != (byte >> bit & 1U);
            r = (r << 1 & 0xFFFF) ^ (out ? polynomial : 0);
        }
    return r;
}

uint32_t check32Step(uint32_t r, uint32_t byte) {
    uint32_t entry = r >> 8 & 0xFF;
    for (int bit = 0; bit < 8; ++bit)
        entry = entry >> 1 ^ (entry & 1 ? 0xEDB88320 : 0);
    return r << 8 ^ entry ^ byte;
}

uint32_t check32Bits(Bytes bytes, bool withSign) {
    uint32_t r = 0;
    for (uint8_t byte : bytes)
        r = check32Step(r, withSign && byte >= 0x80 ? 0xFFFFFF00 | byte : byte);
    return check32Step(check32Step(r, 0), 0);
}

uint32_t check16Bits(Bytes bytes) {
    uint32_t s = 0;
    for (uint8_t byte : bytes) {
        uint32_t h = s >> 8;
        uint32_t a = h * 257 >> 1;
        uint32_t b = 0;
        if (h % 2 == 1) {
            a |= 0x8000;
            b = 0x3C00;
        }
        s ^= a ^ b ^ static_cast<uint32_t>(byte << 8);
    }
    return s ^ 0xD7;
}

// ---- samples

std::mt19937 random{20261125}; // NOLINT(cert-msc*): every run finds the same

std::vector<uint8_t> randomBytes(std::size_t count) {
    std::vector<uint8_t> bytes(count);
    for (uint8_t& byte : bytes)
        byte = static_cast<uint8_t>(random());
    return bytes;
}

int32_t lengthOf(Bytes bytes) {
    return static_cast<int32_t>(bytes.size());
}

Bytes bytesOf(const std::string& text) {
    return {reinterpret_cast<const uint8_t*>(text.data()), text.size()};
}

TEST(Checks, CheckValues) {
    struct {
        std::string bytes;
        uint32_t crc16, crc16M, crc32, gen;
    } rows[] = {{"123456789", 0x31C3, 0xFEE8, 0x5EB444B9, 0xCA10},
                {"abc", 0x9DD6, 0xCADB, 0x711E989B, 0x17A0},
                {"\xFF", 0x1EF0, 0x0202, 0x2DFDEF8D, 0xFFD7},
                {"\x80", crcBits(0x1021, 0, bytesOf("\x80")), crcBits(0x8005, 0, bytesOf("\x80")), 0xED388320,
                 0x80D7},
                {"", 0, 0, 0, 0xD7}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.bytes);
        auto length = static_cast<int32_t>(row.bytes.size());
        EXPECT_EQ(ComCRC16(row.bytes.data(), length), row.crc16);
        EXPECT_EQ(ComCRC16M(row.bytes.data(), length, 0), row.crc16M);
        EXPECT_EQ(ComCRC32(row.bytes.data(), length), row.crc32);
        EXPECT_EQ(ComGen_CRC(row.bytes.data(), length), row.gen);
    }
    EXPECT_EQ(ComCRC16M("123456789", 9, 0xFFFF), 0xAEE7U);
    EXPECT_EQ(ComCRC16M("123456789", 9, 0xABCD0000), 0xABCDFEE8);
}

TEST(Checks, BitByBitTheSame) {
    std::vector<uint8_t> all = randomBytes(5000);
    auto compare = [&](std::size_t from, std::size_t count) {
        Bytes bytes = Bytes(all).subspan(from, count);
        uint32_t start = static_cast<uint32_t>(random());
        ASSERT_EQ(ComCRC16(bytes.data(), lengthOf(bytes)), crcBits(0x1021, 0, bytes));
        ASSERT_EQ(ComCRC16M(bytes.data(), lengthOf(bytes), start),
                  (start & 0xFFFF0000) | crcBits(0x8005, start & 0xFFFF, bytes));
        std::size_t cut = random() % (count + 1);
        uint32_t half = ComCRC16M(bytes.data(), lengthOf(bytes.first(cut)), start);
        ASSERT_EQ(ComCRC16M(bytes.data() + cut, lengthOf(bytes.subspan(cut)), half),
                  ComCRC16M(bytes.data(), lengthOf(bytes), start));
        ASSERT_EQ(ComCRC32(bytes.data(), lengthOf(bytes)), check32Bits(bytes, false));
        ASSERT_EQ(ComGen_CRC(bytes.data(), lengthOf(bytes)), check16Bits(bytes));
    };
    for (std::size_t count = 0; count < 100; ++count)
        compare(count % 7, count);
    for (int i = 0; i < 100; ++i) {
        std::size_t from = random() % 2500;
        compare(from, random() % 2500);
    }
}

TEST(Checks, Sums) {
    const uint8_t two[] = {200, 100};
    EXPECT_EQ(ComCKSUM8(two, 2), 44);
    EXPECT_EQ(ComCKSUM16(two, 2), 300);
    std::vector<uint8_t> many(20'000'000, 0xFF);
    many[7] = 0x0F;
    uint64_t total = 255ULL * (many.size() - 1) + 15;
    EXPECT_EQ(ComCKSUM8(many.data(), lengthOf(many)), total % 0x100);
    EXPECT_EQ(ComCKSUM16(many.data(), lengthOf(many)), total % 0x10000);
    EXPECT_EQ(ComCKSUM32(many.data(), lengthOf(many)), total % 0x100000000);
    EXPECT_EQ(ComXORSUM8(many.data(), lengthOf(many)), 0xF0);
    EXPECT_EQ(ComXORSUM16(many.data(), lengthOf(many)), 0xF0);
    EXPECT_EQ(ComXORSUM32(many.data(), lengthOf(many)), 0xF0U);
}

TEST(Checks, NoData) {
    for (int32_t length : {0, -1, INT32_MIN}) {
        EXPECT_EQ(ComCRC16M("data", length, 0x87654321), 0x87654321U);
        EXPECT_EQ(ComCRC32("data", length) + ComCKSUM32("data", length), 0U);
    }
    EXPECT_EQ(ComGen_CRC(nullptr, 5), 0xD7U);
}

class FileChecks : public testing::Test {
protected:
    void fill(Bytes bytes) {
        std::ofstream(path, std::ios::binary)
            .write(reinterpret_cast<const char*>(bytes.data()), lengthOf(bytes));
    }

    static constexpr uint32_t untouched = 4711;
    test::TempDir directory;
    std::string path = directory.file("data");
    uint32_t check = untouched;
};

TEST_F(FileChecks, BytesEnterWithTheirSign) {
    struct {
        std::string bytes;
        uint32_t check;
    } rows[] = {{"123456789", 0x5EB444B9}, {"\xFF", 0xE0A79D64}, {"\x80", 0x2062F1C9}, {"", 0}};
    for (const auto& row : rows) {
        fill(bytesOf(row.bytes));
        EXPECT_EQ(ComCRC32_File(path.c_str(), &check), row.bytes.size());
        EXPECT_EQ(check, row.check);
    }
}

TEST_F(FileChecks, BlocksMakeNoDifference) {
    for (std::size_t count : {31999U, 32000U, 32001U, 64000U, 100000U}) {
        std::vector<uint8_t> bytes = randomBytes(count);
        fill(bytes);
        EXPECT_EQ(ComCRC32_File(path.c_str(), &check), count);
        EXPECT_EQ(check, check32Bits(bytes, true)) << count;
    }
}

TEST_F(FileChecks, WhatCannotBeReadLeavesTheValue) {
    EXPECT_EQ(ComCRC32_File(path.c_str(), &check), -1);
    EXPECT_EQ(ComCRC32_File(directory.path().c_str(), &check), -1);
    EXPECT_EQ(ComCRC32_File("/proc/self/mem", &check), -4);
    fill(bytesOf("abc"));
    int writer = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    EXPECT_EQ(ComCRC32_File(path.c_str(), &check), -1);
    close(writer);
    memory::failAllocations(0, 1);
    EXPECT_EQ(ComCRC32_File(path.c_str(), &check), -2);
    memory::failAllocations(0, 0);
    EXPECT_EQ(check, untouched);
    EXPECT_EQ(ComCRC32_File(path.c_str(), &check), 3);
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
    fill(randomBytes(100000));
    EXPECT_EQ(ComCRC32_File(path.c_str(), &check), 100000);
    EXPECT_EQ(handled, 3);
    ComHostDestroyWindow(window);
}

} // namespace
} // namespace brisolt
