// Causes of differences, found by what the result holds.
#include "access_causes.h"
#include "access_maps.h"
#include "frag_tools.h"
#include "nsym.h"

#include <algorithm>

namespace {

constexpr size_t NAME_LIMIT = FRAGNAME_SIZE - 1;
constexpr size_t LISTS_LOOKED_AT = 64; // of those that hold an address

std::string map_text(const access_map &map) {
    return std::string(map.permit ? "P" : "D") + '\n' + map.source + '\n' + map.proxy + '\n' + map.policy;
}

// The group that stands for a list: its name without a suffix like "$LIST".
std::string group_of(const std::string &list) {
    size_t len = list.size();
    return len >= 5 && list[len - 5] == '$' ? list.substr(0, len - 5) : list;
}

// What a table's rule builds its names on: the last policy of its tail, else the proxy.
std::string name_base(std::string_view tail, const std::string &proxy) {
    size_t at = tail.rfind("-policy");
    if (at == std::string_view::npos)
        return proxy;
    tail.remove_prefix(at + 7);
    tail.remove_prefix(std::min(tail.size(), tail.find_first_not_of(" \t")));
    return std::string(tail.substr(0, tail.find_first_of(" \t")));
}

bool has_member(const named_records<group_member>::record &group, const std::string &list) {
    return std::any_of(group.parts.begin(), group.parts.end(), [&](const group_member &member) {
        return member.name == list || member.name == list.substr(0, NAME_LIMIT);
    });
}

template <typename part> void add_prefixed(std::unordered_set<std::string> &names, const named_records<part> &records) {
    for (const auto &record : records.records)
        if (std::string bare = name_in_key(record.name); !record.from_key && bare != record.name)
            names.insert(std::move(bare));
}

} // namespace

cause_finder::cause_finder(const access_side &before_side, const access_side &after_side, const access_causes &causes)
    : before(before_side), after(after_side) {
    access_side initial;
    if (!causes.initial_environment.empty() && read_access_maps(causes.initial_environment.c_str(), initial))
        for (const access_map &map : initial.maps)
            initial_maps.insert(map_text(map));
    for (const access_map &map : before.maps)
        initial_maps.erase(map_text(map));
    for (size_t i = 0; i < after.lists.records.size(); i++)
        for (const list_element &element : after.lists.records[i].parts)
            if (auto &lists = lists_with[element.address]; lists.size() < LISTS_LOOKED_AT)
                lists.push_back(i);
    for (size_t i = 0; i < after.maps.size(); i++)
        maps_with[after.maps[i].group].push_back(i);
    add_prefixed(prefixed, after.lists);
    add_prefixed(prefixed, after.groups);
    add_prefixed(prefixed, after.policies);
    for (const std::string &name : after.proxies)
        if (std::string bare = name_in_key(name); bare != name)
            prefixed.insert(std::move(bare));
}

void cause_finder::begin_proxy(const std::string &name, const std::vector<access_rule> &before_rules,
                               const std::vector<access_rule> &after_rules) {
    proxy = name;
    auto spell = [](spellings &into, const std::vector<access_rule> &rules) {
        into = {};
        for (const access_rule &rule : rules) {
            into.exact.insert(rule.pattern);
            into.lower.insert(lowercase(rule.pattern));
        }
    };
    spell(was_spelled, before_rules);
    spell(is_spelled, after_rules);
}

bool cause_finder::differs_in_case(const access_rule *rule, const spellings &others) const {
    return rule && others.exact.count(rule->pattern) == 0 && others.lower.count(lowercase(rule->pattern)) != 0;
}

// A list's name is the base, a number and a suffix; what is cut off of it makes two groups one.
bool cause_finder::is_cut(const access_rule *was, const access_rule *is) const {
    size_t longest = was && was->map == 0 ? name_base(was->tail, proxy).size() + std::string_view("-1$LIST").size() : 0;
    if (is)
        longest = std::max(longest, after.maps[is->source].group.size() + 1);
    return longest > NAME_LIMIT;
}

// Whether what the rule became is named otherwise than what refers to it: a merge that sets a prefix renames it.
bool cause_finder::lost_prefix(const access_rule &was) const {
    if (prefixed.count(proxy) != 0)
        return true;
    auto found = lists_with.find(std::string(was.pattern));
    if (found == lists_with.end())
        return false;
    for (size_t i : found->second) {
        const std::string &list = after.lists.records[i].name;
        std::string bare = name_in_key(list), group = group_of(bare);
        if (bare != list || (prefixed.count(group) != 0 && !after.groups.find(group)))
            return true;
        auto maps = maps_with.find(group);
        for (size_t map : maps == maps_with.end() ? std::vector<size_t>() : maps->second)
            if (prefixed.count(after.maps[map].policy) != 0 && !after.policies.find(after.maps[map].policy))
                return true;
    }
    return false;
}

// Whether a list that holds the rule's pattern has a group of its name that leaves it out.
bool cause_finder::met_group(const access_rule &was) const {
    auto found = lists_with.find(std::string(was.pattern));
    if (found == lists_with.end())
        return false;
    return std::any_of(found->second.begin(), found->second.end(), [&](size_t i) {
        const std::string &list = after.lists.records[i].name;
        const auto *group = after.groups.find(group_of(list));
        return group && !has_member(*group, list);
    });
}

std::string cause_finder::cause(const access_rule *was, const access_rule *is) const {
    bool from_table = was && was->map == 0;
    bool same_pattern = was && is && was->pattern == is->pattern;
    bool unmarked = from_table && (was->origin == class_origin::none || was->origin == class_origin::absorb_prefix);
    if (unmarked && was->permit && same_pattern && !is->permit)
        return "an unmarked rule that joined a deny";
    if (differs_in_case(was, is_spelled) || differs_in_case(is, was_spelled))
        return "equal but for the case of letters";
    if (is_cut(was, is))
        return "a name cut at 63 bytes";
    if (was && !same_pattern && lost_prefix(*was))
        return "the prefix was replaced by a merge";
    if (was && !same_pattern && met_group(*was))
        return "a group of that name was there already";
    if (is && initial_maps.count(map_text(after.maps[is->source])) != 0)
        return "by the initial environment";
    if (is) {
        const std::string &name = after.maps[is->source].group;
        const auto *group = after.groups.find(name);
        const auto *list = after.lists.find(name + "$LIST");
        if (group && list && !has_member(*group, list->name))
            return "a group of that name was there already";
    }
    return "";
}
