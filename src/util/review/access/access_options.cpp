// The options under which a rule lets a host in.
#include "access/access.h"
#include "frag_tools.h"

#include <algorithm>
#include <fmt/ranges.h>

namespace {

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
            path.insert(0, fmt::format("{}{}{}", prefix_of(at->attr), at->name, at == frag ? "" : "_"));
        if (frag->value)
            options[parameter_name(path)].insert(configuration::value(frag, ""));
    }
}

} // namespace

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
        changed.push_back(is_flag ? fmt::format("{} {}", flag, name)
                                  : fmt::format("{} = {}, {}", name, value, otherwise));
    };
    for (const auto &[name, values] : was)
        if (auto now = is.find(name); now == is.end())
            say(name, join(values), "without", "none now");
        else if (now->second != values)
            say(name, join(values), "", join(now->second) + " now");
    for (const auto &[name, values] : is)
        if (is_whole && was.count(name) == 0)
            say(name, join(values), "with", "none before");
    std::string more = changed.size() > most ? fmt::format(" and {} more", changed.size() - most) : "";
    changed.resize(std::min(changed.size(), most));
    return fmt::format("{}{}", fmt::join(changed, ", "), more);
}
