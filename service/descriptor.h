// A file descriptor that is closed with its owner.
#pragma once

#include <cerrno>
#include <utility>

#include <unistd.h>

namespace brisolt::service {

class Descriptor {
public:
    explicit Descriptor(int number = -1) noexcept : number_(number) {}
    Descriptor(Descriptor&& other) noexcept : number_(std::exchange(other.number_, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(number_, other.number_);
        other.close();
        return *this;
    }
    ~Descriptor() { close(); }

    explicit operator bool() const noexcept { return number_ >= 0; }
    int get() const noexcept { return number_; }
    /// Gives it up without closing it: it is somebody else's to close.
    int release() noexcept { return std::exchange(number_, -1); }
    void close() noexcept {
        if (number_ >= 0)
            ::close(std::exchange(number_, -1));
    }

private:
    int number_;
};

/// A call that a signal may end before it has done anything, as it may an open that takes its time.
template <class Call> auto throughSignals(Call call) noexcept {
    auto result = call();
    while (result < 0 && errno == EINTR)
        result = call();
    return result;
}

/// Of a read or write that does not wait: bytes, 0 nothing can be done now, -1 nothing ever can.
ssize_t countOf(ssize_t result) noexcept;

} // namespace brisolt::service
