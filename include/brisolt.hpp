/*
 * brisolt.hpp: ports for C++17 and later. Header only, over the C interface.
 *
 *     using namespace std::chrono_literals;
 *     brisolt::port meter("/dev/ttyUSB0?dtr=off", 9600);
 *     meter.write("*IDN?\r\n", 1s);
 *     std::cout << meter.read_until('\n', 1s);
 *
 * Conventions
 *   1. A failure is a std::system_error whose code is of brisolt::category(); compare it with brisolt::errc or with
 *      std::errc. Each call that can fail has a second form that takes a std::error_code last and throws nothing but
 *      std::bad_alloc, where it returns strings. That a time is over is no failure.
 *   2. Times are any std::chrono duration, or brisolt::forever. They are rounded up to milliseconds; a negative one
 *      (a deadline that has passed) is 0: what can be done at once.
 *   3. Bytes are any contiguous sequence of byte-sized elements (std::string, std::array, std::vector, std::span, a
 *      C array), or a pointer and a count. Of a C string or an array of char that is written, what is before its zero
 *      counts.
 *   4. Any thread may call any function of a port at any time, the close included, which ends every wait on it. Only
 *      assignment, move and destruction need that nobody else is using the object. (A call on a closed port is
 *      refused; that holds for a call that begins at the very moment of the close, unless its number has been given to
 *      a new port by then.)
 *   5. A member function makes one call of the C interface unless its description says otherwise. For all that has no
 *      member there are brisolt.h and number().
 */
#ifndef BRISOLT_HPP
#define BRISOLT_HPP

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <limits>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <type_traits>
#include <utility>
#include <vector>

// Not brisolt.h: whether a program has its short names is for the program to say.
#include "brisolt/lines.h"
#include "brisolt/ports.h"
#include "brisolt/stream.h"
#include "brisolt/waits.h"
#include "brisolt_host.h"

namespace brisolt {
// Its own names for the linker: a program may link the library statically, whose inside is in this namespace, too.
inline namespace cpp {

// ---- Errors ------------------------------------------------------------------------------------------

/// What went wrong: the number of the C interface without its sign.
enum class errc {
    closed = 1,         ///< the port is closed, or an argument is bad
    gone = 2,           ///< the device is gone
    cancelled = 3,      ///< port::cancel
    refused = 4,        ///< the device cannot or will not
    interrupted = 5,    ///< a signal handler ran on the calling thread
    not_opened = 25,    ///< the device was not opened, or an option is wrong
    no_number = 28,     ///< no port number is free
    bad_parity = 33,    ///< the framing's parity
    bad_data_bits = 34, ///< the framing's data bits
    bad_stop_bits = 35, ///< the framing's stop bits, or a text that is no framing
    line_refused = 36   ///< the device refuses rate or framing
};

namespace detail {

class codes final : public std::error_category {
public:
    const char *name() const noexcept override { return "brisolt"; }

    std::string message(int value) const override {
        switch (static_cast<errc>(value)) {
        case errc::closed: return "the port is closed, or an argument is bad";
        case errc::gone: return "the device is gone";
        case errc::cancelled: return "cancelled";
        case errc::refused: return "the device cannot or will not";
        case errc::interrupted: return "interrupted by a signal";
        case errc::not_opened: return "the device was not opened";
        case errc::no_number: return "no port number is free";
        case errc::bad_parity: return "no such parity";
        case errc::bad_data_bits: return "no such number of data bits";
        case errc::bad_stop_bits: return "no such stop bits";
        case errc::line_refused: return "the device refuses the line settings";
        }
        return "failure " + std::to_string(value);
    }

    std::error_condition default_error_condition(int value) const noexcept override {
        switch (static_cast<errc>(value)) {
        case errc::closed: return std::errc::bad_file_descriptor;
        case errc::gone: return std::errc::no_such_device;
        case errc::cancelled: return std::errc::operation_canceled;
        case errc::refused: return std::errc::not_supported;
        case errc::interrupted: return std::errc::interrupted;
        case errc::bad_parity:
        case errc::bad_data_bits:
        case errc::bad_stop_bits: return std::errc::invalid_argument;
        default: return {value, *this};
        }
    }
};

} // namespace detail

inline const std::error_category &category() noexcept {
    static const detail::codes only;
    return only;
}

inline std::error_code make_error_code(errc error) noexcept {
    return {static_cast<int>(error), category()};
}

/// The calling thread's last failure of the host in words; empty when there was none.
inline std::string error_text() {
    char text[2048];
    return ComHostGetErrorText(text, static_cast<std::int32_t>(sizeof text)) > 0 ? text : "";
}

namespace detail {

/// The result of a C call; a failure's code is in `error`.
inline std::int32_t result(std::int32_t value, std::error_code &error) noexcept {
    if (value < 0)
        error.assign(-value, category());
    else
        error.clear();
    return value < 0 ? 0 : value;
}

[[noreturn]] inline void fail(const std::error_code &error, const char *call, bool explained) {
    std::string what = explained && error != make_error_code(errc::closed) ? error_text() : std::string();
    if (what.empty())
        what = call;
    throw std::system_error(error, what);
}

/// Throws a failure, with the host's words for it where the call has left some.
inline void check(const std::error_code &error, const char *call, bool explained = false) {
    if (error)
        fail(error, call, explained);
}

} // namespace detail

// ---- Times and bytes -----------------------------------------------------------------------------------

/// How long a call may wait: any std::chrono duration, or brisolt::forever.
class wait_time {
public:
    /// Any duration.
    template <class Rep, class Period>
    constexpr wait_time(std::chrono::duration<Rep, Period> duration) noexcept
        : milliseconds_(rounded(duration)) {}
    /// As the C interface takes it; -1: no limit.
    constexpr std::int32_t milliseconds() const noexcept { return milliseconds_; }
    /// brisolt::forever.
    static constexpr wait_time no_limit() noexcept { return wait_time(); }

private:
    constexpr wait_time() noexcept = default;

    template <class Rep, class Period>
    static constexpr std::int32_t rounded(std::chrono::duration<Rep, Period> duration) noexcept {
        using most = std::chrono::duration<std::int32_t, std::milli>;
        if (!(duration > duration.zero())) // also what is not a number
            return 0;
        // In floating point nothing overflows, whatever the unit.
        const std::chrono::duration<double, std::milli> real = duration;
        if (real >= std::chrono::duration<double, std::milli>(most::max()))
            return -1; // weeks
        const auto whole = static_cast<std::int32_t>(real.count());
        return whole < real.count() ? whole + 1 : whole;
    }

    std::int32_t milliseconds_ = -1;
};

inline constexpr wait_time forever = wait_time::no_limit();

namespace detail {

template <class Bytes> using element = std::remove_pointer_t<decltype(std::data(std::declval<Bytes &>()))>;

template <std::size_t Size> std::string_view before_zero(const char (&text)[Size]) noexcept {
    const std::string_view all(text, Size);
    return all.substr(0, all.find('\0'));
}

template <class Bytes, class = void> struct is_bytes : std::false_type {};
template <class Bytes>
struct is_bytes<Bytes, std::void_t<element<Bytes>, decltype(std::size(std::declval<Bytes &>()))>>
    : std::bool_constant<sizeof(element<Bytes>) == 1 && std::is_trivially_copyable_v<element<Bytes>>> {};

template <class Bytes, bool = is_bytes<Bytes>::value> struct is_room : std::false_type {};
template <class Bytes> struct is_room<Bytes, true> : std::bool_constant<!std::is_const_v<element<Bytes>>> {};

/// What is left of a time.
class deadline {
public:
    explicit deadline(wait_time time) noexcept
        : limited_(time.milliseconds() >= 0),
          end_(clock::now() + std::chrono::milliseconds(limited_ ? time.milliseconds() : 0)) {}
    wait_time left() const noexcept { return limited_ ? wait_time(end_ - clock::now()) : forever; }

private:
    using clock = std::chrono::steady_clock;
    bool limited_;
    clock::time_point end_;
};

/// A count as the C interface takes it: of more than 2 GB the first 2 GB.
constexpr std::int32_t count(std::size_t size) noexcept {
    constexpr std::size_t most = std::numeric_limits<std::int32_t>::max();
    return static_cast<std::int32_t>(size < most ? size : most);
}

} // namespace detail

// ---- What is wanted of a device ------------------------------------------------------------------------

enum class flow : std::int32_t {
    as_it_is = -1, ///< for set_line
    rts_cts = COM_FLOW_RTS_CTS,
    xon_xoff = COM_FLOW_XON_XOFF,
    none = COM_FLOW_NONE,
    dtr_dsr = COM_FLOW_DTR_DSR,
    rts_cts_dtr_dsr = COM_FLOW_RTS_CTS_DTR_DSR,
    xon_xoff_dtr_dsr = COM_FLOW_XON_XOFF_DTR_DSR
};

/// What an open does to DTR or RTS.
enum class at_open { on, off, leave };
enum class rs485_mode { off, driver, rts };
enum class resistor { leave, on, off };

/// What a path may tell with its options (brisolt/host_open.h describes each), as fields; the defaults are those of
/// a path without options.
struct options {
    std::int32_t baud_rate = 9600;
    std::string framing = "8N1";
    brisolt::flow flow = brisolt::flow::none;
    at_open dtr = at_open::on;
    at_open rts = at_open::on;
    bool leave_lines_at_close = false; ///< DTR and RTS stay as they are, so that a board is not reset
    bool exclusive = true;
    bool restore = true; ///< the settings that the device had come back at the close
    bool low_latency = false;
    rs485_mode rs485 = rs485_mode::off;
    bool rs485_rts_high = true; ///< the level of RTS while sending
    std::chrono::milliseconds rs485_before{0}, rs485_after{0};
    bool rs485_echo = false;
    resistor rs485_termination = resistor::leave;
    bool marks = false;               ///< errors and breaks stand in the stream
    bool keep = false;                ///< a device that went is waited for
    std::chrono::seconds keep_for{0}; ///< at most so long; 0: no limit
    std::string more = {};            ///< others as text, such as "paced=yes"

    /// All that is not as it is by default, as the text behind a path's "?".
    std::string text() const {
        std::string all;
        const auto add = [&all](bool wanted, const char *key, const std::string &value) {
            if (wanted)
                all += (all.empty() ? "" : "&") + std::string(key) + '=' + value;
        };
        static constexpr const char *levels[] = {"on", "off", "leave"};
        static constexpr const char *modes[] = {"off", "driver", "rts"};
        static constexpr const char *resistors[] = {"leave", "on", "off"};
        add(dtr != at_open::on, "dtr", levels[static_cast<int>(dtr)]);
        add(rts != at_open::on, "rts", levels[static_cast<int>(rts)]);
        add(leave_lines_at_close, "close", "leave");
        add(!exclusive, "exclusive", "no");
        add(!restore, "restore", "no");
        add(low_latency, "low-latency", "on");
        add(rs485 != rs485_mode::off, "rs485", modes[static_cast<int>(rs485)]);
        add(!rs485_rts_high, "rs485-rts", "low");
        add(rs485_before.count() != 0, "rs485-before", std::to_string(rs485_before.count()));
        add(rs485_after.count() != 0, "rs485-after", std::to_string(rs485_after.count()));
        add(rs485_echo, "rs485-echo", "yes");
        add(rs485_termination != resistor::leave, "rs485-termination",
            resistors[static_cast<int>(rs485_termination)]);
        add(marks, "marks", "yes");
        add(keep, "keep", keep_for.count() != 0 ? std::to_string(keep_for.count()) : "yes");
        if (!more.empty())
            all += (all.empty() ? "" : "&") + more;
        return all;
    }

    /// A path with these options behind those that it has.
    std::string with(std::string path) const {
        const std::string all = text();
        if (all.empty())
            return path;
        const std::size_t mark = path.find('?');
        if (mark == std::string::npos)
            path += '?';
        else if (mark + 1 < path.size() && path.back() != '&')
            path += '&';
        return path + all;
    }
};

// ---- What is known of a port ---------------------------------------------------------------------------

/// Things that happen to a port; they are combined with |.
enum class event : std::uint32_t {
    none = 0,
    cts = COM_HOST_EVENT_CTS,
    dsr = COM_HOST_EVENT_DSR,
    carrier = COM_HOST_EVENT_CARRIER,
    ring = COM_HOST_EVENT_RING,
    break_seen = COM_HOST_EVENT_BREAK,
    error = COM_HOST_EVENT_ERROR, ///< framing, parity, overrun, overflow
    gone = COM_HOST_EVENT_GONE,
    back = COM_HOST_EVENT_BACK
};
constexpr event operator|(event a, event b) noexcept {
    return static_cast<event>(static_cast<std::uint32_t>(a) | static_cast<std::uint32_t>(b));
}
constexpr event operator&(event a, event b) noexcept {
    return static_cast<event>(static_cast<std::uint32_t>(a) & static_cast<std::uint32_t>(b));
}
/// Whether any of `wanted` is among `events`.
constexpr bool any(event events, event wanted) noexcept {
    return (events & wanted) != event::none;
}

/// How often things have happened since the open.
struct counters : ComHostCounters {
    counters() noexcept : ComHostCounters() { size = sizeof(ComHostCounters); }
};

/// How a line is framed and held off.
struct line_state : ComHostLineState {
    line_state() noexcept : ComHostLineState() { size = sizeof(ComHostLineState); }

    /// "8N1" and its like.
    std::string framing() const {
        static constexpr const char *stops[] = {"1", "1.5", "2"};
        const char parities[] = "NOEMS";
        return std::to_string(dataBits) + (parity < 5 ? parities[parity] : '?') +
               (stopBits < 3 ? stops[stopBits] : "?");
    }
};

/// The inputs as they are, and the outputs as the library has set them.
struct modem_lines {
    bool cts = false, dsr = false, ring = false, carrier = false, dtr = false, rts = false;
};

enum class device_state {
    closed = 0,
    there = COM_HOST_DEVICE_THERE,
    gone = COM_HOST_DEVICE_GONE,
    sought = COM_HOST_DEVICE_SOUGHT ///< gone, and being looked for
};

// ---- The port --------------------------------------------------------------------------------------------

/// An open port, or none.
class port {
public:
    /// None.
    port() noexcept = default;

    /// Opens a path (with options, brisolt/host_open.h), ready for use: nothing is lost, bytes move at once, no flow
    /// control. The message of a failure has the host's reason.
    explicit port(const std::string &path, std::int32_t baud_rate = 9600,
                  const std::string &framing = "8N1") {
        std::error_code error;
        open(path, baud_rate, framing, error);
        detail::check(error, "open", true);
    }
    port(const std::string &path, std::int32_t baud_rate, const std::string &framing,
         std::error_code &error) noexcept {
        open(path, baud_rate, framing, error);
    }
    /// Opens a path with options as fields, of which a flow control other than none is one more call.
    port(const std::string &path, const options &wanted) {
        std::error_code error;
        open(path, wanted, error);
        detail::check(error, "open", true);
    }
    port(const std::string &path, const options &wanted, std::error_code &error) {
        open(path, wanted, error);
    }

    /// Takes over a port that was opened with the C interface, whichever way.
    static port adopt(std::int32_t number) noexcept {
        port taken;
        taken.number_ = number;
        return taken;
    }

    /// Takes the port over from another object, which has none then.
    port(port &&other) noexcept : number_(other.release()) {}
    /// The same; a port that this object has is closed first.
    port &operator=(port &&other) noexcept {
        if (this != &other) {
            close();
            number_ = other.release();
        }
        return *this;
    }
    /// A port has one owner.
    port(const port &) = delete;
    /// A port has one owner.
    port &operator=(const port &) = delete;
    /// Closes: waits at most a second until what was written has left.
    ~port() { close(); }

    /// Closes: waits at most that long until what was written has left. Whether nothing was left behind; false, too,
    /// for a port that is closed already.
    bool close(wait_time time = std::chrono::seconds(1)) noexcept {
        const std::int32_t number = release();
        return number != 0 && ComHostClose(number, time.milliseconds()) == 1;
    }

    /// The port's number for the functions of the C interface, 0 for none.
    std::int32_t number() const noexcept { return number_.load(std::memory_order_relaxed); }
    /// Whether the port is open; one whose device is gone is.
    bool is_open() const noexcept { return ComOpenState(number()) == 1; }
    /// The same.
    explicit operator bool() const noexcept { return is_open(); }
    /// Lets go of the port without closing it: its number, 0 for none.
    std::int32_t release() noexcept { return number_.exchange(0, std::memory_order_relaxed); }

    // ---- Writing ----

    /// Hands over all bytes, waiting for room at most that long. The count taken, less than all when the time was over.
    std::size_t write(const void *bytes, std::size_t size, wait_time time, std::error_code &error) noexcept {
        const std::int32_t taken = ComHostWrite(number(), bytes, detail::count(size), time.milliseconds());
        return static_cast<std::size_t>(detail::result(taken, error));
    }
    std::size_t write(const void *bytes, std::size_t size, wait_time time = forever) {
        std::error_code error;
        const std::size_t taken = write(bytes, size, time, error);
        detail::check(error, "write");
        return taken;
    }
    /// A text, zeros among it included.
    std::size_t write(std::string_view text, wait_time time, std::error_code &error) noexcept {
        return write(text.data(), text.size(), time, error);
    }
    std::size_t write(std::string_view text, wait_time time = forever) {
        return write(text.data(), text.size(), time);
    }
    /// What is before the zero of an array of char, all of it when there is none. For bytes with zeros among them give
    /// a count.
    template <std::size_t Size>
    std::size_t write(const char (&text)[Size], wait_time time, std::error_code &error) noexcept {
        return write(detail::before_zero(text), time, error);
    }
    template <std::size_t Size> std::size_t write(const char (&text)[Size], wait_time time = forever) {
        return write(detail::before_zero(text), time);
    }
    /// Any contiguous sequence of bytes.
    template <class Bytes, class = std::enable_if_t<detail::is_bytes<const Bytes>::value &&
                                                    !std::is_convertible_v<const Bytes &, std::string_view>>>
    std::size_t write(const Bytes &bytes, wait_time time, std::error_code &error) noexcept {
        return write(std::data(bytes), std::size(bytes), time, error);
    }
    template <class Bytes, class = std::enable_if_t<detail::is_bytes<const Bytes>::value &&
                                                    !std::is_convertible_v<const Bytes &, std::string_view>>>
    std::size_t write(const Bytes &bytes, wait_time time = forever) {
        return write(std::data(bytes), std::size(bytes), time);
    }

    /// Waits until all that was written has left on the line. False: not in time.
    bool drain(wait_time time, std::error_code &error) noexcept {
        return detail::result(ComHostDrain(number(), time.milliseconds()), error) == 1;
    }
    bool drain(wait_time time = forever) {
        std::error_code error;
        const bool done = drain(time, error);
        detail::check(error, "drain");
        return done;
    }

    /// Throws away what was written and has not left, in the library and in the device.
    void discard_output(std::error_code &error) noexcept { detail::result(ComFlushOutBuf(number()), error); }
    void discard_output() {
        std::error_code error;
        discard_output(error);
        detail::check(error, "discard_output");
    }

    // ---- Reading ----

    /// Reads what is there, at most so many bytes; when nothing is there, waits for the first. 0: none in time.
    std::size_t read(void *room, std::size_t size, wait_time time, std::error_code &error) noexcept {
        const std::int32_t got = ComHostRead(number(), room, detail::count(size), time.milliseconds());
        return static_cast<std::size_t>(detail::result(got, error));
    }
    std::size_t read(void *room, std::size_t size, wait_time time = forever) {
        std::error_code error;
        const std::size_t got = read(room, size, time, error);
        detail::check(error, "read");
        return got;
    }
    /// Into a container of the caller's, as many as it holds; its size stays as it is.
    template <class Room, class = std::enable_if_t<detail::is_room<std::remove_reference_t<Room>>::value>>
    std::size_t read(Room &&room, wait_time time, std::error_code &error) noexcept {
        return read(std::data(room), std::size(room), time, error);
    }
    template <class Room, class = std::enable_if_t<detail::is_room<std::remove_reference_t<Room>>::value>>
    std::size_t read(Room &&room, wait_time time = forever) {
        return read(std::data(room), std::size(room), time);
    }
    /// The same as a string.
    std::string read(std::size_t most, wait_time time, std::error_code &error) {
        std::string text(most, '\0');
        text.resize(read(text.data(), text.size(), time, error));
        return text;
    }
    std::string read(std::size_t most, wait_time time = forever) {
        std::string text(most, '\0');
        text.resize(read(text.data(), text.size(), time));
        return text;
    }

    /// Reads until all of the room is full or the time is over, one call for each burst that comes. The count. A
    /// failure ends it; after the first byte its code stands beside the count, and the form without a code returns
    /// what has come.
    std::size_t read_all(void *room, std::size_t size, wait_time time, std::error_code &error) noexcept {
        const detail::deadline end(time);
        std::size_t got = read(room, size, time, error);
        while (!error && got != 0 && got < size) {
            const std::size_t more = read(static_cast<char *>(room) + got, size - got, end.left(), error);
            if (more == 0)
                break;
            got += more;
        }
        return got;
    }
    std::size_t read_all(void *room, std::size_t size, wait_time time = forever) {
        std::error_code error;
        const std::size_t got = read_all(room, size, time, error);
        if (got == 0)
            detail::check(error, "read_all");
        return got;
    }
    /// Into a container of the caller's, until it is full.
    template <class Room, class = std::enable_if_t<detail::is_room<std::remove_reference_t<Room>>::value>>
    std::size_t read_all(Room &&room, wait_time time, std::error_code &error) noexcept {
        return read_all(std::data(room), std::size(room), time, error);
    }
    template <class Room, class = std::enable_if_t<detail::is_room<std::remove_reference_t<Room>>::value>>
    std::size_t read_all(Room &&room, wait_time time = forever) {
        return read_all(std::data(room), std::size(room), time);
    }

    /// Reads up to and including the byte `end`; without it in time, or after `most` bytes, what has come. Two calls
    /// for each burst. A failure ends it; after the first byte its code stands beside the text, and the form without
    /// a code returns what has come.
    std::string read_until(char end, wait_time time, std::size_t most, std::error_code &error) {
        const detail::deadline limit(time);
        std::string text;
        error.clear();
        while (text.size() < most && (text.empty() || text.back() != end)) {
            char first = 0;
            if (read(&first, 1, limit.left(), error) == 0)
                break;
            text += first;
            if (first != end)
                take_until(end, most, text);
        }
        return text;
    }
    std::string read_until(char end, wait_time time = forever, std::size_t most = 65536) {
        std::error_code error;
        std::string text = read_until(end, time, most, error);
        if (text.empty())
            detail::check(error, "read_until");
        return text;
    }

    /// Throws away what has come and has not been read, in the library and in the device.
    void discard_input(std::error_code &error) noexcept { detail::result(Com_Flush(number(), 0), error); }
    void discard_input() {
        std::error_code error;
        discard_input(error);
        detail::check(error, "discard_input");
    }

    /// Ends the one wait that runs on the port, with errc::cancelled.
    void cancel() noexcept { ComCancel(number()); }

    /// The device's descriptor for an event loop of the program's; what is read from then on is what calls ask for
    /// (ComHostDescriptor).
    int descriptor(std::error_code &error) noexcept {
        const std::int32_t descriptor = ComHostDescriptor(number());
        detail::result(descriptor, error);
        return descriptor < 0 ? -1 : descriptor;
    }
    int descriptor() {
        std::error_code error;
        const int found = descriptor(error);
        detail::check(error, "descriptor");
        return found;
    }

    // ---- The line ----

    /// Rate (0 as it is), framing (empty: as it is) and flow control in one step, read back from the device.
    void set_line(std::int32_t baud_rate, const std::string &framing, flow control,
                  std::error_code &error) noexcept {
        detail::result(ComHostSetLine(number(), baud_rate, framing.empty() ? nullptr : framing.c_str(),
                                      static_cast<std::int32_t>(control)),
                       error);
    }
    void set_line(std::int32_t baud_rate, const std::string &framing = {}, flow control = flow::as_it_is) {
        std::error_code error;
        set_line(baud_rate, framing, control, error);
        detail::check(error, "set_line", true);
    }
    /// What the device runs at now.
    line_state line(std::error_code &error) const noexcept {
        line_state state;
        detail::result(ComHostGetLine(number(), &state), error);
        return state;
    }
    line_state line() const {
        std::error_code error;
        const line_state state = line(error);
        detail::check(error, "line");
        return state;
    }

    /// The inputs as they are, and the outputs as the library has set them.
    modem_lines lines(std::error_code &error) const noexcept {
        const std::int32_t now = detail::result(ComHostGetLines(number()), error);
        const auto on = [now](int bit) { return (now & bit) != 0; };
        modem_lines lines;
        lines.cts = on(COM_HOST_MODEM_CTS);
        lines.dsr = on(COM_HOST_MODEM_DSR);
        lines.ring = on(COM_HOST_MODEM_RING);
        lines.carrier = on(COM_HOST_MODEM_CARRIER);
        lines.dtr = on(COM_HOST_MODEM_DTR);
        lines.rts = on(COM_HOST_MODEM_RTS);
        return lines;
    }
    modem_lines lines() const {
        std::error_code error;
        const modem_lines now = lines(error);
        detail::check(error, "lines");
        return now;
    }
    /// Raises or lowers DTR.
    void set_dtr(bool on, std::error_code &error) noexcept {
        switched(on ? ComSetDTR(number()) : ComClearDTR(number()), error);
    }
    void set_dtr(bool on) {
        std::error_code error;
        set_dtr(on, error);
        detail::check(error, "set_dtr");
    }
    /// Raises or lowers RTS.
    void set_rts(bool on, std::error_code &error) noexcept {
        switched(on ? ComSetRTS(number()) : ComClearRTS(number()), error);
    }
    void set_rts(bool on) {
        std::error_code error;
        set_rts(on, error);
        detail::check(error, "set_rts");
    }
    /// Begins or ends a break.
    void set_break(bool on, std::error_code &error) noexcept {
        switched(on ? ComSetBreak_ON(number()) : ComSetBreak_OFF(number()), error);
    }
    void set_break(bool on) {
        std::error_code error;
        set_break(on, error);
        detail::check(error, "set_break");
    }

    // ---- Events ----

    /// What has happened since the open.
    counters counted(std::error_code &error) const noexcept {
        counters now;
        detail::result(ComHostGetCounters(number(), &now), error);
        return now;
    }
    counters counted() const {
        std::error_code error;
        const counters now = counted(error);
        detail::check(error, "counted");
        return now;
    }

    /// Waits until a counter of one of `events` differs from `seen`, which then has it: nothing between two waits is
    /// missed. The events that differ; event::none: none in time.
    event wait(event events, counters &seen, wait_time time, std::error_code &error) noexcept {
        const std::int32_t differ =
            ComHostWaitEvent(number(), static_cast<std::uint32_t>(events), &seen, time.milliseconds());
        return static_cast<event>(detail::result(differ, error));
    }
    event wait(event events, counters &seen, wait_time time = forever) {
        std::error_code error;
        const event differ = wait(events, seen, time, error);
        detail::check(error, "wait");
        return differ;
    }

    /// Whether the device is there, gone, or being looked for; closed, which is no failure here.
    device_state state() const noexcept { return static_cast<device_state>(ComHostGetPortState(number())); }

private:
    void open(const std::string &path, std::int32_t baud_rate, const std::string &framing,
              std::error_code &error) noexcept {
        number_ = detail::result(ComHostOpen(path.c_str(), baud_rate, framing.c_str()), error);
    }
    void open(const std::string &path, const options &wanted, std::error_code &error) {
        open(wanted.with(path), wanted.baud_rate, wanted.framing, error);
        if (error || wanted.flow == flow::none || wanted.flow == flow::as_it_is)
            return;
        set_line(0, {}, wanted.flow, error);
        if (error)
            close(std::chrono::seconds(0));
    }

    /// What is there already, up to `end`, behind `text`.
    void take_until(char end, std::size_t most, std::string &text) {
        char piece[512];
        const std::size_t room = most - text.size() < sizeof piece ? most - text.size() : sizeof piece;
        if (room == 0)
            return;
        const std::int32_t got =
            ComReadBufToEmpty(number(), piece, static_cast<unsigned char>(end), detail::count(room) - 1);
        if (got > 0)
            text.append(piece, static_cast<std::size_t>(got));
    }

    /// Of the calls that switch a line anything but -1 and -11 (the port is closed) is the device's refusal; a device
    /// that is gone for good may be told anything.
    void switched(std::int32_t value, std::error_code &error) const noexcept {
        if (state() == device_state::gone)
            error = make_error_code(errc::gone);
        else if (value == 1)
            error.clear();
        else
            error = make_error_code(value == -1 || value == -11 ? errc::closed : errc::refused);
    }

    std::atomic<std::int32_t> number_{0};
};

// ---- The devices of this machine ---------------------------------------------------------------------------

struct device {
    std::string path;        ///< "/dev/ttyUSB0"
    std::string stable_path; ///< the link that stays the same, empty: none
    std::string description, manufacturer, product, serial_number, driver;
    std::string location;                                                ///< the socket, "1-1.2"
    std::optional<std::int32_t> vendor_id, product_id, interface_number; ///< of a USB device
    std::int32_t holder = 0; ///< the process that has it open, 0 none
    std::string holder_name;
};

/// The machine's serial devices, sorted by path; none is opened. A call for each. Throws when the host fails to tell.
inline std::vector<device> devices() {
    std::vector<device> all;
    const auto known = [](std::int32_t number) {
        return number < 0 ? std::nullopt : std::optional<std::int32_t>(number);
    };
    ComHostDeviceInfo info{};
    info.size = sizeof info;
    for (;;) {
        const std::int32_t result = ComHostGetDeviceInfo(static_cast<std::int32_t>(all.size()), &info);
        if (result < 0)
            throw std::system_error(make_error_code(errc::refused), error_text());
        if (result == 0)
            return all;
        device found;
        found.path = info.path;
        found.stable_path = info.stablePath;
        found.description = info.description;
        found.manufacturer = info.manufacturer;
        found.product = info.product;
        found.serial_number = info.serialNumber;
        found.driver = info.driver;
        found.location = info.location;
        found.vendor_id = known(info.vendorId);
        found.product_id = known(info.productId);
        found.interface_number = known(info.interfaceNumber);
        found.holder = info.holder;
        found.holder_name = info.holderName;
        all.push_back(std::move(found));
        info.size = sizeof info;
    }
}

} // namespace cpp
} // namespace brisolt

template <> struct std::is_error_code_enum<brisolt::errc> : std::true_type {};

#endif
