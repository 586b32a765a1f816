// Lookups by name in lists that are too long to be walked for each.
#include "name_index.h"
#include "frag_tools.h"

#include <algorithm>

// The nodes of a list that is walked and not indexed: to compare a few names costs less than to hash one, and most
// lists have no more. The sanitizer builds set it to 0. Then every lookup goes by index, and one that a pass forgot to
// tell of a change shows.
#ifndef SHORT_LIST
#define SHORT_LIST 16
#endif

// Never 0, which marks a free slot.
static uint32_t hash_of(std::string_view name) { return static_cast<uint32_t>(text_hash()(name)) | 1; }

name_index::name_index(FragList list) : count(count_frags(*list)) {
    make_room(count);
    for (Frag *frag = *list; frag; frag = frag->next) {
        uint32_t hash = hash_of(frag->name);
        slot &at = slots[place(hash, frag->name)];
        if (at.hash)
            hidden[frag->name].push_back(frag);
        else
            take(at, hash, frag);
    }
    for (auto &behind : hidden)
        std::reverse(behind.second.begin(), behind.second.end());
}

name_index::name_index(FragList list, const char *key) {
    if (Frag *frag = ffind(list, key))
        *this = name_index(&frag->child);
}

void name_index::take(slot &at, uint32_t hash, Frag *frag) {
    at = {hash, static_cast<uint32_t>(entries.size())};
    entries.push_back(frag);
}

// Makes the table so large that with `more` further names half of it is still free.
void name_index::make_room(size_t more) {
    if ((entries.size() + more) * 2 <= slots.size())
        return;
    std::vector<slot> old_slots = std::move(slots);
    std::vector<Frag *> old_entries = std::move(entries);
    size_t named =
        old_entries.size() - static_cast<size_t>(std::count(old_entries.begin(), old_entries.end(), nullptr));
    size_t size = 32;
    while (size < (named + more) * 2)
        size *= 2;
    slots.assign(size, slot{0, 0});
    entries.clear();
    entries.reserve(size / 2);
    for (const slot &old : old_slots)
        if (old.hash && old_entries[old.entry]) {
            size_t at = old.hash >> 1 & (size - 1);
            while (slots[at].hash)
                at = (at + 1) & (size - 1);
            take(slots[at], old.hash, old_entries[old.entry]);
        }
}

// The place of the name's slot, or of the free one where the search for it ends.
size_t name_index::place(uint32_t hash, std::string_view name) const {
    size_t last = slots.size() - 1;
    for (size_t at = hash >> 1 & last;; at = (at + 1) & last) {
        const slot &met = slots[at];
        if (!met.hash)
            return at;
        if (met.hash == hash && entries[met.entry] && is_named(entries[met.entry], name))
            return at;
    }
}

Frag *name_index::find(std::string_view name) const {
    if (slots.empty())
        return nullptr;
    const slot &at = slots[place(hash_of(name), name)];
    return at.hash ? entries[at.entry] : nullptr;
}

Frag *name_index::find_key(const char *key) const {
    std::string_view component = key_component(key);
    Frag *frag = find(component);
    key += component.size();
    return frag && *key == '_' ? ffind(&frag->child, key + 1) : frag;
}

Frag *name_index::find_or_make(FragList list, std::string_view name, Frag *parent) {
    make_room(1);
    uint32_t hash = hash_of(name);
    slot &at = slots[place(hash, name)];
    if (at.hash)
        return entries[at.entry];
    Frag *frag = newsymfrag(name.data(), name.size());
    pushfrag(list, frag, parent);
    count++;
    take(at, hash, frag);
    return frag;
}

Frag *name_index::set_key(FragList list, const char *key, const char *value, Frag *parent) {
    std::string_view component = key_component(key);
    Frag *frag = find_or_make(list, component, parent);
    key += component.size();
    if (*key == '_')
        return fsetp(&frag->child, key + 1, value, frag);
    setvalue(frag, value);
    return frag;
}

void name_index::add(Frag *frag) {
    make_room(1);
    count++;
    uint32_t hash = hash_of(frag->name);
    slot &at = slots[place(hash, frag->name)];
    if (at.hash) {
        hidden[frag->name].push_back(entries[at.entry]);
        entries[at.entry] = frag;
    } else {
        take(at, hash, frag);
    }
}

void name_index::remove(Frag *frag) {
    if (slots.empty())
        return;
    count--;
    const slot &at = slots[place(hash_of(frag->name), frag->name)];
    if (!at.hash)
        return;
    Frag *&first = entries[at.entry];
    auto behind = hidden.find(frag->name);
    if (behind == hidden.end()) {
        if (first == frag)
            first = nullptr;
        return;
    }
    std::vector<Frag *> &nodes = behind->second;
    if (first == frag) {
        first = nodes.back();
        nodes.pop_back();
    } else {
        auto gone = std::find(nodes.begin(), nodes.end(), frag);
        if (gone != nodes.end())
            nodes.erase(gone);
    }
    if (nodes.empty())
        hidden.erase(behind);
}

// The index that the list has, or null. Most lookups come to the list of the one before.
name_index *list_indexes::index_of(FragList list) {
    if (list != last_list) {
        auto it = indexes.find(list);
        if (it == indexes.end())
            return nullptr;
        last_list = list;
        last_index = &it->second;
    }
    return last_index;
}

// The index of a long list, made if there is none yet.
name_index &list_indexes::index_of_long(FragList list) {
    if (!index_of(list)) {
        last_index = &indexes.emplace(list, name_index(list)).first->second;
        last_list = list;
    }
    return *last_index;
}

void list_indexes::drop_index(FragList list) {
    indexes.erase(list);
    if (last_list == list)
        last_list = nullptr;
}

// Looks for the name in a short list: `*found` is its first node, or null. False for a list that is too long to be
// walked, or whose index is at hand.
bool list_indexes::find_in_short(FragList list, std::string_view name, Frag **found) const {
    if (list == last_list)
        return false;
    *found = nullptr;
    int left = SHORT_LIST;
    for (Frag *frag = *list; frag && !*found; frag = frag->next) {
        if (left-- == 0)
            return false;
        if (is_named(frag, name))
            *found = frag;
    }
    return true;
}

Frag *list_indexes::find(FragList list, std::string_view name) {
    Frag *found;
    return find_in_short(list, name, &found) ? found : index_of_long(list).find(name);
}

Frag *list_indexes::find_or_make(FragList list, std::string_view name, Frag *parent) {
    Frag *found;
    if (!find_in_short(list, name, &found))
        return index_of_long(list).find_or_make(list, name, parent);
    if (!found) {
        found = newsymfrag(name.data(), name.size());
        pushfrag(list, found, parent);
    }
    return found;
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
        Frag *frag = find_or_make(list, component, parent);
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
    if (name_index *index = index_of(list))
        index->add(frag);
}

void list_indexes::remove(FragList list, Frag *frag) {
    auto search = searches.find(list);
    name_index *index = index_of(list);
    if (!index) {
        if (search != searches.end())
            searches.erase(search);
        return;
    }
    // This can free two numbers up to the last one that is known: the node's own, and the one that was the count until
    // now, since free numbers lie above the count.
    if (search != searches.end()) {
        search->second.freed.insert(static_cast<int>(index->count));
        search->second.freed.insert(decimal(frag->name));
    }
    index->remove(frag);
    if (index->count <= SHORT_LIST)
        drop_index(list);
}

size_t list_indexes::count(FragList list) {
    if (name_index *index = index_of(list))
        return index->count;
    return count_frags(*list);
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
        drop_index(&frag->child);
        searches.erase(&frag->child);
        for (Frag *child = frag->child; child; child = child->next)
            left.push_back(child);
    }
}
