#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "params/profile_values.h"
#include "params/profiles.h"
#include "platform/clock.h"
#include "platform/profile.h"

namespace brisolt::profile {

namespace {

// ---- The keys, in the order in which they are written

enum class Omitted { whenStandard, never };

/// The port's number and device name.
struct PortKey {
    const char* name;
};

/// A number. `absent` is what an absent key means, `otherwise` what any value outside the range becomes; for
/// some keys these two differ. The range is unsigned: negative numbers lie above the positive ones.
struct NumberKey {
    const char* name;
    std::size_t offset; ///< of the field in the record
    Encoding encoding;
    int32_t absent;
    uint32_t lowest, highest;
    int32_t otherwise;
    Omitted omitted = Omitted::whenStandard;
};

struct Word {
    std::string_view text;
    int32_t code;
};
/// A code that is written as a word. The first word is what an absent key means, the first of a code the
/// one that is written, `otherwise` the code of any other text.
struct WordKey {
    const char* name;
    std::size_t offset;
    std::span<const Word> words;
    int32_t otherwise;
};

constexpr Word parityWords[] = {{"none", 1}, {"n", 1},    {"odd", 2}, {"o", 2},     {"even", 3},
                                {"e", 3},    {"mark", 4}, {"m", 4},   {"space", 5}, {"s", 5}};
constexpr Word stopWords[] = {{"1", 1}, {"2", 2}, {"1.5", 3}};
constexpr Word flowWords[] = {{"hardware", 0}, {"h", 0},        {"rtscts", 0}, {"software", 1},
                              {"s", 1},        {"xon/xoff", 1}, {"none", 2}};

using Key = std::variant<PortKey, NumberKey, WordKey>;
using enum Encoding;

constexpr uint32_t most = UINT32_MAX;
constexpr Key keys[] = {
    PortKey{"Port"},
    NumberKey{"Speed", offsetof(ComPortParms, baudRate), prefixed, 19200, 1, most, 9600},
    WordKey{"Parity", offsetof(ComPortParms, parityCode), parityWords, 1},
    NumberKey{"DataBits", offsetof(ComPortParms, dataBits), integer, 8, 4, 8, 8},
    WordKey{"StopBits", offsetof(ComPortParms, stopCode), stopWords, 1},
    WordKey{"FlowControl", offsetof(ComPortParms, xonXoff), flowWords, 2},
    NumberKey{"InputBuffer", offsetof(ComPortParms, rxBufSize), prefixed, 16384, 1024, 1'000'000, 16384},
    NumberKey{"OutputBuffer", offsetof(ComPortParms, txBufSize), prefixed, 16384, 1024, 1'000'000, 16384},
    NumberKey{"FlushTime", offsetof(ComPortParms, flushDelay), integer, 1, 0, 10, 1},
    NumberKey{"BreakTime", offsetof(ComPortParms, breakTime), integer, 25, 1, INT32_MAX, 20},
    NumberKey{"DTRTime", offsetof(ComPortParms, dtrPulseTime), integer, 100, 1, INT32_MAX, 10},
    NumberKey{"Yield", offsetof(ComPortParms, yield), boolean, 1, 0, 1, 1},
    NumberKey{"EscapeChar", offsetof(ComPortParms, escapeChar), character, 27, 1, 255, 27},
    NumberKey{"PortDelayInterval", offsetof(ComPortParms, portDelayInterval), integer, 10, 1, most, 10,
              Omitted::never},
    NumberKey{"SecurityCode", offsetof(ComPortParms, scrambleKey), character, 0, 0, 255, 0, Omitted::never},
    NumberKey{"SecurityState", offsetof(ComPortParms, scrambleOn), boolean, 0, 0, noBoolean, 0,
              Omitted::never},
};

/// The last keys are extras, which any program can do without: they are always written, and that nothing but
/// them could not be written is no failure.
constexpr std::size_t extras = 3;

// ---- Fields of the record, which is packed and has characters among its numbers

std::size_t widthOf(Encoding encoding) noexcept {
    return encoding == character ? 1 : sizeof(int32_t);
}
void put(ComPortParms& parms, std::size_t offset, Encoding encoding, int32_t value) noexcept {
    auto byte = static_cast<uint8_t>(value);
    std::memcpy(reinterpret_cast<char*>(&parms) + offset,
                encoding == character ? static_cast<const void*>(&byte) : &value, widthOf(encoding));
}
int32_t get(const ComPortParms& parms, std::size_t offset, Encoding encoding) noexcept {
    uint8_t byte = 0;
    int32_t value = 0;
    std::memcpy(encoding == character ? static_cast<void*>(&byte) : &value,
                reinterpret_cast<const char*>(&parms) + offset, widthOf(encoding));
    return encoding == character ? byte : value;
}

// ---- Loading: false refuses the value

using Text = std::optional<std::string_view>;

bool loadKey(const PortKey&, Text text, ComPortParms& parms) {
    constexpr std::size_t prefix = 3;
    constexpr std::size_t mostDigits = 4;
    std::string_view name = text.value_or("COM1").substr(0, sizeof parms.deviceName - 1);
    if (name.size() <= prefix && !sameWithoutCase(name.substr(0, prefix), "COM"))
        return false;
    int32_t number = 0;
    for (char digit : name.substr(prefix, mostDigits)) {
        if (digit < '0' || digit > '9')
            return false;
        number = number * 10 + (digit - '0');
    }
    std::memset(parms.deviceName, 0, sizeof parms.deviceName);
    std::memcpy(parms.deviceName, name.data(), name.size());
    parms.portNumber = number == 0 ? 1 : number;
    return true;
}

bool loadKey(const NumberKey& key, Text text, ComPortParms& parms) {
    int32_t value = decode(key.encoding, text, key.absent);
    auto magnitude = static_cast<uint32_t>(value);
    bool accepted = magnitude >= key.lowest && magnitude <= key.highest;
    put(parms, key.offset, key.encoding, accepted ? value : key.otherwise);
    return true;
}

bool loadKey(const WordKey& key, Text text, ComPortParms& parms) {
    std::string_view word = text.value_or(key.words.front().text);
    auto found = std::find_if(key.words.begin(), key.words.end(),
                              [word](const Word& known) { return sameWithoutCase(known.text, word); });
    put(parms, key.offset, integer, found == key.words.end() ? key.otherwise : found->code);
    return !word.empty();
}

// ---- Storing: no value when the field has what an absent key means

using Value = std::optional<std::string>;

Value valueOf(const PortKey&, const ComPortParms& parms, bool always) {
    if (!always && parms.portNumber == 1)
        return std::nullopt;
    return "COM" + std::to_string(parms.portNumber);
}

Value valueOf(const NumberKey& key, const ComPortParms& parms, bool always) {
    int32_t value = get(parms, key.offset, key.encoding);
    if (!always && value == key.absent && key.omitted == Omitted::whenStandard)
        return std::nullopt;
    return encode(key.encoding, value);
}

/// A code without a word is written as the one that stands for unknown words.
Value valueOf(const WordKey& key, const ComPortParms& parms, bool always) {
    int32_t code = get(parms, key.offset, integer);
    if (!always && code == key.words.front().code)
        return std::nullopt;
    auto wordOf = [&key](int32_t wanted) {
        return std::find_if(key.words.begin(), key.words.end(),
                            [wanted](const Word& word) { return word.code == wanted; });
    };
    auto found = wordOf(code);
    return std::string((found == key.words.end() ? wordOf(key.otherwise) : found)->text);
}

} // namespace

bool load(const char* file, std::string_view section, ComPortParms& parms) {
    ComPortParms loaded = parms;
    std::string text = read(file).value_or("");
    for (const Key& each : keys) {
        auto loadFrom = [&](const auto& key) { return loadKey(key, find(text, section, key.name), loaded); };
        if (!std::visit(loadFrom, each))
            return false;
    }
    loaded.openTick = clock::ticks();
    if (loaded.scrambleOn == noBoolean) // nobody knows whether the link is scrambled: not with this key
        loaded.scrambleKey = 0;
    parms = loaded;
    return true;
}

bool store(const char* file, std::string_view section, const ComPortParms& parms, bool writeAll) {
    std::vector<Change> changes;
    changes.reserve(std::size(keys));
    for (const Key& each : keys) {
        auto changeOf = [&](const auto& key) { return Change{key.name, valueOf(key, parms, writeAll)}; };
        changes.push_back(std::visit(changeOf, each));
    }
    return write(file, section, changes) ||
           write(file, section, std::span(changes).first(changes.size() - extras));
}

} // namespace brisolt::profile
