// What is seen from outside: everything else of the library is hidden.
#pragma once

#define BRISOLT_EXPORT extern "C" __attribute__((visibility("default")))
