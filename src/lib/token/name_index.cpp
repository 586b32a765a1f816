// Lookups by name in lists that are too long to be walked for each.
#include "nsym.h"

#include <algorithm>
#include <cstring>

name_index::name_index(FragList list) {
    for (Frag *frag = *list; frag; frag = frag->next)
        if (!first.emplace(frag->name, frag).second)
            hidden[first.find(frag->name)->first].push_back(frag);
    for (auto &behind : hidden)
        std::reverse(behind.second.begin(), behind.second.end());
}

Frag *name_index::find(std::string_view name) const {
    auto it = first.find(name);
    return it == first.end() ? nullptr : it->second;
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

// The keys of both maps view the name of the node in `first`, so a change of that node makes both keys anew.
void name_index::add(Frag *frag) {
    auto it = first.find(frag->name);
    if (it != first.end()) {
        std::vector<Frag *> behind;
        if (auto old = hidden.extract(it->first))
            behind = std::move(old.mapped());
        behind.push_back(it->second);
        first.erase(it);
        hidden.emplace(frag->name, std::move(behind));
    }
    first.emplace(frag->name, frag);
}

void name_index::remove(Frag *frag) {
    auto it = first.find(frag->name);
    if (it == first.end())
        return;
    auto rest = hidden.extract(it->first);
    if (it->second == frag)
        first.erase(it);
    else
        for (auto node = rest.mapped().begin(); node != rest.mapped().end(); ++node)
            if (*node == frag) {
                rest.mapped().erase(node);
                break;
            }
    if (!rest)
        return;
    std::vector<Frag *> behind = std::move(rest.mapped());
    if (first.find(frag->name) == first.end() && !behind.empty()) {
        Frag *next = behind.back();
        behind.pop_back();
        first.emplace(next->name, next);
    }
    auto now = first.find(frag->name);
    if (now != first.end() && !behind.empty())
        hidden.emplace(now->first, std::move(behind));
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

void list_indexes::forget(FragList list) { indexes.erase(list); }
