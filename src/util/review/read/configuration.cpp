// What a configuration is asked for.
#include "read/configuration.h"

#include "frag_tools.h"
#include <algorithm>
#include <cstring>
#include <map>
#include <tuple>

using namespace std::string_view_literals;

char *configuration::keep(std::string_view text) {
    char *kept = static_cast<char *>(texts.allocate(text.size() + 1, 1));
    kept[text.copy(kept, text.size())] = 0;
    return kept;
}

void configuration::set_value(Frag *frag, std::string_view value) {
    frag->value = keep(value);
    frag->vlen = static_cast<long>(value.size());
}

Frag *configuration::add(list_indexes &known, Frag *parent, std::string_view stored, long line) {
    FragList list = parent ? &parent->child : &tree;
    Frag *made = &nodes.emplace_back();
    made->name = keep(stored);
    made->attr = line << 4;
    pushfrag(list, made, parent);
    known.add(list, made);
    return made;
}

Frag *configuration::make(list_indexes &known, Frag *parent, std::string_view key, long line) {
    for (;;) {
        std::string_view component = key.substr(0, key.find_first_of("_="));
        Frag *found = known.find(parent ? &parent->child : &tree, component);
        parent = found ? found : add(known, parent, component, line);
        key.remove_prefix(component.size());
        if (key.empty() || key[0] == '=')
            return parent;
        key.remove_prefix(1);
    }
}

std::string configuration::value(const Frag *frag, const char *key) {
    if (frag && *key)
        frag = ffind(const_cast<FragList>(&frag->child), key);
    return frag ? std::string(text_of(frag)) : std::string();
}

Frag *configuration::record(const char *family, const std::string &clear) const {
    Frag *top = find(family);
    if (!top)
        return nullptr;
    Frag *found = indexes.find(&top->child, encoded_name(clear.c_str()));
    found = found ? found : indexes.find_key(&top->child, clear.c_str());
    const char *bare = stored_attribute(clear.c_str());
    long bits = take_prefixes(&bare);
    Frag *prefixed = found ? nullptr : indexes.find(&top->child, encoded_name(bare));
    return prefixed && bits_of(prefixed) == bits ? prefixed : found;
}

std::vector<Frag *> configuration::children(const Frag *frag, const char *key) {
    std::vector<Frag *> all;
    if (frag && *key)
        frag = ffind(const_cast<FragList>(&frag->child), key);
    for (Frag *child = frag ? frag->child : nullptr; child; child = child->next)
        all.push_back(child);
    return all;
}

std::vector<Frag *> nodes_of(Frag *first) {
    std::vector<Frag *> all;
    for (Frag *frag = first; frag; frag = frag->next)
        all.push_back(frag);
    for (size_t i = 0; i < all.size(); i++)
        for (Frag *child = all[i]->child; child; child = child->next)
            all.push_back(child);
    return all;
}

const conf_line *configuration::origin(const Frag *frag) const {
    size_t number = frag ? static_cast<size_t>(frag->attr >> 4) : 0;
    return number > 0 && number <= lines.size() ? &lines[number - 1] : nullptr;
}

std::string decoded_name(std::string_view stored) {
    std::string clear;
    for (size_t i = 0; i < stored.size(); i++) {
        bool is_escape = stored[i] == '%' && i + 2 < stored.size();
        clear += is_escape ? static_cast<char>(hexconvert(stored.data() + i + 1)) : stored[i];
        i += is_escape ? 2 : 0;
    }
    return clear;
}

std::string_view take_line(std::string_view &text) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(text.size(), line.size() + 1));
    return line;
}

bool take_group_mark(std::string &source) {
    constexpr std::string_view mark = "$$NETOBJ.";
    bool is_group = has_prefix(source.c_str(), mark);
    source.erase(0, is_group ? mark.size() : 0);
    return is_group;
}

bool is_listed(const char *const *list, std::string_view word) {
    while (*list && word != *list)
        list++;
    return *list != nullptr;
}

std::string owner_of(const Frag *entry) {
    std::string owner = configuration::value(entry, "");
    return owner == "*" ? "global" : owner;
}

std::string clear_name(const Frag *frag) { return decoded_name(frag->name); }

static constexpr std::pair<const char *, long> prefixes[] = {
    {"deny-", ATTR_DENY}, {"permit-", ATTR_PERMIT}, {"absorb-", ATTR_ABSORB}, {"onlyon-", ATTR_ONLYON}};

const char *prefix_of(long bits) {
    for (const auto &[text, bit] : prefixes)
        if (bits & bit)
            return text;
    return "";
}

long take_prefixes(const char **name) {
    long bits = 0;
    for (const char *before = nullptr; before != *name;) {
        before = *name;
        for (const auto &[text, bit] : prefixes)
            if (has_prefix_nocase(*name, text)) {
                bits |= bit;
                *name += strlen(text);
            }
    }
    return bits;
}

bool says_yes(std::string_view text) {
    text.remove_prefix(std::min(text.find_first_not_of(" \t"), text.size()));
    std::string word = lowercase(text);
    return word == "on" || word == "yes" || word == "true" || (is_digit(word[0]) && decimal(word.c_str()) != 0);
}

const maprec *services_of(const configuration &conf) {
    std::string system = conf.value("OS_Type");
    for (const os2maprec_row *row = os2maprec; row->os; row++)
        if (has_prefix(system.c_str(), row->os))
            return row->table;
    return map_unix;
}

std::string shown_name(const Frag *frag) {
    std::string clear = clear_name(frag), prefix = prefix_of(frag->attr);
    return has_prefix(clear.c_str(), prefix) ? clear : prefix + clear;
}

std::string encoded_name(std::string_view name) {
    std::string stored;
    for (char byte : name)
        stored += byte == '_' ? "%5F" : byte == '%' ? "%25" : std::string_view(&byte, 1);
    return stored;
}

static const char *mapped_name(const char *name, const char *attr_map_rec::*from, const char *attr_map_rec::*to) {
    for (const attr_map_rec *row = attr_map_tab; row->file_name; row++)
        if (same_text(name, row->*from))
            return row->*to;
    return name;
}

const char *stored_attribute(const char *name) {
    return mapped_name(name, &attr_map_rec::file_name, &attr_map_rec::stored_name);
}

const char *file_attribute(const char *name) {
    return mapped_name(name, &attr_map_rec::stored_name, &attr_map_rec::file_name);
}

// Puts siblings in order: numbers by what they count, all other names by their bytes. Names that begin like a
// number and are none, and names that are equal, are left to the store's own order.
static void sort_siblings(Frag **list) {
    std::map<std::tuple<std::string_view, size_t, std::string_view>, Frag *> order; // a number stands where 0 does
    for (Frag *frag = *list; frag; frag = frag->next) {
        std::string_view name = frag->name, digits = name.substr(std::min(name.find_first_not_of('0'), name.size()));
        bool is_number = is_digit(frag->name[0]);
        auto place = is_number ? std::tuple("0"sv, digits.size(), digits) : std::tuple(name, size_t{0}, ""sv);
        bool is_odd = is_number && name.find_first_not_of("0123456789") != name.npos;
        if (is_odd || !order.emplace(place, frag).second)
            return void(sort_frags(list));
    }
    for (const auto &[place, frag] : order) {
        *list = frag;
        list = &frag->next;
    }
    *list = nullptr;
}

// Sorts the children that are numbers, but for records that names lead to.
static void sort_numbers(configuration &conf) {
    for (Frag &frag : conf.nodes) {
        const Frag *child = frag.child, *top = frag.parent;
        bool is_family = top ? is_named(top, "netobj") || is_named(top, "def") : is_named(&frag, "policy");
        while (child && !is_digit(child->name[0]))
            child = child->next;
        if (child && !is_family)
            sort_siblings(&frag.child);
    }
}

std::unique_ptr<configuration> read_configuration(std::string name, file_bytes bytes, conf_layout layout) {
    auto made = std::make_unique<configuration>(std::move(name), std::move(bytes));
    read_assignments(*made, layout);
    if (layout == conf_layout::translated)
        translate(*made);
    sort_numbers(*made);
    return made;
}
