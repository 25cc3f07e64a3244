// A host that has no descriptor left for the process, and does not let it poll those that it has.
#pragma once

#include <sys/resource.h>

namespace brisolt::test {

struct NoDescriptors {
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &before);
        const rlimit none{0, before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &before); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;
    rlimit before{};
};

} // namespace brisolt::test
