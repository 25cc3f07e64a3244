// A limit that the host sets to this process for as long as it lives.
#pragma once

#include <algorithm>
#include <csignal>

#include <sys/resource.h>

namespace brisolt::test {

class Limit {
public:
    explicit Limit(__rlimit_resource what) : what_(what) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(what_, &before_);
    }
    Limit(__rlimit_resource what, rlim_t most) : Limit(what) { set(most); }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;
    ~Limit() { lift(); }
    void set(rlim_t most) const {
        const rlimit limit{std::min(most, before_.rlim_max), before_.rlim_max};
        setrlimit(what_, &limit);
    }
    void lift() const { setrlimit(what_, &before_); }

private:
    const __rlimit_resource what_;
    rlimit before_{};
};

/// None is left for a new one, nor may those that there are be polled.
struct NoDescriptors : Limit {
    NoDescriptors() : Limit(RLIMIT_NOFILE, 0) {}
};
/// No file may grow beyond a size.
struct FullDisk : Limit {
    explicit FullDisk(rlim_t largestFile) : Limit(RLIMIT_FSIZE, largestFile) {}
};

} // namespace brisolt::test
