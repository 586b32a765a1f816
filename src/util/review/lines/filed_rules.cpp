// The rules of tables as the proxies and the templates of policies have them, and why a line of a table has no place.
#include "frag_tools.h"
#include "lines/accounting.h"
#include "netperm.h"
#include "upgrade.h"

#include <algorithm>
#include <utility>

namespace {

void file_rule(filed_attributes &owner, const filed_rule &rule) {
    std::string name = encoded_name(rule.rule->attribute).substr(0, FRAGNAME_SIZE - 1);
    numbered_rules &rules = owner[name];
    if (!rules.empty() && (name == "authenticate" || name == "authserver"))
        return rule.line->excuse("the first such rule of a proxy stands");
    bool is_list = is_list_attribute(name) && rule.rule->word.find('=') == rule.rule->word.npos;
    long number = !rules.empty() ? rule.rule->unit : is_list ? 0 : 1;
    auto [at, is_new] = rules.try_emplace(number, rule);
    if (is_new)
        return;
    if (at->second.line && at->second.line != rule.line)
        at->second.line->excuse("a rule of another table with its line's number takes its place");
    at->second = rule;
    at->second.is_listed = true;
}

// A rule for all proxies is one of those that are known, and of the proxy `global`, of which each new one is a copy.
void read_rule(filed_rules &filed, const filed_rule &rule) {
    filed_attributes &global = filed.proxies["global"];
    bool is_attribute = rule.rule->attribute != "hosts", is_global = false;
    for (const std::string &name : rule.rule->names) {
        bool is_for_all = name[0] == '*';
        std::string key = is_for_all ? "global" : name.substr(0, name.find('=')); // a key ends there
        auto [proxy, is_new] = filed.proxies.try_emplace(std::move(key), global);
        for (const global_word_rec *row = global_word_tab; row->word; row++) {
            is_global = is_global || rule.rule->word == row->word;
            if (is_new && !row->inherited)
                proxy->second.erase(encoded_name(row->word));
        }
        if (is_attribute && is_for_all && !is_global)
            for (auto &[other, attributes] : filed.proxies)
                file_rule(attributes, rule);
        else if (is_attribute)
            file_rule(proxy->second, rule);
    }
}

// Why a proxy does not keep an attribute of the table; null if it does.
const char *proxy_reason(const std::string &proxy, const std::string &attribute) {
    if (proxy == "global")
        return "no proxy takes it over from those for all";
    if (is_removed_proxy(proxy))
        return "the new release has no such proxy";
    if (proxy == "alerts" && attribute != "enable")
        return "nothing but enable is kept of alerts";
    if (is_listed(del_plug_attrs, attribute))
        return "no port is taken from a table";
    for (const needed_attr_rec *row = needed_attr_tab; row->attribute; row++)
        if (attribute == row->attribute && !has_need(proxy, row->need))
            return "the proxy has no use for it";
    return nullptr;
}

// What the pass for a table leaves: templates have gone into config sets, and destinations into records.
void finish_table(filed_rules &filed, const account_input *input) {
    for (auto &[name, attributes] : std::exchange(filed.proxies, {})) {
        bool is_template = begins(name, "policy-");
        filed_attributes &kept = is_template ? filed.templates[{input, name}] : filed.proxies[name];
        for (auto &[attribute, rules] : attributes)
            if (const char *reason = proxy_reason(name, attribute))
                for (const auto &[number, rule] : rules)
                    rule.excuse(reason);
            else if (attribute == "destination" && !is_template)
                filed.destinations.emplace_back(name, std::move(rules));
            else
                kept[attribute] = std::move(rules);
        if (name == "global" || is_removed_proxy(name))
            filed.proxies.erase(name);
    }
}

// What stands there ahead of a table is no copy of `global`, and the first of its attribute.
void add_configuration(filed_rules &filed, const configuration &conf) {
    for (const Frag *proxy : conf.children("def_proxy"))
        for (const Frag *each = proxy->child; each; each = each->next)
            filed.proxies[clear_name(proxy)][each->name].emplace(1, filed_rule());
}

} // namespace

bool has_need(std::string_view proxy, int bits) {
    const proxy_attr_rec *row = proxy_attr_tab;
    while (row->proxy && proxy != row->proxy)
        row++;
    return !row->proxy || (row->bits & bits) != 0;
}

const char *program_of(const std::string &type) {
    const program_rec *row = program_tab;
    while (row->type && lowercase(type) != row->type)
        row++;
    return row->exec;
}

void file_rules(accounting &all) {
    for (const upgrade_step &step : all.in.command.steps) {
        const account_input *input = all.input_of(step);
        if (input && input->conf && input->translated)
            add_configuration(all.filed, *input->conf);
        if (!input || !input->table)
            continue;
        for (size_t i = 0; i < input->table->rules.size(); i++)
            read_rule(all.filed, {all.rule_lines[input->table][i], &input->table->rules[i]});
        finish_table(all.filed, input);
    }
}

std::string table_reason(const accounting &all, const account_line &line) {
    const account_input &input = *line.input;
    if (input.unread)
        return "a table is for configurations from before 4.0";
    if (line.rules == 0) {
        auto found = input.table->dropped.find(line.line);
        return found != input.table->dropped.end() ? found->second : "";
    }
    const table_rule &rule = line.rule();
    if (input.removed && rule.attribute != "destination")
        return "-e removes all proxies that are there";
    auto is_gone = [&](const std::string &name) {
        return is_no_proxy(name) || is_dropped_proxy(name, all.data.release);
    };
    const std::vector<std::string> &proxies = all.in.before.proxies;
    bool reaches_none = std::all_of(proxies.begin(), proxies.end(), is_gone);
    if (rule.attribute == "hosts" && std::all_of(rule.names.begin(), rule.names.end(), [&](const std::string &name) {
            return name[0] == '*' ? reaches_none : is_gone(name);
        }))
        return "it lets nobody through a proxy of the new release";
    return line.reason;
}
