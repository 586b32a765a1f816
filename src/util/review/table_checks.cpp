// Lines of a netperm table that the reader drops, cuts or files under a word that means nothing.
#include "table_checks.h"
#include "frag_tools.h"
#include "input_checks.h"
#include "nsym.h"

#include <algorithm>
#include <fmt/format.h>
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
    {"hosts", true},    {"destination", true}, {"authenticate", true}, {"authserver", true},
    {"xgateway", true}, {"proxyexec", true},   {"password", true},     {"use_name_logs", true},
    {"logging", true},  {"url", false},        {"sid", false},         {nullptr, false},
};

std::string without_separators(std::string_view word) {
    std::string plain;
    for (char byte : word) {
        if (byte != '-' && byte != '_')
            plain += lowercase(byte);
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

// What was probably meant by a word that means nothing; empty if it looks like nothing known.
std::string meant_word(std::string_view word) {
    std::string_view base = strip_prefix(word);
    if (is_known(base))
        return "";
    std::string plain = without_separators(word);
    for (std::string_view prefix : {"", "permit", "deny", "absorb"}) {
        if (plain.substr(0, prefix.size()) != prefix)
            continue;
        std::string rest = plain.substr(prefix.size());
        for (const known_word *row = known_words; row->word; row++) {
            std::string known = without_separators(row->word);
            if (rest == known || (row->any_slip && one_slip_apart(rest, known)))
                return (prefix.empty() ? "" : std::string(prefix) + "-") +
                       (known == "proxyexec" ? "proxy-exec" : row->word);
        }
    }
    return "";
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

void check_attribute(const std::string &name, long number, const table_line &line, review_data &data) {
    if (line.attribute == "deny" || line.attribute == "permit") {
        std::string_view next = line.text.substr(0, line.text.find_first_of(" \t"));
        if (is_known(next))
            tell(data, "file",
                 format("{0} {1} is the attribute {0}, which means nothing: {0}-{1} is meant?", line.attribute, next),
                 name, number);
    }
    if (std::string meant = meant_word(line.attribute); !meant.empty())
        tell(data, "file", format("{} means nothing: {} is meant?", line.attribute, meant), name, number);
    if (strip_prefix(line.attribute) != "hosts")
        return;
    std::string_view text = line.text;
    while (true) {
        text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
        if (text.empty() || text[0] == '-')
            break;
        std::string_view host = text.substr(0, text.find_first_of(" \t"));
        if (host.find(',') != host.npos)
            tell(data, "file",
                 format("{} is one word with a comma, and no host has it: hosts stand apart by blanks", host), name,
                 number);
        text.remove_prefix(host.size());
    }
}

void check_line(const std::string &name, long number, std::string_view line, review_data &data) {
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
}

} // namespace

void check_table(const std::string &name, std::string_view text, review_data &data) {
    size_t before = data.findings.size();
    for (long number = 1; !text.empty(); number++) {
        std::string_view line = text.substr(0, text.find('\n'));
        if (line.find_first_not_of(" \t\r") != line.npos)
            check_line(name, number, line, data);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    size_t told = data.findings.size() - before;
    if (told > MOST_TOLD) {
        data.findings.resize(before + MOST_TOLD);
        tell(data, "file", format("{} more of such lines", told - MOST_TOLD), name);
    }
}
