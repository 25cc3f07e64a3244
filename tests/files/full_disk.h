// A disk that is full: no file may grow beyond a size while it lives.
#pragma once

#include <csignal>

#include <sys/resource.h>

namespace brisolt::test {

class FullDisk {
public:
    explicit FullDisk(rlim_t largestFile) {
        std::signal(SIGXFSZ, SIG_IGN);
        getrlimit(RLIMIT_FSIZE, &before_);
        set(largestFile);
    }
    FullDisk(const FullDisk&) = delete;
    FullDisk& operator=(const FullDisk&) = delete;
    ~FullDisk() { makeRoom(); }
    void makeRoom() const { set(before_.rlim_cur); }

private:
    void set(rlim_t size) const {
        const rlimit limit{size, before_.rlim_max};
        setrlimit(RLIMIT_FSIZE, &limit);
    }
    rlimit before_{};
};

} // namespace brisolt::test
