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
#include <string>
#include <string_view>
#include <vector>

constexpr uint32_t NO_RULE = UINT32_MAX;

/// Steps that may still be taken. Each function that counts on it says what it does when there are none left.
struct work_budget {
    uint64_t left = 0;

    bool take(uint64_t steps) {
        left = steps < left ? left - steps : 0;
        return left != 0;
    }
};

struct pattern_automaton {
    static constexpr uint32_t NONE = UINT32_MAX;
    enum node_kind : unsigned char { LITERAL, ANY, SOME }; ///< behind a byte; any bytes; before at least one byte

    struct node {
        node_kind kind = LITERAL;
        unsigned char byte = 0;                             ///< of a LITERAL
        uint32_t parent = NONE;                             ///< always before it
        uint32_t child = NONE, next = NONE;                 ///< LITERAL nodes below it, and beside it
        uint32_t any = NONE, some = NONE;                   ///< entered with it; of a SOME, `any` is behind one byte
        uint32_t sole_any = NONE;                           ///< an ANY that every way on leads through first
        std::array<uint32_t, 2> rule = {NO_RULE, NO_RULE};  ///< of each list, the first that ends here
        std::array<uint32_t, 2> first = {NO_RULE, NO_RULE}; ///< and the first that ends here or below
        uint32_t wanted = NO_RULE;                          ///< the first wanted rule here or below
    };
    using state = std::vector<uint32_t>;    ///< node numbers, ascending
    using limits = std::array<uint32_t, 2>; ///< of each list, the rules from this one on don't matter

    std::vector<node> nodes = std::vector<node>(1);

    /// Adds a pattern of a list, 0 or 1, and tells the node that it ends in. Of equal patterns the first stays.
    uint32_t add(std::string_view pattern, size_t list, uint32_t rule);
    /// Takes note of what lies below each node. To be called once all patterns are in, and again when `wanted` changed.
    void finish();
    /// The state before any byte.
    state start(limits &limit) const;
    /// Brings gathered nodes into a state: what is entered with them comes in, and what can't decide any more goes.
    /// Each limit is lowered to what surely accepts.
    void settle(state &gathered, limits &limit) const;
    /// The first rule of a list that accepts the words of this state.
    uint32_t accepted(const state &at, size_t list) const;
    /// Whether one rule of the list that is before `rule` accepts all words of the pattern. False if the budget ends.
    bool is_covered(std::string_view pattern, size_t list, uint32_t rule, work_budget &budget) const;

private:
    uint32_t make(uint32_t parent, node_kind kind, unsigned char byte);
    uint32_t add_byte(uint32_t from, unsigned char byte);
};

/// A search through the words that one rule accepts, the shortest first.
struct word_search {
    size_t list = 0;                        ///< of the rule
    uint32_t rule = NO_RULE;                ///< its place in that list
    uint32_t end = pattern_automaton::NONE; ///< the node that it ends in
    uint32_t other_limit = NO_RULE;         ///< rules of the other list from this one on don't matter
    bool wants_none = false;                ///< words that the other list doesn't accept are wanted
    bool wants_all = true;                  ///< no way is given up; else only those to wanted rules are gone
    /// Told of a word that the rule decides in its list and of the rule that decides in the other one; each such rule
    /// is told once. Ends the search with true.
    std::function<bool(const std::string &word, uint32_t other)> found;
};

/// Runs a search. False if the budget ended it.
bool search_words(const pattern_automaton &automaton, const word_search &search, work_budget &budget);

#endif
