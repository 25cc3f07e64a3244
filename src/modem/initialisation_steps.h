// The steps that bring a modem into a known configuration, as one table: what each sends, how long it waits
// for the modem's OK, what it writes to the log and where the sequence goes from there.
#pragma once

#include <array>
#include <cstdint>

#include "modem/modem_commands.h"
#include "port/record.h"

namespace brisolt::modem {

/// The state of a sequence is its step's number and what it does in it.
enum Phase : int32_t {
    sending = 0,
    awaitingAnswer = 1,
    retrying = 2,
    pausing = 3, ///< before the command is sent again
};
inline constexpr int32_t firstStep = 100; ///< also where a finished sequence stands

/// What a step does for a value of its flags.
struct Choice {
    int32_t flags;          ///< or anyOther
    const char* log;        ///< tells the string that is sent
    const Command* command; ///< null: the step is skipped
};
inline constexpr int32_t anyOther = -1; ///< the last choice of every step

/// How an answer is looked for, and what is said of it.
struct Answer {
    int32_t length;  ///< characters looked at, at most
    int32_t seconds; ///< for the OK to come
    const char* got;
    const char* missed; ///< tells what came instead
};

struct Step {
    int32_t number;
    Shared<int32_t> ModemInit::*flags;
    int32_t flagMask;
    std::array<Choice, 3> choices;
    uint32_t answerTime; ///< milliseconds for the first two characters of an answer
    Answer inTime;       ///< they have come
    Answer late;         ///< they have not
    int32_t retries;
    uint32_t retryPause;  ///< milliseconds
    const char* tryAgain; ///< null: not said
    const char* giveUp;
    int32_t failure; ///< the sequence ends with it; 0: it goes on
    int32_t next;    ///< firstStep: the sequence is finished
};

/// The step that a state belongs to; null for a state that none has.
const Step* stepOf(int32_t state) noexcept;

} // namespace brisolt::modem
