/// What the tests of the netperm translation share: tables from text, and results that don't depend on how many maps
/// and records the process has numbered before.
#ifndef NETPERM_SUPPORT_H
#define NETPERM_SUPPORT_H

#include "support.h"
#include "upgrade.h"

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
    FILE *stream = tmpfile();
    fwrite(table.data(), 1, table.size(), stream);
    rewind(stream);
    readnpt(stream, db);
    fclose(stream);
}

/// The number that the next map of the process will get.
inline int next_map_number() {
    tree scratch("set=\n");
    addmap(scratch, "", "", "", "", "", ffind(scratch, "set"));
    return atoi(ffind(scratch, "map")->child->name) + 1;
}

/// The number that the next `dest` record of the process will get.
inline int next_dest_number() {
    tree scratch("p_destination=x\n");
    new_dest(scratch, ffind(scratch, "p_destination"));
    return atoi(ffind(scratch, "dest")->child->name) + 1;
}

/// Renames the numbered children of the top node so that `first` becomes 1, and sorts them.
inline void number_from(FragList db, const char *top, int first) {
    Frag *family = ffind(db, top);
    if (!family)
        return;
    for (Frag *frag = family->child; frag; frag = frag->next)
        renumberfrag(frag, atoi(frag->name) - first + 1);
    sort_frags(&family->child);
}

/// The addresses of a network list, joined by commas.
inline std::string elements_of(Frag *list) {
    std::string hosts;
    Frag *elements = ffind(&list->child, "element");
    for (Frag *element = elements ? elements->child : nullptr; element; element = element->next)
        hosts += (element == elements->child ? "" : ",") + std::string(fval(&element->child, "addr"));
    return hosts;
}

/// The hosts of the list of a map's source, joined by commas; the missing link in the chain if there is one.
inline std::string hosts_of(FragList db, Frag *map) {
    const char *src = fval(&map->child, "src");
    if (!src || strncmp(src, "$$NETOBJ.", 9) != 0)
        return "(no source)";
    Frag *group = ffind(db, ("netobj_group_" + storedname(src + 9)).c_str());
    const char *type = group ? fval(&group->child, "member_1_type") : nullptr;
    const char *name = group ? fval(&group->child, "member_1_name") : nullptr;
    if (!type || strcmp(type, "L") != 0 || !name)
        return "(no group)";
    Frag *list = ffind(db, ("netobj_list_" + storedname(name)).c_str());
    return list ? elements_of(list) : "(no list)";
}

/// What `untrans_hosts` made, one map in the order of their numbers, joined by `|`: "class hosts [parameters of the
/// config set] policy@proxy". A parameter with the value `*` shows its name alone.
inline std::string rules_of(FragList db) {
    std::string rules;
    Frag *maps = ffind(db, "map");
    if (!maps)
        return rules;
    sort_frags(&maps->child);
    for (Frag *map = maps->child; map; map = map->next) {
        std::string parameters, proxy = fval(&map->child, "tag_proxy"), set = fval(&map->child, "tag_cs");
        Frag *config_set = ffind(db, ("def_proxy_" + proxy + "_config-sets_" + set).c_str());
        for (Frag *frag = config_set->child; frag; frag = frag->next)
            parameters += (frag == config_set->child ? "" : " ") + std::string(fragname(frag)) +
                          (frag->value && strcmp(frag->value, "*") != 0 ? "=" + std::string(frag->value) : "");
        rules += (map == maps->child ? "" : "|") + std::string(fval(&map->child, "pd")) + " " + hosts_of(db, map) +
                 " [" + parameters + "] " + fval(&map->child, "policy") + "@" + fval(&map->child, "proxy");
    }
    return rules;
}

/// A database of maps given as "number pd src proxy policy tag_proxy tag_cs", joined by `|`, with `-` for a key that is
/// not there. A policy is made as the translation makes it, for the config set of its first map.
inline void add_maps(FragList db, const std::string &maps) {
    for (const std::string &map : split(maps, '|')) {
        std::vector<std::string> words = split(map, ' ');
        const char *keys[] = {"pd", "src", "proxy", "policy", "tag_proxy", "tag_cs"};
        Frag *frag = fset(db, ("map_" + words[0]).c_str(), nullptr);
        for (size_t at = 0; at < 6; at++)
            if (words[at + 1] != "-")
                fsetp(&frag->child, keys[at], words[at + 1].c_str(), frag);
        std::string policy = "policy_" + words[4];
        if (words[4] != "-" && words[4] != "*" && words[6] != "-" && !ffind(db, policy.c_str())) {
            fset(db, (policy + "_proxy_" + words[6]).c_str(), words[5].c_str());
            fset(db, (policy + "_parm_desc").c_str(), words[5].c_str());
        }
    }
}

/// The maps as "number pd src proxy policy", joined by `|`, and behind ` /` each policy as "
/// name(description;set=proxy)".
inline std::string maps_and_policies(FragList db) {
    std::string text;
    for (Frag *map = ffind(db, "map")->child; map; map = map->next) {
        text += (text.empty() ? "" : "|") + std::string(map->name);
        for (const char *key : {"pd", "src", "proxy", "policy"})
            text += " " + std::string(fval(&map->child, key) ? fval(&map->child, key) : "-");
        text += ffind(&map->child, "tag") ? " tag" : "";
    }
    text += " /";
    Frag *policies = ffind(db, "policy");
    for (Frag *policy = policies ? policies->child : nullptr; policy; policy = policy->next) {
        const char *desc = fval(&policy->child, "parm_desc");
        text += " " + std::string(policy->name) + "(" + (desc ? desc : "");
        Frag *sets = ffind(&policy->child, "proxy");
        for (Frag *set = sets ? sets->child : nullptr; set; set = set->next)
            text += ";" + std::string(set->name) + "=" + set->value;
        text += ")";
    }
    return text;
}

/// One of the words by chance.
template <size_t count> std::string one_of(const char *const (&words)[count]) { return words[random_below(count)]; }

/// What `wildmatch` answers, by the plain recursion with each pair of places worked out once.
struct plain_wildmatch {
    std::string pattern, subject;
    std::vector<signed char> known;

    plain_wildmatch(const std::string &p, const std::string &s)
        : pattern(p), subject(s), known((p.size() + 1) * (s.size() + 1), -1) {}
    bool match(size_t i = 0, size_t j = 0) {
        signed char &verdict = known[i * (subject.size() + 1) + j];
        if (verdict < 0)
            verdict = work_out(i, j);
        return verdict;
    }

private:
    bool work_out(size_t i, size_t j) {
        while (i < pattern.size() && j < subject.size() && pattern[i] == subject[j])
            i++, j++;
        if (i == pattern.size() || pattern[i] != '*')
            return i == pattern.size() && j == subject.size();
        if (++i == pattern.size())
            return true;
        for (; j < subject.size(); j++)
            if (match(i, j))
                return true;
        return false;
    }
};

#endif
