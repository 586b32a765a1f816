// Host patterns.
//
// Pattern and subject advance together while their bytes are equal, a `*` that faces a `*` included. Where that ends
// at a `*` of the pattern, the rest behind it is tried on the subject from there and from each later byte, while
// there is one; a `*` at the pattern's end matches whatever is left.
//
// As a plain recursion that takes exponential time on many stars, but it never has to go back behind a star. Say that
// the rest behind star A, tried from some place, gets to star B, which faces no star at place T. However else the
// pattern matches from A on, B is met at T or later: each star on the way either pairs off like in the first try or is
// met behind it. And whatever then follows B can be tried from T as well.
#include "frag_tools.h"
#include "netperm.h"

int wildmatch(const char *pattern, const char *subject) {
    std::string_view p(pattern, word_len(pattern));
    std::string_view s(subject, word_len(subject));
    size_t in_p = 0;
    size_t in_s = 0;
    size_t behind_star = 0;   // the rest behind the last star that met no star; 0 while there was none
    std::string_view literal; // what the rest has in front of its own first star
    size_t tried = 0;         // the place from which the rest is being tried
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
