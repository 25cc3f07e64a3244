#include "script/wildcard.h"

#include <cstdint>
#include <cstring>

namespace brisolt {

namespace {

constexpr int32_t deepest = 200; ///< open forms within each other; a pattern has the stack for no more

/// The match of a pattern at one place of the text.
class Attempt {
public:
    /// `wild` is one flag for a whole search: it is raised, never lowered.
    Attempt(const char* text, const char* pattern, bool& wild, int32_t depth = 0) noexcept
        : start_(text), s_(text), p_(pattern), wild_(wild), depth_(depth) {}

    /// Bytes of the text that the pattern took; 0: no match.
    std::size_t run() noexcept {
        while (*p_ != 0) {
            if (*p_ == '?') {
                Progress progress = p_[1] == '*' ? openForm() : anyByte();
                if (progress.over)
                    return progress.taken;
            }
            if (!(p_[1] == '*' ? repetition() : literal()))
                return 0;
        }
        return taken();
    }

private:
    struct Progress {
        bool over;
        std::size_t taken;
    };

    std::size_t taken() const noexcept { return static_cast<std::size_t>(s_ - start_); }
    bool atEnd() const noexcept { return *s_ == 0; }

    Progress anyByte() noexcept {
        wild_ = true;
        if (atEnd())
            return {true, 0};
        ++s_;
        ++p_;
        return {*p_ == 0, taken()};
    }

    /// Takes the rest of the text when nothing follows. Else what follows must match right here, or the
    /// attempt takes one byte more than it has so far and is content with that.
    Progress openForm() noexcept {
        wild_ = true;
        p_ += 2;
        if (*p_ == 0)
            return {true, taken() + std::strlen(s_)};
        if (depth_ == deepest || Attempt(s_, p_, wild_, depth_ + 1).run() == 0)
            return {true, atEnd() ? 0 : taken() + 1};
        return anyByte();
    }

    bool repetition() noexcept {
        if (seenLiteral_)
            wild_ = true;
        if (!atEnd() && *s_ == *p_) {
            seenLiteral_ = true;
            for (++s_; !atEnd() && *s_ == *p_; ++s_)
                wild_ = true;
        }
        p_ += 2;
        return true;
    }

    bool literal() noexcept {
        if (atEnd() || *s_ != *p_)
            return false;
        ++s_;
        ++p_;
        seenLiteral_ = true;
        return true;
    }

    const char* start_;
    const char* s_;
    const char* p_;
    bool& wild_;
    int32_t depth_;
    bool seenLiteral_ = false;
};

} // namespace

std::optional<std::size_t> wildSearch(const char* text, const char* pattern) noexcept {
    bool wild = false;
    std::optional<std::size_t> firstWild;
    for (const char* place = text; *place != 0; ++place) {
        auto offset = static_cast<std::size_t>(place - text);
        if (Attempt(place, pattern, wild).run() != 0)
            return firstWild ? firstWild : offset;
        if (wild && !firstWild)
            firstWild = offset;
    }
    return std::nullopt;
}

} // namespace brisolt
