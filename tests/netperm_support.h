/// What the tests of the netperm translation share: tables from text, short views of what it makes, and the plain
/// procedures that random inputs are held against.
#ifndef NETPERM_SUPPORT_H
#define NETPERM_SUPPORT_H

#include "support.h"
#include "translation.h"
#include "upgrade.h"

#include <algorithm>
#include <cstring>

/// The parts of `text` between the separators; one more than there are separators, none of an empty text.
inline std::vector<std::string> split(const std::string &text, char separator) {
    std::vector<std::string> parts;
    for (size_t start = 0; !text.empty() && start <= text.size();) {
        size_t end = std::min(text.find(separator, start), text.size());
        parts.push_back(text.substr(start, end - start));
        start = end + 1;
    }
    return parts;
}

inline void read_table(FragList db, const std::string &table) {
    FILE *stream = fmemopen(const_cast<char *>(table.data()), table.size(), "r");
    readnpt(stream, db);
    fclose(stream);
}

/// The value below a node, `-` if there is none.
inline std::string value_of(Frag *frag, const char *key) {
    const char *value = fval(&frag->child, key);
    return value ? value : "-";
}

inline Frag *children_of(FragList db, const std::string &key) {
    Frag *frag = ffind(db, key.c_str());
    return frag ? frag->child : nullptr;
}

/// The hosts of the list of a map's source, joined by commas.
inline std::string hosts_of(FragList db, Frag *map) {
    std::string hosts;
    Frag *group = ffind(db, ("netobj_group_" + storedname(value_of(map, "src").substr(9))).c_str());
    std::string list = group ? storedname(value_of(group, "member_1_name")) : "none";
    for (Frag *element = children_of(db, "netobj_list_" + list + "_element"); element; element = element->next)
        hosts += value_of(element, "addr") + (element->next ? "," : "");
    return hosts;
}

/// What `untrans_hosts` made: a line for each proxy of its maps in the order of their numbers, joined by `|`: "class
/// hosts [parameters of the config set] policy@proxy", or if it is to be brief without what stands behind the hosts. A
/// parameter with the value `*` shows its name alone.
inline std::string rules_of(FragList db, bool brief = false) {
    std::string text, last_proxy;
    if (Frag *maps = ffind(db, "map"))
        sort_frags(&maps->child);
    for (Frag *map = children_of(db, "map"); map; map = map->next) {
        std::string rule = value_of(map, "pd") + " " + hosts_of(db, map), proxy = value_of(map, "tag_proxy"), set;
        for (Frag *frag = children_of(db, "def_proxy_" + proxy + "_config-sets_" + value_of(map, "tag_cs")); frag;
             frag = frag->next)
            set += (set.empty() ? "" : " ") + std::string(fragname(frag)) +
                   (frag->value && strcmp(frag->value, "*") != 0 ? "=" + std::string(frag->value) : "");
        if (!brief)
            rule += " [" + set + "] " + value_of(map, "policy") + "@" + value_of(map, "proxy");
        if (proxy == last_proxy)
            text.insert(text.find('\n'), "|" + rule);
        else
            text.insert(0, proxy + "=" + rule + "\n");
        last_proxy = proxy;
    }
    return text;
}

/// Maps and policies in short: a map's value is "pd,src,proxy,policy,tag_proxy,tag_cs" with `-` for what is not
/// there. Spelled out, each becomes a child, and a policy is made as the translation makes it, for the set of its first
/// map.
inline void expand_maps(FragList db) {
    const char *const keys[] = {"pd", "src", "proxy", "policy", "tag_proxy", "tag_cs"};
    for (Frag *map = children_of(db, "map"); map; map = map->next) {
        std::vector<std::string> words = split(map->value, ',');
        setvalue(map, nullptr);
        for (size_t at = 0; at < 6; at++)
            if (words[at] != "-")
                fsetp(&map->child, keys[at], words[at].c_str(), map);
        std::string policy = "policy_" + words[3];
        if (words[3] != "-" && words[3] != "*" && words[5] != "-" && !ffind(db, policy.c_str())) {
            fset(db, (policy + "_proxy_" + words[5]).c_str(), words[4].c_str());
            fset(db, (policy + "_parm_desc").c_str(), words[4].c_str());
        }
    }
}

/// The other way round: "pd,src,proxy,policy", and a policy's value becomes "description,set=proxy...". A tag shows. A
/// destination becomes "service description class destination".
inline void shorten_maps(FragList db) {
    auto shorten = [](Frag *frag, const std::string &text) {
        freelist(frag->child);
        frag->child = nullptr;
        setvalue(frag, text.c_str());
    };
    for (Frag *map = children_of(db, "map"); map; map = map->next)
        shorten(map, value_of(map, "pd") + "," + value_of(map, "src") + "," + value_of(map, "proxy") + "," +
                         value_of(map, "policy") + (ffind(&map->child, "tag") ? ",tag" : ""));
    for (Frag *dest = children_of(db, "dest"); dest; dest = dest->next)
        shorten(dest, value_of(dest, "service") + " " + value_of(dest, "desc") + " " + value_of(dest, "pd") + " " +
                          value_of(dest, "dest"));
    for (Frag *policy = children_of(db, "policy"); policy; policy = policy->next) {
        std::string text = value_of(policy, "parm_desc");
        for (Frag *set = children_of(&policy->child, "proxy"); set; set = set->next)
            text += "," + std::string(set->name) + "=" + set->value;
        shorten(policy, text);
    }
}

/// What `wildmatch` answers, by the plain recursion.
inline bool plain_wildmatch(const char *pattern, const char *subject) {
    while (*pattern && *pattern == *subject)
        pattern++, subject++;
    if (*pattern != '*')
        return !*pattern && !*subject;
    if (!*++pattern)
        return true;
    for (; *subject; subject++)
        if (plain_wildmatch(pattern, subject))
            return true;
    return false;
}

/// A rule with one host. The marker is empty on a rule of a line without a prefix.
struct plain_rule {
    std::string marker, host, tail;
};

/// The rules whose host no earlier one that stays covers.
inline std::vector<plain_rule> uncovered(const std::vector<plain_rule> &rules) {
    std::vector<plain_rule> left;
    for (const plain_rule &rule : rules)
        if (std::none_of(left.begin(), left.end(), [&](const plain_rule &earlier) {
                return plain_wildmatch(earlier.host.c_str(), rule.host.c_str());
            }))
            left.push_back(rule);
    return left;
}

#endif
