// Where each rule of a table stands in a result: as an element of a map's source, as a parameter, as a destination.
#include "lines/place_table.h"
#include "netperm.h"

#include <algorithm>
#include <cstring>
#include <fmt/ranges.h>
#include <optional>
#include <utility>

using fmt::format;

namespace {

std::string slot_key(std::string_view attribute, std::string_view text, std::string_view slot) {
    return std::string(attribute) + '\0' + std::string(slot) + '\0' + std::string(text);
}

} // namespace

void rule_placer::note(size_t number, const Frag *frag, std::string reason) {
    account_line &line = all.lines[number];
    if (!line.place) {
        line.place = frag;
        line.turned = false;
        if (own) {
            line.became = fate::reshaped;
            line.candidate = false;
            line.reason = std::move(reason);
        }
    }
    result.valued.add(frag, number);
    if (result.from.at(frag) == NO_LINE)
        result.claim(frag, number);
}

// A parameter of several values is a list of numbered children.
void rule_placer::index_parameters(const Frag *entry) {
    for (const Frag *parameter = entry->child; parameter; parameter = parameter->next) {
        auto add = [&](const Frag *frag, const char *slot) {
            if (frag->value)
                parameters.emplace(slot_key(parameter->name, text_of(frag), slot), frag);
        };
        add(parameter, "");
        for (const Frag *child = parameter->child; child && is_digit(child->name[0]); child = child->next)
            add(child, child->name);
    }
}

void rule_placer::index_result() {
    for (const account_line &line : all.lines)
        for (size_t r = 0; all.inputs[line.input].table && r < line.rules; r++)
            for (const std::string &name : all.rule(line, r).names)
                if (begins(name, "policy-"))
                    templated[{line.input, name}];
    for (const Frag *proxy : result.conf.children("def_proxy")) {
        index_parameters(proxy);
        for (const Frag *set : configuration::children(proxy, "config-sets"))
            index_parameters(set);
    }
    for (const conf_line &line : result.conf.lines)
        if (auto twin = result.doubles.find(&line); twin != result.doubles.end())
            parameters.emplace(slot_key(twin->second.name, line.value, ""), &twin->second);
    for (const Frag *record : result.conf.children("dest"))
        records.emplace(configuration::value(record, "dest"), record);
}

void rule_placer::tell_lost(size_t number, std::string text) {
    if (result.installed)
        all.tell_some("lost", std::move(text), all.lines[number]);
}

namespace {

bool has_template(const table_rule &rule) {
    return std::any_of(rule.names.begin(), rule.names.end(),
                       [](const std::string &name) { return begins(name, "policy-"); });
}

// How many times a rule can give something to a proxy, or to the config sets of a template.
std::ptrdiff_t times_for(const table_rule &rule, const std::string &name) {
    return std::count_if(rule.names.begin(), rule.names.end(),
                         [&](const std::string &each) { return each == name || each[0] == '*' || each == "global"; });
}

} // namespace

// Each proxy that a rule is for, and each config set that its template went into, has what the rule says; but for what
// a proxy has no use for, and what only the first such rule gives.
void rule_placer::tell_missing(size_t number, const table_rule &rule, const std::set<std::string> &owners) {
    auto has_name = [&](auto is_it) { return std::any_of(rule.names.begin(), rule.names.end(), is_it); };
    bool is_template = has_template(rule), to_all = has_name([](const std::string &name) { return name[0] == '*'; });
    bool to_global = to_all || has_name([](const std::string &name) { return name == "global"; }), is_copied = true;
    int need = is_template && rule.attribute == "password" ? NEEDS_AUTH : 0;
    for (const needed_attr_rec *row = needed_attr_tab; row->attribute; row++)
        need = rule.attribute == row->attribute ? row->need : need;
    for (const global_word_rec *row = global_word_tab; row->word; row++) {
        to_all = to_all && rule.word != row->word; // kept for all alone, and by those that come later
        is_copied = is_copied && (row->inherited || rule.attribute != row->word);
    }
    bool is_gateway = rule.attribute == "xgateway",
         is_closed = is_gateway && split_hosts(rule.text).hosts[0].substr(0, 1) != "*"; // no config set takes it
    // What only the first rule gives is asked for once.
    std::string first =
        need == 0 ? "" : format("{} {} {}", all.lines[number].input, rule.attribute, fmt::join(rule.names, " "));
    if ((is_template && is_closed) || (need == 0 ? owners.empty() : !asked.insert(std::move(first)).second))
        return;
    // What all have, those have, too, that the table names later for the first time.
    std::set<std::string> names(rule.names.begin(), rule.names.end());
    const access_side &before = all.in.before;
    uint32_t input = all.lines[number].input;
    for (size_t i = 0; to_global && i < before.tables.size(); i++)
        for (const auto &[name, rules] : before.filed[i])
            if (before.tables[i] == all.inputs[input].table &&
                (before.tables[i]->rules.data() + rules.first > &rule ? is_copied : to_all))
                names.insert(name);
    std::vector<const Frag *> wanted;
    for (const std::string &name : names) {
        // No config set takes `proxy` from a template.
        auto known = rule.attribute == "proxy" || is_closed ? templated.end() : templated.find({input, name});
        if (known != templated.end())
            wanted.insert(wanted.end(), known->second.begin(), known->second.end());
        if (const Frag *proxy = result.conf.record("def_proxy", name);
            proxy && !is_no_proxy(name) && !is_dropped_proxy(name, all.data.release) &&
            (rule.attribute != "proxy-exec" || (name != "sql-px" && !has_program(all, name))))
            wanted.push_back(proxy);
    }
    for (const Frag *owner : wanted) {
        std::string of = clear_name(at_depth(owner, 2));
        if (all.logs_in && rule.attribute == "state" && begins(of, "svcgrd-"))
            continue; // network_loginok switches it on
        bool is_password = at_depth(owner, 4) && rule.attribute == "password";
        bool has_first = (need != 0 || is_password) && child_of(owner, storedname(rule.attribute).c_str());
        int use = is_password ? NEEDS_AUTH : is_gateway && at_depth(owner, 4) ? NEEDS_X : need;
        if (!has_first && (use == 0 || proxy_needs(of.c_str(), use)) && owners.count(place_keys::path(owner)) == 0)
            tell_lost(number, format("{}: {} {} stands nowhere there", clear_name(owner), rule.word, rule.text));
    }
}

// Any of the proxies that a rule is for, or any config set that a template went into, will do.
void rule_placer::place_attribute(size_t number, const table_rule &rule) {
    std::set<std::string> owners; // the proxies and config sets that have what the rule says
    auto place = [&](const std::string &name, long prefix, const std::string &slot, bool is_first) {
        for (auto [at, end] = parameters.equal_range(slot_key(name, rule.text, slot)); at != end; ++at) {
            const Frag *frag = at->second, *proxy = at_depth(frag, 2),
                       *set = at_depth(frag, 5) ? at_depth(frag, 4) : nullptr;
            auto from = template_of.find(set);
            bool is_of_input = !set || (from != template_of.end() && from->second.first == all.lines[number].input);
            auto times = !is_of_input ? 0 : times_for(rule, set ? from->second.second : clear_name(proxy));
            if (times == 0)
                continue;
            std::string owner = place_keys::path(set ? set : proxy);
            // Who has it under its own number has another rule under the first, unless the line names it twice.
            if (is_first && times == 1 && all.in.before.tables.size() == 1 && owners.count(owner) != 0)
                continue;
            owners.insert(std::move(owner));
            if (same_prefix(prefix, result.keys.find(frag).bits))
                note(number, frag, "as " + place_keys::path(frag));
            else
                turned.emplace_back(number, frag);
        }
    };
    // A prefix that the table's reader left on is one to whoever reads the result; not so in the name of a list.
    const std::string stored = storedname(rule.attribute), attribute = prefix_of(rule.bits) + stored,
                      unit = std::to_string(rule.unit);
    const char *bare = attr_remap(attribute.c_str());
    long bits = take_prefixes(&bare);
    const std::map<std::string, long> forms = {{bare, bits}, {stored, rule.bits}};
    // A rule stands under its line's number, the first of its attribute under 0 or 1.
    for (const char *slot : {unit.c_str(), "0", "1", ""}) {
        bool is_first = is_digit(*slot) && slot != unit.c_str();
        if (is_first && slot == unit)
            continue;
        for (const auto &[name, prefix] : forms)
            place(name, prefix, slot, is_first);
        // A numbered save makes names of their own of a list's whose name has a `_`.
        if (*slot && stored.find("%5F") != stored.npos)
            place(stored + "%5F" + slot, rule.bits, "", is_first);
    }
    if (rule.attribute == "destination")
        place_destination(number, rule, owners);
    tell_missing(number, rule, owners);
}

// A destination is a record whose description leads to its rule.
void rule_placer::place_destination(size_t number, const table_rule &rule, std::set<std::string> &owners) {
    std::string_view text = rule.text;
    for (std::string_view marker : {"%-permit%", "%-deny%"})
        if (text.substr(0, marker.size()) == marker)
            text.remove_prefix(marker.size());
    auto [begin, end] = records.equal_range(std::string(text));
    for (auto at = begin; at != end; ++at) {
        std::string desc = configuration::value(at->second, "desc"), tail = desc.substr(desc.find_last_of("_-") + 1);
        if (tail != "destination" && tail != "1" && tail != std::to_string(rule.unit))
            continue;
        std::string_view above = std::string_view(desc).substr(0, desc.rfind('_'));
        std::string service = tail == "destination" ? decoded_name(above.substr(above.rfind('_') + 1)) : "destination";
        constexpr size_t before_name = 10; // "def_proxy_"
        std::string_view owner = above.substr(std::min(above.size(), before_name));
        if (configuration::value(at->second, "service") != service || configuration::value(at->second, "pg") != "P" ||
            (!has_template(rule) && times_for(rule, decoded_name(owner.substr(0, owner.find('_')))) == 0))
            continue;
        bool denies = text.size() < rule.text.size() ? rule.text[2] == 'd' : (rule.bits & ATTR_DENY) != 0;
        if (configuration::value(at->second, "pd") == (denies ? "D" : "P") &&
            desc.substr(desc.rfind('_') + 1) == prefix_of(rule.bits) + tail)
            note(number, at->second, "as record " + clear_name(at->second) + " of dest");
        owners.emplace(tail == "destination" ? above : above.substr(0, above.rfind('_')));
    }
}

// What no rule says with the prefix that it has there is that of a rule with another.
void rule_placer::take_turned() {
    for (auto [number, frag] : turned) {
        account_line &line = all.lines[number];
        if (size_t by = result.valued.at(frag); by != NO_LINE && (line.place || !all.lines[by].said))
            continue;
        bool is_placed = line.place != nullptr;
        note(number, frag, "with another prefix");
        line.turned = line.turned || !is_placed;
        finding *told =
            is_placed && result.installed ? all.tell_some("turned", turned_text(line, frag), line) : nullptr;
        if (told)
            told->result = {all.in.result.name, result.conf.line_of(frag)};
    }
}

// The destinations of one proxy are records from its last rule to its first.
void rule_placer::check_destinations() {
    std::map<long, std::string> by_number;
    for (const Frag *record : result.conf.children("dest"))
        by_number.emplace(strtol(record->name, nullptr, 10), configuration::value(record, "desc"));
    std::map<std::string, long> last; // rules, by what stands in front of their numbers
    for (const auto &[number, desc] : by_number) {
        std::string above = desc.substr(0, desc.rfind('_'));
        long rule = strtol(desc.c_str() + desc.find_last_not_of("0123456789") + 1, nullptr, 10);
        auto [known, is_first] = last.emplace(above, rule);
        if (rule > 0 && !is_first && std::exchange(known->second, rule) <= rule)
            all.tell_some("unexplained", format("record {} of dest stands in another order", number),
                          all.in.result.name, 0);
    }
}

// The maps of a proxy that the release removes are left, and a numbered result does not say whose their config sets
// were: the names of these tell.
static std::optional<access_side> with_removed(const accounting &all, const access_side &side) {
    std::vector<std::string> removed;
    for (const std::string &proxy : all.in.before.proxies)
        if (is_dropped_proxy(proxy, all.data.release) && all.in.command.numbered())
            removed.push_back(proxy);
    std::multimap<std::string, std::string> owners; // of config sets that a policy lists, by the policy
    for (const Frag *policy : removed.empty() ? std::vector<Frag *>() : side.conf->children("policy"))
        for (const Frag *entry : configuration::children(policy, "proxy"))
            for (const std::string &proxy : removed)
                if (owner_of(entry).empty() && (clear_name(entry) == proxy || begins(clear_name(entry), proxy + '-')))
                    owners.emplace(clear_name(policy), proxy);
    std::optional<access_side> made;
    for (size_t i = 0; !owners.empty() && i < side.maps.size(); i++)
        for (auto [at, end] = owners.equal_range(side.maps[i].policy); side.maps[i].permit && at != end; ++at)
            (made ? *made : made.emplace(side)).maps_of[at->second].push_back(i);
    return made;
}

void place_table_lines(accounting &all, result_places &result, const access_side &side, bool own) {
    std::optional<access_side> more = with_removed(all, side);
    rule_placer placer{all, result, more ? *more : side, own};
    for (account_line &line : all.lines) {
        if (all.inputs[line.input].table) {
            line.place = nullptr;
            line.turned = false;
            line.candidate = own || line.candidate;
        }
    }
    placer.index_result();
    placer.place_hosts();
    for (size_t i = 0; i < all.lines.size(); i++)
        for (size_t r = 0; all.inputs[all.lines[i].input].table && r < all.lines[i].rules; r++)
            if (const table_rule &rule = all.rule(all.lines[i], r); rule.attribute != "hosts")
                placer.place_attribute(i, rule);
    placer.take_turned();
    if (result.installed && all.in.before.tables.size() == 1)
        placer.check_destinations();
}
