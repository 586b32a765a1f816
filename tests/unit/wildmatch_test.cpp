// Host patterns.
#include "netperm_support.h"

#include <gtest/gtest.h>

// Pairs "pattern|subject".
TEST(wildmatch, words) {
    const char *matching[] = {"a|a",         "|",          "*|",       "*|a.b",   "10.*|10.1.2.3", "10.*|10.",
                              "*.com|a.com", "*.com|.com", "a*c|abbc", "a*c|ac",  "a*b*c|a1b2b3c", "*a*|bab",
                              "*.1|*.1",     "*|*",        "**|*",     "**|*a",   "a*b|ax*b",      "*|a*",
                              "a**|ab",      "**|a",       "a b|a\tc", "* x|y z", "* x| z",        "a*\tb|a",
                              "a* b|ab b",   " a|\tb"};
    // A star that faces a star is an ordinary byte, and one with something behind it wants a byte of the subject.
    const char *others[] = {
        "a|b",      "a|ab",  "ab|a",      "|a",    "a|",        "10.*|10", "*.com|", "*.com|a.com.au",
        "A*|a1",    "a*c|a", "a*b*c|acb", "*a*|b", "*.1|*.2.1", "*|*a",    "*|**",   "a*|a*b",
        "a*b|a*xb", "?|a",   "a**|a",     "**|",   "*b|a b",    "a\nb|a"};
    auto match = [](const char *pair) {
        std::vector<std::string> words = split(pair, '|');
        return wildmatch(words[0].c_str(), words[1].c_str());
    };
    for (const char *pair : matching)
        EXPECT_EQ(match(pair), 1) << pair;
    for (const char *pair : others)
        EXPECT_EQ(match(pair), 0) << pair;
}

// A plain recursion would take exponential time.
TEST(wildmatch, many_stars) {
    std::string pattern, starred, subject(20000, 'a'), stars(2000, '*');
    for (int count = 0; count < 200; count++)
        pattern += "*a";
    for (int count = 0; count < 3000; count++)
        starred += "xa*";
    auto match = [](const std::string &p, const std::string &s) { return wildmatch(p.c_str(), s.c_str()); };
    EXPECT_EQ(match(pattern + "*b", subject), 0);
    EXPECT_EQ(match(pattern + "*b", subject + "b"), 1);
    EXPECT_EQ(match(pattern + "*", subject), 1);
    EXPECT_EQ(match(pattern + "*", subject.substr(0, 199)), 0);
    EXPECT_EQ(match(stars, "a"), 1);
    EXPECT_EQ(match(stars, ""), 0);
    EXPECT_EQ(match(stars, stars), 1);
    EXPECT_EQ(match(stars, stars.substr(1)), 1);
    EXPECT_EQ(match(stars, stars.substr(2)), 0);
    EXPECT_EQ(match(stars.substr(1), stars), 0);
    EXPECT_EQ(match(pattern + "*b", starred), 0);
    EXPECT_EQ(match(pattern + "*b", starred + "ab"), 0);
    EXPECT_EQ(match("*a*a*a*b", starred + "xaxaab"), 1);
}
