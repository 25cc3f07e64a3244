// A host that runs out of memory, descriptors or waits: the calls tell, nothing hangs, spins or is left behind,
// and all works again when the host does.
#include <csignal>
#include <ctime>
#include <new>

#include "support/files.h"
#include "support/limit.h"
#include "telephony_program.h"

using namespace brisolt::test;

static std::atomic<long> failAt = 0; ///< the allocation that fails, counted down; 0: none
static std::atomic<bool> exhausted = false;
static void* (*allocate)(std::size_t) = std::malloc;

/// Stand before the host's own.
void* operator new(std::size_t size) {
    const bool fails = !sparedThread && (exhausted || (failAt > 0 && failAt.fetch_sub(1) == 1));
    if (void* const memory = fails ? nullptr : allocate(size))
        return memory;
    throw std::bad_alloc();
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    try {
        return operator new(size);
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
}
void operator delete(void* memory) noexcept {
    std::free(memory);
}
void operator delete(void* memory, std::size_t) noexcept {
    std::free(memory);
}

struct HostFailures : TelephonyProgram {
    PlainModem modem;
    const Limit descriptors{RLIMIT_NOFILE};
    int refused = 0;

    HostFailures() { writeProfile("[One]\ndevice = " + modem.line.slavePath() + "\n"); }
    void heal() const {
        failAt = 0;
        descriptors.lift();
    }
    /// A call that the host lets down at most once.
    template <class Call> void twice(Call call) {
        int32_t said = call();
        if (said == result::outOfMemory || said == result::resourceUnavailable) {
            ++refused;
            heal();
            said = call();
        }
        EXPECT_EQ(said, 0);
    }
    void useTheService() {
        twice([&] { return start(); });
        twice([&] { return openLine(0, line); });
        twice([&] { return service.close(line); });
        twice([&] { return service.shutdown(application); });
    }
};

TEST_F(HostFailures, EachAllocationAndDescriptorInTurn) {
    for (long number = 1; failAt <= 0 && !HasFailure(); ++number) {
        failAt = number;
        useTheService();
    }
    heal(); // there are no more
    EXPECT_GT(refused, 10);
    const long open = entriesOf("/proc/self/fd");
    const int lowest = dup(0);
    close(lowest);
    for (rlim_t more = 0; refused > 0; ++more) {
        refused = 0;
        descriptors.set(static_cast<rlim_t>(lowest) + more);
        useTheService();
        heal();
        EXPECT_TRUE(refused > 0 || more > 0);
    }
    EXPECT_EQ(entriesOf("/proc/self/fd"), open);
    sigset_t mask{};
    pthread_sigmask(SIG_SETMASK, nullptr, &mask);
    EXPECT_EQ(sigismember(&mask, SIGTERM), 0) << "blocked for the threads of the service alone";
}

TEST_F(HostFailures, WaitsThatFailDoNotSpinAndACallWithoutMemoryEnds) {
    openAt(modem);
    descriptors.set(1);       // a wait for more descriptors than that fails
    modem.line.write("\r\n"); // and the one that goes on is over
    const std::clock_t begun = std::clock();
    std::this_thread::sleep_for(Milliseconds(600));
    EXPECT_LT(std::clock() - begun, CLOCKS_PER_SEC / 4);
    EXPECT_EQ(service.close(line), 0);
    heal();
    ASSERT_EQ(openLine(0, line), 0);

    sparedThread = true;
    outgoing = call("T1");
    exhausted = true;
    EXPECT_TRUE(until([&] { return modem.online.load(); }));
    modem.online = false; // it is hung up, and takes commands
    std::this_thread::sleep_for(Milliseconds(500));
    exhausted = false;
    EXPECT_EQ(untilState(outgoing, state::disconnected), cause::unavailable);
    EXPECT_EQ(service.deallocate(outgoing), 0);
    outgoing = call("T1");
    untilState(outgoing, state::connected);
    modem.online = false;
}
