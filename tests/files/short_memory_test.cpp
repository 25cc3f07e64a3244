// Want of memory: whichever allocation fails, a call gives its failure, leaves nothing behind, and works again.
#include <functional>
#include <new>
#include <set>

#include <sys/wait.h>
#include <unistd.h>

#include "support/bare_port.h"
#include "support/open_port.h"

namespace {

int allocationsLeft = 0; ///< counts down; the allocation that finds 1 fails

} // namespace

void* operator new(std::size_t size) {
    void* block = allocationsLeft > 0 && --allocationsLeft == 0 ? nullptr : std::malloc(size);
    return block != nullptr ? block : throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept try {
    return operator new(size);
} catch (const std::bad_alloc&) {
    return nullptr;
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}

namespace brisolt {
namespace {

struct Case {
    const char* name;
    std::function<int64_t()> call;
    int64_t done, failed;
};
constexpr int met = 1, faulty = 2;

int run(const Case& each, const std::string& directory, int failing) {
    const test::BarePort port{3};
    const auto before = test::entriesOf(directory), open = test::entriesOf("/proc/self/fd");
    allocationsLeft = failing;
    const int64_t result = each.call();
    const bool failed = std::exchange(allocationsLeft, 0) == 0;
    EXPECT_TRUE(result == each.done || (failed && (result == each.failed || result == -2))) << result;
    if (result != each.done) {
        EXPECT_EQ(test::entriesOf(directory), before) << "no file is left behind";
        EXPECT_EQ(test::entriesOf("/proc/self/fd"), open);
        EXPECT_EQ(each.call(), each.done) << "it works when there is memory";
    }
    return testing::Test::HasFailure() ? faulty : failed ? met : 0;
}

// Each in a process of its own: the memory for what is made on first use may be wanting, too.
TEST(ShortOfMemory, CallsFailAndWorkAgain) {
    const test::Files files;
    const std::string from = files.path("from"), to = files.path("to"), fresh = files.path("fresh");
    const std::string all = files.path("*"), log = files.path("log");
    FileList* list = nullptr;
    const std::vector<Case> cases{
        {"exists", [&] { return ComFileExist(from.c_str()); }, 1, 1},
        {"compare", [&] { return ComDiffFile(from.c_str(), from.c_str()); }, 0, -1},
        {"open to write", [&] { return ComOpenWriteFile(3, fresh.c_str()) != 0; }, 1, 0},
        {"close", [&] { return ComCloseFile(3, ComOpenReadFile(3, from.c_str())); }, 1, 1},
        {"list", [&] { return ComGetListCount(list = ComAddFileList(list, all.c_str())) > 0; }, 1, 0},
        {"no list", [&] { return ComGetFile(list, 9, nullptr) + ComFreeFileList(list); }, 0, 0},
        {"report", [&] { return ComDiffFile_Report(3, from.c_str(), to.c_str(), log.c_str()); }, 0, -1},
    };
    for (const Case& each : cases)
        for (int failing = 1, end = met << 8; end != 0; ++failing) {
            files.make("from", "1234"), files.make("to", "before");
            std::filesystem::remove(fresh), std::filesystem::remove(log);
            const pid_t child = fork();
            if (child == 0)
                _exit(run(each, files.path(""), failing));
            waitpid(child, &end, 0);
            ASSERT_TRUE(end == 0 || end == met << 8) << each.name << " without allocation " << failing;
        }
}

TEST(ShortOfMemory, AListKeepsTheNamesMadeBefore) {
    const test::Files files;
    for (const char* name : {"a", "b", "c"})
        files.make(name, "");
    for (const std::string& pattern : {files.path("*"), files.path("\xFFx\xFFy\xFFz")}) {
        std::set<int32_t> counts;
        for (int failing = 1, ranOut = 1; ranOut != 0; ++failing) {
            allocationsLeft = failing;
            FileList* list = ComAddFileList(nullptr, pattern.c_str());
            ranOut = std::exchange(allocationsLeft, 0) == 0 ? 1 : 0;
            counts.insert(ComGetListCount(list));
            ComFreeFileList(list);
        }
        EXPECT_EQ(counts, (std::set{0, 1, 2, 3}));
    }
}

} // namespace
} // namespace brisolt
