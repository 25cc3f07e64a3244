#include "port/framing_text.h"

#include <cctype>
#include <string_view>

#include "brisolt/ports.h"
#include "platform/error_text.h"

namespace brisolt {

namespace {

constexpr std::string_view parityLetters = "NOEMS"; // in the order of the codes
constexpr std::string_view stopTexts[] = {"1", "2", "1.5"};

int32_t refuse(const char* text, int32_t code, const char* what) {
    constexpr std::size_t shown = 40;
    std::string start(text);
    if (start.size() > shown)
        start = start.substr(0, shown) + "...";
    setErrorText("bad framing \"" + start + "\": " + what);
    return code;
}

} // namespace

int32_t readFraming(const char* text, Framing& framing) {
    framing = {};
    if (text == nullptr)
        return 0;
    std::string_view left(text);
    if (left.empty() || left[0] < '4' || left[0] > '8')
        return refuse(text, -34, "data bits are 4 to 8, as in 8N1");
    framing.dataBits = left[0] - '0';
    std::size_t parity =
        left.size() < 2
            ? std::string_view::npos
            : parityLetters.find(static_cast<char>(std::toupper(static_cast<unsigned char>(left[1]))));
    if (parity == std::string_view::npos)
        return refuse(text, -33, "parity is N, O, E, M or S, as in 8N1");
    framing.parity = static_cast<int32_t>(parity) + COM_PARITY_NONE;
    left.remove_prefix(2);
    for (int32_t i = 0; i < 3; ++i)
        if (left == stopTexts[i]) {
            framing.stopBits = i + COM_STOP_1;
            return 0;
        }
    return refuse(text, -35, "stop bits are 1, 1.5 or 2, as in 8N1");
}

std::string framingText(const Framing& framing) {
    std::string text = std::to_string(framing.dataBits);
    text += parityLetters[static_cast<std::size_t>(framing.parity - COM_PARITY_NONE)];
    return text.append(stopTexts[framing.stopBits - COM_STOP_1]);
}

} // namespace brisolt
