#include "carrier_text.h"

#include <utility>

namespace brisolt::service {

namespace {

using namespace std::chrono_literals;

constexpr std::string_view words = "\r\nNO CARRIER\r\n";
/// A modem says them at once; a line as slow as 2400 bit/s needs 60 ms for all of them.
constexpr auto sayingTime = 30ms;
constexpr auto silence = 300ms;

} // namespace

void CarrierText::take(std::string_view bytes, Clock::time_point now, std::string& data) {
    for (const char byte : bytes) {
        if (seen_ == words.size() || byte != words[seen_]) {
            data += std::exchange(kept_, {});
            seen_ = 0;
        }
        if (byte == words[seen_]) {
            kept_ += byte;
            ++seen_;
        } else {
            data += byte;
        }
    }
    due_.reset();
    if (seen_ == words.size())
        due_ = now + silence;
    else if (!kept_.empty())
        due_ = now + sayingTime;
}

bool CarrierText::settle(Clock::time_point now, std::string& data) {
    if (!due_ || now < *due_)
        return false;
    due_.reset();
    if (seen_ == words.size())
        return true;
    data += std::exchange(kept_, {}); // but what has been seen still counts
    return false;
}

} // namespace brisolt::service
