// Tells when a modem line changes. The kernel tells by ending a call that blocks and that nothing else can be
// waited for beside, so it has a thread of its own, which exists while somebody has asked. The call is ended from
// outside by a signal that nothing else uses.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>

namespace brisolt::tty {

class LineWatch {
public:
    /// Waits for changes of these lines (TIOCM_... bits) on the tty, which stays open until stop() has returned, and
    /// calls `changed` after each. Null when the host has no thread or no signal for it.
    static std::unique_ptr<LineWatch> start(int32_t descriptor, int32_t lines, void (*changed)(void*),
                                            void* argument);
    ~LineWatch();
    LineWatch(const LineWatch&) = delete;
    LineWatch& operator=(const LineWatch&) = delete;

    /// The wait is begun anew: new settings of a tty switch the kernel's interrupt for its lines off under whoever
    /// waits.
    void again() noexcept;

private:
    struct Shared;
    explicit LineWatch(std::shared_ptr<Shared> shared) noexcept;
    std::shared_ptr<Shared> shared_;
};

} // namespace brisolt::tty
