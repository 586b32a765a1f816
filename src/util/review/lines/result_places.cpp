// A result in which lines are looked for: its index, and what is noted of its nodes.
#include "frag_tools.h"
#include "lines/accounting.h"

#include <algorithm>

node_notes &result_places::notes(const Frag *frag) {
    const conf_line *line = conf.origin(frag);
    return line && line->node == frag ? by_line[static_cast<size_t>(line - conf.lines.data())] : others[frag];
}

result_places::result_places(const configuration &result, const std::unordered_set<std::string> &of)
    : conf(result), keys(result, result.numbered), by_line(result.lines.size()) {
    auto add = [&](const std::string &key, const Frag *frag) {
        index.emplace_back(std::hash<std::string>()(key), frag);
    };
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
        if (frag->value || is_filter_rule(frag))
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
            if (looked_at.count(line.node) != 0)
                add(name_key(keys.find(line.node).key), line.node);
            if (covers("*$INTERFACE", line.value))
                alias_lists.insert_or_assign(line.value, line.node);
        }
        if (line.node && !line.node->value && looked_at.count(line.node) != 0)
            add(keys.find(line.node).key, line.node);
    }
    std::reverse(index.begin(), index.end()); // of one key the last comes first
    std::stable_sort(index.begin(), index.end(), [](const auto &a, const auto &b) { return a.first < b.first; });
}

std::vector<const Frag *> result_places::at(const std::string &key) {
    std::vector<const Frag *> found;
    size_t hash = std::hash<std::string>()(key);
    for (auto each = std::lower_bound(index.begin(), index.end(), std::pair<size_t, const Frag *>(hash, nullptr));
         each != index.end() && each->first == hash; ++each)
        if (std::string known = keys.find(each->second).key; known == key || name_key(known) == key)
            found.push_back(each->second);
    return found;
}

void result_places::claim(const Frag *frag, account_line &line) {
    notes(frag).from = &line;
    for (frag = frag->parent; frag && note_line(notes(frag).from, line); frag = frag->parent)
        ;
}

void result_places::stand(const Frag *frag, account_line &line) {
    if (note_line(notes(frag).valued, line))
        claim(frag, line);
}

void result_places::reshape(const Frag *frag, account_line &line, std::string reason) {
    if (!line.place) {
        line.place = frag;
        line.became = fate::reshaped;
        line.candidate = false;
        line.reason = std::move(reason);
    }
    stand(frag, line);
}
