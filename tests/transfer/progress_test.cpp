// The progress record, through its calls and its address.
#include <cstring>

#include "transfer/files.h"

namespace brisolt::test {
namespace {

constexpr int32_t closed = 40;

std::string text(int32_t port, int32_t (*get)(int32_t, char*)) {
    char buffer[260];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(get(port, buffer), 1);
    return {buffer, strnlen(buffer, sizeof buffer)};
}

/// How many bytes of a buffer a call fills.
std::size_t filled(int32_t port, int32_t (*get)(int32_t, char*)) {
    std::string buffer(400, '#');
    EXPECT_EQ(get(port, buffer.data()), 1);
    return buffer.find_last_not_of('#') + 1;
}

TEST(Progress, NumbersGoInByTheAddressAndComeOutByTheCalls) {
    const OpenPort port(5, "null-modem:progress");
    ComShowRecord* show = ComGetShow(port);
    ASSERT_NE(show, nullptr);
    EXPECT_EQ(std::string(sizeof *show, '\0'), std::string(reinterpret_cast<char*>(show), sizeof *show));
    show->state = 65535;
    show->packets = 2;
    show->size = 65534;
    show->errors = 65533;
    show->errorNo = 4'000'000'000U;
    show->modTime = 7;
    show->total = 8;
    EXPECT_EQ(ComGetState(port), 65535);
    EXPECT_EQ(ComGetPackets(port), 2);
    EXPECT_EQ(ComGetSize(port), 65534);
    EXPECT_EQ(ComGetErrors(port), 65533);
    EXPECT_EQ(ComGetErrorNo(port), static_cast<int32_t>(4'000'000'000U));
    EXPECT_EQ(ComGetModTime(port), 7);
    EXPECT_EQ(CGetShowATotal(port), 8);
    EXPECT_EQ(ComShowA(port), 0);
    EXPECT_EQ(ComShowA(port), 0);
    EXPECT_EQ(ComGetBytes(port), 2);
    EXPECT_EQ(CGetShowABytes(port), 2);
    EXPECT_EQ(ComSetFileCompletionState(port, 10001), 1);
    EXPECT_EQ(show->fileCompletionState, 10001U);
    EXPECT_EQ(ComGetFileCompletionState(port), 10001);
    EXPECT_EQ(ComSetTargetEnabled(port, -2), 1);
    EXPECT_EQ(ComGetTargetEnabled(port), -2);

    for (auto* clear : {ComShowClear, ComShowInit}) {
        std::memset(show, 0xFF, sizeof *show);
        EXPECT_EQ(clear(port), 1);
        EXPECT_EQ(std::string(sizeof *show, '\0'), std::string(reinterpret_cast<char*>(show), sizeof *show));
    }
}

TEST(Progress, NamesAreCutFilledAndSplit) {
    const OpenPort port(5, "null-modem:names");
    EXPECT_EQ(text(port, ComGetName), "Uninitialized Name");
    EXPECT_EQ(filled(port, ComGetName), 20U);
    EXPECT_EQ(text(port, ComGetNameOnly), "Uninitialized Name");
    EXPECT_EQ(text(port, ComGetTargetFileName), "");

    EXPECT_EQ(ComSetShowName(port, R"(C:\work/notes\read.me.txt)"), 1);
    EXPECT_EQ(text(port, ComGetName), R"(C:\work/notes\read.me.txt)");
    EXPECT_EQ(filled(port, ComGetName), 260U);
    EXPECT_EQ(text(port, ComGetNameOnly), "read.me.txt");
    for (const auto& [name, part] : std::vector<std::pair<std::string, std::string>>{
             {"plain.txt", "plain.txt"}, {"d:plain.txt", "plain.txt"}, {"1:x", "1:x"}, {"folder/", ""}}) {
        ComSetShowName(port, name.c_str());
        EXPECT_EQ(text(port, ComGetNameOnly), part);
    }
    const std::string longName(500, 'n');
    ComSetShowName(port, longName.c_str());
    EXPECT_EQ(text(port, ComGetName), longName.substr(0, 259));
    EXPECT_EQ(text(port, ComGetNameOnly), longName.substr(0, 199));
    EXPECT_EQ(filled(port, ComGetNameOnly), 200U);
    std::memset(ComGetShow(port)->name, 'x', 260); // a caller that leaves no room for the terminator
    EXPECT_EQ(text(port, ComGetName), std::string(259, 'x'));
    EXPECT_EQ(ComGetState(port), 0) << "the next field is no part of the name";

    EXPECT_EQ(ComSetTargetEnabled(port, 1), 1);
    EXPECT_EQ(ComSetTargetFileName(port, longName.c_str()), 1);
    EXPECT_EQ(ComGetTargetEnabled(port), 0);
    EXPECT_EQ(text(port, ComGetTargetFileName), longName.substr(0, 259));
    EXPECT_EQ(filled(port, ComGetTargetFileName), 260U);
}

TEST(Progress, TheTotalIsAFilesSize) {
    Files files;
    const OpenPort port(5, "null-modem:total");
    EXPECT_EQ(CSetTotal(port, files.make("file", std::string(12345, 'x')).c_str()), 0);
    EXPECT_EQ(ComGetTotal(port), 12345);
    EXPECT_EQ(CSetTotal(port, files.path("missing").c_str()), -1);
    EXPECT_EQ(CSetTotal(port, nullptr), -1);
    EXPECT_EQ(ComGetTotal(port), 12345);
    std::filesystem::resize_file(files.path("file"), 3'000'000'000U);
    EXPECT_EQ(CSetTotal(port, files.path("file").c_str()), 0);
    EXPECT_EQ(static_cast<uint32_t>(ComGetTotal(port)), 3'000'000'000U);
    EXPECT_EQ(ComSizeA(files.path("file").c_str()), INT32_MAX);
    EXPECT_EQ(ComSizeA(files.make("file", "").c_str()), 0);
    EXPECT_EQ(ComSizeA(files.path("missing").c_str()), -1);
}

TEST(Progress, ClosedPortsAndNullsAreRefused) {
    char buffer[260] = "as it was";
    for (const int32_t port : {0, -1, 257, closed}) {
        EXPECT_EQ(ComGetShow(port), nullptr);
        EXPECT_EQ(ComGetModTime(port), 0);
        for (auto* call : {ComShowInit, ComShowClear, ComShowA, ComGetBytes, CGetShowABytes, ComGetPackets,
                           ComGetTotal, CGetShowATotal, ComGetSize, ComGetErrors, ComGetErrorNo, ComGetState,
                           ComGetTargetEnabled, ComGetFileCompletionState})
            EXPECT_EQ(call(port), -1);
        for (auto* call : {ComSetTargetEnabled, ComSetFileCompletionState})
            EXPECT_EQ(call(port, 1), -1);
        for (auto* call : {ComSetShowName, ComSetTargetFileName, CSetTotal})
            EXPECT_EQ(call(port, "/dev/null"), -1);
        for (auto* call : {ComGetName, ComGetNameOnly, ComGetTargetFileName})
            EXPECT_EQ(call(port, buffer), -1);
    }
    EXPECT_STREQ(buffer, "as it was");
    const OpenPort port(5, "null-modem:nulls");
    EXPECT_EQ(ComSetShowName(port, nullptr), -1);
    EXPECT_EQ(ComGetName(port, nullptr), -1);
    EXPECT_EQ(ComGetNameOnly(port, nullptr), -1);
}

} // namespace
} // namespace brisolt::test
