#include "params/parameter_records.h"

#include <cstddef>
#include <cstring>
#include <tuple>

#include "platform/function_words.h"
#include "platform/mutex.h"
#include "port/port_table.h"
#include "stream/line_settings.h"

namespace brisolt {

namespace {

// A program made elsewhere fills these records byte by byte, so what stands where is told here once more, by
// hand, and checked against the records.
static_assert(sizeof(ComPortParms) == 198 && sizeof(ComModemParms) == 595 && sizeof(ComAsciiParms) == 16);

/// Where a field of a record lives in the port. The records are packed, so their fields are reached by
/// offset: nothing may refer to a number that does not stand on its boundary.
template <class Field> struct Place {
    std::size_t offset;
    Field PortRecord::*field;
};

/// As wide in a record as in the port; a function's word is as wide as every word.
template <class Field> constexpr std::size_t widthOf = sizeof(Field);
template <class Result, class... Arguments>
constexpr std::size_t widthOf<Shared<Result (*)(Arguments...)>> = sizeof(uint32_t);

template <std::size_t Expected, std::size_t Offset, std::size_t Width, class Field>
constexpr Place<Field> place(Field PortRecord::*field) {
    static_assert(Offset == Expected, "the field has moved");
    static_assert(Width == widthOf<Field>, "the field has another width than the port's own");
    return {Offset, field};
}
#define AT(expected, parms, name) \
    place<expected, offsetof(parms, name), sizeof(parms::name)>(&PortRecord::name)

constexpr std::tuple portNumbers{
    AT(0, ComPortParms, portNumber),   AT(36, ComPortParms, baudRate),
    AT(40, ComPortParms, parityCode),  AT(44, ComPortParms, dataBits),
    AT(48, ComPortParms, stopCode),    AT(52, ComPortParms, xonXoff),
    AT(56, ComPortParms, reserved),    AT(60, ComPortParms, rxBufSize),
    AT(64, ComPortParms, txBufSize),   AT(68, ComPortParms, flushDelay),
    AT(72, ComPortParms, breakTime),   AT(76, ComPortParms, dtrPulseTime),
    AT(80, ComPortParms, yield),       AT(84, ComPortParms, escapeChar),
    AT(89, ComPortParms, openTick),    AT(93, ComPortParms, portDelayInterval),
    AT(97, ComPortParms, scrambleKey), AT(98, ComPortParms, scrambleOn),
};
constexpr std::tuple portTexts{AT(4, ComPortParms, deviceName)};
constexpr std::tuple portFunctions{
    AT(85, ComPortParms, escapeFunc),          AT(102, ComPortParms, breakFunc),
    AT(106, ComPortParms, carrierFunc),        AT(110, ComPortParms, dtrFunc),
    AT(114, ComPortParms, flushFunc),          AT(118, ComPortParms, flushOutBufFunc),
    AT(122, ComPortParms, readFunc),           AT(126, ComPortParms, ringFunc),
    AT(130, ComPortParms, setBaudFunc),        AT(134, ComPortParms, setParmsFunc),
    AT(138, ComPortParms, setFlowFunc),        AT(142, ComPortParms, statusFunc),
    AT(146, ComPortParms, outBufStatusFunc),   AT(150, ComPortParms, writeFunc),
    AT(154, ComPortParms, getBreakStatusFunc), AT(158, ComPortParms, getCtsStatusFunc),
    AT(162, ComPortParms, getDsrStatusFunc),   AT(166, ComPortParms, setDtrFunc),
    AT(170, ComPortParms, clearDtrFunc),       AT(174, ComPortParms, setRtsFunc),
    AT(178, ComPortParms, clearRtsFunc),       AT(182, ComPortParms, updateStatusFunc),
    AT(186, ComPortParms, onCharCallback),     AT(190, ComPortParms, anyCharCallback),
    AT(194, ComPortParms, onStringCallback),
};

constexpr std::tuple modemFields{
    AT(0, ComModemParms, dialTimeout),
    AT(4, ComModemParms, dialStr),
    AT(36, ComModemParms, discStr),
    AT(68, ComModemParms, resetStr),
    AT(100, ComModemParms, setAAStr),
    AT(132, ComModemParms, unsetAAStr),
    AT(164, ComModemParms, initStr),
    AT(264, ComModemParms, compressionOnStr),
    AT(296, ComModemParms, compressionOffStr),
    AT(328, ComModemParms, flowControlOffStr),
    AT(360, ComModemParms, flowControlHdwrStr),
    AT(392, ComModemParms, flowControlSoftStr),
    AT(424, ComModemParms, errorControlOnStr),
    AT(456, ComModemParms, errorControlOffStr),
    AT(488, ComModemParms, errorControlForcedStr),
    AT(520, ComModemParms, modemName),
};

constexpr std::tuple asciiNumbers{AT(0, ComAsciiParms, stripLF), AT(4, ComAsciiParms, addCR),
                                  AT(8, ComAsciiParms, charDelay), AT(12, ComAsciiParms, lineDelay)};
#undef AT

// ---- one field

template <class T> void copyOut(const Shared<T>& field, char* to) noexcept {
    T value = field;
    std::memcpy(to, &value, sizeof value);
}
template <class T> void copyIn(Shared<T>& field, const char* from) noexcept {
    T value;
    std::memcpy(&value, from, sizeof value);
    field = value;
}

template <std::size_t Size> void copyOut(const char (&field)[Size], char* to) noexcept {
    std::memcpy(to, field, Size);
}
template <std::size_t Size> void copyIn(char (&field)[Size], const char* from) noexcept {
    std::memcpy(field, from, Size);
    if (std::memchr(field, 0, Size) == nullptr)
        field[Size - 1] = 0;
}

/// False when there is a function and no word for it.
template <class Function> bool wordOut(const Shared<Function>& field, char* to) noexcept {
    Function function = field;
    uint32_t word = functionWords::wordOf(reinterpret_cast<functionWords::Function>(function));
    std::memcpy(to, &word, sizeof word);
    return function == nullptr || word != 0;
}
template <class Function> void wordIn(Shared<Function>& field, const char* from) noexcept {
    uint32_t word = 0;
    std::memcpy(&word, from, sizeof word);
    field = reinterpret_cast<Function>(functionWords::functionOf(word));
}

// ---- whole records

template <class... Fields, class Visit>
void forEach(const std::tuple<Place<Fields>...>& places, Visit visit) {
    std::apply([&](const auto&... each) { (visit(each), ...); }, places);
}
template <class Places, class Parms>
void allOut(const Places& places, const PortRecord& record, Parms& parms) noexcept {
    auto* bytes = reinterpret_cast<char*>(&parms);
    forEach(places, [&](const auto& at) { copyOut(record.*at.field, bytes + at.offset); });
}
template <class Places, class Parms>
void allIn(const Places& places, PortRecord& record, const Parms& parms) noexcept {
    const auto* bytes = reinterpret_cast<const char*>(&parms);
    forEach(places, [&](const auto& at) { copyIn(record.*at.field, bytes + at.offset); });
}

} // namespace

int32_t getPortParms(Port& port, ComPortParms& parms) {
    ComPortParms copy{};
    const PortRecord& record = *port.record;
    allOut(portNumbers, record, copy);
    {
        MutexLock guard(port.lineMutex);
        allOut(portTexts, record, copy);
    }
    bool whole = true;
    forEach(portFunctions, [&](const auto& at) {
        whole = wordOut(record.*at.field, reinterpret_cast<char*>(&copy) + at.offset) && whole;
    });
    if (!whole)
        return -1;
    parms = copy;
    return 1;
}

void storePortParms(Port& port, const ComPortParms& parms) {
    PortRecord& record = *port.record;
    allIn(portNumbers, record, parms);
    {
        MutexLock guard(port.lineMutex);
        allIn(portTexts, record, parms);
    }
    forEach(portFunctions, [&](const auto& at) {
        wordIn(record.*at.field, reinterpret_cast<const char*>(&parms) + at.offset);
    });
    port.events.wakeAll(); // waits look at their conditions again
}

int32_t setPortNumber(Port& port, Shared<int32_t> PortRecord::*field, int32_t value) {
    port.record->*field = value;
    port.events.wakeAll();
    applyFraming(port);
    return 1;
}

// The modem commands read their strings under the port's lock.
int32_t getModemParms(Port& port, ComModemParms& parms) {
    HeldLock lock(port);
    allOut(modemFields, *port.record, parms);
    return 1;
}

int32_t setModemParms(Port& port, const ComModemParms& parms) {
    HeldLock lock(port);
    allIn(modemFields, *port.record, parms);
    return 1;
}

int32_t getAsciiParms(Port& port, ComAsciiParms& parms) {
    allOut(asciiNumbers, *port.record, parms);
    return 1;
}

int32_t setAsciiParms(Port& port, const ComAsciiParms& parms) {
    allIn(asciiNumbers, *port.record, parms);
    return 1;
}

} // namespace brisolt
