// Every exported function that takes a port or a pointer, with ports that are none and pointers that are null: it
// comes back, with the answer that its header names, and leaves everything as it was.
#include <csignal>
#include <cstring>
#include <optional>
#include <type_traits>

#include <unistd.h>

#include "support/open_port.h"

using brisolt::test::TempDir;

namespace {

constexpr int32_t openPort = 1;
constexpr int32_t closedPort = 200;
constexpr int32_t badPorts[] = {0, -1, 257, INT32_MAX, INT32_MIN};

alignas(16) char space[4096]; // what a pointer leads to where it is not the one that is refused

template <class Pointer> Pointer something() {
    if constexpr (std::is_same_v<Pointer, const char*>)
        return "no-such-folder/name";
    else if constexpr (std::is_same_v<Pointer, FileList*>) {
        static FileList* const list = ComAddFileList(nullptr, "/dev/nul?");
        return list;
    } else if constexpr (std::is_same_v<Pointer, const char* const*>) {
        static const char* const strings[] = {"string"};
        return strings;
    } else
        return reinterpret_cast<Pointer>(space);
}

struct Arguments {
    int32_t port = openPort;
    int null = -1; ///< the number of the pointer that is null

    template <class Pointer> Pointer pointer(int number) const {
        return number == null ? nullptr : something<Pointer>();
    }
};

template <class Result> intptr_t word(Result result) {
    if constexpr (std::is_pointer_v<Result>)
        return reinterpret_cast<intptr_t>(result);
    else
        return static_cast<intptr_t>(result);
}
intptr_t word(std::nullptr_t) {
    return 0;
}

using Answer = std::optional<intptr_t>;
struct Refusal {
    const char* argument; ///< "port", "closed", or the name of the pointer that is null
    int null;
    Answer answer;
};
struct Function {
    const char* name;
    intptr_t (*call)(const Arguments&);
    std::vector<Refusal> refusals;
};

const std::vector<Function> functions = {
#include <calls.inc>
};

const char* current = ""; ///< for whom a crash or a hang would leave in the dark

void tell(int number) {
    for (const char* text : {"in ", current, "\n"})
        if (write(STDERR_FILENO, text, std::strlen(text)) < 0)
            break;
    std::signal(number, SIG_DFL);
    std::raise(number);
}

void check(const Function& function, const Refusal& refusal, int32_t port) {
    const intptr_t result = function.call({.port = port, .null = refusal.null});
    const std::string what =
        std::string(function.name) + ", " + refusal.argument + ", port " + std::to_string(port);
    if (refusal.answer) {
        EXPECT_EQ(result, *refusal.answer) << what;
    }
    if (refusal.null < 0) {
        EXPECT_TRUE(std::all_of(std::begin(space), std::end(space), [](char byte) { return byte == 0; }))
            << what;
    }
    std::memset(space, 0, sizeof space);
    EXPECT_EQ(ComOpenState(openPort), 1) << what;
    EXPECT_EQ(ComOpenState(closedPort), 0) << what;
}

} // namespace

TEST(Refusals, BadPortsAndNullPointersGetTheirAnswer) {
    const TempDir directory;
    std::filesystem::current_path(directory.path());
    ASSERT_EQ(ComHostMapDevice(openPort, "null-modem:refusals"), 1);
    ASSERT_EQ(ComOpen("test", openPort, 9600, 8, 1, 1, 4096, 4096), openPort);
    for (const int number : {SIGSEGV, SIGABRT, SIGALRM})
        std::signal(number, tell);

    EXPECT_GT(functions.size(), 400U);
    for (const Function& function : functions) {
        current = function.name;
        alarm(30);
        for (const Refusal& refusal : function.refusals) {
            if (refusal.null >= 0)
                check(function, refusal, openPort);
            else if (std::string_view(refusal.argument) == "closed")
                check(function, refusal, closedPort);
            else
                for (const int32_t port : badPorts)
                    check(function, refusal, port);
        }
    }
    alarm(0);
    EXPECT_TRUE(std::filesystem::is_empty(directory.path()));
}
