// A modem: its state, what commands do to it, and the bytes that pass through it. It has no thread; whoever
// owns it calls turn() whenever something may have happened.
#pragma once

#include <array>
#include <string>
#include <string_view>
#include <vector>

#include "clock.h"
#include "command_line.h"
#include "dialling.h"
#include "faults.h"
#include "line.h"
#include "options.h"
#include "profile.h"
#include "result_codes.h"
#include "telephone.h"

namespace simulated {

class Modem {
public:
    Modem(Line& line, Telephone& telephone, Exchange& exchange, const Clock& clock, const Options& options);

    /// Does all that can be done now.
    void turn();
    /// Adds what to poll before the next turn; the most real milliseconds to wait, -1: no limit.
    int watch(std::vector<pollfd>& entries);
    Status status() const;
    const std::vector<std::string>& commands() const { return commands_; }

    Faults faults;
    Noise noise;
    std::size_t dropAfterBytes = 0; ///< the line is cut behind so many of a call; 0: it is not
    void setDropAfter(Milliseconds time);
    void dropLine() { telephone_.cut(); }

private:
    // Commands (commands.cpp)
    enum class Outcome { next, done, error, silent }; ///< silent: the answer comes later, or has been given
    struct Action {
        std::string_view name;
        Outcome (Modem::*function)(const Command& command);
    };
    static const Action actions[];
    void takeLine();
    void execute(std::string_view commands);
    Outcome perform(const Command& command);
    void restoreStored(const std::string& line);
    Outcome dialMode(const Command& command);
    Outcome dial(const Command& command);
    Outcome answerNow(const Command& command);
    Outcome hook(const Command& command);
    Outcome goOnline(const Command& command);
    Outcome information(const Command& command);
    Outcome reset(const Command& command);
    void restore(int number);
    Outcome registers(const Command& command);
    Outcome namedRegister(const Command& command);
    Outcome extended(const Command& command);
    Outcome factory(const Command& command);
    Outcome view(const Command& command);
    Outcome store(const Command& command);
    Outcome storeNumber(const Command& command);

    // Calls (modem.cpp)
    void lookAtDtr();
    void dtrDropped();
    void lookAtCalls();
    void waitForAnswer();
    void ring();
    void stopRinging();
    void digitsDialled();
    void answerCall();
    void train();
    void connected();
    void fail(Result result);
    void hangUp();
    void showCarrier();
    bool inCall() const { return phase_ == Phase::online || phase_ == Phase::escaped; }

    // Bytes (modem_bytes.cpp)
    bool takesBytes() const;
    bool readProgram();
    void takeByte(char byte);
    void takeCommandByte(char byte);
    void takeDataByte(char byte);
    void watchForEscape(char byte);
    void escape();
    void pump();
    void flush();
    void sayFlow();
    void say(Result result, int rate = 0);
    void inform(std::string_view text);
    void send(std::string bytes);

    Writing writing() const;
    const Level& level() const { return levelOf(profile_["X"]); }
    Milliseconds carrierPatience() const { return std::chrono::seconds(profile_.registers[carrierWait]); }
    void log(const std::string& text) const;

    Line& line_;
    Telephone& telephone_;
    Exchange& exchange_;
    const Clock& clock_;
    const Options options_;

    Milliseconds now_{0};
    Phase phase_ = Phase::idle;
    bool carrier_ = false; ///< as it shows
    Profile profile_;
    std::array<Profile, 2> stored_;      ///< of &W and Z
    std::array<std::string, 4> numbers_; ///< of &Z
    int namedRegister_ = 0;              ///< the one of the last S command
    CommandLine commandLine_;
    std::vector<std::string> commands_; ///< all lines so far
    Timer thinking_;                    ///< until a slow answer

    // A call that is being made
    bool tone_ = true; ///< T, not P
    DialPlan plan_;
    bool toneMissing_ = false;
    std::string collected_; ///< digits dialled so far that make no number yet
    std::string lastNumber_;
    std::string rest_;         ///< of the command line, to be done when the digits are dialled
    Timer patience_;           ///< until the next step, or until a call has failed
    Milliseconds keysFrom_{0}; ///< keys before that belong to the dial command

    // A caller
    Timer ringing_;
    bool ringOn_ = false;

    // The call
    bool dtr_ = false;
    Timer dtrDown_;
    Timer carrierLost_;
    Timer drop_;
    Milliseconds dropAfter_ = never; ///< of the next call
    std::size_t passed_ = 0;         ///< bytes of the call
    int escapes_ = 0;                ///< escape characters in a row
    Milliseconds lastData_{0};
    Timer escape_; ///< silence behind them
    bool heldByXoff_ = false;
    bool saidXoff_ = false;

    std::string input_;   ///< from the program, not looked at yet
    bool unread_ = false; ///< more of it could be taken at once
    std::string toProgram_;
    std::string toTelephone_;
};

} // namespace simulated
