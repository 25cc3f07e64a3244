#include "seam.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <new>

#include <execinfo.h>
#include <poll.h>
#include <unistd.h>

namespace brisolt::faults {
namespace {

std::atomic<Meter*> meter{nullptr};
Mode mode = Mode::once;
long point = 0;
bool traced = false;

struct Call {
    const char *kind, *name;
};

bool is(const Call& call, const char* kind) {
    return std::strcmp(call.kind, kind) == 0;
}
bool is(const Call& call, std::initializer_list<const char*> names) {
    return std::any_of(names.begin(), names.end(),
                       [&](const char* name) { return !std::strcmp(call.name, name); });
}

bool concerns(Mode which, const Call& call) {
    switch (which) {
    case Mode::partly: return is(call, {"read", "write", "writev"});
    case Mode::interrupted:
        return is(call, "wait") || is(call, {"read", "write", "writev", "open", "waitpid", "flock"});
    default: return true;
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
    constexpr long wakeUp = 8; // bytes: an eventfd's, which cannot fail
    if ((is(call, {"read", "write"}) && c == wakeUp) || !fails(call))
        return real(a, b, c, d, e, f);
    if (mode == Mode::partly && !is(call, {"writev"}))
        return real(a, b, c > 1 ? c / 2 : c, d, e, f);
    if (mode == Mode::partly)
        return real(a, b, std::max(c / 2, 1L), d, e, f);
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
#define SEAM(kind, name, failure, error)                                                                 \
    extern "C" long __real_##name(long, long, long, long, long, long);                                   \
    extern "C" __attribute__((visibility("default"))) long __wrap_##name(long a, long b, long c, long d, \
                                                                         long e, long f) {               \
        return brisolt::faults::pass({kind, #name}, failure, error, __real_##name, a, b, c, d, e, f);    \
    }
#include <seam.inc>

// The clock and the waits of the service.
constexpr int haste = 10;
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
