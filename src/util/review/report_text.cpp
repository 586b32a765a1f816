// Findings, totals, what became of the lines, what is to be done, and the verdict.
#include "report_text.h"
#include "line_fates.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <utility>

using fmt::format;

namespace {

/// The names of findings, worst first, with what one and many of them are called.
struct rank_row {
    const char *id, *one, *many;
};
const rank_row ranks[] = {
    {"trouble", "thing in the way", "things in the way"},
    {"command-line", "doubt about the command line", "doubts about the command line"},
    {"file", "doubt about a file", "doubts about files"},
    {"not-written", "result not written so", "results not written so"},
    {"not-decided", "proxy not decided", "proxies not decided"},
    {"wider", "way in that was closed before", "ways in that were closed before"},
    {"narrower", "way in that is closed now", "ways in that are closed now"},
    {"options", "rule whose options are lost", "rules whose options are lost"},
    {"unexplained", "line unexplained", "lines unexplained"},
    {"dangling", "name that leads nowhere", "names that lead nowhere"},
    {"cut", "text cut", "texts cut"},
    {"left-out", "part left out", "parts left out"},
    {"twice", "name that stands twice", "names that stand twice"},
    {"count", "count that lies", "counts that lie"},
    {"map", "map that differs", "maps that differ"},
    {"setting", "setting that differs", "settings that differ"},
    {"message", "message of the upgrade", "messages of the upgrade"},
    {nullptr, nullptr, nullptr},
};

size_t rank_of(const std::string &id) {
    size_t rank = 0;
    while (ranks[rank].id && id != ranks[rank].id)
        rank++;
    return rank;
}

std::string shown(const std::string &text) {
    std::string safe;
    for (char byte : text) {
        unsigned char code = static_cast<unsigned char>(byte);
        if (code < 32 || code == 127)
            safe += format("%{:02X}", code);
        else
            safe += byte;
    }
    return safe;
}

std::string place(const std::string &file, long line) {
    if (file.empty())
        return "";
    return line ? format("{}:{}", file, line) : file;
}

std::string side_text(const decision &side) {
    std::string text = side.decision;
    if (side.map)
        text += format(" by map {}", side.map);
    std::string at = place(side.file, side.line);
    if (!at.empty() && side.line)
        text += format(" ({}{})", at, side.pattern.empty() ? "" : ", " + side.pattern);
    return text;
}

std::string access_text(const finding &told) {
    std::string text = format("{} {}: ", told.proxy, told.host);
    if (!told.text.empty())
        text += told.text;
    else if (told.id == "explain") // of one side alone
        text += side_text(told.after);
    else
        text += format("before {}, now {}", side_text(told.before), side_text(told.after));
    if (told.count > 1)
        text += format("; {} pairs of rule and map", told.count);
    return told.cause.empty() ? text : text + "; cause: " + told.cause;
}

// Numbers in rising order as ranges: 1, 4-6, 9.
std::string ranges(const std::vector<long> &numbers) {
    std::string text;
    for (size_t i = 0; i < numbers.size();) {
        size_t end = i;
        while (end + 1 < numbers.size() && numbers[end + 1] <= numbers[end] + 1)
            end++;
        text += format("{}{}", text.empty() ? "" : ", ", numbers[i]);
        if (numbers[end] > numbers[i])
            text += format("-{}", numbers[end]);
        i = end + 1;
    }
    return text;
}

void write_group(const fate_group &group, std::string &text) {
    std::vector<long> numbers;
    for (const line_fate *line : group.lines)
        numbers.push_back(line->line);
    std::string reason = group.reason.empty() ? "as it was" : group.reason;
    text += shown(format("[{}] {}: {}: line{} {}", group.fate, group.file, reason, numbers.size() == 1 ? "" : "s",
                         ranges(numbers))) +
            "\n";
}

void write_lines(const review_data &data, const text_options &options, std::string &text) {
    if (data.lines.empty())
        return;
    fate_summary summary = summarize_lines(data);
    text += "\nlines:";
    for (const auto &[name, count] : summary.totals)
        text += format("{} {} {}", &summary.totals.front().first == &name ? "" : ",", count, name);
    text += "\n";
    for (const fate_group &group : summary.groups) {
        bool dropped = group.fate == "without effect" || group.fate == "overridden";
        if (dropped || (options.all && group.fate != "unexplained")) // each of those is a finding
            write_group(group, text);
    }
    fate_group kept;
    for (size_t i = 0; options.all && i < data.lines.size(); i++) {
        if (data.lines[i].fate != "kept")
            continue;
        if (!kept.lines.empty() && kept.file != data.lines[i].file)
            write_group(std::exchange(kept, {}), text);
        kept.file = data.lines[i].file;
        kept.fate = "kept";
        kept.lines.push_back(&data.lines[i]);
    }
    if (!kept.lines.empty())
        write_group(kept, text);
}

void write_access(const review_data &data, std::string &text) {
    if (data.access.empty())
        return;
    std::map<std::string, std::vector<std::string>> proxies;
    for (const access_row &row : data.access)
        proxies[row.verdict].push_back(row.proxy);
    text += format("\naccess: {} {} compared over all hosts\n", data.access.size(),
                   data.access.size() == 1 ? "proxy" : "proxies");
    for (const auto &[verdict, names] : proxies)
        text += shown(format("{} {}: {}", names.size(), verdict, fmt::join(names, " "))) + "\n";
}

void write_todo(const review_data &data, std::string &text) {
    if (data.todo.empty())
        return;
    text += "\nto do:\n";
    for (const todo_item &item : data.todo) {
        text += shown(format("[todo] {}: {}", item.id, item.text)) + "\n";
        for (const auto &[name, value] : item.fields)
            text += shown(format("    {} = {}", name, value)) + "\n";
    }
}

} // namespace

void sort_findings(review_data &data) {
    std::stable_sort(data.findings.begin(), data.findings.end(),
                     [](const finding &a, const finding &b) { return rank_of(a.id) < rank_of(b.id); });
}

std::string finding_text(const finding &told) {
    if (told.has_sides)
        return access_text(told);
    std::string at = place(told.file, told.line);
    // Some texts begin with their place.
    std::string text = at.empty() || told.text.compare(0, told.file.size(), told.file) == 0 ? "" : at + ": ";
    text += told.proxy.empty() || told.text.find(told.proxy) != std::string::npos ? "" : told.proxy + ": ";
    text += told.text;
    return told.count > 1 ? format("{} ({} in all)", text, told.count) : text;
}

std::string finding_line(const finding &told) { return shown(format("[{}] {}", told.id, finding_text(told))); }

std::string finding_totals(const review_data &data, const std::function<bool(const finding &)> &counts) {
    std::map<size_t, size_t> totals;
    for (const finding &told : data.findings)
        if (counts(told))
            totals[rank_of(told.id)]++;
    std::string text;
    for (auto [rank, count] : totals) {
        if (ranks[rank].id)
            text += format("{}{} {}", text.empty() ? "" : ", ", count, count == 1 ? ranks[rank].one : ranks[rank].many);
    }
    return text;
}

std::string verdict_sentence(const review_data &data) {
    std::string text = finding_totals(data, [](const finding &) { return true; });
    if (!data.todo.empty())
        text += format("{}{} {}", text.empty() ? "" : ", ", data.todo.size(),
                       data.todo.size() == 1 ? "thing to do" : "things to do");
    text = text.empty() ? "" : ": " + text;
    const char *heads[] = {"Nothing to look at", "Something to look at", "Trouble"};
    if (data.command.empty() || data.written != "same")
        return heads[data.status] + text + ".";
    return heads[data.status] + text + "; the result is written, whole.";
}

std::string report_text(const review_data &data, const text_options &options) {
    std::string text;
    if (!options.quiet) {
        if (!data.release_reason.empty())
            text += shown(format("release {} ({})", data.release, data.release_reason)) + "\n";
        for (const finding &told : data.findings)
            text += finding_line(told) + "\n";
        write_access(data, text);
        write_lines(data, options, text);
        write_todo(data, text);
        text += text.empty() ? "" : "\n";
    }
    return text + verdict_sentence(data) + "\n";
}
