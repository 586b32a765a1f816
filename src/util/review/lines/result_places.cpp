// A result in which lines are looked for: its index, and what is noted of its nodes.
#include "frag_tools.h"
#include "lines/accounting.h"

#include <algorithm>
#include <utility>

const conf_line *node_notes::own_line(const Frag *frag) const {
    const conf_line *line = conf.origin(frag);
    return line && line->node == frag ? line : nullptr;
}

size_t node_notes::at(const Frag *frag) const {
    if (const conf_line *own = own_line(frag)) {
        uint32_t note = by_line[static_cast<size_t>(own - conf.lines.data())];
        return note == 0 ? NO_LINE : note - 1;
    }
    auto other = others.find(frag);
    return other == others.end() ? NO_LINE : other->second;
}

void node_notes::set(const Frag *frag, size_t line) {
    if (const conf_line *own = own_line(frag))
        by_line[static_cast<size_t>(own - conf.lines.data())] = static_cast<uint32_t>(line + 1);
    else
        others[frag] = line;
}

bool node_notes::add(const Frag *frag, size_t line) {
    bool is_free = at(frag) == NO_LINE;
    if (is_free)
        set(frag, line);
    return is_free;
}

result_places::result_places(const configuration &result, const std::unordered_set<std::string> &of)
    : conf(result), keys(result), valued(result), named(result), from(result) {
    std::unordered_set<const Frag *> looked_at;
    std::vector<std::pair<const Frag *, size_t>> pending = {{result.tree, 0}}; // with their depths
    while (!pending.empty()) {
        auto [frag, depth] = pending.back();
        pending.pop_back();
        if (!frag)
            continue;
        pending.emplace_back(frag->next, depth);
        bool is_record = std::count(std::begin(place_keys::RECORD_DEPTHS), std::end(place_keys::RECORD_DEPTHS), depth);
        // An alias is looked for in another list than the one that it stands in.
        bool has_alias = is_location(frag) || covers("*$INTERFACE", frag->name);
        if (is_record && !has_alias && of.count(keys.find(frag, place_keys::FIRST).key) == 0)
            continue;
        looked_at.insert(frag);
        pending.emplace_back(frag->child, depth + 1);
        if (frag->value || (depth >= 2 && is_named(frag->parent->parent, "pfedit")))
            add(keys.find(frag).key, frag);
    }
    for (size_t i = 0; i < result.lines.size(); i++) {
        const conf_line &line = result.lines[i];
        if (line.role == line_role::setting && result.origin(line.node) != &line && line.node->value &&
            (text_of(line.node) != line.value || !same_prefix(line.bits, bits_of(line.node))) &&
            line.key.find("_cyberurl_") == line.key.npos) {
            Frag &twin = doubles.emplace(&line, *line.node).first->second;
            twin.child = nullptr;
            twin.value = const_cast<char *>(line.value.data()); // not ended by a zero byte: read with its length
            twin.vlen = static_cast<long>(line.value.size());
            twin.attr = line.bits | static_cast<long>(i + 1) << 4;
            add(keys.find(&twin).key, &twin);
        }
        if (line.node && line.role == line_role::name) {
            name_lines.emplace(line.node, &line);
            if (covers("*$INTERFACE", line.value))
                alias_lists.insert_or_assign(line.value, line.node);
        }
        if (!line.node || looked_at.count(line.node) == 0)
            continue;
        if (line.role == line_role::name)
            add(name_key(keys.find(line.node).key), line.node);
        if (!line.node->value)
            add(keys.find(line.node).key, line.node);
    }
}

std::vector<const Frag *> result_places::at(const std::string &key) {
    std::vector<const Frag *> found;
    auto [first, last] = index.equal_range(std::hash<std::string>()(key));
    for (auto each = first; each != last; ++each)
        if (std::string known = keys.find(each->second).key; known == key || name_key(known) == key)
            found.push_back(each->second);
    return found;
}

void result_places::claim(const Frag *frag, size_t line) {
    from.set(frag, line);
    for (frag = frag->parent; frag && from.add(frag, line); frag = frag->parent)
        ;
}

void result_places::stand(const Frag *frag, size_t line) {
    if (valued.add(frag, line))
        claim(frag, line);
}

const conf_line *result_places::line_at(const Frag *frag, const account_line &line) const {
    if (line.said && line.said->role == line_role::name)
        if (auto name = name_lines.find(frag); name != name_lines.end())
            return name->second;
    const conf_line *there = conf.origin(frag);
    if (!there && frag->parent) // what the layout says by the list that an entry stands in
        there = conf.origin(frag->parent);
    return there;
}
