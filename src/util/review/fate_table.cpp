// Netperm tables: their lines as rules, and the fates of all attributes but `hosts`.
#include "fate_table.h"
#include "frag_tools.h"
#include "name_index.h"
#include "netperm.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr size_t READ_UNIT = 8190; // bytes that the upgrade reads at once; a longer line counts as several

bool is_name_separator(char byte) { return is_blank(byte) || byte == ','; }

bool is_one_of(const std::string &word, std::initializer_list<const char *> words) {
    return std::any_of(words.begin(), words.end(), [&](const char *other) { return word == other; });
}

bool is_gone(const std::string &proxy) {
    return is_one_of(proxy, {"netconfig", "authenIP", "getvers", "login-ts", "radm", "gui"});
}

bool is_template(const std::string &proxy) { return has_prefix(proxy.c_str(), "policy-"); }

bool is_login(const std::string &attribute) { return is_one_of(attribute, {"authenticate", "authserver"}); }

// The node name of an attribute, its bits taken off.
std::string attribute_name(const std::string &word, long &bits) {
    std::string stored = storedname(word);
    const char *name = stored.c_str();
    bits = 0;
    for (const auto &[prefix, bit] :
         {std::pair("permit-", ATTR_PERMIT), {"deny-", ATTR_DENY}, {"absorb-", ATTR_ABSORB}})
        if (has_prefix_nocase(name, prefix)) {
            bits = bit;
            name += strlen(prefix);
            break;
        }
    return std::string(key_component(name));
}

} // namespace

size_t marker_len(const char *text) {
    for (std::string_view marker : {"%-permit%", "%-deny%"})
        if (has_prefix(text, marker))
            return marker.size();
    return 0;
}

void fate_table::read(size_t table_input) {
    input = table_input;
    // What an earlier table left of its proxies stays; what is meant for all proxies begins anew.
    if (proxies.empty()) {
        proxies.push_back({"global", 0, {}});
        by_name.emplace("global", 0);
    }
    proxies[0].attributes.clear();
    for (fate_proxy &proxy : proxies) {
        if (is_gone(proxy.name) || is_template(proxy.name))
            proxy.attributes.clear();
        for (const char *consumed : {"hosts", "port", "destination"})
            proxy.attributes.erase(consumed);
    }

    fate_input &from = run.ledger.inputs[input];
    if (from.first == from.end)
        from.first = from.end = run.ledger.entries.size();
    const std::string text = from.text;
    long number = 0, line = 1;
    for (size_t at = 0; at < text.size();) {
        size_t len = std::min(text.find('\n', at), text.size()) - at;
        bool whole = len < READ_UNIT && at + len < text.size();
        len = std::min(len + (whole ? 1 : 0), READ_UNIT);
        number++;
        std::string unit = text.substr(at, len);
        at += len;
        if (unit[0] != '#') {
            if (unit.find_first_not_of(" \t\r") == std::string::npos) // blanks alone take the rest of their line along
                at = std::min(text.find('\n', at), text.size() - 1) + 1;
            else
                read_unit(unit.substr(0, unit.find('\0')), number, line);
        }
        line = std::upper_bound(from.starts.begin(), from.starts.end(), at) - from.starts.begin();
    }
    run.ledger.inputs[input].end = run.ledger.entries.size();
}

void fate_table::read_unit(std::string unit, long number, long line) {
    size_t begin = unit.find_first_not_of(" \t\r");
    if (begin == std::string::npos || unit[begin] == '\n')
        return;
    unit.resize(std::min(unit.find_first_of("\r\n", begin), unit.size()));
    fate_ledger &ledger = run.ledger;
    size_t id = ledger.entries.size();
    fate_entry entry;
    entry.input = input;
    entry.line = entry.end_line = line;
    size_t colon = unit.find(':');
    size_t word = colon == std::string::npos ? colon : unit.find_first_not_of(" \t", colon + 1);
    size_t name = colon == std::string::npos ? colon : unit.find_first_not_of(" \t,");
    if (word != std::string::npos) {
        size_t end = std::min(unit.find_first_of(" \t", word), unit.size());
        words[id] = unit.substr(word, end - word);
        if (end < unit.size())
            entry.value = unit.substr(end + 1);
    }
    ledger.entries.push_back(std::move(entry));
    units[id] = number;
    if (colon == std::string::npos)
        ledger.say(id, fate::without_effect, "no colon, so this is no rule");
    else if (word == std::string::npos)
        ledger.say(id, fate::without_effect, "nothing behind the colon, so this is no rule");
    else if (name == colon)
        ledger.say(id, fate::without_effect, "no proxy in front of the colon, so this is no rule");
    else
        for (size_t at = name; at < colon;) {
            size_t end = at;
            while (end < colon && !is_name_separator(unit[end]))
                end++;
            serve_name(unit.substr(at, end - at), id);
            for (at = end; at < colon && is_name_separator(unit[at]);)
                at++;
        }
}

void fate_table::serve_name(std::string proxy_name, size_t id) {
    if (proxy_name[0] == '*') {
        bool only_later = is_one_of(words[id], {"use_name_logs", "afw-dest", "logging"});
        for (size_t i = only_later ? proxies.size() : 1; i < proxies.size(); i++)
            file_rule(proxies[i], id, true);
        file_rule(proxies[0], id, true);
        return;
    }
    std::replace(proxy_name.begin(), proxy_name.end(), '_', '-');
    proxy_name = std::string(key_component(proxy_name.c_str()));
    auto [known, is_new] = by_name.try_emplace(proxy_name, proxies.size());
    size_t place = known->second;
    if (is_new) {
        fate_proxy proxy{proxy_name, id, proxies[0].attributes};
        proxy.attributes.erase("logging");
        proxy.attributes.erase(storedname("use_name_logs"));
        proxies.push_back(std::move(proxy));
    }
    file_rule(proxies[place], id, false);
}

void fate_table::file_rule(fate_proxy &proxy, size_t id, bool for_all) {
    long bits;
    std::string attribute = attribute_name(words[id], bits);
    run.ledger.entries[id].attr = bits;
    table_rules &rules = proxy.attributes[attribute];
    if (is_login(attribute) && !rules.empty()) {
        if (!(for_all && &proxy == &proxies[0]) && rules[0] != id)
            run.ledger.say(id, fate::without_effect,
                           "a proxy keeps its first " + attribute + ", for " + proxy.name + " that of line " +
                               std::to_string(run.ledger.entries[rules[0]].line));
        return;
    }
    // A second table's rule takes the place of a rule with its line number.
    for (size_t i = 1; i < rules.size() && run.ledger.entries[rules[0]].input != input; i++)
        if (units[rules[i]] == units[id] && rules[i] != id) {
            run.ledger.say(rules[i], fate::overridden, "overridden by " + run.ledger.where(id));
            rules[i] = id;
            return;
        }
    rules.push_back(id);
}

bool fate_table::own_value(size_t id, Frag *node) const {
    if (!node || !node->value || value_of(node) != run.ledger.entries[id].value)
        return false;
    if (!owner_of(node))
        set_owner(node, id);
    else if (owner_of(node) != id)
        run.ledger.say(id, fate::reshaped, "says the same as " + run.ledger.where(owner_of(node)));
    return true;
}

std::string fate_table::why_lost(const fate_proxy &proxy, const std::string &attribute) const {
    if (is_gone(proxy.name))
        return "its proxy " + proxy.name + " is gone";
    if (proxy.name == "oracle-px")
        return "release 5.5 removes the proxy oracle-px";
    if (proxy.name == "alerts")
        return "of alerts nothing but `enable` is kept";
    if (attribute == "port")
        return "ports come from the initial environment";
    if ((is_login(attribute) && !needsauth(proxy.name.c_str())) ||
        (attribute == "xforwarder" && !needsx(proxy.name.c_str())))
        return "the proxy " + proxy.name + " has no use for " + attribute;
    return "";
}

// The rules of a template live on in the config sets of the rules that name it.
void fate_table::follow_template(const fate_proxy &proxy, list_indexes &indexes) {
    std::string policy = proxy.name.substr(strlen("policy-"));
    auto users = users_of.find(policy);
    for (const auto &[attribute, rules] : proxy.attributes)
        for (size_t id : rules) {
            bool taken = false;
            for (const std::string &user : users == users_of.end() ? std::vector<std::string>() : users->second) {
                Frag *def_proxy = ffind(&run.db, "def_proxy");
                Frag *frag = def_proxy ? indexes.find(&def_proxy->child, name_in_file(user.c_str(), 0)) : nullptr;
                Frag *sets = frag ? ffind(&frag->child, "config-sets") : nullptr;
                for (Frag *set = sets ? sets->child : nullptr; set; set = set->next)
                    for (Frag *child = set->child; child; child = child->next)
                        if (attribute == child->name) {
                            taken = own_value(id, child) || taken;
                            for (Frag *part = child->child; part; part = part->next)
                                if (std::to_string(units[id]) == part->name ||
                                    (id == rules[0] && same_text(part->name, "0")))
                                    taken = own_value(id, part) || taken;
                        }
            }
            auto dest = destinations.find(
                run.ledger.entries[id].value.substr(marker_len(run.ledger.entries[id].value.c_str())));
            if (taken)
                continue;
            if (users == users_of.end())
                run.ledger.say(id, fate::without_effect, "no rule that stays names the policy " + policy);
            else if (attribute == "destination" && dest != destinations.end())
                run.ledger.say(id, fate::reshaped, "a record of `dest`, with " + std::string(dest->second->name));
            else if (is_one_of(attribute, {"hosts", "proxy", "port"}))
                run.ledger.say(id, fate::without_effect, "the `" + attribute + "` of a policy's template says nothing");
            else
                run.ledger.say(id, fate::without_effect,
                               std::string("no proxy whose rules name the policy ")
                                   .append(policy)
                                   .append(" can take its `")
                                   .append(attribute)
                                   .append("`"));
        }
}

void fate_table::follow_destinations(const table_rules &rules) {
    for (size_t id : rules) {
        const std::string &text = run.ledger.entries[id].value;
        auto found = destinations.find(text.substr(marker_len(text.c_str())));
        if (found != destinations.end())
            run.ledger.say(id, fate::reshaped, "record " + std::string(found->second->name) + " of `dest`");
    }
}

void fate_table::follow_attribute(const fate_proxy &proxy, const std::string &attribute, const table_rules &rules,
                                  Frag *frag) {
    for (size_t i = 0; i < rules.size(); i++) {
        size_t id = rules[i];
        std::string name = name_in_file(attribute.c_str(), rules.size() == 1 ? run.ledger.entries[id].attr : 0);
        Frag *node = frag ? ffind(&frag->child, name.c_str()) : nullptr;
        bool found = own_value(id, node);
        for (const char *first : {"0", "1"})
            found = found || (i == 0 && node && own_value(id, ffind(&node->child, first)));
        found = found || (node && own_value(id, ffind(&node->child, std::to_string(units[id]).c_str())));
        if (found)
            continue;
        std::string reason = why_lost(proxy, attribute);
        if (!reason.empty())
            run.ledger.say(id, fate::without_effect, reason);
        else if (attribute == "proxy-exec" && node)
            run.ledger.say(id, fate::overridden, "overridden: release 5.5 has its own program for " + proxy.name);
        else if (node && node->value)
            run.ledger.say(id, fate::overridden,
                           "overridden by " + (owner_of(node) ? run.ledger.where(owner_of(node)) : "an earlier value"));
    }
}

void fate_table::follow_proxy(const fate_proxy &proxy, Frag *frag) {
    for (const auto &[attribute, rules] : proxy.attributes) {
        if (attribute == "hosts" && !is_gone(proxy.name) && proxy.name != "alerts")
            continue;
        if (attribute == "destination" && why_lost(proxy, attribute).empty())
            follow_destinations(rules);
        else
            follow_attribute(proxy, attribute, rules, frag);
    }
}

void fate_table::follow() {
    list_indexes indexes;
    find_maps(indexes);
    destinations.clear();
    Frag *dest = ffind(&run.db, "dest");
    for (Frag *record = dest ? dest->child : nullptr; record; record = record->next)
        if (Frag *text = ffind(&record->child, "dest"))
            destinations.emplace(value_of(text), record);
    users_of.clear();
    for (size_t i = 1; i < proxies.size(); i++) {
        auto hosts = proxies[i].attributes.find("hosts");
        if (hosts == proxies[i].attributes.end() || !why_lost(proxies[i], "hosts").empty() ||
            is_template(proxies[i].name))
            continue;
        size_t first = hosts->second[0];
        if (hosts->second.size() == 1 && words[first].find('=') != std::string::npos)
            run.ledger.say(first, fate::without_effect,
                           "with a `=` it is a value until a second `hosts` rule makes a list of both, and " +
                               proxies[i].name + " has none");
        else
            follow_hosts(proxies[i], hosts->second);
    }
    Frag *def_proxy = ffind(&run.db, "def_proxy");
    for (size_t i = 1; i < proxies.size(); i++) {
        fate_proxy &proxy = proxies[i];
        Frag *frag = def_proxy ? indexes.find(&def_proxy->child, name_in_file(proxy.name.c_str(), 0)) : nullptr;
        if (is_template(proxy.name))
            follow_template(proxy, indexes);
        else
            follow_proxy(proxy, frag);
        bool used =
            is_template(proxy.name) ? users_of.count(proxy.name.substr(strlen("policy-"))) != 0 : frag != nullptr;
        if (used && proxy.named_by)
            naming.emplace(proxy.named_by, proxy.name);
    }
    say_unreached();
}

// Rules for all proxies that came to none.
void fate_table::say_unreached() {
    std::vector<bool> reached(run.ledger.entries.size());
    for (size_t i = 1; i < proxies.size(); i++)
        for (const auto &attribute : proxies[i].attributes)
            for (size_t id : attribute.second)
                reached[id] = true;
    for (const auto &attribute : proxies[0].attributes)
        for (size_t id : attribute.second)
            if (!reached[id])
                run.ledger.say(
                    id, fate::without_effect,
                    "a rule for all proxies that reaches none: they are named before it, or it is one of the "
                    "whole firewall, which is no proxy now");
}
