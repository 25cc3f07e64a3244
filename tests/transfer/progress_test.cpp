// The progress record, through its calls and its address.
#include <cstring>

#include "transfer/quick_port.h"

namespace brisolt::test {
namespace {

constexpr int32_t number = 5;

/// What a call puts into a buffer, all the bytes that it fills.
std::string filled(int32_t (*get)(int32_t, char*)) {
    std::string buffer(400, '#');
    EXPECT_EQ(get(number, buffer.data()), 1);
    return buffer.substr(0, buffer.find_last_not_of('#') + 1);
}
std::string padded(const std::string& text, std::size_t size) {
    return text + std::string(size - text.size(), '\0');
}

TEST(Progress, EachNumberIsReadFromItsOwnPlaceAndTheTotalIsAFilesSize) {
    const OpenPort port(number, "null-modem:progress");
    ComShowRecord* show = ComGetShow(port);
    ASSERT_NE(show, nullptr);
    const auto bytes = [show] { return std::string(reinterpret_cast<char*>(show), sizeof *show); };
    const std::string empty(sizeof *show, '\0');
    EXPECT_EQ(bytes(), empty);
    show->state = 65535, show->packets = 2, show->size = 65534, show->errors = 65533;
    show->errorNo = 4'000'000'000U, show->modTime = 7, show->total = 8;
    std::vector<uint32_t> read;
    for (auto* get : {ComGetState, ComGetPackets, ComGetSize, ComGetErrors, ComGetErrorNo, ComGetModTime,
                      CGetShowATotal, ComShowA, ComShowA, CGetShowABytes})
        read.push_back(static_cast<uint32_t>(get(port)));
    EXPECT_EQ(read, (std::vector<uint32_t>{65535, 2, 65534, 65533, 4'000'000'000U, 7, 8, 0, 0, 2}));
    EXPECT_EQ(ComSetFileCompletionState(port, 10001), 1);
    EXPECT_EQ(show->fileCompletionState, 10001U);
    for (auto* clear : {ComShowClear, ComShowInit}) {
        std::memset(show, 0xFF, sizeof *show);
        EXPECT_EQ(clear(port), 1);
        EXPECT_EQ(bytes(), empty);
    }

    const Files files;
    const std::string path = files.make("file", "");
    for (const uint32_t size : {12345U, 3'000'000'000U}) {
        std::filesystem::resize_file(path, size);
        EXPECT_EQ(CSetTotal(port, path.c_str()), 0);
        EXPECT_EQ(CSetTotal(port, files.path("missing").c_str()), -1);
        EXPECT_EQ(static_cast<uint32_t>(ComGetTotal(port)), size);
    }
    EXPECT_EQ(ComSizeA(path.c_str()), INT32_MAX);
    EXPECT_EQ(ComSizeA(files.path("missing").c_str()), -1);
}

TEST(Progress, NamesAreCutFilledAndSplit) {
    const OpenPort port(number, "null-modem:names");
    for (auto* get : {ComGetName, ComGetNameOnly})
        EXPECT_EQ(filled(get), padded("Uninitialized Name", 20));
    for (const auto& [name, part] : {std::pair{R"(C:\work/notes\read.me.txt)", "read.me.txt"},
                                     {"d:plain.txt", "plain.txt"},
                                     {"1:x", "1:x"},
                                     {"folder/", ""}}) {
        EXPECT_EQ(ComSetShowName(port, name), 1);
        EXPECT_EQ(filled(ComGetName), padded(name, 260));
        EXPECT_EQ(filled(ComGetNameOnly), std::string(part) + '\0');
    }
    const std::string longName(500, 'n');
    ComSetShowName(port, longName.c_str());
    EXPECT_EQ(filled(ComGetName), longName.substr(0, 259) + '\0');
    EXPECT_EQ(filled(ComGetNameOnly), longName.substr(0, 199) + '\0');
    std::memset(ComGetShow(port)->name, 'x', 260); // a caller that leaves no room for the terminator
    EXPECT_EQ(filled(ComGetName), std::string(259, 'x') + '\0');
    EXPECT_EQ(ComGetState(port), 0) << "the next field is no part of the name";
    EXPECT_EQ(ComSetTargetEnabled(port, 1), 1);
    EXPECT_EQ(ComSetTargetFileName(port, longName.c_str()), 1);
    EXPECT_EQ(ComGetTargetEnabled(port), 0);
    EXPECT_EQ(filled(ComGetTargetFileName), longName.substr(0, 259) + '\0');
}

} // namespace
} // namespace brisolt::test
