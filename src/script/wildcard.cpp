#include "script/wildcard.h"

#include <cstring>
#include <string_view>

namespace brisolt {

namespace {

/// Open forms of one pattern. The matcher goes one call deeper for each, on whatever stack its caller has.
constexpr std::size_t mostOpenForms = 150;

/// What all attempts of a search share.
struct Search {
    const char* pattern;
    bool wild = false; ///< a wildcard has been met; it is raised, never lowered

    /// Whether the rest of a pattern behind an open form matched at a place. Each open form asks that of the
    /// next one, and then comes by it once more: without an answer at hand the work would double with each.
    struct Known {
        const char* text = nullptr;
        const char* pattern = nullptr;
        bool matches = false;
    };
    Known known[mostOpenForms] = {};
    Known& about(const char* rest) noexcept {
        return known[static_cast<std::size_t>(rest - pattern) / 2 % mostOpenForms];
    }
};

/// The match of a pattern, or of the rest of one, at one place of the text.
class Attempt {
public:
    Attempt(Search& search, const char* text, const char* pattern) noexcept
        : search_(search), start_(text), s_(text), p_(pattern) {}

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
        search_.wild = true;
        if (atEnd())
            return {true, 0};
        ++s_;
        ++p_;
        return {*p_ == 0, taken()};
    }

    /// Takes the rest of the text when nothing follows. Else what follows must match right here, or the
    /// attempt takes one byte more than it has so far and is content with that.
    Progress openForm() noexcept {
        search_.wild = true;
        p_ += 2;
        if (*p_ == 0)
            return {true, taken() + std::strlen(s_)};
        if (!restMatches())
            return {true, atEnd() ? 0 : taken() + 1};
        return anyByte();
    }

    bool restMatches() noexcept {
        Search::Known& known = search_.about(p_);
        if (known.text != s_ || known.pattern != p_)
            known = {s_, p_, Attempt(search_, s_, p_).run() != 0};
        return known.matches;
    }

    bool repetition() noexcept {
        if (seenLiteral_)
            search_.wild = true;
        for (; !atEnd() && *s_ == *p_; ++s_) {
            seenLiteral_ = true;
            search_.wild = true;
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

    Search& search_;
    const char* start_;
    const char* s_;
    const char* p_;
    bool seenLiteral_ = false;
};

bool tooOpen(std::string_view pattern) noexcept {
    std::size_t count = 0;
    for (std::size_t at = pattern.find("?*"); at != std::string_view::npos; at = pattern.find("?*", at + 2))
        ++count;
    return count > mostOpenForms;
}

} // namespace

std::optional<std::size_t> wildSearch(const char* text, const char* pattern) noexcept {
    if (tooOpen(pattern))
        return std::nullopt;
    Search search{pattern};
    std::optional<std::size_t> firstWild;
    for (const char* place = text; *place != 0; ++place) {
        auto offset = static_cast<std::size_t>(place - text);
        if (Attempt(search, place, pattern).run() != 0)
            return firstWild ? firstWild : offset;
        if (search.wild && !firstWild)
            firstWild = offset;
    }
    return std::nullopt;
}

} // namespace brisolt
