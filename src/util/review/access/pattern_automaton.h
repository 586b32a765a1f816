/// The host patterns of two ordered lists as one automaton over the bytes of a host.
///
/// Patterns that begin alike share the nodes of that beginning. A set of nodes is a state; what it says of a host is
/// the first rule of either list that ends in one of its nodes. `*` stands for any bytes, and a pattern that ends in
/// more than one `*` asks for at least one byte there; other runs of `*` are as good as one. Hosts are not empty and
/// hold no `*`.
#ifndef PATTERN_AUTOMATON_H
#define PATTERN_AUTOMATON_H

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

constexpr uint32_t NONE = UINT32_MAX;      ///< no rule, and no node
using rule_pair = std::array<uint32_t, 2>; ///< a rule of each list, by its place there

/// Steps that may still be taken.
struct work_budget {
    uint64_t left = 0;

    bool take(uint64_t steps) {
        left = steps < left ? left - steps : 0;
        return left != 0;
    }
};

struct pattern_automaton {
    struct node {
        uint32_t parent = NONE;              ///< none for the first
        bool is_any = false;                 ///< stays for any bytes; another one is entered with its byte
        std::map<char, uint32_t> children{}; ///< those below by the bytes that enter them, `*` for any one byte
        uint32_t any = NONE;                 ///< what is entered with it and stays
        rule_pair rule = {NONE, NONE};       ///< of each list, the first that ends here
        rule_pair first = {NONE, NONE};      ///< and the first that ends here or below
    };
    using state = std::u32string; ///< node numbers, ascending

    std::vector<node> nodes = std::vector<node>(1);

    /// Adds a pattern of a list, 0 or 1, and tells the node that it ends in. Of equal patterns the first stays.
    uint32_t add(std::string_view pattern, size_t list, uint32_t rule);
    /// Brings gathered nodes into a state: what is entered with them comes in, and what can't decide any more goes.
    /// Tells of each list from where on the rules don't matter, since one ahead surely accepts.
    rule_pair settle(state &gathered) const;
    /// The first rules that accept the words of this state.
    rule_pair accepted(const state &at) const;
    /// The first rule of each list that accepts a word or, of a pattern, all its words. None if the budget ends.
    rule_pair deciding(std::string_view pattern, work_budget &budget) const;
};

/// Looks for the shortest words that the last rule of list 0, which ends in the node `end`, decides there, while one of
/// the `wanted` rules of list 1 decides them in that one: `found` is told a word for each of these that has any. False
/// if the budget ended it.
bool find_words(const pattern_automaton &automaton, uint32_t end, std::vector<bool> wanted, work_budget &budget,
                const std::function<void(uint32_t, const std::string &)> &found);

#endif
