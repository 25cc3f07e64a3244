// The com-port option of telnet: the settings of a serial port at the far end, what it has answered, and what its
// lines do. No bytes are moved here and nobody waits.
//
// An answer does not say which request it is for, and some requests are never answered. So it is counted how many
// are due: one that differs from what was asked last is taken for a late one while an earlier one is due.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>

#include "brisolt_host.h"

namespace brisolt::network {

/// What can be set, in the order in which it is asked for.
enum Setting : uint8_t { flowOut, flowIn, rate, dataBits, parity, stopBits };
inline constexpr std::size_t settingCount = 6;
inline constexpr uint32_t bitOf(Setting setting) noexcept {
    return 1U << setting;
}
using SettingBits = uint32_t;
inline constexpr SettingBits flowSettings = bitOf(flowOut) | bitOf(flowIn);

class ComPort {
public:
    enum Command : uint8_t {
        setRate = 1,
        setDataBits = 2,
        setParity = 3,
        setStopBits = 4,
        setControl = 5,
        notifyLineState = 6,
        notifyModemState = 7,
        suspend = 8,
        resume = 9,
        setLineMask = 10,
        setModemMask = 11,
        purgeData = 12,
    };
    static constexpr uint8_t fromServer = 100; ///< is added to the command of an answer

    /// The values of a line state, by Setting. False when the option has none for it; `error` then says what.
    using Values = std::array<uint32_t, settingCount>;
    static bool valuesOf(const ComHostLineState& state, Values& values, std::string& error);
    /// What has been told of the far end goes into the state; the rest stays.
    void show(ComHostLineState& state) const noexcept;

    /// Those of which is not known that they are so.
    SettingBits differing(const Values& values) const noexcept;
    /// A rate has been agreed on.
    bool isSet() const noexcept { return settings_[rate].known; }
    /// Some flow control is known to be on.
    bool flows() const noexcept { return settings_[flowOut].known && settings_[flowOut].value != noFlow; }
    static constexpr uint32_t noFlow = 1;

    struct Message {
        uint8_t command;
        std::array<uint8_t, 4> bytes;
        std::size_t size;
        std::span<const uint8_t> value() const noexcept { return std::span(bytes).first(size); }
    };
    /// The request for a value. From now on an answer is waited for.
    Message ask(Setting setting, uint32_t value) noexcept;
    static Message controlFor(uint32_t lineFunction) noexcept; ///< COM_HOST_LINE_...; size 0: there is none

    /// Those that are neither answered nor refused.
    SettingBits due() const noexcept { return due_; }
    SettingBits refused() const noexcept { return refused_; }
    /// Nobody waits any more: what is still due may come late, or never. Flow control counts as it was asked for.
    void giveUp() noexcept;
    std::string describe(Setting setting) const; ///< "baud rate 9600", as it was asked for
    std::string describeAnswer(Setting setting) const;

    /// What came of a message.
    struct News {
        bool counters = false; ///< one has moved
        bool answered = false;
        bool flow = false; ///< we are held off, or no more
    };
    News hear(std::span<const uint8_t> message) noexcept;

    const ComHostCounters& counters() const noexcept { return counters_; }
    uint32_t modemLines() const noexcept { return modemLines_; }
    bool suspended() const noexcept { return suspended_; }
    uint32_t takeErrors() noexcept { return std::exchange(errors_, 0); }
    bool hasErrors() const noexcept { return errors_ != 0; }

private:
    struct State {
        bool known = false;
        uint32_t value = 0;
        uint32_t asked = 0;
        uint32_t owed = 0; ///< requests that no answer has come for yet
    };
    bool answer(Setting setting, uint32_t value) noexcept;
    void hearLineState(uint8_t state) noexcept;
    void hearModemState(uint8_t state) noexcept;

    std::array<State, settingCount> settings_{};
    SettingBits due_ = 0;
    SettingBits refused_ = 0;
    ComHostCounters counters_{};
    uint32_t errors_ = 0; ///< COM_HOST_ERROR_..., since they were last taken
    uint32_t modemLines_ = 0;
    bool modemKnown_ = false;
    bool suspended_ = false;
};

} // namespace brisolt::network
