// The tree: memory, lookup, insertion, deletion, copies.
#include "nsym.h"

#include <cstdlib>
#include <cstring>

Frag *def_database, *oldconf, *initconf, *nptdatabase;
FragList cur_database;

void outofcore() {
    fputs("Outofcore()\n", stderr);
    exit(1);
}

void *getcore(size_t size) {
    void *block = malloc(size);
    if (!block)
        outofcore();
    return block;
}

void *growcore(void *block, size_t size) {
    block = realloc(block, size);
    if (!block)
        outofcore();
    return block;
}

char *makestr(const char *text) { return makestr_len(text, strlen(text)); }

char *makestr_len(const char *text, size_t len) {
    char *copy = static_cast<char *>(getcore(len + 1));
    memcpy(copy, text, len);
    copy[len] = 0;
    return copy;
}

Frag *newsymfrag(const char *name, size_t len) {
    Frag *frag = static_cast<Frag *>(getcore(sizeof(Frag)));
    *frag = Frag{};
    frag->name = makestr_len(name, len);
    return frag;
}

// Frees a list with all below it. Each node's children join the front of what is left to free, so that no depth of
// the tree costs stack.
void freelist(Frag *first) {
    while (first) {
        Frag *frag = first;
        first = frag->next;
        if (frag->child) {
            Frag *last = frag->child;
            while (last->next)
                last = last->next;
            last->next = first;
            first = frag->child;
        }
        free(frag->name);
        free(frag->value);
        free(frag);
    }
}

void freefrag(Frag *frag) {
    if (!frag)
        return;
    frag->next = nullptr;
    freelist(frag);
}

// Names are a few bytes long: plain loops over them cost less than calls of the string functions.
std::string_view key_component(const char *key) {
    const char *end = key;
    while (*end && *end != '_' && *end != '=')
        end++;
    return {key, static_cast<size_t>(end - key)};
}

static bool is_named(const Frag *frag, std::string_view name) {
    const char *at = frag->name;
    for (char byte : name)
        if (*at++ != byte)
            return false;
    return *at == 0;
}

static Frag *find_component(Frag *frag, std::string_view name) {
    while (frag && !is_named(frag, name))
        frag = frag->next;
    return frag;
}

Frag *ffind(FragList list, const char *key) {
    for (;;) {
        std::string_view component = key_component(key);
        Frag *frag = find_component(*list, component);
        key += component.size();
        if (!frag || *key != '_')
            return frag;
        key++;
        list = &frag->child;
    }
}

Frag *ffind2(FragList list, const char *key1, const char *key2) {
    Frag *frag = ffind(list, key1);
    return frag ? ffind(&frag->child, key2) : nullptr;
}

void pushfrag(FragList list, Frag *frag, Frag *parent) {
    frag->next = *list;
    frag->parent = parent;
    *list = frag;
}

Frag *fmake(FragList list, const char *key, Frag *parent) {
    for (;;) {
        std::string_view component = key_component(key);
        Frag *frag = find_component(*list, component);
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

Frag *fsetp(FragList list, const char *key, const char *value, Frag *parent) {
    Frag *frag = fmake(list, key, parent);
    setvalue(frag, value);
    return frag;
}

Frag *fset(FragList list, const char *key, const char *value) { return fsetp(list, key, value, nullptr); }

Frag *fset_list(Frag **frag, const char *key, const char *value) {
    Frag *set = fset(&(*frag)->child, key, value);
    if (!set->parent)
        set->parent = *frag;
    else if (!(*frag)->child->parent)
        (*frag)->child->parent = *frag;
    return set;
}

Frag *fdel(FragList list, const char *key) {
    for (;;) {
        std::string_view component = key_component(key);
        FragList link = list;
        while (*link && !is_named(*link, component))
            link = &(*link)->next;
        Frag *frag = *link;
        if (!frag)
            return nullptr;
        key += component.size();
        if (*key != '_') {
            *link = frag->next;
            frag->parent = nullptr;
            return frag;
        }
        key++;
        list = &frag->child;
    }
}

char *fval(FragList list, const char *key) {
    Frag *frag = ffind(list, key);
    return frag ? frag->value : nullptr;
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

void take_name(Frag *frag, const char *key) {
    if (Frag *name = fdel_valued(&frag->child, key)) {
        renamefrag(frag, name->value);
        freefrag(name);
    }
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
    char *copy = static_cast<char *>(getcore(value.size() + 2));
    memcpy(copy, value.data(), value.size());
    copy[value.size()] = 0;
    free(frag->value);
    frag->value = copy;
    frag->vlen = static_cast<long>(value.size());
}

static Frag *copy_frag(const Frag *source, Frag *parent) {
    Frag *copy = newsymfrag(source->name, strlen(source->name));
    copy->parent = parent;
    copy->attr = source->attr;
    if (source->value) {
        copy->value = makestr_len(source->value, static_cast<size_t>(source->vlen));
        copy->vlen = source->vlen;
    }
    return copy;
}

Frag *copy_fragtree(FragList list, Frag *parent) {
    struct job {
        const Frag *source;
        FragList copies;
        Frag *parent;
    };
    Frag *first = nullptr;
    std::vector<job> jobs{{*list, &first, parent}};
    while (!jobs.empty()) {
        job todo = jobs.back();
        jobs.pop_back();
        FragList link = todo.copies;
        for (const Frag *source = todo.source; source; source = source->next) {
            *link = copy_frag(source, todo.parent);
            if (source->child)
                jobs.push_back({source->child, &(*link)->child, *link});
            link = &(*link)->next;
        }
    }
    return first;
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

int number_frags(Frag *first) {
    int count = 0;
    for (Frag *frag = first; frag; frag = frag->next)
        renumberfrag(frag, ++count);
    return count;
}

Frag *symffind(const char *key) {
    if (!cur_database)
        cur_database = &def_database;
    return ffind(cur_database, key);
}

Frag *symfset(const char *key, const char *value) {
    if (!cur_database)
        cur_database = &def_database;
    return fset(cur_database, key, value);
}
