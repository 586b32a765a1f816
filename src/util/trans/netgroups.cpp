// The records of a group of rules: a network list and its group, a policy, a map.
#include "frag_tools.h"
#include "netperm.h"
#include "translation.h"

#include <cstring>
#include <vector>

// The next map's number, for the whole process.
static int next_map = 1;

namespace {

Frag *children_of(FragList db, const char *key) {
    Frag *frag = ffind(db, key);
    return frag ? frag->child : nullptr;
}

// The text by which lists and groups of rules with the same hosts are told to be equal.
void add_host(std::string &hosts, std::string_view host) {
    for (char byte : host)
        hosts.push_back(lowercase(byte));
    hosts.push_back('\0');
}

// The hosts of a list; empty if it can't be equal to any group of rules.
std::string list_hosts(Frag *list) {
    std::string hosts;
    Frag *elements = ffind(&list->child, "element");
    for (Frag *element = elements ? elements->child : nullptr; element; element = element->next) {
        Frag *addr = ffind(&element->child, "addr");
        if (!addr || !addr->value || strlen(addr->value) != static_cast<size_t>(addr->vlen))
            return ""; // no rule's host holds a zero byte
        add_host(hosts, {addr->value, static_cast<size_t>(addr->vlen)});
    }
    return hosts;
}

// The list's name without a suffix like "$LIST".
std::string group_name(const std::string &list_name) {
    size_t len = list_name.size();
    return len >= 5 && list_name[len - 5] == '$' ? list_name.substr(0, len - 5) : list_name;
}

} // namespace

translation::translation(FragList database)
    : db(database), proxies(db, "def_proxy"), policies(db, "policy"), lists(db, "netobj_list"),
      groups(db, "netobj_group"), maps(db, "map") {
    for (Frag *list = children_of(db, "netobj_list"); list; list = list->next) {
        std::string hosts = list_hosts(list);
        if (!hosts.empty())
            lists_by_hosts.emplace(std::move(hosts), list);
    }
}

// The first name of `base`, a number from `seq` up and the suffix that `names` does not lead to. What a search has
// passed over is kept, so that the next one goes on behind it.
std::string translation::free_name(const name_index &names, std::string base, int seq, const char *suffix) {
    std::vector<std::string> passed;
    std::string name;
    for (;;) {
        name = base + "-" + numbertext(seq) + suffix;
        if (!names.find_key(name.c_str()))
            break;
        auto known = taken_names.find(name);
        seq = known == taken_names.end() ? seq + 1 : known->second;
        passed.push_back(std::move(name));
        // A key ends at `=`, so a number behind one would never make another key.
        base.resize(strcspn(base.c_str(), "="));
    }
    for (const std::string &taken : passed)
        taken_names[taken] = seq;
    return name;
}

Frag *translation::find_netgroup(const rule_text *first, const rule_text *end, int seq, const char *base) {
    Frag *netobj_list = fmake(db, "netobj_list");
    std::string hosts;
    for (const rule_text *rule = first; rule != end; rule++)
        add_host(hosts, rule->host);
    Frag *&list = lists_by_hosts.try_emplace(std::move(hosts), nullptr).first->second;
    if (!list) {
        std::string name = free_name(lists, base, seq, "$LIST");
        list = lists.set_key(&netobj_list->child, name.c_str(), nullptr, netobj_list);
        Frag *elements = faddchild(list, "element", nullptr);
        int number = 1;
        for (const rule_text *rule = first; rule != end; rule++) {
            Frag *element = faddchild(elements, numbertext(number++), nullptr);
            setvalue(faddchild(element, "addr", nullptr), rule->host);
        }
        sort_frags(&elements->child);
    }

    std::string list_name = fragname(list);
    Frag *netobj_group = fmake(db, "netobj_group");
    // A list that was here before can have a name with a `_`, which is one component all the same.
    std::string stored_name = storedname(group_name(list_name));
    Frag *group = groups.find(stored_name);
    if (!group) {
        group = faddchild(netobj_group, stored_name, nullptr);
        groups.add(group);
        Frag *member = faddchild(faddchild(group, "member", nullptr), "1", nullptr);
        faddchild(member, "type", "L");
        faddchild(member, "name", list_name.c_str());
    }
    return group;
}

std::string translation::make_policy(const char *name, const char *base, int seq, const char *cs) {
    Frag *policy = fset(db, "policy", nullptr);
    std::string result;
    if (name && !policies.find_key(name))
        result = name;
    else
        result = free_name(policies, name ? name : base, seq, "");
    Frag *made = policies.set_key(&policy->child, result.c_str(), nullptr, policy);
    Frag *config_sets = faddchild(made, "proxy", nullptr);
    fsetp(&config_sets->child, cs, base, config_sets);
    faddchild(faddchild(made, "parm", nullptr), "desc", base);
    return result;
}

void translation::addmap(const char *policy, const char *pd, const char *proxy, const char *src, const char *tag_proxy,
                         Frag *config_set) {
    Frag *map = fset(db, "map", nullptr);
    // A map that was here before, from a merged file, keeps its number and all that it holds.
    while (maps.find(numbertext(next_map)))
        next_map++;
    Frag *entry = faddchild(map, numbertext(next_map++), nullptr);
    faddchild(entry, "policy", policy);
    faddchild(entry, "proxy", proxy);
    faddchild(entry, "pd", pd);
    faddchild(entry, "src", src);
    Frag *tag = faddchild(entry, "tag", nullptr);
    faddchild(tag, "proxy", tag_proxy);
    faddchild(tag, "cs", config_set->name);
}

Frag *find_netgroup(FragList db, Frag *first, Frag *last, int seq, const char *base) {
    std::vector<rule_text> rules;
    for (Frag *rule = first; rule != last; rule = rule->next)
        rules.push_back(read_rule(rule));
    rules.push_back(read_rule(last));
    return translation(db).find_netgroup(rules.data(), rules.data() + rules.size(), seq, base);
}

char *make_policy(FragList db, char *name, const char *base, int seq, const char *cs) {
    for (char *byte = name; byte && *byte; byte++)
        if (*byte == '_')
            *byte = '-';
    return makestr(translation(db).make_policy(name, base, seq, cs).c_str());
}

int addmap(FragList db, const char *policy, const char *pd, const char *proxy, const char *src, const char *tag_proxy,
           Frag *config_set) {
    translation(db).addmap(policy, pd, proxy, src, tag_proxy, config_set);
    return 0;
}
