#include "terminal_settings.h"

#include <algorithm>
#include <iterator>

namespace brisolt::service {

namespace {

struct Rate {
    uint32_t bitsPerSecond;
    tcflag_t code;
};
constexpr Rate rates[] = {
    {50, B50},           {75, B75},           {110, B110},         {134, B134},         {150, B150},
    {200, B200},         {300, B300},         {600, B600},         {1200, B1200},       {1800, B1800},
    {2400, B2400},       {4800, B4800},       {9600, B9600},       {19200, B19200},     {38400, B38400},
    {57600, B57600},     {115200, B115200},   {230400, B230400},   {460800, B460800},   {500000, B500000},
    {576000, B576000},   {921600, B921600},   {1000000, B1000000}, {1152000, B1152000}, {1500000, B1500000},
    {2000000, B2000000}, {2500000, B2500000}, {3000000, B3000000}, {3500000, B3500000}, {4000000, B4000000},
};

/// A program that knows the old codes alone reads a rate by its code, and takes "any other" for none.
tcflag_t codeOf(uint32_t bitsPerSecond) {
    const auto* const found = std::find_if(std::begin(rates), std::end(rates), [&](const Rate& rate) {
        return rate.bitsPerSecond == bitsPerSecond;
    });
    return found == std::end(rates) ? tcflag_t{BOTHER} : found->code;
}

} // namespace

void makeRaw(termios2& settings, uint32_t bitsPerSecond) noexcept {
    settings.c_iflag = IGNBRK;
    settings.c_oflag = 0;
    settings.c_lflag = 0;
    // No code for the input: it follows the output, also when another program sets that later.
    settings.c_cflag = codeOf(bitsPerSecond) | CS8 | CREAD | CLOCAL;
    settings.c_ospeed = settings.c_ispeed = bitsPerSecond;
    // An empty line then answers "try again", and a read of nothing is a hang-up alone.
    settings.c_cc[VMIN] = 1;
    settings.c_cc[VTIME] = 0;
}

} // namespace brisolt::service
