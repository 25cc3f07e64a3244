#include "util/file_handles.h"

#include <mutex>
#include <unordered_map>
#include <utility>

namespace brisolt::handles {

namespace {

struct Table {
    std::mutex mutex;
    std::unordered_map<int32_t, std::shared_ptr<file::File>> files;
    int32_t last = 0;

    static Table& instance() {
        static Table& table = *new Table; // outlives the program's statics
        return table;
    }
    int32_t freeNumber() {
        do
            last = last == INT32_MAX ? 1 : last + 1;
        while (files.contains(last));
        return last;
    }
};

} // namespace

int32_t add(file::File file) {
    if (!file)
        return 0;
    auto kept = std::make_shared<file::File>(std::move(file));
    Table& table = Table::instance();
    std::scoped_lock guard(table.mutex);
    int32_t handle = table.freeNumber();
    table.files.emplace(handle, std::move(kept));
    return handle;
}

std::shared_ptr<file::File> find(int32_t handle) noexcept {
    Table& table = Table::instance();
    std::scoped_lock guard(table.mutex);
    auto entry = table.files.find(handle);
    return entry == table.files.end() ? nullptr : entry->second;
}

bool close(int32_t handle) noexcept {
    Table& table = Table::instance();
    std::shared_ptr<file::File> file;
    {
        std::scoped_lock guard(table.mutex);
        auto entry = table.files.find(handle);
        if (entry == table.files.end())
            return false;
        file = std::move(entry->second);
        table.files.erase(entry);
    }
    if (file.use_count() > 1)
        return true; // whoever is reading or writing at this moment closes it when done
    std::shared_ptr<file::File>(file).reset(); // its count puts us behind what others did before they let go
    return file->close();
}

} // namespace brisolt::handles
