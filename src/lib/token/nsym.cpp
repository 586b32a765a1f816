// The tree: memory, lookup, insertion, deletion, copies.
#include "nsym.h"
#include "frag_tools.h"

#include <cstdlib>
#include <cstring>
#include <new>
#include <vector>

Frag *def_database, *oldconf, *initconf, *nptdatabase;
FragList cur_database;

void outofcore() {
    fputs("Outofcore()\n", stderr);
    exit(1);
}

// `new`, which the containers of the store and of its users take their memory with, ends like the functions below. A
// program that wants another end sets a handler of its own.
[[maybe_unused]] static const std::new_handler handler_before = std::set_new_handler(outofcore);

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

// Frees a list with all below it. A node's children are put in front of the nodes that are still to be freed, so there
// is no recursion, however deep the tree is.
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

Frag *ffind(FragList list, const char *key) {
    for (;;) {
        std::string_view component = key_component(key);
        Frag *frag = find_named(*list, component);
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

static Frag *copy_frag(const Frag *source, Frag *parent) {
    const char *name = source->name ? source->name : "";
    Frag *copy = newsymfrag(name, strlen(name));
    copy->parent = parent;
    copy->attr = source->attr;
    if (source->value)
        setvalue(copy, {source->value, static_cast<size_t>(source->vlen)});
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
