// The profile of the service: which modems there are and how each wants to be spoken to.
//
// It is the file telephony.ini in the folder that BRISOLT_TELEPHONY names; without that variable in
// $XDG_CONFIG_HOME/brisolt (~/.config/brisolt), or else in /etc/brisolt. A section is a modem, its name the
// line's; share/telephony.ini shows all keys.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "telephony/service_records.h"

namespace brisolt::service {

enum class HangUp { dtr, escape };
enum class Flow { hardware, software, none };

struct ModemSettings {
    std::string name;
    std::string device;
    uint32_t speed = 115200;
    Flow flow = Flow::hardware;
    std::string init = "AT&F&C1&D2X4"; ///< commands, a "|" between two
    std::string dial = "ATD";          ///< what stands in front of a number
    std::string answer = "ATA";
    HangUp hangUp = HangUp::dtr;
    uint32_t bearer = bearer::voice;
};

/// The modems in the order of the profile. A profile that is missing or wrong gives none, and a line on
/// standard error that tells where. Throws std::system_error when the host is short of what reading takes.
std::vector<ModemSettings> readModems();

/// Changes settings by lines as they stand in a section. False: one of them is wrong, and nothing is changed.
bool changeSettings(ModemSettings& settings, std::string_view lines);

/// A line on standard error, for a person at the modem.
void complain(const std::string& text);

} // namespace brisolt::service
