// Where each rule of a table stands in a result: as an element of a map's source, as a parameter, as a destination.
#include "lines/place_table.h"
#include "netperm.h"

#include <climits>
#include <fmt/format.h>
#include <optional>
#include <utility>

using fmt::format;

// What stands with an owner, as the index has it.
static std::string said_text(const std::string &name, const std::string &number, long bits, std::string_view text) {
    return plain_name(name) + number + '\n' + prefix_of(bits) + '\n' + std::string(text);
}

void rule_placer::note(size_t number, const Frag *frag, std::string reason) {
    account_line &line = all.lines[number];
    if (!line.place) {
        line.place = frag;
        line.became = fate::reshaped;
        line.candidate = false;
        line.reason = std::move(reason);
    }
    note_line(result.notes(frag).valued, number);
    if (result.notes(frag).from == NO_LINE)
        result.claim(frag, number);
}

// A parameter of several values is a list of numbered children.
void rule_placer::index_parameters(const Frag *entry) {
    for (const Frag *parameter = entry->child; parameter; parameter = parameter->next) {
        auto add = [&](const Frag *frag, const std::string &number) {
            std::string said = said_text(parameter->name, number, result.keys.find(frag).bits, text_of(frag));
            if (frag->value)
                parameters.emplace(std::pair(entry, std::move(said)), frag);
        };
        add(parameter, "");
        for (const Frag *child = parameter->child; child && is_digit(child->name[0]); child = child->next)
            add(child, std::string("_") + child->name);
    }
}

void rule_placer::index_result() {
    for (const Frag *proxy : result.conf.children("def_proxy")) {
        index_parameters(proxy);
        for (const Frag *set : configuration::children(proxy, "config-sets"))
            index_parameters(set);
    }
    for (const auto &[line, twin] : result.doubles)
        parameters.emplace(std::pair(twin.parent, said_text(twin.name, "", line->bits, line->value)), &twin);
    for (const Frag *record : result.conf.children("dest"))
        records.emplace(configuration::value(record, "desc"), record);
}

void rule_placer::tell_lost(size_t number, std::string text) {
    if (all.inputs[all.lines[number].input].last_step >= all.last_import)
        all.tell_some("lost", std::move(text), all.lines[number]);
}

// Where a rule of that number has to stand, with its prefix. One that the table's reader left on is one to whoever
// reads the result, but for the name of a list.
void rule_placer::place_rule(const Frag *owner, const std::string &attribute, const std::string &number,
                             const filed_rule &of) {
    const std::string written = prefix_of(of.rule->bits) + attribute;
    const char *bare = attr_remap(written.c_str());
    long bits = take_prefixes(&bare);
    auto find = [&](long of_bare, long of_whole) {
        auto at = parameters.find({owner, said_text(bare, number, of_bare, of.rule->text)});
        return at != parameters.end() ? at
                                      : parameters.find({owner, said_text(attribute, number, of_whole, of.rule->text)});
    };
    if (auto at = find(bits, of.rule->bits); at != parameters.end()) {
        note(of.line, at->second, "as " + place_keys::path(at->second));
        if (auto next = std::next(at); next != parameters.end() && next->first == at->first)
            parameters.erase(at); // each rule has a place of its own
        return;
    }
    const long others[] = {0, ATTR_PERMIT, ATTR_DENY, ATTR_ABSORB, ATTR_ONLYON};
    for (long other : others)
        if (auto at = find(other, other); at != parameters.end())
            return void(turned.emplace_back(of.line, at->second));
    tell_lost(of.line, format("{}: {} {} stands nowhere there", clear_name(owner), of.rule->word, of.rule->text));
}

// Why a template's rule does not come into the config set of a proxy; null if it does.
static const char *template_reason(const std::string &attribute, const filed_rule &of, bool is_first,
                                   const std::string &proxy) {
    bool is_login = attribute == "authenticate" || attribute == "authserver" || attribute == "password",
         is_x = attribute == "xgateway";
    if (attribute == "proxy")
        return "such a rule is not taken from a template";
    if ((is_login && !has_need(proxy, NEEDS_AUTH)) || (is_x && !has_need(proxy, NEEDS_X)))
        return "no proxy that names this policy has a use for it";
    if (is_x && split_hosts(of.rule->text).hosts[0].substr(0, 1) != "*")
        return "an xgateway other than * is not taken from a template";
    return is_login && !is_first ? "the first such rule of a policy stands" : nullptr;
}

// In a config set a list stays one, and all other rules stand side by side, of which the last destination becomes a
// record.
void rule_placer::place_template(const std::string &proxy, const std::string &name,
                                 const filed_attributes &attributes) {
    const std::string path = set_path(proxy, name);
    const Frag *set = result.conf.find(path.c_str());
    for (const auto &[attribute, rules] : attributes)
        for (const auto &[number, rule] : rules) {
            if (!rule.rule) // of a configuration ahead of the table
                continue;
            bool is_first = number == rules.begin()->first, is_last = number == rules.rbegin()->first;
            const Frag *there = set ? child_of(set, attribute.c_str()) : nullptr;
            // What the set had already stays: a word of the tail, or what another table gave it.
            size_t by = there ? result.notes(there).valued : NO_LINE;
            bool is_taken = by != NO_LINE && by != rule.line;
            // With each further table one more of a set's destinations becomes a record.
            bool is_later_record = all.in.before.tables.size() > 1 &&
                                   records.count(format("{}_{}destination", path, prefix_of(rule.rule->bits))) != 0;
            const char *reason = template_reason(attribute, rule, is_first, proxy);
            if (reason || (is_taken && template_reason(attribute, rule, false, proxy)))
                all.filed.reasons.emplace(rule.line, reason ? reason : "the config set has such a parameter already");
            else if (attribute == "destination" && (is_last || is_later_record))
                place_destinations(path, name, {{number, rule}});
            else if (set)
                place_rule(set, attribute,
                           is_list_attribute(attribute) && !is_alone(rules) ? format("_{}", number) : "", rule);
            else if (is_dropped_proxy(proxy, all.data.release))
                all.filed.reasons.emplace(rule.line, "the new release has no such proxy");
            else
                tell_lost(rule.line,
                          format("there is no config set {} for {} {}", name, rule.rule->word, rule.rule->text));
        }
}

// A destination is a record whose description leads to its rule; null if there is none.
const Frag *rule_placer::place_destination(const std::string &owner, const std::string &service, const std::string &key,
                                           const filed_rule &of) {
    const table_rule &rule = *of.rule;
    std::string_view text = rule.text;
    for (std::string_view marker : {"%-permit%", "%-deny%"})
        if (begins(rule.text, marker))
            text.remove_prefix(marker.size());
    bool denies = text.size() < rule.text.size() ? rule.text[2] == 'd' : (rule.bits & ATTR_DENY) != 0;
    for (auto [at, end] = records.equal_range(format("{}_{}{}", owner, prefix_of(rule.bits), key)); at != end; ++at) {
        auto says = [&, record = at->second](const char *field, std::string_view value) {
            return configuration::value(record, field) == value;
        };
        if (!says("dest", text) || !says("pd", denies ? "D" : "P") || !says("service", service) || !says("pg", "P"))
            continue;
        const Frag *record = at->second;
        note(of.line, record, "as record " + clear_name(record) + " of dest");
        records.erase(at);
        return record;
    }
    return nullptr;
}

// The numbers of one proxy's records rise from its last rule to its first.
void rule_placer::place_destinations(const std::string &owner, const std::string &name, const numbered_rules &rules) {
    long last = LONG_MAX;
    for (const auto &[number, rule] : rules) {
        if (!rule.rule)
            continue;
        const Frag *record =
            rules.size() == 1 ? place_destination(owner, name, "destination", rule)
                              : place_destination(owner + "_destination", "destination", std::to_string(number), rule);
        long there = record ? strtol(record->name, nullptr, 10) : last;
        if (!record) // an import leaves it
            all.tell_some("lost", format("{}: {} {} is no record of dest", name, rule.rule->word, rule.rule->text),
                          all.lines[rule.line]);
        else if (std::exchange(last, there) < there)
            all.tell_some("unexplained", format("record {} of dest stands in another order", there), all.in.result.name,
                          result.conf.line_of(record));
    }
}

// Why a proxy's rule does not stay as the table leaves it; null if it does.
static const char *saved_reason(const accounting &all, const std::string &proxy, const std::string &attribute,
                                bool is_alone, const Frag *owner) {
    if (is_dropped_proxy(proxy, all.data.release))
        return "the new release has no such proxy";
    if (attribute == "state" && all.logs_in && is_listed(login_services, proxy))
        return "network_loginok switches it on";
    if (attribute == "proxy-exec" && proxy == "sql-px" && !all.in.command.init_conf.empty())
        return "its program is taken from the initial environment";
    bool is_program = attribute == "proxy-exec" && is_alone && program_of(configuration::value(owner, "proxy-type"));
    return is_program ? "the release sets the program of this type of proxy" : nullptr;
}

void rule_placer::place_attributes() {
    for (const auto &[name, attributes] : all.filed.proxies) {
        const Frag *owner = result.conf.record("def_proxy", name);
        for (const auto &[attribute, rules] : attributes)
            for (const auto &[number, rule] : rules) {
                if (const char *reason = saved_reason(all, name, attribute, is_alone(rules), owner))
                    all.filed.reasons.emplace(rule.line, reason);
                else if (owner && rule.rule)
                    place_rule(owner, attribute, is_alone(rules) ? "" : format("_{}", number), rule);
            }
    }
    for (const auto &[name, rules] : all.filed.destinations)
        place_destinations("def_proxy_" + storedname(name), name, rules);
    for (const auto &[policy, attributes] : all.filed.templates) {
        const auto &sets = templated[policy];
        for (const auto &[proxy, name] : sets)
            place_template(proxy, name, attributes);
        for (const auto &[attribute, rules] : attributes)
            for (const auto &[number, rule] : rules)
                if (sets.empty())
                    all.filed.reasons.emplace(rule.line, "no rule that is left names this policy");
    }
    for (const auto &[policy, attributes] : all.filed.templates)
        if (auto destination = attributes.find("destination");
            destination != attributes.end() && destination->second.rbegin()->second.rule)
            place_removed(destination->second.rbegin()->second);
    take_turned();
}

// The records that come of config sets stay when the sets go.
void rule_placer::place_removed(const filed_rule &of) {
    for (auto at = records.begin(); at != records.end();) {
        std::string desc = at->first, owner = desc.substr(0, desc.rfind('_'));
        bool is_left = owner.find("_config-sets_") != desc.npos && !result.conf.find(owner.c_str());
        ++at;
        if (is_left && place_destination(owner, decoded_name(owner.substr(owner.rfind('_') + 1)), "destination", of))
            at = records.begin();
    }
}

// What no rule says with the prefix that it has there is that of a rule with another.
void rule_placer::take_turned() {
    for (auto [number, frag] : turned) {
        account_line &line = all.lines[number];
        size_t by = result.notes(frag).valued;
        if (by != NO_LINE && !all.lines[by].said) {
            tell_lost(number, format("{}: it stands nowhere with its prefix", line.text));
            continue;
        }
        if (by != NO_LINE && line.place)
            continue;
        bool is_placed = line.place != nullptr;
        note(number, frag, "with another prefix");
        line.turned = line.turned || !is_placed;
        finding *told = is_placed ? all.tell_some("turned", turned_text(line, frag), line) : nullptr;
        if (told)
            told->result = {all.in.result.name, result.conf.line_of(frag)};
    }
}

// The maps of a proxy that the release removes are left, and a numbered result does not say whose their config sets
// were: the names of these tell.
static std::optional<access_side> with_removed(const accounting &all, const access_side &side) {
    std::optional<access_side> made;
    std::multimap<std::string, size_t> maps; // that permit, by their policies
    for (const std::string &proxy : all.in.before.proxies) {
        if (!is_dropped_proxy(proxy, all.data.release))
            continue;
        for (size_t i = 0; !made && i < side.maps.size(); i++)
            if (side.maps[i].permit)
                maps.emplace(side.maps[i].policy, i);
        if (!made)
            made = side;
        for (const Frag *policy : side.conf->children("policy"))
            for (const Frag *entry : configuration::children(policy, "proxy"))
                if (clear_name(entry) == proxy || begins(clear_name(entry), proxy + '-'))
                    for (auto [at, end] = maps.equal_range(clear_name(policy)); at != end; ++at)
                        made->maps_of[proxy].push_back(at->second);
    }
    return made;
}

void place_table_lines(accounting &all, result_places &result, const access_side &side) {
    std::optional<access_side> more = with_removed(all, side);
    rule_placer placer{all, result, more ? *more : side};
    for (account_line &line : all.lines)
        line.candidate = line.candidate || all.inputs[line.input].table;
    placer.index_result();
    placer.place_hosts();
    placer.place_attributes();
}
