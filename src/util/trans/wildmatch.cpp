// Host patterns.
//
// Pattern and subject advance together while their bytes are equal, a `*` that faces a `*` included. Where that ends
// at a `*` of the pattern, the rest behind it is tried on the subject from there and from each later byte, while
// there is one; a `*` at the pattern's end matches whatever is left.
//
// As a plain recursion that takes exponential time on many stars, but it never has to go back behind a star. Say that
// what follows star A, tried from the first place where it fits, leads to star B, which faces the place T and no star.
// However else the pattern matches from A on, B faces T or a later place: the stars between the two either pair off
// with stars of the subject as in this try, or are passed later. And what follows B is tried from T and each later
// place.
//
// Others build on this very verdict, on a star that faces a star too:
// - `cover_index` in rule_translation.cpp finds the patterns that can match a word by their text in front of the first
//   star, behind the last and between two;
// - the review, which must find the same hosts covered, follows patterns with code of its own;
// - the property tests hold it against the plain recursion.
#include "frag_tools.h"
#include "netperm.h"

int wildmatch(const char *pattern, const char *subject) {
    std::string_view p(pattern, word_len(pattern));
    std::string_view s(subject, word_len(subject));
    size_t in_p = 0;
    size_t in_s = 0;
    size_t behind_star = 0;   // the place in p behind the last star that faced no star; 0 while there was none
    std::string_view literal; // what stands there in front of the next star
    size_t tried = 0;         // the place in s from which it is being tried
    for (;;) {
        while (in_p < p.size() && in_s < s.size() && p[in_p] == s[in_s]) {
            in_p++;
            in_s++;
        }
        if (in_p == p.size() && in_s == s.size())
            return 1;
        if (in_p < p.size() && p[in_p] == '*') {
            behind_star = in_p + 1;
            if (behind_star == p.size())
                return 1;
            literal = p.substr(behind_star, p.find('*', behind_star) - behind_star);
            tried = in_s;
        } else if (behind_star != 0) {
            tried++;
        } else {
            return 0;
        }
        if (tried >= s.size())
            return 0;
        tried = s.find(literal, tried);
        if (tried == std::string_view::npos)
            return 0;
        in_p = behind_star + literal.size();
        in_s = tried + literal.size();
    }
}
