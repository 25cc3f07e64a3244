// Open ports on which nothing happens cost nothing.
#include <memory>
#include <vector>

#include "guest.h"

using namespace brisolt::test;

namespace {

TEST(Idle, PortsOnEveryDriverCauseNoWakeUps) {
    std::vector<std::unique_ptr<Port>> ports;
    for (const char* path : {uart, otherUart, breakUart, usbModem, gadget, adapter}) {
        const auto number = static_cast<int32_t>(ports.size()) + 1;
        ports.push_back(std::make_unique<Port>(path + std::string("?keep=yes"), number));
        EXPECT_EQ(ComHostSetEventMessage(number,
                                         COM_HOST_EVENT_CTS | COM_HOST_EVENT_CARRIER | COM_HOST_EVENT_GONE, 0,
                                         ComHostThreadId()),
                  1);
    }
    EXPECT_EQ(ComHostSetDeviceMessage(0, ComHostThreadId()), 1);
    for (const int32_t mode : {2, 0, 4}) {
        for (const auto& port : ports)
            ComSetFlow(*port, mode);
        std::this_thread::sleep_for(soon * 2); // what the settings stirred up has settled
        const uint64_t before = usage().wakeUps;
        std::this_thread::sleep_for(std::chrono::seconds(2));
        EXPECT_EQ(usage().wakeUps, before) << "flow mode " << mode;
    }
}

} // namespace
