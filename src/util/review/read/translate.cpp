// From the numbered layout, in which a record's name stands in a line of its own, to the canonical one.
//
// Nodes are renamed and moved family by family. The lines of a node that was taken out of the tree are told at the end
// what they say now.
#include "frag_tools.h"
#include "read/configuration.h"

#include <algorithm>
#include <cstring>

namespace {

/// What the lines of a node that was taken out say now; those of the nodes below it say nothing, or are counts too.
struct successor {
    Frag *node;
    line_role role;
    long bits = 0;
};

/// A family of records, and the keys in each of them: of its name, of the proxy that owns it, of counts. One that is
/// counted has parameters, and is numbered only if its count is there and that of the one before it.
struct family_row {
    const char *key, *count, *name, *owner;
    const char *inner_counts[2]; ///< the second may be null
};
const family_row families[] = {
    {"def_proxy", "def_num_proxies", "realname", nullptr, {"num_parms", nullptr}},
    {"cust_proxy", "cust_num_proxies", "name", "realname", {"num_parms", nullptr}},
    {"netobj_list", nullptr, "name", nullptr, {"num_elements", "num_members"}},
    {"netobj_group", nullptr, "name", nullptr, {"num_elements", "num_members"}},
    {"policy", nullptr, "name", nullptr, {"num_proxies", "num_parms"}},
};
const char *const counts[] = {"netobj_num_list", "netobj_num_group", "policy_num",          "map_num",
                              "sroute_num",      "dest_num",         "pfedit_lcl_numrules", "pfedit_fwd_numrules"};

std::vector<Frag *> children(const Frag *frag, const char *key = "") { return configuration::children(frag, key); }

std::vector<Frag *> take_children(Frag *frag) {
    std::vector<Frag *> all = children(frag);
    if (frag)
        frag->child = nullptr;
    return all;
}

long line_number(const Frag *frag) { return frag->attr >> 4; }
void set_origin(Frag *frag, const Frag *from) { frag->attr = bits_of(frag) | (from->attr & ~15L); }
void take_value(Frag *frag, const Frag *from) {
    frag->value = from->value;
    frag->vlen = from->vlen;
    set_origin(frag, from);
}

struct translator {
    configuration &conf;
    FragList db = conf.db();
    std::unordered_map<const Frag *, successor> successors{};

    void rename(Frag *frag, std::string_view clear) { frag->name = conf.keep(encoded_name(clear)); }

    void drop(const Frag *frag) { successors[frag] = {nullptr, line_role::dropped}; }
    // Takes the node of the key out of the list; null if there is none.
    Frag *take(FragList list, const char *key, line_role role, Frag *node = nullptr) {
        Frag *frag = fdel(list, key);
        if (frag)
            successors[frag] = {node, role};
        return frag;
    }
    void take_name(Frag *record, const char *key) {
        Frag *name = take(&record->child, key, line_role::name, record);
        if (name && name->value)
            rename(record, name->value);
    }
    // Takes a record's two texts, of which one says nothing without the other: both are null then.
    std::pair<Frag *, Frag *> take_texts(Frag *record, const char *name_key, const char *value_key) {
        Frag *name = take(&record->child, name_key, line_role::name, record),
             *value = take(&record->child, value_key, line_role::setting, record);
        if (name && value && name->value && (value->value || value->child))
            return {name, value};
        for (Frag *text : {name, value})
            if (text)
                drop(text);
        return {nullptr, nullptr};
    }

    // A parameter becomes a child of its owner, a list parameter a child of its list's node, which has no value.
    void file_parameter(Frag *owner, const Frag *name, Frag *value, list_indexes &known) {
        const char *rest = stored_attribute(name->value);
        long bits = take_prefixes(&rest);
        const char *part = strchr(rest, '_');
        bool is_list = part && is_digit(part[1]);
        if (is_list)
            conf.make(known, owner, std::string(rest, part), line_number(name))->value = nullptr;
        Frag *made = part && !is_list ? conf.add(known, owner, encoded_name(rest), 0)
                                      : conf.make(known, owner, rest, line_number(name));
        made->attr = bits;
        take_value(made, value);
        // The rest of a long name stands below the value.
        for (Frag *part_of : take_children(value))
            pushfrag(&made->child, part_of, made);
        successors[name] = {made, line_role::name, bits};
        successors[value] = {made, line_role::setting, bits};
    }

    void take_parameters(Frag *owner) {
        list_indexes known;
        for (Frag *parameter : children(take(&owner->child, "parm", line_role::dropped)))
            if (auto [name, value] = take_texts(parameter, "name", "value"); name)
                file_parameter(owner, name, value, known);
        // An address of the web proxy's filter says its access and its text in one.
        Frag *addresses = ffind(&owner->child, "cyberurl");
        if (addresses)
            rename(addresses, "url");
        for (Frag *address : children(addresses)) {
            if (auto [name, value] = take_texts(address, "access", "url"); name && value->value) {
                conf.set_value(address, std::string(name->value) + " " + value->value);
                set_origin(address, value);
            }
            for (const Frag *other : take_children(address))
                drop(other);
        }
    }

    // A config set stands below its owner, which is met under its own name, or made.
    void move_set(Frag *set, const Frag *realname, list_indexes &known) {
        std::string owner = realname && realname->value && *realname->value ? encoded_name(realname->value) : set->name;
        Frag *sets = conf.make(known, nullptr, "def_proxy_" + owner + "_config-sets", line_number(set));
        pushfrag(&sets->child, set, sets);
    }

    void name_records() {
        bool is_counted = true;
        list_indexes owners;
        for (const family_row &row : families) {
            if (row.count && !(is_counted = is_counted && take(db, row.count, line_role::count)))
                continue;
            Frag *family = ffind(db, row.key);
            for (Frag *record : row.owner ? take_children(family) : children(family)) {
                Frag *owner = row.owner ? take(&record->child, row.owner, line_role::setting, record) : nullptr;
                take_name(record, row.name);
                for (const char *count : row.inner_counts)
                    if (count)
                        take(&record->child, count, line_role::count);
                if (const Frag *num = ffind(&record->child, "num"); num && !num->value && !num->child)
                    fdel(&record->child, "num");
                if (row.count)
                    take_parameters(record);
                if (row.owner)
                    move_set(record, owner, owners);
            }
        }
    }

    // A policy's parameters keep their names whole. An entry has the name of the first proxy that owns a config set of
    // its name.
    void name_policies() {
        std::unordered_map<std::string_view, Frag *> first;
        for (Frag *proxy : children(ffind(db, "def_proxy")))
            for (Frag *set : children(proxy, "config-sets"))
                first.emplace(set->name, proxy);
        for (Frag *policy : children(ffind(db, "policy"))) {
            for (Frag *entry : children(policy, "proxy")) {
                take_name(entry, "name");
                entry->value = nullptr;
                if (auto owner = first.find(entry->name); owner != first.end())
                    conf.set_value(entry, fragname(owner->second));
            }
            for (Frag *parameter : children(policy, "parm"))
                if (auto [name, value] = take_texts(parameter, "name", "value"); name && value->value) {
                    rename(parameter, name->value);
                    take_value(parameter, value);
                }
        }
    }

    // A filter rule's text has its fields in a row. An empty one makes no child but takes up its position. The comment,
    // the last, is read to its end: what stands behind a `+` there an import loses, and that has to show.
    void split_rules(const char *family) {
        list_indexes known;
        Frag *rules = ffind(db, family);
        for (Frag *rule : take_children(rules)) {
            int number = has_prefix(rule->name, "rule") ? decimal(rule->name + 4) : 0;
            if (number >= 1)
                rule->name = conf.keep(numbertext(number));
            if (!rule->value) {
                drop(rule);
                continue;
            }
            pushfrag(&rules->child, rule, rules);
            std::string_view text = rule->value;
            for (const char *const *key = pfkeynames; *key && !text.empty(); key++) {
                std::string_view field = key[1] ? text.substr(0, text.find('+')) : text;
                text.remove_prefix(std::min(text.size(), field.size() + 1));
                if (field.empty())
                    continue;
                Frag *made = conf.make(known, rule, *key, 0);
                conf.set_value(made, field);
                set_origin(made, rule);
            }
            rule->value = nullptr;
        }
    }

    // The elements of an interface's list of aliases come into the location list that holds the interface.
    void fold_list(Frag *aliases, Frag *elements, const std::string &interface, list_indexes &known) {
        for (Frag *alias : take_children(ffind(&aliases->child, "element"))) {
            alias->name = conf.keep(numbertext(known.free_number(&elements->child)));
            alias->value = nullptr;
            alias->attr &= ~15L;
            pushfrag(&elements->child, alias, elements);
            known.add(&elements->child, alias);
            conf.set_value(conf.make(known, alias, "alias", 0), "yes");
            conf.bearers.emplace(alias, interface);
        }
    }

    // What is left of the lists keeps its order, in which of those of one name the last that was read is found.
    void fold_aliases(Frag *lists) {
        name_index by_name(&lists->child);
        std::unordered_map<const Frag *, Frag *> folded; // lists of aliases, and the interfaces that bear them
        list_indexes known;
        for (const char *location : {"Inside", "Outside", "Service"}) {
            Frag *list = by_name.find(location), *elements = list ? ffind(&list->child, "element") : nullptr;
            for (Frag *element : children(elements)) {
                std::string interface = configuration::value(element, "interface");
                bool is_plain = !interface.empty() && !says_yes(configuration::value(element, "alias"));
                Frag *aliases = is_plain ? by_name.find(interface + "$INTERFACE") : nullptr;
                if (!aliases || !elements)
                    continue;
                fold_list(aliases, elements, interface, known);
                folded.emplace(aliases, element);
                by_name.remove(aliases);
            }
        }
        for (Frag *list : take_children(lists))
            if (auto bearer = folded.find(list); bearer == folded.end())
                pushfrag(&lists->child, list, lists);
            else if (list->value)
                drop(list);
            else // its own lines that named it lead to the interface
                successors[list] = {bearer->second, line_role::name};
        reverse_frags(&lists->child);
    }

    // The layout is told by the stamp of the save if there is one, since a merged file of the other layout can leave
    // its counts behind.
    bool is_numbered() {
        std::string stamp = conf.value(ffind(db, "version_moatwall.conf"), "");
        bool fits = stamp.empty() || stamp == "001" || stamp == "041";
        return fits && (ffind(db, "def_num_proxies") || ffind(db, "cust_num_proxies") ||
                        ffind(db, "policy_num_entries") || ffind(db, "netobj_num_list"));
    }

    void translate() {
        for (const char *count : counts)
            take(db, count, line_role::count);
        name_records();
        name_policies();
        split_rules("pfedit_lcl");
        split_rules("pfedit_fwd");
        if (Frag *lists = ffind(db, "netobj_list"))
            fold_aliases(lists);
        // A node below one that was taken out was made after it.
        for (const Frag &frag : conf.nodes)
            if (frag.child && successors.count(&frag)) {
                bool is_count = successors[&frag].role == line_role::count;
                for (const Frag *below : children(&frag))
                    successors[below] = {nullptr, is_count ? line_role::count : line_role::dropped};
            }
        for (conf_line &line : conf.lines)
            for (auto now = successors.find(line.node); now != successors.end(); now = successors.find(line.node)) {
                line.node = now->second.node;
                line.role = now->second.role;
                line.bits = static_cast<uint8_t>(line.bits | now->second.bits);
            }
    }
};

} // namespace

void translate(configuration &conf) {
    translator made{conf};
    conf.numbered = made.is_numbered();
    if (conf.numbered)
        made.translate();
    if (Frag *all = ffind(conf.db(), "def_proxy_*")) {
        made.rename(all, "global");
        list_indexes known;
        conf.set_value(conf.make(known, nullptr, "def_proxy_global_name", 0), "global");
    }
}
