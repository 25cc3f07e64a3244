// What is to be told of a round: collected while portLock is held, sent when it is not. Whoever is woken
// for the news wants that lock at once and would only queue up for it.
#pragma once

#include <array>
#include <cstdint>

namespace brisolt {

class Outbox {
public:
    void toWindow(int32_t window, uint32_t message) noexcept { add({window, 0, message}); }
    void toThread(uint32_t thread, uint32_t message) noexcept { add({0, thread, message}); }
    /// In the order in which they were added. A failed post is nobody's business: the receiver is gone, or
    /// does not look.
    void send(int32_t port) const noexcept;

private:
    struct Post {
        int32_t window;
        uint32_t thread;
        uint32_t message;
    };
    void add(const Post& post) noexcept {
        if (count_ < posts_.size())
            posts_[count_++] = post;
    }
    std::array<Post, 6> posts_{}; ///< three kinds of news, each to a window and to a thread
    std::size_t count_ = 0;
};

} // namespace brisolt
