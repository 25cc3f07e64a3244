#include "platform/module.h"

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <cstring>
#include <exception>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include <dlfcn.h>

#include "platform/error_text.h"
#include "platform/mutex.h"

namespace brisolt::module {

namespace {

constexpr std::string_view suffix = ".dll";

struct Mappings {
    Mutex mutex;
    std::map<std::string, std::string> paths GUARDED_BY(mutex); ///< by the module's name in lower case

    static Mappings& instance() {
        static Mappings& only = *new Mappings; // never destroyed: threads may load while the program ends
        return only;
    }
};

std::string lowerCase(std::string_view text) {
    std::string lower(text);
    std::ranges::transform(lower, lower.begin(),
                           [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return lower;
}

std::string mappedPath(const std::string& name) {
    Mappings& all = Mappings::instance();
    MutexLock lock(all.mutex);
    auto found = all.paths.find(name);
    return found == all.paths.end() ? std::string() : found->second;
}

std::string fileName(std::string_view name) {
    if (name.ends_with(suffix))
        name.remove_suffix(suffix.size());
    return "lib" + std::string(name) + ".so";
}

/// The folder that the library was loaded from, with the slash; empty when the host does not tell.
std::string ownFolder() {
    Dl_info info{};
    if (dladdr(reinterpret_cast<void*>(&load), &info) == 0 || info.dli_fname == nullptr)
        return {};
    std::string_view path = info.dli_fname;
    return std::string(path.substr(0, path.rfind('/') + 1));
}

struct Failure {
    std::string text; ///< of the first file: what comes after it is only tried for good measure
    bool shortage = false;
};

/// The loader tells by its text alone why it could not open or map a file; of its own memory by errno.
bool tellsShortage(const char* reason, int error) noexcept {
    constexpr int shortages[] = {ENOMEM, EMFILE, ENFILE};
    return error == ENOMEM || std::ranges::any_of(shortages, [=](int shortage) {
               return std::strstr(reason, std::strerror(shortage)) != nullptr;
           });
}

void* open(const std::string& path, Failure& failure) {
    errno = 0;
    void* module = dlopen(path.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (module != nullptr)
        return module;
    int error = errno;
    const char* told = dlerror();
    const char* reason = told == nullptr ? "no reason given" : told;
    failure.shortage = failure.shortage || tellsShortage(reason, error);
    if (failure.text.empty())
        failure.text = "cannot load " + path + ": " + reason;
    return nullptr;
}

/// Where modules are that the loader does not find, nearest first. The last place is for a program that has the
/// library inside, whose own folder says nothing.
std::vector<std::string> moduleFolders() {
    std::vector<std::string> folders;
    if (std::string own = ownFolder(); !own.empty())
        folders = {own + BRISOLT_OWN_FOLDER, own};
    folders.emplace_back(BRISOLT_INSTALLED_MODULES);
    return folders;
}

void* loadDefault(const std::string& name, Failure& failure) {
    std::string file = fileName(name);
    void* module = open(file, failure);
    for (const std::string& folder : moduleFolders())
        if (module == nullptr)
            module = open(folder + file, failure);
    return module;
}

} // namespace

bool map(const char* name, const char* path) noexcept try {
    if (name == nullptr || *name == '\0')
        return false;
    Mappings& all = Mappings::instance();
    std::string key = lowerCase(name);
    MutexLock lock(all.mutex);
    if (path == nullptr || *path == '\0')
        all.paths.erase(key);
    else
        all.paths[key] = path;
    return true;
} catch (const std::exception&) {
    return false;
}

void* load(const char* name, bool* shortage) noexcept {
    Failure failure;
    void* module = nullptr;
    try {
        std::string key = lowerCase(name);
        std::string mapped = mappedPath(key);
        module = mapped.empty() ? loadDefault(key, failure) : open(mapped, failure);
        if (module == nullptr)
            setErrorText(failure.text);
    } catch (const std::exception&) {
        failure.shortage = true;
    }
    if (shortage != nullptr)
        *shortage = module == nullptr && failure.shortage;
    return module;
}

void* find(void* module, const char* symbol) noexcept {
    return module == nullptr ? nullptr : dlsym(module, symbol);
}

void* program() noexcept {
    return dlopen(nullptr, RTLD_LAZY);
}

} // namespace brisolt::module
