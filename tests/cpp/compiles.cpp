// What has to compile without a warning, and what must not compile.
#include <brisolt.hpp>

#include <array>
#include <iostream>
#if __cplusplus >= 202002L
#include <span>
#endif

using CBuffer = int; // a program's own: the C header that has the name is not included behind its back

namespace {

using namespace std::chrono_literals;
using brisolt::port;

template <class Bytes, class = void> struct writable : std::false_type {};
template <class Bytes>
struct writable<Bytes, std::void_t<decltype(std::declval<port&>().write(std::declval<Bytes>(), 1s))>>
    : std::true_type {};
template <class Room, class = void> struct readable : std::false_type {};
template <class Room>
struct readable<Room, std::void_t<decltype(std::declval<port&>().read(std::declval<Room>(), 1s))>>
    : std::true_type {};

static_assert(writable<const char*>() && writable<std::string>() && writable<std::string_view>());
static_assert(writable<const std::vector<unsigned char>&>() && writable<std::array<std::byte, 4>>());
static_assert(readable<std::string&>() && readable<std::uint8_t (&)[8]>() &&
              readable<std::vector<std::byte>&>());
static_assert(!writable<std::vector<int>>() && !writable<std::vector<bool>>() &&
              !readable<const std::string&>());
static_assert(!readable<std::string_view>() && !std::is_copy_constructible_v<port>);
static_assert(std::is_nothrow_move_constructible_v<port> && std::is_nothrow_move_assignable_v<port>);

constexpr auto of = [](brisolt::wait_time time) { return time.milliseconds(); };
static_assert(of(2s) == 2000 && of(1us) == 1 && of(1500us) == 2 && of(0.0001s) == 1);
static_assert(of(-1s) == 0 && of(0s) == 0 && of(std::chrono::nanoseconds::min()) == 0);
static_assert(of(brisolt::forever) == -1 && of(std::chrono::hours::max()) == -1);

#if __cplusplus >= 202002L
static_assert(writable<std::span<const std::byte>>() && readable<std::span<std::uint8_t>>());
static_assert(!readable<std::span<const char>>());

[[maybe_unused]] port openedWithNames() {
    return port("/dev/ttyUSB0", {.baud_rate = 115200, .dtr = brisolt::at_open::off, .keep = true});
}
#endif

} // namespace

// The program of the manual: no cast, no buffer.
int main() try {
    port meter("/dev/ttyUSB0?dtr=off", 9600);
    meter.write("*IDN?\r\n", 1s);
    std::cout << meter.read_until('\n', 1s);
    return 0;
} catch (const std::system_error& error) {
    std::cerr << error.what() << '\n';
    return error.code() == brisolt::errc::not_opened ? 2 : 1;
}
