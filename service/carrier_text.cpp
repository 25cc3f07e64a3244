#include "carrier_text.h"

#include <cctype>
#include <utility>

namespace brisolt::service {

namespace {

using namespace std::chrono_literals;

constexpr std::string_view words = "\r\nNO CARRIER\r\n";
constexpr std::size_t behindText = words.size() - 2; ///< where blanks may stand
/// A modem says them at once; a line as slow as 2400 bit/s needs 60 ms for all of them.
constexpr auto sayingTime = 30ms;
constexpr auto silence = 300ms;

} // namespace

bool CarrierText::isBlank(char byte) const {
    return seen_ == behindText && byte == ' ';
}

bool CarrierText::continues(char byte) const {
    const bool next = seen_ < words.size() && std::toupper(static_cast<unsigned char>(byte)) == words[seen_];
    return next || isBlank(byte);
}

void CarrierText::giveUp(std::string& data) {
    data.append(kept_.data(), std::exchange(keptSize_, 0));
}

void CarrierText::take(std::string_view bytes, Clock::time_point now, std::string& data) {
    for (const char byte : bytes) {
        if (!continues(byte) || keptSize_ == mostKept) {
            giveUp(data);
            seen_ = 0;
        }
        if (!continues(byte)) {
            data += byte;
            continue;
        }
        kept_[keptSize_++] = byte;
        seen_ += isBlank(byte) ? 0 : 1;
    }
    due_.reset();
    if (seen_ == words.size())
        due_ = now + silence;
    else if (keptSize_ > 0)
        due_ = now + sayingTime;
}

bool CarrierText::settle(Clock::time_point now, std::string& data) {
    if (!due_ || now < *due_)
        return false;
    due_.reset();
    if (seen_ == words.size())
        return true;
    giveUp(data); // but what has been seen still counts
    return false;
}

} // namespace brisolt::service
