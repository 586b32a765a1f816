// Where the rules for hosts stand: as elements of the sources of maps, with the groups, policies and config sets of
// these.
#include "access/pattern_automaton.h"
#include "frag_tools.h"
#include "lines/accounting.h"
#include "netperm.h"

#include <deque>
#include <fmt/format.h>
#include <utility>

using fmt::format;

namespace {

// Whether a pattern covers another and drops it: a star that faces a star is an ordinary byte to the translation.
bool drops(std::string_view pattern, std::string_view other) {
    return covers(pattern, other) && wildmatch(std::string(pattern).c_str(), std::string(other).c_str()) != 0;
}

/// Places the rules for hosts of one proxy with what is made of them: the element and the map.
struct host_placer {
    accounting &all;
    result_places &result;
    const access_side &side;
    const std::string &proxy;
    std::vector<made_set> &sets;
    /// Those not yet taken, by their sources and rulings.
    std::map<std::pair<std::string_view, bool>, std::deque<size_t>> maps{};
    const access_rule *last = nullptr, *last_now = nullptr; ///< placed, and with which element
    size_t of_map = 0, count = 0;                           ///< of the last; config sets are counted in each table anew

    // Whether no line of a configuration stands at the map.
    bool is_of_table(const access_rule &now) const {
        const account_line *from = result.notes(side.maps[now.source].frag).from;
        return !from || !from->said;
    }

    // What stands for a host is an element that says the same, rather one of a table's maps, by the same ruling, that
    // stands for no other host, and in the same case; none but in a map by the same ruling. Any other host is covered
    // by an earlier rule of its table, where for a host with a star two hundred that have one are tried; or it stands
    // there by another ruling, or it is lost.
    void place() {
        constexpr size_t MOST_PATTERNS = 200;
        const std::vector<access_rule> before = rules_of(all.in.before, proxy), after = rules_of(side, proxy);
        std::vector<const access_rule *> patterns;
        std::unordered_map<std::string, std::vector<const access_rule *>> standing;
        std::unordered_set<const access_rule *> taken;
        std::map<size_t, pattern_automaton> tables;
        work_budget budget{UINT64_MAX};
        for (size_t each : maps_for(side, proxy))
            maps[{side.maps[each].source, side.maps[each].permit}].push_back(each);
        for (const access_rule &each : after)
            standing[lowercase(each.pattern)].push_back(&each);
        for (uint32_t i = 0; i < before.size(); i++)
            tables[before[i].table].add(before[i].pattern, 0, i);
        for (uint32_t i = 0; i < before.size(); i++) {
            const access_rule &rule = before[i];
            if (i > 0 && rule.table != before[i - 1].table)
                patterns.clear();
            bool has_star = rule.pattern.find('*') != rule.pattern.npos;
            pattern_automaton &own = tables[rule.table];
            uint32_t first =
                has_star ? own.nodes[own.add(rule.pattern, 0, i)].rule[0] : own.deciding(rule.pattern, budget)[0];
            const access_rule *by = first < i ? &before[first] : nullptr;
            for (size_t p = 0; !by && has_star && p < patterns.size(); p++)
                if (drops(patterns[p]->pattern, rule.pattern))
                    by = patterns[p];
            account_line &line = *all.rule_lines[all.in.before.tables[rule.table]][rule.source];
            if (by) { // what is dropped drops nothing
                line.excuse(format("an earlier rule covers its hosts, such as line {}", by->line));
                continue;
            }
            if (has_star && patterns.size() < MOST_PATTERNS)
                patterns.push_back(&rule);
            auto fitness = [&](const access_rule *each) {
                return 8 * is_of_table(*each) + 4 * (each->permit == rule.permit) + 2 * (taken.count(each) == 0) +
                       (each->pattern == rule.pattern);
            };
            const access_rule *now = nullptr;
            for (const access_rule *each : standing[lowercase(rule.pattern)])
                if (!now || fitness(each) > fitness(now))
                    now = each;
            const Frag *address = now && now->element ? find_named(now->element->child, "addr") : nullptr;
            // The comparison leaves out a map of the same source.
            if (now && maps.count({side.maps[now->source].source, rule.permit}) != 0) {
                taken.insert(now);
                take(rule, *now, address, line);
            } else if (address && rule.unmarked) {
                result.reshape(address, line, "in a map that denies");
            } else if ((!has_star || patterns.size() < MOST_PATTERNS) && !is_dropped_proxy(proxy, all.data.release)) {
                all.tell_lost(line, format("{}: host {} stands nowhere in the result", proxy, rule.pattern));
            }
        }
    }

    // Rules that follow each other make a group with a map and a config set. Maps stand in the order of the sets: that
    // of the proxy's own name, then with 2, 3 and so on.
    void take(const access_rule &rule, const access_rule &now, const Frag *address, account_line &line) {
        std::deque<size_t> &alike = maps[{side.maps[now.source].source, rule.permit}];
        bool is_same_table = last && rule.table == last->table;
        bool is_group = !is_same_table || now.source != last_now->source || rule.tail != last->tail ||
                        rule.permit != last->permit || &now == last_now;
        last = &rule;
        last_now = &now;
        size_t last_map = std::exchange(of_map, !is_group ? of_map : alike.empty() ? now.source : alike.front());
        result.reshape(address ? address : side.maps[of_map].frag, line,
                       now.pattern == rule.pattern ? format("in map {}", side.maps[of_map].number)
                                                   : "as a host equal but for the case of letters");
        if (!is_group)
            return;
        if (of_map < last_map && all.in.before.tables.size() == 1 && all.inputs.front().table)
            all.tell_some("unexplained", format("map {} stands in another order", side.maps[of_map].number),
                          all.in_result(side.maps[of_map].line));
        if (!alike.empty())
            alike.pop_front();
        count = is_same_table ? count + 1 : 1;
        std::string suffix = count == 1 ? "" : format("-{}", count);
        std::string path = format("def_proxy_{0}_config-sets_{0}{1}", encoded_name(proxy), suffix);
        const Frag *set = result.conf.find(path.c_str());
        sets.push_back({proxy, std::move(path), line, split_options(rule.tail)});
        if (is_of_table(now))
            take_map(side.maps[of_map], now.element, set, line);
    }

    // What a rule makes beside the elements: the map, the group, and the policy with the set that it lists.
    void take_map(const access_map &map, const Frag *element, const Frag *set, account_line &line) {
        const std::string of_all = map.permit ? "proxy" : "policy"; // a `*` in each map of a table
        for (const char *field : {"pd", "src", "policy", "proxy"})
            if (const Frag *frag = find_named(map.frag->child, field);
                frag && (of_all != field || text_of(frag) == "*"))
                result.stand(frag, line);
        std::string source = map.source;
        const Frag *group = take_group_mark(source) ? result.conf.record("netobj_group", source) : nullptr;
        std::string list = element ? clear_name(element->parent->parent) : "";
        for (const Frag *member : configuration::children(group, "member"))
            for (const Frag *field : configuration::children(member, ""))
                if (configuration::value(member, "name") == list && (!is_named(field, "type") || text_of(field) == "L"))
                    result.stand(field, line);
        Frag *policy = map.permit ? result.conf.record("policy", map.policy) : nullptr;
        if (!policy)
            return;
        const std::vector<Frag *> listed = configuration::children(policy, "proxy");
        const Frag *desc = ffind(&policy->child, "parm_desc");
        // One that was merged is called by its name, any other by its proxy.
        bool is_merged = listed.size() > 1 || begins(map.policy, "Policy-");
        if (desc && ((is_merged && text_of(desc) == map.policy) ||
                     (listed.size() < 2 && all.in.before.knows(configuration::value(desc, "")))))
            result.stand(desc, line);
        else
            all.tell_lost(line, format("the policy {} has {} description", map.policy, desc ? "another" : "no"));
        // With a second table the numbers of the sets can't be told from the rules alone.
        bool is_set = !set || all.in.before.tables.size() > 1;
        for (const Frag *entry : listed) {
            result.stand(entry, line);
            is_set = is_set || is_named(entry, set->name);
        }
        if (!is_set)
            all.tell_lost(line, format("the policy {} does not list the config set {}", map.policy, clear_name(set)));
    }
};

} // namespace

std::vector<made_set> place_host_rules(accounting &all, result_places &result, const access_side &side) {
    std::vector<made_set> sets;
    for (const std::string &proxy : all.in.before.proxies)
        if (!is_removed_proxy(proxy)) // whose rules go before they are translated
            host_placer{all, result, side, proxy, sets}.place();
    return sets;
}
