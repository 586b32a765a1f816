// The answer as text: findings, totals, what became of the lines, what is to be done, and the verdict.
#include "say/say.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <map>
#include <sstream>

using fmt::format;

namespace {

/// The text as it grows.
struct report {
    const review_data &data;
    const say_options &options;
    std::string text;

    // Breaks a line at blanks to fit the terminal; what follows is indented. A word that is too long stays whole.
    void line(const std::string &raw) {
        std::istringstream words(shown(raw));
        size_t column = 0; // with the blank that follows
        for (std::string each; std::getline(words, each, ' '); text += each) {
            auto is_first = [](char byte) { return (byte & 0xC0) != 0x80; }; // of a character
            auto columns = static_cast<size_t>(std::count_if(each.begin(), each.end(), is_first));
            bool is_broken = options.width && column > 5 && column + columns > options.width;
            text += is_broken ? "\n    " : column ? " " : "";
            column = (is_broken ? 5 : column + 1) + columns;
        }
        text += "\n";
    }

    bool wants(const std::string &name) const {
        return options.only.empty() || std::count(options.only.begin(), options.only.end(), name);
    }
};

// What follows from a cause is told by its number behind the causes, if nobody asks for more.
void write_findings(report &out) {
    bool folds = !out.options.all && out.options.only.empty();
    const std::vector<finding> &findings = out.data.findings;
    auto folded =
        std::count_if(findings.begin(), findings.end(), [=](const auto &told) { return folds && told.follows; });
    for (const finding &told : findings) {
        if (folded && !told.leads) {
            out.line(format("    {} more follow{} from this; --all lists them", folded, folded == 1 ? "s" : ""));
            folded = 0;
        }
        std::string at = place_text(told.at.file, told.at.line), advice = told.advice.empty() ? "" : ": " + told.advice;
        if (out.wants(told.id) && !(told.follows && folds))
            out.line(format("[{}] {}{}{}{}", told.id, at, at.empty() ? "" : ": ", finding_text(told), advice));
    }
}

void write_access(report &out) {
    std::map<std::string, std::vector<std::string>> proxies;
    for (const access_row &row : out.data.access)
        proxies[word(row.found)].push_back(row.proxy);
    if (!proxies.empty())
        out.text +=
            format("\naccess: {} compared over all hosts\n", counted(out.data.access.size(), "proxy", "proxies"));
    for (const auto &[found, names] : proxies)
        out.line(format("{} {}: {}", names.size(), found, fmt::join(names, " ")));
}

void write_lines(report &out) {
    const review_data &data = out.data;
    if (data.lines.empty())
        return;
    out.text += "\n";
    out.line("lines: " + fate_counts(data));
    bool has_proof = std::any_of(data.lines.begin(), data.lines.end(), [](const line_fate &line) {
        return line.how == proof::run && (line.became == fate::overridden || line.became == fate::without_effect);
    });
    if (has_proof)
        out.line("without all lines that are overridden or without effect the result is the same, byte for byte");
    std::vector<line_group> groups;
    for (const line_fate &line : data.lines)
        if (out.options.all)
            groups.push_back({&line});
    if (out.options.lines && !out.options.all)
        groups = group_lines(data);
    for (const line_group &group : groups) {
        const line_fate &first = *group.front();
        std::string why = line_reason(data, group), count = group.size() > 1 ? format(" ({} lines)", group.size()) : "";
        if (first.became != fate::kept || out.options.all)
            out.line(
                format("[{}] {}:{}: {}{}", word(first.became), data.files[first.file].name, first.line, why, count));
    }
    for (const line_origin &each : out.options.all ? data.origins : std::vector<line_origin>()) {
        std::string from =
            each.from == origin::input ? place_text(data.files[each.file].name, each.input_line) : word(each.from);
        out.line(format("[origin] {}:{}: {}", result_name(data), each.line, from));
    }
}

void write_todo(report &out) {
    std::string head = out.options.only.empty() ? "\nto do:\n" : "";
    for (const todo_item &item : out.data.todo) {
        if (!out.wants("todo." + item.id) && !out.wants("todo"))
            continue;
        out.text += std::exchange(head, "");
        out.line(format("[todo] {}: {}", item.id, item.text));
        for (const auto &[name, value] : item.fields)
            out.line(format("    {} = {}", name, value));
    }
}

} // namespace

std::string shown(std::string_view text) {
    std::string safe;
    for (size_t at = 0, size = 1; at < text.size(); at += size) {
        wchar_t value = 0;
        mbstate_t state{};
        size = mbrtowc(&value, text.data() + at, text.size() - at, &state);
        bool is_character = size > 0 && size <= 4;
        size = is_character ? size : 1;
        if (is_character && iswprint(static_cast<wint_t>(value)) && wcwidth(value) > 0)
            safe += text.substr(at, size);
        else if (is_character && size > 1)
            safe += format("\\u{{{:X}}}", static_cast<uint32_t>(value));
        else
            safe += text[at] == '\t' ? "\t" : format("\\x{:02X}", static_cast<unsigned char>(text[at]));
    }
    return safe;
}

std::string report_text(const review_data &data, const say_options &options) {
    report out{data, options, ""};
    bool is_whole = options.only.empty();
    if (options.quiet)
        return shown(verdict_sentence(data)) + "\n";
    if (!data.release_reason.empty())
        out.line(format("release {} ({})", data.release, data.release_reason));
    write_findings(out);
    if (is_whole) {
        write_access(out);
        write_lines(out);
    }
    write_todo(out);
    out.text += out.text.empty() ? "" : "\n";
    out.line(verdict_sentence(data));
    return std::move(out.text);
}
