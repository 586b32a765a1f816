// The 4.1 upgrade: the GUI client's address, the plug proxy, and what the service tables say of each proxy.
#include "frag_tools.h"
#include "name_index.h"
#include "nupgrade.h"

namespace {

void set_text(Frag *frag, const char *key, const char *value) { fsetp(&frag->child, key, value, frag); }

// The GUI client becomes an element of the administrators' list. If an element has its address, that one becomes it.
void move_gui_client(FragList db) {
    const char *address = fval(db, "gui_client");
    if (!address || !*address || !ffind(db, "netobj_group_fw-admin"))
        return;
    Frag *gui_client = fdel(db, "gui_client");
    static const char elements_key[] = "netobj_list_fw-admin$LIST_element";
    Frag *elements = fmake(db, elements_key);
    long top = 0;
    for (Frag *element = elements->child; element; element = element->next) {
        long number = decimal(fragname(element));
        if (number > top)
            top = number;
        if (same_text(fval(&element->child, "addr"), gui_client->value)) {
            top = number - 1;
            break;
        }
    }
    Frag *element = fsetp(&elements->child, std::to_string(top + 1).c_str(), nullptr, elements);
    set_text(element, "name", "gui_client");
    set_text(element, "addr", gui_client->value);
    freefrag(gui_client);
}

// Each config set of the plug proxy becomes a proxy of its own, with a copy of what the plug proxy has.
void split_plug_proxy(Frag *def_proxy) {
    Frag *plug = fdel(&def_proxy->child, "plug-px");
    if (!plug)
        return;
    list_indexes indexes; // a set's name with a `_` is a key of several levels
    Frag *config_sets = fdel(&plug->child, "config-sets");
    while (config_sets && config_sets->child) {
        Frag *set = config_sets->child;
        config_sets->child = set->next;
        Frag *proxy = indexes.set_key(&def_proxy->child, fragname(set), nullptr, def_proxy);
        indexes.forget_below(proxy);
        freelist(proxy->child);
        proxy->child = copy_fragtree(&plug->child, proxy);
        Frag *own_sets = fsetp(&proxy->child, "config-sets", nullptr, proxy);
        set_text(proxy, "proxy-type", "plug-px");
        if (Frag *port = fdel(&set->child, "port")) {
            set_text(proxy, "bind-port", port->value ? port->value : "");
            freefrag(port);
        }
        pushfrag(&own_sets->child, set, own_sets);
    }
    freefrag(config_sets);
    freefrag(plug);
}

// Gives the proxies the states of their services. A service that the table knows goes, even if its proxy does not
// exist; the others stay.
void move_states(Frag *def_proxy, Frag *services, const maprec *table) {
    name_index proxies(&def_proxy->child);
    Frag *service = services->child;
    services->child = nullptr;
    while (service) {
        Frag *next = service->next;
        if (const maprec *row = find_maprec(table, &maprec::service, fragname(service))) {
            if (Frag *proxy = proxies.find_key(row->proxy))
                set_text(proxy, "state", service->value);
            freefrag(service);
        } else {
            pushfrag(&services->child, service, services);
        }
        service = next;
    }
}

void set_port_and_type(Frag *proxy, const maprec *table) {
    const maprec *row = find_maprec(table, &maprec::proxy, fragname(proxy));
    if (!row)
        return;
    if (!ffind(&proxy->child, "bind-port"))
        set_text(proxy, "bind-port", row->port);
    set_text(proxy, "proxy-type", row->type);
}

void move_port(Frag *from, Frag *proxy) {
    if (Frag *port = fdel(&from->child, "port")) {
        set_text(proxy, "bind-port", port->value);
        freefrag(port);
    }
}

void set_program(Frag *proxy, const maprec *table) {
    const char *type = fval(&proxy->child, "proxy-type");
    if (type && !ffind(&proxy->child, "proxy-exec"))
        if (const maprec *row = find_maprec(table, &maprec::type, type))
            set_text(proxy, "proxy-exec", row->exec);
    if (!same_text(type, "plug-px"))
        return;
    move_port(proxy, proxy);
    Frag *config_sets = ffind(&proxy->child, "config-sets");
    for (Frag *set = config_sets ? config_sets->child : nullptr; set; set = set->next) {
        move_port(set, proxy);
        fremove(&set->child, "host");
    }
}

} // namespace

int up41(FragList db) {
    move_gui_client(db);
    Frag *def_proxy = ffind(db, "def_proxy");
    if (!def_proxy)
        return 1;
    split_plug_proxy(def_proxy);
    const maprec *table = determine_os_maprec(db);
    Frag *services = ffind(db, "proxy");
    if (!services)
        return 0;
    move_states(def_proxy, services, table);
    for (Frag *proxy = def_proxy->child; proxy; proxy = proxy->next)
        set_port_and_type(proxy, table);
    for (Frag *proxy = def_proxy->child; proxy; proxy = proxy->next)
        set_program(proxy, table);
    return 0;
}
