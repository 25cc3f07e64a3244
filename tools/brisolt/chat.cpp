// brisolt chat: expect and send over a serial line, as scripts for chat(8) say it.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include <unistd.h>

#include <CLI/CLI.hpp>

#include <brisolt.h>
#include <brisolt_host.h>

#include "arguments.h"
#include "chat_script.h"
#include "commands.h"
#include "failure.h"
#include "interruption.h"
#include "link.h"
#include "output.h"
#include "port.h"

namespace {

// The exit codes that scripts know. Behind them stands one for each ABORT string.
enum ChatCode { chatDone = 0, chatUsage = 1, chatError = 2, chatTime = 3, chatAbort = 4 };

constexpr int32_t defaultTimeout = 45, mostBytes = 9999; // of one call
constexpr std::size_t longestString = 1024;
constexpr int32_t stopped = -4, full = -3;

struct ChatOptions {
    LineOptions line;
    std::vector<std::string> script;
    std::string file, report;
    int32_t timeout = defaultTimeout;
    ScriptTexts texts;
    bool echo = false, verbose = false, standardError = false;
};

/// The bytes as a log shows them: "^M" and its like.
std::string visible(const std::string& bytes) {
    std::string text;
    for (const char byte : bytes) {
        const auto value = static_cast<unsigned char>(byte);
        if (value < ' ')
            text += {'^', static_cast<char>(value + '@')};
        else
            text += byte;
    }
    return text;
}

class Chat {
public:
    Chat(const Port& port, const ChatOptions& options)
        : port_(port), options_(options), texts_(options.texts), timeout_(options.timeout),
          echo_(options.echo) {
        // A NUL would end the text that the library searches.
        ComReplace_Incoming_Char(port.number(), 1, 0, 0x7f);
        if (!options.report.empty())
            reports_.open(options.report, std::ios::app | std::ios::binary);
    }
    void run(const std::vector<std::string>& words);
    /// The line of a report may not be over when the script is.
    void endReport();

private:
    bool keyword(const std::string& word, const std::string& value);
    void expect(const std::string& word);
    bool await(const std::string& text);
    int32_t awaitOnce(const std::vector<std::string>& texts, int32_t seconds);
    void consider(const std::string& came);
    void report(const std::string& came);
    void send(const std::string& word);
    void step(const SendStep& step) const;
    void log(const std::string& text) const;

    const Port& port_;
    const ChatOptions& options_;
    ScriptTexts texts_;
    int32_t timeout_;
    bool echo_;
    std::vector<std::string> aborts_, reportStrings_;
    std::optional<std::string> gathering_; ///< a report whose end has not come yet
    std::string last_;                     ///< what came last, for reports that come in two pieces
    std::ofstream reports_;
};

void Chat::run(const std::vector<std::string>& words) {
    for (std::size_t i = 0; i < words.size(); i += 2) {
        const std::string second = i + 1 < words.size() ? words[i + 1] : "";
        if (i + 1 < words.size() && keyword(words[i], second))
            continue;
        expect(words[i]);
        if (i + 1 < words.size())
            send(second);
    }
}

void Chat::endReport() {
    if (gathering_)
        report("\n");
}

/// Words that stand where something is expected, and are no such thing.
bool Chat::keyword(const std::string& word, const std::string& value) {
    const auto erase = [](std::vector<std::string>& from, const std::string& text) {
        from.erase(std::remove(from.begin(), from.end(), text), from.end());
    };
    const std::string text = expectText(value, texts_);
    if (word == "ABORT")
        aborts_.push_back(text);
    else if (word == "CLR_ABORT")
        erase(aborts_, text);
    else if (word == "REPORT")
        reportStrings_.push_back(text);
    else if (word == "CLR_REPORT")
        erase(reportStrings_, text);
    else if (word == "SAY")
        writeAll(STDERR_FILENO, text, "standard error");
    else if (word == "ECHO")
        echo_ = value == "ON";
    else if (word == "TIMEOUT")
        timeout_ = wholeNumber(1, 1000000)(value).empty() ? std::stoi(value) : defaultTimeout;
    else
        // A lost carrier ends nothing here, so there is nothing to switch off.
        return word == "HANGUP";
    return true;
}

void Chat::expect(const std::string& word) {
    const std::vector<std::string> parts = subExpects(word);
    for (std::size_t i = 0; i < parts.size(); i += 2) {
        if (await(expectText(parts[i], texts_)))
            return;
        if (i + 1 == parts.size())
            port_.fail("\"" + parts[i] + "\" has not come in " + std::to_string(timeout_) + " s", chatTime);
        send(parts[i + 1]);
    }
}

/// False when the time is over.
bool Chat::await(const std::string& text) {
    using Clock = std::chrono::steady_clock;
    if (text.size() > longestString)
        throw Failure("a string is longer than " + std::to_string(longestString) + " bytes", chatUsage);
    if (text.empty())
        return true;
    log("expect (" + visible(text) + ")");
    std::vector<std::string> texts{text};
    texts.insert(texts.end(), aborts_.begin(), aborts_.end());
    const auto until = Clock::now() + std::chrono::seconds(timeout_);
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::seconds>(until - Clock::now()).count();
        const int32_t result = awaitOnce(texts, static_cast<int32_t>(std::max<int64_t>(left, 0)));
        if (result == 1) {
            log(" -- got it");
            return true;
        }
        if (result > 1) {
            const std::string& abort = aborts_[static_cast<std::size_t>(result) - 2];
            port_.fail("\"" + visible(abort) + "\" came", chatAbort + result - 2);
        }
        if (port_.gone())
            port_.fail("the device has gone away", chatError);
        // The buffer was full: what came is not what is waited for.
        if (result != full || Clock::now() >= until)
            break;
    }
    log(" -- time over");
    return false;
}

int32_t Chat::awaitOnce(const std::vector<std::string>& texts, int32_t seconds) {
    std::vector<const char*> stimuli, responses(texts.size(), "");
    stimuli.reserve(texts.size());
    for (const std::string& text : texts)
        stimuli.push_back(text.c_str());
    // The call leaves the buffer of the one before as it is.
    ComStimulus(port_.number(), "", "", mostBytes, 0);
    const int32_t result = ComStimulusArray(port_.number(), stimuli.data(), responses.data(),
                                            static_cast<int32_t>(stimuli.size()), mostBytes, seconds);
    std::string came(static_cast<std::size_t>(std::max(ComGetBufLen(port_.number()), 0)), '\0');
    if (!came.empty())
        ComGetteststring(port_.number(), came.data(), static_cast<int32_t>(came.size()));
    consider(came);
    if (result == stopped || interruption::asked())
        throw Failure("interrupted", chatError);
    return result;
}

void Chat::consider(const std::string& came) {
    if (echo_)
        writeAll(STDERR_FILENO, came, "standard error");
    std::string line;
    for (const char byte : came) {
        line += byte;
        if (byte == '\n') {
            log("  " + visible(line));
            line.clear();
        }
    }
    if (!line.empty())
        log("  " + visible(line));
    report(came);
}

/// A report is its string and all behind it up to a control character.
void Chat::report(const std::string& came) {
    for (const char byte : came) {
        const bool control = static_cast<unsigned char>(byte) < ' ';
        if (gathering_ && control) {
            const std::string text = *gathering_ + "\n";
            if (reports_.is_open())
                reports_ << text << std::flush;
            else
                writeAll(STDERR_FILENO, printable(text), "standard error");
            gathering_.reset();
        }
        if (gathering_) {
            *gathering_ += byte;
            continue;
        }
        last_ += byte;
        const auto ends = [this](const std::string& text) {
            return last_.size() >= text.size() &&
                   last_.compare(last_.size() - text.size(), text.size(), text) == 0;
        };
        const auto found = std::find_if(reportStrings_.begin(), reportStrings_.end(), ends);
        if (found != reportStrings_.end()) {
            gathering_ = *found;
            last_.clear();
        } else if (last_.size() > 2 * longestString) {
            last_.erase(0, longestString);
        }
    }
}

void Chat::send(const std::string& word) {
    const Reply reply = replySteps(word, texts_);
    std::string shown;
    for (const SendStep& each : reply.steps)
        shown += each.kind == SendStep::bytes         ? visible(each.text)
                 : each.kind == SendStep::breakSignal ? "<break>"
                 : each.kind == SendStep::second      ? "\\d"
                                                      : "\\p";
    log("send (" + (reply.secret ? "??????" : shown) + ")");
    for (const SendStep& each : reply.steps)
        step(each);
}

void Chat::step(const SendStep& step) const {
    const int32_t port = port_.number();
    const auto size = static_cast<int32_t>(step.text.size());
    if (step.kind == SendStep::breakSignal)
        ComBreak(port);
    else if (step.kind != SendStep::bytes)
        pauseFor(step.kind == SendStep::second ? 1000 : 100);
    else if (ComHostWrite(port, step.text.data(), size, timeout_ * 1000) != size)
        port_.fail(port_.gone() ? "the device has gone away" : "the device takes nothing", chatError);
    if (interruption::asked())
        throw Failure("interrupted", chatError);
}

void Chat::log(const std::string& text) const {
    if (options_.verbose)
        complain(text);
}

std::vector<std::string> wordsOf(const ChatOptions& options) {
    if (options.file.empty() == options.script.empty())
        throw Failure("give a script, or a file that holds one (--file)", chatUsage);
    if (options.file.empty())
        return options.script;
    try {
        return scriptWords(fileText(options.file));
    } catch (const Failure& failure) {
        throw Failure(failure.what(), chatUsage);
    }
}

int talk(const ChatOptions& options, const std::vector<std::string>& words) {
    std::optional<Port> port;
    try {
        port.emplace(options.line);
    } catch (const Failure& failure) {
        throw Failure(failure.what(), chatError);
    }
    Chat chat(*port, options);
    try {
        chat.run(words);
    } catch (const Failure&) {
        chat.endReport();
        throw;
    }
    chat.endReport();
    ComHostDrain(port->number(), options.timeout * 1000);
    return chatDone;
}

/// Every failure ends with a code that scripts know, a signal included.
int runChat(const ChatOptions& options) {
    try {
        const std::vector<std::string> words = wordsOf(options);
        if (!options.report.empty())
            requireWritable(options.report);
        return talk(options, words);
    } catch (const Failure& failure) {
        complain(failure.what());
        interruption::forget();
        return failure.code;
    }
}

} // namespace

Command addChat(CLI::App& app) {
    static ChatOptions options;
    CLI::App* chat = app.add_subcommand("chat", "Expect and send, as scripts for chat(8) say it");
    addDevice(*chat, options.line);
    chat->add_option("script", options.script,
                     "What is expected and what is sent, in turn. Behind -- it may begin with a minus sign")
        ->type_name("WORDS");
    chat->add_option("-f,--file", options.file, "Read the script from this file")
        ->check(name())
        ->type_name("FILE");
    chat->add_option("-t,--timeout", options.timeout, "Seconds for each expected string")
        ->check(wholeNumber(1, 1000000))
        ->type_name("S")
        ->capture_default_str();
    chat->add_flag("-v,-V,--verbose", options.verbose, "Show the talk on standard error");
    chat->add_flag("-e,--echo", options.echo, "Show what comes on standard error");
    chat->add_option("-r,--report", options.report, "Append reports to this file, not to standard error")
        ->check(name())
        ->type_name("FILE");
    chat->add_option("-T,--phone", options.texts.phone, "What \\T stands for")->type_name("TEXT");
    chat->add_option("-U,--phone2", options.texts.phone2, "What \\U stands for")->type_name("TEXT");
    chat->add_flag("-E,--environment", options.texts.environment,
                   "$NAME stands for a variable of the environment");
    chat->add_flag("-s,-S", options.standardError,
                   "Taken for the sake of scripts: all goes to standard error anyway");
    addLine(*chat, options.line, false);
    chat->footer(
        "Words: ABORT, CLR_ABORT, REPORT, CLR_REPORT, TIMEOUT, ECHO, SAY and HANGUP with a value each;\n"
        "EOT, BREAK and @FILE are sent. Escapes: \\b \\c \\d \\K \\n \\N \\p \\q \\r \\s \\t \\T \\U \\\\ "
        "\\ddd ^C.\n\n"
        "Examples:\n"
        "  brisolt chat /dev/ttyUSB0 '' AT OK\n"
        "  brisolt chat /dev/ttyS0 ABORT BUSY '' ATZ OK ATDT5551212 CONNECT ''\n"
        "  brisolt chat /dev/ttyS0 -v -f /etc/chatscripts/provider\n\n"
        "Exit codes, those of chat(8): 0 done, 1 usage, 2 error or interrupted, 3 time over, 4 the first\n"
        "ABORT string came, 5 the second, and so on.");
    return {chat, [] { return runChat(options); }, chatUsage};
}
