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

// All nodes of a name, the nearest to the head last, taken out of both maps. Their keys view the name of the nearest
// node, so any change takes the nodes out and puts the rest back.
static std::vector<Frag *> take_nodes(name_index &index, const char *name) {
    std::vector<Frag *> nodes;
    auto nearest = index.first.find(name);
    if (nearest == index.first.end())
        return nodes;
    if (auto behind = index.hidden.extract(nearest->first))
        nodes = std::move(behind.mapped());
    nodes.push_back(nearest->second);
    index.first.erase(nearest);
    return nodes;
}

static void put_nodes(name_index &index, std::vector<Frag *> nodes) {
    if (nodes.empty())
        return;
    Frag *nearest = nodes.back();
    nodes.pop_back();
    index.first.emplace(nearest->name, nearest);
    if (!nodes.empty())
        index.hidden.emplace(nearest->name, std::move(nodes));
}

void name_index::add(Frag *frag) {
    if (first.emplace(frag->name, frag).second)
        return;
    std::vector<Frag *> nodes = take_nodes(*this, frag->name);
    nodes.push_back(frag);
    put_nodes(*this, std::move(nodes));
}

void name_index::remove(Frag *frag) {
    std::vector<Frag *> nodes = take_nodes(*this, frag->name);
    auto at = std::find(nodes.rbegin(), nodes.rend(), frag);
    if (at != nodes.rend())
        nodes.erase(std::next(at).base());
    put_nodes(*this, std::move(nodes));
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
