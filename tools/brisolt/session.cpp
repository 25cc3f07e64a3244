#include "session.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <functional>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <poll.h>
#include <unistd.h>

#include <brisolt.h>
#include <brisolt_host.h>

#include "failure.h"
#include "interruption.h"
#include "line_text.h"
#include "link.h"
#include "local_terminal.h"
#include "output.h"
#include "prompt.h"
#include "reception.h"
#include "typed_transfer.h"

namespace {

constexpr char prefixKey = 0x14; // Ctrl-T
constexpr std::size_t blockSize = 16384;
// What is pasted faster than the device takes it waits here, so that the keys are heard all the same.
constexpr std::size_t mostUnsent = 4U << 20;
constexpr int lastWords = 500; // milliseconds for what was typed right before the end

class Session {
public:
    explicit Session(const TermOptions& options);
    int run();

private:
    bool receive();
    void tellNews(const News& news);
    void sleep(int timeout);
    void readKeys();
    void key(char byte);
    void command(char byte);
    void type(std::string_view bytes);
    void tell(const std::string& text);
    void ask(std::string_view question, std::function<void(const std::string&)> answered);

    void toggle(int32_t line);
    void sendBreak();
    void showLine();
    void changeRate(const std::string& text);
    void sendHex(const std::string& text);
    void toggleLog();
    void transfer(bool sending);
    void startTransfer(bool sending, const std::string& file, const std::string& protocol);
    bool transferKey();
    void pause();
    void showKeys();

    /// What a key behind Ctrl-T does.
    struct Key {
        char letter;
        std::string_view help;
        void (*run)(Session&);
    };
    static const std::array<Key, 19> keys;

    const TermOptions& options_;
    char quitKey_;
    Link link_;
    Reception reception_; ///< behind the device: its log is made when that could be opened
    LineEnds lineEnds_;
    std::string logFile_;
    bool echo_, paused_ = false, prefixed_ = false, quit_ = false, logFailed_ = false;
    std::string typed_; ///< to be sent with the rest of what was read at once
    std::optional<Prompt> prompt_;
    std::function<void(const std::string&)> answered_;
};

const std::array<Session::Key, 19> Session::keys{
    Key{'d', "DTR on or off", [](Session& session) { session.toggle(COM_HOST_MODEM_DTR); }},
    Key{'r', "RTS on or off", [](Session& session) { session.toggle(COM_HOST_MODEM_RTS); }},
    Key{'b', "break", [](Session& session) { session.sendBreak(); }},
    Key{'i', "lines and counters", [](Session& session) { session.showLine(); }},
    Key{'u', "bits per second",
        [](Session& session) {
            session.ask("Bits per second", [&session](const std::string& text) { session.changeRate(text); });
        }},
    Key{'e', "echo what is typed",
        [](Session& session) {
            session.echo_ = !session.echo_;
            session.tell(session.echo_ ? "echo on" : "echo off");
        }},
    Key{'x', "hex",
        [](Session& session) {
            session.reception_.display.endLine(true);
            session.reception_.display.hex = !session.reception_.display.hex;
            session.tell(session.reception_.display.hex ? "hex on" : "hex off");
        }},
    Key{'n', "any line end ends a line",
        [](Session& session) {
            session.reception_.anyEol = !session.reception_.anyEol;
            session.tell(session.reception_.anyEol ? "any line end: on" : "any line end: off");
        }},
    Key{'h', "send bytes typed in hex",
        [](Session& session) {
            session.ask("Bytes in hex", [&session](const std::string& text) { session.sendHex(text); });
        }},
    Key{'t', "time stamps",
        [](Session& session) {
            Stamps& stamps = session.reception_.display.stamps;
            stamps = next(stamps);
            session.tell("time stamps: " + nameOf(stamps));
        }},
    Key{'l', "log on or off", [](Session& session) { session.toggleLog(); }},
    Key{'s', "send a file", [](Session& session) { session.transfer(true); }},
    Key{'g', "get a file", [](Session& session) { session.transfer(false); }},
    Key{'p', "pause what is shown", [](Session& session) { session.pause(); }},
    Key{'c', "discard what waits unsent",
        [](Session& session) {
            session.link_.discard();
            session.tell("what was not sent yet is discarded");
        }},
    Key{'z', "suspend", [](Session&) { interruption::suspend(); }},
    Key{'q', "quit", [](Session& session) { session.quit_ = true; }},
    Key{'?', "these keys", [](Session& session) { session.showKeys(); }},
    Key{prefixKey, "send Ctrl-T", [](Session& session) { session.typed_ += prefixKey; }}};

Session::Session(const TermOptions& options)
    : options_(options), quitKey_(keyByte(options.quitKey)),
      link_(options.line, options.keep ? withOption(options.line.device, "keep=yes") : options.line.device),
      reception_(options), lineEnds_(options.eol), logFile_(options.log), echo_(options.echo) {
    startTrace(link_.number(), options.trace);
}

int Session::run() {
    tell(link_.device() + ", " + lineText(link_.number()) + ". " + keyName(quitKey_) +
         " quits, Ctrl-T ? lists the keys.");
    while (!quit_) {
        const bool more = receive();
        if (interruption::asked())
            throw Failure("interrupted", exitInterrupted);
        sleep(more ? 0 : -1);
    }
    reception_.display.hold(false);
    reception_.display.endLine(true);
    link_.end(lastWords);
    return logFailed_ ? exitFailed : exitDone;
}

/// True when there may be more at once.
bool Session::receive() {
    tellNews(takeNews());
    if (reception_.display.full())
        return false;
    const std::string bytes = link_.read(blockSize);
    if (bytes.empty())
        return false;
    if (const std::string trouble = reception_.take(bytes); !trouble.empty()) {
        logFailed_ = true;
        tell(trouble + "; logging has ended");
    }
    return true;
}

void Session::tellNews(const News& news) {
    // Both may have happened since the last look.
    if ((news.events & COM_HOST_EVENT_GONE) != 0 && options_.keep)
        tell(link_.device() + " has gone; waiting for it");
    if ((news.events & COM_HOST_EVENT_BACK) != 0)
        tell(link_.device() + " is back");
}

void Session::sleep(int timeout) {
    std::vector<pollfd> entries;
    link_.watch(entries);
    entries.push_back({link_.unsent() < mostUnsent ? STDIN_FILENO : -1, POLLIN, 0});
    if (poll(entries.data(), entries.size(), timeout) <= 0)
        return;
    link_.settle();
    if (entries[2].revents != 0)
        readKeys();
}

void Session::readKeys() {
    std::array<char, 4096> bytes{};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count < 0 && (errno == EAGAIN || errno == EINTR))
        return;
    // A terminal that has been closed ends like a file.
    if (count <= 0) {
        quit_ = true;
        return;
    }
    for (const char byte : std::string_view(bytes.data(), static_cast<std::size_t>(count)))
        if (!quit_)
            key(byte);
    type(std::exchange(typed_, {}));
}

void Session::key(char byte) {
    if (prompt_) {
        const Prompt::State state = prompt_->key(byte);
        if (state == Prompt::State::open)
            return;
        const std::string answer = prompt_->answer();
        prompt_.reset();
        reception_.display.hold(paused_);
        if (const auto answered = std::exchange(answered_, nullptr);
            state == Prompt::State::answered && !answer.empty())
            answered(answer);
    } else if (std::exchange(prefixed_, false)) {
        command(byte);
    } else if (byte == quitKey_) {
        quit_ = true;
    } else if (byte == prefixKey) {
        prefixed_ = true;
    } else {
        typed_ += byte;
    }
}

void Session::command(char byte) {
    if (byte == quitKey_) {
        typed_ += byte;
        return;
    }
    type(std::exchange(typed_, {}));
    // Ctrl held on with the letter is meant as the letter.
    const char letter = byte > 0 && byte < ' ' && byte != prefixKey ? static_cast<char>(byte + 0x60) : byte;
    const auto found =
        std::find_if(keys.begin(), keys.end(), [letter](const Key& key) { return key.letter == letter; });
    if (found == keys.end())
        tell("no such key; ? lists them");
    else
        found->run(*this);
}

void Session::type(std::string_view bytes) {
    if (bytes.empty())
        return;
    link_.write(lineEnds_(bytes));
    if (echo_)
        reception_.display.show(LineEnds("crlf")(bytes));
}

/// On a line of its own, whatever the device has written.
void Session::tell(const std::string& text) {
    if (!reception_.display.held())
        reception_.display.endLine(true);
    writeAll(STDERR_FILENO, "[" + timeOfDay().substr(0, 8) + " " + printable(text) + "]\r\n",
             "standard error");
}

void Session::ask(std::string_view question, std::function<void(const std::string&)> answered) {
    reception_.display.endLine(true);
    reception_.display.hold(true);
    answered_ = std::move(answered);
    prompt_.emplace(question);
}

void Session::toggle(int32_t line) {
    const bool dtr = line == COM_HOST_MODEM_DTR;
    const int32_t lines = ComHostGetLines(link_.number());
    const bool on = lines >= 0 && (lines & line) != 0;
    const int32_t port = link_.number();
    const int32_t result =
        dtr ? (on ? ComClearDTR(port) : ComSetDTR(port)) : (on ? ComClearRTS(port) : ComSetRTS(port));
    const std::string name = dtr ? "DTR" : "RTS";
    tell(lines < 0 || result != 1 ? "the device has no " + name : name + (on ? " off" : " on"));
}

void Session::sendBreak() {
    tell(ComBreak(link_.number()) == 1 ? "break sent" : "the device cannot send a break");
}

void Session::showLine() {
    tell(lineText(link_.number()));
    tell(linesText(link_.number()));
    tell(countersText(link_.number()));
}

void Session::changeRate(const std::string& text) {
    int32_t rate = 0;
    if (!wholeNumber(1, 2147483647)(text).empty()) {
        tell("\"" + text + "\" is no rate");
        return;
    }
    rate = std::stoi(text);
    const int32_t result = ComHostSetLine(link_.number(), rate, nullptr, -1);
    tell(result == 1 ? lineText(link_.number()) : hostReason(result));
}

void Session::sendHex(const std::string& text) {
    const std::string bytes = hexBytes(text);
    if (bytes.empty() && text.empty())
        return;
    if (bytes.empty())
        return tell("\"" + text + "\" is no hex; write bytes as 1b 5b, 1b5b or 1b:5b");
    link_.write(bytes);
    if (echo_)
        reception_.display.show(bytes);
}

void Session::toggleLog() {
    if (reception_.logs()) {
        reception_.closeLog();
        tell("log off");
    } else if (!logFile_.empty()) {
        try {
            reception_.openLog(logFile_);
            tell("log on: " + logFile_);
        } catch (const Failure& failure) {
            tell(failure.what());
            logFile_.clear();
        }
    } else {
        ask("Log to", [this](const std::string& file) {
            logFile_ = file;
            toggleLog();
        });
    }
}

void Session::transfer(bool sending) {
    ask(sending ? "Send file" : "Receive to", [this, sending](const std::string& file) {
        ask("Protocol: t text, x, y or z modem",
            [this, sending, file](const std::string& protocol) { startTransfer(sending, file, protocol); });
    });
}

void Session::startTransfer(bool sending, const std::string& file, const std::string& protocol) {
    try {
        const TransferOptions request = typedTransfer(sending, file, protocol);
        tell(request.file + ", " + request.protocol + ". Ctrl-C gives up.");
        tell("done: " + runTypedTransfer(link_, sending, request, [this] { return transferKey(); }));
    } catch (const Failure& failure) {
        if (failure.code == exitGone || interruption::asked())
            throw;
        tell(failure.what());
    } catch (const std::exception& error) { // of the file system
        tell(error.what());
    }
}

/// Whether the user gives up. Other keys wait for nothing while a file is under way.
bool Session::transferKey() {
    std::array<char, 256> bytes{};
    const ssize_t count = read(STDIN_FILENO, bytes.data(), bytes.size());
    if (count == 0 || (count < 0 && errno != EINTR && errno != EAGAIN)) {
        quit_ = true;
        return true;
    }
    const std::string_view typed(bytes.data(), static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    return typed.find('\x03') != std::string_view::npos || typed.find(quitKey_) != std::string_view::npos;
}

void Session::pause() {
    if (!paused_)
        tell("paused; Ctrl-T p goes on");
    paused_ = !paused_;
    reception_.display.hold(paused_);
}

void Session::showKeys() {
    tell(keyName(quitKey_) + " quits. Behind Ctrl-T:");
    for (const Key& key : keys)
        tell("  " + (key.letter == prefixKey ? keyName(prefixKey) : std::string(1, key.letter)) + "  " +
             std::string(key.help));
}

} // namespace

int runSession(const TermOptions& options) {
    Session session(options);
    const LocalTerminal raw;
    return session.run();
}
