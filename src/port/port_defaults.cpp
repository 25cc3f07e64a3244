#include "port/port_defaults.h"

#include <cstring>

namespace brisolt {

namespace {

template <std::size_t N> void set(char (&field)[N], const char* text) noexcept {
    setText(field, static_cast<int32_t>(N), text);
}

void setModemDefaults(PortRecord& record, Opened opened) noexcept {
    bool adopted = opened == Opened::adopted;
    record.dialTimeout = 60;
    set(record.modemName, adopted ? "" : "Hayes Compatible Standard");
    set(record.dialStr, "ATDT");
    set(record.discStr, adopted ? "+++~~~ATH0|" : "ATH0|");
    set(record.resetStr, "ATZ|");
    set(record.setAAStr, "ATS0=1|");
    set(record.unsetAAStr, "ATS0=0|");
    set(record.initStr, "AT&F&C1&D2|");
    set(record.compressionOnStr, "ATS46=138|");
    set(record.compressionOffStr, "ATS46=136|");
    set(record.flowControlOffStr, "AT&K0|");
    set(record.flowControlHdwrStr, "AT&K3|");
    set(record.flowControlSoftStr, "AT&K4|");
    set(record.errorControlOnStr, "AT&Q5S36=7S48=7|");
    set(record.errorControlOffStr, "AT&Q6S36=3S48=128|");
    set(record.errorControlForcedStr, "AT&Q5S36=4S48=7|");
}

} // namespace

void setText(char* field, int32_t size, const char* text) noexcept {
    auto room = static_cast<std::size_t>(size) - 1;
    std::size_t length = text == nullptr ? 0 : strnlen(text, room);
    std::memcpy(field, text == nullptr ? "" : text, length);
    field[length] = 0;
}

// What is not named here is zero already: the record starts zero-filled.
void setDefaults(PortRecord& record, int32_t number, const char* deviceName, Opened opened) noexcept {
    record.portNumber = number;
    set(record.deviceName, deviceName);
    record.flushDelay = 1;
    record.breakTime = 25;
    record.dtrPulseTime = 100;
    record.yield = 1;
    record.writeThru = 1;
    record.scrambleKey = defaultScrambleKey;
    record.addCR = 1;
    record.threadSleep = opened == Opened::adopted ? 200U : 50U;
    setModemDefaults(record, opened);
}

} // namespace brisolt
