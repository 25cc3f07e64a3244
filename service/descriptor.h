// A file descriptor that is closed with its owner, and a call to a thread that waits in a poll.
#pragma once

#include <cstdint>
#include <utility>

#include <sys/eventfd.h>
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
    void close() noexcept {
        if (number_ >= 0)
            ::close(std::exchange(number_, -1));
    }

private:
    int number_;
};

class Wake {
public:
    void call() const noexcept {
        const uint64_t one = 1;
        static_cast<void>(write(event_.get(), &one, sizeof one));
    }
    void clear() const noexcept {
        uint64_t calls = 0;
        static_cast<void>(read(event_.get(), &calls, sizeof calls));
    }
    int descriptor() const noexcept { return event_.get(); }

private:
    Descriptor event_{eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)};
};

} // namespace brisolt::service
