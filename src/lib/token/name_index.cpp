// Lookups by name in lists that are too long to be walked for each.
#include "nsym.h"

#include <algorithm>
#include <cstring>

// Never 0, which marks a free slot.
static size_t hash_of(std::string_view name) { return std::hash<std::string_view>()(name) | 1; }

name_index::name_index(FragList list) {
    size_t count = 0;
    for (Frag *frag = *list; frag; frag = frag->next)
        count++;
    make_room(count);
    for (Frag *frag = *list; frag; frag = frag->next) {
        size_t hash = hash_of(frag->name);
        slot &at = place(hash, frag->name);
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

// Makes sure that `count` further names leave half of the table free.
void name_index::make_room(size_t count) {
    if ((used + count) * 2 <= slots.size())
        return;
    std::vector<slot> old = std::move(slots);
    size_t named = 0;
    for (const slot &entry : old)
        named += entry.frag != nullptr;
    size_t size = 32;
    while (size < (named + count) * 4)
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

// The slot of the name, or the free one where the search for it ends.
name_index::slot &name_index::place(size_t hash, std::string_view name) {
    for (size_t at = hash >> 1;; at++) {
        slot &entry = slots[at & (slots.size() - 1)];
        if (!entry.hash || (entry.hash == hash && entry.frag && name == entry.frag->name))
            return entry;
    }
}

Frag *name_index::find(std::string_view name) const {
    return slots.empty() ? nullptr : const_cast<name_index *>(this)->place(hash_of(name), name).frag;
}

Frag *name_index::find_key(const char *key) const {
    std::string_view component = key_component(key);
    Frag *frag = find(component);
    key += component.size();
    return frag && *key == '_' ? ffind(&frag->child, key + 1) : frag;
}

// Both lookup structures set a key alike, but for the way to find and to note its first node.
template <class Find, class Add>
static Frag *set_key_by(FragList list, const char *key, const char *value, Frag *parent, Find find, Add add) {
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

Frag *name_index::set_key(FragList list, const char *key, const char *value, Frag *parent) {
    return set_key_by(
        list, key, value, parent, [&](std::string_view name) { return find(name); }, [&](Frag *frag) { add(frag); });
}

void name_index::add(Frag *frag) {
    make_room(1);
    size_t hash = hash_of(frag->name);
    slot &at = place(hash, frag->name);
    if (at.frag)
        hidden[frag->name].push_back(at.frag);
    else
        used++;
    at = {hash, frag};
}

void name_index::remove(Frag *frag) {
    if (slots.empty())
        return;
    slot &at = place(hash_of(frag->name), frag->name);
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
    // Walking a few nodes costs less than hashing, and most lists end here.
    int left = 16;
    for (Frag *frag = *list; frag; frag = frag->next) {
        if (left-- == 0) {
            auto it = indexes.find(list);
            if (it == indexes.end())
                it = indexes.emplace(list, name_index(list)).first;
            return it->second.find(name);
        }
        if (strncmp(frag->name, name.data(), name.size()) == 0 && frag->name[name.size()] == 0)
            return frag;
    }
    return nullptr;
}

Frag *list_indexes::set_key(FragList list, const char *key, const char *value, Frag *parent) {
    return set_key_by(
        list, key, value, parent, [&](std::string_view name) { return find(list, name); },
        [&](Frag *frag) { add(list, frag); });
}

void list_indexes::add(FragList list, Frag *frag) {
    auto it = indexes.find(list);
    if (it != indexes.end())
        it->second.add(frag);
}
