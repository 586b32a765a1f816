// Fragment files as they come into the database: reading, and merging where what is there wins.
#include "fate_passes.h"
#include "frag_tools.h"
#include "merging.h"
#include "name_index.h"

#include <algorithm>

std::unordered_map<size_t, std::string> owners_of(Frag *first) {
    std::unordered_map<size_t, std::string> owners;
    visit_frags(first, [&](Frag *frag, const std::string &key) {
        if (size_t id = frag->value ? owner_of(frag) : 0)
            owners.try_emplace(id, key);
    });
    return owners;
}

void say_below(fate_ledger &ledger, Frag *frag, fate f, const std::string &reason) {
    auto say = [&](const Frag *at) {
        if (size_t id = owner_of(at))
            ledger.say(id, f, reason);
    };
    say(frag);
    visit_frags(frag->child, [&](const Frag *at, const std::string &) { say(at); });
}

namespace {

// Notes that the value of `id` gave way to that of `winner`; 0 stands for a value that a pass made.
void note_loss(fate_run &run, size_t id, size_t winner) {
    if (id == winner)
        return;
    std::string by = winner ? run.ledger.where(winner)
                            : "what the upgrade made of " + (run.last_table.empty() ? "the old data" : run.last_table);
    run.ledger.say(id, fate::overridden, "overridden by " + by);
    run.ledger.entries[winner].beats = id;
}

// One entry of a file, as the store takes it in.
void read_entry(fate_run &run, list_indexes &indexes, size_t id, int mode) {
    fate_entry &entry = run.ledger.entries[id];
    FragList list = &run.db;
    Frag *parent = nullptr, *frag = nullptr;
    bool made = false;
    size_t at = 0;
    do {
        size_t end = entry.key.find('_', at);
        std::string_view name = std::string_view(entry.key).substr(at, end == std::string::npos ? end : end - at);
        frag = indexes.find(list, name);
        if (!frag) {
            frag = newsymfrag(name.data(), name.size());
            pushfrag(list, frag, parent);
            indexes.add(list, frag);
            if (!made && end != std::string::npos && (!entry.made_from || end < entry.made_from))
                entry.made_from = end;
            made = true;
        }
        parent = frag;
        list = &frag->child;
        at = end == std::string::npos ? end : end + 1;
    } while (at != std::string::npos);
    size_t owner = owner_of(frag);
    bool valued = frag->value != nullptr;
    if (!entry.section_form)
        frag->attr = (frag->attr >> OWNER_SHIFT << OWNER_SHIFT) | entry.attr;
    if (valued && !made && (mode == 1 || entry.value.empty())) {
        note_loss(run, id, owner);
        return;
    }
    if (valued && owner)
        note_loss(run, owner, id);
    // A name that stands without a value keeps none of the file's, but an empty one.
    setvalue(frag, made || mode == 0 ? std::string_view(entry.value) : std::string_view(""));
    set_owner(frag, id);
}

/// The maps that are there, to find one that a further map is the same as. Values are compared in the order pd, src,
/// proxy, policy, and the first that one of the two lacks makes them the same.
struct known_maps {
    std::unordered_map<std::string, Frag *> lacking, having;
    std::unordered_map<std::string, std::string> sets_of_policy; // of the merged file, names in order
    bool has_sorted = false; // the last search compared config sets, which leaves both policies' lists sorted
    std::unordered_set<std::string> compared; // pd, src and proxy of such maps

    explicit known_maps(FragList file) {
        Frag *policies = ffind(file, "policy");
        for (Frag *policy = policies ? policies->child : nullptr; policy; policy = policy->next) {
            Frag *sets = ffind(&policy->child, "proxy");
            if (!sets)
                continue;
            std::vector<std::string> names;
            for (Frag *set = sets->child; set; set = set->next)
                names.emplace_back(set->name);
            std::sort(names.begin(), names.end());
            std::string text = "sets";
            for (const std::string &name : names)
                text += '\0' + name;
            sets_of_policy.emplace(policy->name, std::move(text));
        }
    }

    static Frag *at(const std::unordered_map<std::string, Frag *> &maps, const std::string &key) {
        auto found = maps.find(key);
        return found == maps.end() ? nullptr : found->second;
    }

    // The keys that a map has for its policy, by name and by the config sets.
    std::vector<std::string> policy_keys(const std::string &source, const char *policy) const {
        std::vector<std::string> keys{source + "name" + '\0' + policy};
        auto sets = sets_of_policy.find(policy);
        if (sets != sets_of_policy.end())
            keys.push_back(source + sets->second);
        return keys;
    }

    Frag *find(Frag *map) {
        std::string key;
        has_sorted = false;
        for (const char *name : {"pd", "src", "proxy", "policy"}) {
            if (Frag *found = at(lacking, key))
                return found;
            const char *value = fval(&map->child, name);
            if (!value)
                return at(having, key);
            if (std::string_view(name) != "policy") {
                key.append(value).push_back('\0');
                continue;
            }
            std::vector<std::string> keys = policy_keys(key, value);
            has_sorted = keys.size() > 1 && at(having, key + "any sets");
            if (has_sorted)
                compared.insert(key);
            for (const std::string &policy_key : keys)
                if (Frag *found = at(having, policy_key))
                    return found;
        }
        return nullptr;
    }

    // The policies whose config sets were compared.
    std::unordered_set<std::string> compared_policies(Frag *maps) const {
        std::unordered_set<std::string> names;
        for (Frag *map = compared.empty() ? nullptr : maps; map; map = map->next) {
            std::string key;
            for (const char *name : {"pd", "src", "proxy"})
                if (const char *value = fval(&map->child, name))
                    key.append(value).push_back('\0');
            const char *policy = compared.count(key) ? fval(&map->child, "policy") : nullptr;
            if (policy)
                names.insert(policy);
        }
        return names;
    }

    void add(Frag *map) {
        std::string key;
        having[key] = map;
        for (const char *name : {"pd", "src", "proxy", "policy"}) {
            const char *value = fval(&map->child, name);
            if (!value) {
                lacking[key] = map;
                return;
            }
            if (std::string_view(name) != "policy") {
                key.append(value).push_back('\0');
                having[key] = map;
                continue;
            }
            std::vector<std::string> keys = policy_keys(key, value);
            if (keys.size() > 1)
                keys.push_back(key + "any sets");
            for (const std::string &policy_key : keys)
                having[policy_key] = map;
        }
    }
};

// "FILE line N", or what made it, of the first value below a node.
std::string origin(const fate_run &run, Frag *frag) {
    size_t first = 0;
    for (Frag *child = frag->child; child; child = child->next)
        if (size_t id = owner_of(child))
            first = first && first < id ? first : id;
    return first ? " of " + run.ledger.where(first) : run.last_table.empty() ? "" : " of " + run.last_table;
}

void lose_top_value(fate_run &run, const Frag *top) {
    run.ledger.say(owner_of(top), fate::without_effect,
                   "a value of the key `" + std::string(top->name) + "` itself is lost when a file is merged");
}

// A map that does not come in. Its lines have an effect all the same where another line waits to take their place, and
// where the comparison sorted the config sets of policies.
void say_same(fate_run &run, Frag *map, const std::string &reason, bool has_sorted) {
    for (Frag *field = map->child; field; field = field->next) {
        size_t id = owner_of(field), beaten = run.ledger.entries[id].beats;
        if (beaten)
            run.ledger.say(id, fate::reshaped,
                           reason + "; without the line, " + run.ledger.where(beaten) + " could tell it apart");
    }
    if (has_sorted)
        say_below(run.ledger, map, fate::reshaped,
                  reason + "; they were compared by config sets, which are in order now");
    say_below(run.ledger, map, fate::without_effect, reason);
}

// The result is the names of the policies that decided whether maps are the same.
std::unordered_set<std::string> merge_maps_of_file(fate_run &run, Frag *old_map) {
    Frag *file_map = fdel(&run.db, "map");
    sort_frags(&old_map->child);
    number_frags(old_map->child);
    lose_top_value(run, old_map);
    Frag *map = fset(&run.db, "map", nullptr);
    map->child = old_map->child;
    old_map->child = nullptr;
    freefrag(old_map);
    for (Frag *entry = map->child; entry; entry = entry->next)
        entry->parent = map;
    if (!file_map)
        return {};
    known_maps known(&run.db);
    int number = 1;
    for (Frag *entry = map->child; entry; entry = entry->next, number++)
        known.add(entry);
    lose_top_value(run, file_map);
    sort_frags(&file_map->child);
    Frag *next = file_map->child;
    file_map->child = nullptr;
    freefrag(file_map);
    std::unordered_set<std::string> deciding;
    while (Frag *entry = next) {
        next = entry->next;
        if (Frag *same = known.find(entry)) {
            say_same(run, entry, "this map is the same as map " + std::string(same->name) + origin(run, same),
                     known.has_sorted);
            if (const char *policy = known.has_sorted ? fval(&entry->child, "policy") : nullptr)
                deciding.insert(policy);
            freefrag(entry);
            continue;
        }
        renumberfrag(entry, number++);
        pushfrag(&map->child, entry, map);
        known.add(entry);
    }
    sort_frags(&map->child);
    for (const std::string &policy : known.compared_policies(map->child))
        deciding.insert(policy);
    return deciding;
}

void merge_policies_of_file(fate_run &run, Frag *old_policy, const std::unordered_set<std::string> &deciding) {
    Frag *file_policy = fdel(&run.db, "policy");
    lose_top_value(run, old_policy);
    Frag *policy = fset(&run.db, "policy", nullptr);
    policy->child = old_policy->child;
    old_policy->child = nullptr;
    freefrag(old_policy);
    for (Frag *entry = policy->child; entry; entry = entry->next)
        entry->parent = policy;
    if (!file_policy)
        return;
    lose_top_value(run, file_policy);
    list_indexes policies;
    Frag *next = file_policy->child;
    file_policy->child = nullptr;
    freefrag(file_policy);
    while (Frag *entry = next) {
        next = entry->next;
        std::string name = fragname(entry);
        if (Frag *same = policies.find_key(&policy->child, name.c_str())) {
            Frag *proxies = ffind(&same->child, "proxy"), *own = ffind(&entry->child, "proxy");
            std::string reason = "the policy " + name + " exists already" + origin(run, proxies ? proxies : same);
            if (own && deciding.count(entry->name))
                say_below(run.ledger, own, fate::reshaped, reason + "; its config sets told which maps are the same");
            say_below(run.ledger, entry, fate::without_effect, reason);
            freefrag(entry);
            continue;
        }
        pushfrag(&policy->child, entry, policy);
        policies.add(&policy->child, entry);
    }
}

} // namespace

void read_entries(fate_run &run, size_t input, int mode) {
    list_indexes indexes;
    for (size_t id = run.ledger.inputs[input].first; id < run.ledger.inputs[input].end; id++)
        read_entry(run, indexes, id, mode);
}

void follow_start(fate_run &run, size_t old_conf, bool has_proxies) {
    if (has_proxies) {
        // The network objects are taken as they stand in the file, the last of two lines winning.
        read_entries(run, old_conf, 0);
        Frag *netobj = fdel(&run.db, "netobj");
        freelist(run.db);
        run.db = nullptr;
        if (netobj) {
            netobj->next = nullptr;
            pushfrag(&run.db, netobj, nullptr);
            setvalue(netobj, nullptr);
            set_owner(netobj, 0);
            // A list's siblings come along as far as they stand behind it, which is ahead of it in the file.
            while (netobj->child && std::string_view(netobj->child->name) != "list") {
                Frag *head = netobj->child;
                netobj->child = head->next;
                freefrag(head);
            }
        }
        return;
    }
    for (const char *key : {"trusted_networks", "untrusted_networks"}) {
        size_t owner = 0;
        const fate_input &input = run.ledger.inputs[old_conf];
        for (size_t id = input.first; id < input.end; id++)
            if (run.ledger.entries[id].key == key && (!owner || !run.ledger.entries[id].value.empty()))
                owner = id;
        if (!owner)
            continue;
        std::string text = run.ledger.entries[owner].value;
        const char *list = *key == 't' ? "Trusted$LIST" : "Untrusted$LIST";
        xurl2netobj(&run.db, list, text.data());
        Frag *made = ffind2(&run.db, "netobj_list", list);
        visit_frags(made ? made->child : nullptr, [&](Frag *frag, const std::string &) {
            if (frag->value)
                set_owner(frag, owner);
        });
    }
}

void follow_merge(fate_run &run, size_t input) {
    Frag *old_map = fdel(&run.db, "map");
    Frag *old_policy = fdel(&run.db, "policy");
    read_entries(run, input, 1);
    std::unordered_set<std::string> deciding;
    if (old_map)
        deciding = merge_maps_of_file(run, old_map);
    if (old_policy)
        merge_policies_of_file(run, old_policy, deciding);
}
