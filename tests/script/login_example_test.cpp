// The login example, run as its user would run it: against a shell on a terminal of its own.
#include "support/open_port.h"
#include "support/peer_process.h"

namespace brisolt::test {
namespace {

constexpr const char* gate = R"(
while :; do
    printf 'login: '; read -r name
    [ -n "$name" ] || continue
    stty -echo; printf 'Password: '; read -r password; stty echo; echo
    [ "$name $password" = 'operator secret' ] && break
    echo 'Login incorrect'
done
PS1='$ ' exec sh -i
)";

TEST(LoginExample, LogsInToAShellAndRunsACommand) {
    if (std::string(BRISOLT_EXAMPLE_LOGIN).empty())
        GTEST_SKIP() << "the tools are not part of this build";
    const TempDir dir;
    std::ofstream(dir.file("gate.sh")) << gate;
    const auto logIn = [&](const char* password, const char* command) {
        const std::string line = dir.file(std::string("line-") + password);
        // A terminal for the shell, and one whose other end the program opens as its line.
        PeerProcess shell("/usr/bin/env", {"socat", "PTY,rawer,wait-slave,pty-interval=0.05,link=" + line,
                                           "EXEC:sh " + dir.file("gate.sh") + ",pty,setsid,ctty,stderr"});
        EXPECT_TRUE(eventually([&] { return std::filesystem::exists(line); }));
        PeerProcess login(BRISOLT_EXAMPLE_LOGIN, {line, "operator", password, command},
                          {.captureErrors = true, .inherit = -1});
        const std::string said = login.readAll(60s);
        return said + " -> " + std::to_string(login.wait());
    };
    const std::string said = logIn("secret", "echo $((6 * 7)) | tr 2 3");
    EXPECT_NE(said.find("\n43\r\n"), std::string::npos) << said;
    EXPECT_TRUE(said.ends_with(" -> 0")) << said;
    EXPECT_EQ(logIn("guess", "true"), "name or password refused\n -> 1");
}

} // namespace
} // namespace brisolt::test
