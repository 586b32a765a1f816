/// The comparison of one proxy: two ordered lists of host patterns, for all hosts at once.
#ifndef PROXY_COMPARISON_H
#define PROXY_COMPARISON_H

#include "access/access_compare.h"
#include "access/pattern_automaton.h"

#include <tuple>

/// A rule that can decide something, by its place in its list. The last of each list has the pattern `*`.
struct kept_rule {
    std::string_view pattern;
    const access_rule *rule = nullptr; ///< null for the refusal of whom no rule covers
    uint32_t end = 0;                  ///< its node
    uint32_t partner = NO_RULE;        ///< its place in the other list
    size_t head = 0, tail = 0;         ///< bytes in front of the first star and behind the last; without one, all
};

struct difference {
    std::string id; ///< of the finding
    const access_rule *was, *is;
    std::string word; ///< the shortest that they decide
};

struct proxy_comparison {
    const access_side &before, &after;
    const std::string &proxy;
    work_budget &budget;
    std::array<std::vector<access_rule>, 2> rules{};
    std::array<std::vector<kept_rule>, 2> kept{};
    std::map<std::pair<uint32_t, uint32_t>, difference> differences{}; ///< by the places of the deciding rules
    bool is_decided = true;

    /// Takes the rules of both sides and drops those that decide nothing. False if there are too many.
    bool read();
    /// Makes partners of what is left, if told so only of rules that both permit or both deny.
    void align(bool of_one_ruling);
    /// Finds all differences, unless it says that it is not decided.
    void run();
    /// What the rule before demands that the rule after does not, in words. All rules of one line, and of one map, have
    /// the same.
    const std::string &lacking(const access_rule &was, const access_rule &is);

    pattern_automaton automaton{};
    std::map<std::tuple<size_t, size_t, size_t>, std::string> known_lacking{};

    const char *difference_of(size_t list, uint32_t place, uint32_t other);
    void note(size_t list, uint32_t place, uint32_t other, const std::string &word);
    bool is_wanted(size_t list, uint32_t place, uint32_t other);
    void search(size_t list, uint32_t place);
};

#endif
