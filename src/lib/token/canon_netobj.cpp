// Canonical network objects: named lists and groups, and one place for every address of the firewall.
#include "frag_tools.h"
#include "name_index.h"
#include "nupgrade.h"

#include <cstring>
#include <unordered_map>
#include <unordered_set>

int canon_netobj(FragList db, const char *family) {
    Frag *top = ffind(db, family);
    if (!top)
        return 0;
    for (Frag *entry = top->child; entry; entry = entry->next) {
        take_name(entry, "name");
        if (Frag *num = ffind(&entry->child, "num")) {
            fremove(&num->child, "elements");
            fremove(&num->child, "members");
            fremove_bare(&entry->child, "num");
        }
    }
    return 0;
}

namespace {

constexpr char top_key[] = "netobj_list_";

// The alias lists, to which an interface's name is the key below `netobj_list`. A list that is folded into a location
// list leaves the tree, but is freed only at the end: the indexes know lists by their addresses, and a list that is
// made later must not get an address that they know.
struct alias_lists {
    Frag *netobj_list;
    list_indexes indexes;
    std::unordered_map<Frag *, FragList> links; // what points to each node of the lists in `linked`
    std::unordered_set<FragList> linked;        // those that have lost a node
    Frag *used = nullptr;

    explicit alias_lists(FragList db) : netobj_list(ffind(db, "netobj_list")) {}
    ~alias_lists() { freelist(used); }
    alias_lists(const alias_lists &) = delete;
    alias_lists &operator=(const alias_lists &) = delete;

    // Takes the list of that key out of the tree. Null if there is none. The caller must not free it.
    Frag *use(const char *key) {
        if (!netobj_list)
            return nullptr;
        FragList siblings;
        Frag *list = indexes.find_key(&netobj_list->child, key, &siblings);
        if (!list)
            return nullptr;
        indexes.remove(siblings, list);
        unlink(siblings, list);
        pushfrag(&used, list, nullptr);
        return list;
    }

    // A walk to the node in front, for each list that goes, would cost the square of their number.
    void unlink(FragList siblings, Frag *list) {
        if (linked.insert(siblings).second)
            for (FragList link = siblings; *link; link = &(*link)->next)
                links[*link] = link;
        FragList link = links[list];
        *link = list->next;
        if (*link)
            links[*link] = link;
    }
};

// True if the key leads to the location list, to a node that it stands below, or into its elements. As part of the key,
// an interface's name can lead anywhere.
bool leads_into_location(const char *key, const char *location) {
    for (;; key++, location++) {
        std::string_view component = key_component(key);
        if (component != key_component(location))
            return false;
        key += component.size();
        location += component.size();
        if (*key != '_')
            return true;
        if (*location != '_')
            return key_component(key + 1) == "element";
    }
}

} // namespace

int canon_if(FragList db, const char *location) {
    Frag *list = fmake(db, location);
    Frag *elements = fmake(&list->child, "element", list);
    if (!elements->child)
        return 0;

    {
        alias_lists aliases(db);
        name_index numbers(&elements->child);
        int next_number = 1;
        for (Frag *element = elements->child; element; element = element->next)
            next_number++;
        // New elements go to the head, so this walk meets only those that are here now.
        for (Frag *element = elements->child; element; element = element->next) {
            const char *interface = fval(&element->child, "interface");
            if (!interface || !*interface || is_on(fval(&element->child, "alias")))
                continue;
            std::string key = top_key + (std::string(interface) + "$INTERFACE");
            if (leads_into_location(key.c_str(), location))
                continue;
            Frag *alias_list = aliases.use(key.c_str() + strlen(top_key));
            Frag *alias_elements = alias_list ? ffind(&alias_list->child, "element") : nullptr;
            for (Frag *alias = alias_elements ? alias_elements->child : nullptr; alias; alias = alias->next) {
                // If the numbers have gaps, one behind the count can be taken. No element may be replaced.
                while (numbers.find(numbertext(next_number)))
                    next_number++;
                std::string number = numbertext(next_number++);
                Frag *folded = numbers.set_key(&elements->child, number.c_str(), nullptr, elements);
                folded->child = copy_fragtree(&alias->child, folded);
                fsetp(&folded->child, "alias", "yes", folded);
            }
        }
    }
    sort_frags(&elements->child);
    return 0;
}

int canon_interfaces(FragList db) {
    canon_if(db, "netobj_list_Inside");
    canon_if(db, "netobj_list_Outside");
    canon_if(db, "netobj_list_Service");
    return 0;
}
