// The fixed sequence behind the netperm option.
#include "frag_tools.h"
#include "translation.h"
#include "upgrade.h"

#include <cstdlib>
#include <cstring>

// The newer release has no use for them. Each proxy got its share of `global`, the lines for all, while the table was
// read.
const char *const del_netperm_proxies[] = {
    "netconfig", "authenIP", "getvers", "login-ts", "radm", "global", "gui", nullptr,
};

void remove_proxies(FragList db, const char *const *proxies) {
    if (Frag *def_proxy = ffind(db, "def_proxy"))
        for (; *proxies; proxies++)
            fremove(&def_proxy->child, *proxies);
}

namespace {

bool is_template(const Frag *proxy) { return has_prefix(proxy->name, "policy-"); }

void read_table(const char *path) {
    FILE *stream = open_file(path, "r");
    if (!stream) {
        fprintf(stderr, "Failed to open %s\n", path);
        exit(1);
    }
    readnpt(stream, cur_database);
    fclose(stream);
}

void keep_alerts_enable() {
    Frag *alerts = ffind(cur_database, "def_proxy_alerts");
    if (!alerts)
        return;
    Frag *enable = fdel(&alerts->child, "enable");
    freelist(alerts->child);
    alerts->child = enable;
    if (enable)
        enable->next = nullptr;
}

void translate_proxies(Frag *def_proxy) {
    translation run(cur_database);
    for (Frag *proxy = def_proxy->child; proxy; proxy = proxy->next)
        if (!is_template(proxy) && strcmp(proxy->name, "alerts") != 0)
            translate_hosts(run, proxy);
}

// Removes the policy templates; the order of the proxies that remain is turned around.
void remove_templates(Frag *def_proxy) {
    Frag *proxy = def_proxy->child;
    def_proxy->child = nullptr;
    while (proxy) {
        Frag *next = proxy->next;
        if (is_template(proxy))
            freefrag(proxy);
        else
            pushfrag(&def_proxy->child, proxy, def_proxy);
        proxy = next;
    }
}

} // namespace

void netperm_pass(const char *path, int config_type) {
    // A 5.5 configuration has no use for a table. The current database stays the one that the run saves.
    if (config_type == 55)
        return;
    if (config_type >= 40)
        cur_database = &nptdatabase;
    if (repf)
        fprintf(repf, "process: %s\n", path);
    read_table(path);
    Frag *def_proxy = ffind(cur_database, "def_proxy");
    if (def_proxy)
        reverse_frags(&def_proxy->child);
    remove_proxies(cur_database, del_netperm_proxies);
    keep_alerts_enable();
    clean_auth_etc(cur_database);
    conv_plugdata(cur_database);
    if (def_proxy) {
        translate_proxies(def_proxy);
        remove_templates(def_proxy);
    }
    merge_maps(cur_database);
    conv_dests(cur_database);
    fset(cur_database, "trusted_networks", nullptr);
    fset(cur_database, "untrusted_networks", nullptr);
    if (config_type >= 40)
        cur_database = &def_database;
}
