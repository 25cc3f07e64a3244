// The modem database: a text file with one modem a line, its name and the commands that set it up. It is read
// record by record, from the start to the end; nothing of a record is kept.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>

#include "platform/file.h"

namespace brisolt::modem {

/// The fields of a record in the file's order.
enum class Field {
    name,
    init,
    third, ///< for the people who keep the file
    reset,
    compressionOn,
    compressionOff,
    flowOff,
    flowHardware,
    flowSoftware,
    errorControlOn,
    errorControlOff,
    errorControlForced,
    count
};
inline constexpr std::size_t fieldCount = static_cast<std::size_t>(Field::count);
inline constexpr std::size_t longestField = 100; ///< that of the initialisation command

/// Where a record goes: a buffer a field, each with room for the field's maximum and a terminator.
using Destinations = std::array<char*, fieldCount>;

/// Results of a record.
inline constexpr int32_t recordRead = 5;
inline constexpr int32_t endOfFile = 1;

/// A database that is being read. Closed, it reads like one that has come to its end.
class Database {
public:
    Database() = default;
    Database(const Database&) = delete;
    Database& operator=(const Database&) = delete;
    ~Database() { close(); }

    /// 1; -2 not readable, -3 not readable with others barred from writing, -4 no memory. One that is open
    /// already stays open then, else it ends here.
    int32_t open(const char* path) noexcept;
    /// recordRead or endOfFile. The buffers of fields that the line does not have are left as they are.
    int32_t next(const Destinations& into) noexcept;
    void close() noexcept;

private:
    enum class FieldEnd { separator, line, file };
    FieldEnd readField(char* into, std::size_t maximum) noexcept;
    bool takeByte(char& byte) noexcept;
    bool refill() noexcept;

    std::optional<file::Reader> file_;
    char* block_ = nullptr; ///< the file comes in blocks
    std::size_t position_ = 0, end_ = 0;
};

/// A database a port number for the callers that list one themselves; the port need not be open. The number
/// is a valid one.
namespace listing {
int32_t start(int32_t number, const char* path, const Destinations& into) noexcept;
int32_t next(int32_t number, const Destinations& into) noexcept;
void end(int32_t number) noexcept;
} // namespace listing

} // namespace brisolt::modem
