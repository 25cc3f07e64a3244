// What stands in the way of files: somebody else who has one open, and a disk that is full.
#pragma once

#include <csignal>
#include <string>

#include <gtest/gtest.h>
#include <sys/resource.h>

#include "support/peer_process.h"

namespace brisolt::test {

/// A process that has a file open as a shell's redirection says ("<", ">>", "<>").
class Holder {
public:
    Holder(const std::string& how, const std::string& path)
        : process_("/bin/sh", {"-c", "exec 3" + how + "'" + path + "'; echo held; read line; exit 0"}) {
        EXPECT_EQ(process_.readLine(), "held");
    }

private:
    PeerProcess process_;
};

/// No file may grow beyond a size while it lives.
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
