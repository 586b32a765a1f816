// Numbered interfaces: aliases leave the location lists for a list of their interface, and the list of all
// interfaces is rebuilt.
#include "nupgrade.h"

#include <cstring>
#include <optional>
#include <unordered_set>

namespace {

const char all_elements_key[] = "netobj_list_all%5Finterfaces_element";

// The list of all interfaces while elements are entered into it. Entries stand in the order of their numbers, a
// null where one has been replaced, and are renumbered and relinked at the end.
struct all_interfaces {
    Frag *elements;
    std::vector<Frag *> entries;
    std::unordered_multimap<std::string, size_t> by_interface; // position by interface in lower case
    bool entered = false;

    explicit all_interfaces(FragList db) : elements(fmake(db, all_elements_key)) {
        sort_frags(&elements->child);
        for (Frag *entry = elements->child; entry; entry = entry->next)
            append(entry);
    }

    void append(Frag *entry) {
        if (const char *interface = fval(&entry->child, "interface"))
            by_interface.emplace(lowercase(interface), entries.size());
        entries.push_back(entry);
    }

    void enter(Frag *element) {
        std::string interface = lowercase(fval(&element->child, "interface"));
        auto same = by_interface.equal_range(interface);
        for (auto it = same.first; it != same.second; ++it) {
            freefrag(entries[it->second]);
            entries[it->second] = nullptr;
        }
        by_interface.erase(same.first, same.second);
        Frag *entry = newsymfrag("", 0);
        entry->child = copy_fragtree(&element->child, entry);
        if (element->parent && element->parent->parent)
            fsetp(&entry->child, "location", fragname(element->parent->parent), entry);
        append(entry);
        entered = true;
    }

    // The entry that came last stands at the head of the list, as any new sibling does, the others in order.
    void relink() {
        if (!entered)
            return;
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
    if (is_blanks(fval(&element->child, "interface")))
        return 1;
    all_interfaces all(db);
    all.enter(element);
    all.relink();
    return 0;
}

namespace {

// The alias lists of one pass over a location list. An interface's name is a key that can lead anywhere below
// `netobj_list`, so every list on its way is looked up by index, save in the location list itself, whose elements go
// while they are walked.
struct alias_lists {
    Frag *netobj_list;
    std::string location_name;
    list_indexes indexes;
    bool in_location = false; // the list at hand lies in the location list

    alias_lists(FragList db, const char *location)
        : netobj_list(ffind(db, "netobj_list")), location_name(location + strlen("netobj_list_")) {}

    Frag *find(Frag *parent, const char *key) {
        return in_location ? ffind(&parent->child, key) : indexes.find_key(&parent->child, key);
    }
    Frag *set(Frag *parent, const char *key, const char *value) {
        return in_location ? fsetp(&parent->child, key, value, parent)
                           : indexes.set_key(&parent->child, key, value, parent);
    }

    Frag *find_or_make(const char *interface) {
        std::string key(interface, strcspn(interface, ":"));
        key += "$INTERFACE";
        in_location = key_component(key.c_str()) == location_name;
        Frag *list = find(netobj_list, key.c_str());
        if (!list)
            list = set(netobj_list, key.c_str(), nullptr);
        if (!find(list, "element")) {
            set(list, "element", nullptr);
            set(list, "num_elements", "0");
        }
        return list;
    }

    // Puts a copy of the alias behind the elements of the list, whose count may leave numbers that are taken.
    void add(Frag *list, Frag *alias) {
        remove_count(list);
        Frag *elements = find(list, "element");
        int number = indexes.free_number(&elements->child);
        Frag *copy = set(elements, numbertext(number).c_str(), nullptr);
        copy->child = copy_fragtree(&alias->child, copy);
        set(list, "num_elements", numbertext(static_cast<int>(indexes.count(&elements->child))).c_str());
    }

    // Another interface's list can lie below the count.
    void remove_count(Frag *list) {
        Frag *num = find(list, "num");
        Frag *count = num ? find(num, "elements") : nullptr;
        if (!count)
            return;
        indexes.forget_below(count);
        indexes.remove(&num->child, count);
        fremove(&num->child, "elements");
    }
};

} // namespace

int norm_if(FragList db, const char *location) {
    Frag *list = fmake(db, location);
    Frag *elements = fmake(&list->child, "element", list);
    fremove(&list->child, "num_elements");

    std::optional<alias_lists> aliases; // made for the first element that has an interface
    for (FragList link = &elements->child; Frag *element = *link;) {
        Frag *alias = fdel(&element->child, "alias");
        bool is_alias = alias && is_on(alias->value);
        freefrag(alias);
        const char *interface = fval(&element->child, "interface");
        if (is_blanks(interface)) {
            *link = element->next;
            freefrag(element);
            continue;
        }
        if (!aliases)
            aliases.emplace(db, location);
        Frag *own = aliases->find_or_make(interface);
        // An interface's name can lead into this very list, and a new node at its head is not for this walk.
        while (*link != element)
            link = &(*link)->next;
        if (is_alias) {
            *link = element->next;
            aliases->add(own, element);
            freefrag(element);
        } else {
            link = &element->next;
        }
    }

    std::optional<all_interfaces> all;
    for (Frag *element = elements->child; element; element = element->next)
        if (!is_blanks(fval(&element->child, "interface"))) {
            if (!all)
                all.emplace(db);
            all->enter(element);
        }
    if (all)
        all->relink();

    sort_frags(&elements->child);
    int count = number_frags(elements->child);
    fsetp(&list->child, "num_elements", numbertext(count).c_str(), list);
    return 0;
}

int is_in_list(FragList db, const char *list_name, const char *interface) {
    if (!list_name || !interface)
        return 0;
    Frag *netobj_list = ffind(db, "netobj_list");
    Frag *elements = netobj_list ? ffind2(&netobj_list->child, list_name, "element") : nullptr;
    for (Frag *element = elements ? elements->child : nullptr; element; element = element->next)
        if (same_text(fval(&element->child, "interface"), interface))
            return 1;
    return 0;
}

namespace {

// `is_in_list` for many entries: the interfaces of each list that is asked for, gathered once.
struct interfaces_by_list {
    FragList db;
    std::optional<name_index> lists;
    std::unordered_map<std::string, std::unordered_set<std::string>> interfaces;

    explicit interfaces_by_list(FragList database) : db(database) {}

    bool has(const char *list_name, const char *interface) {
        if (!list_name || !interface)
            return false;
        auto known = interfaces.try_emplace(list_name);
        std::unordered_set<std::string> &names = known.first->second;
        if (known.second) {
            if (!lists)
                lists.emplace(db, "netobj_list");
            Frag *list = lists->find_key(list_name);
            Frag *elements = list ? ffind(&list->child, "element") : nullptr;
            for (Frag *element = elements ? elements->child : nullptr; element; element = element->next)
                if (const char *name = fval(&element->child, "interface"))
                    names.insert(name);
        }
        return names.count(interface) != 0;
    }
};

} // namespace

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
