#include "platform/function_words.h"

#include <cstddef>
#include <mutex>
#include <new>
#include <unordered_map>
#include <vector>

#include "platform/lasting.h"

namespace brisolt::functionWords {

namespace {

struct Table {
    std::mutex mutex;
    std::vector<Function> functions; // the function of word n is at n - 1
    std::unordered_map<Function, uint32_t> words;
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
    std::lock_guard lock(all.mutex);
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
    std::lock_guard lock(all.mutex);
    return word <= all.functions.size() ? all.functions[word - 1] : nullptr;
}

} // namespace brisolt::functionWords
