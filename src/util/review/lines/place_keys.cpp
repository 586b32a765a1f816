// Keys for finding again what a line says.
#include "lines/place_keys.h"
#include "frag_tools.h"
#include "nupgrade.h"

#include <algorithm>
#include <cstring>
#include <set>
#include <vector>

namespace {

/// The keys below which records stand by their names, as they do below "policy", too. Ends with a null.
const char *const named_families[] = {"def_proxy", "cust_proxy", "netobj_list", "netobj_group", nullptr};

std::vector<const Frag *> way_to(const Frag *frag) {
    std::vector<const Frag *> way;
    way.reserve(8); // few are longer
    for (; frag; frag = frag->parent)
        way.push_back(frag);
    std::reverse(way.begin(), way.end());
    return way;
}

// A policy's parameter is one name in the numbered layout, its prefix and number in it.
void take_policy_parameter(const std::vector<const Frag *> &way, place_keys::key_of &made) {
    std::string name;
    for (size_t i = 3; i < way.size(); i++) {
        name += (name.empty() ? "" : "_") + clear_name(way[i]);
        made.bits |= bits_of(way[i]);
    }
    const char *bare = stored_attribute(name.c_str());
    made.bits |= take_prefixes(&bare);
    made.key += bare;
    made.named = true;
}

} // namespace

const char *const numbered_families[] = {"map",  "sroute", "dest",       "nat_rule",   "menu_meta",
                                         "link", "key",    "pfedit_lcl", "pfedit_fwd", nullptr};

std::pair<const ip_var_rec *, const char *> find_address_key(std::string_view key) {
    for (const ip_var_rec *row = ip_var_tab; row->address; row++)
        for (const auto &[from, field] : {std::pair{row->address, "addr"},
                                          {row->mask, "netmask"},
                                          {row->broadcast, "broadcast"},
                                          {row->interface, "interface"},
                                          {row->flags, "interfaceflags"}})
            if (key == std::string("ip_") + from)
                return {row, field};
    return {};
}

bool is_placeholder(std::string_view address) {
    return address.empty() || address == "none" || address == "XXX.XXX.XXX.XXX";
}

bool is_location(const Frag *list) {
    return is_named(list, "Inside") || is_named(list, "Outside") || is_named(list, "Service");
}

const Frag *at_depth(const Frag *frag, size_t depth) {
    size_t count = 0;
    for (const Frag *at = frag; at; at = at->parent)
        count++;
    for (; frag && count > depth + 1; count--)
        frag = frag->parent;
    return count == depth + 1 ? frag : nullptr;
}

bool is_filter_rule(const Frag *frag) { return at_depth(frag, 2) == frag && is_named(at_depth(frag, 0), "pfedit"); }

bool same_prefix(long a, long b) { return ((a ^ b) & (ATTR_PERMIT | ATTR_DENY | ATTR_ABSORB | ATTR_ONLYON)) == 0; }

std::string filter_text(std::string text) {
    size_t fields = 1, at = 0;
    for (; at < text.size() && (text[at] != '+' || fields++ < 10); at++)
        ;
    text.resize(at);
    text.append(fields < 10 ? 10 - fields : 0, '+');
    return text.substr(0, RULE_LIMIT);
}

std::string record_text(const Frag *record) {
    std::set<std::string> texts;
    bool is_filter = is_named(at_depth(record, 0), "pfedit");
    std::string rule;
    for (const char *const *key = pfkeynames; is_filter && *key; key++)
        rule += (key == pfkeynames ? "" : "+") + configuration::value(record, *key);
    if (is_filter)
        texts.insert(filter_text(rule));
    std::vector<std::pair<std::string, const Frag *>> pending = {{"", record}};
    while (!pending.empty()) {
        auto [path, frag] = std::move(pending.back());
        pending.pop_back();
        if (frag->value && frag != record)
            texts.insert(path + '=' + std::string(text_of(frag)));
        // Not a map's tags, which a table's translation takes away, nor again what is in the rule.
        for (const Frag *child = frag->child; child; child = child->next)
            if (frag != record || (!is_named(child, "tag") && !(is_filter && is_listed(pfkeynames, child->name))))
                pending.emplace_back(path + (path.empty() ? "" : "_") + child->name, child);
    }
    std::string all;
    for (const std::string &text : texts)
        all += text + '\n';
    return all;
}

std::string place_keys::identity(const Frag *entry, int later) {
    // All entries of the list at once, since equal ones are told apart by their order.
    const Frag *list = entry->parent;
    std::unordered_map<std::string, int> met;
    for (const Frag *each = identities.count(entry) != 0 ? nullptr : list->child; each; each = each->next) {
        std::string text = is_named(list, "element") ? configuration::value(each, "addr")
                           : is_named(list, "member")
                               ? configuration::value(each, "type") + ':' + configuration::value(each, "name")
                               : record_text(each);
        int count = met[text]++;
        identities.emplace(each, std::pair('#' + std::move(text), count));
    }
    const auto &[text, count] = identities[entry];
    return count + later > 0 ? text + '~' + std::to_string(count + later + 1) : text;
}

// The name of a record on a way. An alias stands in the list of an interface, or is saved in that of its own, whose
// name ends at a `:`; and the proxy for all is saved under another name. One that was named by a line has its prefix in
// that name.
static std::string record_name(const configuration *bearers, const std::vector<const Frag *> &way, size_t depth) {
    const Frag *record = way[depth], *element = depth == 2 && way.size() > 4 ? way[4] : nullptr;
    std::string name = record->name, interface;
    if (bearers && bearers->bearers.count(element) != 0)
        interface = bearers->bearers.at(element);
    else if (element && is_location(record) && says_yes(configuration::value(element, "alias")))
        interface = configuration::value(element, "interface");
    if (!is_blanks(interface.c_str()))
        name = encoded_name(interface.substr(0, interface.find(':')) + "$INTERFACE");
    else if (name == "*" && depth == 2 && is_named(way[1], "proxy"))
        name = "global";
    const char *prefix = prefix_of(bits_of(record));
    return has_prefix(record->name, prefix) ? name : prefix + name;
}

place_keys::key_of place_keys::find(const Frag *frag, int later) {
    key_of made;
    std::vector<const Frag *> way = way_to(frag);
    const std::string top = way[0]->name, family = top + '_' + (way.size() > 1 ? way[1]->name : "");
    // The depths at which there are records with names, and numbered ones; 0 for none.
    bool in_policy = top == "policy";
    size_t named = in_policy ? 1 : is_listed(named_families, family) ? 2 : 0;
    size_t numbered = is_listed(numbered_families, top)         ? 1
                      : is_listed(numbered_families, family)    ? 2
                      : named == 2 && begins(family, "netobj_") ? 4
                                                                : 0;
    for (size_t i = 0; i < way.size(); i++) {
        std::string name = way[i]->name;
        made.key += i == 0 ? "" : "_";
        bool is_set = named == 2 && i == 4 && is_named(way[3], "config-sets");
        bool is_entry = in_policy && i == 3 && is_named(way[2], "proxy");
        if ((i > 0 && i == named) || is_set || is_entry) {
            made.key += record_name(takes_bearers ? &conf : nullptr, way, i);
        } else if (i > 0 && i == numbered &&
                   (is_digit(name[0]) || (top == "pfedit" && name != "numrules") ||
                    (top == "map" && !begins(name, "num")))) {
            made.key += identity(way[i], later);
        } else if (in_policy && i == 3 && is_named(way[2], "parm")) {
            take_policy_parameter(way, made);
            break;
        } else {
            long bits = bits_of(way[i]);
            // A name with a prefix can read as one that is mapped.
            const std::string shown = bits == 0 ? "" : prefix_of(bits) + name;
            if (const char *mapped = stored_attribute(shown.c_str()); mapped != shown) {
                name = mapped;
                bits = 0;
            }
            const char *bare = name.c_str(); // the section form leaves prefixes in names
            bits |= take_prefixes(&bare);
            name.erase(0, static_cast<size_t>(bare - name.c_str()));
            for (size_t at = name.find("%25"); at != name.npos; at = name.find("%25", at + 1))
                name.replace(at, 3, 1, '%');
            made.key += name;
            made.bits |= bits;
        }
    }
    return made;
}

std::string place_keys::path(const Frag *frag) {
    std::string path;
    for (const Frag *each : way_to(frag))
        path += (path.empty() ? "" : "_") + std::string(each->name);
    return path;
}
