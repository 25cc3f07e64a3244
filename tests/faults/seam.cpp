#include "seam.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <numeric>
#include <span>
#include <system_error>
#include <thread>
#include <utility>

#include <execinfo.h>
#include <linux/futex.h>
#include <netdb.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

namespace brisolt::faults {
namespace {

std::atomic<Meter*> meter{nullptr};
Mode mode = Mode::once;
long point = 0;
bool traced = false;

struct Call {
    const char *kind, *name;
    long a = 0, b = 0, c = 0; ///< its first arguments
};

bool is(const Call& call, const char* kind) {
    return std::strcmp(call.kind, kind) == 0;
}
bool is(const Call& call, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(),
                       [&](const char* name) { return !std::strcmp(call.name, name); });
}

bool isOf(int descriptor, const char* kind) {
    char link[32], text[64] = "";
    std::snprintf(link, sizeof link, "/proc/self/fd/%d", descriptor);
    const Spared here;
    return readlink(link, text, sizeof text - 1) > 0 && std::strstr(text, kind) != nullptr;
}

/// What cannot fail: a write to or a read of an eventfd, by which threads wake each other, and a futex's wake.
bool cannotFail(const Call& call) {
    if (is(call, {"syscall"}))
        return call.a == SYS_futex && static_cast<int>(call.c) != FUTEX_WAIT_PRIVATE;
    return is(call, {"read", "write"}) && call.c == sizeof(eventfd_t) &&
           isOf(static_cast<int>(call.a), "[eventfd]");
}

/// How many bytes a read would give. A file's own size says nothing where the kernel makes it up as it is read.
long available(const Call& call) {
    const Spared here;
    struct stat about {};
    const int descriptor = static_cast<int>(call.a);
    if (fstat(descriptor, &about) == 0 && S_ISREG(about.st_mode))
        return pread(descriptor, reinterpret_cast<void*>(call.b), static_cast<size_t>(call.c),
                     lseek(descriptor, 0, SEEK_CUR));
    int waiting = 0; // news of a folder come whole
    return ioctl(descriptor, FIONREAD, &waiting) != 0 || isOf(descriptor, "inotify")
               ? 0
               : std::min<long>(waiting, call.c);
}

/// How many bytes a call moves when it moves a part of what it could, 0 when it has no parts.
long partOf(const Call& call) {
    if (is(call, {"read", "recv"}))
        return available(call) / 2;
    if (is(call, {"write", "send"}))
        return call.c / 2;
    if (!is(call, {"writev"}))
        return 0;
    const std::span pieces(reinterpret_cast<const iovec*>(call.b), static_cast<size_t>(call.c));
    return std::accumulate(
               pieces.begin(), pieces.end(), 0L,
               [](long sum, const iovec& piece) { return sum + static_cast<long>(piece.iov_len); }) /
           2;
}

/// A writev of no more than that.
template <class Real> long writeFirst(const Call& call, long bytes, Real real) {
    std::array<iovec, 64> pieces{};
    long count = 0;
    for (const auto* piece = reinterpret_cast<const iovec*>(call.b); bytes > 0 && count < 64;
         ++piece, ++count) {
        pieces[static_cast<size_t>(count)] = {piece->iov_base,
                                              std::min(piece->iov_len, static_cast<size_t>(bytes))};
        bytes -= static_cast<long>(pieces[static_cast<size_t>(count)].iov_len);
    }
    return real(call.a, reinterpret_cast<long>(pieces.data()), count, 0, 0, 0);
}

bool concerns(Mode which, const Call& call) {
    switch (which) {
    case Mode::partly: return partOf(call) > 0;
    case Mode::interrupted:
        return is(call, "wait") ||
               is(call, {"read", "recv", "write", "writev", "send", "open", "waitpid", "flock"});
    default: return !is(call, {"nanosleep", "clock_nanosleep"}); // nothing else ends a sleep
    }
}

void tell(Meter& here, const Call& call) {
    std::strncpy(here.call, call.name, sizeof here.call - 1);
    std::strncpy(here.kind, call.kind, sizeof here.kind - 1);
    if (!traced)
        return;
    std::fprintf(stderr, "%s fails\n", call.name);
    void* frames[24];
    backtrace_symbols_fd(frames, backtrace(frames, 24), STDERR_FILENO);
}

bool fails(const Call& call) {
    Meter* const here = meter;
    if (here == nullptr || spared > 0)
        return false;
    for (int one = 0; one < static_cast<int>(Mode::count) && point == 0; ++one)
        here->met[one] += concerns(static_cast<Mode>(one), call) ? 1 : 0;
    if (point == 0 || !concerns(mode, call))
        return false;
    const long number = ++here->met[static_cast<int>(mode)];
    if (mode == Mode::on ? number < point : number != point)
        return false;
    const Spared telling;
    if (++here->failed == 1)
        tell(*here, call);
    return true;
}

/// What every call of seam.list comes to. All their arguments are integers or pointers, so that they travel in
/// registers and six of them cover each call, however many it has.
template <class Real>
long pass(const Call& call, long failure, int error, Real real, long a, long b, long c, long d, long e,
          long f) {
    if (meter == nullptr || spared > 0 || cannotFail(call) || !fails(call))
        return real(a, b, c, d, e, f);
    if (mode == Mode::partly) {
        const long part = std::max(partOf(call), 1L); // somebody else may have read meanwhile
        return is(call, {"writev"}) ? writeFirst(call, part, real) : real(a, b, part, d, e, f);
    }
    errno = mode == Mode::interrupted ? EINTR : error;
    return failure;
}

} // namespace

void arm(Meter& here, Mode how, long which, bool trace) {
    mode = how;
    point = which;
    traced = trace;
    void* frames[2];
    backtrace(frames, 2); // loads what it needs now, not in the middle of a failure
    meter = &here;
}
void disarm() {
    meter = nullptr;
}

} // namespace brisolt::faults

// NOLINTBEGIN: the names are the linker's
#define SEAM(kind, name, failure, error)                                                                   \
    extern "C" long __real_##name(long, long, long, long, long, long);                                     \
    extern "C" __attribute__((visibility("default"))) long __wrap_##name(long a, long b, long c, long d,   \
                                                                         long e, long f) {                 \
        return brisolt::faults::pass({kind, #name, a, b, c}, failure, error, __real_##name, a, b, c, d, e, \
                                     f);                                                                   \
    }
#include <seam.inc>

// A thread by the C++ library's means, as the service starts it: that it cannot be is thrown.
#define STARTS_THREAD "_ZNSt6thread15_M_start_threadESt10unique_ptrINS_6_StateESt14default_deleteIS1_EEPFvvE"
using State = std::unique_ptr<std::thread::_State>;
void realStart(std::thread& thread, State state, void (*needs)()) __asm__("__real_" STARTS_THREAD);
__attribute__((visibility("default"))) void startThread(std::thread& thread, State state,
                                                        void (*needs)()) __asm__("__wrap_" STARTS_THREAD);
void startThread(std::thread& thread, State state, void (*needs)()) {
    struct SparedState : std::thread::_State {
        explicit SparedState(State all) : all_(std::move(all)) {}
        void _M_run() override {
            const brisolt::faults::Spared here;
            all_->_M_run();
        }
        State all_;
    };
    if (brisolt::faults::fails({"thread", "std::thread"}))
        throw std::system_error(EAGAIN, std::generic_category());
    if (brisolt::faults::spared > 0)
        state = std::make_unique<SparedState>(std::move(state));
    realStart(thread, std::move(state), needs);
}

// The clock and the waits of the service.
constexpr int haste = 4;
__attribute__((visibility("default"))) std::chrono::steady_clock::time_point
hastyNow() __asm__("__wrap__ZNSt6chrono3_V212steady_clock3nowEv");
std::chrono::steady_clock::time_point hastyNow() {
    return std::chrono::steady_clock::time_point(haste * std::chrono::steady_clock::now().time_since_epoch());
}
extern "C" __attribute__((visibility("default"))) int brisoltHastyPoll(pollfd* entries, nfds_t count,
                                                                       int milliseconds) {
    return poll(entries, count, milliseconds <= 0 ? milliseconds : (milliseconds + haste - 1) / haste);
}
// NOLINTEND

namespace {

void* allocate(std::size_t size, std::size_t alignment = 0) noexcept {
    if (brisolt::faults::fails({"memory", "new"}))
        return nullptr;
    const brisolt::faults::Spared plain;
    size = std::max<std::size_t>(size, 1);
    return alignment == 0 ? std::malloc(size)
                          : std::aligned_alloc(alignment, (size + alignment - 1) / alignment * alignment);
}
void* required(void* block) {
    return block != nullptr ? block : throw std::bad_alloc();
}

} // namespace

void* operator new(std::size_t size) {
    return required(allocate(size));
}
void* operator new[](std::size_t size) {
    return required(allocate(size));
}
void* operator new(std::size_t size, std::align_val_t alignment) {
    return required(allocate(size, static_cast<std::size_t>(alignment)));
}
void* operator new(std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void* operator new[](std::size_t size, const std::nothrow_t&) noexcept {
    return allocate(size);
}
void operator delete(void* block) noexcept {
    std::free(block);
}
void operator delete[](void* block) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete[](void* block, std::size_t) noexcept {
    std::free(block);
}
void operator delete(void* block, std::align_val_t) noexcept {
    std::free(block);
}
void operator delete(void* block, std::size_t, std::align_val_t) noexcept {
    std::free(block);
}
