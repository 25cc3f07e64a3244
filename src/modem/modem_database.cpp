#include "modem/modem_database.h"

#include <cstddef>
#include <new>

#include "platform/memory.h"
#include "platform/mutex.h"
#include "port/port_table.h"

namespace brisolt::modem {

namespace {

constexpr std::size_t blockSize = 10000;

constexpr std::size_t maximumOf(std::size_t field) {
    return field == static_cast<std::size_t>(Field::init) ? longestField : 75;
}

} // namespace

int32_t Database::open(const char* path) noexcept {
    if (!file::exists(path, file::Access::read, file::Sharing::all))
        return -2;
    close(); // from here on a failure leaves nothing open
    file::Reader file(path, file::Sharing::readOnly);
    if (!file)
        return -3;
    auto* block = static_cast<char*>(memory::allocateSmall(blockSize));
    if (block == nullptr)
        return -4;
    file_.emplace(std::move(file));
    block_ = block;
    return 1;
}

void Database::close() noexcept {
    file_.reset();
    memory::releaseSmall(block_);
    block_ = nullptr;
    position_ = end_ = 0;
}

int32_t Database::next(const Destinations& into) noexcept {
    for (std::size_t field = 0; field < fieldCount; ++field)
        switch (readField(into[field], maximumOf(field))) {
        case FieldEnd::separator: break;
        case FieldEnd::line: return recordRead;
        case FieldEnd::file: return endOfFile;
        }
    return recordRead; // what else the line holds is the next record
}

// A field of exactly its maximum ends before its separator is read, so an empty field follows it and the rest
// of the record shifts: whoever writes a database keeps fields below the maximum.
Database::FieldEnd Database::readField(char* into, std::size_t maximum) noexcept {
    std::size_t count = 0;
    into[0] = 0;
    for (char byte = 0; takeByte(byte);) {
        if (byte == '\r' || byte == '\n') {
            takeByte(byte); // the other half of the line end
            return FieldEnd::line;
        }
        if (byte == '!')
            return FieldEnd::separator;
        into[count++] = byte;
        into[count] = 0;
        if (count == maximum)
            return FieldEnd::separator;
    }
    if (count == 0)
        close();
    return FieldEnd::file;
}

bool Database::takeByte(char& byte) noexcept {
    if (position_ == end_ && !refill())
        return false;
    byte = block_[position_++];
    return true;
}

bool Database::refill() noexcept {
    int32_t got = file_ ? file_->read(block_, blockSize) : 0;
    position_ = 0;
    end_ = got > 0 ? static_cast<std::size_t>(got) : 0;
    return end_ > 0;
}

namespace listing {

namespace {

struct Slot {
    Mutex mutex;
    Database database GUARDED_BY(mutex);
};

using Slots = std::array<Slot, lastPort + 1>;

Slot& slot(int32_t number) noexcept {
    alignas(Slots) static std::byte room[sizeof(Slots)];
    static Slots& slots = *new (room) Slots; // never destroyed: threads may outlive main
    return slots[static_cast<std::size_t>(number)];
}

} // namespace

int32_t start(int32_t number, const char* path, const Destinations& into) noexcept {
    MutexLock guard(slot(number).mutex);
    int32_t opened = slot(number).database.open(path);
    return opened == 1 ? slot(number).database.next(into) : opened;
}

int32_t next(int32_t number, const Destinations& into) noexcept {
    MutexLock guard(slot(number).mutex);
    return slot(number).database.next(into);
}

void end(int32_t number) noexcept {
    MutexLock guard(slot(number).mutex);
    slot(number).database.close();
}

} // namespace listing

} // namespace brisolt::modem
