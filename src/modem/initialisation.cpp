#include "modem/initialisation.h"

#include <algorithm>
#include <cstring>

#include "diag/debug_logs.h"
#include "modem/initialisation_steps.h"
#include "modem/initialisation_strings.h"
#include "platform/clock.h"
#include "port/waits.h"
#include "script/stimulus.h"
#include "stream/reading.h"
#include "stream/stream_settings.h"
#include "stream/writing.h"

namespace brisolt::modem {

namespace {

constexpr int32_t charactersOfAnAnswer = 2;
constexpr int32_t escapeKey = 27;
constexpr uint32_t stepPace = 10; ///< milliseconds: a modem that has just answered takes no command at once

ModemInit& contextOf(Port& port) noexcept {
    return port.workArea->modemInit;
}

void log(Port& port, const char* text) {
    logs::write(port, logs::Log::protocol, logs::Stamp::stamped, text);
}

/// Milliseconds until the deadline, below 0 when it has passed.
int32_t timeLeft(const ModemInit& context) noexcept {
    return static_cast<int32_t>(context.deadline - clock::ticks());
}

/// Goes on to a state in which something is waited for.
int32_t wait(ModemInit& context, int32_t state, uint32_t milliseconds) noexcept {
    context.deadline = clock::ticks() + milliseconds;
    context.state = state;
    return inProgress;
}

int32_t goOn(ModemInit& context, const Step& step) noexcept {
    context.state = step.next;
    return step.next == firstStep ? finished : inProgress;
}

const Choice& choose(const ModemInit& context, const Step& step) noexcept {
    int32_t flags = context.*step.flags & step.flagMask;
    const Choice* choice = step.choices.data();
    while (choice->flags != flags && choice->flags != anyOther)
        ++choice;
    return *choice;
}

int32_t sendStep(Port& port, const Step& step) {
    const Choice& choice = choose(contextOf(port), step);
    if (choice.command == nullptr) {
        log(port, choice.log);
        return goOn(contextOf(port), step);
    }
    CommandText string = textOf(port, *choice.command);
    logs::entry(port, logs::Log::protocol, choice.log, string.text);
    flushReceived(port, 0);
    writeString(port, string.text);
    return wait(contextOf(port), step.number + awaitingAnswer, step.answerTime);
}

/// The answer was no OK: another try while there are tries left.
int32_t missed(Port& port, const Step& step) {
    ModemInit& context = contextOf(port);
    if (context.retryCount < step.retries) {
        context.retryCount = context.retryCount + 1;
        if (step.tryAgain != nullptr)
            log(port, step.tryAgain);
        context.state = step.number + retrying;
        return inProgress;
    }
    log(port, step.giveUp);
    if (step.failure != 0)
        return step.failure;
    context.retryCount = 0;
    return goOn(context, step);
}

int32_t examine(Port& port, const Step& step, const Answer& answer) {
    int32_t result = stimulusWithin(port, "OK", "", answer.length, answer.seconds);
    if (port.ending())
        return -1;
    if (result == 1) {
        contextOf(port).retryCount = 0;
        log(port, answer.got);
        return goOn(contextOf(port), step);
    }
    char received[100] = {};
    copyMatched(port, received, sizeof received - 1);
    logs::entry(port, logs::Log::protocol, answer.missed, received);
    return missed(port, step);
}

int32_t lookForAnswer(Port& port, const Step& step) {
    if (bytesWaiting(port) >= charactersOfAnAnswer)
        return examine(port, step, step.inTime);
    return timeLeft(contextOf(port)) < 0 ? examine(port, step, step.late) : inProgress;
}

int32_t retry(Port& port, const Step& step) {
    writeString(port, "+++"); // should the modem be in a call
    return wait(contextOf(port), step.number + pausing, step.retryPause);
}

/// Sleeps until a step may have something to do. A modem gets its pause between two commands.
void sleepBetweenSteps(Port& port, uint32_t seen) {
    const ModemInit& context = contextOf(port);
    const Step* step = stepOf(context.state);
    int32_t phase = step == nullptr ? sending : context.state - step->number;
    if (phase == sending || phase == retrying)
        return pause(port, stepPace);
    int32_t left = std::max(timeLeft(context), 0) + 1;
    auto until = clock::Deadline::in(static_cast<uint32_t>(left));
    WaitFor what{.bytes = phase == awaitingAnswer, .messages = true, .quit = false};
    sleepOnPort(port, seen, what, nextLook(port, what, until));
}

} // namespace

bool acceptable(const InitRequest& request) noexcept {
    auto fits = [](const char* path) { return path != nullptr && std::strlen(path) < nameSize; };
    bool debugFits = request.debugFile == nullptr || fits(request.debugFile);
    return fits(request.databaseFile) && request.databaseFile[0] != 0 && request.modemName != nullptr &&
           debugFits;
}

int32_t startInit(Port& port, const InitRequest& request) {
    ModemInit& context = contextOf(port);
    context.retryCount = 0;
    context.resetFlags = request.resetFlags;
    context.initFlags = request.initFlags;
    context.compressionFlags = request.compressionFlags;
    context.flowFlags = request.flowFlags;
    context.errorControlFlags = request.errorControlFlags;
    context.autoAnswerFlags = request.autoAnswerFlags;
    context.state = firstStep;
    logs::switchTo(port, logs::Log::protocol, request.debugFile, "MODEM SETTINGS");
    return takeStrings(port, request.databaseFile, request.modemName);
}

namespace {

int32_t step(Port& port) {
    int32_t state = initState(port);
    const Step* at = stepOf(state);
    int32_t result = inProgress;
    switch (at == nullptr ? -1 : state - at->number) {
    case sending: result = sendStep(port, *at); break;
    case awaitingAnswer: result = lookForAnswer(port, *at); break;
    case retrying: result = retry(port, *at); break;
    case pausing:
        if (timeLeft(contextOf(port)) <= 0)
            result = sendStep(port, *at);
        break;
    default: break;
    }
    return port.ending() ? -1 : result;
}

} // namespace

// Else a cancel that was meant for something else would make every answer of the sequence count as missing.
int32_t stepInit(Port& port) {
    clearCancel(port);
    return step(port);
}

int32_t initState(const Port& port) noexcept {
    int32_t state = port.workArea->modemInit.state;
    return state == 0 ? firstStep : state; // a fresh work area is zero
}

// The flag alone would not do: a message handled meanwhile may call what clears it.
int32_t runInit(Port& port, const InitRequest& request) {
    uint32_t cancels = port.cancels;
    if (startInit(port, request) != inProgress)
        return -2;
    clearCancel(port);
    for (;;) {
        uint32_t seen = port.events.count();
        if (port.cancels != cancels || port.ending())
            return -1; // in the search already
        int32_t result = step(port);
        checkEscape(port, escapeKey); // lets messages through; neither the key nor quit ends the sequence
        if (port.cancels != cancels || port.ending())
            return -1;
        if (result != inProgress)
            return result;
        sleepBetweenSteps(port, seen);
    }
}

} // namespace brisolt::modem
