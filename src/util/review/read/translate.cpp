// From the numbered layout, in which a record's name stands in a line of its own, to the canonical one.
//
// Nodes are renamed and moved family by family. What is taken out of the tree stays until the end, where each line that
// led to it is told what it says now.
#include "frag_tools.h"
#include "nupgrade.h"
#include "read/configuration.h"

#include <cstring>

namespace {

/// What the lines of a node that was taken out say now.
struct successor {
    Frag *node;
    line_role role;
    long bits = 0;
};

/// A family of records, and the keys in each of them: of its name, of the proxy that owns it, of counts. One that is
/// counted has parameters, and is numbered only if its count is there and that of the one before it.
struct family_row {
    const char *key, *count, *name, *owner;
    const char *inner_counts[2];
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

void copy_origin(Frag *to, const Frag *from) { to->attr = bits_of(to) | (from->attr & ~15L); }

struct translator {
    configuration &conf;
    FragList db = conf.db();
    Frag *gone = nullptr;
    std::unordered_map<const Frag *, successor> successors{};
    list_indexes owners{}; // of config sets

    ~translator() { freelist(gone); }

    // Keeps what left the tree: its own lines say `role` of `node`. What stands below it says nothing, or is counted.
    void lose(Frag *frag, line_role role, Frag *node = nullptr) {
        for (Frag *below : nodes_of(frag->child))
            successors[below] = {nullptr, role == line_role::count ? role : line_role::dropped};
        successors[frag] = {node, role};
        pushfrag(&gone, frag, nullptr);
    }
    // Takes the node of the key out of the list; null if there is none.
    Frag *take(FragList list, const char *key, line_role role, Frag *node = nullptr) {
        Frag *frag = fdel(list, key);
        if (frag)
            lose(frag, role, node);
        return frag;
    }
    void take_name(Frag *record, const char *key) {
        Frag *name = take(&record->child, key, line_role::name, record);
        if (name && name->value)
            renamefrag(record, name->value);
    }
    // Takes a record's two texts, of which one says nothing without the other.
    bool take_texts(Frag *record, const char *name_key, const char *value_key, Frag *&name, Frag *&value) {
        name = take(&record->child, name_key, line_role::name, record);
        value = take(&record->child, value_key, line_role::setting, record);
        bool are_there = name && value && name->value && (value->value || value->child);
        for (Frag *text : {name, value})
            if (text && !are_there)
                successors[text] = {nullptr, line_role::dropped};
        return are_there;
    }

    // A parameter becomes a child of its owner, a list parameter a child of its list's node.
    void file_parameter(Frag *owner, const Frag *name, Frag *value, list_indexes &indexes) {
        const char *rest = attr_remap(name->value);
        long bits = strip_attr_prefixes(&rest);
        const char *part = strchr(rest, '_');
        Frag *made = nullptr;
        if (part && !is_digit(part[1])) {
            made = faddchild(owner, storedname(rest), nullptr);
            indexes.add(&owner->child, made);
        } else if (part) {
            Frag *list = indexes.set_key(&owner->child, std::string(rest, part).c_str(), nullptr, owner);
            if (!conf.origin(list))
                copy_origin(list, name);
            made = indexes.set_key(&list->child, part + 1, nullptr, list);
        } else {
            made = indexes.set_key(&owner->child, rest, nullptr, owner);
        }
        setvalue(made, value->value);
        made->attr = bits;
        copy_origin(made, value);
        // The rest of a long name stands below the value.
        for (Frag *below : nodes_of(value->child))
            successors.erase(below);
        for (Frag *part_of : take_children(value))
            pushfrag(&made->child, part_of, made);
        successors[name] = {made, line_role::name, bits};
        successors[value] = {made, line_role::setting, bits};
    }

    void take_parameters(Frag *owner) {
        list_indexes indexes;
        Frag *all = take(&owner->child, "parm", line_role::dropped), *name, *value;
        for (Frag *parameter : children(all))
            if (take_texts(parameter, "name", "value", name, value))
                file_parameter(owner, name, value, indexes);
        // An address of the web proxy's filter says its access and its text in one.
        Frag *addresses = ffind(&owner->child, "cyberurl");
        if (addresses)
            renamefrag(addresses, "url");
        for (Frag *address : children(addresses)) {
            if (take_texts(address, "access", "url", name, value) && value->value) {
                setvalue(address, std::string(name->value) + " " + value->value);
                copy_origin(address, value);
            }
            for (Frag *other : take_children(address))
                lose(other, line_role::dropped);
        }
    }

    // A config set stands below its owner, which is met under its own name, or made.
    void move_set(Frag *set, const Frag *realname) {
        std::string owner = realname && realname->value && *realname->value ? storedname(realname->value) : set->name;
        Frag *at = nullptr;
        for (const char *name : {"def", "proxy", owner.c_str(), "config-sets"}) {
            at = owners.find_or_make(at ? &at->child : db, name, at);
            if (!conf.origin(at))
                copy_origin(at, set);
        }
        if (at)
            pushfrag(&at->child, set, at);
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
                auto owner = first.find(entry->name);
                setvalue(entry, owner == first.end() ? nullptr : fragname(owner->second));
            }
            Frag *name, *value;
            for (Frag *parameter : children(policy, "parm"))
                if (take_texts(parameter, "name", "value", name, value) && value->value) {
                    renamefrag(parameter, name->value);
                    setvalue(parameter, std::string_view(value->value, static_cast<size_t>(value->vlen)));
                    copy_origin(parameter, value);
                }
        }
    }

    // A filter rule's text has its fields in a row. An empty one makes no child but takes up its position.
    void split_rules(const char *family) {
        Frag *rules = ffind(db, family);
        for (Frag *rule : take_children(rules)) {
            int number = has_prefix(rule->name, "rule") ? decimal(rule->name + 4) : 0;
            if (number >= 1)
                renumberfrag(rule, number);
            if (!rule->value) {
                lose(rule, line_role::dropped);
                continue;
            }
            pushfrag(&rules->child, rule, rules);
            std::string text = rule->value;
            size_t at = 0;
            for (const char *const *key = pfkeynames; *key && at < text.size(); key++) {
                std::string field = text.substr(at, text.find('+', at) - at);
                at += field.size() + 1;
                if (!field.empty())
                    copy_origin(fsetp(&rule->child, *key, field.c_str(), rule), rule);
            }
            setvalue(rule, nullptr);
        }
    }

    // The elements of an interface's list of aliases come into the location list that holds the interface.
    void fold_list(Frag *aliases, Frag *elements, name_index &numbers, int &next) {
        for (Frag *alias : take_children(ffind(&aliases->child, "element"))) {
            while (numbers.find(numbertext(next)))
                next++;
            setvalue(alias, nullptr);
            renumberfrag(alias, next);
            alias->attr &= ~15L;
            pushfrag(&elements->child, alias, elements);
            numbers.add(alias);
            fsetp(&alias->child, "alias", "yes", alias);
        }
    }

    void fold_aliases() {
        Frag *lists = ffind(db, "netobj_list");
        if (!lists)
            return;
        name_index known(&lists->child);
        std::unordered_map<const Frag *, Frag *> folded;
        for (const char *location : {"Inside", "Outside", "Service"}) {
            Frag *list = known.find(location), *elements = list ? ffind(&list->child, "element") : nullptr;
            if (!elements)
                continue;
            name_index numbers(&list->child, "element");
            int next = 1 + static_cast<int>(numbers.count);
            for (Frag *element : children(elements)) {
                std::string interface = configuration::value(element, "interface").c_str();
                bool is_plain = !interface.empty() && interface.find_first_of("_=") == std::string::npos &&
                                !is_on(configuration::value(element, "alias").c_str());
                Frag *aliases = is_plain ? known.find(interface + "$INTERFACE") : nullptr;
                if (!aliases)
                    continue;
                known.remove(aliases);
                folded.emplace(aliases, element);
                fold_list(aliases, elements, numbers, next);
            }
        }
        for (FragList link = &lists->child; Frag *list = *link;) {
            auto bearer = folded.find(list);
            if (bearer == folded.end()) {
                link = &list->next;
            } else {
                *link = list->next;
                // Of its own lines those that named it lead to the interface.
                lose(list, list->value ? line_role::dropped : line_role::name, list->value ? nullptr : bearer->second);
            }
        }
    }

    // The layout is told by the stamp of the save if there is one, since a merged file of the other layout can leave
    // its counts behind.
    bool is_numbered() {
        std::string stamp = conf.value(ffind(db, "version_moatwall.conf"), "");
        if (!stamp.empty() && stamp != "001" && stamp != "041")
            return false;
        for (const char *key : {"def_num_proxies", "cust_num_proxies", "policy_num_entries", "netobj_num_list"})
            if (ffind(db, key))
                return true;
        return false;
    }

    void name_records() {
        bool is_counted = true;
        std::vector<Frag *> with_parameters;
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
                fremove_bare(&record->child, "num");
                if (row.count)
                    with_parameters.push_back(record);
                if (row.owner)
                    move_set(record, owner);
            }
        }
        for (Frag *record : with_parameters)
            take_parameters(record);
    }

    void translate() {
        for (const char *count : counts)
            take(db, count, line_role::count);
        fremove_bare(db, "netobj_num");
        name_records();
        name_policies();
        fold_aliases();
        split_rules("pfedit_lcl");
        split_rules("pfedit_fwd");
        // Of lists and groups of one name the first that is read is found, of policies the last.
        for (const char *family : {"netobj_list", "netobj_group"})
            if (Frag *top = ffind(db, family))
                reverse_frags(&top->child);
        for (conf_line &line : conf.lines)
            for (auto now = successors.find(line.node); now != successors.end(); now = successors.find(line.node)) {
                line.node = now->second.node;
                line.role = now->second.role;
                line.bits |= now->second.bits;
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
        renamefrag(all, "global");
        fset(conf.db(), "def_proxy_global_name", "global");
    }
}
