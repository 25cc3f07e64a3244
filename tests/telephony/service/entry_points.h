// A telephony service whose every entry point is a function of the test's. The module only forwards to it.
#pragma once

#include <functional>

#include "telephony/service_records.h"

namespace brisolt::test {

struct EntryPoints {
    std::function<service::LineInitialize> initialize;
    std::function<service::LineShutdown> shutdown;
    std::function<service::LineNegotiateVersion> negotiateVersion;
    std::function<service::LineGetDeviceCapabilities> getDeviceCapabilities;
    std::function<service::LineOpen> open;
    std::function<service::LineClose> close;
    std::function<service::LineSetStatusMessages> setStatusMessages;
    std::function<service::LineGetAddressStatus> getAddressStatus;
    std::function<service::LineGetAddressCapabilities> getAddressCapabilities;
    std::function<service::LineGetId> getId;
    std::function<service::LineMakeCall> makeCall;
    std::function<service::LineAnswer> answer;
    std::function<service::LineDrop> drop;
    std::function<service::LineDeallocateCall> deallocateCall;
    std::function<service::LineGetCallStatus> getCallStatus;
    std::function<service::LineSetDeviceConfiguration> setDeviceConfiguration;
};

} // namespace brisolt::test
