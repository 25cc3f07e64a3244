#include "telephony/service_calls.h"

#include <algorithm>

#include "port/port_table.h"
#include "port/waits.h"

namespace brisolt::telephony {

namespace {

namespace result = service::result;

enum class Then { repeat, giveUp };

struct Verdict {
    int32_t code;
    Then then;
    const char* text; ///< null: nothing a person could do about it
};

constexpr const char* corrupt =
    "Configuration information relating to Telephony services appears to be corrupt";
constexpr Verdict verdicts[] = {
    {result::callAgain1, Then::repeat, corrupt},
    {result::callAgain2, Then::repeat, corrupt},
    {result::callAgain3, Then::repeat, corrupt},
    {result::componentMissing, Then::giveUp,
     "One of the components of the Telephony device driver is missing. Use the Control Panel to set up the "
     "driver properly"},
    {result::outOfMemory, Then::giveUp, "Out of Memory error, canceling action"},
    {result::operationFailed, Then::giveUp, "TAPI Operation Failed for unknown reasons."},
    {result::resourceUnavailable, Then::giveUp,
     "A Telephony resource is temporarily unavaiable. This could mean a short wait is necessary or that a "
     "non-TAPI application is using the line."},
    {result::reinitialising, Then::giveUp, nullptr},
    {result::driverTwice, Then::giveUp,
     " You have two copies of the same Telephony driver installed. Use the Control Panel to remove one of "
     "the "
     "copies"},
};

constexpr int32_t atOnce = 5;
constexpr int32_t mostRepetitions = 100;
constexpr uint32_t laterPause = 20; ///< milliseconds

} // namespace

bool accepted(int32_t code) noexcept {
    if (code == result::success)
        return true;
    const auto* verdict = std::ranges::find(verdicts, code, &Verdict::code);
    if (verdict == std::end(verdicts))
        return false; // a request that will be answered later counts here, too
    if (verdict->text != nullptr)
        log("%s", verdict->text);
    return verdict->then == Then::repeat;
}

bool Repetitions::another() noexcept try {
    if (++made_ > mostRepetitions)
        return false;
    if (made_ > atOnce) {
        HeldPort context(contextPort);
        if (!context)
            return false;
        pause(*context, laterPause);
    }
    return true;
} catch (...) { // no memory to wait with
    return false;
}

} // namespace brisolt::telephony
