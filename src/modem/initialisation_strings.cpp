#include "modem/initialisation_strings.h"

#include <algorithm>
#include <cstring>

#include "modem/initialisation.h"
#include "modem/modem_commands.h"
#include "modem/modem_database.h"
#include "port/log_file.h"

namespace brisolt::modem {

namespace {

constexpr std::size_t comparedCharacters = 100;

/// A record of the database in memory.
struct Entry {
    char texts[fieldCount][longestField + 1] = {};

    char* operator[](Field field) { return texts[static_cast<std::size_t>(field)]; }
    Destinations destinations() {
        Destinations all{};
        std::transform(std::begin(texts), std::end(texts), all.begin(), [](char* text) { return text; });
        return all;
    }
};

struct Source {
    Field field;
    const Command* command; ///< null: no more
};

/// Strings that are taken together, or kept together.
struct Group {
    Shared<int32_t> ModemInit::*flags;
    const char* log; ///< shows the fields in their order here
    Source strings[3];
};

constexpr Group groups[] = {
    {&ModemInit::compressionFlags,
     "Setting Compres_On=%s ; Compres_Off=%s",
     {{Field::compressionOn, &command<&PortRecord::compressionOnStr>},
      {Field::compressionOff, &command<&PortRecord::compressionOffStr>}}},
    {&ModemInit::flowFlags,
     "Setting Flow_Off=%s ; Flow_HDWR=%s ; Flow_SOFT=%s ",
     {{Field::flowOff, &command<&PortRecord::flowControlOffStr>},
      {Field::flowHardware, &command<&PortRecord::flowControlHdwrStr>},
      {Field::flowSoftware, &command<&PortRecord::flowControlSoftStr>}}},
    {&ModemInit::errorControlFlags,
     "Setting ErrorControl_Off=%s ; ErrorControl_On=%s ; ErrorControl_Forced=%s ",
     {{Field::errorControlOff, &command<&PortRecord::errorControlOffStr>},
      {Field::errorControlOn, &command<&PortRecord::errorControlOnStr>},
      {Field::errorControlForced, &command<&PortRecord::errorControlForcedStr>}}},
    {&ModemInit::initFlags, "Setting Init_String=%s", {{Field::init, &command<&PortRecord::initStr>}}},
    {&ModemInit::resetFlags, "Setting Reset_String=%s", {{Field::reset, &command<&PortRecord::resetStr>}}},
};

bool kept(Port& port, const Group& group) noexcept {
    return (port.workArea->modemInit.*group.flags & keepPortsStrings) != 0;
}

static_assert(sizeof(CommandText::text) <= longestField + 1);

/// Fields that a line of the database does not have keep what the port has, not what the line before had.
void fillWithPorts(Port& port, Entry& entry) noexcept {
    for (const Group& group : groups)
        for (const Source& source : group.strings)
            if (source.command != nullptr) {
                CommandText text = textOf(port, *source.command);
                std::memcpy(entry[source.field], text.text, sizeof text.text);
            }
}

/// The modem's record; inProgress, -1 or -2.
int32_t find(Port& port, const char* databaseFile, const char* modemName, Entry& entry) {
    Database database;
    int32_t opened = database.open(databaseFile);
    if (opened < 0) {
        logs::entry(port, logs::Log::protocol, " ComGetModem_Start fail return:%d", opened);
        return -1;
    }
    for (int32_t records = 1;; ++records) {
        if (port.ending())
            return -1;
        fillWithPorts(port, entry);
        int32_t result = database.next(entry.destinations());
        if (std::strncmp(entry[Field::name], modemName, comparedCharacters) == 0) {
            logs::entry(port, logs::Log::protocol, records == 1 ? "Modem Name Match" : "Modem Name Match: %s",
                        modemName);
            return inProgress;
        }
        if (result != recordRead) {
            const char* end = modemName + std::strlen(modemName);
            auto last = static_cast<unsigned char>(end == modemName ? 0 : end[-1]);
            logs::entry(
                port, logs::Log::protocol,
                " Modem name:%s Not found in Modem DBMS file: total entries: %d last character of modem "
                "name: %x",
                modemName, records, last);
            return -2;
        }
    }
}

void take(Port& port, Entry& entry) {
    for (const Group& group : groups) {
        if (kept(port, group))
            continue;
        const auto& strings = group.strings;
        logs::entry(port, logs::Log::protocol, group.log, entry[strings[0].field], entry[strings[1].field],
                    entry[strings[2].field]);
        for (const Source& source : strings)
            if (source.command != nullptr)
                setText(port, *source.command, entry[source.field]);
    }
}

} // namespace

int32_t takeStrings(Port& port, const char* databaseFile, const char* modemName) {
    if (std::all_of(std::begin(groups), std::end(groups), [&](const Group& g) { return kept(port, g); })) {
        logs::entry(port, logs::Log::protocol,
                    " All Modem Parameters set for override - no need for DataBase lookup");
        return inProgress;
    }
    logs::entry(port, logs::Log::protocol, " Searching through modem database:%s for modem type:%s",
                databaseFile, modemName);
    Entry entry;
    int32_t found = find(port, databaseFile, modemName, entry);
    if (found == inProgress)
        take(port, entry);
    return found;
}

} // namespace brisolt::modem
