// Small helpers that the store and the passes share.
#include "frag_tools.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <strings.h>

Frag *fmake(FragList list, const char *key, Frag *parent) {
    for (;;) {
        std::string_view component = key_component(key);
        Frag *frag = find_named(*list, component);
        if (!frag) {
            frag = newsymfrag(component.data(), component.size());
            pushfrag(list, frag, parent);
        }
        key += component.size();
        if (*key != '_')
            return frag;
        key++;
        list = &frag->child;
        parent = frag;
    }
}

Frag *faddchild(Frag *parent, std::string_view name, const char *value) {
    Frag *frag = newsymfrag(name.data(), name.size());
    setvalue(frag, value);
    pushfrag(&parent->child, frag, parent);
    return frag;
}

void setvalue(Frag *frag, const char *value) {
    if (value) {
        setvalue(frag, std::string_view(value));
        return;
    }
    free(frag->value);
    frag->value = nullptr;
    frag->vlen = 0;
}

void setvalue(Frag *frag, std::string_view value) {
    char *copy = static_cast<char *>(getcore(value.size() + VALUE_END));
    memcpy(copy, value.data(), value.size());
    free(frag->value); // which `value` may be a part of
    frag->value = copy;
    frag->value[value.size()] = 0;
    frag->vlen = static_cast<long>(value.size());
}

void take_name(Frag *frag, const char *key) {
    if (Frag *name = fdel_valued(&frag->child, key)) {
        renamefrag(frag, name->value);
        freefrag(name);
    }
}

bool fremove(FragList list, const char *key) {
    Frag *frag = fdel(list, key);
    freefrag(frag);
    return frag != nullptr;
}

void fremove_bare(FragList list, const char *key) {
    Frag *frag = ffind(list, key);
    if (frag && !frag->value && !frag->child)
        fremove(list, key);
}

Frag *fdel_valued(FragList list, const char *key) {
    Frag *frag = fdel(list, key);
    if (frag && !frag->value) {
        freefrag(frag);
        return nullptr;
    }
    return frag;
}

void reverse_frags(FragList list) {
    Frag *reversed = nullptr;
    while (Frag *frag = *list) {
        *list = frag->next;
        frag->next = reversed;
        reversed = frag;
    }
    *list = reversed;
}

size_t count_frags(const Frag *first) {
    size_t count = 0;
    for (; first; first = first->next)
        count++;
    return count;
}

int number_frags(Frag *first) {
    int count = 0;
    for (Frag *frag = first; frag; frag = frag->next)
        renumberfrag(frag, ++count);
    return count;
}

int is_blanks(const char *text) { return !text || !*skip_blanks(text); }

int is_on(const char *text) {
    if (!text)
        return 0;
    text = skip_blanks(text);
    if (strcasecmp(text, "on") == 0 || strcasecmp(text, "yes") == 0 || strcasecmp(text, "true") == 0)
        return 1;
    return is_digit(*text) ? decimal(text) : 0;
}

int decimal(const char *text) { return static_cast<int>(strtol(text, nullptr, 10)); }

bool has_prefix(const char *text, std::string_view prefix) { return strncmp(text, prefix.data(), prefix.size()) == 0; }

bool has_prefix_nocase(const char *text, std::string_view prefix) {
    return strncasecmp(text, prefix.data(), prefix.size()) == 0;
}

bool same_text(const char *a, const char *b) { return a && b && strcmp(a, b) == 0; }

std::string lowercase(std::string_view text) {
    std::string lower(text);
    for (char &byte : lower)
        byte = lowercase(byte);
    return lower;
}

std::string numbertext(int number) { return std::to_string(number); }

size_t word_len(const char *text) { return strcspn(text, " \t"); }

FILE *open_file(const char *path, const char *mode) {
    FILE *stream = fopen(path, mode);
    if (!stream && errno == ENOMEM)
        outofcore();
    return stream;
}
