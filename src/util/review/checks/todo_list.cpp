// What is to be decided or entered again: proxies that are off, permits that nobody asked for, values that are gone.
#include "checks/checks.h"
#include "frag_tools.h"
#include "lines/place_keys.h"
#include "nupgrade.h"
#include "upgrade.h"

#include <algorithm>
#include <fmt/ranges.h>
#include <tuple>

using fmt::format;

namespace {

using fields = std::vector<std::pair<std::string, std::string>>;
using strings = std::vector<std::string>;
constexpr size_t MOST_SHOWN = 12; // addresses of one source

template <typename list> std::string joined(const list &words) { return fmt::to_string(fmt::join(words, ", ")); }

std::string describe_source(const configuration &conf, std::string source) {
    strings addresses;
    std::unordered_set<const Frag *> met;
    std::vector<const Frag *> elements = source_elements(conf, source, met);
    if (elements == std::vector<const Frag *>{nullptr})
        return source;
    std::string doubt; // about the first that stands there as if all hosts of a network were meant
    for (size_t i = 0; i < std::min(elements.size(), MOST_SHOWN); i++) {
        addresses.push_back(value_of(elements[i], "addr"));
        if (std::string network = network_pattern(addresses.back()); doubt.empty() && !network.empty())
            doubt = format("; {} stands for itself alone, not for {}", addresses.back(), network);
    }
    if (elements.size() > MOST_SHOWN)
        addresses.push_back(format("{} in all", elements.size()));
    take_group_mark(source);
    return format("{} ({}{})", source, elements.empty() ? "no addresses" : joined(addresses), doubt);
}

// What a node below an entry of an import is called where it is entered, config set in front.
std::string label_of(const Frag *node, const Frag *entry) {
    std::string name, set;
    for (const Frag *at = node; at != entry && set.empty(); at = at->parent)
        if (is_named(at->parent, "config-sets"))
            set = clear_name(at) + ": ";
        else if (!is_named(at, "parm"))
            name.insert(0, clear_name(at) + (name.empty() ? "" : "_"));
    return set + (file_attribute(node->name) != node->name ? file_attribute(node->name) : prefix_of(node->attr) + name);
}

/// The list as it is made. Configurations are in the canonical layout, null if there is none.
struct list_maker {
    const upgrade_command &command;
    loaded_files &files;
    const configuration &result;
    const access_side &before;
    review_data &data;
    strings imports = step_files(command, 'e');
    const configuration *old = files.conf(imports.empty() ? command.old_conf : imports.front());
    const configuration *old_states = data.release >= 40 ? old : nullptr;
    const configuration *init = data.release == 55 ? nullptr : files.conf(command.init_conf);

    template <typename... types>
    void enter(const char *id, const std::string &proxy, const fields &values, fmt::format_string<types...> text,
               types &&...said) {
        data.todo.push_back({id, format(text, std::forward<types>(said)...), proxy, values});
    }

    static const Frag *state_in(const configuration *conf, const std::string &name) {
        const Frag *proxy = conf ? conf->record("def_proxy", name) : nullptr;
        return proxy ? find_named(proxy->child, "state") : nullptr;
    }

    // Proxies that were switched on, or that tables let somebody into.
    void list_off() {
        std::set<std::string> used = switched(old_states, true);
        for (const std::string &proxy : before.tables.empty() ? strings() : before.proxies)
            for (const access_rule &rule : rules_of(before, proxy))
                if (rule.permit && !is_removed_proxy(proxy))
                    used.insert(proxy);
        for (const std::string &name : used) {
            const Frag *state = state_in(&result, name), *was = state_in(old_states, name);
            if (!says_yes(value_of(state)))
                enter("off", name, {}, "{} was in use{} and {}", name,
                      says_yes(value_of(was)) ? format(" ({}:{})", old->name, old->line_of(was)) : "",
                      !result.record("def_proxy", name) ? "is gone"
                      : state                           ? "is off now"
                                                        : "has no state now");
        }
    }

    // The services that network_loginok alone switches on; an import's decides, or else that of the first file.
    void list_on() {
        const configuration *decides = nullptr;
        for (char letter : {'e', 'm'})
            for (const std::string &file : step_files(command, letter))
                if (const configuration *conf =
                        files.conf(file, letter == 'm' ? conf_layout::merged : conf_layout::as_written);
                    conf && (!decides || letter == 'e') && !conf->value("network_loginok").empty())
                    decides = conf;
        fields services;
        for (const char *const *name = login_services; *name; name++) {
            std::string was = value_of(state_in(old_states, *name));
            if (says_yes(value_of(state_in(&result, *name))) && !says_yes(was))
                services.emplace_back(*name, was.empty() ? "on, had no state" : "on, was " + was);
        }
        if (decides && lowercase(decides->value("network_loginok")) == "enabled" && !services.empty())
            enter("on", "", services, "network_loginok=enabled in {} switches network login on: is that wanted?",
                  decides->name);
        std::set<std::string> on = switched(old_states, true);
        for (const std::string &name : switched(old_states, false))
            if (says_yes(value_of(state_in(&result, name))) && !is_listed(login_services, name) && !on.count(name))
                enter("on", name, {}, "{} was off in {} and is on now: is that wanted?", name, old->name);
        fields fresh;
        for (const Frag *proxy : init ? init->children("def_proxy") : std::vector<Frag *>()) {
            std::string name = shown_name(proxy);
            if (old_states && !old->record("def_proxy", name) && says_yes(value_of(state_in(&result, name))) &&
                !on.count(name) && !is_listed(login_services, name))
                fresh.emplace_back(name, "on, was not there");
        }
        if (!fresh.empty())
            enter("on", "", fresh, "the new release brought proxies that are on: are they wanted?");
    }

    // Who may administer the firewall, as the tables told it by proxies that are gone.
    void list_administration() {
        fields let_in;
        for (const std::string &proxy : before.proxies) {
            strings hosts;
            bool permits = false;
            if (!is_removed_proxy(proxy))
                continue;
            for (const access_rule &rule : rules_of(before, proxy)) {
                permits = permits || (rule.permit && !rule.pattern.empty());
                hosts.push_back((rule.permit ? "" : "not ") + std::string(rule.pattern));
            }
            if (permits)
                let_in.emplace_back(proxy, joined(hosts));
        }
        if (!let_in.empty())
            enter("administration", "", let_in,
                  "the release has no more of these proxies: enter again who may administer the firewall");
    }

    // Ports of the tables that others replace, with what was plugged through them.
    void list_ports() {
        std::map<std::string, fields> ports;
        for (const netperm_table *table : before.tables)
            for (const table_rule &rule : table->rules)
                for (const std::string &proxy : is_listed(del_plug_attrs, rule.attribute) ? rule.names : strings()) {
                    std::string_view text = rule.text, was = take_word(text);
                    const Frag *now = is_no_proxy(proxy) ? nullptr : result.record("def_proxy", proxy);
                    std::string is = value_of(now, "bind-port");
                    skip_blank(text);
                    if (now && !was.empty() && (is != was || !text.empty()))
                        ports[proxy].emplace_back(
                            format("port {}{}{}", was, text.empty() ? "" : " to ", text),
                            format("{} now, in {}:{}", is.empty() ? "none" : is, table->name, rule.line));
                }
        for (const auto &[proxy, lost] : ports)
            enter("port", proxy, lost,
                  "{} had a port that is not taken over as it was: enter it again, if it is still wanted", proxy);
    }

    // Several destination rules of one proxy stand in another order, and some become no record.
    void list_destinations() {
        std::map<std::string, fields> records, left;
        std::map<std::string, std::set<std::string>> kinds;
        for (const Frag *record : result.children("dest")) {
            std::string from = value_of(record, "desc"), made = value_of(record, "pd") == "D" ? "deny " : "permit ";
            size_t end = from.find("_destination_");
            if (end == from.npos || !has_prefix(from.c_str(), "def_proxy_"))
                continue;
            std::string proxy = from.substr(10, end - 10);
            records[proxy].emplace_back("record " + clear_name(record), made + value_of(record, "dest"));
            kinds[proxy].insert(made);
        }
        for (const auto &[proxy, made] : records)
            if (kinds[proxy].size() > 1)
                enter("destination", proxy, made,
                      "the destinations of {} stand in dest with the last line of the table first: does one decide now "
                      "that stood behind another?",
                      proxy);
        // Two of them can differ by their prefix alone, which only the lines show.
        for (const conf_line &line : result.lines)
            if (const Frag *node = line.role == line_role::setting ? line.node : nullptr, *sets = at_depth(node, 3);
                node && node == at_depth(node, 5) && is_named(node, "destination") && is_named(sets, "config-sets"))
                left[clear_name(sets->parent)].emplace_back(
                    format("{}: {}destination", clear_name(node->parent), prefix_of(line.bits)), line.value);
        for (const auto &[proxy, kept] : left)
            enter("destination", proxy, kept,
                  "destinations of policies' templates that {} uses became no record of dest: enter them, if they are "
                  "to hold",
                  proxy);
    }

    void list_brought() {
        std::set<std::string> brought, decided; // maps, and proxies
        std::set<long> wider;
        strings idle;
        for (const Frag *map : init->children("map"))
            brought.insert(record_text(map));
        for (const Frag *map : old ? old->children("map") : std::vector<Frag *>())
            brought.erase(record_text(map));
        for (const access_row &row : data.access)
            if (row.found != verdict::not_decided)
                decided.insert(row.proxy);
        for (const finding &told : data.findings)
            if (told.id == "wider" && told.after.map)
                wider.insert(*told.after.map);
        for (const Frag *map : result.children("map")) {
            std::string number = clear_name(map), policy = value_of(map, "policy");
            if (!is_digit(*map->name) || value_of(map, "pd") != "P" || !brought.count(record_text(map)))
                continue;
            std::set<std::string> proxies;
            for (const Frag *entry : configuration::children(result.record("policy", policy), "proxy"))
                proxies.insert(entry->value ? owner_of(entry) : clear_name(entry));
            if (!wider.count(decimal(number.c_str())) &&
                std::includes(decided.begin(), decided.end(), proxies.begin(), proxies.end()))
                idle.push_back(number);
            else
                enter("brought", "",
                      {{"source", describe_source(result, value_of(map, "src"))}, {"proxies", joined(proxies)}},
                      "map {} permits by the policy {}, which the initial environment alone brought: is that wanted?",
                      number, policy);
        }
        if (!idle.empty())
            enter("brought", "", {}, "maps that the initial environment brought, and that let nobody new in: {}",
                  joined(idle));
    }

    // Values that the initial environment replaced; what the release replaces in both of them alike is no loss.
    void list_lost_values() {
        strings keys{"authenticate"};
        for (const char *const *key = force_list; *key; key++)
            keys.push_back(*key);
        std::set<std::string> programs; // of the new release
        for (const Frag *proxy : init->children("def_proxy"))
            programs.insert(value_of(proxy, "proxy-exec"));
        for (const Frag *proxy : old->children("def_proxy")) {
            std::string name = shown_name(proxy);
            const Frag *now = result.record("def_proxy", name), *other = init->record("def_proxy", name);
            fields lost;
            for (const std::string &key : now ? keys : strings()) {
                std::string was = value_of(proxy, key.c_str()), is = value_of(now, key.c_str());
                bool by_release = false;
                for (const program_rec *row = program_tab; row->type; row++)
                    by_release = by_release || is == row->exec;
                bool is_own = !programs.count(was); // of a proxy that the initial environment has not
                if (!was.empty() && was != is &&
                    (by_release ? (other ? was != value_of(other, key.c_str()) : is_own) : other || name == "sql-px"))
                    lost.emplace_back(key, format("{}, {}{}", was, is.empty() ? "gone now" : "now " + is,
                                                  by_release ? " by the release" : ""));
            }
            if (!lost.empty())
                enter("lost-value", name, lost, "{} lost values to the new release", name);
        }
    }

    // The sheet: the lines of an import that are not in the result, by entries in the order in which one enters them.
    void list_sheet(const configuration &import) {
        std::set<long> dropped;
        for (const line_fate &line : data.lines)
            if (data.files[line.file].name == import.name && !line.result_line && line.became != fate::kept &&
                line.reason != said_twice)
                dropped.insert(line.line);
        std::unordered_map<const Frag *, long> first_lines;
        std::map<std::tuple<std::string_view, long, const Frag *>, fields> entries; // by families and these
        for (const conf_line &line : import.lines) {
            const Frag *node = dropped.count(line.line) ? line.node : nullptr, *family = at_depth(node, 0),
                       *entry = at_depth(node, family && is_named(family, "def") ? 2 : 1);
            if (!node || !family || !entry)
                continue;
            fields &lost = entries[{family->name, first_lines.try_emplace(entry, line.line).first->second, entry}];
            if (is_named(family, "policy") && is_named(node->parent, "proxy"))
                lost.emplace_back("proxy", format("{}, config set {}", node->value ? node->value : "none that is known",
                                                  clear_name(node)));
            else if (node != entry && line.role == line_role::setting && !is_named(node->parent, "config-sets") &&
                     (node->parent != entry || !is_named(node, "name")))
                lost.emplace_back(label_of(node, entry), value_of(node));
        }
        bool has_maps = false;
        for (const auto &[key, lost] : entries) {
            const auto &[family, line, entry] = key;
            std::string name = clear_name(entry);
            has_maps = has_maps || (family == "map" && is_digit(name[0]));
            if (family == "def" && !lost.empty())
                enter("proxy", name, lost, "enter again what {} had", name == "global" ? "*" : name);
            else if (family == "policy")
                enter("policy", "", lost, "enter the policy {} again", name);
        }
        // All of them, also those that the initial environment brings: the first that covers a host decides.
        fields maps;
        for (const Frag *map : has_maps ? import.children("map") : std::vector<Frag *>())
            if (std::string made = value_of(map, "pd"); is_digit(*map->name) && (made == "P" || made == "D"))
                maps.emplace_back(clear_name(map), format("{} {} {} {}", made == "P" ? "permit" : "deny",
                                                          describe_source(import, value_of(map, "src")),
                                                          made == "P" ? "by the policy" : "for",
                                                          value_of(map, made == "P" ? "policy" : "proxy")));
        if (!maps.empty())
            enter("maps", "", maps, "enter the maps again in this order, ahead of those that are there");
    }
};

} // namespace

std::set<std::string> switched(const configuration *conf, bool on) {
    std::set<std::string> proxies;
    if (!conf)
        return proxies;
    for (const Frag *proxy : conf->children("def_proxy"))
        if (std::string state = value_of(proxy, "state"); !state.empty() && says_yes(state) == on)
            proxies.insert(shown_name(proxy));
    const maprec *services = services_of(*conf);
    for (const Frag *service : conf->children("proxy"))
        if (const maprec *row = find_maprec(services, &maprec::service, clear_name(service).c_str());
            row && says_yes(text_of(service)) == on && !same_text(row->proxy, "NOT_DEF"))
            proxies.insert(row->proxy);
    return proxies;
}

void list_todo(const upgrade_command &command, loaded_files &files, const configuration &result,
               const access_side &before, review_data &data) {
    list_maker list{command, files, result, before, data};
    list.list_off();
    list.list_on();
    if (!before.tables.empty()) {
        list.list_administration();
        list.list_ports();
    }
    if (data.release < 40)
        list.list_destinations();
    if (list.init)
        list.list_brought();
    if (list.init && list.old_states && list.imports.empty())
        list.list_lost_values();
    for (const std::string &import : list.imports)
        list.list_sheet(*files.conf(import));
}
