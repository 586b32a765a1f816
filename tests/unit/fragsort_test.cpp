// The order of siblings.
#include "support.h"

#include <algorithm>
#include <functional>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>

using std::string;

static std::vector<string> words(const string &text) {
    std::istringstream in(text);
    return {std::istream_iterator<string>(in), {}};
}

static string sorted(const std::vector<string> &names) {
    tree db;
    for (auto name = names.rbegin(); name != names.rend(); ++name)
        pushfrag(db, newsymfrag(name->data(), name->size()), nullptr);
    EXPECT_EQ(sort_frags(db), 0);
    return names_of(db.head);
}

TEST(fragsort, comparison) {
    // The first character behind the zeros is passed over before digits are looked for: `0x` against `1` is `x` against
    // `1`, both at their ends, and the bytes decide.
    for (const string &fact : words(
             "2<10 9<10a 10<9a 12<3a 99b>100a 5=5 05=5 1<1a 0x<x 9<10 007=7 0=00 0<1 000<9 0<10 0<0x 10<1a 19<2x 19<20 "
             "Z<a a<ab <1 <a = a<\xff 1<a -1<1 a10<a9 %5F<A 10=010 1z<1\xff 07a=7a 1a10<1a2 1<0x 0x<10 1<0xy "
             "99999999999999999999<100000000000000000000")) {
        size_t at = fact.find_first_of("<=>");
        string a = fact.substr(0, at), b = fact.substr(at + 1);
        int sign = fact[at] == '<' ? -1 : fact[at] == '>', there = fragmatch(a.c_str(), b.c_str());
        int back = fragmatch(b.c_str(), a.c_str());
        EXPECT_EQ((there > 0) - (there < 0), sign) << fact;
        EXPECT_EQ((back > 0) - (back < 0), -sign) << fact;
    }
}

TEST(fragsort, lists) {
    const char *rows[][2] = {
        {"", ""},
        {"x", "x"},
        {"3 2 1", "1 2 3"},
        {"10 9 2 1 11", "1 2 9 10 11"},
        {"a B 10 9", "9 10 B a"},
        {"num 2 10 1", "1 2 10 num"},
        // Ties keep their order, unless more pairs fall than rise and the list is turned around first.
        {"1 01 001", "1 01 001"},
        {"1 01 3 2", "1 01 2 3"},
        {"2 1 01", "1 01 2"},
        {"3 2 1 01", "01 1 2 3"},
        {"9 8 7 1 01", "01 1 7 8 9"},
        {"1 2 3 4 6 05 5", "1 2 3 4 05 5 6"},
        // The second half, 7 6 05 5, is turned around on its own.
        {"1 2 3 4 7 6 05 5", "1 2 3 4 5 05 6 7"},
    };
    for (const auto &[before, after] : rows)
        EXPECT_EQ(sorted(words(before)), after) << before;
    tree db("p_2_b=1\np_2_a=2\np_1_z=3\np_1_y=4\n"); // one level only
    sort_frags(&db.head->child);
    EXPECT_EQ(db.text(), "p_1_z=3\np_1_y=4\np_2_b=1\np_2_a=2\n");
}

// The procedure in plain words: count the pairs, turn around, stop or cut behind the middle, sort both halves, merge.
static void plain_sort(std::vector<string> &names) {
    auto behind = [](const string &a, const string &b) { return fragmatch(b.c_str(), a.c_str()) < 0; };
    size_t in_order = 0, out_of_order = 0, cut = names.size() - names.size() / 2;
    for (size_t i = 1; i < names.size(); i++)
        (behind(names[i - 1], names[i]) ? out_of_order : in_order)++;
    if (in_order < out_of_order) {
        std::reverse(names.begin(), names.end());
        std::swap(in_order, out_of_order);
        cut = names.size() / 2 + 1;
    }
    if (out_of_order == 0)
        return;
    auto middle = names.begin() + static_cast<std::ptrdiff_t>(cut);
    std::vector<string> first(names.begin(), middle), second(middle, names.end());
    plain_sort(first);
    plain_sort(second);
    std::merge(first.begin(), first.end(), second.begin(), second.end(), names.begin(),
               [&](const string &a, const string &b) { return behind(b, a); });
}

TEST(fragsort, random_lists_come_out_as_the_plain_procedure_puts_them) {
    seed_random(14);
    for (int round = 0; round < 3000; round++) {
        std::vector<string> names(random_below(round % 100 ? 12 : 300));
        for (string &name : names) // zeros in front make ties that can be told apart, letters the odd comparisons
            name = string(random_below(3), '0') + std::to_string(random_below(14)) + (random_below(8) ? "" : "a");
        if (random_below(2)) // falling but for a few
            std::sort(names.begin(), names.end(), std::greater<>());
        string there = sorted(names), expected;
        plain_sort(names);
        for (const string &name : names)
            expected += (expected.empty() ? "" : " ") + name;
        ASSERT_EQ(there, expected);
    }
}
