// The text of a rule taken apart, and what a policy template gives to a config set.
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

const proxy_attr_rec proxy_attr_tab[] = {
    {"alerts", 0},
    {"ssl-px", 0},
    {"radm", UNREAD_4},
    {"info-px", 0},
    {"gui", UNREAD_4 | UNREAD_8},
    {"tn-px", NEEDS_AUTH | NEEDS_X},
    {"login-sh", NEEDS_AUTH},
    {"credsvc", NEEDS_AUTH},
    {"ahttp-px", NEEDS_AUTH | UNREAD_4},
    {"http-px", NEEDS_AUTH},
    {"rlogin-px", NEEDS_AUTH | NEEDS_X},
    {"mrlyd", 0},
    {"mrly", 0},
    {"pop3-px", NEEDS_AUTH},
    {"whois", 0},
    {"fingerd", 0},
    {"svcgrd-fingerd", 0},
    {"svcgrd-ftpd", 0},
    {"svcgrd-rlogind", 0},
    {"svcgrd-telnetd", 0},
    {"ldap-px", 0},
    {"VDOLive", 0},
    {"NetShow", 0},
    {nullptr, 0},
};

bool proxy_needs(const char *proxy, int bits) {
    for (const proxy_attr_rec *rec = proxy_attr_tab; rec->proxy; rec++)
        if (strcmp(proxy, rec->proxy) == 0)
            return (rec->bits & bits) != 0;
    return true;
}

char *makestring(const char *text) { return makestr(text); }

int needsauth(const char *proxy) { return proxy_needs(proxy, NEEDS_AUTH); }

int needsx(const char *proxy) { return proxy_needs(proxy, NEEDS_X); }

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

    // The first host has the lowest number, though the last host's rule is made first.
    name_index rules(&hosts->child);
    int number = *counter + static_cast<int>(words.size());
    *counter = number;
    for (size_t i = words.size(); i-- > 0;) {
        Frag *rule = rules.set_key(&hosts->child, numbertext(--number).c_str(), nullptr, hosts);
        setvalue(rule, std::string(marker) + words[i] + " " + tail);
    }
    return tail;
}

char *parse_arg(list_indexes &indexes, Frag *config_set, char *text) {
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
    return parse_arg(indexes, config_set, text);
}

int bad_xgateway(Frag *attribute) {
    const char *text = skip_blanks(attribute->value);
    text += rule_marker(text).size();
    if (*text == '*')
        return 0;
    fprintf(stderr, "Ignoring bad xgateway rule %s=%s\n", fragkeyname(attribute), text);
    return 1;
}

// True if the attribute is nothing that the config set of that proxy can take.
static bool is_refused(Frag *config_set, Frag *attribute, const char *proxy) {
    const char *name = attribute->name;
    if (strcmp(name, "hosts") == 0 || strcmp(name, "proxy") == 0)
        return true;
    if (strcmp(name, "authenticate") == 0 || strcmp(name, "authserver") == 0 || strcmp(name, "password") == 0)
        return !needsauth(proxy) || ffind(&config_set->child, name);
    if (strcmp(name, "xgateway") == 0)
        return !needsx(proxy) || (attribute->value && bad_xgateway(attribute));
    return false;
}

void addparm(Frag *config_set, Frag *attribute, const char *proxy) {
    // An attribute with children is flattened: each of them takes its name and its place, its own children likewise.
    std::vector<Frag *> pending{attribute};
    while (!pending.empty()) {
        Frag *frag = pending.back();
        pending.pop_back();
        if (is_refused(config_set, frag, proxy)) {
            freefrag(frag);
        } else if (!frag->child || strcmp(frag->name, "url") == 0 || strcmp(frag->name, "sid") == 0) {
            pushfrag(&config_set->child, frag, config_set);
        } else {
            std::string name = fragname(frag);
            sort_frags(&frag->child);
            reverse_frags(&frag->child);
            while (Frag *child = frag->child) {
                frag->child = child->next;
                child->next = nullptr;
                child->parent = frag->parent;
                renamefrag(child, name.c_str());
                pending.push_back(child);
            }
            freefrag(frag);
        }
    }
}
