// Netperm tables, rule by rule. A reader of its own: what the translation makes of a table is judged by it.
#include "read/netperm_table.h"
#include "frag_tools.h"
#include "upgrade.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace {

constexpr size_t READ_UNIT = 8190; // bytes of a line that are read at once

/// Takes a unit as a rule. The result says why it is none, or is null.
const char *take_rule(std::string_view text, table_rule &rule) {
    size_t colon = text.find(':');
    if (colon == std::string_view::npos)
        return "no colon in this line";
    std::string_view names = text.substr(0, colon), rest = text.substr(colon + 1);
    while (!names.empty()) {
        std::string name(names.substr(0, names.find_first_of(" \t,")));
        names.remove_prefix(std::min(names.size(), name.size() + 1));
        std::replace(name.begin(), name.end(), '_', '-');
        if (!name.empty())
            rule.names.push_back(std::move(name));
    }
    rule.word = take_word(rest);
    if (rule.word.empty())
        return "nothing stands behind the colon";
    rule.attribute = rule.word;
    for (long bit : {ATTR_PERMIT, ATTR_DENY, ATTR_ABSORB})
        if (rule.bits == 0 && has_prefix_nocase(std::string(rule.word).c_str(), prefix_of(bit))) {
            rule.bits = bit;
            rule.attribute.remove_prefix(strlen(prefix_of(bit)));
        }
    rule.attribute = rule.attribute.substr(0, rule.attribute.find('='));
    rule.text = rest.substr(rest.empty() ? 0 : 1);
    return rule.names.empty() ? "no name stands in front of the colon" : nullptr;
}

} // namespace

std::unique_ptr<netperm_table> read_netperm_table(std::string name, file_bytes bytes) {
    auto table = std::make_unique<netperm_table>(netperm_table{std::move(name), std::move(bytes)});
    std::string_view left = table->bytes;
    long line = 1, units = 0;
    auto take_unit = [&](size_t limit) {
        std::string_view unit = left.substr(0, std::min({left.find('\n'), left.size() - 1, limit - 1}) + 1);
        left.remove_prefix(unit.size());
        line += !unit.empty() && unit.back() == '\n';
        return unit;
    };
    for (bool is_rest = false; !left.empty();) {
        table_rule rule{line, ++units};
        std::string_view unit = take_unit(READ_UNIT), text = unit.substr(0, unit.find('\0'));
        bool was_rest = std::exchange(is_rest, unit.back() != '\n');
        size_t first = unit.find_first_not_of(" \t\r\n");
        bool is_comment = unit[0] == '#', is_blank_unit = first >= text.size();
        if (is_blank_unit && is_rest && !is_comment)
            take_unit(left.size()); // the rest of a long line goes with its blanks
        if (is_comment || is_blank_unit)
            continue;
        if (const char *why = take_rule(text.substr(0, text.find_first_of("\r\n", first)), rule))
            table->dropped.emplace(rule.line, was_rest ? "what is behind 8190 bytes of this line is no rule" : why);
        else
            table->rules.push_back(std::move(rule));
    }
    return table;
}

bool is_no_proxy(std::string_view name) {
    return name.substr(0, 7) == "policy-" || name == "global" || name == "alerts";
}

bool is_removed_proxy(std::string_view name) { return is_listed(del_netperm_proxies, name) && !is_no_proxy(name); }

bool is_dropped_proxy(std::string_view name, int release) {
    bool is_gone = release < 40 ? is_removed_proxy(name) : is_listed(del_50_proxies, name);
    return release != 55 && (is_gone || is_listed(del_55_proxies, name));
}

void skip_blank(std::string_view &text) { text.remove_prefix(std::min(text.size(), text.find_first_not_of(" \t"))); }

std::string_view take_word(std::string_view &text) {
    skip_blank(text);
    std::string_view word = text.substr(0, text.find_first_of(" \t"));
    text.remove_prefix(word.size());
    return word;
}

rule_hosts split_hosts(std::string_view text) {
    rule_hosts split;
    skip_blank(text);
    for (std::string_view marker : {"%-permit%", "%-deny%"})
        if (split.marker.empty() && text.substr(0, marker.size()) == marker)
            split.marker = text.substr(0, marker.size());
    text.remove_prefix(split.marker.size());
    do {
        std::string_view host = text.substr(0, text.find_first_of(" \t"));
        text.remove_prefix(host.size());
        split.hosts.push_back(host);
        skip_blank(text);
    } while (!text.empty() && text[0] != '-');
    split.tail = text;
    return split;
}

rule_options split_options(std::string_view tail) {
    constexpr std::string_view policy = "-policy";
    rule_options split;
    for (std::string_view word = take_word(tail); !word.empty(); word = take_word(tail)) {
        if (word == "-exec") {
            skip_blank(tail);
            split.exec = std::exchange(tail, {});
        } else if (word.substr(0, policy.size()) == policy) {
            word.remove_prefix(policy.size());
            split.policy = "policy-" + std::string(word.empty() ? take_word(tail) : word);
            std::replace(split.policy.begin(), split.policy.end(), '_', '-');
        } else {
            split.words.push_back(word);
        }
    }
    return split;
}
