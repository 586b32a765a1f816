// Checks of a configuration by itself: names that lead nowhere, counts, doubles, and the limits of the saved form.
#include "checks/checks.h"
#include "frag_tools.h"
#include "lines/place_keys.h"
#include "nupgrade.h"

#include <algorithm>
#include <unordered_set>

using fmt::format;

namespace {

// The ends of the keys of counts, and what stands in their place in the keys of what they count, up to its number.
const std::string_view counted[][2] = {
    {"map_num_entries", "map_"},       {"dest_num_entries", "dest_"}, {"sroute_num_entries", "sroute_"},
    {"policy_num_entries", "policy_"}, {"lcl_numrules", "lcl_rule"},  {"fwd_numrules", "fwd_rule"},
    {"nat_numrules", "nat_rule_"},     {"num_proxies", "proxy_"},     {"num_list", "list_"},
    {"num_group", "group_"},           {"num_parms", "parm_"},        {"num_elements", "element_"},
    {"num_members", "member_"}};

// The counts without which the entries of their families are not read.
const char *const family_counts[] = {"def_num_proxies", "cust_num_proxies", "policy_num_entries",
                                     "netobj_num_list", "netobj_num_group", nullptr};

// The counts of every numbered save of the new release.
const char *const always_counted[] = {"cust_num_proxies",    "dest_num_entries",    "map_num_entries",   "nat_numrules",
                                      "pfedit_fwd_numrules", "pfedit_lcl_numrules", "sroute_num_entries"};

// The families whose entries are read by numbers, and then named.
const char *const named_families[] = {"def_proxy_", "cust_proxy_", "policy_", "netobj_list_", "netobj_group_"};

// The families, apart from the numbered ones, in which a numbered save counts what can be counted.
const char *const counted_families[] = {"def", "cust", "policy", "netobj", "pfedit", nullptr};

// Whether the key ends so, where a component begins.
bool ends(std::string_view key, std::string_view with) {
    size_t front = key.size() - std::min(key.size(), with.size());
    return key.substr(front) == with && (front == 0 || key[front - 1] == '_');
}

/// One configuration under check.
struct checking {
    const configuration &conf;
    bool is_input;
    review_data &data;
    std::unordered_map<std::string, size_t> doubles{}; // findings of what stands twice, by what is told once

    long line_of(const Frag *frag) const { return conf.line_of(frag); }

    template <typename... types>
    finding &say(const char *id, long line, fmt::format_string<types...> text, types &&...values) const {
        return tell(data, id, format(text, std::forward<types>(values)...), conf.name, line);
    }

    void check_maps() const {
        for (const Frag *map : conf.children("map")) {
            std::string source = value_of(map, "src"), number = clear_name(map), made = value_of(map, "pd"),
                        policy = value_of(map, "policy"), proxy = value_of(map, "proxy");
            if (take_group_mark(source) && !conf.record("netobj_group", source))
                say("dangling", line_of(map), "map {} has the source {}, and there is no such group", number, source);
            if (made == "D" && proxy != "*" && !conf.record("def_proxy", proxy))
                say("dangling", line_of(map), "map {} denies for {}, and there is no such proxy", number, proxy);
            if (made == "P" && !conf.record("policy", policy))
                say("dangling", line_of(map), "map {} permits through {}, and there is none", number,
                    policy.empty() ? "a policy without a name" : "the policy " + policy);
            if (is_digit(number[0]) && ((made != "P" && made != "D") || source.empty()))
                say("dangling", line_of(map), "map {} decides nothing: its pd is {}, and its src {}", number,
                    made.empty() ? "not there" : made, source.empty() ? "not there" : source);
        }
    }

    void check_groups() const {
        for (const Frag *group : conf.children("netobj_group"))
            for (const Frag *member : configuration::children(group, "member")) {
                std::string type = value_of(member, "type").substr(0, 1), wanted = value_of(member, "name");
                const char *kind = type == "L" ? "list" : "group";
                if ((type == "L" || type == "G") && !conf.record(format("netobj_{}", kind).c_str(), wanted))
                    say("dangling", line_of(group), "the group {} has the {} {} as a member, and there is none",
                        clear_name(group), kind, wanted);
            }
    }

    // Config sets that policies name. Sets without parameters show in the numbered layout only.
    void check_policies() const {
        std::set<std::string> bare;
        for (const Frag *policy : conf.children("policy"))
            for (const Frag *entry : configuration::children(policy, "proxy")) {
                std::string owner = owner_of(entry);
                Frag *proxy = conf.record("def_proxy", owner),
                     *sets = proxy ? ffind(&proxy->child, "config-sets") : nullptr;
                const char *why = owner.empty() ? "no proxy has" : proxy ? "it lacks" : "is no proxy";
                if (sets && conf.indexes.find(&sets->child, entry->name))
                    continue;
                if (proxy && !conf.numbered)
                    bare.insert(owner + " " + entry->name);
                else
                    say("dangling", line_of(policy), "the policy {} names the config set {}{}, which {}",
                        clear_name(policy), clear_name(entry), owner.empty() ? "" : " of " + owner, why);
            }
        if (!bare.empty() && !is_input)
            say("left-out", 0, "config sets without parameters, which the canonical layout can't show").count =
                static_cast<long>(bare.size());
    }

    void check_lists() const {
        for (const Frag *list : conf.children("netobj_list"))
            for (const Frag *element : configuration::children(list, "element")) {
                std::string of = clear_name(list), number = clear_name(element), addr = value_of(element, "addr");
                if (is_blanks(addr.c_str()))
                    say("dangling", line_of(element),
                        "element {} of the list {} has no addr, so that it covers no host", number, of);
                if (!is_input && is_location(list) && is_blanks(value_of(element, "interface").c_str()))
                    say("left-out", line_of(element),
                        "element {} of {} ({}) has no interface: a numbered save drops it", number, of, addr);
            }
    }

    void check_filter_rules() const {
        for (const char *side : {"lcl", "fwd"})
            for (const Frag *rule : conf.children(format("pfedit_{}", side).c_str())) {
                size_t length = 9;
                for (const char *const *field = pfkeynames; *field; field++)
                    length += value_of(rule, *field).size();
                bool is_limit = length == RULE_LIMIT && data.lines.empty(); // else its input's line tells
                if (!is_input && (is_limit || length > RULE_LIMIT))
                    say("cut", line_of(rule), "filter rule {} {} has {} characters{}", side, clear_name(rule), length,
                        is_limit ? ", as many as a numbered save keeps: is it whole?"
                                 : format(": a numbered save cuts it at {}", RULE_LIMIT));
                if (conf.numbered && value_of(rule, "comment").find('+') != std::string::npos)
                    say("cut", line_of(rule), "the comment of filter rule {} {} has a +: an import ends it there", side,
                        clear_name(rule));
            }
    }

    // Counts that say another number than that of the entries, and those of families that are not there; in a result
    // also others that are not there, and numbers that are left out.
    void check_counts() const {
        std::map<std::string, std::unordered_set<std::string_view>> entries; // by the beginning of their keys
        for (const conf_line &line : conf.lines)
            for (size_t at = 1; at < line.key.size(); at++)
                if (is_digit(line.key[at]) && !is_digit(line.key[at - 1]))
                    entries[std::string(line.key.substr(0, at))].insert(line.key.substr(0, line.key.find('_', at)));
        std::set<std::string> met, wrong; // counts, and the beginnings of what they count wrongly
        for (const conf_line &line : conf.lines)
            for (const auto &[count, entry] : counted) {
                if (!ends(line.key, count))
                    continue;
                met.emplace(line.key);
                std::string of(line.key.substr(0, line.key.size() - count.size()));
                size_t there = entries[of.append(entry)].size();
                if (line.value == std::to_string(there))
                    continue;
                wrong.insert(of);
                say("count", line.line, "{} says {}, and {} are there", line.key, line.value, there);
            }
        std::set<std::string_view> bare; // entries
        for (const conf_line &line : conf.lines)
            for (std::string_view family : named_families)
                if (std::string_view rest = line.key.substr(std::min(family.size(), line.key.size()));
                    !is_input && line.key.substr(0, family.size()) == family && !rest.empty() && !is_digit(rest[0]) &&
                    rest.substr(0, 4) != "num_")
                    bare.insert(line.key.substr(0, line.key.find('_', family.size())));
        if (!bare.empty())
            say("count", 0, "{} has no number, by which alone it is read", *bare.begin()).count =
                static_cast<long>(bare.size());
        auto need = [&](std::string_view of, std::string_view count) {
            std::string key = std::string(of).append(count);
            if ((!is_input || is_listed(family_counts, key)) && met.insert(key).second)
                say("count", 0, "{} is not there", key);
        };
        for (const char *key : always_counted)
            if (release_of(conf.value("version_firewall")) == 55)
                need(key, "");
        for (const auto &[of, there] : entries) {
            for (std::string_view entry : there) {
                if (of == "def_proxy_" || of == "cust_proxy_" || of == "policy_")
                    need(entry, "_num_parms");
                if (of == "policy_")
                    need(entry, "_num_proxies");
            }
            bool is_numbered = is_listed(numbered_families, of.substr(0, of.size() - 1));
            for (const auto &[count, entry] : counted)
                if (ends(of, entry) && is_listed(counted_families, of.substr(0, of.find('_')))) {
                    need(of.substr(0, of.size() - entry.size()), count);
                    is_numbered = true;
                }
            const char *form = of == "link_" || of == "key_" ? "{}{:04}" : "{}{}";
            size_t last = is_numbered && !is_input && wrong.count(of) == 0 ? there.size() : 0; // else that is told
            for (size_t number = 1; number <= last; number++)
                if (std::string entry = format(fmt::runtime(form), of, number); there.count(entry) == 0) {
                    say("count", 0, "{} is not there, though {} such entries are", entry, last);
                    break;
                }
        }
    }

    // The value, with its prefix if that makes a difference, its line, and where that comes from as far as it is known.
    std::string said(const conf_line &line, bool is_turned) const {
        auto is_ahead = [](const line_origin &each, long wanted) { return each.line < wanted; };
        auto at = std::lower_bound(data.origins.begin(), data.origins.end(), line.line, is_ahead);
        bool known = !is_input && at != data.origins.end() && at->line == line.line && at->from == origin::input;
        const char *prefix = prefix_of(line.bits);
        std::string shape = !is_turned ? "" : *prefix ? format(" with {}", prefix) : " without a prefix";
        return format("{}{} (line {}{})", line.value, shape, line.line,
                      known ? format(", of {}:{}", data.files[at->file].name, at->input_line) : "");
    }

    // Whether a finding about the like was told, which counts this one, too.
    bool was_told(const std::string &like) {
        auto [told, fresh] = doubles.emplace(like, data.findings.size());
        if (!fresh)
            data.findings[told->second].count = std::max(data.findings[told->second].count, 1L) + 1;
        return !fresh;
    }

    // Tells that another line says what the node's own does, of parameters of config sets once for equal values.
    void say_double(Frag *node, const conf_line &found, const conf_line &other) {
        const Frag *set = at_depth(node, 3);
        bool turned = !same_prefix(found.bits, other.bits), alike = found.value == other.value && !turned;
        std::string key = fragkeyname(node),
                    values = format("{}\n{}\n{}\n{}", node->name, found.value, other.value, found.bits ^ other.bits);
        if ((is_input && alike) || was_told(set && is_named(set, "config-sets") ? values : key))
            return;
        say("twice", found.line, "{} stands twice: {} is found, {} is not; {}", key, said(found, turned),
            said(other, turned), alike ? "they say the same: it does not matter" : "it matters: they differ")
            .by = {conf.name, other.line};
    }

    // Tells what is said below a node that is not found, since another of its name is, and that one says otherwise or
    // not at all.
    void say_hidden(Frag *found, Frag *hidden) {
        std::vector<std::pair<Frag *, Frag *>> pending{{found, hidden}};
        while (!pending.empty()) {
            auto [node, twin] = pending.back();
            pending.pop_back();
            const conf_line *line = twin->value ? conf.origin(twin) : nullptr,
                            *other = node ? conf.origin(node) : nullptr;
            if (line && !node && !was_told(format("{}\n", fragkeyname(found))))
                say("twice", line->line, "{}: {} is not found, since another {} is", std::string(fragkeyname(twin)),
                    said(*line, false), std::string(fragkeyname(found)));
            else if (line && other && !(other->value == line->value && same_prefix(other->bits, line->bits)))
                say_double(node, *other, *line);
            for (Frag *child = twin->child; child; child = child->next)
                pending.emplace_back(node ? conf.indexes.find(&node->child, child->name) : nullptr, child);
        }
    }

    // In an input the lines alone: what else stands twice there does so in the result.
    void check_doubles(bool has_lists = true) {
        for (const conf_line &line : conf.lines)
            if (const conf_line *found = line.role == line_role::setting ? conf.origin(line.node) : nullptr;
                found && found != &line && found->node == line.node && found->role == line.role &&
                (has_lists || line.key.substr(0, 12) != "netobj_list_"))
                say_double(line.node, *found, line);
        if (is_input)
            return;
        std::unordered_map<std::string_view, const conf_line *> names; // which say no value of their own
        for (const conf_line &line : conf.lines)
            if (line.role != line_role::setting)
                if (auto [first, fresh] = names.emplace(line.key, &line); !fresh && first->second->value != line.value)
                    say("twice", line.line, "{} stands twice: {} (line {}) and {}", line.key, first->second->value,
                        first->second->line, line.value)
                        .by = {conf.name, first->second->line};
        for (std::vector<FragList> lists{conf.db()}; !lists.empty();) {
            FragList list = lists.back();
            lists.pop_back();
            for (Frag *node = *list; node; node = node->next) {
                if (Frag *found = conf.indexes.find(list, node->name); found != node)
                    say_hidden(found, node);
                lists.push_back(&node->child);
            }
        }
        Frag *global = conf.find("def_proxy_global"), *star = conf.find("def_proxy_*");
        if (global && star)
            say_hidden(global, star);
    }
};

} // namespace

void check_conf(const configuration &conf, bool is_input, bool stands_alone, review_data &data) {
    checking check{conf, is_input, data};
    if (conf.numbered)
        check.check_counts();
    if (!is_input)
        check.check_doubles();
    if (stands_alone) {
        check.check_lists();
        check.check_filter_rules();
        check.check_maps();
        check.check_groups();
        check.check_policies();
    }
}

void check_input_doubles(const configuration &conf, bool has_lists, review_data &data) {
    checking{conf, true, data}.check_doubles(has_lists);
}
