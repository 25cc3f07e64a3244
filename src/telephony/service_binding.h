// The entry points of the telephony service, found by name when they are first called.
#pragma once

#include <cstdint>
#include <mutex>

#include "platform/module.h"
#include "telephony/service_records.h"

namespace brisolt::service {

/// The loaded service; null, for the life of the process, when the first attempt to load it failed.
void* loadedModule() noexcept;

/// One entry point. Called like the function itself; one that cannot be had answers for it.
template <class Function> class Entry {
public:
    constexpr explicit Entry(const char* name) noexcept : name_(name) {}

    template <class... Arguments> int32_t operator()(Arguments... arguments) {
        std::call_once(looked_, [this] {
            function_ = reinterpret_cast<Function*>(module::find(loadedModule(), name_));
        });
        return function_ == nullptr ? result::unavailable : function_(arguments...);
    }

private:
    const char* name_;
    std::once_flag looked_;
    Function* function_ = nullptr;
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
