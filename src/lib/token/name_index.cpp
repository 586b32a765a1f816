// Lookups by name in lists that are too long to be walked for each.
#include "name_index.h"
#include "frag_tools.h"

#include <algorithm>

// Walking a few nodes costs less than hashing, and most lists end here. The sanitizer builds set it to 0, so that every
// lookup is one by index and none can miss what a pass changed.
#ifndef SHORT_LIST
#define SHORT_LIST 16
#endif

// Never 0, which marks a free slot.
static size_t hash_of(std::string_view name) { return std::hash<std::string_view>()(name) | 1; }

name_index::name_index(FragList list) {
    for (Frag *frag = *list; frag; frag = frag->next)
        count++;
    make_room(count);
    for (Frag *frag = *list; frag; frag = frag->next) {
        size_t hash = hash_of(frag->name);
        slot &at = slots[place(hash, frag->name)];
        if (at.frag) {
            hidden[frag->name].push_back(frag);
        } else {
            at = {hash, frag};
            used++;
        }
    }
    for (auto &behind : hidden)
        std::reverse(behind.second.begin(), behind.second.end());
}

name_index::name_index(FragList list, const char *key) {
    if (Frag *frag = ffind(list, key))
        *this = name_index(&frag->child);
}

// Makes sure that so many further names leave half of the table free.
void name_index::make_room(size_t more) {
    if ((used + more) * 2 <= slots.size())
        return;
    std::vector<slot> old = std::move(slots);
    size_t named = 0;
    for (const slot &entry : old)
        named += entry.frag != nullptr;
    size_t size = 32;
    while (size < (named + more) * 4)
        size *= 2;
    slots.assign(size, slot{0, nullptr});
    used = named;
    for (const slot &entry : old)
        if (entry.frag) {
            size_t at = entry.hash >> 1;
            while (slots[at & (size - 1)].hash)
                at++;
            slots[at & (size - 1)] = entry;
        }
}

// The place of the name's slot, or of the free one where the search for it ends.
size_t name_index::place(size_t hash, std::string_view name) const {
    for (size_t at = hash >> 1;; at++) {
        const slot &entry = slots[at & (slots.size() - 1)];
        if (!entry.hash || (entry.hash == hash && entry.frag && is_named(entry.frag, name)))
            return at & (slots.size() - 1);
    }
}

Frag *name_index::find(std::string_view name) const {
    return slots.empty() ? nullptr : slots[place(hash_of(name), name)].frag;
}

Frag *name_index::find_key(const char *key) const {
    std::string_view component = key_component(key);
    Frag *frag = find(component);
    key += component.size();
    return frag && *key == '_' ? ffind(&frag->child, key + 1) : frag;
}

Frag *name_index::set_key(FragList list, const char *key, const char *value, Frag *parent) {
    std::string_view component = key_component(key);
    Frag *frag = find(component);
    if (!frag) {
        frag = newsymfrag(component.data(), component.size());
        pushfrag(list, frag, parent);
        add(frag);
    }
    key += component.size();
    if (*key == '_')
        return fsetp(&frag->child, key + 1, value, frag);
    setvalue(frag, value);
    return frag;
}

void name_index::add(Frag *frag) {
    make_room(1);
    count++;
    size_t hash = hash_of(frag->name);
    slot &at = slots[place(hash, frag->name)];
    if (at.frag)
        hidden[frag->name].push_back(at.frag);
    else
        used++;
    at = {hash, frag};
}

void name_index::remove(Frag *frag) {
    if (slots.empty())
        return;
    count--;
    slot &at = slots[place(hash_of(frag->name), frag->name)];
    auto behind = hidden.find(frag->name);
    if (behind == hidden.end()) {
        if (at.frag == frag)
            at.frag = nullptr;
        return;
    }
    std::vector<Frag *> &nodes = behind->second;
    if (at.frag == frag) {
        at.frag = nodes.back();
        nodes.pop_back();
    } else {
        auto gone = std::find(nodes.begin(), nodes.end(), frag);
        if (gone != nodes.end())
            nodes.erase(gone);
    }
    if (nodes.empty())
        hidden.erase(behind);
}

Frag *list_indexes::find(FragList list, std::string_view name) {
    int left = SHORT_LIST;
    for (Frag *frag = *list; frag; frag = frag->next) {
        if (left-- == 0) {
            auto it = indexes.find(list);
            if (it == indexes.end())
                it = indexes.emplace(list, name_index(list)).first;
            return it->second.find(name);
        }
        if (is_named(frag, name))
            return frag;
    }
    return nullptr;
}

Frag *list_indexes::find_key(FragList list, const char *key, FragList *siblings) {
    for (;; key++) {
        std::string_view component = key_component(key);
        Frag *frag = find(list, component);
        key += component.size();
        if (siblings)
            *siblings = list;
        if (!frag || *key != '_')
            return frag;
        list = &frag->child;
    }
}

Frag *list_indexes::set_key(FragList list, const char *key, const char *value, Frag *parent) {
    for (;; key++) {
        std::string_view component = key_component(key);
        Frag *frag = find(list, component);
        if (!frag) {
            frag = newsymfrag(component.data(), component.size());
            pushfrag(list, frag, parent);
            add(list, frag);
        }
        key += component.size();
        if (*key != '_') {
            setvalue(frag, value);
            return frag;
        }
        parent = frag;
        list = &frag->child;
    }
}

void list_indexes::add(FragList list, Frag *frag) {
    auto it = indexes.find(list);
    if (it != indexes.end())
        it->second.add(frag);
}

void list_indexes::remove(FragList list, Frag *frag) {
    auto search = searches.find(list);
    auto it = indexes.find(list);
    if (it == indexes.end()) {
        if (search != searches.end())
            searches.erase(search);
        return;
    }
    // Of the numbers up to the last one this leaves one free, and what was the count is now behind it.
    if (search != searches.end()) {
        search->second.freed.insert(static_cast<int>(it->second.count));
        search->second.freed.insert(decimal(frag->name));
    }
    it->second.remove(frag);
}

size_t list_indexes::count(FragList list) const {
    auto it = indexes.find(list);
    if (it != indexes.end())
        return it->second.count;
    size_t count = 0;
    for (Frag *frag = *list; frag; frag = frag->next)
        count++;
    return count;
}

int list_indexes::free_number(FragList list) {
    number_search &search = searches[list];
    int number = static_cast<int>(count(list)) + 1;
    for (std::set<int> &freed = search.freed; !freed.empty() && *freed.begin() <= search.last;
         freed.erase(freed.begin()))
        if (*freed.begin() >= number && !find(list, numbertext(*freed.begin())))
            return *freed.begin();
    number = std::max(number, search.last + 1);
    while (find(list, numbertext(number)))
        number++;
    search.last = number;
    return number;
}

void list_indexes::forget_below(Frag *frag) {
    std::vector<Frag *> left{frag};
    while (!left.empty() && !(indexes.empty() && searches.empty())) {
        frag = left.back();
        left.pop_back();
        indexes.erase(&frag->child);
        searches.erase(&frag->child);
        for (Frag *child = frag->child; child; child = child->next)
            left.push_back(child);
    }
}
