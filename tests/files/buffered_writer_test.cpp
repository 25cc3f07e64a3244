// The buffered writer of a port: what is held, what reaches the file, and ten attempts at what takes nothing.

#include "files/hindrances.h"
#include "support/bare_port.h"
#include "support/open_port.h"

namespace brisolt {
namespace {

using test::FullDisk;

FullDisk* diskToClear = nullptr;
int32_t nestedCall = 0;

class BufferedWriter : public testing::Test {
protected:
    BufferedWriter() { ComSetProtocolDebugFile(3, log.path().c_str(), "T"); }

    int32_t add(const std::string& bytes) {
        expected += bytes;
        return ComBufferFileWrite_Next(3, bytes.data(), static_cast<int32_t>(bytes.size()));
    }
    std::uintmax_t size() const { return std::filesystem::file_size(path); }
    /// What ten attempts tell that write so many bytes each.
    static std::vector<std::string> tenAttempts(const std::string& written, const std::string& wanted) {
        std::vector<std::string> told;
        const std::string failure = "Write Failure: Written: " + written + "  Wanted to write: ";
        for (char attempt = '0'; attempt <= '9'; ++attempt) {
            told.push_back(std::string(failure).append(wanted).append(" Attempts: ") += attempt);
            told.emplace_back(attempt < '9' ? "Attempting to write again"
                                            : " Threshold on write errors exceeded");
        }
        return told;
    }

    test::BarePort port{3};
    test::Files files;
    test::LogFile log;
    std::string path = files.path("file");
    std::string expected;
};

TEST_F(BufferedWriter, HoldsUpToItsThreshold) {
    files.make("file", "of yesterday");
    ASSERT_EQ(ComBufferFileWrite_Start(3, path.c_str(), 1), 1);
    EXPECT_EQ(size(), 0U);
    const std::string all = test::pattern(61500);
    for (std::size_t at = 0; at < all.size(); at += 2500)
        ASSERT_EQ(add(all.substr(at, 2500)), 1);
    EXPECT_EQ(size(), 0U); // 61500 are held
    EXPECT_EQ(add("!"), 1);
    EXPECT_EQ(files.bytes("file"), expected);
    EXPECT_EQ(add("the rest"), 1);
    EXPECT_EQ(ComBufferFileWrite_Close(3), 1);
    EXPECT_EQ(files.bytes("file"), expected);
    EXPECT_EQ(ComBufferFileWrite_Next(3, "x", 1), -1);
    EXPECT_EQ(ComBufferFileWrite_Close(3), -1);

    ASSERT_EQ(ComBufferFileWrite_Start(3, path.c_str(), 0), 1); // goes on at its end
    for (const std::size_t size : {0, 100, 63900, 64000, 64001, 60000, 200000, 1})
        ASSERT_EQ(add(test::pattern(size, static_cast<uint32_t>(size))), 1) << size;
    EXPECT_EQ(ComBufferFileWrite_Close(3), 1);
    EXPECT_EQ(files.bytes("file"), expected);
    EXPECT_TRUE(log.entries().empty());
}

TEST_F(BufferedWriter, TenAttemptsAndTheHeldBytesAreDropped) {
    const FullDisk disk(70000);
    ASSERT_EQ(ComBufferFileWrite_Start(3, path.c_str(), 1), 1);
    EXPECT_EQ(add(test::pattern(62500)), 1);
    EXPECT_EQ(add(test::pattern(62500)), -1);
    EXPECT_EQ(size(), 70000U);
    EXPECT_EQ(log.entries(), tenAttempts("7500", "62500"));
    EXPECT_EQ(add("x"), 1); // the file is still named
    EXPECT_EQ(ComBufferFileWrite_Close(3), -1);
    EXPECT_EQ(ComBufferFileWrite_Close(3), -1);
    EXPECT_EQ(log.entries().size(), 40U); // at its very end not one byte goes in
}

TEST_F(BufferedWriter, WritesNothingToWhatHasNoEnd) {
    test::Pty pty;
    EXPECT_EQ(ComBufferFileWrite_Start(3, pty.slavePath().c_str(), 0), -1);
    EXPECT_EQ(add(test::pattern(61501)), -1);
    EXPECT_EQ(log.entries({"Write", "Attempting", " Threshold"}), tenAttempts("0", "61501"));
    EXPECT_EQ(pty.read(1, std::chrono::milliseconds(50)), "");
}

// A later attempt covers what an earlier one wrote in part. The look at the escape between two attempts lets
// the program do things, but not come back into the writer.
TEST_F(BufferedWriter, AnAttemptThatWorksLeavesNoTraceOfThoseBefore) {
    FullDisk disk(70000);
    diskToClear = &disk;
    port->record->escapeFunc = [](int32_t, int32_t character) {
        EXPECT_EQ(character, 27);
        diskToClear->lift();
        nestedCall = ComBufferFileWrite_Next(3, "x", 1);
        return 0;
    };
    ASSERT_EQ(ComBufferFileWrite_Start(3, path.c_str(), 1), 1);
    EXPECT_EQ(add(test::pattern(62500)), 1);
    const FullDisk again(70000);
    EXPECT_EQ(add(test::pattern(62500, 7)), 1);
    EXPECT_EQ(nestedCall, -1);
    EXPECT_EQ(files.bytes("file"), expected);
    EXPECT_EQ(log.entries({"Attempting"}).size(), 1U);
}

TEST_F(BufferedWriter, AFileThatCannotBeOpened) {
    const std::string refusal = "ERROR: Unable to open file: " + path;
    ASSERT_EQ(ComBufferFileWrite_Start(3, path.c_str(), 1), 1);
    EXPECT_EQ(add(test::pattern(61000)), 1);
    std::filesystem::rename(path, files.path("aside"));
    EXPECT_EQ(ComBufferFileWrite_Next(3, test::pattern(5000).data(), 5000), -1); // no room: not taken
    EXPECT_EQ(add(test::pattern(600)), -1);                                      // held all the same
    std::filesystem::rename(files.path("aside"), path);
    EXPECT_EQ(ComBufferFileWrite_Next(3, nullptr, 0), 1);
    EXPECT_EQ(files.bytes("file"), expected);
    EXPECT_EQ(log.entries(), (std::vector<std::string>{refusal, refusal}));

    EXPECT_EQ(add("x"), 1);
    std::filesystem::remove(path);
    EXPECT_EQ(ComBufferFileWrite_Close(3), -1);
    EXPECT_EQ(log.entries().size(), 3U);
    EXPECT_EQ(add("x"), -1); // no file is named any more

    files.make("file", "x");
    for (const int32_t mode : {1, 0}) {
        const test::Holder holder("<", path);
        EXPECT_EQ(ComBufferFileWrite_Start(3, path.c_str(), mode), -1) << mode;
    }
    EXPECT_EQ(ComBufferFileWrite_Start(3, std::string(260, 'a').c_str(), 1), -1);
    EXPECT_EQ(ComBufferFileWrite_Next(3, "x", -1), -1);
    EXPECT_EQ(add("y"), 1); // for the file that could not be opened at first
    EXPECT_EQ(ComBufferFileWrite_Close(3), 1);
    EXPECT_EQ(files.bytes("file"), "xy");

    ASSERT_EQ(ComBufferFileWrite_Start(3, path.c_str(), 0), 1);
    EXPECT_EQ(ComBufferFileWrite_Start(3, "", 0), -1);
    EXPECT_EQ(add("z"), -1); // the earlier file is named no more
    EXPECT_EQ(log.entries().back(), "ERROR: Unable to open file: ");
}

} // namespace
} // namespace brisolt
