// The progress record, through its calls and its address.
#include <cstring>

#include "transfer/files.h"

namespace brisolt::test {
namespace {

constexpr int32_t number = 5;

/// What a call puts into a buffer, all the bytes that it fills.
std::string filled(int32_t (*get)(int32_t, char*)) {
    std::string buffer(400, '#');
    EXPECT_EQ(get(number, buffer.data()), 1);
    return buffer.substr(0, buffer.find_last_not_of('#') + 1);
}
std::string text(int32_t (*get)(int32_t, char*)) {
    return filled(get).c_str();
}

TEST(Progress, EachNumberIsReadFromItsOwnPlace) {
    const OpenPort port(number, "null-modem:progress");
    ComShowRecord* show = ComGetShow(port);
    ASSERT_NE(show, nullptr);
    const auto bytes = [show] { return std::string(reinterpret_cast<char*>(show), sizeof *show); };
    const std::string empty(sizeof *show, '\0');
    EXPECT_EQ(bytes(), empty);
    show->state = 65535;
    show->packets = 2;
    show->size = 65534;
    show->errors = 65533;
    show->errorNo = 4'000'000'000U;
    show->modTime = 7;
    show->total = 8;
    std::vector<int32_t> read;
    for (auto* get : {ComGetState, ComGetPackets, ComGetSize, ComGetErrors, ComGetErrorNo, ComGetModTime,
                      CGetShowATotal, ComShowA, ComShowA, CGetShowABytes})
        read.push_back(get(port));
    EXPECT_EQ(read, (std::vector<int32_t>{65535, 2, 65534, 65533, static_cast<int32_t>(4'000'000'000U), 7, 8,
                                          0, 0, 2}));
    EXPECT_EQ(ComSetFileCompletionState(port, 10001), 1);
    EXPECT_EQ(show->fileCompletionState, 10001U);
    for (auto* clear : {ComShowClear, ComShowInit}) {
        std::memset(show, 0xFF, sizeof *show);
        EXPECT_EQ(clear(port), 1);
        EXPECT_EQ(bytes(), empty);
    }
}

TEST(Progress, NamesAreCutFilledAndSplit) {
    const OpenPort port(number, "null-modem:names");
    EXPECT_EQ(filled(ComGetName), "Uninitialized Name" + std::string(2, '\0'));
    EXPECT_EQ(text(ComGetNameOnly), "Uninitialized Name");
    for (const auto& [name, part] :
         std::vector<std::pair<std::string, std::string>>{{R"(C:\work/notes\read.me.txt)", "read.me.txt"},
                                                          {"d:plain.txt", "plain.txt"},
                                                          {"1:x", "1:x"},
                                                          {"folder/", ""}}) {
        EXPECT_EQ(ComSetShowName(port, name.c_str()), 1);
        EXPECT_EQ(text(ComGetName), name);
        EXPECT_EQ(text(ComGetNameOnly), part);
    }
    EXPECT_EQ(filled(ComGetName).size(), 260U);
    const std::string longName(500, 'n');
    ComSetShowName(port, longName.c_str());
    EXPECT_EQ(filled(ComGetName), longName.substr(0, 259) + '\0');
    EXPECT_EQ(filled(ComGetNameOnly), longName.substr(0, 199) + '\0');
    std::memset(ComGetShow(port)->name, 'x', 260); // a caller that leaves no room for the terminator
    EXPECT_EQ(text(ComGetName), std::string(259, 'x'));
    EXPECT_EQ(ComGetState(port), 0) << "the next field is no part of the name";

    EXPECT_EQ(ComSetTargetEnabled(port, 1), 1);
    EXPECT_EQ(ComSetTargetFileName(port, longName.c_str()), 1);
    EXPECT_EQ(ComGetTargetEnabled(port), 0);
    EXPECT_EQ(filled(ComGetTargetFileName), longName.substr(0, 259) + '\0');
    EXPECT_EQ(ComSetShowName(port, nullptr), -1);
    EXPECT_EQ(ComGetName(port, nullptr), -1);
    EXPECT_EQ(ComGetNameOnly(port, nullptr), -1);
}

TEST(Progress, PortsThatAreNotOpenAreRefused) {
    char buffer[260] = "as it was";
    for (const int32_t port : {0, 257, 40}) {
        EXPECT_EQ(ComGetShow(port), nullptr);
        EXPECT_EQ(ComGetModTime(port), 0);
        EXPECT_EQ(ComGetState(port), -1);
        EXPECT_EQ(ComSetShowName(port, "name"), -1);
        EXPECT_EQ(ComGetName(port, buffer), -1);
    }
    EXPECT_STREQ(buffer, "as it was");
}

TEST(Progress, TheTotalIsAFilesSize) {
    Files files;
    const OpenPort port(number, "null-modem:total");
    EXPECT_EQ(CSetTotal(port, files.make("file", std::string(12345, 'x')).c_str()), 0);
    EXPECT_EQ(CSetTotal(port, files.path("missing").c_str()), -1);
    EXPECT_EQ(CSetTotal(port, nullptr), -1);
    EXPECT_EQ(ComGetTotal(port), 12345);
    std::filesystem::resize_file(files.path("file"), 3'000'000'000U);
    EXPECT_EQ(CSetTotal(port, files.path("file").c_str()), 0);
    EXPECT_EQ(static_cast<uint32_t>(ComGetTotal(port)), 3'000'000'000U);
    EXPECT_EQ(ComSizeA(files.path("file").c_str()), INT32_MAX);
    EXPECT_EQ(ComSizeA(files.path("missing").c_str()), -1);
}

} // namespace
} // namespace brisolt::test
