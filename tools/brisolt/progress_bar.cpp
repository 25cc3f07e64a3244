#include "progress_bar.h"

#include <algorithm>
#include <array>
#include <cstdio>

#include <unistd.h>

#include "output.h"

namespace {

constexpr auto interval = std::chrono::milliseconds(100);
constexpr std::size_t barWidth = 20;

std::string clockTime(double seconds) {
    const auto whole = static_cast<unsigned>(std::min(seconds, 359999.0));
    std::array<char, 32> text{};
    if (whole >= 3600)
        std::snprintf(text.data(), text.size(), "%u:%02u:%02u", whole / 3600, whole / 60 % 60, whole % 60);
    else
        std::snprintf(text.data(), text.size(), "%02u:%02u", whole / 60, whole % 60);
    return text.data();
}

} // namespace

ProgressBar::~ProgressBar() {
    if (shown_)
        std::fputs("\r\033[K", stderr);
}

void ProgressBar::show(uint64_t done, uint64_t total) {
    const std::size_t width = columns(STDERR_FILENO);
    if (width == 0 || Clock::now() < next_)
        return;
    next_ = Clock::now() + interval;
    shown_ = true;
    const double rate = static_cast<double>(done) / std::max(elapsed(), 0.001);
    std::string text = printable(name_) + "  ";
    if (total > 0) {
        const double part = std::min(static_cast<double>(done) / static_cast<double>(total), 1.0);
        const auto filled = static_cast<std::size_t>(part * barWidth);
        text += std::to_string(static_cast<int>(part * 100)) + "% [" + std::string(filled, '=') +
                std::string(barWidth - filled, ' ') + "]  ";
    }
    text += amount(static_cast<double>(done)) + "  " + amount(rate) + "/s";
    if (total > done && rate > 0)
        text += "  " + clockTime(static_cast<double>(total - done) / rate) + " left";
    text = text.substr(0, width - 1);
    std::fprintf(stderr, "\r%s\033[K", text.c_str());
}

std::string ProgressBar::summary(uint64_t bytes) const {
    std::array<char, 96> text{};
    const double seconds = std::max(elapsed(), 0.001);
    std::snprintf(text.data(), text.size(), "%llu bytes in %.1f s, %s/s",
                  static_cast<unsigned long long>(bytes), seconds,
                  amount(static_cast<double>(bytes) / seconds).c_str());
    return text.data();
}
