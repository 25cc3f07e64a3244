#include "device/remembered_settings.h"

namespace brisolt::drivers {

bool RememberedSettings::setUp(const Opened& opened) const noexcept {
    const ComHostDriver& driver = opened.driver;
    if (queuesSet && driver.setQueues != nullptr)
        driver.setQueues(opened.self, inQueue, outQueue);
    if (timeoutsSet && driver.setTimeouts != nullptr)
        driver.setTimeouts(opened.self, &timeouts);
    const bool runs =
        !lineSet || driver.setLineState == nullptr || driver.setLineState(opened.self, &line) > 0;
    if (driver.line == nullptr)
        return runs;
    if (dtr.has_value())
        driver.line(opened.self, *dtr ? COM_HOST_LINE_SET_DTR : COM_HOST_LINE_CLEAR_DTR);
    if (rts.has_value())
        driver.line(opened.self, *rts ? COM_HOST_LINE_SET_RTS : COM_HOST_LINE_CLEAR_RTS);
    return runs;
}

DeviceOptions RememberedSettings::startOf(const DeviceOptions& options) const noexcept {
    DeviceOptions now = options;
    if (dtr.has_value())
        now.dtr = *dtr ? LineStart::raise : LineStart::lower;
    if (rts.has_value())
        now.rts = *rts ? LineStart::raise : LineStart::lower;
    return now;
}

} // namespace brisolt::drivers
