#include "telephony/handling.h"

namespace brisolt::telephony {

namespace {

thread_local Handling* innermost = nullptr;

void count(TelephonyDevice& device, int32_t step) noexcept {
    std::atomic_ref<int32_t>(device.handling.raw).fetch_add(step);
}

} // namespace

Handling::Handling(TelephonyDevice& device) noexcept : device_(device), outer_(innermost) {
    innermost = this;
    count(device_, 1);
}

Handling::~Handling() {
    count(device_, -1);
    innermost = outer_;
    wakeWaits();
}

bool Handling::onThisThread() noexcept {
    return innermost != nullptr;
}

bool Handling::elsewhere(const TelephonyDevice& device) noexcept {
    int32_t here = 0;
    for (const Handling* handling = innermost; handling != nullptr; handling = handling->outer_)
        here += &handling->device_ == &device ? 1 : 0;
    return device.handling > here;
}

} // namespace brisolt::telephony
