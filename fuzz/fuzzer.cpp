// The targets in the hands of libFuzzer: brisolt-fuzz --target=NAME [its own options] [corpus].
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

#include "targets.h"

using namespace brisolt::fuzz;

static const Target* chosen = nullptr;

extern "C" int LLVMFuzzerInitialize(int* count, char*** words) {
    for (int i = 1; i < *count; ++i)
        for (const Target& target : targets)
            if (std::string_view((*words)[i]) == std::string("--target=") + target.name)
                chosen = &target;
    if (chosen == nullptr)
        std::fputs("--target= has to name one of fuzz/targets.cpp\n", stderr), std::exit(2);
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    chosen->feed({reinterpret_cast<const char*>(data), size});
    return 0;
}
