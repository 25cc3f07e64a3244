// Brings a modem into a known configuration: a fixed series of commands, each with its OK. The sequence
// advances a small step a call, or runs to its end in one.
#pragma once

#include <cstdint>

#include "port/port.h"

namespace brisolt::modem {

/// Results of a step.
inline constexpr int32_t inProgress = 5;
inline constexpr int32_t finished = 1;

/// What a step's flags say beside what is to be sent.
inline constexpr int32_t keepPortsStrings = 4; ///< the database's are not taken

struct InitRequest {
    const char* databaseFile;
    const char* modemName;
    int32_t resetFlags, initFlags, compressionFlags, flowFlags, errorControlFlags, autoAnswerFlags;
    const char* debugFile; ///< null or empty: no log
};

/// Whether the names are there and fit.
bool acceptable(const InitRequest& request) noexcept;

/// ComSetModem_Start for an acceptable request: inProgress; -1 the database is not readable; -2 the modem is
/// not in it.
int32_t startInit(Port& port, const InitRequest& request);
/// ComSetModem_Next; a cancel that was given before it is forgotten. inProgress, finished, a step's failure,
/// or -1 when the port is closed meanwhile.
int32_t stepInit(Port& port);
/// ComGetModem_State.
int32_t initState(const Port& port) noexcept;
/// ComSetModem for an acceptable request.
int32_t runInit(Port& port, const InitRequest& request);

} // namespace brisolt::modem
