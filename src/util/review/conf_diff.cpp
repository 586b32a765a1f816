// Settings by their canonical key, maps by what they say and by their order.
#include "conf_diff.h"
#include "frag_tools.h"
#include "input_checks.h"

#include <cstring>
#include <fmt/format.h>
#include <map>

using fmt::format;

namespace {

struct setting {
    std::string value;
    long line = 0;
};
using settings = std::map<std::string, setting>;

void renumber_children(FragList db, const char *key) {
    int number = 1;
    for (Frag *child : sorted_children(db, key)) {
        if (*child->name >= '0' && *child->name <= '9')
            renumberfrag(child, number++);
    }
}

// Elements and members are told by what they are, since their order says nothing.
void name_children(Frag *entry, const char *key, const char *by) {
    std::map<std::string, int> taken;
    for (Frag *child : sorted_children(&entry->child, key)) {
        std::string name = child_value(child, by);
        int count = ++taken[name];
        renamefrag(child, (count == 1 ? name : format("{} ({})", name, count)).c_str());
    }
}

// Numbers carry order and nothing else: gaps and leading zeros are a matter of the layout.
void renumber_lists(FragList db) {
    for (const char *key : {"sroute", "dest", "nat_rule", "menu_meta", "link", "key", "pfedit_lcl", "pfedit_fwd"})
        renumber_children(db, key);
    for (Frag *list : sorted_children(db, "netobj_list"))
        name_children(list, "element", "addr");
    for (Frag *group : sorted_children(db, "netobj_group"))
        name_children(group, "member", "name");
}

// Keys that say nothing by themselves: stamps of the save, names that repeat their node's, empty filter fields, and
// the list of interfaces that every save makes anew.
bool says_nothing(const std::string &key, Frag *node) {
    if (has_prefix(key.c_str(), "map_") || key == "version_moatwall.conf" || key == "nat_numrules" ||
        has_prefix(key.c_str(), "netobj_list_all%5Finterfaces_"))
        return true;
    if (has_prefix(key.c_str(), "pfedit_"))
        return !*node->value;
    Frag *proxy = node->parent;
    return strcmp(node->name, "name") == 0 && proxy && proxy->parent && has_prefix(key.c_str(), "def_proxy_") &&
           strcmp(proxy->parent->name, "proxy") == 0 &&
           (clear_name(proxy) == node->value || strcmp(proxy->name, "global") == 0);
}

settings collect_settings(canonical_conf &conf) {
    renumber_lists(conf.db());
    if (!conf.numbered)
        norm41states(conf.db());
    std::unordered_map<std::string, long> lines;
    if (!conf.numbered) {
        for (const assignment &line : conf.lines)
            lines[line.key] = line.line;
    }
    settings found;
    Frag top{};
    top.child = conf.tree;
    walk_values(&top, [&](const std::string &key, Frag *node) {
        if (says_nothing(key, node))
            return;
        auto line = lines.find(fragkeyname(node));
        found[key] = {std::string(node->value, static_cast<size_t>(node->vlen)),
                      line == lines.end() ? 0 : line->second};
    });
    return found;
}

struct map_entry {
    std::string meaning;
    long number = 0;
};

std::vector<map_entry> collect_maps(canonical_conf &conf) {
    std::vector<map_entry> maps;
    for (Frag *map : sorted_children(conf.db(), "map")) {
        if (!map->child || strcmp(map->name, "num") == 0)
            continue;
        std::string decision = child_value(map, "pd");
        bool permits = decision == "P";
        maps.push_back({format("{} {} {} {}",
                               permits           ? "permit"
                               : decision == "D" ? "deny"
                                                 : decision,
                               child_value(map, "src"), permits ? "by the policy" : "for",
                               child_value(map, permits ? "policy" : "proxy")),
                        decimal(map->name)});
    }
    return maps;
}

// Appends the maps of `maps` that `others` lacks, counting equal ones, and takes them out.
void tell_lone_maps(const canonical_conf &conf, std::vector<map_entry> &maps, const std::vector<map_entry> &others,
                    const std::string &file, review_data &data) {
    std::map<std::string, long> left;
    for (const map_entry &other : others)
        left[other.meaning]++;
    std::vector<map_entry> shared;
    for (map_entry &map : maps) {
        if (left[map.meaning]-- > 0)
            shared.push_back(std::move(map));
        else
            tell(data, "map", format("only here: map {}, {}", map.number, map.meaning), file,
                 conf.line_of("map", std::to_string(map.number)));
    }
    maps = std::move(shared);
}

void diff_maps(canonical_conf &before, canonical_conf &after, const std::string &before_name,
               const std::string &after_name, review_data &data) {
    std::vector<map_entry> old_maps = collect_maps(before), new_maps = collect_maps(after);
    std::vector<map_entry> all_old = old_maps;
    tell_lone_maps(before, old_maps, new_maps, before_name, data);
    tell_lone_maps(after, new_maps, all_old, after_name, data);
    for (size_t i = 0; i < old_maps.size() && i < new_maps.size(); i++) {
        if (old_maps[i].meaning == new_maps[i].meaning)
            continue;
        tell(data, "map",
             format("the maps stand in another order: map {} here, {}, is not map {} there, {}", new_maps[i].number,
                    new_maps[i].meaning, old_maps[i].number, old_maps[i].meaning),
             after_name, after.line_of("map", std::to_string(new_maps[i].number)));
        return;
    }
}

} // namespace

void diff_configurations(canonical_conf &before, canonical_conf &after, const std::string &before_name,
                         const std::string &after_name, review_data &data) {
    settings old_settings = collect_settings(before), new_settings = collect_settings(after);
    for (const auto &[key, value] : old_settings) {
        auto found = new_settings.find(key);
        if (found == new_settings.end())
            tell(data, "setting", format("only here: {}={}", key, value.value), before_name, value.line);
        else if (found->second.value != value.value)
            tell(data, "setting", format("{} was {} and is {}", key, value.value, found->second.value), after_name,
                 found->second.line);
    }
    for (const auto &[key, value] : new_settings) {
        if (!old_settings.count(key))
            tell(data, "setting", format("only here: {}={}", key, value.value), after_name, value.line);
    }
    diff_maps(before, after, before_name, after_name, data);
}
