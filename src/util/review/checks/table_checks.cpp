// Lines of a netperm table that are dropped, cut, or say something else than they look like.
#include "checks/checks.h"
#include "frag_tools.h"
#include "netperm.h"
#include "nupgrade.h"

#include <algorithm>
#include <cctype>
#include <sstream>
#include <utility>

using fmt::format;

namespace {

constexpr size_t MOST_TOLD = 50; // of one table; the rest is counted

std::string letters_of(std::string_view word) {
    std::string plain;
    std::copy_if(word.begin(), word.end(), std::back_inserter(plain), [](unsigned char byte) { return isalnum(byte); });
    return lowercase(plain);
}

// True if the letters are equal, one more, less or other makes one of the other, or two neighbours are swapped.
bool is_near(std::string_view one, std::string_view other) {
    std::string a = letters_of(one), b = letters_of(other);
    auto [a_begin, b_begin] = std::mismatch(a.begin(), a.end(), b.begin(), b.end());
    a.erase(a.begin(), a_begin);
    b.erase(b.begin(), b_begin);
    auto [a_end, b_end] = std::mismatch(a.rbegin(), a.rend(), b.rbegin(), b.rend());
    a.erase(a_end.base(), a.end());
    b.erase(b_end.base(), b.end());
    return std::max(a.size(), b.size()) < 2 || (a.size() == 2 && b == std::string(a.rbegin(), a.rend()));
}

// What was probably meant by an attribute that means nothing: one slip away from hosts with a prefix or without.
const char *meant_word(const table_rule &rule) {
    std::string word(rule.word);
    for (const char *meant : {"hosts", "permit-hosts", "deny-hosts", "absorb-hosts"})
        if (is_near(word, meant) || has_prefix(word.c_str(), meant) ||
            (rule.text.substr(0, 5) == "hosts" && is_near(word + "hosts", meant)))
            return has_prefix(meant, "hosts") && word.find("deny") != word.npos ? "deny-hosts" : meant;
    return nullptr;
}

// How many numbers the word is of, with a dot between each two; 0 if it is anything else.
long count_parts(std::string_view word) {
    bool plain = !word.empty() && word.find_first_not_of("0123456789.") == word.npos && word.find("..") == word.npos;
    return plain && is_digit(word[0]) && is_digit(word.back()) ? 1 + std::count(word.begin(), word.end(), '.') : 0;
}

// An address, and behind it a mask, a number of bits, or the end of a range.
bool is_range(std::string_view host) {
    size_t end = std::min(host.find_first_of("/:-"), host.size());
    long address = count_parts(host.substr(0, end)), rest = count_parts(host.substr(std::min(end + 1, host.size())));
    return address && (rest == 4 || (rest == 1 && host[end] != ':')) && (host[end] != '-' || address == 4);
}

// A number above 255 or with a zero in front, too many of them, or letters behind two.
bool is_no_address(std::string_view host) {
    size_t digits = std::min(host.find_first_not_of("0123456789."), host.size());
    bool above = count_parts(host) > 4, plain = host.find_first_not_of("0123456789.*") == host.npos;
    for (size_t at = 0, end; plain && at < host.size(); at = end + 1) {
        end = std::min(host.find('.', at), host.size());
        above = above || decimal(std::string(host.substr(at, 4)).c_str()) > 255 || (host[at] == '0' && end > at + 1);
    }
    return above || (digits < host.size() && host[digits] != '*' &&
                     std::count(host.begin(), host.begin() + static_cast<long>(digits), '.') > 1);
}

// A byte of which no host is made, nor a mask or a range.
bool has_odd_byte(std::string_view host) {
    return host.find_first_not_of("ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789.*-_:/") != host.npos;
}

const char *const no_hosts[] = {"any", "all", "none", "hosts", "permit", "deny", "policy", "0.0.0.0", nullptr};

bool is_no_host(std::string_view word) { return is_listed(no_hosts, lowercase(word)); }

/// Host words that look like something else, with what is meant; the first row that fits is told.
struct host_row {
    bool (*fits)(std::string_view host);
    const char *text, *advice;
};
const host_row host_rows[] = {
    {[](std::string_view host) { return host.find('#') == 0; },
     "no comment stands behind a rule: the words from {} on are hosts", "move it to a line of its own"},
    {[](std::string_view host) { return host.find(',') != host.npos; },
     "{} is one word with a comma, and no host has it", "hosts stand apart by blanks"},
    {has_odd_byte, "{} stands for itself alone: * is the one sign that means others",
     "write hosts, and patterns with *"},
    {is_no_host, "{} is read as the name of a host", "write hosts, and patterns with *"},
    {is_range, "{} is compared as text and covers no address in it", "write hosts, and patterns with *"},
    {is_no_address, "{} is no address: its numbers are four, and none above 255", "write the address"},
};

/// One table under check.
struct checking {
    const netperm_table &table;
    review_data &data;
    adviser doubt{data, "file"};
    std::vector<std::string_view> words{}; // all hosts, sorted
    std::set<std::string> templates{};     // those that the table has, and those that were told

    void check_host(const place &at, std::string_view host) const {
        for (const auto &[fits, text, advice] : host_rows)
            if (fits(host))
                return void(doubt(at, advice, fmt::runtime(text), host));
        std::string network = network_pattern(host), stem = network.substr(0, network.find('*'));
        auto other = std::lower_bound(words.begin(), words.end(), stem);
        while (other != words.end() && other->substr(0, stem.size()) == stem && !network_pattern(*other).empty())
            ++other;
        if (!network.empty() && (other == words.end() || other->substr(0, stem.size()) != stem))
            doubt(at, network + " is meant?", "{} stands for itself alone, and nothing else names its network", host);
    }

    void check_rule(const table_rule &rule) {
        place at{table.name, rule.line};
        if (rule.names[0][0] == '#')
            return void(doubt(at, "move the # to the start",
                              "# is a comment only at the very start of a line: this one is a rule"));
        for (const std::string &name : rule.names)
            if (name[0] == '*' && name.size() > 1)
                doubt(at, "* alone stands for all: name the proxies",
                      "{} stands for every proxy, whatever follows the *", name);
        if (rule.attribute != "hosts") {
            if (const char *meant = meant_word(rule))
                doubt(at, format("{} is meant?", meant), "{} means nothing", rule.word);
            return;
        }
        std::vector<access_rule> hosts;
        add_rule_hosts(rule, {}, hosts);
        if (std::string_view first = hosts[0].pattern; first.empty() || first[0] == '-')
            doubt(at, "name hosts, or remove the line", "{} names no host: {}", rule.word,
                  first.empty() ? "it covers nobody" : format("{} is read as one", first));
        for (const access_rule &host : hosts)
            check_host(at, host.pattern);
        rule_options options = split_options(hosts[0].tail);
        if (!options.policy.empty() && templates.insert(options.policy).second)
            doubt(at, "name one that the table has", "no rule of the table is for {}: the hosts get nothing from it",
                  options.policy);
        for (std::string_view word : options.words)
            for (const char *meant : {"-policy", "-exec"})
                if (is_near(word, meant))
                    doubt(at, format("{} is meant?", meant), "{} is an option of its own", word);
    }

    // Proxies that nobody knows.
    void check_names(const configuration &init) const {
        std::set<std::string> told, known;
        for (const maprec *services : {map_unix, map_nt})
            for (const maprec *row = services; row->proxy; row++)
                known.insert(row->proxy);
        for (const proxy_attr_rec *row = proxy_attr_tab; row->proxy; row++)
            known.insert(row->proxy);
        for (const table_rule &rule : table.rules) // its own plugs
            if (is_listed(del_plug_attrs, rule.attribute))
                told.insert(rule.names.begin(), rule.names.end());
        for (const table_rule &rule : table.rules)
            for (const std::string &name : rule.names) {
                if (rule.names[0][0] == '#' || name[0] == '*' || known.count(name) || is_no_proxy(name) ||
                    is_dropped_proxy(name, 0) || init.record("def_proxy", name) || !told.insert(name).second)
                    continue;
                auto meant = std::find_if(known.begin(), known.end(),
                                          [&](const std::string &each) { return is_near(name, each); });
                doubt({table.name, rule.line},
                      meant == known.end() ? "is it the table of this firewall?" : *meant + " is meant?",
                      "{} is a proxy that neither the initial environment nor the release knows", name);
            }
    }

    // A table none of whose addresses is in a network that the old configuration trusts.
    void check_site(const configuration &old) const {
        std::vector<std::string> trusted;
        std::istringstream networks(decoded_name(old.value("trusted_networks")));
        for (std::string word; networks >> word;)
            if (count_parts(word) == 4)
                trusted.push_back(word.substr(0, network_pattern(word).size() - 1));
        bool has_addresses = false;
        for (std::string_view word : words) {
            std::string_view stem = word.substr(0, word.find('*'));
            if (count_parts(stem.substr(0, stem.find_last_not_of('.') + 1)) < 2 || stem.substr(0, 4) == "127.")
                continue;
            has_addresses = true;
            for (const std::string &network : trusted)
                if (stem.substr(0, network.size()) == network.substr(0, stem.size()))
                    return;
        }
        if (has_addresses && !trusted.empty())
            doubt({table.name}, "name the table that belongs to the configuration",
                  "no host of it lies in the trusted_networks of {}: is it the table of another firewall?", old.name);
    }
};

} // namespace

std::string network_pattern(std::string_view word) {
    std::string_view stem = word.substr(0, word.find_last_not_of('.') + 1);
    long parts = count_parts(stem);
    while (parts == 4 && stem.size() > 2 && stem.substr(stem.size() - 2) == ".0")
        stem.remove_suffix(2);
    bool is_network = parts == 4 ? stem.size() < word.size() && word.back() != '.' : parts > 1 || stem != word;
    return is_network && parts && parts <= 4 && stem != "0" ? std::string(stem) + ".*" : "";
}

void check_table(const netperm_table &table, const upgrade_command &command, loaded_files &files, review_data &data) {
    size_t before = data.findings.size();
    checking check{table, data};
    std::vector<access_rule> hosts;
    for (const table_rule &rule : table.rules) {
        check.templates.insert(rule.names.begin(), rule.names.end());
        if (rule.attribute == "hosts")
            add_rule_hosts(rule, {}, hosts);
    }
    for (const access_rule &host : hosts)
        check.words.push_back(host.pattern);
    std::sort(check.words.begin(), check.words.end());
    if (const configuration *old = files.conf(command.old_conf, conf_layout::as_written))
        check.check_site(*old);
    if (const configuration *init = files.conf(command.init_conf, conf_layout::as_written))
        check.check_names(*init);
    for (const auto &[line, why] : table.dropped)
        check.doubt({table.name, line}, "write proxies, a colon and what they get", "{}: it is dropped", why);
    long last = 0;
    for (const table_rule &rule : table.rules) {
        if (rule.line == std::exchange(last, rule.line))
            check.doubt({table.name, rule.line}, "make several of it",
                        "a line of more than 8190 bytes: the rest is one of its own");
        check.check_rule(rule);
    }
    if (size_t told = data.findings.size() - before; told > MOST_TOLD) {
        data.findings.resize(before + MOST_TOLD);
        check.doubt({table.name}, "mend these first", "{} more of such lines", told - MOST_TOLD);
    }
}
