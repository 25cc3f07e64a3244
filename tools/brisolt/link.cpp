#include "link.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <utility>

#include <sys/eventfd.h>
#include <unistd.h>

#include <brisolt.h>
#include <brisolt_host.h>

#include "failure.h"
#include "interruption.h"

namespace {

constexpr std::size_t blockSize = 4096;
// How long the sender lets the library wait before it looks whether it is to go on; nothing depends on it but how
// soon bytes that the device does not take can be discarded.
constexpr int32_t turn = 200;

} // namespace

News takeNews() {
    News news;
    ComHostMessage message{};
    int32_t next = 0;
    while ((next = ComHostGetMessage(&message, 0)) == 1) {
        if (message.message == COM_HOST_MESSAGE_EVENT)
            news.events |= static_cast<uint32_t>(message.first);
        else if (message.message == COM_HOST_MESSAGE_DEVICES)
            news.devices = true;
        else
            ComHostDispatchMessage(&message);
    }
    news.quit = next < 0;
    return news;
}

bool pauseFor(int milliseconds) {
    using Clock = std::chrono::steady_clock;
    const auto until = Clock::now() + std::chrono::milliseconds(milliseconds);
    while (!interruption::asked() && Clock::now() < until) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count() + 1;
        pollfd entry{ComHostMessageDescriptor(), POLLIN, 0};
        poll(&entry, 1, static_cast<int>(left));
        takeNews();
    }
    return !interruption::asked();
}

Link::Link(const LineOptions& options, const std::string& path)
    : Port(options, path), wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
    if (wake_ < 0)
        throw Failure(std::string("eventfd: ") + std::strerror(errno));
    ComSetNotifyThreadMessageAnyChar(number(), ComHostThreadId());
    ComHostSetEventMessage(number(), COM_HOST_EVENT_GONE | COM_HOST_EVENT_BACK, 0, ComHostThreadId());
    sender_ = std::thread([this] { send(); });
}

Link::~Link() {
    stopSending();
    ::close(wake_);
}

void Link::stopSending() {
    {
        const std::lock_guard hold(mutex_);
        stop_ = true;
    }
    changed_.notify_all();
    if (sender_.joinable())
        sender_.join();
}

std::string Link::read(std::size_t most) {
    std::string bytes(most, '\0');
    const int32_t count = ComHostRead(number(), bytes.data(), static_cast<int32_t>(most), 0);
    if (count == -2)
        failGone();
    bytes.resize(static_cast<std::size_t>(std::max(count, 0)));
    return bytes;
}

void Link::write(std::string_view bytes) {
    {
        const std::lock_guard hold(mutex_);
        queue_.append(bytes);
        sent_ = false;
    }
    changed_.notify_all();
}

std::size_t Link::unsent() {
    const std::lock_guard hold(mutex_);
    return queue_.size();
}

void Link::finishWriting() {
    {
        const std::lock_guard hold(mutex_);
        finish_ = true;
    }
    changed_.notify_all();
}

bool Link::allSent() {
    const std::lock_guard hold(mutex_);
    return sent_ && queue_.empty();
}

void Link::discard() {
    {
        const std::lock_guard hold(mutex_);
        queue_.erase(underWay_);
    }
    ComFlushOutBuf(number());
}

void Link::send() {
    std::unique_lock hold(mutex_);
    for (;;) {
        changed_.wait(hold, [this] { return stop_ || !queue_.empty() || (finish_ && !sent_); });
        if (stop_)
            return;
        const std::string block = queue_.substr(0, blockSize);
        underWay_ = block.size();
        hold.unlock();
        const int32_t result =
            block.empty() ? ComHostDrain(number(), turn)
                          : ComHostWrite(number(), block.data(), static_cast<int32_t>(block.size()), turn);
        hold.lock();
        underWay_ = 0;
        if (block.empty())
            sent_ = queue_.empty() && result != 0;
        else
            queue_.erase(0, static_cast<std::size_t>(std::max(result, 0)));
        wake();
        // The loop sees for itself that the device has gone.
        if (result < 0)
            changed_.wait_for(hold, std::chrono::milliseconds(turn), [this] { return stop_; });
    }
}

void Link::wake() const {
    const uint64_t one = 1;
    static_cast<void>(!::write(wake_, &one, sizeof one));
}

void Link::settle() const {
    uint64_t count = 0;
    static_cast<void>(!::read(wake_, &count, sizeof count));
}

void Link::watch(std::vector<pollfd>& entries) const {
    entries.push_back({ComHostMessageDescriptor(), POLLIN, 0});
    entries.push_back({wake_, POLLIN, 0});
}

bool Link::end(int milliseconds) {
    using Clock = std::chrono::steady_clock;
    const auto until = Clock::now() + std::chrono::milliseconds(milliseconds);
    const auto left = [until] {
        const auto rest = std::chrono::duration_cast<std::chrono::milliseconds>(until - Clock::now()).count();
        return static_cast<int>(std::max<int64_t>(rest, 0));
    };
    while (unsent() > 0 && left() > 0 && !gone()) {
        pollfd entry{wake_, POLLIN, 0};
        poll(&entry, 1, left());
        settle();
    }
    const bool all = unsent() == 0;
    stopSending();
    return close(left()) && all;
}
