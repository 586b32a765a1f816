// The answer as text: findings, totals, what became of the lines, what is to be done, and the verdict.
#include "say/say.h"

#include <algorithm>
#include <cwchar>
#include <cwctype>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>

using fmt::format;

namespace {

/// The text as it grows.
struct report_lines {
    const review_session &session;
    std::string text;

    // Breaks a line at blanks to fit the terminal; what follows is indented. A word that is too long stays whole.
    void line(const std::string &raw) {
        std::istringstream words(shown(raw));
        size_t column = 0; // with the blank that follows
        for (std::string each; std::getline(words, each, ' '); text += each) {
            size_t columns = mbstowcs(nullptr, each.c_str(), 0);
            bool is_broken = session.width && column > 5 && column + columns > session.width;
            text += is_broken ? "\n    " : column ? " " : "";
            column = (is_broken ? 5 : column + 1) + columns;
        }
        text += "\n";
    }
};

// What follows from a cause is told by its number behind the causes, if nobody asks for more.
void write_findings(const json &findings, report_lines &out) {
    bool folds = !out.session.all && out.session.only.empty();
    auto is_folded = [folds](const json &told) { return folds && told.contains("follows"); };
    auto folded = std::count_if(findings.begin(), findings.end(), is_folded);
    for (const json &told : findings) {
        if (auto rest = told.contains("leads") ? 0 : std::exchange(folded, 0))
            out.line(format("    {} more follow{} from this; --all lists them", rest, rest == 1 ? "s" : ""));
        std::string id = told["id"], text = told["text"],
                    at = place_text(told.value("file", ""), told.value("line", 0L)), advice = told.value("advice", "");
        if (!is_folded(told))
            out.line(
                format("[{}] {}{}{}{}{}", id, at, at.empty() ? "" : ": ", text, advice.empty() ? "" : ": ", advice));
    }
}

void write_access(report_lines &out) {
    const std::vector<access_row> &access = out.session.data.access;
    std::map<std::string, std::vector<std::string>> proxies;
    for (const access_row &row : access)
        proxies[word(row.found)].push_back(row.proxy);
    if (!access.empty())
        out.text += format("\naccess: {} compared over all hosts\n", counted(access.size(), "proxy", "proxies"));
    for (const auto &[found, names] : proxies)
        out.line(format("{} {}: {}", names.size(), found, fmt::join(names, " ")));
}

void write_lines(report_lines &out) {
    const review_data &data = out.session.data;
    if (data.lines.empty())
        return;
    out.text += "\n";
    out.line("lines: " + fate_counts(data));
    bool has_proof = std::any_of(data.lines.begin(), data.lines.end(), [](const line_fate &line) {
        return line.how == proof::run && (line.became == fate::overridden || line.became == fate::without_effect);
    });
    if (has_proof)
        out.line(
            format("without all lines that are overridden or without effect the result{} is the same, byte for byte",
                   out.session.own->name == out.session.subject ? "" : " in the canonical layout")); // not as XML
    auto write = [&](const line_fate &line, size_t alike) {
        std::string reason = line_reason(out.session, line, alike == 1);
        reason += alike > 1 ? format(" ({} lines)", alike) : "";
        out.line(format("[{}] {}:{}: {}", word(line.became), data.files[line.file].name, line.line, reason));
    };
    if (out.session.all) {
        for (const line_fate &line : data.lines)
            write(line, 1);
        for (const line_origin &each : data.origins) {
            std::string from = word(each.from);
            if (each.from == origin::input)
                from = place_text(data.files[each.file].name, each.input_line);
            out.line(format("[origin] {}:{}: {}", out.session.subject, each.line, from));
        }
    } else if (out.session.lines) {
        // Lines of one input with one fate, reason and winner stand together, the worst fate first.
        std::map<std::tuple<int, uint32_t, size_t, bool, std::string_view>, std::vector<const line_fate *>> groups;
        for (const line_fate &line : data.lines) {
            size_t by = line.by_line ? line.by_file : SIZE_MAX;
            bool is_tried = line.how != proof::not_tried;
            groups[{-static_cast<int>(line.became), line.file, by, is_tried, line.reason}].push_back(&line);
        }
        for (const auto &[key, group] : groups)
            if (group[0]->became != fate::kept)
                write(*group[0], group.size());
    }
}

void write_todo(const json &todo, report_lines &out) {
    out.text += out.session.only.empty() && !todo.empty() ? "\nto do:\n" : "";
    for (const json &item : todo) {
        out.line(format("[todo] {}: {}", item["id"].get<std::string>(), item["text"].get<std::string>()));
        for (const json &field : item.value("fields", json::array()))
            out.line(format("    {} = {}", field["name"].get<std::string>(), field["value"].get<std::string>()));
    }
}

// Leaves out all findings and things to do but those that were asked for by their names.
void keep_only(const std::vector<std::string> &names, json &answer) {
    for (auto [list, front] : {std::pair("findings", ""), {"todo", "todo."}}) {
        json kept = json::array();
        for (const json &each : answer[list])
            if (std::count(names.begin(), names.end(), front + each["id"].get<std::string>()) +
                std::count(names.begin(), names.end(), list))
                kept.push_back(each);
        answer[list] = std::move(kept);
    }
}

} // namespace

std::string shown(std::string_view text) {
    std::string safe;
    for (size_t at = 0, size = 1; at < text.size(); at += size) {
        wchar_t value = 0; // stays 0 for what is no character
        mbstate_t state{};
        size = mbrtowc(&value, text.data() + at, text.size() - at, &state);
        size = size == 0 || size > 4 ? 1 : size;
        if (text[at] == '\t' || (iswprint(static_cast<wint_t>(value)) && wcwidth(value) > 0))
            safe += text.substr(at, size);
        else
            safe += size > 1 ? format("\\u{{{:X}}}", static_cast<uint32_t>(value))
                             : format("\\x{:02X}", static_cast<unsigned char>(text[at]));
    }
    return safe;
}

std::string line_reason(const review_session &session, const line_fate &line, bool is_alone) {
    std::vector<std::string> parts;
    if (line.result_line && is_alone && line.became <= fate::reshaped)
        parts.push_back(place_text(session.subject, line.result_line));
    if (line.by_line)
        parts.push_back("by " + place_text(session.data.files[line.by_file].name, is_alone ? line.by_line : 0));
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

static std::string report_text(const json &answer, const review_session &session) {
    report_lines out{session, ""};
    std::string verdict = answer["verdict"];
    if (session.as_json)
        return report_json(answer, session.data);
    if (session.quiet || !session.html.empty())
        return shown(verdict) + "\n";
    if (!session.data.release_reason.empty())
        out.line(format("release {} ({})", session.data.release, session.data.release_reason));
    write_findings(answer["findings"], out);
    if (session.only.empty()) {
        write_access(out);
        write_lines(out);
    }
    write_todo(answer["todo"], out);
    out.text += out.text.empty() ? "" : "\n";
    out.line(verdict);
    return std::move(out.text);
}

reply report(review_session &session) {
    json answer = answer_object(session.data);
    std::string page = session.html.empty() ? "" : report_page(answer, session);
    if (!session.only.empty())
        keep_only(session.only, answer);
    return {answer["status"], report_text(answer, session), page};
}
