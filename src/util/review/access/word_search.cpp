// The search for the shortest words that a rule decides.
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

struct searcher {
    using state = pattern_automaton::state;
    struct origin;
    using met_state = std::pair<const state, origin>;
    struct origin {
        const met_state *parent; // null for the state before any byte
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

    void push(state &at, const met_state *parent, char byte) {
        pattern_automaton::limits limit = {rule + 1, NO_RULE};
        automaton.settle(at, limit);
        uint32_t depth = parent ? parent->second.depth + 1 : 1, bytes = NONE;
        bool is_open = false;
        for (uint32_t number : at) {
            bytes = std::min(bytes, rest[number]);
            is_open = is_open || wanted_below[number] > 0;
        }
        if (!is_open || bytes == NONE || limit[0] <= rule)
            return;
        auto [known, added] = met.try_emplace(at, origin{parent, byte, depth});
        if (!added && known->second.depth <= depth)
            return;
        known->second = {parent, byte, depth};
        stored += at.size() + COST_OF_STATE;
        queues.resize(std::max(queues.size(), size_t{depth} + bytes + 1));
        queues[depth + bytes].push_back(&*known);
    }

    void expand(const state &from, const met_state *parent) {
        state stay, next;
        std::vector<std::pair<size_t, uint32_t>> edges; // ranks of bytes and the nodes that they lead to
        for (uint32_t number : from) {
            if (automaton.nodes[number].is_any)
                stay.push_back(number);
            for (uint32_t child = automaton.nodes[number].child; child != NONE; child = automaton.nodes[child].next)
                if (char byte = automaton.nodes[child].byte; byte == '*')
                    stay.push_back(child);
                else
                    edges.emplace_back(liked.find(byte), child);
        }
        std::sort(edges.begin(), edges.end());
        std::pair<size_t, uint32_t> other = {0, NONE}; // the first byte that leads nowhere else
        for (const auto &edge : edges)
            other.first += edge.first == other.first ? 1 : 0;
        if (other.first < liked.size())
            edges.insert(std::lower_bound(edges.begin(), edges.end(), other), other);
        for (size_t i = 0; i < edges.size();) {
            size_t rank = edges[i].first;
            for (next = stay; i < edges.size() && edges[i].first == rank; i++)
                if (edges[i].second != NONE)
                    next.push_back(edges[i].second);
            budget.take(next.size() + 4);
            push(next, parent, liked[rank]);
        }
    }
};

} // namespace

bool search_words(const pattern_automaton &automaton, uint32_t rule, uint32_t end, std::vector<bool> wanted,
                  work_budget &budget, const std::function<void(const std::string &word, uint32_t other)> &found) {
    const std::vector<pattern_automaton::node> &nodes = automaton.nodes;
    searcher search{automaton, rule, budget, std::vector<uint32_t>(nodes.size(), NONE),
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
    pattern_automaton::limits limit = {rule + 1, NO_RULE};
    pattern_automaton::state start = {0};
    automaton.settle(start, limit);
    search.expand(start, nullptr);
    for (size_t cost = 0; cost < search.queues.size(); cost++)
        for (size_t i = 0; i < search.queues[cost].size(); i++) {
            const searcher::met_state *at = search.queues[cost][i];
            uint32_t other = automaton.accepted(at->first, 1);
            if (automaton.accepted(at->first, 0) == rule && other != NO_RULE && wanted[other]) {
                std::string word;
                for (const searcher::met_state *back = at; back; back = back->second.parent)
                    word.insert(word.begin(), back->second.byte);
                found(word, other);
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
