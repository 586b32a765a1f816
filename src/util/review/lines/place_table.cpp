// Where each rule of a table stands in a result: as an element of a map's source, as a parameter, as a destination.
#include "frag_tools.h"
#include "lines/accounting.h"
#include "netperm.h"
#include "upgrade.h"

#include <algorithm>
#include <climits>
#include <fmt/format.h>
#include <utility>

using fmt::format;

namespace {

bool is_of_login(const std::string &attribute) {
    return attribute == "authenticate" || attribute == "authserver" || attribute == "password";
}

// Whether a proxy has a use for a template's rule.
bool has_use(const std::string &proxy, const std::string &attribute) {
    return (!is_of_login(attribute) || has_need(proxy, NEEDS_AUTH)) &&
           (attribute != "xgateway" || has_need(proxy, NEEDS_X));
}

// Why a template's rule does not come into the config set of a proxy that has a use for it; null if it does.
const char *template_reason(const std::string &attribute, const filed_rule &of, bool is_first, bool is_taken) {
    bool is_login = is_of_login(attribute);
    if (attribute == "proxy")
        return "such a rule is not taken from a template";
    if (attribute == "xgateway" && split_hosts(of.rule->text).hosts[0].substr(0, 1) != "*")
        return "an xgateway other than * is not taken from a template";
    if (is_login && !is_first)
        return "the first such rule of a policy stands";
    return is_login && is_taken ? "the config set has such a parameter already" : nullptr;
}

// Why a proxy's rule does not stay as the table leaves it; null if it does.
const char *saved_reason(const accounting &all, const std::string &proxy, const std::string &attribute, bool is_alone,
                         const Frag *owner, const filed_rule &of) {
    if (is_dropped_proxy(proxy, all.data.release))
        return "the new release has no such proxy";
    if (attribute == "state" && all.logs_in && is_listed(login_services, proxy))
        return "network_loginok switches it on";
    if (attribute == "proxy-exec" && proxy == "sql-px" && of.line && of.line->input->step < all.init_step)
        return "its program is taken from the initial environment";
    bool is_program = attribute == "proxy-exec" && is_alone && program_of(configuration::value(owner, "proxy-type"));
    return is_program ? "the release sets the program of this type of proxy" : nullptr;
}

/// Places the rules of tables but those for hosts with the owners that have them, and the words of these in the config
/// sets that they lead into.
struct attribute_placer {
    accounting &all;
    result_places &result;
    const std::vector<made_set> sets;                  ///< that the rules for hosts lead into
    std::multimap<std::string, const Frag *> places{}; ///< by what is said there, and where
    /// Rules, and where what they say has another prefix.
    std::vector<std::pair<account_line &, const Frag *>> turned{};

    static std::string said_text(const std::string &path, std::string_view text) {
        return decoded_name(path) + '\n' + std::string(text);
    }

    // The name of the last node on a path.
    static std::string last_name(const std::string &path) { return decoded_name(path.substr(path.rfind('_') + 1)); }

    // What the record of a destination says, whose description leads to its rule.
    static std::string record_text(const std::string &owner, const std::string &key, const table_rule &rule) {
        std::string_view text = rule.text, marker = split_hosts(text).marker;
        bool is_marked = !marker.empty() && begins(text, marker); // at the very start
        bool denies = is_marked ? marker == "%-deny%" : (rule.bits & ATTR_DENY) != 0;
        text.remove_prefix(is_marked ? marker.size() : 0);
        return format("{}_{}{}\n{}\n{}\n{}\nP\n", owner, prefix_of(rule.bits), key, text, denies ? "D" : "P",
                      last_name(owner));
    }

    void index_result() {
        auto add = [&](const Frag *frag) {
            std::string path = place_keys::path(frag->parent);
            if (result.conf.find(path.c_str()) == frag->parent) // no other of that name hides it
                places.emplace(said_text(path + '_' + frag->name, text_of(frag)), frag);
        };
        for (const Frag *proxy : result.conf.children("def_proxy"))
            for (const Frag *frag : nodes_of(proxy->child))
                if (frag->value)
                    add(frag);
        for (const auto &[line, twin] : result.doubles)
            add(&twin);
        for (const Frag *record : result.conf.children("dest")) {
            std::string text;
            for (const char *field : {"desc", "dest", "pd", "service", "pg"})
                text += configuration::value(record, field) + '\n';
            places.emplace(text, record);
        }
    }

    // Where a line says that, with its prefix. One that the table's reader left on is one to whoever reads the result,
    // but for the name of a list. What is of a list has a number.
    void place(account_line &line, const std::string &owner, const std::string &attribute, const std::string &number,
               const table_rule &rule) {
        const std::string written = prefix_of(rule.bits) + attribute;
        const char *bare = stored_attribute(written.c_str());
        const char *bare_prefix = prefix_of(take_prefixes(&bare));
        const Frag *other = nullptr;
        for (const auto &[name, prefix] : {std::pair(bare, bare_prefix), {attribute.c_str(), prefix_of(rule.bits)}}) {
            auto [at, end] = places.equal_range(said_text(format("{}_{}{}", owner, name, number), rule.text));
            other = other || at == end ? other : at->second;
            while (at != end && prefix_of(result.keys.find(at->second).bits) != prefix)
                ++at;
            if (at == end)
                continue;
            result.reshape(at->second, line, "as " + place_keys::path(at->second));
            if (std::next(at) != end)
                places.erase(at); // each rule has a place of its own
            return;
        }
        if (other)
            turned.emplace_back(line, other);
        else
            all.tell_lost(line, format("{}: {} {} stands nowhere there", last_name(owner), rule.word, rule.text));
    }

    // In a config set a list stays one, and all other rules of a template stand side by side, of which the last
    // destination becomes a record.
    void place_in_set(const made_set &set, const std::string &attribute, const numbered_rules &rules, long number) {
        const filed_rule &of = rules.at(number);
        const Frag *there = result.conf.find((set.path + '_' + attribute).c_str());
        // What the set had already stays: a word of the tail, or what another table gave it.
        const account_line *by = there ? result.notes(there).valued : nullptr;
        bool is_taken = by && by != of.line;
        bool is_first = number == rules.begin()->first, is_last = number == rules.rbegin()->first;
        // With each further table one more of a set's destinations becomes a record.
        bool is_record = attribute == "destination" &&
                         (is_last || (all.in.before.tables.size() > 1 &&
                                      places.count(record_text(set.path, "destination", *of.rule)) != 0));
        if (const char *reason = template_reason(attribute, of, is_first, is_taken))
            of.excuse(reason);
        else if (is_record)
            place_destinations(set.path, {{number, of}});
        else if (result.conf.find(set.path.c_str()))
            place(*of.line, set.path, attribute,
                  is_list_attribute(attribute) && !is_alone(rules) ? format("_{}", number) : "", *of.rule);
        else if (is_dropped_proxy(set.proxy, all.data.release))
            of.excuse("the new release has no such proxy");
        else
            all.tell_lost(*of.line, format("there is no config set {} for {} {}", last_name(set.path), of.rule->word,
                                           of.rule->text));
    }

    // The record of a destination, null if there is none.
    const Frag *place_destination(const std::string &owner, const std::string &key, const filed_rule &of) {
        auto at = places.find(record_text(owner, key, *of.rule));
        if (at == places.end())
            return nullptr;
        const Frag *record = places.extract(at).mapped();
        result.reshape(record, *of.line, "as record " + clear_name(record) + " of dest");
        return record;
    }

    // The numbers of one proxy's records rise from its last rule to its first.
    void place_destinations(const std::string &owner, const numbered_rules &rules) {
        long last = LONG_MAX;
        for (const auto &[number, of] : rules) {
            if (!of.rule)
                continue;
            const Frag *record = rules.size() == 1
                                     ? place_destination(owner, "destination", of)
                                     : place_destination(owner + "_destination", std::to_string(number), of);
            long there = record ? strtol(record->name, nullptr, 10) : last;
            if (!record) // an import leaves it
                all.tell_some("lost",
                              format("{}: {} {} is no record of dest", last_name(owner), of.rule->word, of.rule->text),
                              of.line->at());
            else if (std::exchange(last, there) < there)
                all.tell_some("unexplained", format("record {} of dest stands in another order", there),
                              all.in_result(record));
        }
    }

    void place_all() {
        std::map<std::pair<const account_input *, std::string>, std::vector<const made_set *>> templated;
        for (const made_set &set : sets) {
            templated[{set.line.input, set.options.policy}].push_back(&set);
            const Frag *there = result.conf.find(set.path.c_str());
            if (!there)
                continue;
            result.claim(there, set.line);
            auto place_word = [&](std::string_view word, const std::string &name, std::string_view text) {
                table_rule said;
                said.word = word;
                said.text = text;
                place(set.line, set.path, name, "", said);
            };
            for (std::string_view word : set.options.words)
                place_word(word, decoded_name(word.substr(0, word.find('='))), "*");
            if (set.options.exec)
                place_word("-exec", "exec", *set.options.exec);
        }
        for (const auto &[name, attributes] : all.filed.proxies) {
            const Frag *owner = result.conf.record("def_proxy", name);
            for (const auto &[attribute, rules] : attributes)
                for (const auto &[number, of] : rules)
                    if (const char *reason = saved_reason(all, name, attribute, is_alone(rules), owner, of))
                        of.excuse(reason);
                    else if (owner && of.rule)
                        place(*of.line, place_keys::path(owner), attribute,
                              is_alone(rules) ? "" : format("_{}", number), *of.rule);
        }
        for (const auto &[name, rules] : all.filed.destinations)
            place_destinations("def_proxy_" + encoded_name(name), rules);
        for (const auto &[policy, attributes] : all.filed.templates)
            for (const auto &[attribute, rules] : attributes)
                for (const auto &[number, of] : rules) {
                    const std::vector<const made_set *> &into = templated[policy];
                    bool is_used = false;
                    for (const made_set *set : into)
                        if (has_use(set->proxy, attribute)) {
                            is_used = true;
                            if (of.rule) // not of a configuration ahead of the table
                                place_in_set(*set, attribute, rules, number);
                        }
                    if (!is_used)
                        of.excuse(into.empty() ? "no rule that is left names this policy"
                                               : "no proxy that names this policy has a use for it");
                }
        // The records that come of config sets stay when the sets go.
        std::vector<std::string> gone;
        for (const Frag *record : result.conf.children("dest")) {
            std::string desc = configuration::value(record, "desc"), set = desc.substr(0, desc.rfind('_'));
            if (set.find("_config-sets_") != set.npos && !result.conf.find(set.c_str()))
                gone.push_back(set);
        }
        for (const auto &[policy, attributes] : all.filed.templates)
            if (auto rules = attributes.find("destination"); rules != attributes.end())
                for (size_t i = 0; rules->second.rbegin()->second.rule && i < gone.size(); i++)
                    place_destination(gone[i], "destination", rules->second.rbegin()->second);
        take_turned();
    }

    // What no rule says with the prefix that it has there is that of a rule with another.
    void take_turned() {
        for (const auto &[line, frag] : turned) {
            const account_line *by = result.notes(frag).valued;
            bool is_placed = line.place != nullptr;
            if (by && !by->said)
                all.tell_lost(line, format("{}: it stands nowhere with its prefix", line.text));
            else if (!by || !is_placed) {
                result.reshape(frag, line, "with another prefix");
                line.turned = line.turned || !is_placed;
                if (is_placed)
                    all.tell_of(line, "turned", turned_text(frag), {}, all.in_result(frag));
            }
        }
    }
};

// Who decides by what the upgrade writes. The maps of a proxy that the release removes are left, and a numbered result
// does not say whose their config sets were: the names of these tell.
access_side own_side(const accounting &all) {
    access_side side;
    side.set_maps(all.in.own);
    for (const std::string &proxy : all.in.before.proxies)
        for (size_t i = 0; i < side.maps.size() && is_dropped_proxy(proxy, all.data.release); i++)
            for (const Frag *entry : configuration::children(side.conf->record("policy", side.maps[i].policy), "proxy"))
                if (side.maps[i].permit && (clear_name(entry) == proxy || begins(clear_name(entry), proxy + '-')))
                    side.maps_of[proxy].push_back(i);
    return side;
}

} // namespace

void accounting::tell_lost(const account_line &line, std::string text) {
    if (!line.input->removed)
        tell_some("lost", std::move(text), line.at());
}

void place_table_lines(accounting &all, result_places &result) {
    for (account_line &line : all.lines)
        line.candidate = line.candidate || line.input->table;
    attribute_placer placer{all, result, place_host_rules(all, result, own_side(all))};
    placer.index_result();
    placer.place_all();
}
