#include "platform/function_words.h"

#include <cstddef>
#include <new>
#include <unordered_map>
#include <vector>

#include "platform/lasting.h"
#include "platform/mutex.h"

namespace brisolt::functionWords {

namespace {

struct Table {
    Mutex mutex;
    std::vector<Function> functions GUARDED_BY(mutex); // the function of word n is at n - 1
    std::unordered_map<Function, uint32_t> words GUARDED_BY(mutex);
};

Table& table() noexcept {
    static Lasting<Table> only;
    return *only;
}

} // namespace

uint32_t wordOf(Function function) noexcept try {
    if (!function)
        return 0;
    Table& all = table();
    MutexLock lock(all.mutex);
    if (auto found = all.words.find(function); found != all.words.end())
        return found->second;
    all.functions.push_back(function); // first: a word must never be without its function
    return all.words.emplace(function, static_cast<uint32_t>(all.functions.size())).first->second;
} catch (const std::bad_alloc&) {
    return 0;
}

Function functionOf(uint32_t word) noexcept {
    if (word == 0)
        return nullptr;
    Table& all = table();
    MutexLock lock(all.mutex);
    return word <= all.functions.size() ? all.functions[word - 1] : nullptr;
}

} // namespace brisolt::functionWords
