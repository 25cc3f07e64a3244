// A simulated modem, for tests and demonstrations of programs that use one.
//
//     simulated::Exchange exchange;
//     simulated::Simulator here(simulated::nullModemLine("desk"), exchange, {.number = "100"});
//     simulated::Simulator there(simulated::ptyLine(), exchange, {.number = "200", .stored = "S0=1"});
//     ComHostMapDevice(1, here.path().c_str());   // "null-modem:desk"
//     ComOpen(...); ComDial(1, "200");
//     there.waitFor(simulated::Phase::online);
//
// What the modem does:
//   commands   AT with several commands a line, A/; A D E H I O Q S V X Z &C &D &F &V &W &Z and, of flow
//              control, &K, \Q and +IFC are obeyed; the settings of well-known families are kept and answered
//              OK. There are two stored profiles, &Y tells which of them &D3 goes back to. +FCLASS knows data
//              (0) only. Of DSR (&S) and RTS (&R) it knows nothing.
//   dialling   T P , W @ ! ; L S=n. An X level that listens waits for a dial tone; X0, X1 and X3 dial blindly
//              after S6 seconds. Numbers that nobody has are refused; NO ANSWER comes to @ only. Behind ";"
//              the modem stays off hook: another D or an O makes it look for carrier.
//   calls      It rings 2 s every 6 s. A modem without DTR (&D2, &D3) does not answer. CONNECT tells the
//              rate that both have in common. When the other end hangs up, carrier goes after S10.
//   DTR        On a null modem the line; on a pty whether a program has it open at a speed other than 0.
//
// A scale runs the modem's time faster: with .timeScale = 20 a minute of S7 takes three seconds, and a guard
// time 50 ms. A program under test has to run at the same pace; at high scales a busy machine may make
// it look late.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "exchange.h"
#include "faults.h"
#include "line.h"
#include "options.h"

namespace simulated {

/// Lives on a thread of its own from its making to its end. Any thread may call.
class Simulator {
public:
    /// Throws std::runtime_error: no thread, number taken or none, stored line refused.
    Simulator(std::unique_ptr<Line> line, Exchange& exchange, const Options& options = {});
    Simulator(const Simulator&) = delete;
    Simulator& operator=(const Simulator&) = delete;
    /// As if its plug were pulled. A null modem takes some 0.6 s to close.
    ~Simulator();

    /// What the program opens.
    const std::string& path() const;

    Status status() const;
    /// Waits until the modem is in that phase; false when it is not within `limit` of real time.
    bool waitFor(Phase phase, Milliseconds limit = Milliseconds(10000)) const;
    /// The command lines it was given, with AT, in capitals and without blanks.
    std::vector<std::string> commands() const;
    /// Throws what has ended it before its time, if anything has: no memory, or nothing more that the host would
    /// give. Its call is over then and it does no more (see Options::failed).
    void rethrowFailure() const;

    // What goes wrong from now on
    void add(const Fault& fault);
    void clearFaults();
    /// A byte of noise behind every so many bytes to the program; 0: none.
    void setNoise(std::size_t every);
    /// Cuts the line once, after that many bytes (both ways) of a call, or that long after CONNECT: in this
    /// call or the next. 0 bytes: no more.
    void dropAfterBytes(std::size_t bytes);
    void dropAfter(Milliseconds time);
    void dropNow();

private:
    struct Inside;
    std::unique_ptr<Inside> inside_;
};

} // namespace simulated
