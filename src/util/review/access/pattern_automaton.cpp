// The automaton over host patterns.
#include "access/pattern_automaton.h"

#include <algorithm>

uint32_t pattern_automaton::add(std::string_view pattern, size_t list, uint32_t rule) {
    uint32_t at = 0;
    auto make = [&](bool is_any, char byte) {
        nodes.emplace_back();
        nodes.back().parent = at;
        nodes.back().is_any = is_any;
        nodes.back().byte = byte;
        return static_cast<uint32_t>(nodes.size() - 1);
    };
    auto enter = [&](char byte) {
        uint32_t child = nodes[at].child;
        while (child != NONE && nodes[child].byte != byte)
            child = nodes[child].next;
        if (child == NONE) {
            child = make(false, byte);
            nodes[child].next = nodes[at].child;
            nodes[at].child = child;
        }
        at = child;
    };
    for (size_t i = 0; i < pattern.size(); i++) {
        bool is_last = i + 1 == pattern.size();
        if (pattern[i] != '*' || (is_last && i > 0 && pattern[i - 1] == '*'))
            enter(pattern[i]);
        if (pattern[i] != '*' || (!is_last && pattern[i + 1] == '*'))
            continue;
        if (nodes[at].any == NONE) {
            uint32_t made = make(true, 0);
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

void pattern_automaton::settle(state &gathered, limits &limit) const {
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

uint32_t pattern_automaton::accepted(const state &at, size_t list) const {
    uint32_t first = NO_RULE;
    for (uint32_t number : at)
        first = std::min(first, nodes[number].rule[list]);
    return first;
}

pattern_automaton::state pattern_automaton::walk(std::string_view pattern, limits limit, work_budget &budget) const {
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
    limits limit = {0, 0};
    limit[list] = rule;
    return accepted(walk(pattern, limit, budget), list) < rule;
}
