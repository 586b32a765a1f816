// Host patterns.
//
// Pattern and subject advance together while their bytes are equal, a `*` that faces a `*` included. Where that ends
// at a `*` of the pattern, the rest behind it is tried on the subject from there and from each later byte, while
// there is one; a `*` at the pattern's end matches whatever is left.
//
// As a plain recursion that takes exponential time on many stars. But whether the rest behind a star matches from a
// place of the subject depends on that place alone, and a star asks only whether there is such a place behind the one
// it stands at. So it is enough to know, for each star, the last place from which the rest behind it matches. These are
// found from the last star back. None lies behind that of the next star, so all the searches together go over the
// subject once.
#include "frag_tools.h"
#include "netperm.h"

#include <algorithm>
#include <vector>

namespace {

struct matcher {
    std::string_view pattern;
    std::string_view subject;
    std::vector<size_t> stars;         // the places of the stars in the pattern
    std::vector<ptrdiff_t> last_place; // for each star, the last place from which the rest behind it matches, or -1

    // Whether the pattern from `p` on matches the subject from `s` on. All later stars must have their last places.
    bool matches(size_t p, size_t s) const {
        while (p < pattern.size() && s < subject.size() && pattern[p] == subject[s]) {
            p++;
            s++;
        }
        if (p == pattern.size())
            return s == subject.size();
        if (pattern[p] != '*')
            return false;
        auto star = std::lower_bound(stars.begin(), stars.end(), p) - stars.begin();
        return meets_star(static_cast<size_t>(star), s);
    }

    // Whether the star, facing a byte that is no star or the subject's end at `s`, can match.
    bool meets_star(size_t star, size_t s) const {
        if (stars[star] + 1 == pattern.size())
            return true;
        return s < subject.size() && static_cast<ptrdiff_t>(s) <= last_place[star];
    }

    void find_last_place(size_t star) {
        size_t begin = stars[star] + 1;
        ptrdiff_t size = static_cast<ptrdiff_t>(subject.size());
        if (star + 1 == stars.size()) {
            // Behind the last star only the subject's very end can match.
            std::string_view tail = pattern.substr(begin);
            bool ends = tail.size() <= subject.size() && subject.substr(subject.size() - tail.size()) == tail;
            last_place[star] = ends && !tail.empty() ? size - static_cast<ptrdiff_t>(tail.size()) : -1;
            return;
        }
        std::string_view literal = pattern.substr(begin, stars[star + 1] - begin);
        bool next_ends = stars[star + 1] + 1 == pattern.size();
        ptrdiff_t highest = next_ends ? size - 1 : std::min(size - 1, last_place[star + 1]);
        last_place[star] = highest < 0 ? -1 : search_back(star, literal, static_cast<size_t>(highest));
    }

    // The last place up to `highest` where the literal stands and what follows it matches: a search from the back
    // that never reads a byte of the subject twice, by the borders of the literal read backwards.
    ptrdiff_t search_back(size_t star, std::string_view literal, size_t highest) const {
        size_t len = literal.size();
        auto from_back = [&](size_t i) { return literal[len - 1 - i]; };
        std::vector<size_t> border(len + 1, 0);
        for (size_t i = 1, k = 0; i < len; i++) {
            while (k > 0 && from_back(i) != from_back(k))
                k = border[k];
            if (from_back(i) == from_back(k))
                k++;
            border[i + 1] = k;
        }
        size_t matched = 0;
        for (size_t at = std::min(subject.size(), highest + len);;) {
            if (matched == len && at <= highest) {
                if (follows(star, at + len))
                    return static_cast<ptrdiff_t>(at);
                matched = border[len];
            }
            if (at == 0)
                return -1;
            at--;
            while (matched > 0 && (matched == len || from_back(matched) != subject[at]))
                matched = border[matched];
            if (len > 0 && from_back(matched) == subject[at])
                matched++;
        }
    }

    // Whether the pattern from the star behind `star` on matches the subject from `s` on.
    bool follows(size_t star, size_t s) const {
        if (s < subject.size() && subject[s] == '*')
            return matches(stars[star + 1] + 1, s + 1);
        return meets_star(star + 1, s);
    }
};

} // namespace

int wildmatch(const char *pattern, const char *subject) {
    matcher match{{pattern, word_len(pattern)}, {subject, word_len(subject)}, {}, {}};
    size_t same = 0;
    while (same < match.pattern.size() && same < match.subject.size() && pattern[same] == subject[same])
        same++;
    if (same == match.pattern.size())
        return same == match.subject.size();
    if (pattern[same] != '*')
        return 0;
    // Only now do places matter, and those of the stars from here on.
    for (size_t p = same; p < match.pattern.size(); p++)
        if (pattern[p] == '*')
            match.stars.push_back(p);
    match.last_place.resize(match.stars.size());
    for (size_t star = match.stars.size(); star-- > 0;)
        match.find_last_place(star);
    return match.meets_star(0, same);
}
