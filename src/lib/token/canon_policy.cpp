// Canonical policies, filter rules and addresses.
#include "frag_tools.h"
#include "name_index.h"
#include "nupgrade.h"
#include "text_hash.h"

#include <cstring>
#include <unordered_map>
#include <utility>

namespace {

// For each config set, by stored name, the first proxy that has one of that name.
std::unordered_map<std::string, Frag *, text_hash> config_set_owners(FragList db) {
    std::unordered_map<std::string, Frag *, text_hash> owners;
    Frag *def_proxy = ffind(db, "def_proxy");
    for (Frag *proxy = def_proxy ? def_proxy->child : nullptr; proxy; proxy = proxy->next)
        if (Frag *config_sets = ffind(&proxy->child, "config-sets"))
            for (Frag *set = config_sets->child; set; set = set->next)
                owners.emplace(set->name, proxy);
    return owners;
}

// A policy's parameter keeps its name whole, prefixes and all.
void name_policy_parameter(Frag *parameter) {
    Frag *value = fdel_valued(&parameter->child, "value");
    Frag *name = fdel_valued(&parameter->child, "name");
    if (value && name) {
        renamefrag(parameter, name->value);
        std::swap(parameter->value, value->value);
        std::swap(parameter->vlen, value->vlen);
    }
    freefrag(value);
    freefrag(name);
}

} // namespace

int canon_policy(FragList db, const char *family) {
    Frag *policy = ffind(db, family);
    if (!policy)
        return 0;
    fremove(&policy->child, "num");
    std::unordered_map<std::string, Frag *, text_hash> owners = config_set_owners(db);
    for (Frag *entry = policy->child; entry; entry = entry->next) {
        take_name(entry, "name");
        if (Frag *proxies = ffind(&entry->child, "proxy"))
            for (Frag *proxy = proxies->child; proxy; proxy = proxy->next) {
                take_name(proxy, "name");
                auto owner = owners.find(proxy->name);
                setvalue(proxy, owner == owners.end() ? nullptr : fragname(owner->second));
            }
        if (Frag *parameters = ffind(&entry->child, "parm"))
            for (Frag *parameter = parameters->child; parameter; parameter = parameter->next)
                name_policy_parameter(parameter);
        if (Frag *num = ffind(&entry->child, "num")) {
            fremove(&num->child, "proxies");
            fremove(&num->child, "parms");
            fremove_bare(&entry->child, "num");
        }
    }
    return 0;
}

const char *const pfkeynames[] = {
    "type", "interface", "proto", "srcport", "srcaddr", "srcmask", "dstport", "dstaddr", "dstmask", "comment", nullptr,
};

int canon_pfrules(FragList db) {
    canon_pfrule_sub(db, "pfedit_lcl");
    canon_pfrule_sub(db, "pfedit_fwd");
    return 0;
}

// Turns the rule's text into its fields. An empty field makes no child but takes up its position.
static void split_rule(Frag *rule) {
    const char *field = rule->value;
    for (const char *const *key = pfkeynames; *key; key++) {
        std::string value(field, strcspn(field, "+"));
        if (!value.empty())
            fsetp(&rule->child, *key, value.c_str(), rule);
        field += value.size();
        if (!*field)
            break;
        field++;
    }
    setvalue(rule, nullptr);
}

int canon_pfrule_sub(FragList db, const char *list_key) {
    Frag *list = ffind(db, list_key);
    if (!list)
        return 0;
    fremove(&list->child, "numrules");
    Frag *rule = list->child;
    list->child = nullptr;
    while (rule) {
        Frag *next = rule->next;
        if (has_prefix(rule->name, "rule")) {
            int number = decimal(rule->name + 4);
            if (number >= 1)
                renumberfrag(rule, number);
        }
        if (rule->value) {
            pushfrag(&list->child, rule, list);
            split_rule(rule);
        } else {
            freefrag(rule);
        }
        rule = next;
    }
    sort_frags(&list->child);
    return 0;
}

const ip_var_rec ip_var_tab[] = {
    {"insideaddr", "insidemask", "insidbcast", "insidiface", "insidifaceflags", "netobj_list_Inside_element", "inside"},
    {"outsideaddr", "outsidemask", "outsidbcast", "outsidiface", "outsidifaceflags", "netobj_list_Outside_element",
     "outside"},
    {"thirdaddr", "thirdmask", "thirdbcast", "thirdiface", "thirdifaceflags", "netobj_list_Service_element", "service"},
    {nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr},
};

namespace {

// The element that has the address, or a new one behind those that are there. Null if no element has it and it is only
// a placeholder.
Frag *element_for_address(FragList db, const char *elements_key, const char *address) {
    Frag *elements = fmake(db, elements_key);
    int number = 1;
    for (Frag *element = elements->child; element; element = element->next, number++)
        if (same_text(fval(&element->child, "addr"), address))
            return element;
    if (!*address || strcmp(address, "none") == 0 || strcmp(address, "XXX.XXX.XXX.XXX") == 0)
        return nullptr;
    // If the numbers have gaps, the one behind the count can be taken. No element may be replaced.
    name_index numbers(&elements->child);
    while (numbers.find(numbertext(number)))
        number++;
    return faddchild(elements, numbertext(number), nullptr);
}

// Moves the value of a key of `ip` to a field of the element; without an element it is dropped.
void move_field(Frag *ip, const char *key, Frag *element, const char *field) {
    Frag *frag = fdel(&ip->child, key);
    if (frag && frag->value && element)
        fsetp(&element->child, field, frag->value, element);
    freefrag(frag);
}

} // namespace

int canon_ip(FragList db) {
    Frag *ip = ffind(db, "ip");
    if (!ip)
        return 0;
    for (const ip_var_rec *row = ip_var_tab; row->address; row++) {
        Frag *address = fdel(&ip->child, row->address);
        if (address && address->value) {
            Frag *element = element_for_address(db, row->elements, address->value);
            if (element)
                fsetp(&element->child, "addr", address->value, element);
            move_field(ip, row->mask, element, "netmask");
            move_field(ip, row->interface, element, "interface");
            move_field(ip, row->flags, element, "interfaceflags");
            move_field(ip, row->broadcast, element, "broadcast");
        } else {
            fremove(&ip->child, row->mask);
        }
        freefrag(address);
    }
    return 0;
}
