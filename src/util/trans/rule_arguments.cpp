// The text of a rule taken apart: its marker, its hosts, the words of its tail.
#include "frag_tools.h"
#include "netperm.h"
#include "translation.h"

#include <cstring>
#include <vector>

std::string_view rule_marker(const char *text) {
    if (has_prefix(text, PERMIT_MARKER))
        return PERMIT_MARKER;
    return has_prefix(text, DENY_MARKER) ? DENY_MARKER : "";
}

rule_text read_rule_text(const char *text) {
    text = skip_blanks(text);
    std::string_view marker = rule_marker(text);
    std::string_view host(text + marker.size(), word_len(text + marker.size()));
    return {marker, host, skip_blanks(host.data() + host.size())};
}

rule_text read_rule(const Frag *rule) { return read_rule_text(rule->value ? rule->value : ""); }

char *makestring(const char *text) { return makestr(text); }

char *burst_sub(Frag *hosts, int *counter, const char *marker, char *text) {
    std::vector<const char *> words;
    do {
        words.push_back(text);
        text += word_len(text);
        if (*text)
            *text++ = 0;
        while (is_blank(*text))
            text++;
    } while (*text && *text != '-');
    char *tail = makestring(text);

    // The last host's rule is made first, so the first host's stands at the head; the numbers go by the order of the
    // hosts.
    name_index rules(&hosts->child);
    int number = *counter + static_cast<int>(words.size());
    *counter = number;
    for (size_t i = words.size(); i-- > 0;) {
        Frag *rule = rules.set_key(&hosts->child, numbertext(--number).c_str(), nullptr, hosts);
        setvalue(rule, std::string(marker) + words[i] + " " + tail);
    }
    return tail;
}

char *take_word(list_indexes &indexes, Frag *config_set, char *text) {
    char *rest = text + word_len(text);
    if (*rest)
        *rest++ = 0;
    while (is_blank(*rest))
        rest++;
    if (strcmp(text, "-exec") == 0) {
        indexes.set_key(&config_set->child, "exec", rest, config_set);
        return rest + strlen(rest);
    }
    indexes.set_key(&config_set->child, text, "*", config_set);
    return rest;
}

char *parse_arg(Frag *config_set, char *text) {
    list_indexes indexes;
    return take_word(indexes, config_set, text);
}
