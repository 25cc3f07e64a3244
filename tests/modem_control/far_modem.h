// A modem at the far end of a pseudo terminal that answers as a test tells it.
#pragma once

#include <atomic>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/pty.h"

namespace brisolt::test {

class FarModem {
public:
    FarModem() : thread_([this] { run(); }) {}
    FarModem(const FarModem&) = delete;
    FarModem& operator=(const FarModem&) = delete;
    ~FarModem() {
        stop_ = true;
        thread_.join();
    }

    const std::string& path() const { return line_.slavePath(); }
    /// What it answers to a command, or from now on to all that have no answer of their own.
    void answer(const std::string& command, const std::string& answer) {
        const std::scoped_lock guard(lock_);
        answers_[command] = answer;
    }
    void answerAll(const std::string& answer) {
        const std::scoped_lock guard(lock_);
        otherwise_ = answer;
    }
    void say(const std::string& bytes) { line_.write(bytes); }

    /// The commands it was sent, each without its carriage return and the "+++" before it.
    std::vector<std::string> commands() const {
        const std::scoped_lock guard(lock_);
        return commands_;
    }
    /// All that it was sent, byte for byte.
    std::string received() const {
        const std::scoped_lock guard(lock_);
        return received_;
    }

private:
    void run() {
        std::string command;
        while (!stop_)
            for (const char byte : line_.read(1, Pty::Milliseconds(20))) {
                const std::scoped_lock guard(lock_);
                received_ += byte;
                if (byte != '\r') {
                    command += byte;
                    if (command.ends_with("+++"))
                        command.clear();
                    continue;
                }
                commands_.push_back(command);
                const auto found = answers_.find(std::exchange(command, {}));
                line_.write(found == answers_.end() ? otherwise_ : found->second);
            }
    }

    Pty line_;
    mutable std::mutex lock_;
    std::map<std::string, std::string> answers_;
    std::string otherwise_ = "\r\nOK\r\n";
    std::vector<std::string> commands_;
    std::string received_;
    std::atomic<bool> stop_ = false;
    std::thread thread_;
};

} // namespace brisolt::test
