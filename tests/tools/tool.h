// The command as its users run it: in pipes, and at a terminal with keys and a screen.
#pragma once

#include <csignal>
#include <optional>

#include <fcntl.h>
#include <termios.h>
#include <unistd.h>

#include "support/open_port.h"
#include "support/peer_process.h"

using namespace brisolt::test;

class Tool : public testing::Test {
protected:
    void SetUp() override {
        if (std::string(BRISOLT_TOOL).empty())
            GTEST_SKIP() << "the command is not part of this build";
    }

    /// With its standard input, output and errors in our hands.
    static PeerProcess::Options everything() { return {.captureErrors = true, .inherit = -1}; }

    struct Outcome {
        int code;
        std::string text;
    };
    /// A line of shell; $0 is the command, $1 and so on the arguments.
    static Outcome shell(const std::string& script, std::vector<std::string> arguments = {}) {
        arguments.insert(arguments.begin(), {"-c", script, BRISOLT_TOOL});
        PeerProcess process("/bin/sh", arguments, everything());
        process.closeInput();
        const std::string text = process.readAll(60s);
        return {process.wait(), text};
    }

    /// Somebody at a terminal that runs the command.
    class User {
    public:
        explicit User(const std::string& arguments)
            : slave_(open(terminal.slavePath().c_str(), O_RDWR | O_NOCTTY | O_CLOEXEC)), before_(settings()) {
            before_.c_lflag |= ICANON | ISIG;
            tcsetattr(slave_, TCSANOW, &before_);
            process.emplace("/bin/sh",
                            std::vector<std::string>{
                                "-c", "exec setsid -c \"$0\" " + arguments + " <\"$1\" >\"$1\" 2>\"$1\"",
                                BRISOLT_TOOL, terminal.slavePath()},
                            everything());
        }
        User(const User&) = delete;
        User& operator=(const User&) = delete;
        ~User() { close(slave_); }

        void keys(std::string_view bytes) const { terminal.write(bytes); }
        /// Reads the screen until the text is on it; true when it came.
        bool sees(const std::string& text) {
            const auto found = [&] { return screen.find(text) != std::string::npos; };
            if (!eventually([&] { return found() || (screen += terminal.read(1, 50ms), found()); }))
                return false;
            screen.erase(0, screen.find(text) + text.size());
            return true;
        }
        termios settings() const {
            termios now{};
            tcgetattr(slave_, &now);
            return now;
        }
        bool becomesRaw() const {
            return eventually([&] { return (settings().c_lflag & ICANON) == 0; });
        }
        /// All of it, not only what a raw terminal is known by.
        bool asBefore() const {
            const termios now = settings();
            return now.c_lflag == before_.c_lflag && now.c_iflag == before_.c_iflag &&
                   now.c_oflag == before_.c_oflag && now.c_cflag == before_.c_cflag;
        }

        Pty terminal;
        std::string screen; ///< what has come and was not looked for yet
        std::optional<PeerProcess> process;

    private:
        int slave_;
        termios before_;
    };
};
