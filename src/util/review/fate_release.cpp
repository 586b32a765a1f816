// The last passes before saving, and the keys that they take.
#include "fate_passes.h"
#include "frag_tools.h"
#include "upgrade.h"

#include <cstring>

namespace {

bool is_or_below(const std::string &key, std::string_view top) {
    return has_prefix(key.c_str(), top) && (key.size() == top.size() || key[top.size()] == '_');
}

struct removal {
    const char *key;
    const char *reason;
};
const removal removal_tab[] = {
    {"def_proxy_ahttp-px", "the new release has no proxy ahttp-px"},
    {"def_proxy_rap", "the new release has no proxy rap"},
    {"def_proxy_oracle-px", "release 5.5 removes the proxy oracle-px"},
    {"pki_CRLs", "removed by release 5.5"},
    {"pki_Xcerts", "removed by release 5.5"},
    {"pki_LDAP", "removed by release 5.5"},
    {"pki_default_port", "removed by release 5.5"},
    {"pki_default_server", "removed by release 5.5"},
    {"network_loginok", "a setting that is dropped; only `enabled` would have switched on the proxies svcgrd-*"},
    {nullptr, nullptr},
};

void say_removed(fate_run &run, size_t id, const std::string &key) {
    for (const removal *row = removal_tab; row->key; row++)
        if (is_or_below(key, row->key)) {
            run.ledger.say(id, fate::without_effect, row->reason);
            return;
        }
    if (is_or_below(key, "def_proxy") && key.find("_authenticate") != std::string::npos)
        run.ledger.say(id, fate::without_effect,
                       "whether a proxy authenticates is the new release's to say, for each proxy that its initial "
                       "environment has");
}

} // namespace

void follow_last_passes(fate_run &run, FragList init) {
    std::unordered_map<size_t, std::string> before = owners_of(run.db);
    if (Frag *login = ffind(&run.db, "network_loginok"))
        if (size_t id = login->value && lowercase(login->value) == "enabled" ? owner_of(login) : 0) {
            run.ledger.say(id, fate::reshaped, "the state of svcgrd-telnetd, svcgrd-ftpd and svcgrd-rlogind is on");
            for (const char *proxy : {"telnetd", "ftpd", "rlogind"})
                run.switched_on[std::string("def_proxy_svcgrd-") + proxy + "_state"] = id;
        }
    pre_save_cleanup(&run.db);
    if (run.config_type < 40) {
        fset(&run.db, "version_upgraded", "PRE 4.0");
    } else if (run.config_type != 55) {
        copy_50_stuff(&run.db, init);
        fset(&run.db, "version_upgraded", "POST 4.0");
    }
    if (run.config_type != 55)
        do_55_upgrades(&run.db);
    std::unordered_map<size_t, std::string> behind = owners_of(run.db);
    for (const auto &entry : before)
        if (behind.count(entry.first) == 0)
            say_removed(run, entry.first, entry.second);
    if (Frag *global = ffind(&run.db, "def_proxy_global")) {
        fset(&run.db, "def_proxy_global_name", "*");
        renamefrag(global, "*");
    }
    fset(&run.db, "version_moatwall.conf", "");
}
