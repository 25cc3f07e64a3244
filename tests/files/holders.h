// Somebody else who has a file open: another process, in the ways that matter to the sharing rules.
#pragma once

#include <string>

#include <gtest/gtest.h>

#include "support/peer_process.h"

namespace brisolt::test {

/// A process that has a file open as a shell's redirection says ("<", ">>", "<>").
class Holder {
public:
    Holder(const std::string& how, const std::string& path)
        : process_("/bin/sh", {"-c", "exec 3" + how + "'" + path + "'; echo held; read line; exit 0"}) {
        EXPECT_EQ(process_.readLine(), "held");
    }
    void letGo() {
        process_.closeInput();
        EXPECT_EQ(process_.wait(), 0);
    }

private:
    PeerProcess process_;
};

} // namespace brisolt::test
