// The automaton over host patterns, and the search for the shortest words that rules decide.
#include "access/pattern_automaton.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>
#include <utility>

namespace {

constexpr size_t MOST_STORED = size_t{1} << 25; // nodes in all states together
constexpr size_t COST_OF_STATE = 16;            // what it takes besides, in nodes

/// The bytes of hosts in the order in which they are liked.
std::string make_liked() {
    std::string bytes = "0123456789abcdefghijklmnopqrstuvwxyz.-ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (unsigned i = '!'; i < 256 + ' '; i++)
        if (char byte = static_cast<char>(i); bytes.find(byte) == std::string::npos && !std::strchr("\t*", byte))
            bytes += byte;
    return bytes;
}
const std::string liked = make_liked(); // NOLINT(cert-err58-cpp): without memory the process ends

/// Whether the place in a pattern asks for a byte: a `*` only does as the last of a run at the end.
bool asks_byte(std::string_view pattern, size_t i) {
    return pattern[i] != '*' || (i > 0 && i + 1 == pattern.size() && pattern[i - 1] == '*');
}

/// A walk through the states in which the rule can still decide, those of short words first.
struct word_search {
    using state = pattern_automaton::state;
    using met_state = std::pair<const state, std::string>;

    const pattern_automaton &automaton;
    uint32_t rule;
    work_budget &budget;
    std::vector<uint32_t> rest;    // for each node, the bytes from there to the rule's end
    std::vector<int> wanted_below; // the wanted rules that end there or below and are not found yet
    size_t stored = 0;
    std::unordered_map<state, std::string> met{};         // with a shortest word that leads there
    std::vector<std::vector<const met_state *>> queues{}; // by the bytes so far and the rest together

    void count_wanted(uint32_t node, int more) {
        for (; node != NONE; node = automaton.nodes[node].parent)
            wanted_below[node] += more;
    }

    void push(state at, const std::string &word) {
        bool is_decided = automaton.settle(at)[0] <= rule;
        uint32_t bytes = NONE;
        bool is_open = false;
        for (uint32_t number : at) {
            bytes = std::min(bytes, rest[number]);
            is_open = is_open || wanted_below[number] > 0;
        }
        if (!is_open || bytes == NONE || is_decided)
            return;
        auto [known, is_new] = met.try_emplace(at, word);
        if (!is_new && known->second.size() <= word.size())
            return;
        known->second = word;
        stored += at.size() + word.size() / sizeof(char32_t) + COST_OF_STATE;
        queues.resize(std::max(queues.size(), word.size() + bytes + 1));
        queues[word.size() + bytes].push_back(&*known);
    }

    void expand(const state &from, const std::string &word) {
        state stay;
        std::map<size_t, state> behind; // each byte, by its rank
        for (uint32_t number : from) {
            if (automaton.nodes[number].is_any)
                stay.push_back(number);
            for (auto [byte, child] : automaton.nodes[number].children)
                (byte == '*' ? stay : behind[liked.find(byte)]).push_back(child);
        }
        size_t other = 0; // the first byte that leads nowhere else
        while (behind.count(other) != 0)
            other++;
        if (other < liked.size())
            behind.try_emplace(other);
        for (const auto &[rank, next] : behind) {
            budget.take(next.size() + stay.size() + 4);
            push(next + stay, word + liked[rank]);
        }
    }
};

} // namespace

uint32_t pattern_automaton::add(std::string_view pattern, size_t list, uint32_t rule) {
    uint32_t at = 0;
    auto enter = [&](uint32_t &number, bool is_any) {
        auto made = static_cast<uint32_t>(nodes.size());
        uint32_t parent = std::exchange(at, number == NONE ? number = made : number);
        if (at == made)
            nodes.push_back({parent, is_any});
    };
    for (size_t i = 0; i < pattern.size(); i++) {
        if (asks_byte(pattern, i))
            enter(nodes[at].children.try_emplace(pattern[i], NONE).first->second, false);
        if (pattern[i] == '*' && (i + 1 == pattern.size() || pattern[i + 1] != '*'))
            enter(nodes[at].any, true);
    }
    nodes[at].rule[list] = std::min(nodes[at].rule[list], rule);
    for (uint32_t above = at; above != NONE; above = nodes[above].parent)
        nodes[above].first[list] = std::min(nodes[above].first[list], rule);
    return at;
}

rule_pair pattern_automaton::settle(state &gathered) const {
    rule_pair limit = {NONE, NONE};
    for (size_t i = 0, count = gathered.size(); i < count; i++)
        if (uint32_t any = nodes[gathered[i]].any; any != NONE)
            gathered.push_back(any);
    std::sort(gathered.begin(), gathered.end());
    gathered.erase(std::unique(gathered.begin(), gathered.end()), gathered.end());
    for (uint32_t number : gathered)
        for (size_t list = 0; list < 2; list++)
            if (nodes[number].is_any && nodes[number].rule[list] != NONE)
                limit[list] = std::min(limit[list], nodes[number].rule[list] + 1);
    auto is_idle = [&](uint32_t number) {
        return nodes[number].first[0] >= limit[0] && nodes[number].first[1] >= limit[1];
    };
    gathered.erase(std::remove_if(gathered.begin(), gathered.end(), is_idle), gathered.end());
    return limit;
}

rule_pair pattern_automaton::accepted(const state &at) const {
    rule_pair first = {NONE, NONE};
    for (uint32_t number : at)
        for (size_t list = 0; list < 2; list++)
            first[list] = std::min(first[list], nodes[number].rule[list]);
    return first;
}

rule_pair pattern_automaton::deciding(std::string_view pattern, work_budget &budget) const {
    state at = {0}, next;
    settle(at);
    for (size_t i = 0; i < pattern.size() && !at.empty(); i++) {
        next.clear();
        for (uint32_t number : at) {
            if (nodes[number].is_any) // a `*` can be nothing, or a byte that no rule has
                next.push_back(number);
            for (char byte : {pattern[i], '*'})
                if (auto child = nodes[number].children.find(byte);
                    asks_byte(pattern, i) && child != nodes[number].children.end())
                    next.push_back(child->second);
        }
        if (!budget.take(at.size() + next.size()))
            return {NONE, NONE};
        settle(next);
        std::swap(at, next);
    }
    return accepted(at);
}

bool find_words(const pattern_automaton &automaton, uint32_t end, std::vector<bool> wanted, work_budget &budget,
                const std::function<void(uint32_t, const std::string &)> &found) {
    const std::vector<pattern_automaton::node> &nodes = automaton.nodes;
    word_search search{automaton, nodes[end].rule[0], budget, std::vector<uint32_t>(nodes.size(), NONE),
                       std::vector<int>(nodes.size())};
    uint32_t bytes = 0;
    for (uint32_t at = end; at != NONE; at = nodes[at].parent) {
        search.rest[at] = bytes;
        bytes += nodes[at].is_any ? 0 : 1;
    }
    for (uint32_t i = 0; i < nodes.size(); i++)
        if (nodes[i].rule[1] != NONE && wanted[nodes[i].rule[1]])
            search.count_wanted(i, 1);
    search.push({0}, "");
    for (size_t cost = 0; cost < search.queues.size(); cost++)
        for (size_t i = 0; i < search.queues[cost].size(); i++) {
            const auto &[at, word] = *search.queues[cost][i];
            auto [own, other] = automaton.accepted(at);
            if (own == search.rule && other != NONE && wanted[other] && !word.empty()) {
                found(other, word);
                wanted[other] = false;
                for (uint32_t number : at)
                    if (nodes[number].rule[1] == other)
                        search.count_wanted(number, -1);
                if (search.wanted_below[0] == 0)
                    return true;
            }
            if (budget.left == 0 || search.stored > MOST_STORED)
                return false;
            search.expand(at, word);
        }
    return true;
}
