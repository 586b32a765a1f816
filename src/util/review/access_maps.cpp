// Configurations, read for their maps and for what the maps refer to.
//
// A record is numbered if it has a name of its own (`netobj_list_3_name`), else its key names it
// (`netobj_list_inside`).
#include "access_maps.h"

#include "fragment_lines.h"
#include "nsym.h"

#include <algorithm>
#include <cstdlib>
#include <set>
#include <tuple>

namespace {

/// The keys below one record, as they came.
struct raw_record {
    struct field {
        std::string key, value;
        long line;
    };
    std::string label;
    std::vector<field> fields;
    long line = 0;

    /// The value that the last assignment left, empty if there is none.
    std::string value(std::string_view key) const {
        for (size_t i = fields.size(); i-- > 0;)
            if (fields[i].key == key && !fields[i].value.empty())
                return fields[i].value;
        return "";
    }
    bool has(std::string_view key) const {
        return std::any_of(fields.begin(), fields.end(), [&](const field &each) { return each.key == key; });
    }
};

struct raw_family {
    std::string_view prefix;
    std::vector<raw_record> records;
    std::unordered_map<std::string, size_t> index;
    size_t last = 0; // the record of the line before

    explicit raw_family(std::string_view key_prefix) : prefix(key_prefix) {}

    void take(assignment &made);
};

void raw_family::take(assignment &made) {
    size_t end = std::min(made.key.find('_', prefix.size()), made.key.size());
    std::string_view label = std::string_view(made.key).substr(prefix.size(), end - prefix.size());
    if (last == records.size() || records[last].label != label) { // neighbouring lines mostly share a record
        auto [found, added] = index.emplace(label, records.size());
        last = found->second;
        if (added) {
            records.emplace_back();
            records.back().label = label;
            records.back().line = made.line;
        }
    }
    records[last].fields.push_back(
        {made.key.substr(std::min(end + 1, made.key.size())), std::move(made.value), made.line});
}

// Numbers come by their value, whatever else stands in a key's place behind them.
std::tuple<bool, size_t, std::string_view> number_order(std::string_view label) {
    bool is_number = !label.empty() && label.find_first_not_of("0123456789") == std::string_view::npos;
    if (is_number)
        label.remove_prefix(std::min(label.size(), label.find_first_not_of('0')));
    return {!is_number, is_number ? label.size() : 0, label};
}

template <typename labelled> void sort_by_number(std::vector<labelled> &all) {
    std::sort(all.begin(), all.end(), [](const labelled &a, const labelled &b) {
        auto left = number_order(a.label), right = number_order(b.label);
        return left != right ? left < right : a.line < b.line;
    });
}

/// One numbered part of a record, such as an element of a list, with the fields that were asked for.
struct numbered_part {
    std::string label;
    std::vector<std::string> values;
    long line = 0;
};

/// The parts `<kind>_<label>_<field>` of a record in numeric order. The field "" stands for the part's own value.
std::vector<numbered_part> parts_of(const raw_record &record, const std::string &kind,
                                    const std::vector<std::string> &fields) {
    std::vector<numbered_part> parts;
    std::unordered_map<std::string, size_t> index;
    for (const raw_record::field &field : record.fields) {
        if (field.key.compare(0, kind.size(), kind) != 0 || field.key.size() <= kind.size() ||
            field.key[kind.size()] != '_')
            continue;
        std::string rest = field.key.substr(kind.size() + 1);
        size_t end = std::min(rest.find('_'), rest.size());
        std::string label = rest.substr(0, end);
        std::string name = rest.substr(std::min(end + 1, rest.size()));
        auto wanted = std::find(fields.begin(), fields.end(), name);
        if (wanted == fields.end())
            continue;
        auto [found, added] = index.emplace(label, parts.size());
        if (added)
            parts.push_back({label, std::vector<std::string>(fields.size()), field.line});
        if (!field.value.empty())
            parts[found->second].values[static_cast<size_t>(wanted - fields.begin())] = field.value;
    }
    sort_by_number(parts);
    return parts;
}

template <typename part> typename named_records<part>::record named(const raw_record &raw) {
    typename named_records<part>::record made;
    made.name = raw.value("name");
    made.from_key = !raw.has("name");
    if (made.from_key)
        made.name = decoded_name(raw.label);
    return made;
}

struct configuration {
    access_side &side;
    raw_family lists{"netobj_list_"}, groups{"netobj_group_"}, policies{"policy_"}, proxies{"def_proxy_"},
        custom{"cust_proxy_"}, maps{"map_"};
    std::unordered_map<std::string, std::vector<std::string>> owners; // of config sets, by their names

    explicit configuration(access_side &target) : side(target) {}

    bool read(const char *path);
    void add_lists();
    void add_proxies();
    void add_set(const std::string &proxy, const std::string &set);
    void add_custom();
    void add_policies();
    void add_maps();
    std::vector<std::string> proxies_of(const access_map &map) const;
};

bool configuration::read(const char *path) {
    std::vector<assignment> assignments;
    if (!read_assignments(path, assignments))
        return false;
    for (assignment &made : assignments)
        for (raw_family *family : {&lists, &groups, &policies, &proxies, &custom, &maps})
            if (made.key.compare(0, family->prefix.size(), family->prefix) == 0) {
                family->take(made);
                break;
            }
    return true;
}

void configuration::add_lists() {
    for (const raw_record &raw : lists.records) {
        auto list = named<list_element>(raw);
        for (numbered_part &part : parts_of(raw, "element", {"addr"}))
            list.parts.push_back({std::move(part.values[0]), part.line});
        side.lists.add(std::move(list));
    }
    for (const raw_record &raw : groups.records) {
        auto group = named<group_member>(raw);
        for (numbered_part &part : parts_of(raw, "member", {"type", "name"}))
            group.parts.push_back({std::move(part.values[0]), std::move(part.values[1]), part.line});
        side.groups.add(std::move(group));
    }
}

std::string set_key(const std::string &proxy, const std::string &set) { return proxy + '\0' + set; }

void configuration::add_set(const std::string &proxy, const std::string &set) {
    if (side.sets.try_emplace(set_key(proxy, set)).second)
        owners[set].push_back(proxy);
}

void configuration::add_proxies() {
    const std::string sets = "config-sets_";
    for (const raw_record &raw : proxies.records) {
        std::string proxy = raw.value("realname");
        if (proxy.empty())
            proxy = decoded_name(raw.label);
        if (proxy != "*" && proxy != "global")
            side.add_proxy(proxy);
        for (const raw_record::field &field : raw.fields) {
            if (field.key.compare(0, sets.size(), sets) != 0)
                continue;
            size_t end = std::min(field.key.find('_', sets.size()), field.key.size());
            std::string set = decoded_name(std::string_view(field.key).substr(sets.size(), end - sets.size()));
            add_set(proxy, set);
            std::string parameter =
                parameter_name(decoded_name(std::string_view(field.key).substr(std::min(end + 1, field.key.size()))));
            auto known = side.sets[set_key(proxy, set)].try_emplace(parameter, field.value).first;
            if (!field.value.empty())
                known->second = field.value;
        }
    }
}

void configuration::add_custom() {
    const std::string parms = "parm_", value = "value";
    for (const raw_record &raw : custom.records) {
        std::string proxy = raw.value("realname");
        std::string set = raw.has("name") ? raw.value("name") : decoded_name(raw.label);
        // Without an owner it is one of a proxy that is called like it.
        if (proxy.empty())
            proxy = set;
        if (proxy != "*" && proxy != "global")
            side.add_proxy(proxy);
        add_set(proxy, set);
        auto &parameters = side.sets[set_key(proxy, set)];
        std::unordered_map<std::string, std::string> names; // of parameters, by their number
        for (numbered_part &part : parts_of(raw, "parm", {"name"}))
            names[part.label] = parameter_name(part.values[0]);
        // What is deeper than a list of numbers has the rest of its name in the key, behind `value`.
        for (const raw_record::field &field : raw.fields) {
            size_t label = parms.size(), end = field.key.find('_', label);
            if (field.key.compare(0, label, parms) != 0 || end == std::string::npos ||
                field.key.compare(end + 1, value.size(), value) != 0)
                continue;
            auto name = names.find(field.key.substr(label, end - label));
            std::string rest = field.key.substr(end + 1 + value.size());
            if (name != names.end() && (rest.empty() || rest[0] == '_'))
                parameters[name->second + decoded_name(rest)] = field.value;
        }
    }
}

void configuration::add_policies() {
    for (const raw_record &raw : policies.records) {
        auto policy = named<policy_entry>(raw);
        for (numbered_part &part : parts_of(raw, "proxy", {"", "name"})) {
            policy_entry entry;
            entry.set = part.values[1].empty() ? decoded_name(part.label) : part.values[1];
            if (!part.values[0].empty())
                entry.proxies.push_back(std::move(part.values[0]));
            else if (auto found = owners.find(entry.set); found != owners.end())
                entry.proxies = found->second;
            policy.parts.push_back(std::move(entry));
        }
        // The last that is read stands at the head of its list, where a name is looked for first.
        side.policies.add_in_front(std::move(policy));
    }
}

// The proxies that a map concerns, `*` for all.
std::vector<std::string> configuration::proxies_of(const access_map &map) const {
    if (!map.permit)
        return {map.proxy};
    std::set<std::string> concerned;
    if (const auto *policy = map.has_policy ? side.policies.find(map.policy) : nullptr)
        for (const policy_entry &entry : policy->parts)
            concerned.insert(entry.proxies.begin(), entry.proxies.end());
    return {concerned.begin(), concerned.end()};
}

void configuration::add_maps() {
    constexpr std::string_view group_source = "$$NETOBJ.";
    for (const raw_record &raw : maps.records) {
        std::string pd = raw.value("pd");
        if (pd != "P" && pd != "D")
            continue;
        access_map map;
        map.label = raw.label;
        map.number = strtol(raw.label.c_str(), nullptr, 10);
        map.permit = pd == "P";
        map.has_policy = raw.has("policy");
        map.policy = raw.value("policy");
        map.proxy = raw.value("proxy");
        map.source = raw.value("src");
        if (map.source.compare(0, group_source.size(), group_source) == 0)
            map.group = map.source.substr(group_source.size());
        map.line = raw.line;
        side.maps.push_back(std::move(map));
    }
    sort_by_number(side.maps);
    for (size_t i = 0; i < side.maps.size(); i++)
        for (const std::string &proxy : proxies_of(side.maps[i])) {
            side.maps_of[proxy].push_back(i);
            if (proxy != "*" && !proxy.empty())
                side.add_proxy(proxy);
        }
}

} // namespace

bool read_access_maps(const char *path, access_side &side) {
    configuration made(side);
    if (!made.read(path))
        return false;
    side.map_file = side.files.size();
    side.files.emplace_back(path);
    made.add_lists();
    made.add_proxies();
    made.add_custom();
    made.add_policies();
    made.add_maps();
    return true;
}
