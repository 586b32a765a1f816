// What became of every line: totals first, then a list for each fate, equal reasons together.
#include "page_parts.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>

using fmt::format;

namespace {

constexpr size_t LINE_LIMIT = 1500; // lines of one fate
constexpr size_t TEXT_LIMIT = 200;  // bytes of one line

/// What can become of a line, the worst first, and how its list stands on the page: what matters is printed, too.
struct fate_row {
    const char *name, *title, *meaning, *state;
};
const fate_row fates[] = {
    {"unexplained", "Unexplained", "no reason is known: look at these", "class=\"fold matters\" open"},
    {"without effect", "Without effect", "dropped; nothing in the result comes from them",
     "class=\"fold matters\" open"},
    {"overridden", "Overridden", "another file or line has the last word", "class=\"fold\""},
    {"reshaped", "Reshaped", "in the result in another shape", "class=\"fold\""},
    {"kept", "Kept", "in the result as they were", "class=\"fold\""},
    {nullptr, nullptr, nullptr, nullptr},
};

// The reason with its numbers aside, so that like cases come together.
std::string reason_key(const std::string &reason) {
    std::string key;
    for (char byte : reason) {
        bool is_digit = byte >= '0' && byte <= '9';
        if (!is_digit)
            key += byte;
        else if (key.empty() || key.back() != '#')
            key += '#';
    }
    return key;
}

using line_group = std::vector<const line_fate *>;

std::vector<line_group> group_lines(const review_data &data, const std::string &fate) {
    std::vector<line_group> groups;
    std::map<std::string, size_t> by_reason;
    for (const line_fate &line : data.lines) {
        if (line.fate != fate)
            continue;
        auto [at, fresh] = by_reason.emplace(reason_key(line.reason), groups.size());
        if (fresh)
            groups.emplace_back();
        groups[at->second].push_back(&line);
    }
    return groups;
}

// A reason that is the one above stands as a mark, and in full for who can't see it or sees the line alone.
std::string line_row(const line_fate &line, const line_fate *above) {
    std::string reason = line.reason.empty() ? "&ndash;" : html(line.reason);
    bool is_ditto = above && above->reason == line.reason;
    if (is_ditto)
        reason = "<span aria-hidden=\"true\">&Prime;</span><span class=\"vh\">" + reason + "</span>";
    return format("<tr class=\"f{}\"><th scope=\"row\">{}</th><td><code>{}</code></td><td{}>{}</td></tr>\n",
                  above ? " like" : "", place_html(line.file, line.line), html(line.text, TEXT_LIMIT),
                  is_ditto ? " class=\"ditto\"" : "", reason);
}

std::string fate_list(const review_data &data, const fate_row &fate) {
    std::string rows;
    size_t all = 0, shown = 0;
    for (const line_group &group : group_lines(data, fate.name)) {
        const line_fate *above = nullptr;
        for (const line_fate *line : group) {
            if (all++ >= LINE_LIMIT)
                continue;
            rows += line_row(*line, above);
            above = line;
            shown++;
        }
    }
    if (all == 0)
        return "";
    return format("<details {}><summary><h3>{}</h3> <span class=\"state\">{}; {}</span></summary>\n<table "
                  "class=\"lines\"><caption class=\"vh\">{}</caption>\n<thead class=\"vh\"><tr><th scope=\"col\">Where"
                  "</th><th scope=\"col\">Line</th><th scope=\"col\">Why</th></tr></thead>\n<tbody>\n{}</tbody></table>"
                  "\n{}</details>\n",
                  fate.state, fate.title, counted(all, "line"), fate.meaning, fate.title, rows,
                  left_out(shown, all, "line", "<code>moatwall-review --json</code> lists all of them"));
}

std::string totals_table(const review_data &data) {
    std::vector<std::string> files;
    std::map<std::string, std::map<std::string, size_t>> totals;
    for (const line_fate &line : data.lines) {
        auto [at, fresh] = totals.try_emplace(line.file);
        if (fresh)
            files.push_back(line.file);
        at->second[line.fate]++;
    }
    std::string head, rows;
    for (const fate_row *fate = fates; fate->name; fate++)
        head += format("<th scope=\"col\" class=\"num\">{}</th>", fate->name);
    for (const std::string &file : files) {
        rows += format("<tr><th scope=\"row\">{}</th>", html(file));
        for (const fate_row *fate = fates; fate->name; fate++) {
            size_t number = totals[file][fate->name];
            rows += format("<td class=\"num\" data-l=\"{}\">{}</td>", fate->name,
                           number ? grouped(static_cast<long long>(number)) : "&ndash;");
        }
        rows += "</tr>\n";
    }
    return format("<table class=\"stack\"><caption>Lines of each input and what became of them</caption>\n<thead>"
                  "<tr><th scope=\"col\">Input</th>{}</tr></thead>\n<tbody>\n{}</tbody></table>\n",
                  head, rows);
}

} // namespace

bool followed_lines(const review_data &data) {
    bool is_whole = std::none_of(data.findings.begin(), data.findings.end(),
                                 [](const finding &told) { return told.id == "trouble"; });
    return !data.lines.empty() || (!data.command.empty() && is_whole);
}

std::string lines_section(const review_data &data) {
    std::string text = "<section aria-labelledby=\"h-lines\"><h2 id=\"h-lines\">What became of every line</h2>\n";
    if (!followed_lines(data))
        return text + "<p>Not looked at.</p>\n</section>\n";
    text += totals_table(data);
    for (const fate_row *fate = fates; fate->name; fate++)
        text += fate_list(data, *fate);
    return text + "</section>\n";
}
