// The modem database byte for byte, and the one that comes with the library.
#include <array>
#include <cstring>
#include <fstream>
#include <set>
#include <string>
#include <vector>

#include "modem/simulator.h"
#include "platform/file.h"
#include "platform/memory.h"
#include "stream/open_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t port = 31; ///< reading needs no open port

/// The twelve buffers, each exactly as long as it has to be, between bytes that nobody may touch.
struct Record {
    struct Buffer {
        std::array<char, 103> bytes;
        std::size_t size;
    };
    std::array<Buffer, 12> buffers{};

    Record() {
        for (std::size_t i = 0; i < buffers.size(); ++i) {
            buffers[i].size = i == 1 ? 101 : 76;
            buffers[i].bytes.fill('#');
            at(i)[0] = 0;
        }
    }
    char* at(std::size_t i) { return buffers[i].bytes.data() + 1; }
    void expectUntouchedAround() {
        for (const Buffer& buffer : buffers) {
            EXPECT_EQ(buffer.bytes[0], '#');
            EXPECT_EQ(buffer.bytes[buffer.size + 1], '#');
        }
    }
    /// Without the empty fields at the end.
    std::vector<std::string> fields() {
        std::vector<std::string> texts;
        for (std::size_t i = 0; i < buffers.size(); ++i)
            texts.emplace_back(at(i));
        while (!texts.empty() && texts.back().empty())
            texts.pop_back();
        return texts;
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
    std::string fileWith(const std::string& text) {
        std::ofstream(path, std::ios::binary) << text;
        return path;
    }
    void TearDown() override { ComGetModem_End(port); }
    TempDir directory;
    std::string path = directory.file("modems.txt");
};

using Texts = std::vector<std::string>;
const Texts complete{"N", "I", "3", "R", "c", "d", "o", "h", "s", "e", "f", "g"};

std::string line(const Texts& fields, const std::string& end = "\r\n") {
    std::string text;
    for (std::size_t i = 0; i < fields.size(); ++i)
        text += (i == 0 ? "" : "!") + fields[i];
    return text + end;
}

std::string times(std::size_t count, char character) {
    return std::string(count, character);
}

TEST_F(ModemDatabase, EachRecordEndsByItsBytes) {
    struct Read {
        int32_t result;
        Texts fields; ///< the buffers start empty for every record
    };
    struct Case {
        const char* what;
        std::string file;
        std::vector<Read> reads;
    };
    const Read nothing{1, {}};
    const std::vector<Case> cases{
        {"well formed",
         line(complete) + line(complete) + line({"third"}),
         {{5, complete}, {5, complete}, {5, {"third"}}, nothing, nothing}},
        {"empty file", "", {nothing, nothing}},
        {"last line without its end", "a!b", {{1, {"a", "b"}}, nothing}},
        {"a single line feed takes the next byte along", "a\nbc\n", {{5, {"a"}}, {5, {"c"}}, nothing}},
        {"carriage return between two lines", "a\rbc\r\n", {{5, {"a"}}, {5, {"c"}}, nothing}},
        {"more than twelve fields",
         line(complete, "!more!fields\r\n"),
         {{5, complete}, {5, {"more", "fields"}}}},
        {"an over-long name goes on in the next field",
         line({times(80, 'n'), "i"}),
         {{5, {times(75, 'n'), times(5, 'n'), "i"}}}},
        {"an initialisation command of exactly its maximum",
         line({"n", times(100, 'i'), "3"}),
         {{5, {"n", times(100, 'i'), "", "3"}}}},
        {"a last field of its maximum leaves the line end to the next record",
         line({"", "", "", "", "", "", "", "", "", "", "", times(75, 'g')}) + line({"next"}),
         {{5, {"", "", "", "", "", "", "", "", "", "", "", times(75, 'g')}}, {5, {}}, {5, {"next"}}}},
        {"a line that never ends",
         times(2000, 'x'),
         {{5,
           [] {
               Texts all(12, times(75, 'x'));
               all[1] = times(100, 'x');
               return all;
           }()}}},
    };
    for (const Case& each : cases) {
        SCOPED_TRACE(each.what);
        fileWith(each.file);
        for (std::size_t i = 0; i < each.reads.size(); ++i) {
            Record record;
            EXPECT_EQ(i == 0 ? record.start(path) : record.next(), each.reads[i].result) << i;
            EXPECT_EQ(record.fields(), each.reads[i].fields) << i;
            record.expectUntouchedAround();
        }
    }
}

TEST_F(ModemDatabase, AShortLineLeavesTheOtherBuffersAsTheyWere) {
    fileWith(line({"N", "I", "3", "R"}) + "name!init\r\n");
    Record record;
    ASSERT_EQ(record.start(path), 5);
    EXPECT_EQ(record.next(), 5);
    EXPECT_EQ(record.fields(), (Texts{"name", "init", "3", "R"}));
    EXPECT_EQ(record.next(), 1);
    EXPECT_EQ(record.fields(), (Texts{"", "init", "3", "R"})) << "at the end only the name is emptied";
}

TEST_F(ModemDatabase, RecordsMayLieAcrossBlocks) {
    std::string text;
    constexpr int32_t count = 400; // some four blocks
    for (int32_t i = 0; i < count; ++i)
        text +=
            line({"modem " + std::to_string(i), times(static_cast<std::size_t>(i % 100), 'i'), "3", "ATZ|"});
    ASSERT_GT(text.size(), 20000U);
    fileWith(text);
    Record record;
    for (int32_t i = 0; i < count; ++i) {
        ASSERT_EQ(i == 0 ? record.start(path) : record.next(), 5);
        ASSERT_EQ(record.at(0), "modem " + std::to_string(i));
        ASSERT_EQ(record.at(1), times(static_cast<std::size_t>(i % 100), 'i'));
    }
    EXPECT_EQ(record.next(), 1);
}

TEST_F(ModemDatabase, EveryNumberHasItsOwnReaderUntilItsEnd) {
    fileWith("a\r\nb\r\nc\r\n");
    Record one, other;
    ASSERT_EQ(one.start(path, 1), 5);
    ASSERT_EQ(other.start(path, 256), 5);
    EXPECT_EQ(one.next(1), 5);
    EXPECT_STREQ(one.at(0), "b");
    EXPECT_EQ(ComGetModem_End(1), 1);
    EXPECT_EQ(one.next(1), 1);
    EXPECT_STREQ(one.at(0), "");
    EXPECT_EQ(other.next(256), 5);
    EXPECT_STREQ(other.at(0), "b");
    ASSERT_EQ(other.start(path, 256), 5);
    EXPECT_STREQ(other.at(0), "a") << "from the start again";
    EXPECT_EQ(ComGetModem_End(256), 1);
}

TEST_F(ModemDatabase, RefusalsSayWhatIsWrong) {
    fileWith("a\r\nb\r\n");
    Record record;
    for (const int32_t number : {0, -1, 257, 300}) {
        EXPECT_EQ(record.start(path, number), -1);
        EXPECT_EQ(record.next(number), -1);
        EXPECT_EQ(ComGetModem_End(number), -1);
    }
    {
        const std::ofstream writer(path, std::ios::app);
        EXPECT_EQ(record.start(path), -3) << "somebody writes it";
    }
    ASSERT_EQ(record.start(path), 5);
    EXPECT_EQ(record.start(directory.file("none")), -2);
    EXPECT_EQ(record.start(directory.path().string()), -2);
    EXPECT_EQ(record.start("/dev/zero"), -2) << "it would never end";
    EXPECT_EQ(record.next(), 5) << "the reading goes on";
    EXPECT_STREQ(record.at(0), "b");
    memory::failAllocations(0, 1);
    EXPECT_EQ(record.start(path), -4);
    memory::failAllocations(0, 0);
    EXPECT_EQ(record.with([&](auto... buffer) { return ComGetModem_Start(port, nullptr, buffer...); }), -1);
    EXPECT_EQ(ComGetModem_Next(port, record.at(0), nullptr, nullptr, nullptr, nullptr, nullptr, nullptr,
                               nullptr, nullptr, nullptr, nullptr, nullptr),
              -1);
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
    EXPECT_STREQ(record.at(0), "");
    EXPECT_EQ(names.count("Hayes Compatible Standard"), 1U); // every port's first modem name
    EXPECT_GE(names.size(), 5U);
    EXPECT_EQ(modem.commands().size(), names.size() * 3 * 6);
    EXPECT_EQ(log.entries({"Did not"}), Texts());
}

} // namespace
} // namespace brisolt::test
