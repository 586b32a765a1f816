// The last passes before saving.
#include "frag_tools.h"
#include "name_index.h"
#include "upgrade.h"

#include <cstring>
#include <string>
#include <strings.h>

const char *const login_services[] = {"svcgrd-telnetd", "svcgrd-ftpd", "svcgrd-rlogind", nullptr};

void pre_save_cleanup(FragList db) {
    const char *loginok = fval(db, "network_loginok");
    if (loginok && strcasecmp(loginok, "enabled") == 0) {
        for (const char *const *name = login_services; *name; name++)
            fset(db, (std::string("def_proxy_") + *name + "_state").c_str(), "on");
    }
    fremove(db, "network_loginok");
}

const char *const del_50_proxies[] = {"ahttp-px", "rap", nullptr};

const char *const force_list[] = {"proxy-type", "proxy-exec", "bind-port", nullptr};

const char *const del_55_proxies[] = {"oracle-px", nullptr};

const char *const del_55_keys[] = {
    "pki_CRLs", "pki_Xcerts", "pki_LDAP", "pki_default_port", "pki_default_server", nullptr,
};

const program_rec program_tab[] = {
    {"plug-px", "./plug-xtk"},
    {"http-px", "./mgmt/rc/H110http"},
    {nullptr, nullptr},
};

namespace {

// Finds the proxies of `db` by the keys of the initial environment's, without a walk over all proxies for each.
struct proxy_finder {
    FragList db;
    name_index proxies;

    explicit proxy_finder(FragList database) : db(database), proxies(db, "def_proxy") {}
    Frag *find(const char *key) const {
        static const char top[] = "def_proxy_";
        return has_prefix(key, top) ? proxies.find_key(key + strlen(top)) : ffind(db, key);
    }
};

} // namespace

int copy_50_stuff(FragList db, FragList init) {
    remove_proxies(db, del_50_proxies);
    Frag *init_proxies = ffind(init, "def_proxy");
    if (!init_proxies)
        return 0;
    proxy_finder finder(db);
    for (Frag *init_proxy = init_proxies->child; init_proxy; init_proxy = init_proxy->next) {
        Frag *proxy = finder.find(fragkeyname(init_proxy));
        if (!proxy)
            continue;
        for (const char *const *key = force_list; *key; key++) {
            const char *value = fval(&init_proxy->child, *key);
            if (value && *value)
                fsetp(&proxy->child, *key, value, proxy);
        }
        fremove(&proxy->child, "authenticate");
    }
    return 0;
}

int do_55_upgrades(FragList db) {
    remove_proxies(db, del_55_proxies);
    Frag *def_proxy = ffind(db, "def_proxy");
    for (Frag *proxy = def_proxy ? def_proxy->child : nullptr; proxy; proxy = proxy->next) {
        const char *type = fval(&proxy->child, "proxy-type");
        for (const program_rec *rec = program_tab; type && rec->type; rec++)
            if (strcasecmp(type, rec->type) == 0) {
                fsetp(&proxy->child, "proxy-exec", rec->exec, proxy);
                if (repf)
                    fprintf(repf, "%s: set %s_proxy-exec to %s\n", rec->type, fragkeyname(proxy), rec->exec);
            }
    }
    for (const char *const *key = del_55_keys; *key; key++)
        if (fremove(db, *key) && repf)
            fprintf(repf, "remove: %s\n", *key);
    fset(db, "version_firewall", "5.5");
    return 0;
}
