// Numbered interfaces: aliases leave the location lists for a list of their interface, and the list of all
// interfaces is rebuilt.
#include "nupgrade.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <unordered_set>

namespace {

const char all_elements_key[] = "netobj_list_all%5Finterfaces_element";

int count_frags(const Frag *frag) {
    int count = 0;
    for (; frag; frag = frag->next)
        count++;
    return count;
}

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

// The alias list of an interface.
struct alias_list {
    Frag *list;
    Frag *elements;
    bool lasts; // it does not lie in the list under way, whose elements go while they are walked
};

// The alias lists of one pass over a location list, found or made by the name of an interface.
struct alias_lists {
    Frag *netobj_list;
    name_index lists;
    struct element_state {
        name_index names;
        int count;
        int last; // the number that was given last; all from the count up to it are taken
    };
    std::unordered_map<Frag *, element_state> states; // by the node `element` of the lists that last
    std::string location_name;

    alias_lists(FragList db, const char *location)
        : netobj_list(ffind(db, "netobj_list")), lists(db, "netobj_list"),
          location_name(location + strlen("netobj_list_")) {}

    alias_list find_or_make(const char *interface) {
        std::string key(interface, strcspn(interface, ":"));
        key += "$INTERFACE";
        alias_list found{lists.find_key(key.c_str()), nullptr, key_component(key.c_str()) != location_name};
        if (!found.list)
            found.list = lists.set_key(&netobj_list->child, key.c_str(), nullptr, netobj_list);
        found.elements = ffind(&found.list->child, "element");
        if (!found.elements) {
            found.elements = fsetp(&found.list->child, "element", nullptr, found.list);
            fsetp(&found.list->child, "num_elements", "0", found.list);
        }
        return found;
    }

    // Puts a copy of the alias behind the elements of the list, whose count may leave numbers that are taken.
    void add(const alias_list &aliases, Frag *alias) {
        element_state once;
        element_state *state = &once;
        auto known = states.find(aliases.elements);
        if (aliases.lasts && known != states.end())
            state = &known->second;
        else
            once = {name_index(&aliases.elements->child), count_frags(aliases.elements->child), 0};
        int number = std::max(++state->count, state->last + 1);
        while (state->names.find(numbertext(number)))
            number++;
        state->last = number;
        std::string name = numbertext(number);
        fremove(&aliases.list->child, "num_elements");
        Frag *copy = state->names.set_key(&aliases.elements->child, name.c_str(), nullptr, aliases.elements);
        copy->child = copy_fragtree(&alias->child, copy);
        fsetp(&aliases.list->child, "num_elements", numbertext(state->count).c_str(), aliases.list);
        if (aliases.lasts && state == &once)
            states.emplace(aliases.elements, std::move(once));
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
        alias_list own = aliases->find_or_make(interface);
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
