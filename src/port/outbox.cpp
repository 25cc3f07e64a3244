#include "port/outbox.h"

#include "platform/message.h"

namespace brisolt {

void Outbox::send(int32_t port) const noexcept {
    for (std::size_t i = 0; i < count_; ++i) {
        const Post& post = posts_[i];
        if (post.window != 0)
            message::postToWindow(post.window, post.message, 0, port);
        else
            message::postToThread(post.thread, post.message, 0, port);
    }
}

} // namespace brisolt
