// Proxies that are off now, permits that nobody asked for, and the sheet of what was removed or replaced.
#include "todo_list.h"
#include "frag_tools.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <map>

using fmt::format;

namespace {

const char group_mark[] = "$$NETOBJ.";

todo_item &enter(review_data &data, const char *id, std::string text, const std::string &proxy = "") {
    todo_item &item = data.todo.emplace_back();
    item.id = id;
    item.text = std::move(text);
    item.proxy = proxy;
    return item;
}

Frag *find_proxy(canonical_conf &conf, const std::string &name) {
    return ffind2(conf.db(), "def_proxy", storedname(name).c_str());
}

// The children of a family in the order of the file.
std::vector<Frag *> in_file_order(canonical_conf &conf, const char *family) {
    std::vector<Frag *> entries = sorted_children(conf.db(), family);
    std::stable_sort(entries.begin(), entries.end(), [&](Frag *a, Frag *b) {
        return conf.line_of(family, clear_name(a)) < conf.line_of(family, clear_name(b));
    });
    return entries;
}

std::string describe_source(canonical_conf &conf, const std::string &source) {
    std::string name = has_prefix(source.c_str(), group_mark) ? source.substr(strlen(group_mark)) : source;
    std::vector<std::string> addresses = source_addresses(conf.db(), source);
    return format("{} ({})", name, addresses.empty() ? "no addresses" : fmt::to_string(fmt::join(addresses, ", ")));
}

// A parameter in clear, as the numbered layout names it: list parameters with their number, prefixes in front.
std::string parameter_name(Frag *list, Frag *node) {
    std::string prefix = attr_prefix(node->attr);
    std::string name = list ? clear_name(list) + "_" : "";
    Frag bare = *node;
    bare.attr = 0;
    if (const char *as_written = attr_revmap(node->name); as_written != node->name)
        return as_written;
    return prefix + name + clear_name(&bare);
}

using fields = std::vector<std::pair<std::string, std::string>>;

// All parameters below a proxy or config set. With `unless` only those that it has not with the same value.
void add_parameters(Frag *entry, const std::string &in_front, Frag *unless, fields &into) {
    sort_frags(&entry->child);
    for (Frag *child = entry->child; child; child = child->next) {
        if (strcmp(child->name, "config-sets") == 0 || strcmp(child->name, "name") == 0)
            continue;
        Frag *twin = unless ? ffind(&unless->child, child->name) : nullptr;
        if (child->value && !(twin && same_text(twin->value, child->value) && twin->attr == child->attr))
            into.emplace_back(in_front + parameter_name(nullptr, child), child->value);
        sort_frags(&child->child);
        for (Frag *inner = child->child; inner; inner = inner->next) {
            Frag *other = twin ? ffind(&twin->child, inner->name) : nullptr;
            if (inner->value && !(other && same_text(other->value, inner->value) && other->attr == inner->attr))
                into.emplace_back(in_front + parameter_name(child, inner), inner->value);
        }
    }
}

Frag *find_set(canonical_conf &conf, const std::string &proxy, const char *set) {
    Frag *owner = find_proxy(conf, proxy);
    return owner ? ffind2(&owner->child, "config-sets", set) : nullptr;
}

// The proxies of a policy with the parameters of their config sets.
void add_policy_proxies(canonical_conf &conf, Frag *policy, fields &into) {
    for (Frag *entry : sorted_children(&policy->child, "proxy")) {
        std::string set = clear_name(entry), proxy = entry->value ? entry->value : "";
        into.emplace_back("proxy", format("{}, config set {}", proxy.empty() ? "none that is known" : proxy, set));
        if (Frag *parameters = find_set(conf, proxy, entry->name))
            add_parameters(parameters, set + ": ", nullptr, into);
    }
}

std::string proxies_of(Frag *policy) {
    std::set<std::string> names;
    for (Frag *entry : sorted_children(&policy->child, "proxy"))
        names.insert(entry->value ? entry->value : clear_name(entry));
    return fmt::to_string(fmt::join(names, ", "));
}

bool is_map(Frag *map) { return map->child && strcmp(map->name, "num") != 0; }

std::string map_meaning(Frag *map) {
    return format("{} {} {} {}", child_value(map, "pd"), child_value(map, "src"), child_value(map, "proxy"),
                  child_value(map, "policy"));
}

// The proxies with parameters that the result has not, and their config sets that no policy names.
void enter_proxies(canonical_conf &conf, canonical_conf &result, review_data &data) {
    std::set<std::string> named;
    for (Frag *policy : sorted_children(conf.db(), "policy")) {
        for (Frag *entry : sorted_children(&policy->child, "proxy"))
            named.insert(std::string(entry->value ? entry->value : "") + " " + entry->name);
    }
    for (Frag *proxy : in_file_order(conf, "def_proxy")) {
        std::string name = clear_name(proxy);
        fields parameters;
        add_parameters(proxy, "", find_proxy(result, name), parameters);
        for (Frag *set : sorted_children(&proxy->child, "config-sets")) {
            if (named.count(name + " " + set->name))
                continue;
            parameters.emplace_back("config set", clear_name(set));
            add_parameters(set, clear_name(set) + ": ", nullptr, parameters);
        }
        if (!parameters.empty())
            enter(data, "proxy", format("enter again what {} had", name == "global" ? "*" : name), name).fields =
                std::move(parameters);
    }
}

void enter_policies(canonical_conf &conf, review_data &data) {
    std::vector<Frag *> maps = sorted_children(conf.db(), "map");
    for (Frag *policy : in_file_order(conf, "policy")) {
        std::string name = clear_name(policy);
        todo_item &item = enter(data, "policy", format("enter the policy {} again", name));
        for (Frag *map : maps) {
            if (is_map(map) && child_value(map, "pd") == "P" && child_value(map, "policy") == name)
                item.fields.emplace_back(format("source, map {}", clear_name(map)),
                                         describe_source(conf, child_value(map, "src")));
        }
        if (item.fields.empty())
            item.fields.emplace_back("source", "none: no map names it");
        add_policy_proxies(conf, policy, item.fields);
        for (Frag *parameter : sorted_children(&policy->child, "parm")) {
            if (parameter->value)
                item.fields.emplace_back(clear_name(parameter), parameter->value);
        }
    }
    fields order;
    for (Frag *map : maps) {
        if (!is_map(map))
            continue;
        bool permits = child_value(map, "pd") == "P";
        order.emplace_back(clear_name(map),
                           format("{} {} {} {}", permits ? "permit" : "deny",
                                  describe_source(conf, child_value(map, "src")), permits ? "by the policy" : "for",
                                  child_value(map, permits ? "policy" : "proxy")));
    }
    if (!order.empty())
        enter(data, "maps", "enter the maps again, in this order").fields = std::move(order);
}

void list_lost_values(canonical_conf &old, canonical_conf &init, canonical_conf &result, review_data &data) {
    for (Frag *proxy : in_file_order(old, "def_proxy")) {
        std::string name = clear_name(proxy);
        Frag *now = find_proxy(result, name);
        if (!now || !find_proxy(init, name))
            continue;
        fields lost;
        for (const char *key : {"authenticate", "bind-port", "proxy-exec", "proxy-type"}) {
            std::string was = child_value(proxy, key), is = child_value(now, key);
            if (!was.empty() && was != is)
                lost.emplace_back(key, is.empty() ? was + ", gone now" : format("{}, now {}", was, is));
        }
        if (!lost.empty())
            enter(data, "lost-value", format("{} lost values to the initial environment", name), name).fields =
                std::move(lost);
    }
}

// The proxies that an old configuration switches on, by themselves or as a service of 4.1.
void add_switched_on(canonical_conf &old, std::set<std::string> &used) {
    for (Frag *proxy : sorted_children(old.db(), "def_proxy")) {
        if (is_on(fval(&proxy->child, "state")))
            used.insert(clear_name(proxy));
    }
    for (Frag *service : sorted_children(old.db(), "proxy")) {
        const maprec *row = find_maprec(determine_os_maprec(old.db()), &maprec::service, clear_name(service).c_str());
        if (row && is_on(service->value) && strcmp(row->proxy, "NOT_DEF") != 0)
            used.insert(row->proxy);
    }
}

void list_switched_off(canonical_conf &result, const std::set<std::string> &used, review_data &data) {
    for (const std::string &name : used) {
        Frag *proxy = find_proxy(result, name);
        const char *state = proxy ? fval(&proxy->child, "state") : nullptr;
        if (!proxy)
            enter(data, "off", format("{} was in use and is gone", name), name);
        else if (!is_on(state))
            enter(data, "off", format("{} was in use and {}", name, state ? "is off now" : "has no state now"), name);
    }
}

void list_brought_permits(canonical_conf &old, canonical_conf &init, canonical_conf &result, review_data &data) {
    std::set<std::string> old_maps, init_maps;
    for (Frag *map : sorted_children(old.db(), "map"))
        old_maps.insert(map_meaning(map));
    for (Frag *map : sorted_children(init.db(), "map"))
        init_maps.insert(map_meaning(map));
    for (Frag *map : sorted_children(result.db(), "map")) {
        if (!is_map(map) || child_value(map, "pd") != "P" || !init_maps.count(map_meaning(map)) ||
            old_maps.count(map_meaning(map)))
            continue;
        std::string policy = child_value(map, "policy");
        todo_item &item = enter(data, "brought",
                                format("map {} permits by the policy {}, which the initial "
                                       "environment alone brought: is that wanted?",
                                       clear_name(map), policy));
        item.fields.emplace_back("source", describe_source(result, child_value(map, "src")));
        if (Frag *node = ffind2(result.db(), "policy", storedname(policy).c_str()))
            item.fields.emplace_back("proxies", proxies_of(node));
    }
}

// The file whose network_loginok decides, or an empty text unless it switches the services on.
std::string login_setting(const upgrade_command &command, const review_data &data) {
    std::string file, setting;
    size_t merges = 0;
    for (const upgrade_step &step : command.steps) {
        std::vector<assignment> lines;
        bool merged = step.letter == 'm' && (data.release != 55 || merges++ == 0);
        if ((merged || step.letter == 'e') && (file.empty() || step.letter == 'e'))
            read_assignments(step.argument.c_str(), lines);
        for (const assignment &line : lines) {
            if (line.key != "network_loginok")
                continue;
            file = step.argument;
            setting = line.value.empty() ? setting : line.value;
        }
    }
    return lowercase(setting) == "enabled" ? file : "";
}

// The services of the login setting that are on by it alone.
void list_switched_on(const upgrade_command &command, canonical_conf &old, canonical_conf &result, review_data &data) {
    std::string file = login_setting(command, data);
    fields services;
    for (const char *name : {"svcgrd-telnetd", "svcgrd-ftpd", "svcgrd-rlogind"}) {
        Frag *was = data.release < 40 || file.empty() ? nullptr : find_proxy(old, name);
        Frag *now = file.empty() ? nullptr : find_proxy(result, name);
        const char *state = was ? fval(&was->child, "state") : nullptr;
        if (now && is_on(fval(&now->child, "state")) && !is_on(state))
            services.emplace_back(name, state ? format("on, was {}", state) : "on, had no state");
    }
    if (!services.empty())
        enter(data, "on", format("network_loginok=enabled in {} switches network login on: is that wanted?", file))
            .fields = std::move(services);
}

// Tells of several destination rules of one proxy, whose order is turned around, and of those that are no record.
void list_destinations(canonical_conf &result, review_data &data) {
    std::map<std::string, fields> records;
    std::vector<std::string> order;
    for (Frag *record : sorted_children(result.db(), "dest")) {
        std::string from = child_value(record, "desc");
        size_t end = from.find("_destination_");
        if (end == from.npos || !has_prefix(from.c_str(), "def_proxy_"))
            continue;
        std::string proxy = from.substr(strlen("def_proxy_"), end - strlen("def_proxy_"));
        auto [known, fresh] = records.try_emplace(proxy);
        if (fresh)
            order.push_back(proxy);
        known->second.emplace_back(
            "record " + clear_name(record),
            format("{} {}", child_value(record, "pd") == "D" ? "deny" : "permit", child_value(record, "dest")));
    }
    for (const std::string &proxy : order) {
        fields &made = records[proxy];
        bool denies = std::any_of(made.begin(), made.end(), [](const auto &each) { return each.second[0] == 'd'; });
        bool permits = std::any_of(made.begin(), made.end(), [](const auto &each) { return each.second[0] == 'p'; });
        if (denies && permits)
            enter(data, "destination",
                  format("the destinations of {} stand in dest with the last line of the table first: does one decide "
                         "now that stood behind another?",
                         proxy),
                  proxy)
                .fields = std::move(made);
    }
    // Two of them can differ by their prefix alone, which only the lines show.
    std::map<std::string, fields> left;
    for (const assignment &line : result.lines) {
        size_t sets = line.key.find("_config-sets_"), last = line.key.rfind('_');
        if (!has_prefix(line.key.c_str(), "def_proxy_") || sets == line.key.npos ||
            line.key.compare(last, line.key.npos, "_destination") != 0)
            continue;
        size_t set = sets + strlen("_config-sets_");
        left[line.key.substr(strlen("def_proxy_"), sets - strlen("def_proxy_"))].emplace_back(
            format("{}: {}destination", line.key.substr(set, last - set), attr_prefix(line.attr)), line.value);
    }
    for (auto &[proxy, kept] : left)
        enter(data, "destination",
              format("destinations of policies' templates that {} uses became no record of dest: enter them, if they "
                     "are to hold",
                     proxy),
              proxy)
            .fields = std::move(kept);
}

} // namespace

void list_todo(const upgrade_command &command, canonical_conf &result, const std::set<std::string> &table_proxies,
               review_data &data) {
    std::vector<std::string> imports = step_files(command, 'e');
    canonical_conf old, init;
    std::set<std::string> used = table_proxies;
    const std::string &old_path = imports.empty() ? command.old_conf : imports.front();
    if (!old_path.empty())
        load_canonical(old_path.c_str(), old);
    if (data.release >= 40)
        add_switched_on(old, used);
    list_switched_off(result, used, data);
    list_switched_on(command, old, result, data);
    if (data.release < 40 && !step_files(command, 'n').empty())
        list_destinations(result, data);
    if (data.release != 55 && !command.init_conf.empty() && load_canonical(command.init_conf.c_str(), init)) {
        list_brought_permits(old, init, result, data);
        if (data.release >= 40 && imports.empty())
            list_lost_values(old, init, result, data);
    }
    for (const std::string &path : imports) {
        canonical_conf environment;
        if (!load_canonical(path.c_str(), environment))
            continue;
        enter_proxies(environment, result, data);
        enter_policies(environment, data);
    }
}
