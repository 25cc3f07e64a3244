#include "params/parameter_records.h"

#include <cstddef>
#include <cstring>
#include <mutex>
#include <tuple>
#include <type_traits>

#include "platform/function_words.h"
#include "port/driver_functions.h"
#include "port/port_table.h"

namespace brisolt {

namespace {

static_assert(sizeof(ComPortParms) == 198 && sizeof(ComModemParms) == 595 && sizeof(ComAsciiParms) == 16);
static_assert(offsetof(ComPortParms, baudRate) == 36 && offsetof(ComPortParms, escapeChar) == 84 &&
              offsetof(ComPortParms, escapeFunc) == 85 && offsetof(ComPortParms, scrambleKey) == 97 &&
              offsetof(ComPortParms, breakFunc) == 102 && offsetof(ComPortParms, onStringCallback) == 194);
static_assert(offsetof(ComModemParms, initStr) == 164 && offsetof(ComModemParms, modemName) == 520);

/// Where a field of a record lives in the port. The records are packed, so their fields are reached by
/// offset: nothing may refer to a number that does not stand on its boundary.
template <class Field> struct Place {
    std::size_t offset;
    Field PortRecord::*field;
};
template <class Field> constexpr Place<Field> place(std::size_t offset, Field PortRecord::*field) {
    return {offset, field};
}

constexpr std::tuple portNumbers{
    place(offsetof(ComPortParms, portNumber), &PortRecord::portNumber),
    place(offsetof(ComPortParms, baudRate), &PortRecord::baudRate),
    place(offsetof(ComPortParms, parityCode), &PortRecord::parityCode),
    place(offsetof(ComPortParms, dataBits), &PortRecord::dataBits),
    place(offsetof(ComPortParms, stopCode), &PortRecord::stopCode),
    place(offsetof(ComPortParms, xonXoff), &PortRecord::xonXoff),
    place(offsetof(ComPortParms, reserved), &PortRecord::reserved),
    place(offsetof(ComPortParms, rxBufSize), &PortRecord::rxBufSize),
    place(offsetof(ComPortParms, txBufSize), &PortRecord::txBufSize),
    place(offsetof(ComPortParms, flushDelay), &PortRecord::flushDelay),
    place(offsetof(ComPortParms, breakTime), &PortRecord::breakTime),
    place(offsetof(ComPortParms, dtrPulseTime), &PortRecord::dtrPulseTime),
    place(offsetof(ComPortParms, yield), &PortRecord::yield),
    place(offsetof(ComPortParms, escapeChar), &PortRecord::escapeChar),
    place(offsetof(ComPortParms, openTick), &PortRecord::openTick),
    place(offsetof(ComPortParms, portDelayInterval), &PortRecord::portDelayInterval),
    place(offsetof(ComPortParms, scrambleKey), &PortRecord::scrambleKey),
    place(offsetof(ComPortParms, scrambleOn), &PortRecord::scrambleOn),
};
constexpr std::tuple portTexts{place(offsetof(ComPortParms, deviceName), &PortRecord::deviceName)};

constexpr std::tuple modemFields{
    place(offsetof(ComModemParms, dialTimeout), &PortRecord::dialTimeout),
    place(offsetof(ComModemParms, dialStr), &PortRecord::dialStr),
    place(offsetof(ComModemParms, discStr), &PortRecord::discStr),
    place(offsetof(ComModemParms, resetStr), &PortRecord::resetStr),
    place(offsetof(ComModemParms, setAAStr), &PortRecord::setAAStr),
    place(offsetof(ComModemParms, unsetAAStr), &PortRecord::unsetAAStr),
    place(offsetof(ComModemParms, initStr), &PortRecord::initStr),
    place(offsetof(ComModemParms, compressionOnStr), &PortRecord::compressionOnStr),
    place(offsetof(ComModemParms, compressionOffStr), &PortRecord::compressionOffStr),
    place(offsetof(ComModemParms, flowControlOffStr), &PortRecord::flowControlOffStr),
    place(offsetof(ComModemParms, flowControlHdwrStr), &PortRecord::flowControlHdwrStr),
    place(offsetof(ComModemParms, flowControlSoftStr), &PortRecord::flowControlSoftStr),
    place(offsetof(ComModemParms, errorControlOnStr), &PortRecord::errorControlOnStr),
    place(offsetof(ComModemParms, errorControlOffStr), &PortRecord::errorControlOffStr),
    place(offsetof(ComModemParms, errorControlForcedStr), &PortRecord::errorControlForcedStr),
    place(offsetof(ComModemParms, modemName), &PortRecord::modemName),
};

constexpr std::tuple asciiNumbers{
    place(offsetof(ComAsciiParms, stripLF), &PortRecord::stripLF),
    place(offsetof(ComAsciiParms, addCR), &PortRecord::addCR),
    place(offsetof(ComAsciiParms, charDelay), &PortRecord::charDelay),
    place(offsetof(ComAsciiParms, lineDelay), &PortRecord::lineDelay),
};

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

template <class... Fields, class Parms>
void allOut(const std::tuple<Place<Fields>...>& places, const PortRecord& record, Parms& parms) noexcept {
    auto* bytes = reinterpret_cast<char*>(&parms);
    std::apply([&](const auto&... each) { (copyOut(record.*each.field, bytes + each.offset), ...); }, places);
}
template <class... Fields, class Parms>
void allIn(const std::tuple<Place<Fields>...>& places, PortRecord& record, const Parms& parms) noexcept {
    const auto* bytes = reinterpret_cast<const char*>(&parms);
    std::apply([&](const auto&... each) { (copyIn(record.*each.field, bytes + each.offset), ...); }, places);
}

constexpr std::size_t functionOffset(std::size_t index) noexcept {
    return offsetof(ComPortParms, breakFunc) + index * sizeof(uint32_t);
}
static_assert(functionOffset(functionCount) == sizeof(ComPortParms));

} // namespace

int32_t getPortParms(Port& port, ComPortParms& parms) {
    ComPortParms copy{};
    auto* bytes = reinterpret_cast<char*>(&copy);
    const PortRecord& record = *port.record;
    allOut(portNumbers, record, copy);
    {
        std::scoped_lock guard(port.lineMutex);
        allOut(portTexts, record, copy);
    }
    bool whole = wordOut(record.escapeFunc, bytes + offsetof(ComPortParms, escapeFunc));
    forEachFunction(record, [&](const auto& function, std::size_t index) {
        whole = wordOut(function, bytes + functionOffset(index)) && whole;
    });
    if (!whole)
        return -1;
    parms = copy;
    return 1;
}

void storePortParms(Port& port, const ComPortParms& parms) {
    const auto* bytes = reinterpret_cast<const char*>(&parms);
    PortRecord& record = *port.record;
    allIn(portNumbers, record, parms);
    {
        std::scoped_lock guard(port.lineMutex);
        allIn(portTexts, record, parms);
    }
    wordIn(record.escapeFunc, bytes + offsetof(ComPortParms, escapeFunc));
    forEachFunction(
        record, [&](auto& function, std::size_t index) { wordIn(function, bytes + functionOffset(index)); });
    port.events.wakeAll(); // waits look at their conditions again
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
