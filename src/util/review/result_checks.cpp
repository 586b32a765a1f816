// Checks of a configuration by itself: names without a bearer, counts, doubles, and the limits of the file form.
#include "result_checks.h"
#include "frag_tools.h"
#include "input_checks.h"
#include "name_index.h"

#include <cstring>
#include <fmt/format.h>
#include <map>
#include <set>
#include <unordered_set>

using fmt::format;

namespace {

constexpr size_t RULE_LIMIT = 126;  // characters of a filter rule that a numbered save keeps
constexpr size_t DEPTH_LIMIT = 180; // bytes of key in front of a name whose children are written
constexpr size_t KEY_LIMIT = 1020;  // bytes of a whole key
const char group_mark[] = "$$NETOBJ.";

/// One configuration under check.
struct checking {
    canonical_conf &conf;
    const std::string &name;
    review_data &data;
    name_index groups, lists, policies, proxies;
    bool is_input = false;

    checking(canonical_conf &checked, const std::string &file, review_data &into)
        : conf(checked), name(file), data(into), groups(conf.db(), "netobj_group"), lists(conf.db(), "netobj_list"),
          policies(conf.db(), "policy"), proxies(conf.db(), "def_proxy") {}
    void dangling(std::string text, const std::string &family, const std::string &entry) {
        tell(data, "dangling", std::move(text), name, conf.line_of(family, entry));
    }
};

void check_maps(checking &check) {
    for (Frag *map : sorted_children(check.conf.db(), "map")) {
        std::string number = clear_name(map), source = child_value(map, "src"), policy = child_value(map, "policy");
        if (!map->child || number == "num" || number == "numrules")
            continue;
        if (has_prefix(source.c_str(), group_mark) && !check.groups.find_key(source.c_str() + strlen(group_mark)))
            check.dangling(format("map {} has the source {}, and there is no such group", number,
                                  source.substr(strlen(group_mark))),
                           "map", number);
        std::string decision = child_value(map, "pd"), proxy = child_value(map, "proxy");
        if (decision == "D" && proxy != "*" && !check.proxies.find(storedname(proxy)) && !check.proxies.find(proxy))
            check.dangling(format("map {} denies for {}, and there is no such proxy", number, proxy), "map", number);
        if (decision == "P" && !check.policies.find(storedname(policy)) && !check.policies.find(policy))
            check.dangling(format("map {} permits through the policy {}, and there is none", number, policy), "map",
                           number);
    }
}

void check_groups(checking &check) {
    for (Frag *group : sorted_children(check.conf.db(), "netobj_group")) {
        std::string name = clear_name(group);
        for (Frag *member : sorted_children(&group->child, "member")) {
            std::string type = child_value(member, "type"), wanted = child_value(member, "name");
            bool list = type == "L";
            if (!list && type != "G")
                continue;
            const name_index &names = list ? check.lists : check.groups;
            if (!names.find(wanted) && !names.find(storedname(wanted)))
                check.dangling(format("the group {} has the {} {} as a member, and there is none", name,
                                      list ? "list" : "group", wanted),
                               "netobj_group", name);
        }
    }
}

// Config sets that policies name. Sets without parameters show in the numbered layout only.
void check_policies(checking &check) {
    std::set<std::string> bare;
    std::unordered_map<Frag *, name_index> sets_of;
    for (Frag *policy : sorted_children(check.conf.db(), "policy")) {
        std::string name = clear_name(policy);
        for (Frag *entry : sorted_children(&policy->child, "proxy")) {
            std::string set = clear_name(entry), owner = entry->value ? entry->value : "";
            Frag *proxy = check.proxies.find(storedname(owner));
            if (!proxy) {
                check.dangling(owner.empty()
                                   ? format("the policy {} names the config set {}, and no proxy has it", name, set)
                                   : format("the policy {} names the config set {} of {}, and there is no such proxy",
                                            name, set, owner),
                               "policy", name);
                continue;
            }
            auto sets = sets_of.find(proxy);
            if (sets == sets_of.end())
                sets = sets_of.emplace(proxy, name_index(&proxy->child, "config-sets")).first;
            if (sets->second.find(entry->name))
                continue;
            if (check.conf.numbered)
                check.dangling(format("the policy {} names the config set {}, which {} lacks", name, set, owner),
                               "policy", name);
            else
                bare.insert(format("{} {}", owner, set));
        }
    }
    if (!bare.empty() && !check.is_input)
        tell(check.data, "left-out",
             "config sets that policies name are not in this file: without parameters they can't be shown in the "
             "canonical layout, so do not merge this file back",
             check.name)
            .count = static_cast<long>(bare.size());
}

void check_elements(checking &check) {
    for (const char *side : {"Inside", "Outside", "Service"}) {
        std::string key = std::string("netobj_list_") + side;
        if (Frag *list = ffind(check.conf.db(), key.c_str()))
            for (Frag *element : sorted_children(&list->child, "element"))
                if (child_value(element, "interface").empty())
                    tell(check.data, "left-out",
                         format("element {} of {} ({}) has no interface: a numbered save drops it", clear_name(element),
                                side, child_value(element, "addr")),
                         check.name, check.conf.numbered ? 0 : check.conf.line_of("netobj_list", side));
    }
}

void check_addresses(checking &check) {
    for (Frag *list : sorted_children(check.conf.db(), "netobj_list")) {
        std::string name = clear_name(list);
        for (Frag *element : sorted_children(&list->child, "element")) {
            if (is_blanks(fval(&element->child, "addr")))
                check.dangling(format("element {} of the list {} has no addr, so that it covers no host",
                                      clear_name(element), name),
                               "netobj_list", name);
        }
    }
}

void check_long_rules(checking &check) {
    for (const char *side : {"lcl", "fwd"}) {
        for (Frag *rule : sorted_children(check.conf.db(), (std::string("pfedit_") + side).c_str())) {
            size_t length = 9;
            for (const char *const *field = pfkeynames; *field; field++)
                length += child_value(rule, *field).size();
            if (length > RULE_LIMIT)
                tell(check.data, "cut",
                     format("filter rule {} {} has {} characters: a numbered save cuts it at {}", side,
                            clear_name(rule), length, RULE_LIMIT),
                     check.name);
        }
    }
}

// What a line of the numbered layout names that can stand once only: an entry, or a parameter of one. Empty if it
// names nothing of the kind.
std::string named_once(const assignment &line) {
    size_t last = line.key.rfind('_');
    if (last == line.key.npos || (line.key.compare(last, line.key.npos, "_name") != 0 &&
                                  line.key.compare(last, line.key.npos, "_realname") != 0))
        return "";
    if (size_t parameter = line.key.find("_parm_"); parameter != line.key.npos)
        return "the parameter " + line.value + " of " + line.key.substr(0, parameter);
    for (const char *family : {"netobj_list_", "netobj_group_", "policy_", "def_proxy_"}) {
        bool realname = last + strlen("_realname") == line.key.size();
        if (has_prefix(line.key.c_str(), family) && line.key.find('_', strlen(family)) == last &&
            realname == (strcmp(family, "def_proxy_") == 0))
            return std::string("an entry of ") + family + " with the name " + line.value;
    }
    return "";
}

void check_doubles(checking &check) {
    std::unordered_map<std::string_view, long> keys;
    std::unordered_map<std::string, long> names;
    keys.reserve(check.conf.lines.size());
    finding parameters; // of config sets: there can be many
    for (const assignment &line : check.conf.lines) {
        if (check.conf.numbered && has_prefix(line.key.c_str(), "pfedit_") && line.value.size() == RULE_LIMIT)
            tell(check.data, "cut", format("{} has {} characters, the most that are saved", line.key, RULE_LIMIT),
                 check.name, line.line);
        std::string name = check.conf.numbered ? named_once(line) : "";
        auto [first, fresh] = keys.emplace(line.key, line.line);
        auto [bearer, unnamed] = name.empty() ? std::pair{names.end(), true} : names.emplace(name, line.line);
        if (fresh && unnamed)
            continue;
        std::string text = fresh ? format("{} stands here and in line {}", name, bearer->second)
                                 : format("{} stands here and in line {}", line.key, first->second);
        bool of_set =
            fresh ? has_prefix(name.c_str(), "the parameter") : line.key.find("_config-sets_") != line.key.npos;
        if (!of_set) {
            tell(check.data, "twice", text, check.name, line.line);
        } else if (parameters.count++ == 0) {
            parameters.text = "parameters that stand twice: " + text;
            parameters.line = line.line;
        }
    }
    if (parameters.count)
        tell(check.data, "twice", parameters.text, check.name, parameters.line).count = parameters.count;
}

/// A count key of the numbered layout, and the prefix of the entries that it counts.
struct count_row {
    const char *count, *entries;
};
const count_row counts[] = {
    {"def_num_proxies", "def_proxy_"},
    {"cust_num_proxies", "cust_proxy_"},
    {"policy_num_entries", "policy_"},
    {"netobj_num_list", "netobj_list_"},
    {"netobj_num_group", "netobj_group_"},
    {"map_num_entries", "map_"},
    {"sroute_num_entries", "sroute_"},
    {"dest_num_entries", "dest_"},
    {"nat_numrules", "nat_rule_"},
    {"pfedit_lcl_numrules", "pfedit_lcl_rule"},
    {"pfedit_fwd_numrules", "pfedit_fwd_rule"},
    {nullptr, nullptr},
};
// The same inside an entry: the end of its count key, and what follows the entry in the keys that are counted.
const count_row inner_counts[] = {
    {"_num_parms", "_parm_"},     {"_num_proxies", "_proxy_"}, {"_num_elements", "_element_"},
    {"_num_members", "_member_"}, {nullptr, nullptr},
};

bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }

void check_counts(checking &check) {
    // How many numbers follow each prefix of a key; the keys of the lines hold the texts.
    std::unordered_map<std::string_view, size_t> numbers;
    std::unordered_set<std::string_view> entries;
    for (const assignment &line : check.conf.lines) {
        std::string_view key = line.key;
        for (size_t at = 1; at < key.size(); at++) {
            if (!is_digit(key[at]) || !(key[at - 1] == '_' || (at > 4 && key.substr(at - 5, 5) == "_rule")))
                continue;
            if (entries.insert(key.substr(0, key.find('_', at))).second)
                numbers[key.substr(0, at)]++;
        }
    }
    auto compare = [&](const assignment &line, const std::string &prefix) {
        auto found = numbers.find(prefix);
        size_t there = found == numbers.end() ? 0 : found->second;
        if (line.value != std::to_string(there))
            tell(check.data, "count", format("{} says {}, and {} are there", line.key, line.value, there), check.name,
                 line.line);
    };
    for (const assignment &line : check.conf.lines) {
        for (const count_row *row = counts; row->count; row++) {
            if (line.key == row->count)
                compare(line, row->entries);
        }
        for (const count_row *row = inner_counts; row->count; row++) {
            size_t size = strlen(row->count);
            if (line.key.size() > size && line.key.compare(line.key.size() - size, size, row->count) == 0 &&
                is_digit(line.key[line.key.size() - size - 1]))
                compare(line, line.key.substr(0, line.key.size() - size) + row->entries);
        }
    }
}

} // namespace

void check_result(canonical_conf &conf, const std::string &name, review_data &data) {
    checking check(conf, name, data);
    check_doubles(check);
    if (conf.numbered)
        check_counts(check);
    check_maps(check);
    check_groups(check);
    check_policies(check);
    check_addresses(check);
    if (conf.numbered)
        return;
    check_elements(check);
    check_long_rules(check);
}

void check_input(canonical_conf &conf, const std::string &name, bool stands_alone, review_data &data) {
    checking check(conf, name, data);
    check.is_input = true;
    if (conf.numbered)
        check_counts(check);
    check_addresses(check);
    if (!stands_alone)
        return;
    check_maps(check);
    check_groups(check);
    check_policies(check);
}

void check_left_out(canonical_conf &canonical, const std::string &name, review_data &data) {
    checking check(canonical, name, data);
    check_elements(check);
    check_long_rules(check);
}

void check_unsaved_keys(const std::string &path, review_data &data) {
    std::vector<assignment> lines;
    read_assignments(path.c_str(), lines);
    for (const assignment &line : lines) {
        size_t last = line.key.rfind('_'),
               before = last == 0 || last == line.key.npos ? 0 : line.key.rfind('_', last - 1);
        if (before == line.key.npos)
            before = 0;
        if (before + 1 >= DEPTH_LIMIT || line.key.size() > KEY_LIMIT)
            tell(data, "left-out", format("a key of {} bytes is too long or too deep to be saved", line.key.size()),
                 path, line.line);
    }
}
