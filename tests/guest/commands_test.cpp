// The commands of those who have a device in front of them: its lines, a break, and whether it is there at all.
#include <csignal>

#include "guest.h"
#include "support/peer_process.h"

using namespace brisolt::test;

namespace {

/// The command, and the next line that it tells, without its time.
struct Brisolt : PeerProcess {
    explicit Brisolt(const std::vector<std::string>& arguments)
        : PeerProcess("/bin/brisolt", arguments, {.captureErrors = true, .inherit = -1}) {}
    std::string told() {
        const std::string line = readLine(patience).value_or("nothing");
        constexpr std::size_t time = sizeof "hh:mm:ss.mmm";
        return line.size() > time && line[2] == ':' ? line.substr(time) : line;
    }
};

TEST(Commands, LinesTellsEachChangeUntilTheDeviceIsGone) {
    Gadget plug;
    Brisolt watch({"lines", usbModem, "--watch"});
    EXPECT_EQ(watch.told(), "DTR on, RTS on, CTS on, DSR off, DCD off, RI off");
    {
        const Tty far(gadget);
        EXPECT_EQ(watch.told(), "DSR on");
        EXPECT_EQ(watch.told(), "DCD on");
    }
    EXPECT_EQ(watch.told(), "DSR off");
    EXPECT_EQ(watch.told(), "DCD off");
    plug.unplug();
    EXPECT_EQ(watch.told(), "device gone");
    EXPECT_EQ(watch.told(), std::string("brisolt: ") + usbModem + ": the device has gone away");
    EXPECT_EQ(watch.wait(patience), 3);
    plug.plug();

    Brisolt onUart({"lines", breakUart, "--watch"});
    onUart.told();
    const Tty sender(breakSender);
    sender.write("a\xFF\xF3");
    EXPECT_EQ(onUart.told(), "break");
}

TEST(Commands, LinesSetsWhatIsNamedAndHoldsABreakForItsTime) {
    constexpr uint8_t breakBit = 0x40, dtr = 1, rts = 2;
    Brisolt lines({"lines", uart, "--dtr", "off", "--break", "3000"});
    ASSERT_TRUE(eventually([] { return (uartRegister(lineControl) & breakBit) != 0; }));
    const auto start = Clock::now();
    EXPECT_EQ(lines.told().substr(0, 15), "DTR off, RTS on");
    EXPECT_GT(Clock::now() - start, Milliseconds(1000));
    EXPECT_EQ(lines.wait(patience), 0);
    EXPECT_EQ(uartRegister(lineControl) & breakBit, 0);
    EXPECT_EQ(uartRegister(modemControl) & (dtr | rts), rts) << "what was set stays, and so does the rest";
}

TEST(Commands, PortsTellsWhatGoesAndComes) {
    Gadget plug;
    Brisolt watch({"ports", "--watch", "ACM"});
    for (const std::string sign : {"+", "-", "+"}) {
        EXPECT_EQ(watch.told().find(sign + "  " + usbModem), 0U) << sign;
        sign == "-" ? plug.plug() : plug.unplug();
    }
    watch.kill(SIGINT);
    EXPECT_EQ(watch.wait(patience), 128 + SIGINT);
}

} // namespace
