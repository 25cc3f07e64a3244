// How every call to the service is made: checked, repeated while the service asks for it, and, where the
// answer is a record of variable size, with a buffer that grows.
#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <new>

#include "telephony/service_records.h"
#include "telephony/telephony_log.h"

namespace brisolt::telephony {

/// True for success and for codes that ask for the same call again. What a person can mend is logged.
bool accepted(int32_t result) noexcept;

/// Pauses before the next repetition of a call. False when it was repeated often enough: a service that asks
/// for it without end is given up.
class Repetitions {
public:
    bool another() noexcept;

private:
    int32_t made_ = 0;
};

struct Answer {
    int32_t result;
    bool ok; ///< result is 0
};

/// The call, repeated as long as the check says. `each` sees every result before it is checked.
template <class Call, class Each> Answer callService(Call call, Each each) {
    Repetitions repetitions;
    for (;;) {
        int32_t result = call();
        each(result);
        if (!accepted(result))
            return {result, false};
        if (result == service::result::success)
            return {result, true};
        if (!repetitions.another())
            return {result, false};
    }
}
template <class Call> Answer callService(Call call) {
    return callService(call, [](int32_t) {});
}

/// A buffer for a record of the service: its fixed part, and what the service puts behind.
template <class Record> class ServiceRecord {
public:
    ServiceRecord() = default;
    explicit operator bool() const noexcept { return words_ != nullptr; }
    Record* get() const noexcept { return reinterpret_cast<Record*>(words_.get()); }
    Record* operator->() const noexcept { return get(); }
    uint32_t size() const noexcept { return size_; }

    bool allocate(uint32_t size) noexcept {
        if (size < sizeof(Record) || size > largest)
            return false;
        words_.reset(new (std::nothrow) uint32_t[(size + 3) / 4]{});
        size_ = size;
        if (words_ != nullptr)
            words_[0] = size;
        return words_ != nullptr;
    }
    void release() noexcept { words_.reset(); }

    /// What an offset and a size in the record point at; null when that is not inside.
    const char* part(uint32_t offset, uint32_t size) const noexcept {
        bool inside = offset <= size_ && size <= size_ - offset;
        return inside ? reinterpret_cast<const char*>(words_.get()) + offset : nullptr;
    }

private:
    static constexpr uint32_t largest = 1U << 20; ///< no honest record comes near

    std::unique_ptr<uint32_t[]> words_;
    uint32_t size_ = 0;
};

/// Fetches a record of variable size. Empty when it cannot be had; `refused` hears the code when it was the
/// service that refused. `each` sees the result of each attempt.
template <class Record, class Call, class Each, class Refused>
ServiceRecord<Record> fetch(uint32_t startSize, Call call, Each each, Refused refused) {
    constexpr int32_t growths = 32; // each fits what the last asked for: more only against a changing target
    ServiceRecord<Record> record;
    uint32_t size = startSize;
    for (int32_t left = growths; left > 0 && record.allocate(size); --left) {
        Answer answer = callService([&] { return call(record.get()); }, each);
        if (!answer.ok) {
            refused(answer.result);
            record.release();
            return record;
        }
        uint32_t needed = record->sizes.needed;
        if (needed <= size)
            return record;
        size = needed;
    }
    log("Out of Memory error, canceling action");
    record.release();
    return record;
}

} // namespace brisolt::telephony
