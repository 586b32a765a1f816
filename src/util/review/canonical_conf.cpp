// Loading a configuration of either layout for the checks, the comparison by meaning and the to-do list.
#include "canonical_conf.h"
#include "frag_tools.h"

#include <algorithm>
#include <cstring>

namespace {

// The first four components of a key, and no more than one more.
std::vector<std::string_view> components(std::string_view key) {
    std::vector<std::string_view> parts;
    while (parts.size() < 5) {
        parts.push_back(key.substr(0, key.find('_')));
        if (parts.back().size() == key.size())
            break;
        key.remove_prefix(parts.back().size() + 1);
    }
    return parts;
}

bool is_number(std::string_view text) { return !text.empty() && text.find_first_not_of("0123456789") == text.npos; }

std::string decoded(const std::string &name) {
    Frag node{};
    std::string copy = name, clear(name.size() + 1, '\0');
    node.name = copy.data();
    copy_fragname(&node, clear.data());
    clear.resize(strlen(clear.c_str()));
    return clear;
}

// In the numbered layout an entry's name stands in a value, in the canonical one in the key. Lines of one entry follow
// each other, so that `last`, the key of the entry noted last, saves most look-ups.
void note_entry(canonical_conf &conf, const assignment &line, std::string &last) {
    bool map = has_prefix(line.key.c_str(), "map_"), policy = has_prefix(line.key.c_str(), "policy_");
    size_t depth = map || policy ? 1 : 2;
    std::vector<std::string_view> parts = components(line.key);
    if (parts.size() <= depth)
        return;
    std::string family(line.key, 0, static_cast<size_t>(parts[depth].data() - line.key.data()) - 1);
    std::string name;
    if (map || !conf.numbered) {
        std::string_view entry(line.key.data(), family.size() + 1 + parts[depth].size());
        if (entry == last)
            return;
        last = entry;
        name = decoded(std::string(parts[depth]));
    } else {
        const char *bearer = family == "def_proxy" ? "realname" : "name";
        if (parts.size() != depth + 2 || parts[depth + 1] != bearer || !is_number(parts[depth]))
            return;
        name = line.value;
    }
    conf.entries.emplace(family + " " + name, line.line);
}

// By the stamp of the save if there is one, since a merged file of the other layout can leave its counts behind.
bool is_numbered(FragList db) {
    bool counted = false;
    for (const char *key : {"def_num_proxies", "cust_num_proxies", "policy_num_entries", "netobj_num_list"})
        counted = counted || ffind(db, key);
    const char *stamp = fval(db, "version_moatwall.conf");
    return counted && (!stamp || same_text(stamp, "001") || same_text(stamp, "041"));
}

} // namespace

long canonical_conf::line_of(const std::string &family, const std::string &name) const {
    auto found = entries.find(family + " " + name);
    return found == entries.end() ? 0 : found->second;
}

bool load_canonical(const char *path, canonical_conf &conf, with_lines lines) {
    if (importffile(path, conf.db(), 0) || (lines == with_lines::yes && !read_assignments(path, conf.lines)))
        return false;
    conf.numbered = is_numbered(conf.db());
    std::string last;
    for (const assignment &line : conf.lines)
        note_entry(conf, line, last);
    if (conf.numbered) {
        // The address keys of an environment become elements when it is imported, and not when it is merged.
        Frag *addresses = fdel(conf.db(), "ip");
        norm_fragtree(conf.db());
        if (addresses)
            pushfrag(conf.db(), addresses, nullptr);
    } else if (Frag *global = ffind(conf.db(), "def_proxy_*")) {
        renamefrag(global, "global");
    }
    return true;
}

Frag *find_named(FragList db, const char *family, const std::string &name) {
    Frag *entry = ffind2(db, family, storedname(name).c_str());
    return entry ? entry : ffind2(db, family, name.c_str());
}

std::vector<Frag *> sorted_children(FragList db, const char *key) {
    std::vector<Frag *> children;
    Frag *node = ffind(db, key);
    if (!node)
        return children;
    sort_frags(&node->child);
    for (Frag *child = node->child; child; child = child->next)
        children.push_back(child);
    return children;
}

std::string clear_name(Frag *frag) {
    std::string text(strlen(frag->name) + 32, '\0');
    return copy_fragname(frag, text.data());
}

std::string child_value(Frag *frag, const char *key) {
    const char *value = fval(&frag->child, key);
    return value ? value : "";
}

std::vector<std::string> source_addresses(FragList db, const std::string &source) {
    static const char group_mark[] = "$$NETOBJ.";
    std::vector<std::string> addresses;
    auto add_list = [&](const std::string &name) {
        Frag *list = find_named(db, "netobj_list", name);
        if (!list)
            return false;
        for (Frag *element : sorted_children(&list->child, "element"))
            addresses.push_back(child_value(element, "addr"));
        return true;
    };
    if (!has_prefix(source.c_str(), group_mark)) {
        if (!add_list(source))
            addresses.push_back(source);
        return addresses;
    }
    std::vector<std::string> groups{source.substr(strlen(group_mark))};
    for (size_t i = 0; i < groups.size(); i++) { // grows by the groups in the groups, each once
        Frag *group = find_named(db, "netobj_group", groups[i]);
        if (!group)
            continue;
        for (Frag *member : sorted_children(&group->child, "member")) {
            std::string name = child_value(member, "name");
            if (child_value(member, "type") == "L")
                add_list(name);
            else if (std::find(groups.begin(), groups.end(), name) == groups.end())
                groups.push_back(name);
        }
    }
    return addresses;
}

void walk_values(Frag *frag, const std::function<void(const std::string &key, Frag *node)> &what) {
    // The nodes under way with the length of the key in front of them, since trees can be deep.
    std::vector<std::pair<Frag *, size_t>> pending;
    std::string key;
    for (Frag *child = frag->child; child; child = child->next)
        pending.emplace_back(child, 0);
    while (!pending.empty()) {
        auto [node, length] = pending.back();
        pending.pop_back();
        key.resize(length);
        key += std::string(length ? "_" : "") + attr_prefix(node->attr) + node->name;
        if (node->value)
            what(key, node);
        for (Frag *child = node->child; child; child = child->next)
            pending.emplace_back(child, key.size());
    }
}
