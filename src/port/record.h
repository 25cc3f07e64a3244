// The two blocks of an open port: its record (configuration, positions, settings of every subsystem), which is
// small and in use from the open on, and its work area (buffers and names of scripting, logs, captures and the
// file utilities), which is large and costs memory only where it is used. Both start zero-filled; what is not set
// by an open is zero. Fields that are read without the port's lock are Shared.
#pragma once

#include <cstdint>

#include "brisolt/progress.h"
#include "brisolt_host.h"
#include "port/shared.h"

namespace brisolt {

inline constexpr int32_t nameSize = 260; ///< a path field, terminator included
inline constexpr int32_t bufWriteSize = 64000;
inline constexpr uint8_t defaultScrambleKey = 0x3D;
inline constexpr int32_t statusCarrierLatched = 0x20;
inline constexpr int32_t statusBreakSeen = 0x40;

/// Values of ioMode.
inline constexpr int32_t ioDirect = 1;   ///< no thread: reads, writes and status calls run rounds themselves
inline constexpr int32_t ioThreaded = 2; ///< a thread of the port's own runs the rounds

/// The file-string list of a port: a value and a name an entry, each a tracked block.
struct FileStringTable {
    static constexpr int32_t room = 1000;
    uint32_t values[room];
    char* names[room];
};

struct PortRecord {
    // ---- what every read, write and round looks at stands together: whoever serves many ports finds each
    // one's cold, and pays for every line of memory
    Shared<int32_t> ioMode;
    Shared<uint32_t> threadSleep; ///< the pace of rounds, milliseconds
    Shared<int32_t> suspended;
    Shared<int32_t> writeThru;
    Shared<int32_t> maxWriteChars;
    Shared<int32_t> anyCharWindow;
    Shared<int32_t> onCharWindow;
    Shared<int32_t> onStringWindow;
    Shared<uint32_t> anyCharThread;
    Shared<uint32_t> onCharThread;
    Shared<uint32_t> onStringThread;
    Shared<int32_t> replaceEnabled;
    Shared<int32_t> scrambleOn;
    Shared<uint32_t> lineErrors;
    Shared<int32_t> rxTail; ///< the ring positions are written under portLock
    Shared<int32_t> rxHead;
    Shared<int32_t> txTail;
    Shared<int32_t> txHead;
    Shared<uint8_t> scrambleKey;
    Shared<uint8_t> replaceFrom;
    Shared<uint8_t> replaceTo;
    Shared<uint8_t> notifyChar;
    Shared<ComEscapeFunc> escapeFunc;
    Shared<ComReadFunc> readFunc;
    Shared<ComWriteFunc> writeFunc;
    Shared<ComPortFunc> statusFunc;
    Shared<ComPortFunc> anyCharCallback;
    Shared<ComPortFunc> onCharCallback;
    Shared<ComPortFunc> onStringCallback;

    Shared<int32_t> carrierLossProtocol;
    Shared<int32_t> carrierLossState;

    // ---- the port's parameters
    Shared<int32_t> portNumber;
    char deviceName[32]; ///< under lineMutex of the port
    Shared<int32_t> baudRate;
    Shared<int32_t> parityCode;
    Shared<int32_t> dataBits;
    Shared<int32_t> stopCode;
    Shared<int32_t> xonXoff;
    Shared<int32_t> reserved;  ///< the caller's own
    Shared<int32_t> rxBufSize; ///< what a caller sees; the rings know their own size
    Shared<int32_t> txBufSize;
    Shared<int32_t> flushDelay;   ///< seconds
    Shared<int32_t> breakTime;    ///< hundredths of a second
    Shared<int32_t> dtrPulseTime; ///< hundredths of a second
    Shared<int32_t> yield;
    Shared<uint8_t> escapeChar;
    Shared<uint32_t> openTick;
    Shared<int32_t> portDelayInterval;

    // ---- driver functions that replace primitives
    Shared<ComPortFunc> breakFunc;
    Shared<ComPortFunc> carrierFunc;
    Shared<ComPortFunc> dtrFunc;
    Shared<ComPortFunc> flushFunc;
    Shared<ComPortFunc> flushOutBufFunc;
    Shared<ComPortFunc> ringFunc;
    Shared<ComPortValueFunc> setBaudFunc;
    Shared<ComSetParmsFunc> setParmsFunc;
    Shared<ComPortValueFunc> setFlowFunc;
    Shared<ComPortFunc> outBufStatusFunc;
    Shared<ComPortFunc> getBreakStatusFunc;
    Shared<ComPortFunc> getCtsStatusFunc;
    Shared<ComPortFunc> getDsrStatusFunc;
    Shared<ComPortFunc> setDtrFunc;
    Shared<ComPortFunc> clearDtrFunc;
    Shared<ComPortFunc> setRtsFunc;
    Shared<ComPortFunc> clearRtsFunc;
    Shared<ComPortFunc> updateStatusFunc;

    // ---- the modem's parameters
    Shared<int32_t> dialTimeout; ///< seconds
    char dialStr[32];
    char discStr[32];
    char resetStr[32];
    char setAAStr[32];
    char unsetAAStr[32];
    char initStr[100];
    char compressionOnStr[32];
    char compressionOffStr[32];
    char flowControlOffStr[32];
    char flowControlHdwrStr[32];
    char flowControlSoftStr[32];
    char errorControlOnStr[32];
    char errorControlOffStr[32];
    char errorControlForcedStr[32];
    char modemName[75];

    // ---- text transfer parameters
    Shared<int32_t> stripLF;
    Shared<int32_t> addCR;
    Shared<int32_t> charDelay;
    Shared<int32_t> lineDelay;

    // ---- the device
    Shared<int32_t> device;     ///< the handle shown to callers
    ComHostLineState lineState; ///< under lineMutex of the port

    Shared<int32_t> fileStringCount;
    FileStringTable* fileStringTable; ///< both under filesMutex of the port
    Shared<int32_t> statusFlags;

    // ---- capture on failure: under captureMutex of the port
    Shared<int32_t> captureActive;
    int32_t captureStart;
    int32_t captureWritePos;
    int32_t captureSize;
    char* captureBuffer;
    uint64_t captureAdded; ///< bytes in all, so that a save knows what came since

    // ---- the I/O thread
    Shared<uint32_t> threadStartTick;
    Shared<uint32_t> ioThread; ///< its thread identifier; 0 none
    Shared<uint32_t> suspendUntil;
    Shared<int32_t> cancelFlag;
};

/// Where the port's modem initialisation stands; the step flags are as its caller gave them.
struct ModemInit {
    Shared<int32_t> state; ///< 0: there was none yet
    Shared<int32_t> retryCount;
    Shared<uint32_t> deadline; ///< a tick count
    Shared<int32_t> resetFlags;
    Shared<int32_t> initFlags;
    Shared<int32_t> compressionFlags;
    Shared<int32_t> flowFlags;
    Shared<int32_t> errorControlFlags;
    Shared<int32_t> autoAnswerFlags;
};

struct PortWorkArea {
    ComShowRecord show; ///< under showMutex of the port

    int32_t verifyExpect1; ///< this and the next four: under filesMutex of the port
    int32_t verifyExpect2;
    int32_t verifyReserved;
    int32_t verifyState;
    int32_t verifyCount;
    char matchBuf[10000];
    Shared<int32_t> matchLen;
    char stimList[20][40];
    char respList[20][40];
    int32_t stimCount;
    int32_t respCount;
    ModemInit modemInit;
    Shared<int32_t> callersWord; ///< of CBuffer; nobody reads it

    uint8_t txStage[4096];            ///< the block that is being written to the device
    char portDebugFileName[nameSize]; ///< the four log names are under logMutex of the port
    char protocolDebugFileName[nameSize];
    char debugFileName[nameSize];
    char verifyFileName[nameSize];
    char notifyString[300];
    char captureDir[nameSize]; ///< under captureMutex of the port

    // ---- the buffered writer: its user is named by fileWriter of the port
    int32_t bufWriteCount;
    char bufWriteFileName[nameSize];
    uint8_t bufWriteData[bufWriteSize];
};

} // namespace brisolt
