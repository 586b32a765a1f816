// Canonical proxies: their names, config sets and parameters.
#include "frag_tools.h"
#include "name_index.h"
#include "nupgrade.h"

#include <cstring>
#include <unordered_map>

int canon_def(FragList db) {
    Frag *def_proxy = ffind(db, "def_proxy");
    if (!def_proxy)
        return 0;
    for (Frag *entry = def_proxy->child; entry; entry = entry->next) {
        take_name(entry, "realname");
        canon_parm(entry, "parm", "num_parms", "num");
    }
    return 0;
}

int canon_cust(FragList db) {
    Frag *cust_proxy = ffind(db, "cust_proxy");
    Frag *def_proxy = ffind(db, "def_proxy");
    if (!cust_proxy)
        return 0;
    name_index proxies(db, "def_proxy");
    std::unordered_map<Frag *, Frag *> config_sets; // by owner
    Frag *entry = cust_proxy->child;
    cust_proxy->child = nullptr;
    while (entry) {
        Frag *next = entry->next;
        Frag *realname = fdel_valued(&entry->child, "realname");
        take_name(entry, "name");
        canon_parm(entry, "parm", "num_parms", "num");
        // By now the owner is named by its own `realname`. One that is missing is made.
        std::string owner_name = realname && *realname->value ? storedname(realname->value) : entry->name;
        if (!def_proxy)
            def_proxy = fset(db, "def_proxy", nullptr);
        Frag *owner = proxies.find(owner_name);
        if (!owner) {
            owner = faddchild(def_proxy, owner_name, nullptr);
            proxies.add(owner);
        }
        Frag *&sets = config_sets[owner];
        if (!sets)
            sets = fmake(&owner->child, "config-sets", owner);
        pushfrag(&sets->child, entry, sets);
        freefrag(realname);
        entry = next;
    }
    return 0;
}

// The web proxy's old address filter becomes the list parameter `url`, one text for each pair of access and address.
static void canon_cyberurl(Frag *entry) {
    Frag *url_list = ffind(&entry->child, "cyberurl");
    if (!url_list)
        return;
    renamefrag(url_list, "url");
    for (Frag *child = url_list->child; child; child = child->next) {
        const char *access = fval(&child->child, "access");
        const char *url = fval(&child->child, "url");
        if (access && url)
            setvalue(child, std::string(access) + " " + url);
        freelist(child->child);
        child->child = nullptr;
    }
}

// Files one parameter under its entry. It takes over `value`, an unlinked node: it becomes a child of the entry or is
// freed here. `name` must not be a text of it.
static void file_parameter(Frag *entry, const char *name, Frag *value, list_indexes &indexes) {
    name = attr_remap(name);
    long bits = strip_attr_prefixes(&name);
    const char *underscore = strchr(name, '_');
    Frag *holder;
    if (underscore && !is_digit(underscore[1])) {
        renamefrag(value, name);
        pushfrag(&entry->child, value, entry);
        indexes.add(&entry->child, value);
        holder = value;
    } else {
        if (!underscore) {
            holder = indexes.set_key(&entry->child, name, value->value, entry);
        } else {
            std::string list_name(name, underscore);
            Frag *list = indexes.set_key(&entry->child, list_name.c_str(), nullptr, entry);
            holder = indexes.set_key(&list->child, underscore + 1, value->value, list);
        }
        freefrag(value);
    }
    holder->attr = bits;
}

int canon_parm(Frag *entry, const char *list_key, const char *count_key, const char *interior_key) {
    list_indexes indexes;
    if (Frag *parameters = fdel(&entry->child, list_key)) {
        for (Frag *parameter = parameters->child; parameter; parameter = parameter->next) {
            Frag *value = fdel_valued(&parameter->child, "value");
            Frag *name = fdel_valued(&parameter->child, "name");
            if (value && name)
                file_parameter(entry, name->value, value, indexes);
            else
                freefrag(value);
            freefrag(name);
        }
        freefrag(parameters);
    }
    if (count_key)
        fremove(&entry->child, count_key);
    if (interior_key)
        fremove_bare(&entry->child, interior_key);
    canon_cyberurl(entry);
    return 0;
}
