// The two directions between the numbered and the canonical layout, as tables of contents.
#include "nupgrade.h"
#include "frag_tools.h"

int norm_fragtree(FragList db) {
    // Proxies get their names before config sets are hung on them, config sets stand under their proxies before
    // policies look for them, and lists have their names before interfaces do. Without their count, proxies and config
    // sets are not numbered, and stay as they are.
    if (fremove(db, "def_num_proxies")) {
        canon_def(db);
        if (fremove(db, "cust_num_proxies"))
            canon_cust(db);
    }
    canon_netobj(db, "netobj_list");
    canon_netobj(db, "netobj_group");
    canon_interfaces(db);
    fremove(db, "netobj_num_list");
    fremove(db, "netobj_num_group");
    fremove_bare(db, "netobj_num");
    canon_policy(db, "policy");
    canon_ip(db);
    fremove(db, "map_num");
    fremove(db, "sroute_num");
    fremove(db, "dest_num");
    canon_pfrules(db);
    if (Frag *global = ffind(db, "def_proxy_*")) {
        renamefrag(global, "global");
        fset(db, "def_proxy_global_name", "global");
    }
    return 0;
}

static void set_count(FragList db, const char *key, int count) { fset(db, key, numbertext(count).c_str()); }

// Numbers the proxies and hands their config sets, each with its owner's name, over to `cust_proxy`.
static void number_proxies(FragList db, Frag *def_proxy, Frag *cust_proxy) {
    reverse_frags(&def_proxy->child);
    int number = 1;
    for (Frag *entry = def_proxy->child; entry; entry = entry->next) {
        Frag *config_sets = fdel(&entry->child, "config-sets");
        Frag *name = fdel(&entry->child, "name");
        norm_parm(entry, "parm", "num_parms");
        std::string clear_name = fragname(entry);
        fsetp(&entry->child, "realname", clear_name.c_str(), entry);
        if (name)
            pushfrag(&entry->child, name, entry);
        else
            fsetp(&entry->child, "name", clear_name.c_str(), entry);
        while (config_sets && config_sets->child) {
            Frag *set = config_sets->child;
            config_sets->child = set->next;
            fsetp(&set->child, "realname", clear_name.c_str(), set);
            pushfrag(&cust_proxy->child, set, cust_proxy);
        }
        freefrag(config_sets);
        renumberfrag(entry, number++);
    }
    set_count(db, "def_num_proxies", number - 1);
}

static void number_config_sets(FragList db, Frag *cust_proxy) {
    int number = 1;
    for (Frag *entry = cust_proxy->child; entry; entry = entry->next) {
        Frag *realname = fdel(&entry->child, "realname");
        norm_parm(entry, "parm", "num_parms");
        std::string clear_name = fragname(entry);
        fsetp(&entry->child, "name", clear_name.c_str(), entry);
        if (realname)
            pushfrag(&entry->child, realname, entry);
        else
            fsetp(&entry->child, "realname", clear_name.c_str(), entry);
        renumberfrag(entry, number++);
    }
    set_count(db, "cust_num_proxies", number - 1);
}

static void number_policies(Frag *policy) {
    reverse_frags(&policy->child);
    int number = 1;
    for (Frag *entry = policy->child; entry; entry = entry->next) {
        fsetp(&entry->child, "name", fragname(entry), entry);
        renumberfrag(entry, number++);
        Frag *proxies = fmake(&entry->child, "proxy", entry);
        int count = 0;
        for (Frag *proxy = proxies->child; proxy; proxy = proxy->next) {
            fsetp(&proxy->child, "name", fragname(proxy), proxy);
            renumberfrag(proxy, ++count);
            setvalue(proxy, nullptr);
        }
        fsetp(&entry->child, "num_proxies", numbertext(count).c_str(), entry);
        // With a child `parm`, the entry's other children are not taken for parameters.
        fsetp(&entry->child, "parm", nullptr, entry);
        norm_parm(entry, "parm", "num_parms");
    }
    fsetp(&policy->child, "num_entries", numbertext(number - 1).c_str(), policy);
}

int norm41(FragList db) {
    Frag *def_proxy = ffind(db, "def_proxy");
    Frag *cust_proxy = fmake(db, "cust_proxy");
    Frag *policy = ffind(db, "policy");
    if (def_proxy)
        number_proxies(db, def_proxy, cust_proxy);
    number_config_sets(db, cust_proxy);
    if (policy)
        number_policies(policy);
    norm_interfaces(db);
    if (Frag *groups = ffind(db, "netobj_group"))
        set_count(db, "netobj_num_group", norm_netobj(groups->child, "member", "num_members") - 1);
    if (Frag *lists = ffind(db, "netobj_list"))
        set_count(db, "netobj_num_list", norm_netobj(lists->child, "element", "num_elements") - 1);
    fremove(db, "map_numrules");
    norm_renumber(db, "map", "map_num_entries", "map_num");
    norm_renumber(db, "sroute", "sroute_num_entries", "sroute_num");
    norm_renumber(db, "dest", "dest_num_entries", "dest_num");
    norm_pfrules(db, "pfedit_lcl", "pfedit_lcl_numrules");
    norm_pfrules(db, "pfedit_fwd", "pfedit_fwd_numrules");
    norm_renumber(db, "menu_meta", nullptr, nullptr);
    norm_vpndata(db, "link");
    norm_vpndata(db, "key");
    norm_renumber(db, "nat_rule", "nat_numrules", nullptr);
    return 0;
}
