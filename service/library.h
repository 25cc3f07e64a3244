// The library's functions that the service works with.
#pragma once

#include "telephony/service_records.h"

namespace brisolt::service {

/// Those that the library handed over when it loaded the service, else those of the library beside it. They stay
/// the same once messages have a window.
const LibraryFunctions& library() noexcept;

} // namespace brisolt::service
