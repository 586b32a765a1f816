// Which maps a merge leaves out.
#include "frag_tools.h"
#include "lines/accounting.h"

#include <cstring>
#include <set>

namespace {

/// The maps that stand while a file is merged, the first of those that are the same.
struct standing_maps {
    const configuration &file;
    std::unordered_map<std::string, const Frag *> known{};

    // What a map says up to its first missing value, one value more each time: five texts of a map that lacks none.
    static std::vector<std::string> texts(const Frag *map) {
        std::vector<std::string> all = {""};
        for (const char *field : {"pd", "src", "proxy", "policy"}) {
            const Frag *value = find_named(map->child, field);
            if (!value || !value->value)
                break;
            all.push_back(all.back() + value->value + '\n');
        }
        return all;
    }

    // The config sets of a policy that the file has; whatever its name, it is the same by them.
    std::string sets(const Frag *map) const {
        const Frag *policy = file.record("policy", configuration::value(map, "policy")),
                   *proxies = policy ? find_named(policy->child, "proxy") : nullptr;
        std::set<std::string> names;
        for (const Frag *entry : configuration::children(proxies, ""))
            names.insert(entry->name);
        std::string all = proxies ? "\2" : "";
        for (const std::string &name : names)
            all += name + '\n';
        return all;
    }

    void add(const Frag *map) {
        std::vector<std::string> said = texts(map);
        for (const std::string &text : said)
            known.emplace(text, map);
        known.emplace(said.size() < 5 ? '\1' + said.back() : sets(map) + said[3], map);
    }

    // Two maps are the same up to what the first or the second lacks, or by policies that list the same config sets.
    const Frag *find(const Frag *map) const {
        std::vector<std::string> said = texts(map), asked = {said.back()};
        for (const std::string &text : said)
            asked.push_back('\1' + text);
        if (std::string listed = said.size() < 5 ? "" : sets(map); !listed.empty())
            asked.push_back(listed + said[3]);
        for (const std::string &text : asked)
            if (auto found = known.find(text); found != known.end())
                return found->second;
        return nullptr;
    }
};

} // namespace

merged_maps::merged_maps(const accounting &all, result_places &own) {
    for (size_t i = 0; i < all.lines.size(); i++)
        if (is_map_line(all.lines[i]))
            first_lines.emplace(at_depth(all.lines[i].said->node, 1), i);
    std::vector<const Frag *> stand;
    std::set<const configuration *> merged; // once more they bring nothing
    bool has_maps = false;
    for (size_t i = all.last_import; i < all.in.command.steps.size(); i++) {
        const upgrade_step &step = all.in.command.steps[i];
        const account_input *input = strchr("nm", step.letter) ? all.input_of(step) : nullptr;
        if (!input)
            continue;
        has_maps = has_maps || !stand.empty();
        if (input->table) {
            for (const Frag *map : own.conf.children("map"))
                if (size_t line = own.notes(map).from; line != NO_LINE && !all.lines[line].said) {
                    first_lines.emplace(map, line);
                    stand.push_back(map);
                }
            continue;
        }
        if (!merged.insert(input->conf).second)
            continue;
        standing_maps maps{*input->conf};
        for (const Frag *map : stand)
            maps.add(map);
        for (const Frag *map : input->conf->children("map"))
            if (const Frag *there = has_maps ? maps.find(map) : nullptr) {
                same.emplace(map, there);
            } else {
                maps.add(map);
                stand.push_back(map);
            }
        has_maps = has_maps || input->conf->find("map");
    }
}

size_t merged_maps::winner(const account_line &line) const {
    auto there = same.find(at_depth(line.said->node, 1));
    auto first = there == same.end() ? first_lines.end() : first_lines.find(there->second);
    return first == first_lines.end() ? NO_LINE : first->second;
}
