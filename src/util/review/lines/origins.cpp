// Where each line of the result comes from: a line of an input, a doing of the release, or the layout.
#include "frag_tools.h"
#include "lines/accounting.h"
#include "nupgrade.h"
#include "upgrade.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <map>
#include <set>

using fmt::format;

namespace {

/// What the release sets at a key.
struct release_value {
    std::string value;
    bool always = false;        ///< every such result has it
    const Frag *near = nullptr; ///< where in the result one looks for it, null for at the key
};

/// The whole of the result, line by line.
struct origin_finder {
    accounting &all;
    result_places &result;
    std::map<std::string, release_value> set{};
    std::unordered_set<const Frag *> alias_lists{};            ///< of interfaces, and their counts
    std::unordered_map<std::string, account_line *> proxies{}; ///< the first line that names each
    std::set<std::string_view> filter_rules{};                 ///< of files that are merged alone
    std::map<std::string, account_line *> filter_fields{}; ///< the lines of fields that stand there beside such rules

    void prepare_release() {
        const configuration &conf = result.conf;
        int release = all.data.release, version = all.in.command.version;
        set["version_moatwall.conf"] = {format("{:03}", version == 99 ? 50 : version), true};
        set["def_proxy_global_name"] = {"*"};
        if (release != 55) {
            set["version_firewall"] = {"5.5", true};
            set["version_upgraded"] = {release < 40 ? "PRE 4.0" : "POST 4.0", true};
        }
        if (all.has_tables) // a table takes the value, and the key stays
            set["trusted_networks"] = set["untrusted_networks"] = {};
        for (const char *const *name = login_services; all.logs_in && *name; name++) {
            set[format("def_proxy_{}", *name)] = {*name};
            set[format("def_proxy_{}_state", *name)] = {"on", true};
        }
        for (const maprec *row = services_of(conf) == map_nt ? map_nt : nullptr; row && row->proxy; row++)
            if (const Frag *state = conf.find(format("def_proxy_{}_state", row->proxy).c_str()))
                set[format("proxy_{}", row->service)] = {configuration::value(state, ""), all.in.command.numbered(),
                                                         state};
        for (const Frag *proxy : conf.children("def_proxy")) {
            const char *program = program_of(configuration::value(proxy, "proxy-type"));
            const Frag *there = find_named(proxy->child, "proxy-exec");
            if (program && release != 55) // a list stands in the place of a value, which is not saved then
                set[place_keys::path(proxy) + "_proxy-exec"] = {program, !there || !there->child, proxy};
        }
    }

    void prepare() {
        prepare_release();
        for (const auto &[name, elements] : all.located) { // of which a `_` makes several names
            std::string key = format("netobj_list_{}$INTERFACE", configuration::value(elements[0], "interface"));
            for (const Frag *made : {result.conf.find(key.c_str()), result.conf.find((key + "_num_elements").c_str())})
                alias_lists.insert({made, at_depth(made, 2)});
        }
        for (account_line &line : all.lines) {
            if (line.said && covers("pfedit_*_rule*", line.said->key) && !line.input->imported)
                filter_rules.insert(line.said->value);
            if (line.said && covers("pfedit_*_rule*_*", line.said->key))
                filter_fields.emplace(format("{}={}", line.said->key, line.said->value), &line);
            for (size_t r = 0; r < line.rules; r++)
                for (const std::string &name : line.rule(r).names)
                    if (name == "alerts" || (!is_no_proxy(name) && !is_removed_proxy(name)))
                        proxies.emplace(name, &line);
            if (begins(line.key, "def_proxy_*") || begins(line.key, "def_proxy_global"))
                proxies.emplace("global", &line);
        }
    }

    // The line by which an element is an alias: one in an interface's list, whose elements are marked with "yes".
    account_line *alias_line(const conf_line &line) const {
        account_line *of = result.notes(line.node->parent).from;
        const conf_line *said = of ? of->said : nullptr;
        const Frag *stood = said ? at_depth(said->node, 4) : nullptr;
        bool is_made =
            stood && (of->input->conf->bearers.count(stood) != 0 || covers("*$INTERFACE", stood->parent->parent->name));
        return is_made || line.value != "yes" ? of : nullptr;
    }

    account_line *input_line(const conf_line &line) const {
        auto twin = result.doubles.find(&line);
        const node_notes &notes = result.notes(twin == result.doubles.end() ? line.node : &twin->second);
        if (account_line *direct = line.role == line_role::name ? notes.named : notes.valued)
            return direct;
        // The name of a parameter comes with its value, that of a record with what stands in it.
        if (line.role == line_role::name || !line.node->value)
            if (account_line *first = result.notes(line.node).from)
                return first;
        // Some lines make a whole record.
        for (size_t depth : {1, 2})
            if (const Frag *record = at_depth(line.node, depth); record && record != line.node)
                if (account_line *of = result.notes(record).valued)
                    return of;
        if (is_named(line.node, "alias"))
            return alias_line(line);
        // A proxy stands for having been named, even where nothing is left of what it was told; so does a config set of
        // it.
        bool is_proxy = line.role == line_role::name && line.node->parent == result.conf.find("def_proxy");
        bool is_set = at_depth(line.node, 4) == line.node && is_named(line.node->parent, "config-sets");
        auto rule = is_proxy || is_set ? proxies.find(clear_name(at_depth(line.node, 2))) : proxies.end();
        if (rule == proxies.end())
            return nullptr;
        std::string name = clear_name(line.node), digits = "-0123456789"; // tn-px, tn-px-2, tn-px-3
        bool is_made = begins(name, rule->first) && name.find_first_not_of(digits, rule->first.size()) == name.npos;
        return is_proxy || is_made ? rule->second : nullptr;
    }

    bool is_layout(const conf_line &line) const {
        if (line.key == "nat_numrules" || line.key == "cust_num_proxies")
            return true;
        const Frag *record = at_depth(line.node, 2), *element = at_depth(line.node, 4);
        if (!record || !all.in.command.numbered())
            return false;
        std::string path = place_keys::path(line.node), name = clear_name(record);
        if (line.role == line_role::name && line.node == record && name.find_first_not_of("0123456789") == name.npos)
            return true; // a record that no line names is called by its number
        if (begins(path, "def_proxy_"))
            return is_named(line.node, "name") && line.node->parent == record &&
                   (line.value == name || (line.value == "*" && name == "global"));
        if (!begins(path, "netobj_list_"))
            return false;
        bool is_all = name == "all_interfaces";
        if (alias_lists.count(line.node) != 0)
            return true;
        if (line.role == line_role::name)
            return is_all || is_location(record) || covers("*$INTERFACE", name);
        if (!is_all || !element)
            return false;
        // An interface that stands in a location list is listed with all that is said of it there.
        auto there = all.located.find(lowercase(configuration::value(element, "interface")));
        if (there == all.located.end() || is_named(line.node, "location"))
            return is_named(line.node, "location"); // which is checked by itself
        return std::any_of(there->second.begin(), there->second.end(),
                           [&](const Frag *each) { return configuration::value(each, line.node->name) == line.value; });
    }

    // A filter rule is saved with its ten fields, empty ones too, unless it is cut or came in as it is; and the fields
    // of one that came in field by field each have a line.
    bool is_odd_rule(const conf_line &line) const {
        if (!is_filter_rule(line.node))
            return false;
        bool is_cut = line.value.size() >= RULE_LIMIT;
        if (result.conf.numbered && covers("pfedit_*_rule*", line.key) && !is_cut &&
            std::count(line.value.begin(), line.value.end(), '+') < 9 && filter_rules.count(line.value) == 0)
            return true;
        const Frag *field = result.notes(line.node).valued ? nullptr : line.node->child;
        while (field && (result.notes(field).valued || (is_cut && is_named(field, "comment"))))
            field = field->next;
        return field != nullptr;
    }

    // Whether the numbered layout would say the line by a number: a parameter of a proxy or a config set, or the owner
    // of what a policy lists.
    bool is_bare(const conf_line &line) const {
        static const char *const forms[] = {"*_proxy_*_name", "*_proxy_*_realname", "*_proxy_*_num*",
                                            "*_proxy_*_parm_*", "*_proxy_*_cyberurl_*"};
        auto is_of = [&](const char *form) { return covers(form, line.key); };
        bool is_parameter = (is_of("def_proxy_*_*") || is_of("cust_proxy_*_*")) &&
                            std::none_of(std::begin(forms), std::end(forms), is_of);
        const Frag *list = at_depth(line.node, 2);
        bool is_entry = is_of("policy_*_proxy_*") && !is_of("policy_*_proxy_*_*") && list && is_named(list, "proxy");
        return result.conf.numbered && (is_parameter || is_entry);
    }

    written_line find(const conf_line &line) const {
        // The proxy for all is saved as `*`.
        if (begins(line.key, "def_proxy_global") || (line.value == "global" && covers("*_proxy_*_realname", line.key)))
            return {};
        if (!line.node) {
            auto field = filter_fields.find(format("{}={}", line.key, line.value));
            if (field != filter_fields.end())
                return {origin::input, field->second};
            return {line.key.find("_num") != line.key.npos ? origin::layout : origin::nowhere};
        }
        // A numbered save leaves no alias in the list of a location.
        bool is_left = all.in.command.numbered() && is_named(line.node, "alias") &&
                       is_location(at_depth(line.node, 2)) && result.conf.bearers.count(at_depth(line.node, 4)) == 0;
        bool is_stamp = all.data.release != 55 && (line.key == "version_firewall" || line.key == "version_upgraded");
        // Some attributes are written otherwise than they are stored.
        bool is_parameter = line.role == line_role::name && line.key.find("_parm_") != line.key.npos;
        std::string_view name = is_parameter ? line.value : result.conf.bytes.substr(line.begin, line.end - line.begin);
        const std::string parts = format("_{}_", is_parameter ? name : name.substr(0, name.find('=')));
        for (const attr_map_rec *row = attr_map_tab; row->file_name; row++)
            if (size_t at = parts.find(row->stored_name), end = at + strlen(row->stored_name); at != parts.npos)
                is_stamp = is_stamp || (parts[at - 1] == '_' && parts[end] == '_');
        account_line *from = is_left || is_stamp || is_odd_rule(line) ? nullptr : input_line(line);
        const conf_line *said = from ? from->said : nullptr;
        if (is_bare(line) && !(said && said->key == line.key)) // as the input has it
            return {};
        if (from)
            return {origin::input, from};
        if (is_layout(line))
            return {origin::layout};
        auto made = set.find(place_keys::path(line.node));
        bool has_name = line.role == line_role::name && line.node->value;
        bool is_made = made != set.end() && made->second.value == (has_name ? line.node->value : line.value);
        return {is_made ? origin::release : origin::nowhere};
    }

    // What the release sets in every result.
    void tell_missing() const {
        for (const auto &[key, made] : set)
            if (made.always && result.conf.value(key.c_str()) != made.value)
                all.tell_some("lost", format("the release sets {} to {}, and the result does not", key, made.value),
                              all.in_result(made.near ? made.near : result.conf.find(key.c_str())));
    }

    // The list of all interfaces has each of them once, with the list that it stands in and what is said of it there.
    void check_interfaces() const {
        auto tell = [&](const char *id, const Frag *element, const std::string &what) {
            std::string name = configuration::value(element, "interface");
            all.tell_some(id, format("the interface {} {}", name, what), all.in_result(element));
        };
        for (const char *list : {"all_interfaces", "Inside", "Outside", "Service"})
            if (!result.conf.record("netobj_list", list))
                all.tell_some("lost", format("a numbered save makes the list {}", list), all.in_result(0L));
        std::map<std::string, std::set<std::string>> held; // interfaces, by the lists that entries name
        auto is_held = [&](const std::string &list, const std::string &interface) {
            auto [known, is_new] = held.try_emplace(list);
            if (is_new)
                for (const Frag *each : configuration::children(result.conf.record("netobj_list", list), "element"))
                    if (!says_yes(configuration::value(each, "alias")))
                        known->second.insert(configuration::value(each, "interface"));
            return known->second.count(interface) != 0;
        };
        std::set<std::string> listed;
        for (const Frag *each : result.conf.children("netobj_list_all%5Finterfaces_element")) {
            std::string name = lowercase(configuration::value(each, "interface")),
                        location = configuration::value(each, "location");
            if (!listed.insert(name).second && !is_blanks(name.c_str()))
                tell("from-nowhere", each, "stands twice in the list of all interfaces");
            auto there = all.located.find(name);
            bool stays = there == all.located.end() && is_held(location, configuration::value(each, "interface"));
            if (!stays &&
                location != (there == all.located.end() ? "Unknown" : clear_name(there->second[0]->parent->parent)))
                tell("from-nowhere", each, format("has the location {} in the list of all interfaces", location));
            for (const char *field : {"addr", "netmask", "broadcast", "interfaceflags"})
                if (there != all.located.end() &&
                    std::none_of(there->second.begin(), there->second.end(), [&](const Frag *element) {
                        const Frag *said = find_named(element->child, field);
                        return !said || text_of(said) == configuration::value(each, field);
                    }))
                    tell("lost", there->second[0], format("has another {} in the list of all interfaces", field));
        }
        for (const auto &[name, elements] : all.located)
            if (listed.count(name) == 0)
                tell("lost", elements[0], "stands in no list of all interfaces");
    }
};

} // namespace

void find_origins(accounting &all, result_places &result) {
    origin_finder finder{all, result};
    finder.prepare();
    for (const conf_line &line : result.conf.lines)
        all.written.push_back(finder.find(line));
    finder.tell_missing();
    if (all.in.command.numbered())
        finder.check_interfaces();
}
