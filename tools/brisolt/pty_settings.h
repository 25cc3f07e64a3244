// The line settings that a program asks of a pseudo terminal, read and set at its master.
#pragma once

#include <cstdint>

struct PtySettings {
    uint32_t rate = 0; ///< any number; 0 is a hang-up
    bool twoStopBits = false;
    bool hardwareFlow = false, softwareFlow = false;
    bool operator==(const PtySettings&) const = default;
};

/// Raw, with these settings, and so that the master hears of every change (in packet mode). False with errno.
bool preparePty(int master, const PtySettings& settings);
/// False with errno.
bool readPty(int master, PtySettings& settings);
