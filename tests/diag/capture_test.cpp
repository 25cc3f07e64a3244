// Capture on failure: what the saved files hold, byte by byte, and which files stay.
#include <atomic>

#include "diag/capture_ring.h"
#include "diag/standing_clock.h"
#include "platform/memory.h"
#include "support/limit.h"

namespace brisolt::test {
namespace {

namespace fs = std::filesystem;

struct Capture : StandingClock {
    int32_t start(int32_t capacity) const {
        return ComSetDebugFileOnFail(3, directory.path().c_str(), capacity);
    }
    static int32_t add(const std::string& bytes) {
        return ComWriteDebugFileOnFail(3, bytes.data(), static_cast<int32_t>(bytes.size()));
    }
    /// Saves, and takes the only saved file away.
    std::string saved() const {
        EXPECT_EQ(ComDebugFileOnFail_Save(3), 1);
        std::string bytes = contentsOf(first);
        EXPECT_TRUE(fs::remove(first));
        return bytes;
    }
    void make(const std::string& name, int32_t age) const {
        std::ofstream(directory.file(name)) << name;
        fs::last_write_time(directory.path() / name, fs::file_time_type::clock::now() - age * 1h);
    }
    std::vector<std::string> names() const {
        std::vector<std::string> all;
        for (const auto& entry : fs::directory_iterator(directory.path()))
            all.push_back(entry.path().filename());
        std::sort(all.begin(), all.end());
        return all;
    }
    static std::string name(int32_t slot) {
        return std::string("comlog3_111926_") + (slot < 10 ? "0" : "") + std::to_string(slot) + ".txt";
    }
    std::string first = directory.file(name(1));
};

std::string letters(std::size_t count, std::size_t from = 0) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += static_cast<char>('!' + (from + i) % 90);
    return text;
}

TEST_F(Capture, EveryShapeOfTheRing) {
    for (const std::size_t capacity : {1U, 3U})
        for (std::size_t shape = 0; shape < 5 * 5 * 5 * 5; ++shape) {
            ASSERT_EQ(start(static_cast<int32_t>(capacity)), 1);
            std::string all;
            std::size_t position = 0;
            bool round = false;
            for (std::size_t rest = shape; rest > 0; rest /= 5) {
                const std::string bytes = letters(rest % 5, all.size());
                ASSERT_EQ(add(bytes), 1);
                all += bytes;
                const std::size_t next = position + bytes.size();
                const bool whole = bytes.size() >= capacity;
                round = round || (whole ? position > 0 : next > capacity);
                position = whole             ? (position > 0 ? position : capacity)
                           : next > capacity ? next - capacity
                                             : next;
            }
            // The latest bytes, one less in a ring that has gone round and whose next byte would not come at
            // its beginning.
            const std::size_t kept = round && position < capacity ? capacity - 1 : capacity;
            all = position == 0 ? std::string(capacity, '\0')
                                : all.substr(all.size() - std::min(all.size(), kept));
            ASSERT_EQ(saved(), all) << capacity << ' ' << shape;
        }
}

TEST_F(Capture, ClearingStopsAtAZeroByte) {
    ASSERT_EQ(start(8), 1);
    EXPECT_EQ(saved(), std::string(8, '\0'));
    add({"ab\0cd", 5});
    EXPECT_EQ(ComClearDebugFileOnFail(3), 1);
    EXPECT_EQ(saved(), std::string("\0\0\0cd\0\0\0", 8));
    EXPECT_EQ(add("x"), 1);
    EXPECT_EQ(saved(), "x");
}

TEST_F(Capture, ProtocolEntriesGoToTheRingAndLaterToTheFileAgain) {
    const std::string log = directory.file("log.txt");
    ASSERT_EQ(start(1000), 1);
    EXPECT_EQ(ComWriteProtocolDebugFile(3, "n%d", 1), 1);
    EXPECT_EQ(ComSetProtocolDebugFile(3, log.c_str(), "MODEM"), 1);
    EXPECT_EQ(ComWriteProtocolDebugFileString(3, "text"), 1);
    EXPECT_EQ(ComWriteProtocolDebugFileStringHEX(3, "\x0a", 1), 1);
    EXPECT_EQ(saved(), traceStamp + "n1" + header("PROTOCOL DEBUG FILE - Protocol:MODEM") + traceStamp +
                           "text" + traceStamp + "<a>");
    EXPECT_FALSE(fs::exists(log));
    EXPECT_EQ(ComStopDebugFileOnFail(3), 1);
    EXPECT_EQ(ComSetProtocolDebugFile(3, log.c_str(), "P"), 1);
    EXPECT_EQ(contentsOf(log), header("PROTOCOL DEBUG FILE - Protocol:P"));
    EXPECT_EQ(ComWriteDebugFileOnFail(3, "x", 1), -2);
    EXPECT_EQ(ComDebugFileOnFail_Save(3), -2);
}

TEST_F(Capture, TakesTheLowestFreeSlot) {
    ASSERT_EQ(start(10), 1);
    // The third has no slot, the fourth is too short for one, the fifth another port's.
    for (const char* taken : {"comlog3_010126_01.txt", "comlog3_111926_03.txt", "comlog3_111926_11.txt",
                              "comlog3", "comlog4_111926_02.txt"})
        make(taken, 1);
    fs::create_directory(directory.path() / "comlog3_111926_02.txt.d");
    add("two");
    EXPECT_EQ(ComDebugFileOnFail_Save(3), 1);
    EXPECT_EQ(contentsOf(directory.file(name(2))), "two");
}

TEST_F(Capture, TheOldestGoFromNineFilesOn) {
    const FastClock fast(100);
    ASSERT_EQ(start(10), 1);
    for (int32_t slot = 1; slot <= 9; ++slot)
        make(name(slot), slot == 4 || slot == 6 ? 50 : slot);
    fs::last_write_time(directory.path() / name(4), fs::last_write_time(directory.path() / name(6)));
    std::vector<std::string> expected = names();
    std::erase(expected, name(4)); // as old as 6, but listed first
    expected.push_back(name(10));  // the slots are those from before
    add("a");
    EXPECT_EQ(ComDebugFileOnFail_Save(3), 1);
    EXPECT_EQ(names(), expected);
    for (int32_t slot = 1; slot <= 10; ++slot)
        make(name(slot), 20 - slot);
    make("comlog3_and_later_than_the_first_ten.txt", 100);
    add("kept");
    EXPECT_EQ(ComDebugFileOnFail_Save(3), -4) << "no slot left";
    EXPECT_EQ(names().size(), 8U);
    EXPECT_EQ(names().front(), name(4));
    EXPECT_EQ(ComDebugFileOnFail_Save(3), 1);
    EXPECT_EQ(contentsOf(first), "kept");
}

TEST_F(Capture, Directories) {
    fs::create_directories(directory.path() / "a" / "b");
    for (const auto& [given, place] : {std::pair{"", ""}, {"/", ""}, {"\\", ""}, {"/a\\b\\", "a/b/"}}) {
        ASSERT_EQ(ComSetDebugFileOnFail(3, (directory.path().string() + given).c_str(), 10), 1);
        add("abc");
        EXPECT_EQ(ComDebugFileOnFail_Save(3), 1) << given;
        EXPECT_EQ(contentsOf(directory.file(place + name(1))), "abc") << given;
        fs::remove(directory.file(place + name(1)));
    }
}

TEST_F(Capture, AFailedSaveKeepsTheRing) {
    const std::string missing = directory.file("missing"), text = letters(40000);
    const std::string longest = "/" + std::string(258, 'x');
    for (const auto& [given, result] : {std::pair{std::string("."), -2}, {longest, -3}, {missing, -3}}) {
        ASSERT_EQ(ComSetDebugFileOnFail(3, given.c_str(), 50000), 1);
        add(text);
        EXPECT_EQ(ComDebugFileOnFail_Save(3), result) << given;
    }
    fs::create_directory(missing);
    {
        const FullDisk takesAPart(1000);
        EXPECT_EQ(ComDebugFileOnFail_Save(3), -3);
    }
    EXPECT_TRUE(fs::is_empty(missing));
    EXPECT_EQ(ComDebugFileOnFail_Save(3), 1);
    EXPECT_EQ(contentsOf(missing + "/" + name(1)), text);
}

TEST_F(Capture, Refusals) {
    ASSERT_EQ(start(10), 1);
    add("kept");
    EXPECT_EQ(ComWriteDebugFileOnFail(3, "a", -1), -1);
    EXPECT_EQ(start(0), -1);
    EXPECT_EQ(ComSetDebugFileOnFail(3, std::string(260, 'x').c_str(), 10), -1);
    EXPECT_EQ(ComFreeAll(3), 1); // the ring is none of the program's blocks
    EXPECT_EQ(saved(), "kept");

    memory::failAllocations(0, 1);
    EXPECT_EQ(start(10), -2);
    EXPECT_EQ(add("a"), -2) << "it is off";
}

TEST_F(Capture, WhatIsAddedDuringASaveIsInTheNextOne) {
    ASSERT_EQ(start(1'000'000), 1);
    std::atomic<bool> over{false};
    std::string all, expected;
    for (int i = 0; i < 3000; ++i)
        expected += std::to_string(i) + '\n';
    std::thread writer([&] {
        for (std::size_t at = 0; at < expected.size(); at += 4)
            add(expected.substr(at, 4));
        over = true;
    });
    for (bool last = false; !last;) {
        last = over;
        all += saved();
    }
    writer.join();
    std::erase(all, '\0'); // of saves when nothing had come
    EXPECT_EQ(all, expected);
    for (std::size_t added = 0; added < 12; ++added) // also when the ring has gone round since
        for (std::size_t later = 0; later < 6; ++later) {
            ASSERT_EQ(start(5), 1);
            for (std::size_t i = 0; i < added; ++i)
                add(letters(1, i));
            captureRing::keepLatest(*port->record, later);
            add("#");
            const std::size_t kept = std::min({added, later, std::size_t{5}});
            const std::string left = letters(added).substr(added - kept) + "#";
            ASSERT_EQ(saved(), kept == 5 ? left.substr(2) : left) << added << ' ' << later;
        }
}

} // namespace
} // namespace brisolt::test
