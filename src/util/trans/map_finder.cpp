// The maps of a configuration by the values that decide whether two are the same.
#include "map_finder.h"
#include "frag_tools.h"

#include <algorithm>
#include <iterator>

static const char *const source_keys[] = {"pd", "src", "proxy"};

map_finder::map_finder(FragList database, size_t maps) : db(database) {
    branches.reserve(maps * (std::size(source_keys) + 1));
}

// The list of a policy's config sets; null if there is no such policy or it has no list.
Frag *map_finder::config_sets_of(const char *policy_name) {
    Frag *all_policies = ffind(db, "policy");
    Frag *policy = all_policies ? indexes.find_key(&all_policies->child, policy_name) : nullptr;
    return policy ? indexes.find(&policy->child, "proxy") : nullptr;
}

// Sorts the list, once. The result is the same number for lists of the same names.
size_t map_finder::sorted_content(Frag *config_sets) {
    auto known = content_of.try_emplace(config_sets);
    if (known.second) {
        sort_frags(&config_sets->child);
        std::string names;
        for (Frag *set = config_sets->child; set; set = set->next)
            names.append(set->name).push_back('\0');
        known.first->second = contents.try_emplace(names, contents.size()).first->second;
    }
    return known.first->second;
}

void map_finder::add(Frag *map) {
    last++;
    branch *at = &root;
    at->newest = last;
    for (const char *key : source_keys) {
        const char *value = fval(&map->child, key);
        if (!value) {
            at->newest_ending = last;
            return;
        }
        at = &branches[{at, value}];
        at->newest = last;
    }
    const char *policy_name = fval(&map->child, "policy");
    if (!policy_name) {
        at->newest_ending = last;
        return;
    }
    branches[{at, policy_name}].newest = last;
    if (Frag *config_sets = config_sets_of(policy_name)) {
        if (!at->by_policies)
            at->by_policies = std::make_unique<policies>();
        at->by_policies->newest = last;
        at->by_policies->unsorted.push_back({last, config_sets});
    }
}

bool map_finder::has_same(Frag *map) {
    branch *at = &root;
    arrival newest_same = 0;
    for (const char *key : source_keys) {
        newest_same = std::max(newest_same, at->newest_ending);
        const char *value = fval(&map->child, key);
        if (!value) // the same as every map that got here
            return std::max(newest_same, at->newest) != 0;
        auto next = branches.find({at, value});
        if (next == branches.end())
            return newest_same != 0;
        at = &next->second;
    }
    newest_same = std::max(newest_same, at->newest_ending);
    const char *policy_name = fval(&map->child, "policy");
    if (!policy_name)
        return std::max(newest_same, at->newest) != 0;
    auto same_policy = branches.find({at, policy_name});
    if (same_policy != branches.end())
        newest_same = std::max(newest_same, same_policy->second.newest);
    return has_same_sets(at->by_policies.get(), policy_name, newest_same);
}

// The last decision, which is on maps newer than `newest_same`, the newest that is the same for other reasons: does one
// of their policies list the same config sets?
bool map_finder::has_same_sets(policies *same_source, const char *policy_name, arrival newest_same) {
    const bool any_newer = same_source && same_source->newest > newest_same;
    Frag *config_sets = any_newer ? config_sets_of(policy_name) : nullptr;
    if (!config_sets)
        return newest_same != 0;
    const size_t content = sorted_content(config_sets);
    auto sorted = same_source->by_content.find(content);
    if (sorted != same_source->by_content.end())
        newest_same = std::max(newest_same, sorted->second);
    std::vector<policies::added_sets> &unsorted = same_source->unsorted;
    while (!unsorted.empty() && unsorted.back().added > newest_same) {
        policies::added_sets next = unsorted.back();
        unsorted.pop_back();
        const size_t next_content = sorted_content(next.config_sets);
        arrival &newest = same_source->by_content[next_content];
        newest = std::max(newest, next.added);
        if (next_content == content)
            newest_same = next.added;
    }
    return newest_same != 0;
}
