// What stands in the installed file of all that the upgrade writes, line by line: somebody may have changed it.
#include "frag_tools.h"
#include "lines/accounting.h"

#include <algorithm>
#include <fmt/format.h>

using fmt::format;

namespace {

/// What two lines have in common that are a pair: the path, or else the place key; the prefix; and the value, which
/// only a ruling can have otherwise. In the order in which pairs are looked for.
struct likeness {
    bool path, prefix, value;
};
constexpr likeness likenesses[] = {
    {false, true, true}, {true, true, true}, {false, false, true}, {true, false, true}, {true, true, false}};

/// One of two files, and which of its lines have none in the other yet.
struct matched_file {
    const configuration &conf;
    place_keys keys{conf};
    std::vector<bool> is_left = std::vector<bool>(conf.lines.size(), true);
    std::unordered_set<const Frag *> found{}; ///< what the lines that are not left stand in

    /// The hashes of what the lines that are left have in common with others, with their numbers.
    std::vector<std::pair<size_t, size_t>> left(likeness by);
};

std::vector<std::pair<size_t, size_t>> matched_file::left(likeness by) {
    std::vector<std::pair<size_t, size_t>> hashes;
    for (size_t i = 0; i < conf.lines.size(); i++) {
        const conf_line &line = conf.lines[i];
        if (!is_left[i] || (!by.value && !(line.node && is_named(line.node, "pd"))))
            continue;
        // A number leads to an entry that says something else now, unless that stands under another.
        if (by.path && line.node && found.count(line.node->parent) != 0)
            continue;
        std::string text(line.key);
        if (line.node) {
            place_keys::key_of place = keys.find(line.node);
            text = by.path ? place_keys::path(line.node) : place.key;
            text += format("\n{}", by.prefix ? prefix_of(place.bits | line.bits) : "");
        }
        if (line.role == line_role::name)
            text = name_key(text);
        else if (by.value)
            text.append("\n").append(line.value);
        hashes.emplace_back(std::hash<std::string>()(text), i);
    }
    std::sort(hashes.begin(), hashes.end());
    return hashes;
}

} // namespace

void match_installed(accounting &all) {
    matched_file own{all.in.own}, file{all.in.result};
    const std::vector<conf_line> &lines = own.conf.lines, &there = file.conf.lines;
    std::vector<size_t> written(there.size(), NO_LINE); // the line of the upgrade's that stands in each
    auto match = [&](size_t i, size_t j, likeness by) {
        own.is_left[i] = file.is_left[j] = false;
        written[j] = i;
        all.written[i].there = &there[j];
        all.written[i].turned = !by.prefix || !by.value;
    };
    for (size_t i = 0; &own.conf == &file.conf && i < lines.size(); i++)
        match(i, i, likenesses[0]);
    for (likeness by : likenesses) {
        auto was = own.left(by), is = file.left(by);
        for (auto a = was.begin(), b = is.begin(); a != was.end() && b != is.end();) {
            bool is_pair = a->first == b->first;
            if (is_pair)
                match(a->second, b->second, by);
            for (auto [of, line] : {std::pair(&own, a->second), {&file, b->second}})
                if (const Frag *node = is_pair && !by.path ? of->conf.lines[line].node : nullptr)
                    of->found.insert(node->parent);
            bool is_behind = b->first < a->first;
            a += !is_behind;
            b += is_pair || is_behind;
        }
    }
    for (size_t i = 0; i < lines.size(); i++) {
        const auto &[from, of, at, turned] = all.written[i];
        account_line *said = of == NO_LINE ? nullptr : &all.lines[of];
        if ((at && !turned) || !lines[i].node || from == origin::nowhere)
            continue;
        if (said && !at) {
            said->lost = said->lost ? said->lost : &lines[i];
            continue;
        }
        std::string text =
            at ? format("the upgrade writes {}={}, and {}={} stands in the result", lines[i].key, lines[i].value,
                        at->key, at->value)
               : format("{}={}: the upgrade writes it, and the result lacks it", lines[i].key, lines[i].value);
        finding *told = said ? all.tell_some("turned", format("{}: {}", said->text, text), *said)
                             : all.tell_some(at ? "turned" : "lost", text, file.conf.name, at ? at->line : 0);
        if (told && said)
            told->result = {file.conf.name, at->line};
    }
    for (size_t j = 0; j < there.size(); j++) {
        const conf_line &line = there[j];
        bool is_count = !line.node && line.key.find("_num") != line.key.npos;
        written_line made = is_count ? written_line{origin::layout} : written_line();
        if (written[j] != NO_LINE)
            made = all.written[written[j]];
        const char *why =
            written[j] == NO_LINE ? "the upgrade does not write it" : "no input says it, nor does the release";
        if (made.from == origin::nowhere)
            all.tell_some("from-nowhere", format("{}={}: {}", line.key, line.value, why), file.conf.name, line.line);
        for (long at = line.line; at <= line.end_line; at++)
            all.data.origins.push_back(
                made.of == NO_LINE ? line_origin{at, made.from}
                                   : line_origin{at, made.from, all.lines[made.of].file, all.lines[made.of].line});
    }
}
