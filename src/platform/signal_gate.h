// Signals and a wait in steps. A handler that runs between two sleeps leaves no trace for the next, and one that runs
// while a sleep ends for another reason is not told of. So who waits in steps holds signals back, lets them in while it
// sleeps, and looks whether one has knocked.
#pragma once

namespace brisolt {

/// Shut for the length of a scope. What stops a program or means a fault of its own comes in at any time.
class SignalGate {
public:
    /// `shuts` false: it stays open, for waits whose sleeps are somebody else's and would not let signals in.
    explicit SignalGate(bool shuts) noexcept;
    SignalGate(const SignalGate&) = delete;
    SignalGate& operator=(const SignalGate&) = delete;
    ~SignalGate();

    /// The calling thread's gate holds back a signal that has a handler, or that ends the program, and no sleep to
    /// come would let it in first.
    static bool knocked() noexcept;

private:
    bool shuts_;
};

} // namespace brisolt
