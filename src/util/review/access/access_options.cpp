// The options under which a rule lets a host in.
#include "access/access.h"
#include "frag_tools.h"

#include <algorithm>
#include <fmt/ranges.h>

namespace {

/// A word of a rule's tail as the parameter that it names: a key path, which ends at a `=` and is read with prefixes.
std::string name_of_word(std::string_view word) {
    std::string prefixes, name;
    word = word.substr(0, word.find('='));
    for (size_t at = 0; at <= word.size();) {
        std::string part(word.substr(at, word.find('_', at) - at));
        const char *bare = attr_remap(part.c_str());
        prefixes += prefix_of(take_prefixes(&bare));
        name += (at > 0 ? "_" : "") + decoded_name(attr_revmap(bare));
        at += part.size() + 1;
    }
    return prefixes + name;
}

// All that has a value below a node, by its path; of several sets each value, in whatever order they stand.
void add_parameters(const Frag *top, option_set &options) {
    struct step {
        const Frag *frag;
        std::string prefixes, path;
    };
    std::vector<step> pending = {{top, "", ""}};
    while (top && !pending.empty()) {
        step at = std::move(pending.back());
        pending.pop_back();
        for (const Frag *frag = at.frag->child; frag; frag = frag->next) {
            std::string prefixes = at.prefixes + prefix_of(frag->attr),
                        path = at.path + decoded_name(attr_revmap(frag->name));
            if (frag->value)
                options[prefixes + path].insert(configuration::value(frag, ""));
            pending.push_back({frag, prefixes, path + "_"});
        }
    }
}

} // namespace

option_set options_of(const access_side &side, const access_rule &rule, const std::string &proxy) {
    option_set options;
    rule_options split = split_options(rule.tail); // nothing for a map
    for (std::string_view word : split.words)
        options[name_of_word(word)].insert("*");
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

std::string lacking_options(const option_set &was, const option_set &is) {
    constexpr size_t most = 5;
    std::vector<std::string> lacking;
    for (const auto &[name, values] : was) {
        auto found = is.find(name);
        std::string value = fmt::to_string(fmt::join(values, " and "));
        if (found == is.end())
            lacking.push_back(name[0] == '-' && value == "*" ? "without " + name
                                                             : fmt::format("{} = {}, none now", name, value));
        else if (!std::includes(found->second.begin(), found->second.end(), values.begin(), values.end()))
            lacking.push_back(fmt::format("{} = {}, {} now", name, value, fmt::join(found->second, " and ")));
    }
    std::string more = lacking.size() > most ? fmt::format(" and {} more", lacking.size() - most) : "";
    lacking.resize(std::min(lacking.size(), most));
    return fmt::format("{}{}", fmt::join(lacking, ", "), more);
}
