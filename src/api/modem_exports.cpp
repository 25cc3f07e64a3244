// Modem commands, the initialisation of a modem, and the modem database.
#include <algorithm>

#include "api/border.h"
#include "brisolt/modem.h"
#include "modem/initialisation.h"
#include "modem/modem_commands.h"
#include "modem/modem_database.h"
#include "port/waits.h"

using namespace brisolt;
using modem::command;

namespace {

/// Whether the line took the command is not told.
template <auto Field> int32_t sendCommand(int32_t port) noexcept {
    return onPort(port, -1, [](Port& open) {
        modem::send(open, command<Field>);
        return open.ending() ? -1 : 1;
    });
}

int32_t initialise(int32_t port, const modem::InitRequest& request,
                   int32_t (*how)(Port&, const modem::InitRequest&)) noexcept {
    if (!modem::acceptable(request))
        return -1;
    return onPort(port, -1, [&](Port& open) { return how(open, request); });
}

bool complete(int32_t port, const modem::Destinations& into) noexcept {
    return validPort(port) && std::find(into.begin(), into.end(), nullptr) == into.end();
}

} // namespace

// ---- commands

BRISOLT_EXPORT int32_t ComDial(int32_t port, const char* number) {
    if (number == nullptr)
        return -1;
    return onPort(port, -1, [=](Port& open) { return modem::dial(open, number); });
}
BRISOLT_EXPORT int32_t ComDisc(int32_t port) {
    return onPort(port, -1, modem::hangUp);
}
BRISOLT_EXPORT int32_t ComRing(int32_t port) {
    return onPort(port, -1, modem::ringing);
}
BRISOLT_EXPORT int32_t ComReset(int32_t port) {
    return onPort(port, -1, [](Port& open) { return modem::send(open, command<&PortRecord::resetStr>); });
}
BRISOLT_EXPORT int32_t ComModemInit(int32_t port) {
    return sendCommand<&PortRecord::initStr>(port);
}
BRISOLT_EXPORT int32_t ComSetAns(int32_t port, int32_t on) {
    return on != 0 ? sendCommand<&PortRecord::setAAStr>(port) : sendCommand<&PortRecord::unsetAAStr>(port);
}
BRISOLT_EXPORT int32_t ComModemSetCompression_ON(int32_t port) {
    return sendCommand<&PortRecord::compressionOnStr>(port);
}
BRISOLT_EXPORT int32_t ComModemSetCompression_OFF(int32_t port) {
    return sendCommand<&PortRecord::compressionOffStr>(port);
}
BRISOLT_EXPORT int32_t ComModemSetFlowControl_OFF(int32_t port) {
    return sendCommand<&PortRecord::flowControlOffStr>(port);
}
BRISOLT_EXPORT int32_t ComModemSetFlowControl_HDWR(int32_t port) {
    return sendCommand<&PortRecord::flowControlHdwrStr>(port);
}
BRISOLT_EXPORT int32_t ComModemSetFlowControl_SOFT(int32_t port) {
    return sendCommand<&PortRecord::flowControlSoftStr>(port);
}
BRISOLT_EXPORT int32_t ComModemSetErrorControl_ON(int32_t port) {
    return sendCommand<&PortRecord::errorControlOnStr>(port);
}
BRISOLT_EXPORT int32_t ComModemSetErrorControl_OFF(int32_t port) {
    return sendCommand<&PortRecord::errorControlOffStr>(port);
}
BRISOLT_EXPORT int32_t ComModemSetErrorControl_FORCED(int32_t port) {
    return sendCommand<&PortRecord::errorControlForcedStr>(port);
}

BRISOLT_EXPORT int32_t ComSetCarrierLossProtocol(int32_t port, int32_t protocol) {
    return onPort(port, -1, [=](Port& open) {
        open.record->carrierLossProtocol = protocol;
        open.record->carrierLossState = 1;
        return 1;
    });
}
BRISOLT_EXPORT int32_t ComGetCarrierLossProtocol(int32_t port) {
    return onPort(port, -1, [](Port& open) { return open.record->carrierLossProtocol.load(); });
}
BRISOLT_EXPORT int32_t ComSetCarrierLossProtocolState(int32_t port, int32_t state) {
    return onPort(port, -1, [=](Port& open) {
        open.record->carrierLossState = state == 0 ? 0 : 1;
        return 1;
    });
}
BRISOLT_EXPORT int32_t ComGetCarrierLossProtocolState(int32_t port) {
    return onPort(port, -1, [](Port& open) { return open.record->carrierLossState.load(); });
}

// ---- initialisation

BRISOLT_EXPORT int32_t ComSetModem(int32_t port, const char* databaseFile, const char* modemName,
                                   int32_t resetFlags, int32_t initFlags, int32_t compressionFlags,
                                   int32_t flowFlags, int32_t errorControlFlags, int32_t autoAnswerFlags,
                                   const char* debugFile) {
    return initialise(port,
                      {databaseFile, modemName, resetFlags, initFlags, compressionFlags, flowFlags,
                       errorControlFlags, autoAnswerFlags, debugFile},
                      modem::runInit);
}
BRISOLT_EXPORT int32_t ComSetModem_Start(int32_t port, const char* databaseFile, const char* modemName,
                                         int32_t resetFlags, int32_t initFlags, int32_t compressionFlags,
                                         int32_t flowFlags, int32_t errorControlFlags,
                                         int32_t autoAnswerFlags, const char* debugFile) {
    return initialise(port,
                      {databaseFile, modemName, resetFlags, initFlags, compressionFlags, flowFlags,
                       errorControlFlags, autoAnswerFlags, debugFile},
                      modem::startInit);
}
BRISOLT_EXPORT int32_t ComSetModem_Next(int32_t port) {
    return onPort(port, -1, [](Port& open) { return modem::stepInit(open); });
}
BRISOLT_EXPORT int32_t ComGetModem_State(int32_t port) {
    return onPort(port, -1, modem::initState);
}

// ---- the database

// NOLINTBEGIN(readability-non-const-parameter): the caller's buffers, filled through Destinations
BRISOLT_EXPORT int32_t ComGetModem_Start(int32_t port, const char* databaseFile, char* name, char* initStr,
                                         char* remarks, char* resetStr, char* compressionOnStr,
                                         char* compressionOffStr, char* flowControlOffStr,
                                         char* flowControlHdwrStr, char* flowControlSoftStr,
                                         char* errorControlOnStr, char* errorControlOffStr,
                                         char* errorControlForcedStr) {
    modem::Destinations into{name,
                             initStr,
                             remarks,
                             resetStr,
                             compressionOnStr,
                             compressionOffStr,
                             flowControlOffStr,
                             flowControlHdwrStr,
                             flowControlSoftStr,
                             errorControlOnStr,
                             errorControlOffStr,
                             errorControlForcedStr};
    if (!complete(port, into) || databaseFile == nullptr)
        return -1;
    return modem::listing::start(port, databaseFile, into);
}
BRISOLT_EXPORT int32_t ComGetModem_Next(int32_t port, char* name, char* initStr, char* remarks,
                                        char* resetStr, char* compressionOnStr, char* compressionOffStr,
                                        char* flowControlOffStr, char* flowControlHdwrStr,
                                        char* flowControlSoftStr, char* errorControlOnStr,
                                        char* errorControlOffStr, char* errorControlForcedStr) {
    modem::Destinations into{name,
                             initStr,
                             remarks,
                             resetStr,
                             compressionOnStr,
                             compressionOffStr,
                             flowControlOffStr,
                             flowControlHdwrStr,
                             flowControlSoftStr,
                             errorControlOnStr,
                             errorControlOffStr,
                             errorControlForcedStr};
    return complete(port, into) ? modem::listing::next(port, into) : -1;
}
// NOLINTEND(readability-non-const-parameter)
BRISOLT_EXPORT int32_t ComGetModem_End(int32_t port) {
    if (!validPort(port))
        return -1;
    modem::listing::end(port);
    return 1;
}
