// The netperm table reader.
//
// A rule line is a list of proxy names, a colon, an attribute word and the rest as text. The reader understands no
// more than that and the attribute's prefix; a line that it can't use is passed over without a word.
#include "frag_tools.h"
#include "name_index.h"
#include "netperm.h"

#include <cstring>
#include <utility>

const global_word_rec global_word_tab[] = {
    {"use_name_logs", false},
    {"afw-dest", true},
    {"logging", false},
    {nullptr, false},
};

namespace {

constexpr size_t READ_UNIT = 8190; // bytes of one read; a longer line arrives as several units
char bigbuf[8192];

/// Reads one unit, up to and including a line feed. The result is its length, 0 at the end of input and once a read has
/// failed: what was read before it failed could be half a rule, and half a pattern matches other hosts.
size_t read_unit(FILE *stream) {
    size_t len = 0;
    int byte = 0;
    while (len < READ_UNIT && byte != '\n' && (byte = getc_unlocked(stream)) != EOF)
        bigbuf[len++] = static_cast<char>(byte);
    bigbuf[len] = 0;
    return ferror(stream) ? 0 : len;
}

void skip_line(FILE *stream) {
    for (int byte = 0; byte != EOF && byte != '\n';)
        byte = getc_unlocked(stream);
}

bool is_name_separator(char byte) { return is_blank(byte) || byte == ','; }

/// The state of one reading: the two nodes that always exist and the indexes of lists that grow long.
struct table_reader {
    Frag *def_proxy;
    Frag *global;
    list_indexes indexes;
    int line = 0;

    void read_line(char *begin, char *text);
    void serve_name(const char *name, const char *attribute, const char *text);
    Frag *find_or_make_proxy(const char *name);
};

bool is_global_only(const char *attribute) {
    for (const global_word_rec *rec = global_word_tab; rec->word; rec++)
        if (strcmp(attribute, rec->word) == 0)
            return true;
    return false;
}

// Steps over the prefix at the front of the name, one at most, and returns its bit. A table knows no `onlyon-`.
long take_prefix(const char *&name) {
    static const struct {
        std::string_view text;
        long bit;
    } prefixes[] = {{"permit-", ATTR_PERMIT}, {"deny-", ATTR_DENY}, {"absorb-", ATTR_ABSORB}};
    for (const auto &prefix : prefixes)
        if (has_prefix_nocase(name, prefix.text)) {
            name += prefix.text.size();
            return prefix.bit;
        }
    return 0;
}

void file_rule(list_indexes &indexes, Frag *proxy, int line, const char *attribute, const char *text) {
    std::string stored = storedname(attribute);
    const char *name = stored.c_str();
    long bits = take_prefix(name);

    Frag *rules = indexes.find(&proxy->child, key_component(name));
    if (!rules) {
        bool is_list = strcmp(name, "hosts") == 0 || strcmp(name, "url") == 0 || strcmp(name, "sid") == 0;
        std::string key = name;
        if (is_list)
            key += "_0";
        indexes.set_key(&proxy->child, key.c_str(), text, proxy)->attr = bits;
        return;
    }
    if (strcmp(rules->name, "authenticate") == 0 || strcmp(rules->name, "authserver") == 0)
        return;
    if (!rules->child) {
        // The second rule makes a list of what was one value.
        Frag *first = fsetp(&rules->child, "1", nullptr, rules);
        std::swap(first->value, rules->value);
        std::swap(first->vlen, rules->vlen);
        first->attr = rules->attr;
        rules->attr = 0;
    }
    indexes.set_key(&rules->child, numbertext(line).c_str(), text, rules)->attr = bits;
}

Frag *table_reader::find_or_make_proxy(const char *name) {
    std::string_view component = key_component(name);
    if (Frag *proxy = indexes.find(&def_proxy->child, component))
        return proxy;
    Frag *proxy = indexes.set_key(&def_proxy->child, name, nullptr, def_proxy);
    proxy->child = copy_fragtree(&global->child, proxy);
    for (const global_word_rec *rec = global_word_tab; rec->word; rec++)
        if (!rec->inherited)
            fremove(&proxy->child, storedname(rec->word).c_str());
    return proxy;
}

void table_reader::serve_name(const char *name, const char *attribute, const char *text) {
    if (*name != '*') {
        file_rule(indexes, find_or_make_proxy(name), line, attribute, text);
        return;
    }
    if (!is_global_only(attribute))
        for (Frag *proxy = def_proxy->child; proxy; proxy = proxy->next)
            if (proxy != global)
                file_rule(indexes, proxy, line, attribute, text);
    file_rule(indexes, global, line, attribute, text);
}

// Files the rule of the line at `begin`, `text` being the place behind its leading blanks and carriage returns.
void table_reader::read_line(char *begin, char *text) {
    text[strcspn(text, "\r\n")] = 0;
    char *colon = strchr(text, ':');
    if (!colon)
        return;
    *colon = 0;
    char *attribute = colon + 1;
    while (is_blank(*attribute))
        attribute++;
    if (!*attribute)
        return;
    char *argument = attribute + word_len(attribute);
    if (*argument)
        *argument++ = 0;

    char *name = begin;
    for (;;) {
        while (is_name_separator(*name))
            name++;
        if (!*name)
            return;
        char *end = name;
        for (; *end && !is_name_separator(*end); end++)
            if (*end == '_')
                *end = '-';
        char held = *end;
        *end = 0;
        serve_name(name, attribute, argument);
        *end = held;
        name = end;
    }
}

} // namespace

int readnpt(FILE *stream, FragList db) {
    table_reader reader{};
    reader.global = fset(db, "def_proxy_global", nullptr);
    reader.def_proxy = fset(db, "def_proxy", nullptr);
    while (size_t len = read_unit(stream)) {
        reader.line++;
        if (bigbuf[0] == '#')
            continue;
        char *text = bigbuf + strspn(bigbuf, " \t\r");
        if (*text == '\n')
            continue;
        if (!*text) {
            // Nothing but blanks, and no line feed behind them: the rest of the line is dropped. Only if a zero byte
            // has ended the text, the unit can hold the line feed, and there is no rest.
            if (bigbuf[len - 1] != '\n')
                skip_line(stream);
            continue;
        }
        reader.read_line(bigbuf, text);
    }
    return 0;
}

int add_rule(Frag *proxy, int line, const char *attribute, const char *text) {
    list_indexes indexes;
    file_rule(indexes, proxy, line, attribute, text);
    return 0;
}
