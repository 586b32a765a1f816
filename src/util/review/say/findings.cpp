// What findings, fates and things to do are called, how much they matter, and what they come to together.
#include "say/say.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <map>
#include <tuple>

using fmt::format;

const finding_row finding_names[] = {
    {"trouble", grade::wrong, "thing in the way", "things in the way"},
    {"command-line", grade::wrong, "doubt about the command line", "doubts about the command line"},
    {"file", grade::wrong, "doubt about a file", "doubts about files"},
    {"not-written", grade::wrong, "result not in place", "results not in place"},
    {"not-decided", grade::wrong, "proxy not decided", "proxies not decided"},
    {"turned", grade::decide, "value with another prefix", "values with another prefix"},
    {"wider", grade::decide, "way in that was closed before", "ways in that were closed before"},
    {"narrower", grade::decide, "way in that is closed now", "ways in that are closed now"},
    {"options", grade::decide, "rule whose options are others", "rules whose options are others"},
    {"lost", grade::decide, "value lost", "values lost"},
    {"unexplained", grade::wrong, "line unexplained", "lines unexplained"},
    {"from-nowhere", grade::wrong, "line from nowhere", "lines from nowhere"},
    {"dangling", grade::decide, "name that leads nowhere", "names that lead nowhere"},
    {"cut", grade::decide, "text cut", "texts cut"},
    {"left-out", grade::decide, "part left out", "parts left out"},
    {"twice", grade::decide, "name that stands twice", "names that stand twice"},
    {"count", grade::decide, "count that lies", "counts that lie"},
    {"map", grade::decide, "map that differs", "maps that differ"},
    {"setting", grade::decide, "setting that differs", "settings that differ"},
    {"message", grade::know, "message of the upgrade", "messages of the upgrade"},
    {"explain", grade::none, "", ""},
    {"same", grade::none, "", ""},
    {nullptr, grade::wrong, "other finding", "other findings"},
};

const todo_row todo_names[] = {
    {"off", "In use before, off now"},
    {"on", "Switched on by the upgrade"},
    {"administration", "Who may administer the firewall, to be entered again"},
    {"brought", "Permits that only the initial environment brought"},
    {"destination", "Destinations in another order, or of no effect"},
    {"port", "Ports to enter again"},
    {"lost-value", "Values lost to the initial environment"},
    {"policy", "Policies to enter again"},
    {"proxy", "Proxies to enter again"},
    {"maps", "Maps to enter again"},
    {nullptr, "Other things"},
};

namespace {

// The word of the enumeration's value.
template <typename value_type> const char *pick(std::initializer_list<const char *> words, value_type value) {
    return words.begin()[static_cast<size_t>(value)];
}

} // namespace

template <> const char *word(grade value) { return pick({"wrong", "decide", "know", "none"}, value); }
template <> const char *word(fate value) {
    return pick({"kept", "reshaped", "overridden", "without effect", "unexplained"}, value);
}
template <> const char *word(proof value) { return pick({"placed", "run", "not tried"}, value); }
template <> const char *word(origin value) { return pick({"input", "release", "layout", "nowhere"}, value); }
template <> const char *word(verdict value) { return pick({"same", "different", "not decided"}, value); }
template <> const char *word(ruling value) { return pick({"refused", "permit", "deny"}, value); }
template <> const char *word(written value) { return pick({"absent", "same", "different"}, value); }
template <> const char *word(file_role value) {
    return pick({"netperm table", "old configuration", "initial environment", "merged file", "environment",
                 "configuration", "result"},
                value);
}

finding &tell(review_data &data, const char *id, std::string text, std::string file, long line) {
    finding told;
    told.id = id;
    told.text = std::move(text);
    told.at = {std::move(file), line};
    return data.findings.emplace_back(std::move(told));
}

uint32_t file_number(review_data &data, const std::string &name, file_role role) {
    for (size_t i = 0; i < data.files.size(); i++)
        if (data.files[i].name == name)
            return static_cast<uint32_t>(i);
    data.files.push_back({role, name, "", -1});
    return static_cast<uint32_t>(data.files.size() - 1);
}

bool is_told_name(const std::string &name) {
    bool is_kind = name.compare(0, 5, "todo.") == 0 && find_row(todo_names, name.substr(5))->id;
    return is_kind || name == "todo" || find_row(finding_names, name)->id;
}

grade grade_of(const review_data &data, const finding &told) {
    bool is_preview = told.id == "not-written" && data.result == written::absent;
    return is_preview ? grade::know : find_row(finding_names, told.id)->weight;
}

grade worst_grade(const review_data &data) {
    grade worst = data.todo.empty() ? grade::none : grade::decide;
    for (const finding &told : data.findings)
        worst = std::min(worst, grade_of(data, told));
    return worst;
}

void finish_answer(review_data &data) {
    auto key = [](const finding &told) {
        return std::make_tuple(!told.leads, told.follows, find_row(finding_names, told.id));
    };
    std::stable_sort(data.findings.begin(), data.findings.end(),
                     [key](const finding &a, const finding &b) { return key(a) < key(b); });
    data.status = worst_grade(data) != grade::none;
    for (const finding &told : data.findings)
        if (told.id == "trouble" || told.id == "not-decided")
            data.status = 2;
}

std::string verdict_sentence(const review_data &data) {
    std::map<grade, std::map<const finding_row *, size_t>> counts; // both the worst first
    for (const finding &told : data.findings)
        counts[grade_of(data, told)][find_row(finding_names, told.id)]++;
    std::string text;
    for (grade weight : {grade::wrong, grade::decide, grade::know}) {
        std::vector<std::string> parts;
        for (auto [row, count] : counts[weight])
            parts.push_back(counted(count, row->one, row->many));
        if (weight == grade::decide && !data.todo.empty())
            parts.push_back(counted(data.todo.size(), "thing to do", "things to do"));
        if (parts.empty())
            continue;
        const char *heads[] = {data.status == 2 ? "Trouble" : "Wrong", "To decide", "To know"};
        text += format("{}: {}. ", heads[static_cast<size_t>(weight)], fmt::join(parts, ", "));
    }
    text = text.empty() ? "Nothing to look at. " : text;
    bool is_whole = !data.command.empty() && data.result == written::same;
    return is_whole ? text + "The result is written, whole." : text.substr(0, text.size() - 1);
}

std::vector<line_group> group_lines(const review_data &data) {
    std::map<std::tuple<int, uint32_t, size_t, bool, std::string_view>, line_group> groups;
    for (const line_fate &line : data.lines) {
        size_t by = line.by_line ? line.by_file : SIZE_MAX;
        bool is_tried = line.how != proof::not_tried;
        groups[{-static_cast<int>(line.became), line.file, by, is_tried, line.reason}].push_back(&line);
    }
    std::vector<line_group> sorted;
    sorted.reserve(groups.size());
    for (auto &[key, group] : groups)
        sorted.push_back(std::move(group));
    return sorted;
}

std::string line_reason(const review_data &data, const line_group &group) {
    const line_fate &line = *group.front();
    bool is_one = group.size() == 1;
    std::vector<std::string> parts;
    if (line.result_line && is_one && line.became <= fate::reshaped)
        parts.push_back(place_text(result_name(data), line.result_line));
    if (line.by_line)
        parts.push_back("by " + place_text(data.files[line.by_file].name, is_one ? line.by_line : 0));
    if (!line.reason.empty())
        parts.push_back(line.reason);
    if (line.how == proof::not_tried)
        parts.push_back("not tried");
    return format("{}", fmt::join(parts, ": "));
}

std::string fate_counts(const review_data &data) {
    std::vector<std::string> parts;
    auto count = [&](const char *name, auto is_meant) {
        if (auto number = std::count_if(data.lines.begin(), data.lines.end(), is_meant))
            parts.push_back(format("{} {}", number, name));
    };
    for (fate each : {fate::kept, fate::reshaped, fate::overridden, fate::without_effect, fate::unexplained})
        count(word(each), [each](const line_fate &line) { return line.became == each; });
    count(said_twice, [](const line_fate &line) { return line.reason == said_twice; });
    count("not tried", [](const line_fate &line) { return line.how == proof::not_tried; });
    return format("{}", fmt::join(parts, ", "));
}

std::string result_name(const review_data &data) {
    for (const file_record &file : data.files)
        if (file.role == file_role::result)
            return file.name;
    return "standard output";
}

std::string counted(size_t number, const char *one, const char *many) {
    return format("{} {}", number, number == 1 ? one : many);
}

std::string place_text(const std::string &file, long line) { return line ? format("{}:{}", file, line) : file; }

std::string finding_text(const finding &told) {
    std::string text = told.text;
    if (!told.host.empty())
        text = format("{} {}: {}", told.proxy, told.host, text);
    else if (!told.proxy.empty() && text.find(told.proxy) == std::string::npos)
        text = format("{}: {}", told.proxy, text);
    for (const auto &[what, at] : {std::make_pair("also", told.by), std::make_pair("in the result", told.result)}) {
        std::string where = place_text(at.file, at.line);
        if (!where.empty() && text.find(where) == std::string::npos)
            text += format("; {} {}", what, where);
    }
    if (told.count > 1)
        text += told.has_sides ? format("; {} pairs of rule and map", told.count) : format(" ({} in all)", told.count);
    return told.cause.empty() ? text : text + "; cause: " + told.cause;
}
