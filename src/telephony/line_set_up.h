// Opening a device's line for its calls, placed or awaited.
#pragma once

#include "telephony/service_calls.h"
#include "telephony/usable_line.h"

namespace brisolt::telephony {

/// Opens the line into the entry and asks for its messages. The status of its address; empty when it cannot
/// be used: then the line is closed, and the entry has the cause unless the line lacks a bearer mode.
ServiceRecord<service::AddressStatus> setUpLine(const Use& use, Purpose purpose);

} // namespace brisolt::telephony
