// Capture on failure: what the saved files hold, byte by byte, and which files stay.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include <sys/resource.h>

#include "diag/standing_clock.h"
#include "platform/memory.h"

namespace brisolt {
namespace {

namespace fs = std::filesystem;

class Capture : public test::StandingClock {
protected:
    int32_t start(int32_t capacity) const {
        return ComSetDebugFileOnFail(3, directory.path().c_str(), capacity);
    }
    static int32_t add(const std::string& bytes) {
        return ComWriteDebugFileOnFail(3, bytes.data(), static_cast<int32_t>(bytes.size()));
    }
    /// Saves, and takes the only saved file away.
    std::string saved() const {
        EXPECT_EQ(ComDebugFileOnFail_Save(3), 1);
        std::string bytes = contents(first);
        EXPECT_TRUE(fs::remove(first));
        return bytes;
    }
    void make(const std::string& name, int32_t age) const {
        std::ofstream(directory.file(name)) << name;
        fs::last_write_time(directory.path() / name,
                            fs::file_time_type::clock::now() - std::chrono::hours(age));
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
                if (bytes.size() >= capacity) {
                    round = round || position > 0;
                    position = position > 0 ? position : capacity;
                } else {
                    round = round || next > capacity;
                    position = next > capacity ? next - capacity : next;
                }
            }
            // The latest bytes, one less in a ring that has gone round and whose next byte would not come at
            // its beginning.
            const std::size_t kept = round && position < capacity ? capacity - 1 : capacity;
            if (position == 0)
                all = std::string(capacity, '\0');
            if (all.size() > kept)
                all.erase(0, all.size() - kept);
            ASSERT_EQ(saved(), all) << capacity << ' ' << shape;
        }
}

TEST_F(Capture, ClearingStopsAtAZeroByte) {
    ASSERT_EQ(start(8), 1);
    EXPECT_EQ(saved(), std::string(8, '\0'));
    EXPECT_EQ(add({"ab\0cd", 5}), 1);
    EXPECT_EQ(ComClearDebugFileOnFail(3), 1);
    EXPECT_EQ(saved(), std::string("\0\0\0cd\0\0\0", 8));
    EXPECT_EQ(add("x"), 1);
    EXPECT_EQ(saved(), "x");
}

TEST_F(Capture, ProtocolEntriesGoToTheRingAndLaterToTheFileAgain) {
    std::string log = directory.file("log.txt");
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
    EXPECT_EQ(ComWriteProtocolDebugFileString(3, "to the file"), 1);
    EXPECT_TRUE(contents(log).ends_with("to the file"));
    EXPECT_EQ(ComWriteDebugFileOnFail(3, "x", 1), -2);
    EXPECT_EQ(ComDebugFileOnFail_Save(3), -2);
}

TEST_F(Capture, TakesTheLowestFreeSlot) {
    ASSERT_EQ(start(10), 1);
    make("comlog3_010126_01.txt", 5);
    make(name(3), 4);
    make("comlog3_111926_11.txt", 3); // no slot
    make("comlog3", 2);               // too short for one
    make("comlog4_111926_02.txt", 1); // another port's
    fs::create_directory(directory.path() / "comlog3_111926_02.txt.d");
    add("two");
    EXPECT_EQ(ComDebugFileOnFail_Save(3), 1);
    EXPECT_EQ(contents(directory.file(name(2))), "two");
}

TEST_F(Capture, TheOldestGoFromNineFilesOn) {
    clock::setTestScale(100);
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
    EXPECT_EQ(contents(directory.file(name(10))), "a");
}

TEST_F(Capture, NoSlotLeft) {
    clock::setTestScale(100);
    ASSERT_EQ(start(10), 1);
    for (int32_t slot = 1; slot <= 10; ++slot)
        make(name(slot), 20 - slot);
    make("comlog3_and_later_than_the_first_ten.txt", 100);
    add("kept");
    EXPECT_EQ(ComDebugFileOnFail_Save(3), -4);
    std::vector<std::string> left;
    for (int32_t slot = 4; slot <= 10; ++slot)
        left.push_back(name(slot));
    left.push_back("comlog3_and_later_than_the_first_ten.txt");
    EXPECT_EQ(names(), left);
    EXPECT_EQ(ComDebugFileOnFail_Save(3), 1);
    EXPECT_EQ(contents(first), "kept");
}

TEST_F(Capture, Directories) {
    fs::create_directories(directory.path() / "a" / "b");
    const std::string root = directory.path().string();
    const std::pair<std::string, std::string> rows[] = {
        {root, ""}, {root + "/", ""}, {root + "\\", ""}, {root + "/a\\b\\", "a/b/"}};
    for (const auto& [given, place] : rows) {
        ASSERT_EQ(ComSetDebugFileOnFail(3, given.c_str(), 10), 1);
        add("abc");
        EXPECT_EQ(ComDebugFileOnFail_Save(3), 1) << given;
        EXPECT_EQ(contents(directory.file(place + name(1))), "abc") << given;
        fs::remove(directory.file(place + name(1)));
    }
    fs::current_path(directory.path() / "a");
    ASSERT_EQ(ComSetDebugFileOnFail(3, ".", 10), 1);
    EXPECT_EQ(ComDebugFileOnFail_Save(3), -2);
    std::string longest = "/" + std::string(258, 'x');
    ASSERT_EQ(ComSetDebugFileOnFail(3, longest.c_str(), 10), 1);
    EXPECT_EQ(ComDebugFileOnFail_Save(3), -3);
}

TEST_F(Capture, AFailedSaveKeepsTheRing) {
    std::string missing = directory.file("missing");
    ASSERT_EQ(ComSetDebugFileOnFail(3, missing.c_str(), 50000), 1);
    std::string text = letters(40000);
    add(text);
    EXPECT_EQ(ComDebugFileOnFail_Save(3), -3);
    fs::create_directory(missing);
    // A disk that takes a part only.
    signal(SIGXFSZ, SIG_IGN);
    rlimit before{};
    getrlimit(RLIMIT_FSIZE, &before);
    rlimit small{1000, before.rlim_max};
    setrlimit(RLIMIT_FSIZE, &small);
    int32_t result = ComDebugFileOnFail_Save(3);
    setrlimit(RLIMIT_FSIZE, &before);
    EXPECT_EQ(result, -3);
    EXPECT_TRUE(fs::is_empty(missing));
    EXPECT_EQ(ComDebugFileOnFail_Save(3), 1);
    EXPECT_EQ(contents(missing + "/" + name(1)), text);
}

TEST_F(Capture, Refusals) {
    EXPECT_EQ(ComDebugFileOnFail_Save(4), -1);
    ASSERT_EQ(start(10), 1);
    add("kept");
    EXPECT_EQ(ComWriteDebugFileOnFail(3, nullptr, 1), -1);
    EXPECT_EQ(ComWriteDebugFileOnFail(3, "a", -1), -1);
    EXPECT_EQ(start(0), -1);
    EXPECT_EQ(ComSetDebugFileOnFail(3, std::string(260, 'x').c_str(), 10), -1);
    EXPECT_EQ(ComFreeAll(3), 1); // the ring is none of the program's blocks
    EXPECT_EQ(saved(), "kept");

    memory::failAllocations(0, 1);
    EXPECT_EQ(start(10), -2);
    memory::failAllocations(0, 0);
    EXPECT_EQ(add("a"), -2);
    EXPECT_EQ(ComDebugFileOnFail_Save(3), -2);
}

TEST_F(Capture, NothingIsLostOrSavedTwice) {
    constexpr int count = 3000;
    ASSERT_EQ(start(1'000'000), 1);
    std::atomic<bool> over{false};
    std::thread writer([&] {
        for (int i = 0; i < count; ++i)
            add(std::to_string(i) + '\n');
        over = true;
    });
    std::string all, expected;
    for (bool last = false; !last;) {
        last = over;
        std::string text = saved();
        if (text.find('\0') == std::string::npos) // else nothing had come
            all += text;
    }
    writer.join();
    for (int i = 0; i < count; ++i)
        expected += std::to_string(i) + '\n';
    EXPECT_EQ(all, expected);
}

TEST_F(Capture, AllAtOnce) {
    std::atomic<bool> over{false};
    std::vector<std::thread> writers;
    for (int i = 0; i < 2; ++i)
        writers.emplace_back([&] {
            while (!over)
                ComWriteProtocolDebugFile(3, "%s", letters(70).c_str());
        });
    for (int i = 0; i < 200; ++i) {
        start(1 + i * 7 % 300);
        EXPECT_EQ(ComDebugFileOnFail_Save(3), 1);
        EXPECT_LE(fs::file_size(first), 300U);
        fs::remove(first);
        i % 2 == 0 ? ComClearDebugFileOnFail(3) : ComStopDebugFileOnFail(3);
    }
    over = true;
    for (std::thread& writer : writers)
        writer.join();
}

} // namespace
} // namespace brisolt
