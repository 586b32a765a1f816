// Netperm tables, read for their host rules.
//
// A reader of its own: what the translation makes of a table is judged by it. Rules are kept once a line; a proxy's
// list is put together when it is asked for.
#include "netperm_rules.h"
#include "frag_tools.h"
#include "nsym.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <memory>
#include <strings.h>

namespace {

constexpr size_t READ_UNIT = 8190;

bool is_separator(char byte) { return is_blank(byte) || byte == ','; }

/// Reads one unit, up to and including a line feed, and counts the line feeds. False at the end of input; a unit that
/// a read error ended is none.
bool read_unit(FILE *stream, std::string &unit) {
    unit.clear();
    int byte = 0;
    while (unit.size() < READ_UNIT && byte != '\n' && (byte = getc_unlocked(stream)) != EOF)
        unit += static_cast<char>(byte);
    return !unit.empty() && ferror(stream) == 0;
}

bool skip_line(FILE *stream) {
    int byte = 0;
    while (byte != EOF && byte != '\n')
        byte = getc_unlocked(stream);
    return byte == '\n';
}

/// Takes the prefix off an attribute word, in any case, and tells it.
class_origin take_prefix(std::string_view &word) {
    static const struct {
        std::string_view text;
        class_origin origin;
    } prefixes[] = {{"permit-", class_origin::permit_prefix},
                    {"deny-", class_origin::deny_prefix},
                    {"absorb-", class_origin::absorb_prefix}};
    for (const auto &prefix : prefixes)
        if (word.size() >= prefix.text.size() &&
            strncasecmp(word.data(), prefix.text.data(), prefix.text.size()) == 0) {
            word.remove_prefix(prefix.text.size());
            return prefix.origin;
        }
    return class_origin::none;
}

struct table_reader {
    access_side &side;
    access_table table;
    std::vector<std::string> order; // the names that the table brings in
    size_t moment = 0;
    long line = 1; // where the unit begins

    explicit table_reader(access_side &target) : side(target) {
        table.known.insert(side.proxies.begin(), side.proxies.end());
    }

    void read(FILE *stream);
    void take_line(std::string_view text);
    void serve_name(std::string name, bool sets_hosts);
};

void table_reader::serve_name(std::string name, bool sets_hosts) {
    moment++;
    table_filing filing{side.lines.size() - 1, moment};
    if (name[0] == '*') {
        if (sets_hosts)
            table.wildcard.push_back(filing);
        return;
    }
    name.resize(std::min(name.size(), name.find('='))); // a key ends there
    if (name == "global") {
        if (sets_hosts)
            table.later.push_back(filing);
        return;
    }
    auto [found, added] = table.proxies.try_emplace(name);
    if (added) {
        found->second.named = table.known.count(name) != 0 ? 0 : moment;
        order.push_back(name);
    }
    if (sets_hosts)
        found->second.own.push_back(filing);
}

void table_reader::take_line(std::string_view text) {
    text = text.substr(0, text.find('\0'));
    text = text.substr(0, text.find_first_of("\r\n", text.find_first_not_of(" \t\r")));
    size_t colon = text.find(':');
    if (colon == std::string_view::npos)
        return;
    std::string_view rest = text.substr(colon + 1);
    rest.remove_prefix(std::min(rest.size(), rest.find_first_not_of(" \t")));
    if (rest.empty())
        return;
    std::string_view word = rest.substr(0, rest.find_first_of(" \t"));
    std::string_view argument = rest.substr(std::min(rest.size(), word.size() + 1));

    table_line made;
    made.prefix = take_prefix(word);
    made.plain = word == "hosts";
    bool sets_hosts = word.substr(0, word.find('=')) == "hosts";
    if (sets_hosts) {
        made.line = line;
        made.file = side.files.size() - 1;
        made.text = argument;
        side.lines.push_back(std::move(made));
    }
    std::string_view names = text.substr(0, colon);
    for (size_t at = 0; at < names.size();) {
        size_t end = at;
        while (end < names.size() && !is_separator(names[end]))
            end++;
        if (end > at) {
            std::string name(names.substr(at, end - at));
            std::replace(name.begin(), name.end(), '_', '-');
            serve_name(std::move(name), sets_hosts);
        }
        at = end + 1;
    }
}

void table_reader::read(FILE *stream) {
    std::string unit;
    while (read_unit(stream, unit)) {
        long feeds = unit.back() == '\n' ? 1 : 0;
        if (unit[0] != '#') {
            size_t first = unit.find_first_not_of(" \t\r");
            bool is_bare = first == std::string::npos || unit[first] == 0;
            if (!is_bare)
                take_line(unit);
            else if (feeds == 0 && skip_line(stream))
                feeds++;
        }
        line += feeds;
    }
    for (const std::string &name : order)
        if (!is_no_proxy(name))
            side.add_proxy(name);
    side.tables.push_back(std::move(table));
}

// A marker at the start of the text is stepped over and told.
class_origin take_marker(std::string_view &text, bool &permit) {
    for (bool permits : {true, false}) {
        std::string_view marker = permits ? "%-permit%" : "%-deny%";
        if (text.substr(0, marker.size()) == marker) {
            text.remove_prefix(marker.size());
            permit = permits;
            return class_origin::marker;
        }
    }
    return class_origin::none;
}

void skip_blanks(std::string_view &text) {
    while (!text.empty() && is_blank(text[0]))
        text.remove_prefix(1);
}

} // namespace

bool is_no_proxy(std::string_view name) {
    static const std::string_view names[] = {"netconfig", "authenIP", "getvers", "login-ts",
                                             "radm",      "global",   "gui",     "alerts"};
    return name.substr(0, 7) == "policy-" || std::find(std::begin(names), std::end(names), name) != std::end(names);
}

void add_line_rules(const table_line &line, size_t source, std::vector<access_rule> &into) {
    size_t first = into.size();
    std::string_view text = line.text;
    skip_blanks(text);
    access_rule rule;
    rule.line = line.line;
    rule.source = source;
    rule.permit = line.prefix != class_origin::deny_prefix;
    rule.origin = line.prefix;
    class_origin marker = take_marker(text, rule.permit);
    if (marker != class_origin::none)
        rule.origin = marker;
    do {
        rule.pattern = text.substr(0, text.find_first_of(" \t"));
        text.remove_prefix(rule.pattern.size());
        access_rule added = rule;
        // A further host of a rule without a class stands for itself, and a marker counts there too.
        if (into.size() > first && marker == class_origin::none && rule.permit &&
            take_marker(added.pattern, added.permit) != class_origin::none)
            added.origin = class_origin::marker;
        into.push_back(added);
        skip_blanks(text);
    } while (!text.empty() && text[0] != '-');
    for (; first < into.size(); first++)
        into[first].tail = text;
}

void add_table_rules(const access_side &side, const std::string &proxy, std::vector<access_rule> &into) {
    for (const access_table &table : side.tables) {
        auto found = table.proxies.find(proxy);
        bool named = found != table.proxies.end();
        if (is_no_proxy(proxy) || (!named && table.known.count(proxy) == 0))
            continue;
        std::vector<table_filing> filings = table.wildcard;
        if (named) {
            filings.insert(filings.end(), found->second.own.begin(), found->second.own.end());
            for (const table_filing &filing : table.later)
                if (filing.moment < found->second.named)
                    filings.push_back(filing);
        }
        std::sort(filings.begin(), filings.end(),
                  [](const table_filing &a, const table_filing &b) { return a.moment < b.moment; });
        // A first rule with a `=` behind the attribute stands as a value until a second makes a list of the two.
        if (filings.size() == 1 && !side.lines[filings[0].line].plain)
            continue;
        for (size_t i = 0; i < filings.size(); i++)
            if (i == 0 || filings[i].line != filings[i - 1].line) // a line can name a proxy twice
                add_line_rules(side.lines[filings[i].line], filings[i].line, into);
    }
}

bool read_netperm_rules(const char *path, access_side &side) {
    std::unique_ptr<FILE, int (*)(FILE *)> stream(fopen(path, "re"), fclose);
    if (!stream && errno == ENOMEM)
        outofcore();
    if (!stream)
        return false;
    side.files.emplace_back(path);
    table_reader(side).read(stream.get());
    return true;
}
