// The modem database byte for byte, and the one that comes with the library.
#include <array>
#include <cstring>
#include <set>

#include "modem/simulator.h"
#include "platform/file.h"
#include "platform/memory.h"
#include "support/open_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 31; ///< reading needs no open port

using Texts = std::vector<std::string>;

/// The twelve buffers, each exactly as long as it has to be, between bytes that nobody may touch.
struct Record {
    std::array<std::array<char, 103>, 12> buffers;

    Record() {
        for (std::size_t i = 0; i < buffers.size(); ++i) {
            buffers[i].fill('#');
            at(i)[0] = 0;
        }
    }
    char* at(std::size_t i) { return buffers[i].data() + 1; }
    /// The fields as a line would have them, without the empty ones at the end.
    std::string line() {
        std::string text;
        for (std::size_t i = 0; i < buffers.size(); ++i) {
            text += (i == 0 ? "" : "!") + std::string(at(i));
            EXPECT_EQ(buffers[i][0], '#');
            EXPECT_EQ(buffers[i][i == 1 ? 102 : 77], '#');
        }
        return text.substr(0, text.find_last_not_of('!') + 1);
    }
    template <class Call> int32_t with(Call call) {
        return [&]<std::size_t... I>(std::index_sequence<I...>) {
            return call(at(I)...);
        }
        (std::make_index_sequence<12>());
    }
    int32_t start(const std::string& path, int32_t number = port) {
        return with([&](auto... buffer) { return ComGetModem_Start(number, path.c_str(), buffer...); });
    }
    int32_t next(int32_t number = port) {
        return with([&](auto... buffer) { return ComGetModem_Next(number, buffer...); });
    }
};

class ModemDatabase : public testing::Test {
protected:
    void write(const std::string& text) const { std::ofstream(path, std::ios::binary) << text; }
    void TearDown() override { ComGetModem_End(port); }
    TempDir directory;
    std::string path = directory.file("modems.txt");
};

TEST_F(ModemDatabase, EachRecordEndsByItsBytes) {
    const auto times = [](std::size_t count, char character) { return std::string(count, character); };
    const std::string all = "N!I!3!R!c!d!o!h!s!e!f!g", end = "\r\n", last = times(11, '!') + times(75, 'g');
    std::string endless = times(75, 'x') + "!" + times(100, 'x');
    for (int i = 2; i < 12; ++i)
        endless += "!" + times(75, 'x');
    std::string many; // some four blocks
    Texts manyReads;
    for (std::size_t i = 0; i < 400; ++i) {
        manyReads.push_back("5 modem " + std::to_string(i) + "!" + times(i % 100, 'i') + "!3!ATZ|");
        many += manyReads.back().substr(2) + end;
    }
    const struct {
        const char* what;
        std::string file;
        Texts reads; ///< result and fields; the buffers start empty for every record
    } cases[] = {
        {"well formed", all + end + all + end + "3rd" + end, {"5 " + all, "5 " + all, "5 3rd", "1 ", "1 "}},
        {"empty file", "", {"1 ", "1 "}},
        {"records across blocks", many, manyReads},
        {"last line without its end", "a!b", {"1 a!b", "1 "}},
        {"a single line feed takes the next byte along", "a\nbc\n", {"5 a", "5 c", "1 "}},
        {"carriage return between two lines", "a\rbc\r\n", {"5 a", "5 c", "1 "}},
        {"more than twelve fields", all + "!more!fields\r\n", {"5 " + all, "5 more!fields"}},
        {"an over-long name goes on", times(80, 'n') + "!i\r\n", {"5 " + times(75, 'n') + "!nnnnn!i"}},
        {"a command of its maximum", "n!" + times(100, 'i') + "!3\r\n", {"5 n!" + times(100, 'i') + "!!3"}},
        {"a last field of its maximum leaves the line end", last + "\r\nb\r\n", {"5 " + last, "5 ", "5 b"}},
        {"a line that never ends", times(2000, 'x'), {"5 " + endless}},
    };
    for (const auto& each : cases) {
        write(each.file);
        for (std::size_t i = 0; i < each.reads.size(); ++i) {
            Record record;
            const int32_t result = i == 0 ? record.start(path) : record.next();
            EXPECT_EQ(std::to_string(result) + " " + record.line(), each.reads[i]) << each.what << ", " << i;
        }
    }
}

TEST_F(ModemDatabase, EveryNumberHasItsOwnReaderUntilItsEnd) {
    write("a!i\r\nb\r\nc\r\n");
    Record one, other;
    ASSERT_EQ(one.start(path, 1), 5);
    ASSERT_EQ(other.start(path, 256), 5);
    EXPECT_EQ(one.next(1), 5);
    EXPECT_EQ(one.line(), "b!i") << "a short line leaves the other buffers as they were";
    EXPECT_EQ(ComGetModem_End(1), 1);
    EXPECT_EQ(one.next(1), 1);
    EXPECT_EQ(one.line(), "!i") << "at the end only the name is emptied";
    EXPECT_EQ(other.next(256), 5);
    ASSERT_EQ(other.start(path, 256), 5);
    EXPECT_EQ(other.line(), "a!i") << "from the start again";
    EXPECT_EQ(ComGetModem_End(256), 1);
}

TEST_F(ModemDatabase, RefusalsSayWhatIsWrong) {
    write("a\r\nb\r\n");
    Record record;
    {
        const std::ofstream writer(path, std::ios::app);
        EXPECT_EQ(record.start(path), -3) << "somebody writes it";
    }
    ASSERT_EQ(record.start(path), 5);
    for (const std::string& bad :
         {directory.file("none"), directory.path().string(), std::string("/dev/zero")})
        EXPECT_EQ(record.start(bad), -2) << bad;
    EXPECT_EQ(record.next(), 5) << "the reading goes on";
    EXPECT_EQ(record.line(), "b");
    memory::failAllocations(0, 1);
    EXPECT_EQ(record.start(path), -4);
    memory::failAllocations(0, 0);
    EXPECT_EQ(record.next(), 1) << "without memory nothing stays open";
}

// And no modem of the list is sent a command that a modem would not take.
TEST_F(ModemDatabase, TheInstalledOneSetsUpEveryModem) {
    simulated::Exchange exchange;
    simulated::Simulator modem(simulated::nullModemLine("database"), exchange);
    const OpenPort open(port, modem.path());
    const LogFile log;
    Record record;
    std::set<std::string> names;
    int32_t result = record.start(BRISOLT_MODEMS);
    for (; result == 5; result = record.next()) {
        const std::string name = record.at(0);
        SCOPED_TRACE(name);
        EXPECT_TRUE(names.insert(name).second);
        for (std::size_t i = 3; i < 12; ++i)
            EXPECT_LT(strlen(record.at(i)), 32U) << "or it would be cut";
        EXPECT_LT(strlen(record.at(1)), 100U);
        for (int32_t way = 0; way < 3; ++way)
            EXPECT_EQ(ComSetModem(port, BRISOLT_MODEMS, name.c_str(), 1, 1, way & 1, way, way, 0,
                                  log.path().c_str()),
                      1);
    }
    EXPECT_EQ(result, 1);
    EXPECT_EQ(names.count("Hayes Compatible Standard"), 1U); // every port's first modem name
    EXPECT_EQ(modem.commands().size(), names.size() * 3 * 6);
    EXPECT_EQ(log.entries({"Did not"}), Texts());
}

} // namespace
} // namespace brisolt::test
