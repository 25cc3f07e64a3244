// The entry points of the telephony service, found by name when they are first called.
#pragma once

#include <atomic>
#include <cstdint>

#include "telephony/service_records.h"

namespace brisolt::service {

/// The address of an entry point, null when it cannot be had. The service is loaded by the first call. One that
/// is not there is missed for the life of the process; where only the host was short of something the next call
/// tries again.
void* entryPoint(const char* name) noexcept;

/// One entry point. Called like the function itself; one that cannot be had answers for it.
template <class Function> class Entry {
public:
    constexpr explicit Entry(const char* name) noexcept : name_(name) {}

    template <class... Arguments> int32_t operator()(Arguments... arguments) {
        Function* function = function_;
        if (function == nullptr)
            function_ = function = reinterpret_cast<Function*>(entryPoint(name_));
        return function == nullptr ? result::unavailable : function(arguments...);
    }

private:
    const char* name_;
    std::atomic<Function*> function_{nullptr};
};

inline constinit Entry<LineInitialize> lineInitialize{"lineInitialize"};
inline constinit Entry<LineShutdown> lineShutdown{"lineShutdown"};
inline constinit Entry<LineNegotiateVersion> lineNegotiateVersion{"lineNegotiateAPIVersion"};
inline constinit Entry<LineGetDeviceCapabilities> lineGetDeviceCapabilities{"lineGetDevCapsA"};
inline constinit Entry<LineOpen> lineOpen{"lineOpenA"};
inline constinit Entry<LineClose> lineClose{"lineClose"};
inline constinit Entry<LineSetStatusMessages> lineSetStatusMessages{"lineSetStatusMessages"};
inline constinit Entry<LineGetAddressStatus> lineGetAddressStatus{"lineGetAddressStatusA"};
inline constinit Entry<LineGetAddressCapabilities> lineGetAddressCapabilities{"lineGetAddressCapsA"};
inline constinit Entry<LineGetId> lineGetId{"lineGetIDA"};
inline constinit Entry<LineMakeCall> lineMakeCall{"lineMakeCallA"};
inline constinit Entry<LineAnswer> lineAnswer{"lineAnswer"};
inline constinit Entry<LineDrop> lineDrop{"lineDrop"};
inline constinit Entry<LineDeallocateCall> lineDeallocateCall{"lineDeallocateCall"};
inline constinit Entry<LineGetCallStatus> lineGetCallStatus{"lineGetCallStatus"};
inline constinit Entry<LineSetDeviceConfiguration> lineSetDeviceConfiguration{"lineSetDevConfigA"};

} // namespace brisolt::service
