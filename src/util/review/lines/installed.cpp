// What stands in the installed file of all that the upgrade writes, line by line: somebody may have changed it.
#include "frag_tools.h"
#include "lines/accounting.h"

#include <algorithm>
#include <fmt/format.h>
#include <tuple>

using fmt::format;

namespace {

/// What two lines have in common that are a pair: the path, the place key without the count of equals, the prefix, and
/// the value, which only a ruling can have otherwise; or the bytes, where the two files are read otherwise. In the
/// order in which pairs are looked for.
struct likeness {
    bool path, key, prefix, value, bytes;
};
constexpr likeness likenesses[] = {{true, true, true, true, false},   {false, true, true, true, false},
                                   {true, false, true, true, false},  {false, true, false, true, false},
                                   {true, false, false, true, false}, {true, false, true, false, false},
                                   {false, false, true, true, true}};

/// A line that is left: the hash of what it has in common with others, the number of its entry, and its own number.
using left_line = std::tuple<size_t, long, size_t>;

long entry_number(const Frag *node) {
    while (node && !is_digit(node->name[0]))
        node = node->parent;
    return node ? decimal(node->name) : 0;
}

/// One of two files, and which of its lines have none in the other yet.
struct matched_file {
    const configuration &conf;
    place_keys keys{conf, conf.numbered};
    std::vector<bool> is_left = std::vector<bool>(conf.lines.size(), true);
    std::unordered_set<const Frag *> found{}; ///< what the lines that are not left stand in

    /// The lines that are left, those of the last entries first. `is_file` of the file that is installed.
    std::vector<left_line> left(likeness by, bool is_file) {
        std::vector<left_line> hashes;
        for (size_t i = 0; i < conf.lines.size(); i++) {
            const conf_line &line = conf.lines[i];
            if (!is_left[i] || (!by.value && !(line.node && is_named(line.node, "pd"))))
                continue;
            // A number leads to an entry that says something else now, unless that stands under another.
            bool is_name = line.role == line_role::name;
            if (((by.path && !by.key) || (by.bytes && is_file && !is_name)) && line.node &&
                found.count(line.node->parent) != 0)
                continue;
            std::string text(line.key);
            if (line.node && !by.bytes) {
                place_keys::key_of place = keys.find(line.node, place_keys::FIRST);
                text = format("{}\n{}\n{}", by.path ? place_keys::path(line.node) : "", by.key ? place.key : "",
                              by.prefix ? prefix_of(place.named ? place.bits : line.bits) : "");
            }
            if (is_name && !by.bytes)
                text = name_key(text);
            else if (by.value)
                text.append("\n").append(line.value);
            hashes.emplace_back(std::hash<std::string>()(text), entry_number(line.node), i);
        }
        std::sort(hashes.begin(), hashes.end(), std::greater<>()); // an entry that goes lets those behind it move up
        return hashes;
    }
};

} // namespace

std::string text_of_line(const configuration &conf, const conf_line &line) {
    if (line.section_form)
        return format("{}={}", line.key, line.value);
    std::string_view text = conf.bytes.substr(line.begin, line.end - line.begin);
    return std::string(text.substr(0, text.find_last_not_of("\r\n") + 1));
}

void match_installed(accounting &all) {
    matched_file own{all.in.own}, file{all.in.result};
    const std::vector<conf_line> &lines = own.conf.lines, &there = file.conf.lines;
    std::vector<const written_line *> written(there.size()); // the line of the upgrade's that stands in each
    auto match = [&](size_t i, size_t j, likeness by) {
        own.is_left[i] = file.is_left[j] = false;
        written[j] = &all.written[i];
        all.written[i].there = &there[j];
        all.written[i].turned = !by.prefix || !by.value;
    };
    for (size_t i = 0; &own.conf == &file.conf && i < lines.size(); i++)
        match(i, i, likenesses[0]);
    for (likeness by : likenesses) {
        auto was = own.left(by, false), is = file.left(by, true);
        for (auto a = was.begin(), b = is.begin(); a != was.end() && b != is.end();) {
            const auto &[a_hash, a_number, i] = *a;
            const auto &[b_hash, b_number, j] = *b;
            bool is_pair = a_hash == b_hash, is_behind = b_hash > a_hash;
            if (is_pair)
                match(i, j, by);
            for (auto [of, line] : {std::pair(&own, &lines[i]), {&file, &there[j]}})
                if (is_pair && by.key && line->node)
                    of->found.insert(line->node->parent);
            a += !is_behind;
            b += is_pair || is_behind;
        }
    }
    for (size_t i = 0; i < lines.size(); i++) {
        const auto &[from, said, at, turned] = all.written[i];
        // The prefix of a parameter stands in the line of its name.
        bool is_told = at && (!turned || text_of_line(own.conf, lines[i]) == text_of_line(file.conf, *at));
        if (is_told || !lines[i].node || from == origin::nowhere)
            continue;
        if (said && !at) {
            said->lost = said->lost ? said->lost : &lines[i];
            continue;
        }
        std::string text = at ? format("the upgrade writes {}, and {} stands in the result",
                                       text_of_line(own.conf, lines[i]), text_of_line(file.conf, *at))
                              : format("{}: {}", text_of_line(own.conf, lines[i]), LACKING);
        place there_at = all.in_result(at ? at->line : 0);
        if (said)
            all.tell_of(*said, "turned", text, {}, there_at);
        else
            all.tell_some(at ? "turned" : "lost", text, there_at);
    }
    for (size_t j = 0; j < there.size(); j++) {
        const conf_line &line = there[j];
        bool is_count = !line.node && line.key.find("_num") != line.key.npos;
        const written_line made = written[j] ? *written[j] : written_line{is_count ? origin::layout : origin::nowhere};
        if (made.from == origin::nowhere)
            all.tell_some(
                "from-nowhere",
                format("{}: {}", text_of_line(file.conf, line),
                       written[j] ? "no input says it, nor does the release" : "the upgrade does not write it"),
                all.in_result(line.line));
        for (long at = line.line; at <= line.end_line; at++)
            all.data.origins.push_back(made.of ? line_origin{at, made.from, made.of->file, made.of->line}
                                               : line_origin{at, made.from});
    }
}
