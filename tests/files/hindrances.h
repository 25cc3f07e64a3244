// What stands in the way of files: somebody else who has one open, and a disk that is full.
#pragma once

#include <gtest/gtest.h>

#include "support/limit.h"
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

} // namespace brisolt::test
