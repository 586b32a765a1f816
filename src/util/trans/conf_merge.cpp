// Merging a further configuration: what the database holds wins, and only what is new comes in.
#include "frag_tools.h"
#include "merging.h"
#include "name_index.h"
#include "text_hash.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <memory>
#include <string_view>
#include <unordered_map>
#include <vector>

int not_same_netobj(FragList, const char *, const char *) { return 1; }

static Frag *policy_proxies(FragList db, const char *name) {
    Frag *policy = ffind2(db, "policy", name);
    return policy ? ffind(&policy->child, "proxy") : nullptr;
}

int not_same_policy(FragList db, const char *a, const char *b) {
    Frag *proxies_a = policy_proxies(db, a);
    Frag *proxies_b = policy_proxies(db, b);
    if (!proxies_a || !proxies_b)
        return 1;
    sort_frags(&proxies_a->child);
    sort_frags(&proxies_b->child);
    Frag *set_a = proxies_a->child;
    Frag *set_b = proxies_b->child;
    for (; set_a && set_b; set_a = set_a->next, set_b = set_b->next)
        if (strcmp(set_a->name, set_b->name) != 0)
            return 1;
    return set_a || set_b;
}

int same_map(FragList db, Frag *a, Frag *b) {
    struct decision {
        const char *key;
        int (*differ)(FragList, const char *, const char *); // decides on values that differ; null: they differ
    };
    static const decision decisions[] = {
        {"pd", nullptr}, {"src", not_same_netobj}, {"proxy", nullptr}, {"policy", not_same_policy}, {nullptr, nullptr},
    };
    for (const decision *row = decisions; row->key; row++) {
        const char *value_a = fval(&a->child, row->key);
        const char *value_b = fval(&b->child, row->key);
        if (!value_a || !value_b)
            return 1;
        if (strcmp(value_a, value_b) != 0 && (!row->differ || row->differ(db, value_a, value_b)))
            return 0;
    }
    return 1;
}

int dont_have_map(FragList db, Frag *list, Frag *map) {
    for (Frag *have = list->child; have; have = have->next)
        if (same_map(db, have, map))
            return 0;
    return 1;
}

namespace {

/// The maps that stand below the new `map` node, so that for a further map the newest one that is the same is found
/// without a walk over all of them. It decides as `dont_have_map` does on a list with the newest map at its head, and
/// sorts the policies that such a walk would sort.
///
/// A map's place is its number. 0 stands for no place.
struct map_finder {
    struct placed_policy {
        size_t place;
        Frag *proxies;
    };
    /// The policies of maps with the same three values in front of the policy.
    struct policies {
        std::unordered_map<size_t, size_t> by_sets; // newest place by the config sets of a policy that is sorted
        std::vector<placed_policy> unsorted;        // those that no walk has come to yet, newest last
        size_t newest = 0;                          // newest place whose policy exists and has a list of config sets
    };
    /// The maps that agree in one more value than those of `before`.
    struct agreeing {
        size_t newest = 0;
        size_t lacking = 0; // the newest that lacks the value behind
        std::unique_ptr<policies> sources;
    };
    /// What leads to them. The value is a view of the first such map's, which stays.
    struct step {
        const agreeing *before;
        std::string_view value;
        bool operator==(const step &other) const { return before == other.before && value == other.value; }
    };
    struct step_hash {
        size_t operator()(const step &taken) const {
            return std::hash<std::string_view>()(taken.value) ^ reinterpret_cast<size_t>(taken.before);
        }
    };

    static constexpr const char *const source_keys[] = {"pd", "src", "proxy"};

    FragList db;
    list_indexes indexes;
    // The config sets of a policy by the node that lists them, once it is sorted: equal ones have one number.
    std::unordered_map<Frag *, size_t> sets_of;
    std::unordered_map<std::string, size_t, text_hash> sets_by_names;
    size_t count = 0;
    agreeing all;
    std::unordered_map<step, agreeing, step_hash> steps;

    map_finder(FragList database, size_t maps) : db(database) { steps.reserve(maps * (std::size(source_keys) + 1)); }

    Frag *proxies_of(const char *policy_name) {
        Frag *all_policies = ffind(db, "policy");
        Frag *policy = all_policies ? indexes.find_key(&all_policies->child, policy_name) : nullptr;
        return policy ? indexes.find(&policy->child, "proxy") : nullptr;
    }

    size_t sorted_sets(Frag *proxies) {
        auto known = sets_of.try_emplace(proxies);
        if (known.second) {
            sort_frags(&proxies->child);
            std::string names;
            for (Frag *set = proxies->child; set; set = set->next)
                names.append(set->name).push_back('\0');
            known.first->second = sets_by_names.try_emplace(names, sets_by_names.size()).first->second;
        }
        return known.first->second;
    }

    /// What `dont_have_map` would say of the map, turned round.
    bool have(Frag *map) {
        const agreeing *met = &all;
        size_t same = 0;
        for (const char *key : source_keys) {
            same = std::max(same, met->lacking);
            const char *value = fval(&map->child, key);
            if (!value) // then it is the same as any map with the values before it
                return std::max(same, met->newest) != 0;
            auto next = steps.find({met, value});
            if (next == steps.end())
                return same != 0;
            met = &next->second;
        }
        const char *policy_name = fval(&map->child, "policy");
        if (!policy_name)
            return std::max(same, met->newest) != 0;
        same = std::max(same, met->lacking);
        auto named = steps.find({met, policy_name});
        if (named != steps.end())
            same = std::max(same, named->second.newest);
        return have_sets(met->sources.get(), policy_name, same);
    }

    /// The last decision, among the policies of one source; `same` is the newest map that is the same for other
    /// reasons.
    bool have_sets(policies *from, const char *policy_name, size_t same) {
        Frag *proxies = from && from->newest > same ? proxies_of(policy_name) : nullptr;
        if (!proxies)
            return same != 0;
        size_t sets = sorted_sets(proxies);
        auto sorted = from->by_sets.find(sets);
        if (sorted != from->by_sets.end())
            same = std::max(same, sorted->second);
        while (!from->unsorted.empty() && from->unsorted.back().place > same) {
            placed_policy met = from->unsorted.back();
            from->unsorted.pop_back();
            size_t met_sets = sorted_sets(met.proxies);
            size_t &newest = from->by_sets[met_sets];
            newest = std::max(newest, met.place);
            if (met_sets == sets)
                same = met.place;
        }
        return same != 0;
    }

    /// Takes note of a map that was just put at the head of the list.
    void add(Frag *map) {
        count++;
        agreeing *met = &all;
        met->newest = count;
        for (const char *key : source_keys) {
            const char *value = fval(&map->child, key);
            if (!value) {
                met->lacking = count;
                return;
            }
            met = &steps[{met, value}];
            met->newest = count;
        }
        const char *policy_name = fval(&map->child, "policy");
        if (!policy_name) {
            met->lacking = count;
            return;
        }
        steps[{met, policy_name}].newest = count;
        if (Frag *proxies = proxies_of(policy_name)) {
            if (!met->sources)
                met->sources = std::make_unique<policies>();
            met->sources->newest = count;
            met->sources->unsorted.push_back({count, proxies});
        }
    }
};

// Unlinks the first child and hands it over; null if there is none.
Frag *take_first(Frag *parent) {
    Frag *first = parent->child;
    if (first)
        parent->child = first->next;
    return first;
}

void merge_old_maps(FragList db, Frag *old_map) {
    sort_frags(&old_map->child);
    Frag *file_map = fdel(db, "map");
    if (file_map)
        sort_frags(&file_map->child);
    Frag *map = fset(db, "map", nullptr);
    map_finder finder(db, file_map ? count_frags(old_map->child) + count_frags(file_map->child) : 0);
    int number = 1;
    while (Frag *entry = take_first(old_map)) {
        renumberfrag(entry, number++);
        pushfrag(&map->child, entry, map);
        if (file_map)
            finder.add(entry);
    }
    while (Frag *entry = file_map ? take_first(file_map) : nullptr) {
        if (finder.have(entry)) {
            freefrag(entry);
            continue;
        }
        renumberfrag(entry, number++);
        pushfrag(&map->child, entry, map);
        finder.add(entry);
    }
    freefrag(old_map);
    freefrag(file_map);
    sort_frags(&map->child);
}

void merge_old_policies(FragList db, Frag *old_policy) {
    Frag *file_policy = fdel(db, "policy");
    Frag *policy = fset(db, "policy", nullptr);
    policy->child = old_policy->child;
    old_policy->child = nullptr;
    freefrag(old_policy);
    for (Frag *entry = policy->child; entry; entry = entry->next)
        entry->parent = policy;
    if (!file_policy)
        return;
    list_indexes policies;
    Frag *entry = file_policy->child;
    file_policy->child = nullptr;
    while (entry) {
        Frag *next = entry->next;
        if (policies.find_key(&policy->child, fragname(entry))) {
            freefrag(entry);
        } else {
            pushfrag(&policy->child, entry, policy);
            policies.add(&policy->child, entry);
        }
        entry = next;
    }
    freefrag(file_policy);
}

} // namespace

void conf_merge(FragList db, const char *path) {
    Frag *old_map = fdel(db, "map");
    Frag *old_policy = fdel(db, "policy");
    if (importinitialenv(path) != 0)
        fprintf(stderr, "Failed to merge %s\n", path);
    if (old_map)
        merge_old_maps(db, old_map);
    if (old_policy)
        merge_old_policies(db, old_policy);
}
