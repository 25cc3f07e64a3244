/*
 * brisolt.h: serial ports, and what is behind them.
 *
 * A port is opened by number (1 to 256). From then on bytes move through its receive ring and its transmit
 * ring, which a thread of the port's own keeps filled and drained.
 *
 * Conventions
 *   1. Results are 32-bit signed: 1 for success or yes, a count, or a port number; 0 for nothing, no or
 *      off; -1 for a port number outside 1 to 256, a port that is not open, a null pointer where a buffer,
 *      string or position is needed, or a general failure; other negative numbers as described.
 *   2. A call that refuses changes nothing. No call crashes on a null pointer, a negative count, an odd
 *      port number or an over-long string; a text that is too long for its field is cut and terminated.
 *   3. Strings are zero-terminated 8-bit strings. Buffers belong to the caller; nothing is kept of them.
 *   4. Any thread may call any function for any port at any time, the close included, unless its
 *      description says otherwise. A close ends every wait on the port at once.
 *   5. Units differ by function and are named with each: milliseconds, hundredths and tenths of a second,
 *      seconds.
 *   6. A wait that "lets messages through" handles the calling thread's window messages meanwhile
 *      (brisolt_host.h) and watches for the port's escape character and for a request to quit.
 *   7. Results marked [port] are only these: -1 bad or closed port.
 */
#ifndef BRISOLT_H
#define BRISOLT_H

#include "brisolt/capture.h"
#ifndef BRISOLT_NO_CHECKED /* its short names (CBuffer, CStatus) may be a program's own */
#include "brisolt/checked.h"
#endif
#include "brisolt/checks.h"
#include "brisolt/conversions.h"
#include "brisolt/drivers.h"
#include "brisolt/file_lists.h"
#include "brisolt/files.h"
#include "brisolt/lines.h"
#include "brisolt/logs.h"
#include "brisolt/modem.h"
#include "brisolt/notifications.h"
#include "brisolt/parameters.h"
#include "brisolt/ports.h"
#include "brisolt/progress.h"
#include "brisolt/scripting.h"
#include "brisolt/stream.h"
#include "brisolt/telephony.h"
#include "brisolt/times.h"
#include "brisolt/transfer.h"
#include "brisolt/waits.h"

#endif
