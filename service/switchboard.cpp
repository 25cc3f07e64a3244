#include "switchboard.h"

#include <algorithm>

namespace brisolt::service {

namespace {

template <class Is> std::shared_ptr<Modem> findModem(Is is) {
    const auto& modems = switchboard().modems;
    const auto found =
        std::find_if(modems.begin(), modems.end(), [&](const auto& modem) { return is(*modem); });
    return found == modems.end() ? nullptr : *found;
}

} // namespace

Switchboard& switchboard() {
    static Switchboard& only = *new Switchboard; // never destroyed: threads use it while the program ends
    return only;
}

std::shared_ptr<Modem> modemOfLine(uint32_t line) {
    return line == 0 ? nullptr : findModem([line](const Modem& modem) { return modem.line == line; });
}

std::shared_ptr<Modem> modemOfCall(uint32_t call) {
    return call == 0 ? nullptr : findModem([call](const Modem& modem) { return modem.call.handle == call; });
}

} // namespace brisolt::service
