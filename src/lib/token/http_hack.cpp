// Which program serves the web proxy: the one that can authenticate, or the plain one.
#include "nupgrade.h"

#include <cstring>
#include <strings.h>
#include <unordered_set>

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

// The policies that authenticate.
std::vector<Frag *> authenticating_policies(FragList db) {
    std::vector<Frag *> policies;
    Frag *policy = ffind(db, "policy");
    for (Frag *entry = policy ? policy->child : nullptr; entry; entry = entry->next) {
        const char *value = fval(&entry->child, "parm_authenticate");
        if (value && *value)
            policies.push_back(entry);
    }
    return policies;
}

// True if one of the policies has a proxy entry with a value for the set.
bool policy_names(const std::vector<Frag *> &policies, const char *set_name) {
    for (Frag *policy : policies)
        if (Frag *proxies = ffind(&policy->child, "proxy"))
            if (fval(&proxies->child, set_name))
                return true;
    return false;
}

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
        std::vector<Frag *> policies = authenticating_policies(db);
        for (Frag *set = config_sets ? config_sets->child : nullptr; set && found == OPEN; set = set->next) {
            found = judge(&set->child);
            if (found == OPEN && policy_names(policies, fragname(set)))
                found = ON;
        }
    }
    if (found == OPEN && ffind(db, "def_proxy_global_authenticate"))
        found = ON;
    fsetp(&http->child, "proxy-exec", found == ON ? "./http-xtk" : "./http-px", http);
    return 0;
}
