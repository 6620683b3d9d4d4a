#include "Rules/GlobMatcher.hpp"

#include <cstddef>
#include <vector>

#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"

namespace unbulk::GlobMatcher {
namespace {

constexpr std::string_view globstar = "**";

// The non-empty pieces of a path between slashes, as views into it, cut
// only as far as someone asks. Matching runs once per rule pattern per
// scanned path, and most patterns part ways with a path within its first few
// components, so splitting the rest would be wasted work; so would a heap
// allocation. Paths rarely have more than a couple of dozen components: those
// live on the stack, deeper ones spill into a vector.
class Segments {
public:
    explicit Segments(std::string_view text) : text_(text) {}

    // True when there is a segment at this index.
    bool has(std::size_t index) {
        while (count_ <= index && cutNext()) {
        }
        return index < count_;
    }

    std::size_t size() {
        while (cutNext()) {
        }
        return count_;
    }

    // Only for an index that has() confirmed.
    std::string_view operator[](std::size_t index) const {
        return index < inlineCount ? inline_[index] : spill_[index - inlineCount];
    }

private:
    static constexpr std::size_t inlineCount = 24;

    bool cutNext() {
        std::size_t i = next_;
        while (i < text_.size() && text_[i] == '/') ++i;
        if (i == text_.size()) {
            next_ = i;
            return false;
        }
        std::size_t start = i;
        while (i < text_.size() && text_[i] != '/') ++i;
        next_ = i;
        std::string_view segment = text_.substr(start, i - start);
        if (count_ < inlineCount) {
            inline_[count_] = segment;
        } else {
            spill_.push_back(segment);
        }
        ++count_;
        return true;
    }

    std::string_view text_;
    std::size_t next_ = 0;
    std::size_t count_ = 0;
    std::string_view inline_[inlineCount];
    std::vector<std::string_view> spill_;
};

// The walk over segments. Each segment but "**" matches exactly one path
// segment; "**" tries to swallow zero, one, two... segments, shortest first,
// and is the only thing that recurses. Whether the rest matches from a pair
// of positions depends on nothing else, so a pair that failed once is never
// tried again: without that, k "**" segments against n path segments that
// end in a mismatch cost n^k tries, and a rule with a dozen of them against
// a deep path would never finish.
class SegmentMatch {
public:
    SegmentMatch(Segments& pattern, Segments& path) : pattern_(pattern), path_(path) {}

    bool from(std::size_t p, std::size_t s) {
        while (true) {
            const bool patternLeft = pattern_.has(p);
            const bool pathLeft = path_.has(s);
            if (!patternLeft && !pathLeft) return true;
            if (!pathLeft) {
                // The path is used up: only "**" segments may remain.
                for (; pattern_.has(p); ++p) {
                    if (pattern_[p] != globstar) return false;
                }
                return true;
            }
            if (!patternLeft) return false;
            if (pattern_[p] == globstar) break;
            if (!matchWildcard(pattern_[p], path_[s])) return false;
            ++p;
            ++s;
        }
        const std::size_t pathCount = path_.size();
        if (failed_.empty()) {
            columns_ = pathCount + 1;
            failed_.assign((pattern_.size() + 1) * columns_, false);
        }
        for (std::size_t k = s; k <= pathCount; ++k) {
            const std::size_t state = (p + 1) * columns_ + k;
            if (failed_[state]) continue;
            if (from(p + 1, k)) return true;
            failed_[state] = true;
        }
        return false;
    }

private:
    Segments& pattern_;
    Segments& path_;
    // (pattern index, path index) pairs known not to match, a row per
    // pattern segment; sized when the first "**" is met, since patterns
    // without one never need it.
    std::vector<bool> failed_;
    std::size_t columns_ = 0;
};

bool isWildcardOne(char c) { return c == '?'; }
bool isWildcardRun(char c) { return c == '*'; }
bool isWildcardOne(const std::string& c) { return c == "?"; }
bool isWildcardRun(const std::string& c) { return c == "*"; }

// The iterative matcher with one remembered star. Step order matters: a
// pattern character is compared with the text before it is looked at as a
// star, so a "*" meeting a literal "*" is consumed as a literal and leaves no
// star to fall back on.
template <class Sequence>
bool matchCharacters(const Sequence& pattern, const Sequence& text) {
    constexpr std::size_t none = static_cast<std::size_t>(-1);
    std::size_t p = 0;
    std::size_t s = 0;
    std::size_t star = none;
    std::size_t mark = 0;
    while (s < text.size()) {
        if (p < pattern.size() && (isWildcardOne(pattern[p]) || pattern[p] == text[s])) {
            ++p;
            ++s;
        } else if (p < pattern.size() && isWildcardRun(pattern[p])) {
            star = p;
            mark = s;
            ++p;
        } else if (star != none) {
            p = star + 1;
            ++mark;
            s = mark;
        } else {
            return false;
        }
    }
    while (p < pattern.size() && isWildcardRun(pattern[p])) ++p;
    return p == pattern.size();
}

// Characters for comparison: grapheme clusters, each in NFC so that equality
// of the strings is canonical equivalence of the characters.
std::vector<std::string> comparableCharacters(std::string_view text) {
    std::vector<std::string> characters = unicode::graphemeClusters(text);
    for (auto& character : characters) {
        if (!unicode::isAscii(character)) character = unicode::nfc(character);
    }
    return characters;
}

// Plain ASCII without a CR LF pair is matched byte by byte. That is exact,
// not an approximation: in such text every byte is a grapheme cluster of its
// own (the only ASCII pair that the segmentation rules keep together is
// CR LF), and every ASCII character is its own NFC form and canonically
// equivalent to nothing else, so byte equality is character equality.
bool bytesAreCharacters(std::string_view text) {
    return unicode::isAscii(text) && text.find("\r\n") == std::string_view::npos;
}

// paths::standardizingPath with the home that a leading tilde stands for.
std::string standardizedWithHome(std::string_view path, const FileURL& homeURL) {
    if (!path.empty() && path.front() == '~') return paths::standardizingPath(path, homeURL.path());
    return paths::standardizingPath(path, {});
}

} // namespace

bool matchWildcard(std::string_view pattern, std::string_view text) {
    if (bytesAreCharacters(pattern) && bytesAreCharacters(text)) return matchCharacters(pattern, text);
    return matchCharacters(comparableCharacters(pattern), comparableCharacters(text));
}

std::string expandHome(std::string_view pattern, const FileURL& homeURL) {
    const std::string homePath = paths::standardizingPath(homeURL.path(), {});
    if (pattern == "~") return homePath;
    if (pattern.size() >= 2 && pattern[0] == '~' && pattern[1] == '/') {
        // The home and the rest, joined by one slash. The rest is not
        // standardised; it only loses repeated and trailing slashes, as the
        // platform's component join does.
        std::string_view rest = pattern.substr(2);
        std::string out = homePath;
        out.reserve(homePath.size() + rest.size() + 1);
        for (std::size_t i = 0; i < rest.size();) {
            while (i < rest.size() && rest[i] == '/') ++i;
            std::size_t start = i;
            while (i < rest.size() && rest[i] != '/') ++i;
            if (i == start) break;
            if (!out.empty() && out.back() != '/') out += '/';
            out.append(rest.substr(start, i - start));
        }
        return out;
    }
    std::string standardized = paths::standardizingPath(pattern, homePath);
    if (standardized.empty()) return "/";
    return standardized;
}

std::string normalizePath(std::string_view path, const FileURL& homeURL) {
    std::string standardized = standardizedWithHome(path, homeURL);
    if (standardized.empty()) return "/";
    return standardized;
}

bool matches(std::string_view pattern, std::string_view path, const FileURL& homeURL) {
    const std::string expanded = expandHome(pattern, homeURL);
    Segments patternSegments(expanded);
    // A path that is already standard is its own normal form (and "" splits
    // into no segments, just as its normal form "/" does), so the path is
    // copied and standardised only when that changes something.
    if (paths::isStandardizedPath(path)) {
        Segments pathSegments(path);
        return SegmentMatch(patternSegments, pathSegments).from(0, 0);
    }
    const std::string normalized = normalizePath(path, homeURL);
    Segments pathSegments(normalized);
    return SegmentMatch(patternSegments, pathSegments).from(0, 0);
}

} // namespace unbulk::GlobMatcher
