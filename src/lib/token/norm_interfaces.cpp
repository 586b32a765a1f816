// Numbered interfaces: aliases leave the location lists for a list of their interface, and the list of all
// interfaces is rebuilt.
#include "frag_tools.h"
#include "name_index.h"
#include "nupgrade.h"
#include "text_hash.h"

#include <cstring>
#include <optional>
#include <unordered_map>
#include <unordered_set>
#include <vector>

namespace {

const char all_elements_key[] = "netobj_list_all%5Finterfaces_element";

bool has_interface(Frag *element) { return !is_blanks(fval(&element->child, "interface")); }

// The list of all interfaces while elements are entered into it. Entries stand in the order of their numbers, a
// null where one has been replaced, and are renumbered and relinked at the end.
struct all_interfaces {
    Frag *elements;
    std::vector<Frag *> entries;
    std::unordered_multimap<std::string, size_t, text_hash> by_interface; // position by interface in lower case
    // Entries that others took the place of. They are freed last, since the location list can be this very list, or
    // stand below an entry.
    std::vector<Frag *> replaced;

    explicit all_interfaces(FragList db) : elements(fmake(db, all_elements_key)) {
        sort_frags(&elements->child);
        for (Frag *entry = elements->child; entry; entry = entry->next)
            append(entry);
    }
    ~all_interfaces() {
        for (Frag *entry : replaced)
            freefrag(entry);
    }
    all_interfaces(const all_interfaces &) = delete;
    all_interfaces &operator=(const all_interfaces &) = delete;

    void append(Frag *entry) {
        if (const char *interface = fval(&entry->child, "interface"))
            by_interface.emplace(lowercase(interface), entries.size());
        entries.push_back(entry);
    }

    void enter(Frag *element) {
        std::string interface = lowercase(fval(&element->child, "interface"));
        auto same = by_interface.equal_range(interface);
        for (auto it = same.first; it != same.second; ++it) {
            replaced.push_back(entries[it->second]);
            entries[it->second] = nullptr;
        }
        by_interface.erase(same.first, same.second);
        Frag *entry = newsymfrag("", 0);
        entry->child = copy_fragtree(&element->child, entry);
        if (element->parent && element->parent->parent)
            fsetp(&entry->child, "location", fragname(element->parent->parent), entry);
        append(entry);
    }

    // Relinks the entries once at least one has been entered: the last stands at the head of the list, as any new
    // sibling does, the others in order.
    void relink() {
        Frag *first = nullptr;
        FragList link = &first;
        int number = 1;
        for (Frag *entry : entries)
            if (entry) {
                renumberfrag(entry, number++);
                entry->parent = elements;
                *link = entry;
                link = &entry->next;
            }
        *link = nullptr;
        elements->child = first;
        if (first->next) {
            link = &elements->child;
            while ((*link)->next)
                link = &(*link)->next;
            Frag *last = *link;
            *link = nullptr;
            last->next = elements->child;
            elements->child = last;
        }
    }
};

} // namespace

int add_to_allif(FragList db, Frag *element) {
    if (!has_interface(element))
        return 1;
    all_interfaces all(db);
    all.enter(element);
    all.relink();
    return 0;
}

namespace {

// The alias lists of one pass over a location list. An interface's name is a key that can lead anywhere below
// `netobj_list`, even into the elements of the location list, so the indexes have to know of all that goes.
struct alias_lists {
    Frag *netobj_list;
    list_indexes indexes;
    Frag *gone = nullptr; // counts with something below, freed last: it can be the location list

    explicit alias_lists(FragList db) : netobj_list(fmake(db, "netobj_list")) {}
    ~alias_lists() { freelist(gone); }
    alias_lists(const alias_lists &) = delete;
    alias_lists &operator=(const alias_lists &) = delete;

    Frag *set(Frag *parent, const char *key, const char *value) {
        return indexes.set_key(&parent->child, key, value, parent);
    }
    void leaves(FragList list, Frag *frag) {
        indexes.remove(list, frag);
        indexes.forget_below(frag);
    }

    Frag *find_or_make(const char *interface) {
        std::string key(interface, strcspn(interface, ":"));
        key += "$INTERFACE";
        Frag *list = indexes.find_key(&netobj_list->child, key.c_str());
        if (!list)
            list = set(netobj_list, key.c_str(), nullptr);
        if (!indexes.find(&list->child, "element")) {
            set(list, "element", nullptr);
            set(list, "num_elements", "0");
        }
        return list;
    }

    // Puts a copy of the alias behind the elements of the list, under the first number behind their count that is free.
    void add(Frag *list, Frag *alias) {
        if (Frag *num = indexes.find(&list->child, "num"))
            if (Frag *count = indexes.find(&num->child, "elements")) {
                leaves(&num->child, count);
                fdel(&num->child, "elements");
                if (count->child)
                    pushfrag(&gone, count, nullptr);
                else
                    freefrag(count);
            }
        Frag *elements = indexes.find(&list->child, "element");
        if (!elements) // the alias, which has just left, was the list's `element`
            elements = set(list, "element", nullptr);
        int number = indexes.free_number(&elements->child);
        Frag *copy = set(elements, numbertext(number).c_str(), nullptr);
        copy->child = copy_fragtree(&alias->child, copy);
        set(list, "num_elements", numbertext(static_cast<int>(indexes.count(&elements->child))).c_str());
    }
};

} // namespace

// What points to the node: `link` does, unless new nodes have come in front of it. For an interface's name can lead
// into the very list that is being walked.
static FragList link_to(const Frag *frag, FragList link) {
    while (*link != frag)
        link = &(*link)->next;
    return link;
}

int norm_if(FragList db, const char *location) {
    Frag *list = fmake(db, location);
    Frag *elements = fmake(&list->child, "element", list);
    fremove(&list->child, "num_elements");

    alias_lists aliases(db);
    for (FragList link = &elements->child; Frag *element = *link;) {
        bool is_alias = is_on(fval(&element->child, "alias"));
        if (Frag *alias = ffind(&element->child, "alias")) {
            aliases.leaves(&element->child, alias);
            fremove(&element->child, "alias");
        }
        const char *interface = fval(&element->child, "interface");
        Frag *own = is_blanks(interface) ? nullptr : aliases.find_or_make(interface);
        link = link_to(element, link);
        if (own && !is_alias) { // it stays
            link = &element->next;
            continue;
        }
        Frag *next = element->next;
        aliases.indexes.remove(&elements->child, element);
        *link = next;
        if (own)
            aliases.add(own, element);
        aliases.indexes.forget_below(element); // interfaces' names may have led to lists below it
        freefrag(element);
        link = link_to(next, link);
    }

    std::optional<all_interfaces> all; // lives to the end: what it replaces can be the location list's own elements
    for (Frag *element = elements->child; element && !all; element = element->next)
        if (has_interface(element))
            all.emplace(db);
    if (all) {
        for (Frag *element = elements->child; element; element = element->next)
            if (has_interface(element))
                all->enter(element);
        all->relink();
    }

    sort_frags(&elements->child);
    int count = number_frags(elements->child);
    fsetp(&list->child, "num_elements", numbertext(count).c_str(), list);
    return 0;
}

namespace {

// Answers `is_in_list` for many entries: the interfaces of each list that is asked for are gathered once.
struct interfaces_by_list {
    Frag *netobj_list;
    list_indexes indexes;
    // By the list's node `element`.
    std::unordered_map<Frag *, std::unordered_set<std::string_view, text_hash>> interfaces;

    explicit interfaces_by_list(FragList db) : netobj_list(ffind(db, "netobj_list")) {}

    bool has(const char *list_name, const char *interface) {
        if (!netobj_list || !list_name || !interface)
            return false;
        Frag *list = indexes.find_key(&netobj_list->child, list_name);
        Frag *elements = list ? indexes.find(&list->child, "element") : nullptr;
        if (!elements)
            return false;
        auto known = interfaces.try_emplace(elements);
        std::unordered_set<std::string_view, text_hash> &names = known.first->second;
        if (known.second)
            for (Frag *element = elements->child; element; element = element->next)
                if (const char *name = fval(&element->child, "interface"))
                    names.insert(name);
        return names.count(interface) != 0;
    }
};

} // namespace

int is_in_list(FragList db, const char *list_name, const char *interface) {
    return interfaces_by_list(db).has(list_name, interface);
}

int norm_interfaces(FragList db) {
    norm_if(db, "netobj_list_Service");
    norm_if(db, "netobj_list_Outside");
    norm_if(db, "netobj_list_Inside");

    Frag *all = fmake(db, all_elements_key);
    fremove(db, "netobj_list_all%5Finterfaces_num_elements");
    interfaces_by_list known(db);
    int count = 0;
    for (Frag *entry = all->child; entry; entry = entry->next, count++)
        if (!known.has(fval(&entry->child, "location"), fval(&entry->child, "interface")))
            fsetp(&entry->child, "location", "Unknown", entry);
    fset(db, "netobj_list_all%5Finterfaces_num_elements", numbertext(count).c_str());
    return 0;
}
