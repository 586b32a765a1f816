// Two configurations by meaning: settings by their place keys, numbered records by all that they say and their order.
#include "checks/checks.h"
#include "frag_tools.h"
#include "lines/place_keys.h"
#include "nupgrade.h"

#include <array>

using fmt::format;

namespace {

/// One thing that a configuration says; a record has no value, but a place in its list.
struct statement {
    std::string shown, value;
    long line = 0;
    std::string list{};
    size_t place = 0;
};
using statements = std::map<std::string, std::array<std::vector<statement>, 2>>; // of both sides, by identity

// Stamps and counts of the save, names that repeat their node's, and of the list of all interfaces what every save
// makes anew from the lists of their locations.
bool says_nothing(const std::string &key, const Frag *node) {
    const Frag *above = node->parent;
    if (has_prefix(key.c_str(), "netobj_list_all%5Finterfaces_")) {
        const Frag *element = at_depth(node, 4);
        std::string location = configuration::value(element, "location");
        return !element || location == "Inside" || location == "Outside" || location == "Service";
    }
    bool of_proxy = has_prefix(key.c_str(), "def_proxy_") && at_depth(node, 3) == node;
    return key == "version_moatwall.conf" || is_named(node, "numrules") || (above && is_named(above, "num")) ||
           (of_proxy && is_named(node, "name") && (clear_name(above) == node->value || is_named(above, "global")));
}

// All fields that are not empty, which those of filter rules can be.
std::string record_fields(const Frag *record) {
    std::string fields, text = record_text(record);
    for (size_t at = 0, end; at < text.size(); at = end + 1)
        if (end = text.find('\n', at); text[end - 1] != '=')
            fields += (fields.empty() ? "" : ", ") + text.substr(at, end - at);
    return fields;
}

void add_statements(const configuration &conf, size_t side, statements &all) {
    size_t records = 0;
    place_keys keys(conf);
    for (std::vector<const Frag *> pending{conf.tree}; !pending.empty();) {
        const Frag *node = pending.back();
        pending.pop_back();
        if (!node)
            continue;
        pending.push_back(node->next);
        std::string list = node->parent && is_digit(*node->name) ? place_keys::path(node->parent) : "";
        if (is_listed(numbered_families, list)) {
            std::string text = record_fields(node);
            all[format("{} {}", list, text)][side].push_back(
                {format("{} {}: {}", list, node->name, text), "", conf.line_of(node), list, records++});
            continue;
        }
        pending.push_back(node->child);
        bool listed = node->parent && !node->child && is_named(node->parent, "proxy"); // by a policy
        if (place_keys::key_of place = node->value || listed ? keys.find(node) : place_keys::key_of();
            !place.key.empty() && !says_nothing(place.key, node))
            all[place.key + '\1' + prefix_of(place.bits)][side].push_back(
                {fragkeyname(const_cast<Frag *>(node)), value_of(node), conf.line_of(node)});
    }
    // What a numbered save on NT says of the services, it says of the states.
    const maprec *row = services_of(conf);
    for (bool replaces = row == map_nt && !conf.numbered; replaces && row->proxy; row++)
        if (const Frag *state = conf.find(format("def_proxy_{}_state", row->proxy).c_str())) {
            std::string service = format("proxy_{}", row->service);
            all[service + '\1'][side] = {{service, value_of(state), conf.line_of(state)}};
        }
}

} // namespace

void diff_configurations(const configuration &before, const configuration &after, review_data &data) {
    statements all;
    add_statements(before, 0, all);
    add_statements(after, 1, all);
    std::map<std::pair<std::string, size_t>, std::pair<const statement *, const statement *>> shared; // records
    for (const auto &[identity, sides] : all)
        for (size_t i = 0; i < std::max(sides[0].size(), sides[1].size()); i++) {
            const statement *a = i < sides[0].size() ? &sides[0][i] : nullptr,
                            *b = i < sides[1].size() ? &sides[1][i] : nullptr;
            if (const statement *said = !a ? b : !b ? a : nullptr)
                tell(data, said->list == "map" ? "map" : "setting",
                     format("only here: {}{}{}", said->shown, said->list.empty() ? "=" : "", said->value),
                     (a ? before : after).name, said->line);
            else if (a && b && a->value != b->value)
                tell(data, "setting", format("{} was {} and is {}", b->shown, a->value, b->value), after.name, b->line)
                    .by = {before.name, a->line};
            else if (a && b && !a->list.empty())
                shared[{a->list, a->place}] = {a, b};
        }
    const statement *last = nullptr;
    std::set<std::string> told;
    for (const auto &[place, pair] : shared) {
        const auto &[a, b] = pair;
        if (last && last->list == b->list && last->place > b->place && told.insert(b->list).second)
            tell(data, b->list == "map" ? "map" : "setting",
                 format("{} stands in another order: {} is ahead of {}", b->list, b->shown, last->shown), after.name,
                 b->line)
                .by = {before.name, a->line};
        last = b;
    }
}
