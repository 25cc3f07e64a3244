// Message boxes: the program may say who shows them.
#pragma once

namespace brisolt::messageBox {

/// Shows the text through the program's function, else as one line on standard error.
void show(const char* text, const char* caption) noexcept;
/// Null: standard error again.
void setFunction(void (*function)(const char* text, const char* caption)) noexcept;

} // namespace brisolt::messageBox
