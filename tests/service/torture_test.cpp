// Modems that misbehave: each in one way at one moment of a call, all of them beside each other. The service tells
// what came of it, and the next call of each works.
#include "telephony_program.h"

using namespace brisolt::test;

namespace {

enum Moment { opening, initialising, dialling, ringing, talking, hangingUp, never };
enum Manner { late, wrong, inPieces, silent, garbage, unplugged };
constexpr const char* momentNames[] = {"opening", "initialising", "dialling", "ringing",
                                       "talking", "hanging up",   "never"};
constexpr const char* mannerNames[] = {"late", "wrong", "in pieces", "silent", "garbage", "unplugged"};

/// No result of a modem, and more than a line of one can hold.
std::string noise() {
    std::string bytes = "\r\nOKAY\r\nCON\nNECT" + std::string(700, 'x') + "\n";
    for (int value = 0; value < 256; ++value)
        bytes += static_cast<char>(value);
    return bytes + "\xFF\r\n";
}

class RudeModem {
public:
    RudeModem(Moment moment, Manner manner)
        : name(std::string(mannerNames[manner]) + " when " + momentNames[moment]), moment_(moment),
          manner_(manner) {}
    const std::string name;
    std::string path() const { return line_.slavePath(); }
    bool is(std::initializer_list<Moment> moments, std::initializer_list<Manner> manners) const {
        return std::ranges::count(moments, moment_.load()) > 0 && std::ranges::count(manners, manner_) > 0;
    }
    bool rings() const { return moment_ == ringing; }
    void callIn() { ring_ = true; }
    /// From now on it behaves. False: there is nothing left that could.
    bool calm() {
        moment_ = never;
        online_ = heardBye_ = false;
        return !gone_;
    }
    bool heardBye() const { return heardBye_; }

private:
    void unplug() {
        gone_ = true;
        line_.close();
    }
    void say(Moment now, const std::string& text = "\r\nOK\r\n") {
        if (now != moment_)
            return void(line_.write(text));
        const bool inACall = now == ringing || now == talking;
        switch (manner_) {
        case late: std::this_thread::sleep_for(Milliseconds(1000)); break;
        case wrong: return void(line_.write(inACall ? "\r\nNO CARRIER\r\n" : "\r\nERROR\r\n"));
        case inPieces:
            for (const char byte : text)
                line_.write({&byte, 1}), std::this_thread::sleep_for(Milliseconds(10));
            return;
        case silent: return;
        case garbage: line_.write(noise()); break;
        case unplugged: return unplug();
        }
        line_.write(text);
    }
    void connect(Moment now) {
        online_ = !is({now}, {wrong, silent, unplugged});
        say(now, "\r\nCONNECT\r\n");
        if (online_ && !is({talking}, {unplugged}))
            say(talking, "hello");
    }
    void obey(const std::string& command) {
        const auto has = [&](const char* text) { return command.find(text) != command.npos; };
        if (has("ATD") || has("ATA"))
            connect(has("ATD") ? dialling : ringing);
        else if (has("ATH") || has("&F") || has("ATE0"))
            say(has("ATH") ? hangingUp : has("&F") ? initialising : opening);
        else
            say(dialling, "\r\nNO CARRIER\r\n"); // any key
    }
    void run(const std::stop_token& over) {
        for (std::string command; !over.stop_requested();) {
            if (ring_.exchange(false))
                is({ringing}, {late, inPieces, garbage}) ? say(ringing, "\r\nRING\r\n")
                                                         : void(line_.write("\r\nRING\r\n"));
            if (online_ && is({talking}, {silent})) {
                std::this_thread::sleep_for(Milliseconds(5));
                continue; // nor does it take anything
            }
            command += line_.read(1, Milliseconds(20));
            if (online_ && command.ends_with("+++")) {
                online_ = false;
                say(hangingUp);
            } else if (online_ && is({talking}, {unplugged})) {
                if (!command.empty())
                    unplug();
            } else if (online_) {
                heardBye_ = heardBye_ || command.ends_with("bye");
                continue;
            } else if (command.ends_with('\r')) {
                obey(command);
            } else {
                continue;
            }
            command.clear();
        }
    }

    std::atomic<Moment> moment_;
    Manner manner_;
    Pty line_;
    std::atomic<bool> online_ = false, ring_ = false, gone_ = false, heardBye_ = false;
    std::jthread thread_{[this](const std::stop_token& over) { run(over); }};
};

/// A modem, and what its line and call come to.
struct Victim {
    std::unique_ptr<RudeModem> modem;
    int32_t opened = 0;
    uint32_t line = 0, call = 0;
    bool cannotOpen() const { return modem->is({opening, initialising}, {wrong, silent, unplugged}); }
    bool failsToConnect() const { return modem->is({dialling, ringing}, {wrong, unplugged}); }
    bool hangs() const { return modem->is({dialling, ringing}, {silent}); }
};

struct Torture : TelephonyProgram {
    std::vector<Victim> victims;

    Torture() {
        std::string profile;
        for (int moment = opening; moment < never; ++moment)
            for (int manner = late; manner <= unplugged; ++manner) {
                auto modem =
                    std::make_unique<RudeModem>(static_cast<Moment>(moment), static_cast<Manner>(manner));
                profile += "[" + modem->name + "]\nhangup = escape\ndevice = " + modem->path() + "\n";
                victims.push_back({.modem = std::move(modem)});
            }
        writeProfile(profile);
        reaction = [this](const Message& one) {
            if (!one.isCallState() || one.p1 != state::offering)
                return;
            victims.at(one.instance).call = one.device;
            service.answer(one.device, nullptr, 0);
        };
    }
    /// Beside each other: some wait for a modem until their patience is over.
    void openLines() {
        std::vector<std::jthread> openers;
        for (std::size_t i = 0; i < victims.size(); ++i)
            openers.emplace_back([this, i] {
                Victim& victim = victims[i];
                int tries =
                    victim.cannotOpen() ? 1 : 3; // a busy machine may be slower than a service is patient
                do
                    victim.opened = openLine(static_cast<uint32_t>(i), victim.line, privilege::owner, i);
                while (victim.opened != 0 && --tries > 0);
            });
    }
    void begin(Victim& victim) const {
        victim.call = 0;
        if (victim.modem->rings())
            return victim.modem->callIn();
        EXPECT_GT(service.makeCall(victim.line, &victim.call, "T1", 0, nullptr), 0);
    }
    void talk(const Victim& victim) const {
        EXPECT_EQ(untilState(victim.call, state::connected), 0);
        if (victim.modem->is({talking}, {wrong})) {
            EXPECT_EQ(untilState(victim.call, state::disconnected), cause::normal);
            return;
        }
        const int handle = commHandle(victim.call);
        service.portOpen(victim.call); // nothing of what comes is held back
        if (victim.modem->is({talking}, {unplugged})) {
            writeTo(handle, "bye");
            EXPECT_EQ(untilState(victim.call, state::disconnected), cause::normal);
        } else if (victim.modem->is({talking}, {silent})) { // what it never takes must not hold up the end
            for (const std::string block(4096, 'x'); write(handle, block.data(), block.size()) > 0;)
                continue;
        } else {
            const std::string comes = (victim.modem->is({talking}, {garbage}) ? noise() : "") + "hello";
            EXPECT_EQ(readFrom(handle, comes.size()), comes);
            writeTo(handle, "bye");
            EXPECT_TRUE(until([&] { return victim.modem->heardBye(); }));
        }
        close(handle);
    }
    template <class Act> void onEachOpenLine(Act act) {
        for (Victim& victim : victims) {
            SCOPED_TRACE(victim.modem->name);
            if (victim.opened == 0)
                act(victim);
        }
    }
    /// A call on each line that is open, whatever comes of it.
    void callAll() {
        onEachOpenLine([this](Victim& victim) { begin(victim); });
        onEachOpenLine([this](const Victim& victim) {
            EXPECT_TRUE(until([&] { return victim.call != 0; }));
            if (victim.failsToConnect())
                EXPECT_GT(untilState(victim.call, state::disconnected), 0);
            else if (!victim.hangs())
                talk(victim);
        });
        // Where there is still something to drop.
        onEachOpenLine([this](const Victim& victim) { service.drop(victim.call, nullptr, 0); });
        onEachOpenLine([this](const Victim& victim) {
            untilState(victim.call, state::idle);
            EXPECT_EQ(service.deallocate(victim.call), 0);
            EXPECT_EQ(service.close(victim.line), 0);
        });
    }
    void calmAll() {
        for (std::size_t i = 0; i < victims.size(); ++i) {
            if (victims[i].modem->calm())
                continue;
            victims[i].modem = std::make_unique<RudeModem>(never, late);
            EXPECT_EQ(configure("device = " + victims[i].modem->path(), static_cast<uint32_t>(i)), 0);
        }
    }
};

} // namespace

TEST_F(Torture, EveryMannerAtEveryMomentAndTheNextCallWorks) {
    ASSERT_EQ(start(), 0);
    testing::internal::CaptureStderr(); // it complains of some
    openLines();
    testing::internal::GetCapturedStderr();
    for (const Victim& victim : victims)
        EXPECT_EQ(victim.opened, victim.cannotOpen() ? result::operationFailed : 0) << victim.modem->name;
    callAll();
    calmAll();
    openLines();
    for (const Victim& victim : victims)
        EXPECT_EQ(victim.opened, 0) << victim.modem->name;
    callAll();
}
