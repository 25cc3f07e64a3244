#include "modem/initialisation_steps.h"

#include <algorithm>

namespace brisolt::modem {

namespace {

// The wording of the late texts differs from that of the others here and there. People search their logs for
// these lines, so they stay as they are: "CONPRESSION", and the "5 tries" of a command that is sent seven
// times.
constexpr Step table[] = {
    {
        .number = 100,
        .flags = &ModemInit::resetFlags,
        .flagMask = 1,
        .choices = {{
            {0, " Skipping Reset Per User Request", nullptr},
            {anyOther, " Sending Reset to Modem - String:%s", &command<&PortRecord::resetStr>},
        }},
        .answerTime = 3000,
        .inTime = {50, 3, "Got OK from Reset starting INIT", "Did not get OK from RESET - Got:%s"},
        .late = {50, 3, "Got OK from Reset starting INIT", "Did not get OK from RESET - Got:%s"},
        .retries = 6,
        .retryPause = 2000,
        .tryAgain = nullptr,
        .giveUp = "Failed to get response from RESET command for 5 tries - check modem",
        .failure = -5,
        .next = 200,
    },
    {
        .number = 200,
        .flags = &ModemInit::initFlags,
        .flagMask = 1,
        .choices = {{
            {0, " Skipping INIT Per User Request", nullptr},
            {anyOther, " Sending Init to Modem - String:%s", &command<&PortRecord::initStr>},
        }},
        .answerTime = 1000,
        .inTime = {100, 3, "Got OK from INIT starting Flow Control", "Did not get OK from INIT - Got:%s"},
        .late = {150, 3, "Got OK from INIT starting FLOW CONTROL", "Did not get OK from INIT - Got:%s"},
        .retries = 6,
        .retryPause = 2000,
        .tryAgain = nullptr,
        .giveUp = "Failed to get response from INIT command for 5 tries - check modem",
        .failure = -6,
        .next = 400, // flow control comes before compression
    },
    {
        .number = 400,
        .flags = &ModemInit::flowFlags,
        .flagMask = 3,
        .choices = {{
            {1, " Sending HDWR Flow to Modem - String:%s", &command<&PortRecord::flowControlHdwrStr>},
            {2, " Sending SOFT Flow to Modem - String:%s", &command<&PortRecord::flowControlSoftStr>},
            {anyOther, " Sending No Flow to Modem - String:%s", &command<&PortRecord::flowControlOffStr>},
        }},
        .answerTime = 1000,
        .inTime = {150, 1, "Got OK from Flow starting Compression Control",
                   "Did not get OK from Flow - Got:%s"},
        .late = {150, 1, "Got OK from FLOW starting CONPRESSION CONTROL",
                 "Did not get OK from Flow Setting - Got:%s"},
        .retries = 2,
        .retryPause = 1000,
        .tryAgain = "Try flow setting again",
        .giveUp = "Proceeding with COMPRESSION CONTROL",
        .failure = 0,
        .next = 300,
    },
    {
        .number = 300,
        .flags = &ModemInit::compressionFlags,
        .flagMask = 1,
        .choices = {{
            {1, " Sending Compression ON to Modem - String:%s", &command<&PortRecord::compressionOnStr>},
            {anyOther, " Sending Compression OFF to Modem - String:%s",
             &command<&PortRecord::compressionOffStr>},
        }},
        .answerTime = 1000,
        .inTime = {150, 1, "Got OK from COMPRESSION starting ERROR Control",
                   "Did not get OK from COMPRESSION - Got:%s"},
        .late = {150, 1, "Got OK from COMPRESSION starting ERROR CONTROL",
                 "Did not get OK from COMPRESSION - Got:%s"},
        .retries = 2,
        .retryPause = 1000,
        .tryAgain = "Try compression setting again",
        .giveUp = "Proceeding with ERROR CONTROL",
        .failure = 0,
        .next = 500,
    },
    {
        .number = 500,
        .flags = &ModemInit::errorControlFlags,
        .flagMask = 3,
        .choices = {{
            {1, " Sending Error Control ON to Modem - String:%s", &command<&PortRecord::errorControlOnStr>},
            {2, " Sending Error Control FORCED to Modem - String:%s",
             &command<&PortRecord::errorControlForcedStr>},
            {anyOther, " Sending Error Control OFF to Modem - String:%s",
             &command<&PortRecord::errorControlOffStr>},
        }},
        .answerTime = 1000,
        .inTime = {150, 1, "Got OK from ERROR CONTROL", "Did not get OK from ERROR CONTROL - Got:%s"},
        .late = {150, 1, "Got OK from ERROR CONTROL", "Did not get OK from ERROR CONTROL - Got:%s"},
        .retries = 2,
        .retryPause = 1000,
        .tryAgain = "Try error setting again",
        .giveUp = "Proceeding with AutoAnswer",
        .failure = 0,
        .next = 600,
    },
    {
        .number = 600,
        .flags = &ModemInit::autoAnswerFlags,
        .flagMask = 1,
        .choices = {{
            {1, " Sending AutoAnswer ON to Modem - String:%s", &command<&PortRecord::setAAStr>},
            {anyOther, " Sending AutoAnswer OFF to Modem - String:%s", &command<&PortRecord::unsetAAStr>},
        }},
        .answerTime = 1000,
        .inTime = {150, 1, "Got OK from AA Setting - We Are Done", "Did not get OK from AA Setting - Got:%s"},
        .late = {150, 1, "Got OK from AA - We Are Done", "Did not get OK from aa - Got:%s"},
        .retries = 2,
        .retryPause = 1000,
        .tryAgain = "Try Auto-Answer setting again",
        .giveUp = "We Are Done",
        .failure = 0,
        .next = firstStep,
    },
};

} // namespace

const Step* stepOf(int32_t state) noexcept {
    const auto* step = std::find_if(std::begin(table), std::end(table), [state](const Step& candidate) {
        return state >= candidate.number && state <= candidate.number + pausing;
    });
    return step == std::end(table) ? nullptr : step;
}

} // namespace brisolt::modem
