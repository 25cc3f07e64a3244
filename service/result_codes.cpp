#include "result_codes.h"

#include <algorithm>
#include <iterator>

#include <strings.h>

#include "telephony/service_records.h"

namespace brisolt::service {

namespace {

// NO CARRIER is what most modems say when nobody has answered them, or nobody with a modem.
constexpr Code codes[] = {
    {"OK", false, Result::ok, disconnectedBy::unknown},
    {"ERROR", false, Result::error, disconnectedBy::badAddress},
    {"CONNECT", true, Result::connected, 0},
    {"RING", false, Result::ring, 0},
    {"+CRING:", true, Result::ring, 0},
    {"RINGING", false, Result::ringBack, 0},
    {"RINGBACK", false, Result::ringBack, 0},
    {"RING BACK", false, Result::ringBack, 0},
    {"RRING", false, Result::ringBack, 0},
    {"CARRIER", true, Result::proceeding, 0},
    {"+MCR:", true, Result::proceeding, 0},
    {"NO CARRIER", false, Result::failed, disconnectedBy::noAnswer},
    {"NO ANSWER", false, Result::failed, disconnectedBy::noAnswer},
    {"NO DIALTONE", false, Result::failed, disconnectedBy::noDialTone},
    {"NO DIAL TONE", false, Result::failed, disconnectedBy::noDialTone},
    {"BUSY", false, Result::failed, disconnectedBy::busy},
    {"LINE BUSY", false, Result::failed, disconnectedBy::busy},
    {"REORDER", false, Result::failed, disconnectedBy::congestion},
    {"DELAYED", true, Result::failed, disconnectedBy::congestion},
    {"BLACKLISTED", true, Result::failed, disconnectedBy::reject},
    {"VOICE", false, Result::failed, disconnectedBy::incompatible},
    {"FAX", false, Result::failed, disconnectedBy::incompatible},
    {"LINE IN USE", false, Result::failed, disconnectedBy::pickup},
    {"NO LINE", false, Result::failed, disconnectedBy::noDialTone},
};

constexpr Code information{"", true, Result::information, 0};

} // namespace

const Code& codeOf(std::string_view line) {
    line = line.substr(0, line.find_last_not_of(' ') + 1);
    const auto* const found = std::find_if(std::begin(codes), std::end(codes), [line](const Code& code) {
        const std::size_t size = code.text.size();
        const bool fits = code.more ? line.size() >= size : line.size() == size;
        return fits && strncasecmp(line.data(), code.text.data(), size) == 0;
    });
    return found == std::end(codes) ? information : *found;
}

} // namespace brisolt::service
