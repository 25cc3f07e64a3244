/* brisolt/modem.h: modems: single commands, a whole initialisation, and the database it may use. */
#ifndef BRISOLT_MODEM_H
#define BRISOLT_MODEM_H

#include "types.h"

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Commands ------------------------------------------------------------------------------------ */

/* A command is a string of the port's modem parameters, as it is at the time of the call. It is sent as by
 * ComPuts (`|` a carriage return, `~` a pause of one second). No call here reads what the modem answers. */

/*
 * Dials: a quarter of a second of silence, the dial prefix, `number`, a carriage return, another quarter of a
 * second, then waits for carrier. The port's dial time-out (seconds, 60 after ComOpen; plus 10 ms) counts from
 * the start of the call; with 0 there is no wait for carrier, below 0 it is over at once.
 *   1   carrier, which is then latched (ComCarrierTx); with a time-out of 0: sent
 *   0   escaped (the port's escape character, or a request to quit), looked for while waiting for carrier
 *   -1  bad or closed port, also when closed meanwhile; null; the time is over; cancelled (ComCancel). A
 *       cancel never cuts the command line in half: given before it, nothing is sent; given in it, it ends
 *       behind it.
 * Unless the result is 1 the modem may still be dialling: ComDisc. Messages are let through while waiting for
 * carrier, whatever yield is. A device without modem lines never shows carrier.
 */
int32_t ComDial(int32_t port, const char *number);
/* Sends the hang-up command, waits one second (with yield on messages are let through and a request to quit
 * cuts it short) and clears the carrier latch. The command is "ATH0|" after an open ("+++~~~ATH0|" after
 * ComPreOpen), which a modem takes for data while the call stands: lower DTR first, or escape from the call as
 * "~~+++~~ATH0|" does. 1; -1 bad or closed port, also when closed meanwhile. */
int32_t ComDisc(int32_t port);
/* 1 while the device reports the ring indicator, else 0, also when its lines cannot be read; [port]. */
int32_t ComRing(int32_t port);

/* Send the command that the name says. 1; -1 bad or closed port, also when closed meanwhile. ComReset alone
 * gives -1 also when ComPuts would. */
int32_t ComReset(int32_t port);
int32_t ComModemInit(int32_t port);
int32_t ComSetAns(int32_t port, int32_t on); /* auto-answer: nonzero on, 0 off */
int32_t ComModemSetCompression_ON(int32_t port);
int32_t ComModemSetCompression_OFF(int32_t port);
int32_t ComModemSetFlowControl_OFF(int32_t port);
int32_t ComModemSetFlowControl_HDWR(int32_t port);
int32_t ComModemSetFlowControl_SOFT(int32_t port);
int32_t ComModemSetErrorControl_ON(int32_t port);
int32_t ComModemSetErrorControl_OFF(int32_t port);
int32_t ComModemSetErrorControl_FORCED(int32_t port);

/* Two values kept for the caller. Setting the protocol also sets its state to 1; a state is 0 or, whatever
 * else is given, 1. 1; [port]. The value; [port]. */
int32_t ComSetCarrierLossProtocol(int32_t port, int32_t protocol);
int32_t ComGetCarrierLossProtocol(int32_t port);
int32_t ComSetCarrierLossProtocolState(int32_t port, int32_t state);
int32_t ComGetCarrierLossProtocolState(int32_t port);

/* ---- Initialisation ------------------------------------------------------------------------------ */

/*
 * Sends a modem its reset, initialisation, flow control, compression, error control and auto-answer commands,
 * in this order, and looks for "OK" after each. Reset and initialisation are sent at most seven times, then the
 * sequence fails; each of the others at most three times, then it goes on without. Before it is sent again the
 * modem gets a "+++" and 2 seconds (the four last commands: 1 second). Each step is written to the port's
 * protocol log.
 *   databaseFile  the modem database (below), a path of 1 to 259 characters. It is not opened when every
 *                 command is kept.
 *   modemName     the modem whose commands become the port's, letter case counts
 *   debugFile     the port's protocol log from now on, at most 259 characters; null or empty: off
 * Flags of each step:
 *   resetFlags, initFlags   1 send the command, 0 skip the step
 *   compressionFlags        1 on, 0 off           autoAnswerFlags  1 on, 0 off
 *   flowFlags               1 hardware, 2 software, 0 or 3 none
 *   errorControlFlags       1 on, 2 forced, 0 or 3 off
 *   plus 4 (not autoAnswer) keep the port's own commands for the step instead of the database's
 * Commands of the database are cut to 31 characters, the initialisation to 99; one that the modem's line does
 * not have stays the port's own.
 *
 * ComSetModem runs all of it:
 *   1 done                   -5 no answer to the reset     -6 no answer to the initialisation
 *   -2 the database cannot be read or does not have the modem
 *   -1 bad or closed port, also when closed meanwhile; a bad argument; cancelled (ComCancel)
 * Messages are let through; the escape key (27) is consumed and does not end it. The port's escape character
 * and a request to quit end the wait for the present answer, which then counts as missing.
 */
int32_t ComSetModem(int32_t port, const char *databaseFile, const char *modemName, int32_t resetFlags,
                    int32_t initFlags, int32_t compressionFlags, int32_t flowFlags, int32_t errorControlFlags,
                    int32_t autoAnswerFlags, const char *debugFile);

/* The same step by step, for a program with a loop of its own. Start prepares: 5 ready; -1 bad or closed port,
 * a bad argument, or a database that cannot be read; -2 the modem is not in the database. Next takes a step: 5
 * in progress, call it again; 1, -5, -6 as above; -1 bad or closed port. It may take up to some 3 seconds
 * while it looks for an answer. Next after 1 begins again with the same flags, after -5 or -6 it looks for the
 * answer once more. One sequence a port at a time. */
int32_t ComSetModem_Start(int32_t port, const char *databaseFile, const char *modemName, int32_t resetFlags,
                          int32_t initFlags, int32_t compressionFlags, int32_t flowFlags,
                          int32_t errorControlFlags, int32_t autoAnswerFlags, const char *debugFile);
int32_t ComSetModem_Next(int32_t port);
/* Where the sequence stands: 100 reset, 200 initialisation, 300 compression, 400 flow control, 500 error
 * control, 600 auto-answer; plus 1 waiting for the answer, 2 about to try again, 3 waiting to send again. 100
 * when there was none yet, and after the end; [port]. */
int32_t ComGetModem_State(int32_t port);

/* ---- The modem database -------------------------------------------------------------------------- */

/*
 * A text file with one modem a line; lines end with a carriage return and a line feed. Twelve fields with "!"
 * between them: name, initialisation, a field for remarks, reset, compression on and off, flow control off,
 * hardware and software, error control on, off and forced. One is installed as share/brisolt5/modems.txt.
 *
 * ComGetModem_Start opens it and reads the first record, ComGetModem_Next the next; each field goes into the
 * buffer of its name, which holds 76 bytes (initStr: 101). Fields keep below 75 characters (100): after one of
 * that length or more its rest, be it the "!" alone, is read as the next field. Fields that a line does not
 * have leave their buffers as they are; what a line has beyond twelve is the next record's; the byte behind a
 * carriage return or a line feed belongs to the line end whatever it is.
 *   5  a record, there may be more
 *   1  the end of the file: the buffers hold what came before it, maybe an empty name
 *   -1 bad port number, or null
 *   -2 (Start) the file cannot be read    -3 it cannot be read with others barred from writing    -4 no memory
 * The port number tells one reader from another, the port need not be open. Start ends the number's reading
 * before it, unless it gives -1 or -2; Next without one is at the end. ComGetModem_End ends the reading:
 * 1; -1 bad port number.
 */
int32_t ComGetModem_Start(int32_t port, const char *databaseFile, char *name, char *initStr, char *remarks,
                          char *resetStr, char *compressionOnStr, char *compressionOffStr,
                          char *flowControlOffStr, char *flowControlHdwrStr, char *flowControlSoftStr,
                          char *errorControlOnStr, char *errorControlOffStr, char *errorControlForcedStr);
int32_t ComGetModem_Next(int32_t port, char *name, char *initStr, char *remarks, char *resetStr,
                         char *compressionOnStr, char *compressionOffStr, char *flowControlOffStr,
                         char *flowControlHdwrStr, char *flowControlSoftStr, char *errorControlOnStr,
                         char *errorControlOffStr, char *errorControlForcedStr);
int32_t ComGetModem_End(int32_t port);

#ifdef __cplusplus
}
#endif

#endif
