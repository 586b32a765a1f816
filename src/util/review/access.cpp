// What a side's tables and maps mean for one proxy.
#include "access.h"
#include "frag_tools.h"
#include "netperm_rules.h"
#include "nsym.h"
#include "upgrade.h"

#include <algorithm>
#include <cstring>

namespace {

struct rule_lister {
    const access_side &side;
    std::vector<access_rule> &into;
    access_rule rule;
    std::unordered_set<std::string> met; // groups on the way, so that rings end

    void add_list(const std::string &name) {
        const auto *list = side.lists.find(name);
        if (!list)
            return;
        for (const list_element &element : list->parts) {
            std::string_view address = element.address.c_str();
            rule.pattern = address.substr(0, word_len(address.data()));
            rule.element_line = element.line;
            into.push_back(rule);
        }
    }

    void add_group(const std::string &first) {
        std::vector<std::string> waiting = {first};
        while (!waiting.empty()) {
            std::string name = std::move(waiting.back());
            waiting.pop_back();
            const auto *group = met.insert(name).second ? side.groups.find(name) : nullptr;
            if (!group)
                continue;
            for (const group_member &member : group->parts) {
                if (member.type == "G")
                    waiting.push_back(member.name);
                else
                    add_list(member.name);
            }
        }
    }
};

// A word of a rule's tail as the parameter that it becomes: named by what stands in front of a `=`.
bool has_word(const std::unordered_map<std::string, std::string> &set, std::string_view word) {
    return set.count(parameter_name(decoded_name(word.substr(0, word.find('='))))) != 0;
}

bool has_all(const std::unordered_map<std::string, std::string> &set, std::string_view tail) {
    auto next_word = [&tail]() {
        tail.remove_prefix(std::min(tail.size(), tail.find_first_not_of(" \t")));
        std::string_view word = tail.substr(0, tail.find_first_of(" \t"));
        tail.remove_prefix(word.size());
        return word;
    };
    for (std::string_view word = next_word(); !word.empty(); word = next_word()) {
        if (word.substr(0, 7) == "-policy") {
            if (word.size() == 7)
                next_word();
        } else if (word == "-exec") {
            tail.remove_prefix(std::min(tail.size(), tail.find_first_not_of(" \t")));
            auto found = set.find("exec");
            return found != set.end() && found->second == tail;
        } else if (!has_word(set, word)) {
            return false;
        }
    }
    return true;
}

} // namespace

std::string name_in_key(const std::string &written) {
    const char *name = attr_remap(written.c_str());
    strip_attr_prefixes(&name);
    return name;
}

std::string decoded_name(std::string_view stored) {
    std::string clear;
    for (size_t i = 0; i < stored.size(); i++)
        if (stored[i] == '%' && i + 2 < stored.size()) {
            clear += static_cast<char>(hexconvert(stored.data() + i + 1));
            i += 2;
        } else {
            clear += stored[i];
        }
    return clear;
}

std::string parameter_name(std::string_view written) {
    size_t first = std::min(written.find('_'), written.size());
    return name_in_key(std::string(written.substr(0, first))) + std::string(written.substr(first));
}

bool access_side::knows(const std::string &proxy) const { return known.count(proxy) != 0; }

void access_side::add_proxy(const std::string &proxy) {
    if (known.insert(proxy).second)
        proxies.push_back(proxy);
}

std::vector<size_t> maps_of(const access_side &side, const std::string &proxy) {
    std::vector<size_t> merged;
    for (const std::string &name : {std::string("*"), proxy}) {
        auto found = side.maps_of.find(name);
        if (found != side.maps_of.end() && (name != "*" || merged.empty()))
            merged.insert(merged.end(), found->second.begin(), found->second.end());
    }
    std::sort(merged.begin(), merged.end());
    merged.erase(std::unique(merged.begin(), merged.end()), merged.end());
    return merged;
}

std::vector<access_rule> rules_of(const access_side &side, const std::string &proxy) {
    std::vector<access_rule> rules;
    add_table_rules(side, proxy, rules);
    for (size_t i : maps_of(side, proxy)) {
        const access_map &map = side.maps[i];
        access_rule rule;
        rule.permit = map.permit;
        rule.origin = class_origin::map;
        rule.line = map.line;
        rule.map = map.number;
        rule.source = i;
        rule_lister lister{side, rules, rule, {}};
        if (!map.group.empty())
            lister.add_group(map.group);
    }
    return rules;
}

decision decision_of(const access_side &side, const access_rule *rule) {
    decision made;
    if (!rule)
        return made;
    made.decision = rule->permit ? "permit" : "deny";
    bool is_map = rule->origin == class_origin::map;
    made.file = side.files[is_map ? side.map_file : side.lines[rule->source].file];
    made.line = rule->line;
    made.map = rule->map;
    made.pattern = rule->pattern;
    return made;
}

decision decide(const access_side &side, std::string_view proxy, std::string_view host) {
    std::string word(host);
    for (const access_rule &rule : rules_of(side, std::string(proxy)))
        if (wildmatch(rule.pattern.data(), word.c_str()))
            return decision_of(side, &rule);
    return {};
}

bool has_options(const access_side &after, const access_map &map, const std::string &proxy, std::string_view tail) {
    const auto *policy = after.policies.find(map.policy);
    if (!policy)
        return tail.empty();
    static const std::unordered_map<std::string, std::string> none;
    for (const policy_entry &entry : policy->parts) {
        if (std::find(entry.proxies.begin(), entry.proxies.end(), proxy) == entry.proxies.end())
            continue;
        auto set = after.sets.find(proxy + '\0' + entry.set);
        if (has_all(set == after.sets.end() ? none : set->second, tail))
            return true;
    }
    return false;
}
