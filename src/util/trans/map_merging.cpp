// Maps of different proxies with one source become one map with one policy.
#include "frag_tools.h"
#include "merging.h"
#include "name_index.h"
#include "text_hash.h"

#include <cstring>
#include <unordered_map>
#include <unordered_set>
#include <vector>

int proxies_not_in_maps(FragList, Frag *map, Frag *list) {
    const char *tag = fval(&map->child, "tag_proxy");
    for (; list; list = list->next)
        if (same_text(fval(&list->child, "tag_proxy"), tag))
            return 0;
    return 1;
}

namespace {

/// The policies that maps name, while the merge renames some and removes others. `remove` only notes a policy, and
/// `sweep` takes them all out in one walk: to unlink each by itself would cost a walk for each.
struct policy_book {
    Frag *policy;
    name_index names;
    std::unordered_map<Frag *, int> uses;               // how many maps name it
    std::unordered_set<std::string, text_hash> missing; // names in maps to which there is no policy
    std::unordered_set<Frag *> doomed;

    explicit policy_book(FragList db) : policy(ffind(db, "policy")), names(db, "policy") {}

    Frag *find(const std::string &name) const {
        return name.find('_') == std::string::npos ? names.find_key(name.c_str()) : names.find(storedname(name));
    }

    void count_use(const char *name) {
        if (Frag *frag = find(name))
            uses[frag]++;
        else
            missing.insert(strchr(name, '_') ? name : std::string(key_component(name)));
    }

    bool is_free(const std::string &name) const { return !find(name) && missing.count(name) == 0; }

    void rename(Frag *frag, const std::string &name) {
        names.remove(frag);
        renamefrag(frag, name.c_str());
        names.add(frag);
    }

    void remove(Frag *frag) {
        names.remove(frag);
        doomed.insert(frag);
    }

    void sweep() {
        for (FragList link = policy ? &policy->child : nullptr; link && *link && !doomed.empty();) {
            Frag *frag = *link;
            if (doomed.erase(frag)) {
                *link = frag->next;
                freefrag(frag);
            } else {
                link = &frag->next;
            }
        }
    }
};

/// What decides about merging a map. A map that lacks one of the four values merges with nothing.
struct map_values {
    bool complete;
    std::string_view src, pd, proxy; // views of the map's values, which stay as long as it does
    std::string policy;              // a copy, since a merged map's policy changes

    explicit map_values(Frag *map) {
        const char *values[] = {fval(&map->child, "src"), fval(&map->child, "pd"), fval(&map->child, "policy"),
                                fval(&map->child, "proxy")};
        complete = values[0] && values[1] && values[2] && values[3];
        if (complete) {
            src = values[0];
            pd = values[1];
            policy = values[2];
            proxy = values[3];
        }
    }
    std::string source() const { return std::string(src) + '\0' + std::string(pd); }
};

/// A map that stays, while others are folded into it.
struct survivor {
    policy_book &policies;
    Frag *map;
    const map_values &values; // as they were before any other map was folded in
    int number;
    Frag *policy = nullptr; // the policy that it names
    Frag *target = nullptr; // the policy's list of config sets, once another map has been folded into it
    list_indexes entries;

    survivor(policy_book &book, Frag *frag, const map_values &frag_values, int map_number)
        : policies(book), map(frag), values(frag_values), number(map_number) {
        if (merges())
            policy = policies.find(values.policy);
    }

    // A deny map merges with nothing, whatever policy it names.
    bool merges() const { return values.complete && values.policy != "*" && values.pd != "D"; }

    // Gives the policy its new name before it takes the first config set of another map. False if it has no list of
    // config sets, or if more maps name it than the `own_uses` that are being merged: the others would lose it.
    bool begin(int own_uses) {
        if (target)
            return true;
        Frag *proxies = policy ? ffind(&policy->child, "proxy") : nullptr;
        if (!proxies || policies.uses[policy] != own_uses)
            return false;
        target = proxies;
        std::string base = "Policy-" + numbertext(number);
        std::string name = base;
        for (int suffix = 1; !policies.is_free(name) && policies.find(name) != policy; suffix++)
            name = base + "-" + numbertext(suffix);
        fsetp(&map->child, "policy", name.c_str(), map);
        policies.rename(policy, name);
        fsetp(&policy->child, "parm_desc", name.c_str(), policy);
        return true;
    }

    void set_entry(const char *set_name, const char *proxy) {
        entries.set_key(&target->child, set_name, proxy, target);
    }

    /// Folds a map of the same source into this one and frees it. False if it has to stay.
    bool absorb(Frag *candidate, const map_values &other) {
        bool same_policy = other.policy == values.policy;
        Frag *other_policy = same_policy || other.policy == "*" ? nullptr : policies.find(other.policy);
        if (!same_policy || other.proxy != values.proxy) {
            if (other_policy && policies.uses[other_policy] != 1)
                return false;
            if (!begin(same_policy ? 2 : 1))
                return false;
            const char *set_name = fval(&candidate->child, "tag_cs");
            const char *proxy = fval(&candidate->child, "tag_proxy");
            if (set_name && proxy) {
                set_entry(set_name, proxy);
            } else if (other_policy) {
                Frag *proxies = ffind(&other_policy->child, "proxy");
                for (Frag *entry = proxies ? proxies->child : nullptr; entry; entry = entry->next)
                    set_entry(entry->name, entry->value);
            }
        }
        if (same_policy)
            policies.uses[policy]--;
        else if (other_policy)
            policies.remove(other_policy);
        freefrag(candidate);
        return true;
    }
};

// One batch: for each proxy the first of its maps that still waits, in the order of their numbers. Those that stay go
// to the end of the list, whose new end is the result.
FragList merge_batch(const std::vector<Frag *> &batch, Frag *map, FragList end, policy_book &policies, int &number) {
    std::vector<map_values> values;
    std::unordered_map<std::string, std::vector<size_t>, text_hash> by_source;
    values.reserve(batch.size());
    for (Frag *frag : batch) {
        values.emplace_back(frag);
        if (values.back().complete)
            by_source[values.back().source()].push_back(values.size() - 1);
    }
    std::vector<bool> absorbed(batch.size());
    for (size_t i = 0; i < batch.size(); i++) {
        if (absorbed[i])
            continue;
        pushfrag(end, batch[i], map);
        end = &batch[i]->next;
        survivor stays(policies, batch[i], values[i], ++number);
        fremove(&batch[i]->child, "tag");
        renumberfrag(batch[i], number);
        if (!stays.merges())
            continue;
        std::vector<size_t> &same_source = by_source[values[i].source()];
        std::vector<size_t> waiting;
        for (size_t j : same_source) {
            if (j <= i)
                continue;
            if (stays.absorb(batch[j], values[j]))
                absorbed[j] = true;
            else
                waiting.push_back(j);
        }
        same_source = std::move(waiting);
    }
    return end;
}

} // namespace

void merge_maps(FragList db) {
    Frag *map = ffind(db, "map");
    if (!map)
        return;
    policy_book policies(db);
    sort_frags(&map->child);
    // The n-th map of a proxy goes to the n-th batch; one that names no proxy in its `tag` goes to the first.
    std::vector<std::vector<Frag *>> batches;
    std::unordered_map<std::string_view, size_t, text_hash> taken;
    for (Frag *frag = map->child; frag; frag = frag->next) {
        const char *tag = fval(&frag->child, "tag_proxy");
        size_t turn = tag ? taken[tag]++ : 0;
        if (turn >= batches.size())
            batches.resize(turn + 1);
        batches[turn].push_back(frag);
        if (const char *name = fval(&frag->child, "policy"))
            policies.count_use(name);
    }
    map->child = nullptr;
    FragList end = &map->child;
    int number = 0;
    for (const std::vector<Frag *> &batch : batches)
        end = merge_batch(batch, map, end, policies, number);
    policies.sweep();
}
