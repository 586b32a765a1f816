// The automaton over host patterns, and the search for the shortest words that rules decide.
#include "access/pattern_automaton.h"

#include <algorithm>
#include <cstring>
#include <unordered_map>

namespace {

constexpr size_t MOST_STORED = size_t{1} << 25; // nodes in all states together
constexpr size_t COST_OF_STATE = 16;            // what it takes besides, in nodes
constexpr uint32_t NONE = pattern_automaton::NONE;

/// The bytes of hosts in the order in which they are liked.
std::string make_liked() {
    std::string bytes = "0123456789abcdefghijklmnopqrstuvwxyz.-ABCDEFGHIJKLMNOPQRSTUVWXYZ";
    for (unsigned i = '!'; i < 256 + ' '; i++)
        if (char byte = static_cast<char>(i); bytes.find(byte) == std::string::npos && !std::strchr("\t*", byte))
            bytes += byte;
    return bytes;
}
const std::string liked = make_liked(); // NOLINT(cert-err58-cpp): without memory the process ends

/// A walk through the states in which the rule can still decide, those of short words first.
struct word_search {
    using state = pattern_automaton::state;
    struct origin;
    using met_state = std::pair<const state, origin>;
    struct origin {
        const met_state *before; // null for the state before any byte
        char byte;
        uint32_t depth;
    };

    const pattern_automaton &automaton;
    uint32_t rule;
    work_budget &budget;
    std::vector<uint32_t> rest;         // for each node, the bytes from there to the rule's end
    std::vector<uint32_t> wanted_below; // the wanted rules that end there or below and are not found yet
    size_t stored = 0;
    std::unordered_map<state, origin> met{};
    std::vector<std::vector<const met_state *>> queues{}; // by the bytes so far and the rest together

    void push(state &at, const met_state *before, char byte) {
        rule_pair limit = {rule + 1, NO_RULE};
        automaton.settle(at, limit);
        uint32_t depth = before ? before->second.depth + 1 : 1, bytes = NONE;
        bool is_open = false;
        for (uint32_t number : at) {
            bytes = std::min(bytes, rest[number]);
            is_open = is_open || wanted_below[number] > 0;
        }
        if (!is_open || bytes == NONE || limit[0] <= rule)
            return;
        auto [known, is_new] = met.try_emplace(at, origin{before, byte, depth});
        if (!is_new && known->second.depth <= depth)
            return;
        known->second = {before, byte, depth};
        stored += at.size() + COST_OF_STATE;
        queues.resize(std::max(queues.size(), size_t{depth} + bytes + 1));
        queues[depth + bytes].push_back(&*known);
    }

    void expand(const state &from, const met_state *before) {
        state stay;
        std::map<size_t, state> behind; // each byte, by its rank
        for (uint32_t number : from) {
            if (automaton.nodes[number].is_any)
                stay.push_back(number);
            for (uint32_t child = automaton.nodes[number].child; child != NONE; child = automaton.nodes[child].next) {
                char byte = automaton.nodes[child].byte;
                (byte == '*' ? stay : behind[liked.find(byte)]).push_back(child);
            }
        }
        size_t other = 0; // the first byte that leads nowhere else
        while (behind.count(other) != 0)
            other++;
        if (other < liked.size())
            behind.try_emplace(other);
        for (auto &[rank, next] : behind) {
            next += stay;
            budget.take(next.size() + 4);
            push(next, before, liked[rank]);
        }
    }
};

} // namespace

uint32_t pattern_automaton::add(std::string_view pattern, size_t list, uint32_t rule) {
    uint32_t at = 0;
    for (size_t i = 0; i < pattern.size(); i++) {
        bool is_last = i + 1 == pattern.size();
        auto made = static_cast<uint32_t>(nodes.size());
        if (pattern[i] != '*' || (is_last && i > 0 && pattern[i - 1] == '*')) {
            uint32_t child = nodes[at].child;
            while (child != NONE && nodes[child].byte != pattern[i])
                child = nodes[child].next;
            if (child == NONE) {
                nodes.push_back({at, false, pattern[i], NONE, nodes[at].child});
                nodes[at].child = child = made++;
            }
            at = child;
        }
        if (pattern[i] != '*' || (!is_last && pattern[i + 1] == '*'))
            continue;
        if (nodes[at].any == NONE) {
            nodes.push_back({at, true});
            nodes[at].any = made;
        }
        at = nodes[at].any;
    }
    nodes[at].rule[list] = std::min(nodes[at].rule[list], rule);
    return at;
}

void pattern_automaton::finish() {
    for (node &each : nodes)
        each.first = each.rule;
    for (size_t i = nodes.size(); i-- > 1;)
        for (size_t list = 0; list < 2; list++)
            nodes[nodes[i].parent].first[list] = std::min(nodes[nodes[i].parent].first[list], nodes[i].first[list]);
}

void pattern_automaton::settle(state &gathered, rule_pair &limit) const {
    for (size_t i = 0, count = gathered.size(); i < count; i++)
        if (uint32_t any = nodes[gathered[i]].any; any != NONE)
            gathered.push_back(any);
    std::sort(gathered.begin(), gathered.end());
    gathered.erase(std::unique(gathered.begin(), gathered.end()), gathered.end());
    for (uint32_t number : gathered)
        for (size_t list = 0; list < 2; list++)
            if (nodes[number].is_any && nodes[number].rule[list] != NO_RULE)
                limit[list] = std::min(limit[list], nodes[number].rule[list] + 1);
    auto is_idle = [&](uint32_t number) {
        return nodes[number].first[0] >= limit[0] && nodes[number].first[1] >= limit[1];
    };
    gathered.erase(std::remove_if(gathered.begin(), gathered.end(), is_idle), gathered.end());
}

rule_pair pattern_automaton::accepted(const state &at) const {
    rule_pair first = {NO_RULE, NO_RULE};
    for (uint32_t number : at)
        for (size_t list = 0; list < 2; list++)
            first[list] = std::min(first[list], nodes[number].rule[list]);
    return first;
}

pattern_automaton::state pattern_automaton::walk(std::string_view pattern, rule_pair limit, work_budget &budget) const {
    state at = {0}, next;
    settle(at, limit);
    for (size_t i = 0; i < pattern.size() && !at.empty(); i++) {
        // A `*` can be nothing or a byte that no rule has; only the last of a run at the end is surely one.
        bool is_byte = pattern[i] != '*' || (i + 1 == pattern.size() && i > 0 && pattern[i - 1] == '*');
        next.clear();
        for (uint32_t number : at) {
            if (nodes[number].is_any)
                next.push_back(number);
            for (uint32_t child = nodes[number].child; child != NONE; child = nodes[child].next)
                if (nodes[child].byte == '*' ? is_byte : nodes[child].byte == pattern[i])
                    next.push_back(child);
        }
        if (!budget.take(at.size() + next.size()))
            return {};
        settle(next, limit);
        std::swap(at, next);
    }
    return at;
}

bool pattern_automaton::is_covered(std::string_view pattern, size_t list, uint32_t rule, work_budget &budget) const {
    rule_pair limit = {0, 0};
    limit[list] = rule;
    return accepted(walk(pattern, limit, budget))[list] < rule;
}

bool find_words(const pattern_automaton &automaton, uint32_t rule, uint32_t end, std::vector<bool> wanted,
                work_budget &budget, std::map<uint32_t, std::string> &words) {
    const std::vector<pattern_automaton::node> &nodes = automaton.nodes;
    word_search search{automaton, rule, budget, std::vector<uint32_t>(nodes.size(), NONE),
                       std::vector<uint32_t>(nodes.size())};
    uint32_t bytes = 0;
    for (uint32_t at = end; at != NONE; at = nodes[at].parent) {
        search.rest[at] = bytes;
        bytes += nodes[at].is_any ? 0 : 1;
    }
    for (size_t i = nodes.size(); i-- > 0;) {
        search.wanted_below[i] += nodes[i].rule[1] != NO_RULE && wanted[nodes[i].rule[1]] ? 1 : 0;
        if (nodes[i].parent != NONE)
            search.wanted_below[nodes[i].parent] += search.wanted_below[i];
    }
    rule_pair limit = {rule + 1, NO_RULE};
    pattern_automaton::state start = {0};
    automaton.settle(start, limit);
    search.expand(start, nullptr);
    for (size_t cost = 0; cost < search.queues.size(); cost++)
        for (size_t i = 0; i < search.queues[cost].size(); i++) {
            const word_search::met_state *at = search.queues[cost][i];
            auto [own, other] = automaton.accepted(at->first);
            if (own == rule && other != NO_RULE && wanted[other]) {
                std::string &word = words[other];
                for (const word_search::met_state *back = at; back; back = back->second.before)
                    word.insert(word.begin(), back->second.byte);
                wanted[other] = false;
                uint32_t node = 0;
                for (uint32_t number : at->first)
                    node = nodes[number].rule[1] == other ? number : node;
                for (; node != NONE; node = nodes[node].parent)
                    search.wanted_below[node]--;
                if (search.wanted_below[0] == 0)
                    return true;
            }
            if (budget.left == 0 || search.stored > MOST_STORED)
                return false;
            search.expand(at->first, at);
        }
    return true;
}
