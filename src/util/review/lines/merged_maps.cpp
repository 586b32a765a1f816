// Which maps a merge leaves out.
#include "frag_tools.h"
#include "lines/accounting.h"

#include <cstring>
#include <fmt/ranges.h>
#include <set>

namespace {

/// The maps that stand while a file is merged, the first of those that are the same.
struct standing_maps {
    const configuration &file;
    std::unordered_map<std::string, const Frag *> known{};

    // What a map says up to its first missing value, one value more each time: five texts of a map that lacks none.
    std::vector<std::string> texts(const Frag *map) const {
        std::vector<std::string> all = {""};
        for (const char *field : {"pd", "src", "proxy", "policy"}) {
            const Frag *value = find_named(map->child, field);
            if (!value || !value->value)
                break;
            all.push_back(all.back() + (is_named(value, "policy") ? sets(value->value) : value->value) + '\n');
        }
        return all;
    }

    // The config sets that a policy of the file lists, by which it is the same whatever its name; the name of one that
    // lists none.
    std::string sets(const std::string &name) const {
        std::set<std::string> names;
        for (const Frag *entry : configuration::children(file.record("policy", name), "proxy"))
            names.insert(entry->name);
        return names.empty() ? name : fmt::format("\2{}", fmt::join(names, "\n"));
    }

    void add(const Frag *map) {
        std::vector<std::string> said = texts(map);
        for (const std::string &text : said)
            known.emplace(text, map);
        if (said.size() < 5)
            known.emplace('\1' + said.back(), map);
    }

    // Two maps are the same up to what the first or the second lacks.
    const Frag *find(const Frag *map) const {
        std::vector<std::string> said = texts(map), asked = {said.back()};
        for (const std::string &text : said)
            asked.push_back('\1' + text);
        for (const std::string &text : asked)
            if (auto found = known.find(text); found != known.end())
                return found->second;
        return nullptr;
    }
};

} // namespace

merged_maps::merged_maps(accounting &all, result_places &own) {
    std::unordered_map<const Frag *, account_line *> first_lines;
    for (account_line &line : all.lines)
        if (is_map_line(line))
            first_lines.emplace(at_depth(line.said->node, 1), &line);
    std::vector<const Frag *> stand;
    std::set<const configuration *> merged = {nullptr}; // once more they bring nothing; nor does a table
    for (size_t i = all.last_import; i < all.in.command.steps.size(); i++) {
        const upgrade_step &step = all.in.command.steps[i];
        const account_input *input = strchr("nm", step.letter) ? all.input_of(step) : nullptr;
        if (!input || input->unread)
            continue;
        for (const Frag *map : input->table ? own.conf.children("map") : std::vector<Frag *>())
            if (account_line *line = own.notes(map).from; line && !line->said) {
                first_lines.emplace(map, line);
                stand.push_back(map);
            }
        if (!merged.insert(input->conf).second)
            continue;
        standing_maps maps{*input->conf};
        bool is_first = stand.empty();
        for (const Frag *map : stand)
            maps.add(map);
        for (const Frag *map : input->conf->children("map"))
            if (const Frag *there = is_first ? nullptr : maps.find(map)) {
                winners.emplace(map, first_lines[there]);
            } else {
                maps.add(map);
                stand.push_back(map);
            }
    }
}

account_line *merged_maps::winner(const account_line &line) const {
    auto found = winners.find(at_depth(line.said->node, 1));
    return found == winners.end() ? nullptr : found->second;
}
