// A name server that is silent.
#include <future>

#include <arpa/inet.h>
#include <net/if.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/mount.h>
#include <sys/socket.h>
#include <unistd.h>

#include "field/field_port.h"
#include "network/far_end.h"
#include "support/open_port.h"

namespace brisolt::test {
namespace {

using namespace std::chrono_literals;

/// The only one of this process, which gets a network of its own for it. -1: that is not permitted.
int silentServer(const TempDir& folder) {
    if (unshare(CLONE_NEWNS | CLONE_NEWNET) != 0 ||
        mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0)
        return -1;
    const int server = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ifreq loopback{.ifr_ifrn = {"lo"}, .ifr_ifru = {}};
    loopback.ifr_flags = IFF_UP;
    const sockaddr_in own{AF_INET, htons(53), {htonl(INADDR_LOOPBACK)}, {}};
    bool done = ioctl(server, SIOCSIFFLAGS, &loopback) == 0 &&
                bind(server, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
    const std::pair<const char*, const char*> files[] = {
        {"resolv.conf", "nameserver 127.0.0.1\noptions timeout:30 attempts:1\n"},
        {"nsswitch.conf", "hosts: files dns\n"}};
    for (const auto& [name, text] : files) {
        std::ofstream(folder.file(name)) << text;
        const std::string place = std::string("/etc/") + name;
        done = done && mount(folder.file(name).c_str(), place.c_str(), nullptr, MS_BIND, nullptr) == 0;
    }
    return done ? server : -1;
}

/// There is no such name.
void answerAll(int server) {
    unsigned char packet[512];
    sockaddr_storage from{};
    auto* sender = reinterpret_cast<sockaddr*>(&from);
    socklen_t size = sizeof from;
    for (ssize_t got = 0;
         (got = recvfrom(server, packet, sizeof packet, MSG_DONTWAIT, sender, &size)) > 12;) {
        packet[2] |= 0x80;
        packet[3] = 0x83;
        sendto(server, packet, static_cast<std::size_t>(got), 0, sender, size);
    }
}

/// Threads that look up a name.
std::ptrdiff_t lookups() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return std::count_if(begin(tasks), end(tasks), [](const auto& task) {
        std::string name;
        return std::getline(std::ifstream(task.path() / "comm"), name) && name == "brisolt-name";
    });
}

TEST(NameServer, OneThatIsSilentHoldsUpNobodyElseAndNobodyBeyondConnect) {
    const TempDir folder;
    const int server = silentServer(folder);
    if (server < 0)
        GTEST_SKIP() << "not permitted to have a network of its own";
    const auto open = [](const std::string& options) {
        return ComHostOpen(("tcp:silent.example:99" + options).c_str(), 9600, nullptr);
    };
    auto patient = std::async(std::launch::async, open, "?connect=60000");
    ASSERT_TRUE(eventually([] { return lookups() == 1; }));
    EXPECT_EQ(open("?connect=200"), -25);
    EXPECT_NE(errorTextNow().find("no name server has told"), std::string::npos) << errorTextNow();
    EXPECT_EQ(lookups(), 1) << "the same is asked once";
    const Listener listener;
    const FieldPort other(listener.path());
    EXPECT_EQ(other.write("x"), 1);
    EXPECT_EQ(patient.wait_for(0s), std::future_status::timeout) << "the others have waited for it";
    EXPECT_TRUE(eventually([server] { return answerAll(server), lookups() == 0; }))
        << "a thread is left behind";
    EXPECT_EQ(patient.get(), -25);
    close(server);
}

} // namespace
} // namespace brisolt::test
