// Programs that call each other: two processes with the library, the service and a modem each.
#include <fstream>

#include <gtest/gtest.h>

#include "modem/simulator.h"
#include "support/peer_process.h"
#include "support/temp_dir.h"

#ifndef BRISOLT_EXAMPLE_DIAL
#define BRISOLT_EXAMPLE_ANSWER ""
#define BRISOLT_EXAMPLE_DIAL ""
#endif

using brisolt::test::PeerProcess;
using brisolt::test::TempDir;
using namespace std::chrono_literals;

namespace {

struct CallExample : testing::Test {
    TempDir folder;
    simulated::Exchange exchange;
    simulated::Options options(const char* number) const {
        simulated::Options made;
        made.number = number;
        made.timeScale = 20;
        return made;
    }
    simulated::Simulator here{simulated::ptyLine(), exchange, options("100")};
    simulated::Simulator there{simulated::ptyLine(), exchange, options("200")};

    void SetUp() override {
        if (std::string(BRISOLT_EXAMPLE_DIAL).empty())
            GTEST_SKIP() << "the tools are not part of this build";
        std::ofstream(folder.file("telephony.ini"))
            << "[Here]\ndevice = " << here.path() << "\n[There]\ndevice = " << there.path() << "\n";
        setenv("BRISOLT_TELEPHONY", folder.path().c_str(), 1);
    }
    PeerProcess dial(const char* number) const {
        return PeerProcess(BRISOLT_EXAMPLE_DIAL, {"Here", number}, {.captureErrors = true, .inherit = -1});
    }
};

} // namespace

TEST_F(CallExample, OneProcessDialsAndAnotherAnswers) {
    PeerProcess answer(BRISOLT_EXAMPLE_ANSWER, {"There", "2"}, {.captureErrors = true, .inherit = -1});
    ASSERT_EQ(answer.readLine(30s), "waiting");
    PeerProcess dialler = dial("200");
    dialler.write("good morning\nhow are you?\n");
    dialler.closeInput();
    EXPECT_EQ(dialler.readAll(60s), "");
    EXPECT_EQ(dialler.wait(30s), 0);
    EXPECT_EQ(answer.readAll(60s), "good morning\nhow are you?\n");
    EXPECT_EQ(answer.wait(30s), 0);
    EXPECT_EQ(here.status().phase, simulated::Phase::idle);
    EXPECT_EQ(there.status().phase, simulated::Phase::idle);
}

TEST_F(CallExample, TellsWhyACallHasFailed) {
    exchange.set("1", simulated::Fate::busy);
    PeerProcess busy = dial("1");
    EXPECT_EQ(busy.readAll(60s), "busy (-24)\n");
    EXPECT_EQ(busy.wait(), 1);
    exchange.set("2", simulated::Fate::ringsForEver);
    EXPECT_EQ(dial("2").readAll(60s), "no answer (-25)\n");
    exchange.set("3", simulated::Fate::noDialtone);
    EXPECT_EQ(dial("3").readAll(60s), "no dial tone (-27)\n");
    // Another program's line: that one waits for calls on it.
    PeerProcess answer(BRISOLT_EXAMPLE_ANSWER, {"Here"}, {.captureErrors = true, .inherit = -1});
    ASSERT_EQ(answer.readLine(30s), "waiting");
    EXPECT_EQ(dial("200").readAll(60s), "the line cannot be used (-4)\n");
}
