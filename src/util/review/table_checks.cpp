// Lines of a netperm table that the reader drops, cuts or files under a word that means nothing.
#include "table_checks.h"
#include "frag_tools.h"
#include "input_checks.h"
#include "netperm_rules.h"
#include "nsym.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <map>
#include <set>
#include <vector>

using fmt::format;

namespace {

constexpr size_t MOST_TOLD = 50;   // of one table; the rest is counted
constexpr size_t READ_UNIT = 8190; // bytes of a line with its end that arrive in one piece

/// Words of which another spelling is worth a word, and whether they are long enough for a slip of one letter to show.
struct known_word {
    const char *word;
    bool any_slip;
};
const known_word known_words[] = {
    {"hosts", true},     {"destination", true}, {"authenticate", true},  {"authserver", true}, {"xgateway", true},
    {"proxyexec", true}, {"password", true},    {"use_name_logs", true}, {"logging", true},    {"timeout", true},
    {"url", false},      {"sid", false},        {nullptr, false},
};

std::string letters_of(std::string_view word) {
    std::string plain;
    for (char byte : word) {
        char lower = lowercase(byte);
        if ((lower >= 'a' && lower <= 'z') || is_digit(byte))
            plain += lower;
    }
    return plain;
}

// True if one letter more, less or other makes `b` of `a`, or two neighbours stand the wrong way round.
bool one_slip_apart(std::string_view a, std::string_view b) {
    if (a.size() > b.size())
        std::swap(a, b);
    size_t same = 0;
    while (same < a.size() && a[same] == b[same])
        same++;
    std::string_view rest_a = a.substr(same), rest_b = b.substr(same);
    if (b.size() - a.size() == 1)
        return rest_a == rest_b.substr(1);
    if (a.size() != b.size() || rest_a.empty())
        return false;
    if (rest_a.substr(1) == rest_b.substr(1))
        return true;
    return rest_a.size() > 1 && rest_a[0] == rest_b[1] && rest_a[1] == rest_b[0] &&
           rest_a.substr(2) == rest_b.substr(2);
}

// The attribute without the prefix that the reader takes off; what it means is compared by exact bytes.
std::string_view strip_prefix(std::string_view word) {
    for (std::string_view prefix : {"permit-", "deny-", "absorb-"}) {
        if (lowercase(word.substr(0, prefix.size())) == prefix)
            return word.substr(prefix.size());
    }
    return word;
}

bool is_known(std::string_view word) {
    for (const known_word *row = known_words; row->word; row++) {
        if (word == row->word)
            return true;
    }
    return word == "proxy-exec";
}

bool is_near(std::string_view a, std::string_view b) { return a == b || one_slip_apart(a, b); }

// What was probably meant by a word that means nothing; empty if it looks like nothing known.
std::string meant_word(std::string_view word) {
    if (is_known(strip_prefix(word)))
        return "";
    std::string plain = letters_of(word);
    size_t separator = std::min(word.find_first_of("-_"), word.size());
    std::string left = letters_of(word.substr(0, separator)), right = letters_of(word.substr(separator));
    for (std::string_view prefix : {"", "permit", "deny", "absorb"}) {
        for (const known_word *row = known_words; row->word; row++) {
            std::string known = letters_of(row->word), whole = std::string(prefix) + known;
            bool near = row->any_slip ? is_near(plain, whole) : plain == whole;
            // A slip in the prefix and one in the word.
            near = near || (!prefix.empty() && is_near(left, prefix) &&
                            (row->any_slip ? is_near(right, known) : right == known));
            if (near)
                return (prefix.empty() ? "" : std::string(prefix) + "-") +
                       (known == "proxyexec" ? "proxy-exec" : row->word);
        }
    }
    return "";
}

// True for an address in which the letter O or l stands among digits: 1O.0.0.1, 10.l.*.
bool has_letter_for_digit(std::string_view host) {
    long digits = 0, letters = 0;
    for (char byte : host) {
        digits += is_digit(byte);
        letters += byte == 'O' || byte == 'o' || byte == 'l' || byte == 'I';
    }
    long rest = static_cast<long>(host.size()) - digits - letters;
    return letters && digits > letters && host.find('.') != host.npos &&
           rest == std::count(host.begin(), host.end(), '.') + std::count(host.begin(), host.end(), '*');
}

struct table_line {
    std::string_view names, attribute, text;
};

// The parts of a rule line. False if the line has no colon or nothing behind it.
bool split_line(std::string_view line, table_line &parts) {
    size_t colon = line.find(':');
    size_t start = colon == line.npos ? colon : line.find_first_not_of(" \t", colon + 1);
    if (start == line.npos)
        return false;
    size_t end = std::min(line.find_first_of(" \t", start), line.size());
    parts = {line.substr(0, colon), line.substr(start, end - start), line.substr(std::min(end + 1, line.size()))};
    return true;
}

// The next word of the text, which is taken off it; empty at its end.
std::string_view take_word(std::string_view &text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    std::string_view word = text.substr(0, text.find_first_of(" \t"));
    text.remove_prefix(word.size());
    return word;
}

// How many numbers the word is of, with a dot between each two; 0 if it is anything else.
long count_parts(std::string_view word) {
    long parts = 0;
    while (true) {
        size_t digits = std::min(word.find_first_not_of("0123456789"), word.size());
        if (digits < 1 || digits > 3)
            return 0;
        parts++;
        word.remove_prefix(digits);
        if (word.empty())
            return parts;
        if (word[0] != '.')
            return 0;
        word.remove_prefix(1);
    }
}

// How many numbers of an address a mask such as 24 or 255.255.255.0 leaves as they are; 0 if that is none of them.
long masked_parts(std::string_view mask) {
    static const std::string_view masks[][2] = {
        {"8", "255.0.0.0"}, {"16", "255.255.0.0"}, {"24", "255.255.255.0"}, {"32", "255.255.255.255"}};
    for (long i = 0; i < 4; i++)
        if (mask == masks[i][0] || mask == masks[i][1])
            return i + 1;
    return 0;
}

// What is wrong with a word that says a network or a range in another notation; empty if it is no such word.
std::string range_text(std::string_view host) {
    size_t end = host.find_first_of("/:-");
    if (end == host.npos)
        return "";
    std::string_view address = host.substr(0, end), rest = host.substr(end + 1);
    long parts = count_parts(address), rest_parts = count_parts(rest);
    bool is_network = parts && (rest_parts == 4 || (host[end] == '/' && rest_parts == 1));
    bool is_range = parts == 4 && (rest_parts == 4 || rest_parts == 1);
    if (host[end] == '-' ? !is_range : !is_network)
        return "";
    std::string text = format("{} is compared as text and covers no address in it: ", host);
    long kept = host[end] == '-' ? 0 : masked_parts(rest);
    if (kept == 0 || kept > parts)
        return text + "hosts and patterns with * are meant?";
    size_t cut = 0;
    for (long i = 0; i < kept; i++)
        cut = std::min(address.find('.', cut), address.size()) + 1;
    return text + format("{} is meant?", kept == 4 ? std::string(address) : std::string(address.substr(0, cut)) + "*");
}

// What is wrong with one host of a rule; empty if nothing is.
std::string host_text(std::string_view host) {
    if (host.find(',') != host.npos)
        return format("{} is one word with a comma, and no host has it: hosts stand apart by blanks", host);
    if (host.find_first_of("\"'") != host.npos)
        return format("{} is a host with its quotes: there is no quoting", host);
    if (has_letter_for_digit(host))
        return format("{} has a letter among its digits: is a 0 or a 1 meant?", host);
    std::string_view stem = host.substr(0, host.size() - (host.size() > 1 && host.back() == '.'));
    long parts = count_parts(stem);
    if (parts < 4 && parts >= (stem == host ? 2 : 1))
        return format("{} covers {} alone: {}.* is meant?", host, host, stem);
    return range_text(host);
}

void check_tail(const std::string &name, long number, std::string_view tail, review_data &data) {
    for (std::string_view word = take_word(tail); !word.empty() && word != "-exec"; word = take_word(tail)) {
        std::string_view rest = tail, next = take_word(rest);
        std::string switched(word);
        if (word == "-" && is_near(lowercase(next), "policy"))
            switched += " " + std::string(next);
        else if (word[0] != '-' || word.substr(0, strlen("-policy")) == "-policy" ||
                 !is_near(lowercase(word), "-policy"))
            continue;
        tell(data, "file", format("{} is a switch of its own: -policy is meant?", switched), name, number);
    }
}

void check_hosts(const std::string &name, long number, const table_line &line, review_data &data) {
    auto say = [&](std::string text) { tell(data, "file", std::move(text), name, number); };
    std::string_view text = line.text, rest = text, first = take_word(rest);
    if (first.empty())
        return say(format("{} names no host: it covers nobody", line.attribute));
    if (first[0] == '-')
        say(format("{} names no host: {} is read as one", line.attribute, first));
    while (true) {
        rest = text;
        std::string_view host = take_word(rest);
        if (host.empty() || host[0] == '-')
            break;
        text = rest;
        if (host[0] == '#') {
            std::string_view next = take_word(rest);
            bool alone = next.empty() || next[0] == '-';
            return say("# is a comment only at the start of a line: " +
                       (alone ? format("{} is a host here", host) : format("{} and {} are hosts here", host, next)));
        }
        if (host == "\\")
            say("\\ is a host here: no line goes on in the next");
        else if (std::string wrong = host_text(host); !wrong.empty())
            say(wrong);
    }
    check_tail(name, number, text, data);
}

void check_attribute(const std::string &name, long number, const table_line &line, review_data &data) {
    for (std::string_view prefix : {"permit", "deny", "absorb"}) {
        std::string_view next = line.text.substr(0, line.text.find_first_of(" \t"));
        if (is_near(letters_of(line.attribute), prefix) && is_known(next))
            tell(data, "file",
                 format("{0} {1} is the attribute {0}, which means nothing: {2}-{1} is meant?", line.attribute, next,
                        prefix),
                 name, number);
    }
    if (std::string meant = meant_word(line.attribute); !meant.empty())
        tell(data, "file", format("{} means nothing: {} is meant?", line.attribute, meant), name, number);
    if (strip_prefix(line.attribute) == "hosts")
        check_hosts(name, number, line, data);
}

/// The templates of a table, and the policies that its rules name.
struct policy_names {
    struct use {
        long first = 0, count = 0; // of the lines
    };
    std::set<std::string> templates;
    std::map<std::string, use> used;
};

// The policy that the rule's tail names last, as a template's name would have it. False if it names none.
bool find_policy(std::string_view text, std::string &policy) {
    const std::string_view mark = "-policy";
    bool named = false;
    bool tail = false;
    for (std::string_view word = take_word(text); !word.empty(); word = take_word(text)) {
        tail = tail || word[0] == '-';
        if (word == "-exec")
            break;
        if (!tail || word.substr(0, mark.size()) != mark)
            continue;
        policy = word.size() > mark.size() ? word.substr(mark.size()) : take_word(text);
        std::replace(policy.begin(), policy.end(), '_', '-');
        named = true;
    }
    return named;
}

void note_policies(long number, const table_line &line, policy_names &noted) {
    bool served = false; // somebody who is a proxy
    for (std::string_view names = line.names; !names.empty();) {
        std::string name(names.substr(0, names.find_first_of(" \t,")));
        names.remove_prefix(std::min(names.size(), name.size() + 1));
        std::replace(name.begin(), name.end(), '_', '-');
        name.resize(std::min(name.size(), name.find('=')));
        if (has_prefix(name.c_str(), "policy-"))
            noted.templates.insert(name.substr(strlen("policy-")));
        served = served || (!name.empty() && !is_no_proxy(name));
    }
    std::string policy;
    if (!served || strip_prefix(line.attribute) != "hosts" || !find_policy(line.text, policy))
        return;
    policy_names::use &use = noted.used[policy];
    if (use.count++ == 0)
        use.first = number;
}

void check_line(const std::string &name, long number, std::string_view line, policy_names &policies,
                review_data &data) {
    if (line.size() + 1 > READ_UNIT)
        tell(data, "file",
             format("a line of {} bytes: it is cut behind {}, and the rest is read as a line of its own", line.size(),
                    READ_UNIT),
             name, number);
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    if (line[0] == '#')
        return;
    size_t start = line.find_first_not_of(" \t\r");
    if (size_t end = line.find('\r', start); end != line.npos) {
        tell(data, "file", "a CR within the line: what stands behind it is lost", name, number);
        line = line.substr(0, end);
    }
    table_line parts;
    bool rule = split_line(line, parts);
    if (line.find(':') == line.npos)
        tell(data, "file", "no colon in this line: it is dropped", name, number);
    else if (!rule)
        tell(data, "file", "nothing stands behind the colon: the line is dropped", name, number);
    else if (line[start] == '#')
        tell(data, "file", "# is a comment only at the very start of a line: this one is a rule", name, number);
    else
        check_attribute(name, number, parts, data);
    if (rule)
        note_policies(number, parts, policies);
}

} // namespace

void check_table(const std::string &name, std::string_view text, review_data &data) {
    size_t before = data.findings.size();
    policy_names policies;
    for (long number = 1; !text.empty(); number++) {
        std::string_view line = text.substr(0, text.find('\n'));
        if (line.find_first_not_of(" \t\r") != line.npos)
            check_line(name, number, line, policies, data);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    for (const auto &[policy, use] : policies.used) {
        if (policies.templates.count(policy))
            continue;
        std::string said = policy.empty() ? "-policy stands at the end of the line and names none"
                                          : format("-policy {0} names no template: without policy-{0}: in the table "
                                                   "nothing but the name comes of it",
                                                   policy);
        tell(data, "file", said, name, use.first).count = use.count;
    }
    size_t told = data.findings.size() - before;
    if (told > MOST_TOLD) {
        data.findings.resize(before + MOST_TOLD);
        tell(data, "file", format("{} more of such lines", told - MOST_TOLD), name);
    }
}
