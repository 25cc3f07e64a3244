// Modules that are loaded while the program runs.
#pragma once

namespace brisolt::module {

/// ComHostMapModule: a mapped file stands alone, the default is not tried after it.
bool map(const char* name, const char* path) noexcept;

/// Loads "NAME.DLL": the file it is mapped to, else libname.so in lower case as the host finds it, else from
/// the folder brisolt5 beside the library, or from the library's own. Null when it cannot be loaded; the
/// thread's error text then says why. It stays for the life of the process. `shortage` hears whether the host
/// was only short of memory or descriptors.
void* load(const char* name, bool* shortage = nullptr) noexcept;

/// The address of a symbol, null when the module does not have it.
void* find(void* module, const char* symbol) noexcept;

/// The module of the program itself.
void* program() noexcept;

} // namespace brisolt::module
