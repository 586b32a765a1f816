// Why a line of a table has no place of its own.
#include "frag_tools.h"
#include "lines/accounting.h"
#include "upgrade.h"

#include <algorithm>

namespace {

std::string rule_key(const table_rule &rule, const std::string &name) {
    return std::string(rule.attribute) + '\n' + (name[0] == '*' ? "*" : name);
}

} // namespace

const char *program_of(const std::string &type) {
    const program_rec *row = program_tab;
    while (row->type && lowercase(type) != row->type)
        row++;
    return row->exec;
}

bool has_program(const accounting &all, const std::string &proxy) {
    return all.data.release != 55 &&
           program_of(all.in.own.value(("def_proxy_" + storedname(proxy) + "_proxy-type").c_str()));
}

table_reasons::table_reasons(accounting &of) : all(of) {
    for (size_t i = 0; all.has_tables && i < all.lines.size(); i++)
        for (size_t r = 0; r < all.lines[i].rules; r++)
            note_rule(i, all.rule(all.lines[i], r));
}

// A policy by its table, behind which its template goes.
std::string table_reasons::of_table(size_t number, const std::string &policy) const {
    return std::to_string(all.lines[number].input) + ' ' + policy;
}

// Takes note of who names a policy, and of the first rule that each name has of an attribute.
void table_reasons::note_rule(size_t number, const table_rule &rule) {
    for (const std::string &name : rule.names) {
        firsts.emplace(rule_key(rule, name), number);
        if (firsts.emplace(name, number).second)
            last_new = number;
    }
    std::string policy = rule.attribute == "hosts" ? split_options(split_hosts(rule.text).tail).policy : "";
    if (!policy.empty())
        users[of_table(number, policy)].emplace_back(number, &rule);
}

// Whether an earlier rule gives the attribute to all of the names.
bool table_reasons::is_repeated(size_t number, const table_rule &rule) const {
    return std::all_of(rule.names.begin(), rule.names.end(), [&](const std::string &name) {
        auto first = firsts.find(rule_key(rule, name)), general = firsts.find(rule_key(rule, "*")),
             copied = firsts.find(rule_key(rule, "global"));
        return name[0] == '*' || (first != firsts.end() && first->second < number) ||
               (general != firsts.end() && general->second < number) ||
               (copied != firsts.end() && copied->second < firsts.at(name)); // by a proxy that is named later
    });
}

// Why nothing of a template's rule comes into the config sets of the proxies that name the policy.
const char *table_reasons::template_reason(size_t number, const table_rule &rule) const {
    auto of = users.find(of_table(number, rule.names[0]));
    if (of == users.end())
        return "no rule names this policy";
    bool is_auth = rule.attribute == "authenticate" || rule.attribute == "authserver" || rule.attribute == "password";
    bool is_x = rule.attribute == "xgateway";
    if (rule.attribute == "proxy")
        return "such a rule is not taken from a template";
    if (is_auth && is_repeated(number, rule))
        return "the first such rule of a policy stands";
    if (is_x && split_hosts(rule.text).hosts[0].substr(0, 1) != "*")
        return "an xgateway other than * is not taken from a template";
    bool is_left = false, needed = false;
    for (const auto &[each, named_by] : of->second)
        for (const std::string &name : named_by->names) {
            if (is_no_proxy(name) || is_dropped_proxy(name, all.data.release) ||
                (!all.lines[each].place && !reason(each).empty()))
                continue;
            is_left = true;
            needed = needed || name[0] == '*' || proxy_needs(name.c_str(), is_x ? NEEDS_X : NEEDS_AUTH);
        }
    if (!is_left)
        return "no rule that names this policy is left";
    return (is_auth || is_x) && !needed ? "no proxy that names this policy has a use for it" : "";
}

const char *table_reasons::attribute_reason(size_t number, const table_rule &rule) const {
    auto all_names = [&](auto holds) { return std::all_of(rule.names.begin(), rule.names.end(), holds); };
    int release = all.data.release;
    auto is_alerts = [&](const std::string &name) { return name == "alerts" && rule.attribute != "enable"; };
    auto is_vain = [&](const std::string &name) {
        return is_dropped_proxy(name, release) || name == "global" || is_alerts(name);
    };
    if (all_names(is_vain))
        return all_names(is_alerts) ? "nothing but enable is kept of alerts" : "the new release has no such proxy";
    if (all.logs_in && rule.attribute == "state" &&
        all_names([&](const std::string &name) { return is_vain(name) || begins(name, "svcgrd-"); }))
        return "network_loginok switches it on";
    bool has_init = !all.in.command.init_conf.empty() && all.data.release != 55;
    if (has_init && rule.attribute == "proxy-exec" &&
        all_names([](const std::string &name) { return name == "sql-px"; }))
        return "its program is taken from the initial environment";
    if (rule.attribute == "proxy-exec" &&
        all_names([&](const std::string &name) { return is_vain(name) || has_program(all, name); }))
        return "the release sets the program of this type of proxy";
    if (is_listed(del_plug_attrs, rule.attribute))
        return "a port comes from the initial environment";
    for (const needed_attr_rec *row = needed_attr_tab; row->attribute; row++)
        if (rule.attribute == row->attribute && all_names([&](const std::string &name) {
                return is_vain(name) || (name[0] != '*' && !proxy_needs(name.c_str(), row->need));
            }))
            return "the proxy has no use for it";
    if (all_names([](const std::string &name) { return begins(name, "policy-"); }))
        return template_reason(number, rule);
    for (const global_word_rec *row = global_word_tab; row->word; row++)
        if (rule.word == row->word && rule.names[0][0] == '*' && (!row->inherited || number >= last_new))
            return "it is kept for all proxies alone, and not for any of them";
    bool is_single = rule.attribute == "authenticate" || rule.attribute == "authserver";
    return is_single && is_repeated(number, rule) ? "the first such rule of a proxy stands" : "";
}

std::string table_reasons::reason(size_t number) const {
    const account_line &line = all.lines[number];
    if (all.inputs[line.input].unread)
        return "a table is for configurations from before 4.0";
    if (line.rules == 0) {
        const std::vector<dropped_line> &dropped = all.inputs[line.input].table->dropped;
        auto found = std::lower_bound(dropped.begin(), dropped.end(), line.line,
                                      [](const dropped_line &each, long wanted) { return each.line < wanted; });
        return found != dropped.end() && found->line == line.line ? found->why : "";
    }
    const table_rule &rule = all.rule(line);
    if (rule.attribute != "hosts")
        return attribute_reason(number, rule);
    if (std::all_of(rule.names.begin(), rule.names.end(), [&](const std::string &name) {
            return is_no_proxy(name) || is_dropped_proxy(name, all.data.release);
        }))
        return "it lets nobody through a proxy of the new release";
    auto found = all.covered.find(number);
    return found == all.covered.end()
               ? ""
               : "an earlier rule covers its hosts, such as line " + std::to_string(found->second);
}
