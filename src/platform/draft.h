// A new file that is written out of sight and gets its place when it is complete: whoever looks there finds
// what was there before or all of the new. Where the host has files without a name, a program that is killed
// on the way leaves nothing; elsewhere, and for the moment of a replacement, the draft has a name of its own
// (.brisolt-...) beside the place.
#pragma once

#include <string>

#include "platform/file.h"

namespace brisolt::file {

class Draft {
public:
    /// On the disk of the place, which is a name of the host. Null-like when it cannot be made there.
    Draft(const std::string& place, uint32_t permissions);
    Draft(const Draft&) = delete;
    Draft& operator=(const Draft&) = delete;
    ~Draft(); ///< what has not got its place is gone

    explicit operator bool() const noexcept { return bool(file_); }
    File& file() noexcept { return file_; }

    /// Gives it its place, where nothing may be yet.
    bool publish() noexcept;
    /// Gives it its place, where a file is that nobody has open and that may be written.
    bool replace() noexcept;

private:
    template <class Use> bool underFreeName(Use use);

    std::string place_;
    std::string name_; ///< of its own; empty when it has none
    File file_;
};

} // namespace brisolt::file
