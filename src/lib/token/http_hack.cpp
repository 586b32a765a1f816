// Which program serves the web proxy: the one that can authenticate, or the plain one.
#include "name_index.h"
#include "nupgrade.h"
#include "text_hash.h"

#include <strings.h>
#include <unordered_set>
#include <vector>

int is_authon(const char *value) {
    return value && *value && strcasecmp(value, "never") != 0 && strcasecmp(value, "inherit") != 0;
}

namespace {

enum verdict { OPEN, ON, NEVER };

// What an `authenticate` node says; "inherit" and a node with no value leave the question open.
verdict judge(FragList list) {
    const char *value = fval(list, "authenticate");
    if (!value || strcasecmp(value, "inherit") == 0)
        return OPEN;
    return strcasecmp(value, "never") == 0 ? NEVER : ON;
}

/// The config sets that have a value in the list of a policy with authentication.
struct authenticated_sets {
    std::vector<Frag *> lists; // the policies' lists
    std::unordered_set<std::string, text_hash> names;
    list_indexes indexes;

    explicit authenticated_sets(FragList db) {
        Frag *policy = ffind(db, "policy");
        for (Frag *entry = policy ? policy->child : nullptr; entry; entry = entry->next) {
            const char *value = fval(&entry->child, "parm_authenticate");
            Frag *proxies = value && *value ? ffind(&entry->child, "proxy") : nullptr;
            if (!proxies)
                continue;
            lists.push_back(proxies);
            std::unordered_set<std::string_view, text_hash> met;
            for (Frag *set = proxies->child; set; set = set->next)
                if (met.insert(set->name).second && set->value)
                    names.insert(set->name);
        }
    }

    bool has(const std::string &set_name) {
        if (set_name.find_first_of("_=") == std::string::npos)
            return names.count(set_name) != 0;
        for (Frag *list : lists) { // a name with a `_` is a key of several levels
            const Frag *set = indexes.find_key(&list->child, set_name.c_str());
            if (set && set->value)
                return true;
        }
        return false;
    }
};

} // namespace

int do_http_hack(FragList db) {
    Frag *http = ffind(db, "def_proxy_http-px");
    if (!http)
        return 1;
    const char *program = fval(&http->child, "proxy-exec");
    if (!program || strcasecmp(program, "./http-xtk") == 0)
        return 0;
    verdict found = judge(&http->child);
    if (found == OPEN) {
        Frag *config_sets = ffind(&http->child, "config-sets");
        authenticated_sets authenticated(db);
        for (Frag *set = config_sets ? config_sets->child : nullptr; set && found == OPEN; set = set->next) {
            found = judge(&set->child);
            if (found == OPEN && authenticated.has(fragname(set)))
                found = ON;
        }
    }
    if (found == OPEN && ffind(db, "def_proxy_global_authenticate"))
        found = ON;
    fsetp(&http->child, "proxy-exec", found == ON ? "./http-xtk" : "./http-px", http);
    return 0;
}
