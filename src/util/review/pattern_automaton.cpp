// The automaton over host patterns, and the search for shortest words in it.
#include "pattern_automaton.h"

#include <algorithm>
#include <cstddef>
#include <string_view>
#include <unordered_set>

uint32_t pattern_automaton::make(uint32_t parent, node_kind kind, unsigned char byte) {
    node made;
    made.kind = kind;
    made.byte = byte;
    made.parent = parent;
    nodes.push_back(made);
    return static_cast<uint32_t>(nodes.size() - 1);
}

uint32_t pattern_automaton::add_byte(uint32_t from, unsigned char byte) {
    for (uint32_t child = nodes[from].child; child != NONE; child = nodes[child].next)
        if (nodes[child].byte == byte)
            return child;
    uint32_t made = make(from, LITERAL, byte);
    nodes[made].next = nodes[from].child;
    nodes[from].child = made;
    return made;
}

uint32_t pattern_automaton::add(std::string_view pattern, size_t list, uint32_t rule) {
    auto step = [this](uint32_t from, uint32_t node::*way, node_kind kind) {
        if (nodes[from].*way == NONE) {
            uint32_t made = make(from, kind, 0);
            nodes[from].*way = made;
        }
        return nodes[from].*way;
    };
    uint32_t at = 0;
    for (size_t i = 0; i < pattern.size();) {
        if (pattern[i] != '*') {
            at = add_byte(at, static_cast<unsigned char>(pattern[i++]));
            continue;
        }
        size_t run_end = std::min(pattern.find_first_not_of('*', i), pattern.size());
        if (run_end == pattern.size() && run_end - i > 1)
            at = step(at, &node::some, SOME);
        at = step(at, &node::any, ANY);
        i = run_end;
    }
    nodes[at].rule[list] = std::min(nodes[at].rule[list], rule);
    return at;
}

void pattern_automaton::finish() {
    for (node &each : nodes) {
        each.first = each.rule;
        each.sole_any = NONE;
    }
    for (size_t i = nodes.size(); i-- > 0;) {
        node &each = nodes[i];
        uint32_t ways = (each.child != NONE ? 1u : 0u) + (each.any != NONE ? 1u : 0u) + (each.some != NONE ? 1u : 0u);
        bool goes_on = ways == 1 && each.kind != SOME && each.rule[0] == NO_RULE && each.rule[1] == NO_RULE;
        if (goes_on && each.any != NONE)
            each.sole_any = each.any;
        else if (goes_on && each.child != NONE && nodes[each.child].next == NONE)
            each.sole_any = nodes[each.child].sole_any;
        if (each.parent == NONE)
            continue;
        node &parent = nodes[each.parent];
        for (size_t list = 0; list < 2; list++)
            parent.first[list] = std::min(parent.first[list], each.first[list]);
        parent.wanted = std::min(parent.wanted, each.wanted);
    }
}

void pattern_automaton::settle(state &gathered, limits &limit) const {
    size_t count = gathered.size();
    for (size_t i = 0; i < count; i++) {
        const node &each = nodes[gathered[i]];
        if (each.kind == SOME)
            continue;
        if (each.any != NONE)
            gathered.push_back(each.any);
        if (each.some != NONE)
            gathered.push_back(each.some);
    }
    std::sort(gathered.begin(), gathered.end());
    gathered.erase(std::unique(gathered.begin(), gathered.end()), gathered.end());
    for (uint32_t number : gathered)
        for (size_t list = 0; list < 2; list++)
            if (nodes[number].kind == ANY && nodes[number].rule[list] != NO_RULE)
                limit[list] = std::min(limit[list], nodes[number].rule[list] + 1);
    // What an ANY node accepts takes in all that the nodes whose every way leads to it accept. It has a higher number.
    size_t kept = 0;
    for (size_t i = 0; i < gathered.size(); i++) {
        const node &each = nodes[gathered[i]];
        bool matters = each.first[0] < limit[0] || each.first[1] < limit[1];
        auto behind = gathered.begin() + static_cast<ptrdiff_t>(i);
        if (matters && (each.sole_any == NONE || !std::binary_search(behind, gathered.end(), each.sole_any)))
            gathered[kept++] = gathered[i];
    }
    gathered.resize(kept);
}

pattern_automaton::state pattern_automaton::start(limits &limit) const {
    state first = {0};
    settle(first, limit);
    return first;
}

uint32_t pattern_automaton::accepted(const state &at, size_t list) const {
    uint32_t first = NO_RULE;
    for (uint32_t number : at)
        first = std::min(first, nodes[number].rule[list]);
    return first;
}

bool pattern_automaton::is_covered(std::string_view pattern, size_t list, uint32_t rule, work_budget &budget) const {
    limits limit = {0, 0};
    limit[list] = rule;
    state at = start(limit), next;
    for (size_t i = 0; i < pattern.size() && !at.empty(); i++) {
        // A `*` of the pattern can be nothing or a byte that no rule has; only the second of a run at the end must be
        // one.
        bool is_star = pattern[i] == '*';
        bool is_some = is_star && i + 1 == pattern.size() && i > 0 && pattern[i - 1] == '*';
        next.clear();
        for (uint32_t number : at) {
            const node &each = nodes[number];
            if (each.kind == ANY || (each.kind == SOME && is_star))
                next.push_back(number);
            if (each.kind == SOME && (!is_star || is_some))
                next.push_back(each.any);
            for (uint32_t child = is_star ? NONE : each.child; child != NONE; child = nodes[child].next)
                if (nodes[child].byte == static_cast<unsigned char>(pattern[i]))
                    next.push_back(child);
        }
        if (!budget.take(at.size() + next.size()))
            return false;
        settle(next, limit);
        std::swap(at, next);
    }
    return accepted(at, list) < rule;
}

namespace {

/// Bytes in the order in which they are liked in a host.
struct byte_order {
    std::array<unsigned char, 256> bytes{};
    std::array<unsigned char, 256> rank{};
    size_t count = 0;

    constexpr byte_order() {
        std::array<bool, 256> known{};
        for (char never : {'\0', ' ', '\t', '*'})
            known[static_cast<unsigned char>(never)] = true;
        auto add = [&](unsigned char byte) {
            if (!known[byte]) {
                known[byte] = true;
                rank[byte] = static_cast<unsigned char>(count);
                bytes[count++] = byte;
            }
        };
        for (char byte : std::string_view("0123456789abcdefghijklmnopqrstuvwxyz.-ABCDEFGHIJKLMNOPQRSTUVWXYZ"))
            add(static_cast<unsigned char>(byte));
        for (int byte = '!'; byte < 256; byte++)
            add(static_cast<unsigned char>(byte));
        for (int byte = 1; byte < ' '; byte++)
            add(static_cast<unsigned char>(byte));
    }
};
constexpr byte_order order;

struct searcher {
    static constexpr uint32_t NONE = pattern_automaton::NONE;
    static constexpr size_t MOST_NODES = size_t{1} << 25; // in all states together
    static constexpr size_t MOST_STATES = size_t{1} << 22;
    using state = pattern_automaton::state;
    using limits = pattern_automaton::limits;

    struct entry {
        size_t begin;
        uint32_t size;
        uint32_t parent;
        uint32_t depth;
        unsigned char byte;
        bool done;
    };

    const pattern_automaton &automaton;
    const word_search &search;
    work_budget &budget;
    std::vector<uint32_t> pool;
    std::vector<entry> entries;
    std::unordered_set<uint32_t> told;
    std::vector<std::pair<unsigned char, uint32_t>> edges; // ranks of bytes and the nodes behind them

    struct hash {
        const searcher &all;
        size_t operator()(uint32_t number) const {
            uint64_t sum = 0x9E3779B97F4A7C15u;
            const entry &each = all.entries[number];
            for (size_t i = each.begin; i < each.begin + each.size; i++)
                sum = (sum ^ all.pool[i]) * 0xFF51AFD7ED558CCDu + (sum >> 32);
            return static_cast<size_t>(sum ^ (sum >> 29));
        }
    };
    struct equal {
        const searcher &all;
        bool operator()(uint32_t a, uint32_t b) const {
            const entry &left = all.entries[a], &right = all.entries[b];
            return left.size == right.size &&
                   std::equal(all.pool.begin() + static_cast<ptrdiff_t>(left.begin),
                              all.pool.begin() + static_cast<ptrdiff_t>(left.begin + left.size),
                              all.pool.begin() + static_cast<ptrdiff_t>(right.begin));
        }
    };
    std::unordered_set<uint32_t, hash, equal> met{16, hash{*this}, equal{*this}};
    std::vector<uint32_t> way;                 // the rule's nodes, from the root on
    std::vector<uint32_t> distance;            // for each of them, the bytes from there to the rule's end
    std::vector<std::vector<uint32_t>> queues; // by depth and distance together

    searcher(const pattern_automaton &on, const word_search &what, work_budget &steps)
        : automaton(on), search(what), budget(steps) {
        uint32_t bytes = 0;
        for (uint32_t at = search.end; at != NONE; at = automaton.nodes[at].parent) {
            way.push_back(at);
            distance.push_back(bytes);
            uint32_t parent = automaton.nodes[at].parent;
            bool takes_byte = automaton.nodes[at].kind == pattern_automaton::LITERAL ||
                              (parent != NONE && automaton.nodes[parent].kind == pattern_automaton::SOME);
            bytes += takes_byte ? 1 : 0;
        }
        std::reverse(way.begin(), way.end());
        std::reverse(distance.begin(), distance.end());
    }

    uint32_t distance_of(uint32_t number) const {
        auto found = std::lower_bound(way.begin(), way.end(), number);
        return found != way.end() && *found == number ? distance[static_cast<size_t>(found - way.begin())] : NONE;
    }

    limits first_limits() const {
        limits limit{};
        limit[search.list] = search.rule + 1;
        limit[1 - search.list] = search.other_limit;
        return limit;
    }

    // Whether a word below the state can still be wanted.
    bool is_open(const state &at, const limits &limit) const {
        if (search.wants_all)
            return true;
        if (search.wants_none && limit[1 - search.list] == NO_RULE && told.count(NO_RULE) == 0)
            return true;
        return std::any_of(at.begin(), at.end(),
                           [&](uint32_t number) { return automaton.nodes[number].wanted < limit[1 - search.list]; });
    }

    void push(state &gathered, uint32_t parent, unsigned char byte, uint32_t depth) {
        limits limit = first_limits();
        automaton.settle(gathered, limit);
        uint32_t rest = NONE;
        for (uint32_t number : gathered)
            rest = std::min(rest, distance_of(number));
        if (rest == NONE || limit[search.list] <= search.rule || !is_open(gathered, limit))
            return;
        uint32_t number = static_cast<uint32_t>(entries.size());
        entries.push_back({pool.size(), static_cast<uint32_t>(gathered.size()), parent, depth, byte, false});
        pool.insert(pool.end(), gathered.begin(), gathered.end());
        auto [found, added] = met.insert(number);
        if (!added) {
            pool.resize(entries.back().begin);
            entries.pop_back();
            number = *found;
            entry &known = entries[number];
            if (known.done || known.depth <= depth)
                return;
            known.parent = parent;
            known.depth = depth;
            known.byte = byte;
        }
        if (queues.size() <= depth + rest)
            queues.resize(depth + rest + 1);
        queues[depth + rest].push_back(number);
    }

    std::string word_of(uint32_t number) const {
        std::string word;
        for (; entries[number].parent != NONE; number = entries[number].parent)
            word += static_cast<char>(entries[number].byte);
        std::reverse(word.begin(), word.end());
        return word;
    }

    // Tells what the state's words come to. True ends the search.
    bool tell(const state &at, uint32_t number) {
        if (entries[number].depth == 0 || automaton.accepted(at, search.list) != search.rule)
            return false;
        uint32_t other = automaton.accepted(at, 1 - search.list);
        if (!told.insert(other).second)
            return false;
        return search.found(word_of(number), other);
    }

    void expand(const state &at, uint32_t number) {
        edges.clear();
        state stay;
        std::array<bool, 256> allowed{};
        bool all_allowed = false;
        for (uint32_t each : at) {
            const pattern_automaton::node &node = automaton.nodes[each];
            bool on_way = distance_of(each) != NONE;
            if (node.kind == pattern_automaton::ANY)
                stay.push_back(each);
            if (node.kind == pattern_automaton::SOME)
                stay.push_back(node.any);
            all_allowed = all_allowed || (on_way && node.kind != pattern_automaton::LITERAL);
            for (uint32_t child = node.child; child != NONE; child = automaton.nodes[child].next) {
                unsigned char rank = order.rank[automaton.nodes[child].byte];
                edges.emplace_back(rank, child);
                if (on_way && distance_of(child) != NONE)
                    allowed[rank] = true;
            }
        }
        std::sort(edges.begin(), edges.end());
        uint32_t depth = entries[number].depth + 1;
        size_t free_rank = 0; // the first byte that leads nowhere else
        for (const auto &edge : edges)
            free_rank += edge.first == free_rank ? 1 : 0;
        bool is_free_due = all_allowed && free_rank < order.count;
        auto push_free = [&](size_t before_rank) {
            if (!is_free_due || free_rank >= before_rank)
                return;
            is_free_due = false;
            state rest = stay;
            push(rest, number, order.bytes[free_rank], depth);
        };
        state next;
        for (size_t i = 0; i < edges.size();) {
            unsigned char rank = edges[i].first;
            push_free(rank);
            next = stay;
            for (; i < edges.size() && edges[i].first == rank; i++)
                next.push_back(edges[i].second);
            budget.take(next.size() + 4);
            if (all_allowed || allowed[rank])
                push(next, number, order.bytes[rank], depth);
        }
        budget.take(edges.size() + stay.size() + 4);
        push_free(SIZE_MAX);
    }

    bool run() {
        state at = {0};
        push(at, NONE, 0, 0);
        met.clear(); // no host is empty, so a longer word may well come back to this state
        for (size_t cost = 0; cost < queues.size(); cost++)
            for (size_t i = 0; i < queues[cost].size(); i++) {
                uint32_t number = queues[cost][i];
                if (entries[number].done)
                    continue;
                entries[number].done = true;
                auto begin = pool.begin() + static_cast<ptrdiff_t>(entries[number].begin);
                at.assign(begin, begin + entries[number].size);
                if (tell(at, number))
                    return true;
                if (budget.left == 0 || pool.size() > MOST_NODES || entries.size() > MOST_STATES)
                    return false;
                expand(at, number);
            }
        return true;
    }
};

} // namespace

bool search_words(const pattern_automaton &automaton, const word_search &search, work_budget &budget) {
    return searcher(automaton, search, budget).run();
}
