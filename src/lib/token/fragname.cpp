// Names: the stored and the clear form, prefixes, rendered keys.
#include "frag_tools.h"
#include "nsym.h"

#include <cstdlib>
#include <cstring>
#include <vector>

char keynamebuf[KEYNAME_SIZE];
int keynamelen;
static char fragnamebuf[FRAGNAME_SIZE];

namespace {

struct prefix_rec {
    const char *text;
    long bit;
};
// A node with several bits shows the first of these that it has.
const prefix_rec prefix_tab[] = {
    {"deny-", ATTR_DENY}, {"permit-", ATTR_PERMIT}, {"absorb-", ATTR_ABSORB}, {"onlyon-", ATTR_ONLYON}, {nullptr, 0},
};

int hexdigit(char digit) {
    if (is_digit(digit))
        return digit - '0';
    if (digit >= 'a' && digit <= 'f')
        return digit - 'a' + 10;
    if (digit >= 'A' && digit <= 'F')
        return digit - 'A' + 10;
    return 0;
}

} // namespace

const attr_map_rec attr_map_tab[] = {
    {"permit-route-char", "route-char-permit"},
    {"deny-route-char", "route-char-deny"},
    {"permit-relay", "relay-permit"},
    {"deny-relay", "relay-deny"},
    {"permit-spam", "spam-permit"},
    {"deny-spam", "spam-deny"},
    {nullptr, nullptr},
};

int hexconvert(const char *digits) { return hexdigit(digits[0]) * 16 + hexdigit(digits[1]); }

std::string storedname(std::string_view name) {
    static const char digits[] = "0123456789ABCDEF";
    std::string stored;
    stored.reserve(name.size());
    for (char byte : name) {
        if (byte == '_' || byte == '%') {
            stored += '%';
            stored += digits[byte >> 4];
            stored += digits[byte & 15];
        } else {
            stored += byte;
        }
    }
    return stored;
}

static void set_name(Frag *frag, std::string_view name) {
    char *copy = makestr_len(name.data(), name.size());
    free(frag->name);
    frag->name = copy;
}

void renamefrag(Frag *frag, const char *name) { set_name(frag, storedname(name)); }

void renumberfrag(Frag *frag, int number) { set_name(frag, numbertext(number)); }

const char *attr_prefix(long attr) {
    for (const prefix_rec *rec = prefix_tab; rec->text; rec++)
        if (attr & rec->bit)
            return rec->text;
    return "";
}

long strip_attr_prefixes(const char **name) {
    long bits = 0;
    const prefix_rec *rec = prefix_tab;
    while (rec->text) {
        if (lowercase(**name) == *rec->text && has_prefix_nocase(*name, rec->text)) {
            bits |= rec->bit;
            *name += strlen(rec->text);
            rec = prefix_tab;
        } else {
            rec++;
        }
    }
    return bits;
}

char *copy_fragname_len(Frag *frag, char *buffer, int size) {
    buffer[0] = 0;
    if (!frag || !frag->name)
        return buffer;
    const char *prefix = attr_prefix(frag->attr);
    size_t prefix_len = strlen(prefix);
    size_t name_len = strlen(frag->name);
    if (size > 0) {
        size_t room = static_cast<size_t>(size) - 1;
        prefix_len = prefix_len < room ? prefix_len : room;
        name_len = name_len < room - prefix_len ? name_len : room - prefix_len;
    }
    memcpy(buffer, prefix, prefix_len);
    memcpy(buffer + prefix_len, frag->name, name_len);
    buffer[prefix_len + name_len] = 0;

    char *to = strchr(buffer, '%');
    if (!to)
        return buffer;
    const char *from = to;
    while (*from) {
        if (*from == '%' && from[1] && from[2]) {
            *to++ = static_cast<char>(hexconvert(from + 1));
            from += 3;
        } else {
            *to++ = *from++;
        }
    }
    *to = 0;
    return buffer;
}

char *copy_fragname(Frag *frag, char *buffer) { return copy_fragname_len(frag, buffer, -1); }

char *fragname(Frag *frag) { return copy_fragname_len(frag, fragnamebuf, FRAGNAME_SIZE); }

char *fragkeyname(Frag *frag) {
    std::vector<const Frag *> path;
    for (; frag; frag = frag->parent)
        path.push_back(frag);
    size_t len = 0;
    while (!path.empty()) {
        const char *prefix = attr_prefix(path.back()->attr);
        size_t prefix_len = strlen(prefix);
        const char *name = path.back()->name ? path.back()->name : "";
        size_t name_len = strlen(name);
        if (len + prefix_len + name_len < 1020) {
            memcpy(keynamebuf + len, prefix, prefix_len);
            memcpy(keynamebuf + len + prefix_len, name, name_len);
            len += prefix_len + name_len;
        }
        path.pop_back();
        if (!path.empty() && len < KEYNAME_SIZE - 1)
            keynamebuf[len++] = '_';
    }
    keynamebuf[len] = 0;
    keynamelen = static_cast<int>(len);
    return keynamebuf;
}

const char *attr_remap(const char *name) {
    if (*name != 'p' && *name != 'd') // saves most names that are read the comparisons
        return name;
    for (const attr_map_rec *rec = attr_map_tab; rec->file_name; rec++)
        if (strcmp(name, rec->file_name) == 0)
            return rec->stored_name;
    return name;
}

const char *attr_revmap(const char *name) {
    if (*name != 'r' && *name != 's') // saves most names that are written the comparisons
        return name;
    for (const attr_map_rec *rec = attr_map_tab; rec->file_name; rec++)
        if (strcmp(name, rec->stored_name) == 0)
            return rec->file_name;
    return name;
}
