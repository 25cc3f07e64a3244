// Tells when files come, go or change their permissions in some folders, or are closed by whoever wrote to them,
// without looking again and again.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace brisolt {

class FolderWatch {
public:
    FolderWatch() noexcept;
    ~FolderWatch();
    FolderWatch(const FolderWatch&) = delete;
    FolderWatch& operator=(const FolderWatch&) = delete;

    /// False when the host has no descriptor left for it, or cannot tell at all.
    bool usable() const noexcept { return descriptor_ >= 0; }
    /// Polls readable when there is something to collect.
    int32_t descriptor() const noexcept { return descriptor_; }

    /// Watches the folder that a path is in; while that does not exist, the nearest above that does. Of a link, the
    /// folders of all that it leads to as well. Watching what is watched already costs nothing. False when the
    /// host refuses.
    bool watchFor(const std::string& path);
    enum class Change : uint8_t { came, went, permissions };
    /// What has happened since the last time, by whole path; some of it may be told twice, and a path "" stands
    /// for news that were lost: look at everything. Never waits.
    void collect(const std::function<void(const std::string& path, Change change)>& tell);

private:
    int32_t descriptor_ = -1;
    struct Folders;
    Folders* folders_ = nullptr;
};

/// Tells of closes of single files: in a folder of devices something is closed all the time.
class CloseWatch {
public:
    CloseWatch() noexcept;
    ~CloseWatch();
    CloseWatch(const CloseWatch&) = delete;
    CloseWatch& operator=(const CloseWatch&) = delete;

    /// Of what the path leads to. A host that cannot tell tells nothing.
    void watchFor(const char* path) noexcept;
    /// Polls readable once something watched was closed; -1: the host has no descriptor left.
    int32_t descriptor() const noexcept { return descriptor_; }

private:
    int32_t descriptor_ = -1;
};

} // namespace brisolt
