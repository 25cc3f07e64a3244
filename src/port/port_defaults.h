// The settings that every port starts with.
#pragma once

#include "port/record.h"

namespace brisolt {

enum class Opened { own, adopted };

void setDefaults(PortRecord& record, int32_t number, const char* deviceName, Opened opened) noexcept;

/// Copies a text into a field of fixed size: cut, and always terminated.
void setText(char* field, int32_t size, const char* text) noexcept;

} // namespace brisolt
