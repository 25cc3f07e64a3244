// The bell on a terminal of its own, and sounds through players that tell what they were given.
#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include "platform/error_text.h"
#include "support/open_port.h"

namespace brisolt {
namespace {

// In a process whose terminal is the pty, with TOSTOP set: a careless write would stop it.
TEST(Beep, RingsTheTerminalAlsoFromTheBackground) {
    test::Pty pty;
    const pid_t child = fork();
    if (child == 0) {
        setsid();
        const int terminal = open(pty.slavePath().c_str(), O_RDWR);
        termios settings{};
        if (terminal < 0 || ioctl(terminal, TIOCSCTTY, 0) != 0 || tcgetattr(terminal, &settings) != 0)
            _exit(9);
        settings.c_lflag |= TOSTOP;
        tcsetattr(terminal, TCSANOW, &settings);
        const pid_t background = fork();
        if (background == 0) {
            setpgid(0, 0);
            alarm(20);
            ComBeep();
            _exit(0);
        }
        int end = -1;
        waitpid(background, &end, WUNTRACED);
        kill(background, SIGKILL); // in case it stands stopped
        _exit(end == 0 ? 0 : 1);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(status, 0);
    EXPECT_EQ(pty.read(1), "\a");
}

class Sounds : public testing::Test {
protected:
    Sounds() {
        setenv("PATH", (directory.path().string() + ":/usr/bin:/bin").c_str(), 1);
        for (const char* name : {"paplay", "pw-play", "aplay"})
            player(name, "exit 1");
        std::ofstream(sound) << "RIFF";
    }

    /// One that notes its name and what it was given.
    void player(const std::string& name, const std::string& work) {
        std::string path = directory.file(name);
        std::ofstream(path) << "#!/bin/sh\necho noise; echo noise >&2\n"
                            << "echo " << name << " \"$@\" >>'" << notes << "'\n"
                            << work << '\n';
        std::filesystem::permissions(path, std::filesystem::perms::owner_all);
    }
    std::string noted() {
        std::string text = test::contentsOf(notes);
        std::filesystem::remove(notes);
        return text;
    }

    test::TempDir directory;
    std::string notes = directory.file("notes");
    std::string sound = directory.file("a sound's $name.wav");
};

TEST_F(Sounds, PlayToTheirEndWithoutANoise) {
    player("paplay", "sleep 0.3; echo over >>'" + notes + "'");
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    EXPECT_EQ(Com_PlaySound(sound.c_str()), 1);
    EXPECT_EQ(testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr(), "");
    EXPECT_EQ(noted(), "paplay " + sound + "\nover\n");
    std::filesystem::current_path(directory.path());
    std::filesystem::rename(sound, "-n");
    EXPECT_EQ(Com_PlaySound("-n"), 1);
    EXPECT_EQ(noted(), "paplay ./-n\nover\n");
}

TEST_F(Sounds, NothingThatCanPlay) {
    EXPECT_EQ(Com_PlaySound(sound.c_str()), -1);
    EXPECT_NE(errorText().find("aplay"), std::string::npos);
    EXPECT_EQ(noted(), "paplay " + sound + "\npw-play " + sound + "\naplay -q " + sound + "\n");
    player("paplay", "");
    EXPECT_EQ(Com_PlaySound(directory.file("none.wav").c_str()), -1);
    EXPECT_EQ(noted(), "");
}

// Whatever the program does about its children, and with its standard input and output closed.
TEST_F(Sounds, InProgramsWithHabitsOfTheirOwn) {
    player("paplay", "sleep 0.1");
    const auto reap = [](int) {
        const int error = errno;
        while (waitpid(-1, nullptr, WNOHANG) > 0) {
        }
        errno = error;
    };
    for (const sighandler_t habit : {SIG_IGN, static_cast<sighandler_t>(reap), SIG_DFL}) {
        signal(SIGCHLD, habit);
        const int input = dup(0), output = dup(1);
        close(0), close(1);
        const int32_t result = Com_PlaySound(sound.c_str());
        dup2(input, 0), dup2(output, 1);
        EXPECT_EQ(result, 1);
    }
}

} // namespace
} // namespace brisolt
