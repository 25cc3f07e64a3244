// Programs that call each other: two processes with the library, the service and a modem each.
#include <filesystem>

#include "support/peer_process.h"
#include "telephony_program.h"

using namespace brisolt::test;
using namespace std::chrono_literals;

TEST_F(TwoModems, OneProcessDialsAndAnotherAnswers) {
    if (std::string(BRISOLT_EXAMPLE_DIAL).empty())
        GTEST_SKIP() << "the tools are not part of this build";
    const PeerProcess::Options watched{.captureErrors = true, .inherit = -1};
    // With the library inside they find the service as the loader does, and it brings a copy of the library along.
    setenv("LD_LIBRARY_PATH", std::filesystem::path(BRISOLT_SERVICE).parent_path().c_str(), 1);
    for (const auto& [answers, dials] :
         {std::array{BRISOLT_EXAMPLE_ANSWER, BRISOLT_EXAMPLE_DIAL},
          std::array{BRISOLT_EXAMPLE_ANSWER_STATIC, BRISOLT_EXAMPLE_DIAL_STATIC}}) {
        SCOPED_TRACE(dials);
        PeerProcess answer(answers, {"There", "2"}, watched);
        ASSERT_EQ(answer.readLine(30s), "waiting");
        PeerProcess dialler(dials, {"Here", "200"}, watched);
        dialler.write("good morning\nhow are you?\n");
        dialler.closeInput();
        EXPECT_EQ(dialler.readAll(60s), "");
        EXPECT_EQ(dialler.wait(30s), 0);
        EXPECT_EQ(answer.readAll(60s), "good morning\nhow are you?\n");
        EXPECT_EQ(answer.wait(30s), 0);
        EXPECT_EQ(here->status().phase, simulated::Phase::idle);
        EXPECT_EQ(there->status().phase, simulated::Phase::idle);
    }

    // Why a call has failed; the last one since another program waits for calls on that line.
    PeerProcess waiter(BRISOLT_EXAMPLE_ANSWER, {"There"}, watched);
    ASSERT_EQ(waiter.readLine(30s), "waiting");
    exchange.set("1", simulated::Fate::busy);
    for (const auto& [from, number, why] : {std::array{"Here", "1", "busy (-24)\n"},
                                            std::array{"There", "100", "the line cannot be used (-4)\n"}}) {
        PeerProcess failing(BRISOLT_EXAMPLE_DIAL, {from, number}, watched);
        EXPECT_EQ(failing.readAll(60s), why);
        EXPECT_EQ(failing.wait(30s), 1);
    }
}
