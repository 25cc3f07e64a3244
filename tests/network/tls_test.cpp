// Lines in TLS: certificates that are right and wrong, and bytes that the socket does not show.
#include <csignal>
#include <cstdlib>
#include <future>

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include "field/field_port.h"
#include "network/far_end.h"
#include "support/open_port.h"
#include "support/peer_process.h"

namespace brisolt::test {
namespace {

/// An authority, and certificates by it: good ones for localhost, another name, and one that has expired.
class Certificates {
public:
    Certificates() {
        request("ca", "-x509 -days 30 -out " + file("ca.pem"), "authority");
        request("other-ca", "-x509 -days 30 -out " + file("other-ca.pem"), "another");
        sign("good", "localhost", 30);
        sign("wrong", "elsewhere.example", 30);
        sign("expired", "localhost", -1);
    }
    std::string file(const std::string& name) const { return folder_.file(name); }
    std::string options(const std::string& more = "") const { return "?ca=" + file("ca.pem") + more; }

private:
    static void run(const std::string& command) {
        ASSERT_EQ(std::system(("/usr/bin/openssl " + command + " 2>/dev/null").c_str()), 0) << command;
    }
    void request(const std::string& name, const std::string& more, const std::string& subject) const {
        run("req -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -subj /CN=" + subject +
            " -addext subjectAltName=DNS:" + subject + " -keyout " + file(name + ".key") + " " + more);
    }
    void sign(const std::string& name, const std::string& host, int days) const {
        request(name, "-out " + file(name + ".csr"), host);
        run("x509 -req -copy_extensions copyall -in " + file(name + ".csr") + " -CA " + file("ca.pem") +
            " -CAkey " + file("ca.key") + " -CAcreateserial -days " + std::to_string(days) + " -out " +
            file(name + ".pem"));
    }
    TempDir folder_;
};

/// A far end in TLS by another program, which hands over to another; an echo if none is named.
class TlsEnd {
public:
    TlsEnd(const Certificates& all, const std::string& name, const std::string& more = ",verify=0",
           const std::string& to = "EXEC:/bin/cat")
        : port_(freePort()),
          socat_("/usr/bin/socat", {"OPENSSL-LISTEN:" + std::to_string(port_) + ",reuseaddr,fork" +
                                        (name.empty() ? ""
                                                      : ",cert=" + all.file(name + ".pem") +
                                                            ",key=" + all.file(name + ".key")) +
                                        more,
                                    to}) {
        EXPECT_TRUE(eventually([this] { return opens(path("", "tcp")); }));
    }
    std::string path(const std::string& options, const std::string& scheme = "tls") const {
        return scheme + ":localhost:" + std::to_string(port_) + options;
    }

private:
    int port_;
    PeerProcess socat_;
};

class Tls : public testing::Test {
protected:
    void SetUp() override {
        if (std::string(TLS_MODULE).empty() || access("/usr/bin/openssl", X_OK) != 0)
            GTEST_SKIP() << "built without the TLS module, or without openssl for certificates";
        ComHostMapModule("BRISOLT-TLS.DLL", TLS_MODULE);
    }
};

TEST_F(Tls, ACertificateIsRightOrTheOpenFailsWithTheReason) {
    const Certificates all;
    const TlsEnd good(all, "good"), wrong(all, "wrong"), expired(all, "expired");
    const TlsEnd strict(all, "good", ",verify=1,cafile=" + all.file("ca.pem"));
    const TlsEnd bare(all, "");
    const Listener plain;
    const std::string own = "&cert=" + all.file("good.pem") + "&key=" + all.file("good.key");
    const std::pair<std::string, std::string> opens[] = {
        {good.path(all.options()), ""},
        {good.path("?ca=" + all.file("other-ca.pem")),
         "its certificate is refused: unable to get local issuer"},
        {good.path(""), "its certificate is refused: unable to get local issuer"},
        {good.path("?verify=no"), ""},
        {good.path(all.options("&name=elsewhere.example")), "hostname mismatch"},
        {wrong.path(all.options()), "hostname mismatch"},
        {wrong.path(all.options("&name=elsewhere.example")), ""},
        {expired.path(all.options()), "certificate has expired"},
        {good.path("?ca=/no/such/file"), "authorities of /no/such/file: No such file"},
        {strict.path(all.options(own)), ""},
        {bare.path("?verify=no"), "alert handshake failure"},
        {"tls" + plain.path("?connect=600").substr(3), "not answered in TLS in time"},
    };
    for (const auto& [path, reason] : opens) {
        const int32_t number = ComHostOpen(path.c_str(), 9600, nullptr);
        EXPECT_EQ(number > 0, reason.empty()) << path << ": " << errorTextNow();
        if (reason.empty()) {
            char echo[5] = "";
            EXPECT_EQ(ComHostWrite(number, "echo", 4, 20000), 4);
            EXPECT_GT(ComHostRead(number, echo, 4, 20000), 0) << path;
        } else {
            EXPECT_EQ(number, -25);
            EXPECT_NE(errorTextNow().find(reason), std::string::npos) << errorTextNow();
        }
        ComHostClose(number, 0);
    }
    // We have none, which the far end says only after the handshake: with the first read or in the middle of the open.
    const int32_t unknown = ComHostOpen(strict.path(all.options()).c_str(), 9600, nullptr);
    char byte = 0;
    if (unknown > 0)
        EXPECT_EQ(ComHostRead(unknown, &byte, 1, 20000), -2);
    else
        EXPECT_NE(errorTextNow().find("went away while it was set up"), std::string::npos) << errorTextNow();
    ComHostClose(unknown, 0);
}

/// The process's signal handlers, and its descriptors, which must be closed on exec.
std::string stateOfProcess() {
    std::string state;
    for (int number = 1; number < NSIG; ++number) {
        struct sigaction now {};
        if (sigaction(number, nullptr, &now) == 0 && now.sa_handler != SIG_DFL)
            state += "signal " + std::to_string(number) + " ";
    }
    for (int descriptor = 3; descriptor < 1024; ++descriptor)
        if (const int flags = fcntl(descriptor, F_GETFD); flags >= 0 && (flags & FD_CLOEXEC) == 0)
            state += "descriptor " + std::to_string(descriptor) + " ";
    return state;
}

TEST_F(Tls, BytesThatTheSocketDoesNotShowAreFoundAndTheProcessStaysAsItIs) {
    const Certificates all;
    const TlsEnd echo(all, "good");
    RemoteServer server;
    const std::string before = stateOfProcess();
    const FieldPort port(echo.path(all.options())), other(server.path());
    const std::string bytes = pattern(1 << 20);
    auto read = std::async(std::launch::async, [&] { return port.read(bytes.size()); });
    EXPECT_EQ(port.write(bytes, -1), 1 << 20);
    EXPECT_EQ(read.get(), bytes);
    // By the descriptor, byte for byte out of one record.
    pollfd own{ComHostDescriptor(port), POLLIN, 0};
    EXPECT_EQ(port.write("abcdefghij"), 10);
    std::string heard;
    while (heard.size() < 10 && poll(&own, 1, 20000) == 1)
        heard += port.read(1, 0);
    EXPECT_EQ(heard, "abcdefghij");
    EXPECT_EQ(poll(&own, 1, 0), 0) << "nothing is left";
    EXPECT_EQ(stateOfProcess(), before);
}

TEST_F(Tls, ARemotePortInItIsSetAsAnyOther) {
    const Certificates all;
    RemoteServer server;
    const std::string at = server.path();
    const TlsEnd end(all, "good", ",verify=0", "TCP" + at.substr(at.find(':')));
    const FieldPort port(end.path(all.options(), "rfc2217-tls"));
    EXPECT_EQ(ComHostSetLine(port, 4800, "7O2", -1), 1) << errorTextNow();
    const std::string asked = server.asked();
    EXPECT_NE(asked.find("1:4800 2:7 3:2 4:2 "), std::string::npos) << asked;
    const std::string bytes = pattern(100000);
    EXPECT_EQ(port.write(bytes, -1), 100000);
    std::string heard;
    EXPECT_TRUE(eventually([&] { return (heard += server.heard()).size() >= bytes.size(); }));
    EXPECT_EQ(heard, bytes);
}

} // namespace
} // namespace brisolt::test
