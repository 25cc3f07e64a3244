#include "util/file_handles.h"

#include <unordered_map>
#include <utility>

#include "platform/lasting.h"
#include "platform/mutex.h"

namespace brisolt::handles {

namespace {

using Kept = std::shared_ptr<file::File>;

struct Table {
    Mutex mutex;
    std::unordered_map<int32_t, Kept> files GUARDED_BY(mutex); ///< null while it is being opened
    int32_t last GUARDED_BY(mutex) = 0;

    static Table& instance() noexcept {
        static Lasting<Table> table;
        return *table;
    }
    int32_t reserve() {
        MutexLock guard(mutex);
        do
            last = last == INT32_MAX ? 1 : last + 1;
        while (!files.emplace(last, nullptr).second);
        return last;
    }
    /// False when somebody has closed the number before its owner could know it.
    bool fill(int32_t number, Kept file) noexcept {
        MutexLock guard(mutex);
        auto entry = files.find(number);
        if (entry == files.end())
            return false;
        entry->second = std::move(file);
        return true;
    }
    Kept take(int32_t number) noexcept {
        MutexLock guard(mutex);
        auto entry = files.find(number);
        if (entry == files.end())
            return nullptr;
        Kept file = std::move(entry->second);
        files.erase(entry);
        return file;
    }
};

} // namespace

int32_t open(const char* path, const file::How& how) {
    Table& table = Table::instance();
    auto kept = std::make_shared<file::File>();
    const int32_t handle = table.reserve();
    *kept = file::File(path, how);
    if (*kept)
        return table.fill(handle, std::move(kept)) ? handle : 0;
    table.take(handle);
    return 0;
}

std::shared_ptr<file::File> find(int32_t handle) noexcept {
    Table& table = Table::instance();
    MutexLock guard(table.mutex);
    auto entry = table.files.find(handle);
    return entry == table.files.end() ? nullptr : entry->second;
}

bool close(int32_t handle) noexcept {
    Kept file = Table::instance().take(handle);
    if (file.use_count() != 1)
        return true;    // none, or whoever is reading or writing at this moment closes it when done
    Kept(file).reset(); // its count puts us behind what others did before they let go
    return file->close();
}

} // namespace brisolt::handles
