// Where the rules for hosts stand: as elements of the sources of maps, with the groups, policies and config sets of
// these.
#include "access/pattern_automaton.h"
#include "lines/place_table.h"
#include "netperm.h"

#include <algorithm>
#include <fmt/format.h>
#include <set>
#include <utility>

using fmt::format;

namespace {

// Whether a pattern drops another that it covers: a star that faces a star is an ordinary byte to the translation.
bool drops(std::string_view pattern, std::string_view other) {
    return wildmatch(std::string(pattern).c_str(), std::string(other).c_str()) != 0;
}

} // namespace

// The rules of each proxy and the elements that say the same of the same host in the same order. A proxy's maps stand
// in the order of its config sets: its own name, then with 2, 3 and so on.
void rule_placer::place_hosts() {
    for (const std::string &proxy : all.in.before.proxies) {
        if (is_removed_proxy(proxy)) // its rules go before they are translated
            continue;
        const std::vector<access_rule> before = rules_of(all.in.before, proxy), after = rules_of(side, proxy);
        maps_by_source alike; // those not yet taken
        for (size_t each : maps_for(side, proxy))
            alike[side.maps[each].source].push_back(each);
        const access_rule *first = nullptr, *first_now = nullptr; // of the group
        size_t map = 0, count = 0, last_is = NO_LINE;             // config sets are counted in each table anew
        for (auto [was, is] : find_partners(proxy, before, after, alike)) {
            const access_rule &rule = before[was], &now = after[is];
            size_t number = all.rule_lines[all.in.before.tables[rule.table]][rule.source];
            // The comparison leaves out a source that stands again: each group has a map of it all the same.
            std::vector<size_t> &maps = alike[side.maps[now.source].source];
            bool is_group = !first || now.source != first_now->source || rule.tail != first->tail ||
                            rule.table != first->table || rule.permit != first->permit || is == last_is;
            last_is = is;
            size_t last_map = std::exchange(map, !is_group ? map : maps.empty() ? now.source : maps.front());
            const Frag *at = now.element ? child_of(now.element, "addr") : nullptr;
            bool is_same = now.pattern == rule.pattern;
            note(number, at ? at : side.maps[map].frag,
                 is_same ? format("in map {}", side.maps[map].number) : "as a host equal but for the case of letters");
            if (!is_group)
                continue;
            if (first && map < last_map && all.in.before.tables.size() == 1 && all.inputs.front().table)
                all.tell_some("unexplained", format("map {} stands in another order", side.maps[map].number),
                              all.in.result.name, side.maps[map].line);
            if (!maps.empty())
                maps.erase(maps.begin());
            count = first && rule.table == first->table ? count + 1 : 1;
            first = &rule;
            first_now = &now;
            std::string name = count == 1 ? proxy : format("{}-{}", proxy, count);
            const Frag *set = result.conf.find(set_path(proxy, name).c_str());
            rule_options options = split_options(rule.tail);
            templated[{all.lines[number].input, options.policy}].emplace_back(proxy, name);
            if (is_of_table(now))
                take_map(side.maps[map], now.element, set, number);
            if (set)
                take_set(set, options, number);
        }
    }
}

bool rule_placer::is_of_table(const access_rule &now) const {
    size_t from = result.notes(side.maps[now.source].frag).from;
    return from == NO_LINE || !all.lines[from].said;
}

// What stands for a host is an element that says the same, rather one of a table's maps, by the same ruling, that
// stands for no other host, and in the same case; none but in a map by the same ruling. Any other host is covered by an
// earlier rule of its table, where for a host with a star two hundred that have one are tried; or it stands there by
// another ruling, or it is lost.
std::vector<std::pair<size_t, size_t>> rule_placer::find_partners(const std::string &proxy,
                                                                  const std::vector<access_rule> &before,
                                                                  const std::vector<access_rule> &after,
                                                                  const maps_by_source &alike) {
    constexpr size_t MOST_PATTERNS = 200;
    std::vector<std::pair<std::string_view, long>> patterns;
    std::unordered_map<std::string, std::vector<size_t>> standing;
    std::vector<bool> taken(after.size());
    std::vector<std::pair<size_t, size_t>> pairs;
    for (size_t i = 0; i < after.size(); i++)
        standing[lowercase(after[i].pattern)].push_back(i);
    std::map<size_t, pattern_automaton> of_tables;
    std::vector<uint32_t> ends; // of the rules, in those
    for (uint32_t i = 0; i < before.size(); i++)
        ends.push_back(of_tables[before[i].table].add(before[i].pattern, 0, i));
    work_budget budget{UINT64_MAX};
    auto has_map = [&](const access_rule &there, bool permit) {
        const std::vector<size_t> &maps = alike.at(side.maps[there.source].source);
        return std::any_of(maps.begin(), maps.end(), [&](size_t each) { return side.maps[each].permit == permit; });
    };
    for (size_t i = 0, table = 0; i < before.size(); i++) {
        const access_rule &rule = before[i];
        if (std::exchange(table, rule.table) != rule.table)
            patterns.clear();
        auto fitness = [&](size_t each) {
            return 8 * is_of_table(after[each]) + 4 * (after[each].permit == rule.permit) + 2 * !taken[each] +
                   (after[each].pattern == rule.pattern);
        };
        bool has_star = rule.pattern.find('*') != rule.pattern.npos;
        const pattern_automaton &own = of_tables[rule.table];
        uint32_t first = has_star ? own.nodes[ends[i]].rule[0] : own.deciding(rule.pattern, budget)[0];
        long by = first < i ? before[first].line : 0;
        for (size_t p = 0; by == 0 && has_star && p < patterns.size(); p++)
            if (covers(patterns[p].first, rule.pattern) && drops(patterns[p].first, rule.pattern))
                by = patterns[p].second;
        size_t best = NO_LINE;
        if (auto same = standing.find(lowercase(rule.pattern)); by == 0 && same != standing.end())
            best = *std::max_element(same->second.begin(), same->second.end(),
                                     [&](size_t a, size_t b) { return fitness(a) < fitness(b); });
        const access_rule *there = best == NO_LINE ? nullptr : &after[best];
        if (by == 0 && has_star && patterns.size() < MOST_PATTERNS) // what is dropped drops nothing
            patterns.emplace_back(rule.pattern, rule.line);
        size_t number = all.rule_lines[all.in.before.tables[rule.table]][rule.source];
        const Frag *address = there && there->element ? child_of(there->element, "addr") : nullptr;
        if (by != 0) {
            all.filed.reasons.emplace(number, format("an earlier rule covers its hosts, such as line {}", by));
        } else if (there && has_map(*there, rule.permit)) { // the comparison leaves out a map of the same source
            pairs.emplace_back(i, best);
            taken[best] = true;
        } else if (address && rule.unmarked) {
            note(number, address, rule.permit ? "in a map that denies" : "in a map that permits");
        } else if ((!has_star || patterns.size() < MOST_PATTERNS) && !is_dropped_proxy(proxy, all.data.release)) {
            tell_lost(number, format("{}: host {} stands nowhere in the result", proxy, rule.pattern));
        }
    }
    return pairs;
}

// What a rule makes beside the elements: the map, the group, and the policy with the set that it lists.
void rule_placer::take_map(const access_map &map, const Frag *element, const Frag *set, size_t number) {
    const std::string of_all = map.permit ? "proxy" : "policy"; // a `*` in each map of a table
    for (const char *field : {"pd", "src", "policy", "proxy"})
        if (const Frag *frag = child_of(map.frag, field); frag && (of_all != field || text_of(frag) == "*"))
            result.stand(frag, number);
    std::string source = map.source;
    const Frag *group = take_group_mark(source) ? result.conf.record("netobj_group", source) : nullptr;
    std::string list = element ? clear_name(element->parent->parent) : "";
    for (const Frag *member : group ? configuration::children(group, "member") : std::vector<Frag *>())
        for (const Frag *field = member->child; configuration::value(member, "name") == list && field;
             field = field->next)
            if (!is_named(field, "type") || text_of(field) == "L")
                result.stand(field, number);
    const Frag *policy = map.permit ? result.conf.record("policy", map.policy) : nullptr;
    std::vector<Frag *> listed = policy ? configuration::children(policy, "proxy") : std::vector<Frag *>();
    const Frag *parm = policy ? child_of(policy, "parm") : nullptr;
    const Frag *desc = parm ? child_of(parm, "desc") : nullptr;
    // One that was merged is called by its name, any other by its proxy.
    bool is_merged = listed.size() > 1 || begins(map.policy, "Policy-");
    if (desc && ((is_merged && text_of(desc) == map.policy) ||
                 (listed.size() < 2 && all.in.before.knows(std::string(text_of(desc))))))
        result.stand(desc, number);
    else if (policy)
        tell_lost(number, format("the policy {} has {} description", map.policy, desc ? "another" : "no"));
    // With a second table the numbers of the sets can't be told from the rules alone.
    bool is_set = !policy || !set || all.in.before.tables.size() > 1;
    for (const Frag *entry : listed) {
        result.stand(entry, number);
        is_set = is_set || is_named(entry, set->name);
    }
    if (!is_set)
        tell_lost(number, format("the policy {} does not list the config set {}", map.policy, clear_name(set)));
}

// A config set has the words of its rules' tail; what stands behind -exec is the program.
void rule_placer::take_set(const Frag *set, const rule_options &options, size_t number) {
    std::set<std::string> words, met;
    for (std::string_view word : options.words)
        words.insert(decoded_name(word.substr(0, word.find('='))) + "=*");
    if (options.exec)
        words.insert("exec=" + *options.exec);
    result.claim(set, number);
    for (const Frag *parameter = set->child; parameter; parameter = parameter->next)
        for (const Frag *part = parameter; part; part = part->child) {
            std::string clear = decoded_name(place_keys::path(part).substr(place_keys::path(set).size() + 1));
            std::string value = part->value ? part->value : "";
            for (const std::string &said :
                 {format("{}={}", clear, value), format("{}={}", attr_revmap(clear.c_str()), value)})
                if (words.count(said) != 0) {
                    result.stand(part, number);
                    met.insert(said);
                }
        }
    for (const std::string &word : words)
        if (met.count(word) == 0)
            tell_lost(number, format("{} stands nowhere in the config set {}", word, clear_name(set)));
}
