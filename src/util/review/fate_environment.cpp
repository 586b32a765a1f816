// An environment in the numbered layout: which of its lines the canonical layout has no place for, and why.
#include "fate_passes.h"
#include "frag_tools.h"
#include "name_index.h"
#include "nupgrade.h"

#include <cstring>

namespace {

// The keys of a location's address, its fields in the order of the element fields below.
struct location_rec {
    const char *keys[5];
    const char *list;
};
const location_rec location_tab[] = {
    {{"ip_insideaddr", "ip_insidemask", "ip_insidiface", "ip_insidifaceflags", "ip_insidbcast"}, "Inside"},
    {{"ip_outsideaddr", "ip_outsidemask", "ip_outsidiface", "ip_outsidifaceflags", "ip_outsidbcast"}, "Outside"},
    {{"ip_thirdaddr", "ip_thirdmask", "ip_thirdiface", "ip_thirdifaceflags", "ip_thirdbcast"}, "Service"},
    {{}, nullptr},
};
const char *const location_fields[5] = {"addr", "netmask", "interface", "interfaceflags", "broadcast"};

bool begins(const std::string &text, std::string_view prefix) { return has_prefix(text.c_str(), prefix); }

bool ends(const std::string &text, std::string_view suffix) {
    return text.size() >= suffix.size() && text.compare(text.size() - suffix.size(), suffix.size(), suffix) == 0;
}

/// What stands in the canonical database, where a reason names it.
struct environment_reasons {
    fate_run &run;
    std::string file;
    list_indexes indexes;

    environment_reasons(fate_run &of, std::string name) : run(of), file(std::move(name)) {}

    void say_address(size_t id, const location_rec &row, size_t field);
    void say_name(size_t id, const std::string &family);
    void say_lost(size_t id);
};

void environment_reasons::say_address(size_t id, const location_rec &row, size_t field) {
    std::string list = std::string("netobj_list_") + row.list + "_element";
    Frag *elements = ffind(&run.db, list.c_str());
    for (Frag *element = elements ? elements->child : nullptr; element; element = element->next)
        if (Frag *found = ffind(&element->child, location_fields[field]))
            if (value_of(found) == run.ledger.entries[id].value) {
                run.ledger.say(id, fate::reshaped,
                               "`" + std::string(location_fields[field]) + "` of an element of the list " + row.list);
                return;
            }
    if (field == 0)
        run.ledger.say(id, fate::reshaped,
                       std::string("tells that ") + row.list + " has no address, and its mask and interface go");
    else
        run.ledger.say(id, fate::without_effect, std::string(row.list) + " has no address that it could belong to");
}

// The name of a list or group, which is the node's own now.
void environment_reasons::say_name(size_t id, const std::string &family) {
    const std::string &name = run.ledger.entries[id].value;
    Frag *top = ffind(&run.db, family.c_str());
    if (top && indexes.find(&top->child, storedname(name)))
        run.ledger.say(id, fate::reshaped, "the name of " + family + "_" + storedname(name));
    else if (ends(name, "$INTERFACE"))
        run.ledger.say(id, fate::reshaped,
                       "names the aliases of " + name.substr(0, name.size() - strlen("$INTERFACE")) +
                           ", which stand in the list of its location");
}

void environment_reasons::say_lost(size_t id) {
    fate_ledger &ledger = run.ledger;
    const std::string &key = ledger.entries[id].key;
    if (key == "def_num_proxies" || key == "cust_num_proxies")
        ledger.say(id, fate::reshaped,
                   "tells that " + std::string(key[0] == 'd' ? "proxies" : "config sets") +
                       " are numbered here; they are counted anew on saving");
    else if (ends(key, "_num_elements") || ends(key, "_num_members") || ends(key, "_numrules") ||
             begins(key, "netobj_num_") || key == "map_num_entries" || key == "sroute_num_entries" ||
             key == "dest_num_entries")
        ledger.say(id, fate::without_effect, "a count, which is made anew on saving");
    else if (begins(key, "def_proxy") || begins(key, "cust_proxy") || begins(key, "policy") || begins(key, "map"))
        ledger.say(id, fate::without_effect,
                   "proxies, config sets, maps and policies of an environment (" + file +
                       ") are those of the new release");
    else if (begins(key, "proxy_"))
        ledger.say(id, fate::without_effect,
                   "the state of the service " + key.substr(strlen("proxy_")) +
                       " belongs to a proxy, and proxies of an environment are those of the new release");
    else if (begins(key, "netobj_list_") && ends(key, "_name"))
        say_name(id, "netobj_list");
    else if (begins(key, "netobj_group_") && ends(key, "_name"))
        say_name(id, "netobj_group");
    else if ((begins(key, "pfedit_lcl_") || begins(key, "pfedit_fwd_")) &&
             key.find('_', strlen("pfedit_lcl_")) == key.npos)
        ledger.say(id, fate::reshaped,
                   "a filter rule, its fields are keys below " + key.substr(0, strlen("pfedit_lcl")));
    else if (begins(key, "pfedit_lcl_") || begins(key, "pfedit_fwd_"))
        ledger.say(id, fate::without_effect,
                   "in an environment (" + file + ") a filter rule is one text, and this one has none");
    else if (key == "gui_client")
        ledger.say(id, fate::reshaped, "an element of the list fw-admin$LIST");
    else if (begins(key, "netobj_list_"))
        ledger.say(id, fate::reshaped, "a list of aliases, folded into the list of its interface's location");
    for (const location_rec *row = location_tab; row->list; row++)
        for (size_t field = 0; field < 5; field++)
            if (key == row->keys[field])
                say_address(id, *row, field);
}

} // namespace

void follow_environment(fate_run &run, size_t input) {
    const fate_input &from = run.ledger.inputs[input];
    read_entries(run, input, 0);
    std::unordered_map<size_t, std::string> before = owners_of(run.db);
    norm_fragtree(&run.db);
    up41(&run.db);
    std::unordered_map<size_t, std::string> behind = owners_of(run.db);
    environment_reasons reasons(run, from.name);
    bool first_proxy = true;
    for (size_t id = from.first; id < from.end; id++)
        if (begins(run.ledger.entries[id].key, "def_proxy_") && first_proxy) {
            run.ledger.say(id, fate::reshaped, "tells that there are proxies; they are those of the new release");
            first_proxy = false;
        }
    for (const auto &lost : before)
        if (behind.count(lost.first) == 0)
            reasons.say_lost(lost.first);
    for (const char *key : {"map", "def_proxy", "policy"}) {
        Frag *gone = fdel(&run.db, key);
        if (!gone)
            continue;
        say_below(run.ledger, gone, fate::without_effect,
                  "proxies, config sets, maps and policies go when an environment (" + from.name +
                      ") is read; they are those of the new release");
        freefrag(gone);
    }
    run.environment = from.name;
}
