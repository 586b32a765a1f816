// What a side's tables and maps mean for one proxy, and under which options they let a host in.
#include "access/access.h"

#include <algorithm>
#include <cstdlib>
#include <fmt/ranges.h>
#include <utility>

using fmt::format;

namespace {

std::string_view first_word(const Frag *frag, const char *key) {
    const char *value = fval(const_cast<FragList>(&frag->child), key);
    std::string_view text = value ? value : "";
    return text.substr(0, text.find_first_of(" \t"));
}

// What the table with that index in the side holds for the proxy.
void add_table_rules(const access_side &side, size_t index, const std::string &proxy, std::vector<access_rule> &into) {
    const netperm_table &table = *side.tables[index];
    const auto &filed = side.filed[index];
    auto own = filed.find(proxy);
    if (own == filed.end() || proxy == "*" || is_no_proxy(proxy))
        return;
    std::vector<size_t> reached = own->second.hosts;
    // Rules for all proxies reach it, those for `global` only if they stand in front of the first that names it.
    for (auto [name, end] : {std::pair("*", SIZE_MAX), std::pair("global", own->second.first)})
        if (auto common = filed.find(name); common != filed.end())
            for (size_t i = 0; i < common->second.hosts.size() && common->second.hosts[i] < end; i++)
                reached.push_back(common->second.hosts[i]);
    std::sort(reached.begin(), reached.end());
    // A first rule with a `=` behind the attribute stands as a value until a second makes a list of the two.
    if (reached.size() == 1 && table.rules[reached[0]].word.find('=') != std::string_view::npos)
        return;
    access_rule rule;
    rule.table = index;
    for (size_t each : reached)
        if (each != std::exchange(rule.source, each)) // a line can name a proxy twice
            add_rule_hosts(table.rules[each], rule, into);
}

/// The parameter that a key path names: its prefixes in front of all names. It ends at a `=`.
std::string parameter_name(std::string_view path) {
    std::string prefixes, name;
    path = path.substr(0, path.find('='));
    for (size_t at = 0; at <= path.size();) {
        std::string part(path.substr(at, path.find('_', at) - at));
        const char *bare = stored_attribute(part.c_str());
        prefixes += prefix_of(take_prefixes(&bare));
        name += (at > 0 ? "_" : "") + decoded_name(file_attribute(bare));
        at += part.size() + 1;
    }
    return prefixes + name;
}

// All that has a value below a node; of several sets each value, in whatever order they stand.
void add_parameters(const Frag *top, option_set &options) {
    for (const Frag *frag : nodes_of(top ? top->child : nullptr)) {
        std::string path;
        for (const Frag *at = frag; frag->value && at != top; at = at->parent)
            path.insert(0, format("{}{}{}", prefix_of(at->attr), at->name, at == frag ? "" : "_"));
        if (frag->value)
            options[parameter_name(path)].insert(configuration::value(frag, ""));
    }
}

} // namespace

void add_rule_hosts(const table_rule &from, access_rule rule, std::vector<access_rule> &into) {
    rule_hosts split = split_hosts(from.text);
    bool is_deny = (from.bits & ATTR_DENY) != 0;
    rule.line = from.line;
    rule.tail = split.tail;
    for (size_t i = 0; i < split.hosts.size(); i++) {
        rule.pattern = split.hosts[i];
        std::string_view marker = split.marker;
        // A further host of a rule without a class stands for itself, and a marker counts there too.
        if (i > 0 && marker.empty() && !is_deny) {
            marker = split_hosts(rule.pattern).marker;
            rule.pattern.remove_prefix(marker.size());
        }
        rule.unmarked = marker.empty() && (from.bits & (ATTR_DENY | ATTR_PERMIT)) == 0;
        rule.permit = marker.empty() ? !is_deny : marker == "%-permit%";
        into.push_back(rule);
    }
}

void access_side::add_proxy(const std::string &proxy) {
    if (!proxy.empty() && proxy != "*" && !is_no_proxy(proxy) && known.insert(proxy).second)
        proxies.push_back(proxy);
}

void access_side::add_table(const netperm_table &table) {
    std::unordered_map<std::string, named_rules> made;
    for (const std::string &proxy : proxies)
        made.try_emplace(proxy);
    for (size_t i = 0; i < table.rules.size(); i++)
        for (const std::string &name : table.rules[i].names) {
            std::string key = name[0] == '*' ? "*" : name.substr(0, name.find('=')); // a key ends there
            made.try_emplace(key, named_rules{i});
            if (table.rules[i].attribute == "hosts")
                made[key].hosts.push_back(i);
            add_proxy(key);
        }
    tables.push_back(&table);
    filed.push_back(std::move(made));
}

void access_side::set_maps(const configuration &from) {
    conf = &from;
    for (const Frag *proxy : from.children("def_proxy"))
        add_proxy(shown_name(proxy));
    std::unordered_map<std::string, std::set<std::string>> listed; // the owners of the config sets, by policy
    for (const Frag *frag : from.children("map")) {
        auto text = [frag](const char *key) { return configuration::value(frag, key); };
        std::string pd = text("pd");
        if (pd != "P" && pd != "D")
            continue;
        long number = strtol(frag->name, nullptr, 10);
        access_map map{frag, number, from.line_of(frag), pd == "P", text("src"), text("policy"), text("proxy")};
        std::set<std::string> concerned = {map.proxy};
        if (map.permit) {
            auto [policy, is_new] = listed.try_emplace(map.policy);
            if (is_new)
                for (const Frag *entry : configuration::children(from.record("policy", map.policy), "proxy"))
                    policy->second.insert(owner_of(entry));
            if (map.proxy == "*")
                concerned = policy->second;
            else if (policy->second.count(map.proxy) == 0)
                concerned.clear();
        }
        for (const std::string &proxy : concerned) {
            maps_of[proxy].push_back(maps.size());
            add_proxy(proxy);
        }
        maps.push_back(std::move(map));
    }
}

std::set<size_t> maps_for(const access_side &side, const std::string &proxy) {
    std::set<size_t> concerned;
    for (const std::string &name : {std::string("*"), proxy})
        if (auto maps = side.maps_of.find(name); maps != side.maps_of.end())
            concerned.insert(maps->second.begin(), maps->second.end());
    return concerned;
}

std::vector<const Frag *> source_elements(const configuration &conf, std::string source,
                                          std::unordered_set<const Frag *> &met_lists) {
    bool is_group = take_group_mark(source);
    if (!is_group && !conf.record("netobj_list", source))
        return {nullptr};
    std::vector<const Frag *> elements;
    std::unordered_set<const Frag *> met_groups; // one that was walked adds nothing
    std::vector<std::pair<char, std::string>> ahead = {{is_group ? 'G' : 'L', source}}; // the next one last
    while (!ahead.empty()) {
        auto [type, name] = std::move(ahead.back());
        ahead.pop_back();
        bool is_list = type == 'L';
        const char *family = is_list ? "netobj_list" : type == 'G' ? "netobj_group" : nullptr;
        Frag *object = family ? conf.record(family, name) : nullptr;
        Frag *holder = object ? ffind(&object->child, is_list ? "element" : "member") : nullptr;
        if (!holder && (is_list || object))
            break;
        if (!holder || !(is_list ? met_lists : met_groups).insert(object).second)
            continue;
        std::vector<Frag *> below = configuration::children(holder, "");
        if (is_list)
            elements.insert(elements.end(), below.begin(), below.end());
        for (auto member = below.rbegin(); !is_list && member != below.rend(); ++member)
            ahead.emplace_back(configuration::value(*member, "type")[0], configuration::value(*member, "name"));
    }
    return elements;
}

std::vector<access_rule> rules_of(const access_side &side, const std::string &proxy) {
    std::vector<access_rule> rules;
    for (size_t i = 0; i < side.tables.size(); i++)
        add_table_rules(side, i, proxy, rules);
    std::unordered_set<std::string_view> met_sources;
    std::unordered_set<const Frag *> met_lists;
    for (size_t i : maps_for(side, proxy)) {
        const access_map &map = side.maps[i];
        if (!met_sources.insert(map.source).second)
            continue;
        access_rule rule;
        rule.permit = map.permit;
        rule.is_map = true;
        rule.line = map.line;
        rule.source = i;
        for (const Frag *element : source_elements(*side.conf, map.source, met_lists)) {
            rule.pattern = element ? first_word(element, "addr") : first_word(map.frag, "src");
            rule.element = element;
            rules.push_back(rule);
        }
    }
    return rules;
}

decision decision_of(const access_side &side, const access_rule &rule) {
    if (rule.source == SIZE_MAX)
        return {};
    ruling made = rule.permit ? ruling::permit : ruling::deny;
    if (!rule.is_map)
        return {made, side.tables[rule.table]->name, rule.line, std::nullopt, std::string(rule.pattern)};
    return {made, side.conf->name, rule.line, side.maps[rule.source].number, std::string(rule.pattern)};
}

std::string decision_text(const decision &made) {
    if (made.made == ruling::refused)
        return "refused";
    std::string text = (made.made == ruling::permit ? "permitted by " : "denied by ") + made.pattern + " (" + made.file;
    if (made.line != 0)
        text += ":" + std::to_string(made.line);
    return text + (made.map ? ", map " + std::to_string(*made.map) : "") + ")";
}

finding &tell_change(review_data &data, const char *id, const decision &was, const decision &is) {
    const decision &at = is.line != 0 ? is : was;
    finding &told = tell(data, id, decision_text(was) + " before, " + decision_text(is) + " now", at.file, at.line);
    told.before = was;
    told.after = is;
    return told;
}

bool covers(std::string_view pattern, std::string_view host) {
    size_t at = 0, star = std::string_view::npos, begin = 0; // behind the last star, and where that is tried
    for (size_t byte = 0; byte < host.size();) {
        if (at < pattern.size() && pattern[at] == '*') {
            star = ++at;
            begin = byte;
        } else if (at < pattern.size() && pattern[at] == host[byte]) {
            at++;
            byte++;
        } else if (star != std::string_view::npos) {
            at = star;
            byte = ++begin;
        } else {
            return false;
        }
    }
    return pattern.substr(at).empty() || pattern.substr(at) == "*";
}

decision decide(const access_side &side, const std::string &proxy, const std::string &host) {
    for (const access_rule &rule : rules_of(side, proxy))
        if (covers(rule.pattern, host))
            return decision_of(side, rule);
    return {};
}

option_set options_of(const access_side &side, const access_rule &rule, const std::string &proxy) {
    option_set options;
    rule_options split = split_options(rule.tail); // nothing for a map
    for (std::string_view word : split.words)
        options[parameter_name(word)].insert("*");
    if (split.exec)
        options["exec"].insert(*split.exec);
    if (!rule.is_map)
        return options;
    Frag *policy = side.conf->record("policy", side.maps[rule.source].policy);
    add_parameters(policy ? ffind(&policy->child, "parm") : nullptr, options);
    options.erase("desc");
    Frag *owner = side.conf->record("def_proxy", proxy);
    Frag *sets = owner ? ffind(&owner->child, "config-sets") : nullptr;
    for (const Frag *entry : configuration::children(policy, "proxy"))
        if (sets && owner_of(entry) == proxy)
            add_parameters(side.conf->indexes.find(&sets->child, entry->name), options);
    return options;
}

std::string changed_options(const option_set &was, const option_set &is, bool is_whole) {
    constexpr size_t most = 5;
    std::vector<std::string> changed;
    auto join = [](const std::set<std::string> &values) { return fmt::to_string(fmt::join(values, " and ")); };
    auto say = [&](const std::string &name, const std::string &value, const char *flag, const std::string &otherwise) {
        bool is_flag = name[0] == '-' && value == "*" && *flag;
        changed.push_back(is_flag ? format("{} {}", flag, name) : format("{} = {}, {}", name, value, otherwise));
    };
    for (const auto &[name, values] : was)
        if (auto now = is.find(name); now == is.end())
            say(name, join(values), "without", "none now");
        else if (now->second != values)
            say(name, join(values), "", join(now->second) + " now");
    for (const auto &[name, values] : is)
        if (is_whole && was.count(name) == 0)
            say(name, join(values), "with", "none before");
    std::string more = changed.size() > most ? format(" and {} more", changed.size() - most) : "";
    changed.resize(std::min(changed.size(), most));
    return format("{}{}", fmt::join(changed, ", "), more);
}
