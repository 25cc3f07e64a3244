#include "util/file_match.h"

#include <array>
#include <span>

namespace brisolt {

namespace {

constexpr std::size_t mostSegments = 14;
constexpr std::size_t longestPattern = 261;
constexpr std::string_view wildcards = "*?";

/// One piece of a pattern: a star, a question mark or the text between them. An empty one matches nothing.
using Segment = std::string_view;

/// The segments of a pattern; empty when they are too many.
class Segments {
public:
    explicit Segments(std::string_view pattern) noexcept {
        bool beginsWithText = wildcards.find(pattern.front()) == std::string_view::npos;
        if (beginsWithText)
            add({});
        while (!pattern.empty() && !tooMany_) {
            std::size_t length = pattern.find_first_of(wildcards);
            length = length == 0 ? 1 : std::min(length, pattern.size());
            add(pattern.substr(0, length));
            pattern.remove_prefix(length);
        }
    }
    bool tooMany() const noexcept { return tooMany_; }
    std::span<const Segment> all() const noexcept { return {segments_.data(), count_}; }

private:
    void add(Segment segment) noexcept {
        if (count_ == mostSegments)
            tooMany_ = true;
        else
            segments_[count_++] = segment;
    }
    std::array<Segment, mostSegments> segments_;
    std::size_t count_ = 0;
    bool tooMany_ = false;
};

/// A walk through a name, segment by segment.
class Matcher {
public:
    explicit Matcher(std::string_view name) noexcept : rest_(name) {}

    bool take(Segment segment) noexcept {
        if (segment == "*") {
            afterStar_ = true;
            return true;
        }
        if (segment == "?") {
            if (rest_.empty())
                return false;
            rest_.remove_prefix(1);
            return true;
        }
        return segment.empty() || takeText(segment);
    }
    bool ended() const noexcept { return rest_.empty() || afterStar_; }

private:
    /// A star reaches to the text that follows it, and no further.
    bool takeText(std::string_view text) noexcept {
        std::size_t at = afterStar_ ? rest_.find(text) : rest_.starts_with(text) ? 0 : rest_.npos;
        if (at == rest_.npos)
            return false;
        rest_.remove_prefix(at + text.size());
        afterStar_ = false;
        return true;
    }
    std::string_view rest_;
    bool afterStar_ = false;
};

} // namespace

bool searchFinds(std::string_view pattern, std::string_view name) noexcept {
    if (name.starts_with('.') && !pattern.starts_with('.'))
        return false;
    if (pattern == "*.*")
        return true;
    // After a mismatch the last star takes one character more.
    std::size_t p = 0, n = 0, star = pattern.npos, starTook = 0;
    while (n < name.size()) {
        if (p < pattern.size() && pattern[p] == '*') {
            star = p++;
            starTook = n;
        } else if (p < pattern.size() && (pattern[p] == '?' || pattern[p] == name[n])) {
            ++p;
            ++n;
        } else if (star != pattern.npos) {
            p = star + 1;
            n = ++starTook;
        } else {
            return false;
        }
    }
    return pattern.find_first_not_of('*', p) == pattern.npos;
}

int32_t checkFileMatch(std::string_view pattern, std::string_view name) noexcept {
    if (pattern.find_first_of(wildcards) == pattern.npos)
        return pattern == name ? 1 : 0;
    Segments segments(pattern.substr(0, longestPattern));
    if (segments.tooMany())
        return -1;
    Matcher matcher(name);
    for (Segment segment : segments.all())
        if (!matcher.take(segment))
            return 0;
    return matcher.ended() ? 1 : 0;
}

} // namespace brisolt
