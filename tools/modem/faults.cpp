#include "faults.h"

#include <algorithm>
#include <cctype>

namespace simulated {

void Faults::add(const Fault& fault) {
    Fault added = fault;
    std::erase_if(added.text, [](unsigned char character) { return std::isspace(character) != 0; });
    std::transform(added.text.begin(), added.text.end(), added.text.begin(),
                   [](unsigned char character) { return static_cast<char>(std::toupper(character)); });
    faults_.push_back(added);
}

std::optional<Fault> Faults::meet(std::string_view commands) {
    for (Fault& fault : faults_) {
        if (fault.times == 0 || commands.find(fault.text) == std::string_view::npos)
            continue;
        if (fault.times > 0)
            --fault.times;
        return fault;
    }
    return std::nullopt;
}

std::string Noise::mixInto(std::string bytes) {
    if (every_ == 0)
        return bytes;
    std::string mixed;
    for (const char byte : bytes) {
        mixed += byte;
        if (++sinceLast_ < every_)
            continue;
        sinceLast_ = 0;
        state_ = state_ * 1664525 + 1013904223;
        mixed += static_cast<char>(state_ >> 24);
    }
    return mixed;
}

} // namespace simulated
