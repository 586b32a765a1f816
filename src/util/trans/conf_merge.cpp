// Merging a further configuration: what the database holds wins, and only what is new comes in.
#include "frag_tools.h"
#include "map_finder.h"
#include "merging.h"

#include <cstring>

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
        if (finder.has_same(entry)) {
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
