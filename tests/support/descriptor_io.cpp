#include "support/descriptor_io.h"

#include <algorithm>
#include <thread>

#include <poll.h>
#include <unistd.h>

namespace brisolt::test {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::milliseconds;

/// Waits until there may be something to do. A master without a slave reports "hung up" all the time, so that
/// case sleeps instead of spinning until the slave is opened.
void waitFor(int descriptor, short events, Clock::time_point end) {
    const auto left = std::chrono::ceil<Milliseconds>(end - Clock::now());
    pollfd entry{descriptor, events, 0};
    const int limit = static_cast<int>(std::max<Milliseconds::rep>(left.count(), 0));
    if (poll(&entry, 1, limit) > 0 && (entry.revents & events) == 0)
        std::this_thread::sleep_for(Milliseconds(1));
}

/// Calls act(bytes already done) until that are `count` or the time is over. How many they are.
template <class Act>
std::size_t repeat(int descriptor, short events, std::size_t count, Milliseconds limit, Act act) {
    const auto end = Clock::now() + limit;
    std::size_t done = 0;
    while (done < count) {
        const ssize_t more = act(done);
        if (more > 0)
            done += static_cast<std::size_t>(more);
        else if (Clock::now() >= end)
            break;
        else
            waitFor(descriptor, events, end);
    }
    return done;
}

} // namespace

std::size_t writeTo(int descriptor, std::string_view bytes, Milliseconds limit) {
    return repeat(descriptor, POLLOUT, bytes.size(), limit, [&](std::size_t done) {
        return ::write(descriptor, bytes.data() + done, bytes.size() - done);
    });
}

std::string readFrom(int descriptor, std::size_t count, Milliseconds limit) {
    std::string bytes(count, '\0');
    bytes.resize(repeat(descriptor, POLLIN, count, limit, [&](std::size_t done) {
        return ::read(descriptor, bytes.data() + done, count - done);
    }));
    return bytes;
}

std::string readToQuiet(int descriptor, Milliseconds quiet) {
    std::string all;
    while (true) {
        const std::string more = readFrom(descriptor, 1, quiet);
        if (more.empty())
            return all;
        all += more + readFrom(descriptor, 4096, Milliseconds(0));
    }
}

} // namespace brisolt::test
