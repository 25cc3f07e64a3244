// The far end of a pseudo terminal, which goes on whatever happens to the library's host.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>

#include "support/pty.h"
#include "support/timing.h"

namespace brisolt::faults {

class FarEnd {
public:
    /// What it sends when it has received `bytes`; `pending` are those that it may still take up.
    using Reply = std::function<std::string(std::string& pending)>;

    static std::string echo(std::string& pending) { return std::exchange(pending, {}); }
    static std::string silent(std::string& pending) { return pending.clear(), std::string(); }
    /// A modem that agrees to everything, and sends back what it hears once it has dialled.
    static Reply modem() {
        return [online = false](std::string& pending) mutable {
            if (online && pending != "+++")
                return std::exchange(pending, {});
            if (!online && pending.find('\r') == std::string::npos)
                return std::string();
            const std::string command = std::exchange(pending, {});
            online = command.starts_with("ATD");
            return std::string(online ? "\r\nCONNECT\r\n" : "\r\nOK\r\n");
        };
    }

    explicit FarEnd(Reply reply, std::chrono::milliseconds delay = {})
        : reply_(std::move(reply)), delay_(delay) {
        thread_ = std::jthread([this](const std::stop_token& over) { run(over); });
    }
    FarEnd(const FarEnd&) = delete;
    FarEnd& operator=(const FarEnd&) = delete;
    ~FarEnd() { thread_ = {}; }
    std::string path() const { return pty_.slavePath(); }
    std::string received() const {
        const std::scoped_lock guard(lock_);
        return received_;
    }
    bool receives(const std::string& text) const {
        return test::eventually([&] { return received() == text; }, std::chrono::seconds(5));
    }

private:
    void run(const std::stop_token& over) {
        for (std::string pending; !over.stop_requested();) {
            std::this_thread::sleep_for(delay_);
            const std::string bytes = pty_.read(1, std::chrono::milliseconds(5));
            if (bytes.empty())
                continue;
            pending += bytes + test::readToQuiet(pty_.master(), std::chrono::milliseconds(0));
            {
                const std::scoped_lock guard(lock_);
                received_ += pending.substr(counted_);
            }
            pty_.write(reply_(pending));
            counted_ = pending.size();
        }
    }

    test::Pty pty_;
    Reply reply_;
    std::chrono::milliseconds delay_;
    mutable std::mutex lock_;
    std::string received_;
    std::size_t counted_ = 0; ///< of the pending bytes
    std::jthread thread_;
};

} // namespace brisolt::faults
