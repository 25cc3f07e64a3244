// Capture on failure: what the saved files hold, byte by byte, and which files stay.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <string>
#include <sys/resource.h>
#include <thread>
#include <vector>

#include "api/brisolt.h"
#include "platform/clock.h"
#include "platform/memory.h"
#include "support/bare_port.h"
#include "support/temp_dir.h"

namespace brisolt {
namespace {

namespace fs = std::filesystem;

const std::string stamp = "\r\n[11/19/26 04:51:58 7 p3]";

std::string contents(const fs::path& file) {
    std::ifstream in(file, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
}

class Capture : public testing::Test {
protected:
    Capture() {
        clock::LocalTime moment{2026, 11, 19, 4, 51, 58, 7};
        clock::setTestLocalTime(&moment);
    }
    ~Capture() override { clock::setTestLocalTime(nullptr); }

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

    test::TempDir directory;
    test::BarePort port{3};
    std::string first = directory.file(name(1));
};

std::string letters(std::size_t count, std::size_t from = 0) {
    std::string text;
    for (std::size_t i = 0; i < count; ++i)
        text += static_cast<char>('!' + (from + i) % 90);
    return text;
}

/// What a save shall write, told from all that was added: the latest bytes, one less in a ring that has gone
/// round and whose next byte would not come at its beginning.
class Expected {
public:
    explicit Expected(std::size_t size) : capacity(size) {}
    void add(const std::string& bytes) {
        std::size_t n = bytes.size();
        all += bytes;
        bool empty = position == 0;
        if (n >= capacity) {
            round = round || !empty;
            position = empty ? capacity : position;
        } else if (position + n > capacity) {
            round = true;
            position = position + n - capacity;
        } else {
            position += n;
        }
    }
    std::string text() const {
        if (position == 0)
            return std::string(capacity, '\0');
        std::size_t kept = round && position < capacity ? capacity - 1 : capacity;
        return all.size() <= kept ? all : all.substr(all.size() - kept);
    }

private:
    std::size_t capacity;
    std::size_t position = 0;
    bool round = false;
    std::string all;
};

TEST_F(Capture, EveryShapeOfTheRing) {
    for (std::size_t capacity : {1U, 3U})
        for (std::size_t shape = 0; shape < 5 * 5 * 5 * 5; ++shape) {
            ASSERT_EQ(start(static_cast<int32_t>(capacity)), 1);
            Expected expected(capacity);
            std::size_t from = 0;
            for (std::size_t rest = shape; rest > 0; rest /= 5) {
                std::string bytes = letters(rest % 5, from);
                from += bytes.size();
                ASSERT_EQ(add(bytes), 1);
                expected.add(bytes);
            }
            ASSERT_EQ(saved(), expected.text()) << capacity << ' ' << shape;
        }
}

TEST_F(Capture, LargeRings) {
    ASSERT_EQ(start(100), 1);
    std::string text = letters(250);
    EXPECT_EQ(add(text.substr(0, 60)), 1);
    EXPECT_EQ(add(text.substr(60, 60)), 1);
    EXPECT_EQ(port->record->captureWritePos, 20);
    EXPECT_EQ(port->record->captureStart, 21);
    EXPECT_EQ(saved(), text.substr(21, 99));
    EXPECT_EQ(add(text), 1);
    EXPECT_EQ(saved(), text.substr(150));
}

TEST_F(Capture, ClearingStopsAtAZeroByte) {
    ASSERT_EQ(start(8), 1);
    EXPECT_EQ(saved(), std::string(8, '\0'));
    EXPECT_EQ(add({"ab\0cd", 5}), 1);
    EXPECT_EQ(ComClearDebugFileOnFail(3), 1);
    EXPECT_EQ(saved(), std::string("\0\0\0cd\0\0\0", 8));
    EXPECT_EQ(add("x"), 1);
    EXPECT_EQ(saved(), "x");
    EXPECT_EQ(saved(), std::string("\0\0\0cd\0\0\0", 8));
}

TEST_F(Capture, ProtocolEntriesGoToTheRing) {
    std::string log = directory.file("log.txt");
    ASSERT_EQ(start(1000), 1);
    EXPECT_EQ(ComWriteProtocolDebugFile(3, "n%d", 1), 1);
    EXPECT_EQ(ComSetProtocolDebugFile(3, log.c_str(), "MODEM"), 1);
    EXPECT_EQ(ComWriteProtocolDebugFileString(3, "text"), 1);
    EXPECT_EQ(ComWriteProtocolDebugFileStringHEX(3, "\x0a", 1), 1);
    EXPECT_EQ(saved(), stamp + "n1" +
                           "\r\n\r\n  ****OPEN PROTOCOL DEBUG FILE - Protocol:MODEM  Version:5.30  "
                           "Date:11/19/26 Time:04:51:58 ****\r\n" +
                           stamp + "text" + stamp + "<a>");
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

    // Nine again: the oldest goes, and the slot that went before is free now.
    std::erase(expected, name(6));
    expected.push_back(name(4));
    std::sort(expected.begin(), expected.end());
    add("b");
    EXPECT_EQ(ComDebugFileOnFail_Save(3), 1);
    EXPECT_EQ(names(), expected);
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
    std::string root = directory.path().string();
    struct {
        std::string given, place;
    } rows[] = {{root, ""},
                {root + "/", ""},
                {root + "\\", ""},
                {root + "\\a\\b", "a/b/"},
                {root + "/a\\b\\", "a/b/"}};
    for (const auto& row : rows) {
        ASSERT_EQ(ComSetDebugFileOnFail(3, row.given.c_str(), 10), 1);
        add("abc");
        EXPECT_EQ(ComDebugFileOnFail_Save(3), 1) << row.given;
        EXPECT_EQ(contents(directory.file(row.place + name(1))), "abc") << row.given;
        fs::remove(directory.file(row.place + name(1)));
        EXPECT_EQ(port->record->captureDir, row.given.ends_with('\\') ? row.given : row.given + '\\');
    }
    fs::current_path(directory.path() / "a");
    ASSERT_EQ(ComSetDebugFileOnFail(3, ".", 10), 1);
    EXPECT_EQ(ComDebugFileOnFail_Save(3), -2);
    std::string longest = "/" + std::string(258, 'x');
    ASSERT_EQ(ComSetDebugFileOnFail(3, longest.c_str(), 10), 1);
    EXPECT_EQ(ComDebugFileOnFail_Save(3), -3);
    EXPECT_EQ(port->record->captureDir, longest);
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
        int32_t result = ComDebugFileOnFail_Save(3);
        EXPECT_EQ(result, 1);
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
