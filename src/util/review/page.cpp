// The page: verdict, command and files, who gets through, checks, what is to be done, every line, and the signature.
#include "page.h"
#include "page_parts.h"
#include "report_text.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>

using fmt::format;

namespace {

constexpr size_t CHECK_LIMIT = 1000; // findings that are no differences
constexpr size_t TODO_LIMIT = 1000;  // things to do
constexpr size_t WORD_LIMIT = 4000;  // bytes of the command

/// How an outcome is called, by the exit status, each with a sign.
struct status_row {
    const char *style, *sign, *words;
};
const status_row statuses[] = {
    {"good", "\u2713", "Nothing to look at"},
    {"look", "!", "To look at before signing"},
    {"trouble", "\u2715", "Not everything could be told"},
};

/// Headings of what is to be done.
struct todo_row {
    const char *id, *heading;
};
const todo_row todo_headings[] = {
    {"off", "In use before, off now"},
    {"on", "Switched on by the upgrade"},
    {"brought", "Permits that only the initial environment brought"},
    {"destination", "Destinations in another order, or of no effect"},
    {"lost-value", "Values lost to the initial environment"},
    {"policy", "Policies to enter again"},
    {"proxy", "Proxies to enter again"},
    {"maps", "Maps to enter again"},
    {nullptr, nullptr},
};

size_t count_findings(const review_data &data, bool (*counts)(const finding &)) {
    return static_cast<size_t>(std::count_if(data.findings.begin(), data.findings.end(), counts));
}

bool is_check(const finding &told) { return !is_access_finding(told); }

// True for findings that the verdict tells in no words of its own.
bool is_doubt(const finding &told) {
    return is_check(told) && told.id != "trouble" && told.id != "not-written" && told.id != "unexplained";
}

size_t count_unexplained(const review_data &data) {
    return static_cast<size_t>(std::count_if(data.lines.begin(), data.lines.end(),
                                             [](const line_fate &line) { return line.fate == "unexplained"; }));
}

std::string verdict_text(const review_data &data) {
    std::string text;
    for (const finding &told : data.findings)
        if (told.id == "trouble")
            text += html(told.text) + ". ";
    bool is_whole = text.empty();
    if (std::string doubts = finding_totals(data, is_doubt); !doubts.empty())
        text += format("To look at: <a href=\"#h-checks\">{}</a>. ", doubts);
    if (!data.command.empty() && is_whole)
        text += data.written == "same"     ? "The result is written, byte for byte as the upgrade gives it. "
                : data.written == "absent" ? "The result is not written yet: this is a preview. "
                                           : "<strong>The file is not what this upgrade gives.</strong> ";
    std::string wider = proxies_with(data, "wider"), narrower = proxies_with(data, "narrower"),
                options = proxies_with(data, "options"), open = proxies_with(data, "not-decided");
    if (!wider.empty())
        text += format("Hosts that were refused get through at <strong>{}</strong>. ", wider);
    if (!narrower.empty())
        text += format("Hosts that got through are refused at <strong>{}</strong>. ", narrower);
    if (!options.empty())
        text += format("Options of rules are lost at {}. ", options);
    if (!open.empty())
        text += format("Who gets through is not decided for <strong>{}</strong>. ", open);
    if (!data.access.empty() && wider.empty() && narrower.empty() && open.empty())
        text += format("Who gets through is the same as before at {}. ", counted(data.access.size(), "proxy"));
    if (size_t lines = count_unexplained(data))
        text += format("<strong>{}</strong> could not be explained. ", counted(lines, "line"));
    if (!data.todo.empty())
        text += format("There {} <a href=\"#h-todo\">{} to decide or enter</a>.", data.todo.size() == 1 ? "is" : "are",
                       counted(data.todo.size(), "thing"));
    return text;
}

// A word as a shell takes it.
std::string quoted(const std::string &word) {
    static const char plain[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-_./=:,+@%";
    if (!word.empty() && word.find_first_not_of(plain) == std::string::npos)
        return word;
    std::string safe = "'";
    for (char byte : word)
        safe += byte == '\'' ? "'\\''" : std::string(1, byte);
    return safe + "'";
}

std::string files_section(const review_data &data) {
    std::string text = "<section aria-labelledby=\"h-files\"><h2 id=\"h-files\">Command and files</h2>\n";
    if (!data.command.empty()) {
        std::string line = "moatwall-upgrade";
        for (const std::string &word : data.command)
            line += " " + quoted(word);
        text += "<p class=\"command\"><code>" + html(line, WORD_LIMIT) + "</code></p>\n";
    }
    if (data.release)
        text += format("<p>The old configuration is one of release <b>{}.{}</b>{}.</p>\n", data.release / 10,
                       data.release % 10, data.release_reason.empty() ? "" : ": " + html(data.release_reason));
    std::string rows;
    for (const file_record &file : data.files)
        rows += format("<tr><th scope=\"row\">{}</th><td data-l=\"File\">{}</td><td data-l=\"Bytes\" class=\"num\">{}"
                       "</td><td data-l=\"SHA-256\" class=\"digest\">{}</td></tr>\n",
                       html(file.role), code(file.name), file.size < 0 ? "not there" : grouped(file.size),
                       file.sha256.empty() ? "&ndash;" : html(file.sha256));
    if (!rows.empty())
        text += "<table class=\"stack\"><caption>The files, as they were when this page was made</caption>\n<thead><tr>"
                "<th scope=\"col\">Role</th><th scope=\"col\">File</th><th scope=\"col\" class=\"num\">Bytes</th><th "
                "scope=\"col\">SHA-256</th></tr></thead>\n<tbody>\n" +
                rows + "</tbody></table>\n";
    return text + "</section>\n";
}

std::string checks_section(const review_data &data) {
    std::string rows;
    size_t all = 0;
    for (const finding &told : data.findings) {
        if (is_access_finding(told) || all++ >= CHECK_LIMIT)
            continue;
        rows += format(
            "<tr class=\"f\"><td data-l=\"Name\"><span class=\"kind\">{}</span></td><td data-l=\"Where\">{}"
            "</td><td data-l=\"Finding\">{}{}{}</td></tr>\n",
            html(told.id), told.file.empty() ? "&ndash;" : "<code>" + place_html(told.file, told.line) + "</code>",
            told.proxy.empty() || told.text.find(told.proxy) != std::string::npos ? "" : html(told.proxy) + ": ",
            html(told.text, 1000),
            told.count > 1 ? format(" <span class=\"by\">({} in all)</span>", grouped(told.count)) : "");
    }
    std::string text = "<section aria-labelledby=\"h-checks\"><h2 id=\"h-checks\">Checks</h2>\n";
    if (all == 0)
        return text + "<p>Command line, files and result gave nothing to look at.</p>\n</section>\n";
    return text +
           "<table class=\"stack checks\"><caption>Command line, files and result</caption>\n<thead><tr><th "
           "scope=\"col\">Name"
           "</th><th scope=\"col\">Where</th><th scope=\"col\">Finding</th></tr></thead>\n<tbody>\n" +
           rows + "</tbody></table>\n" +
           left_out(std::min(all, CHECK_LIMIT), all, "finding", "the program's text lists all of them") +
           "<p class=\"note\">The names are those of the manual, moatwall-review(1), which tells what to do.</p>\n"
           "</section>\n";
}

std::string todo_text(const todo_item &item, size_t number) {
    std::string fields;
    for (const auto &[name, value] : item.fields)
        fields += format("<div><dt>{}</dt><dd>{}</dd></div>\n", html(name), code(value));
    return format("<li class=\"f\"><input type=\"checkbox\" id=\"t{0}\"><label for=\"t{0}\">{1}</label>\n{2}</li>\n",
                  number, html(item.text, 1000), fields.empty() ? "" : "<dl>" + fields + "</dl>\n");
}

std::string todo_section(const review_data &data) {
    std::string text = "<section aria-labelledby=\"h-todo\"><h2 id=\"h-todo\">To do</h2>\n";
    if (data.todo.empty())
        return text +
               (followed_lines(data) ? "<p>Nothing is to be decided or entered again.</p>" : "<p>Not looked at.</p>") +
               "\n</section>\n";
    std::vector<std::string> ids; // in the order of their first item
    std::map<std::string, std::string> lists;
    std::map<std::string, bool> is_long;
    size_t shown = std::min(data.todo.size(), TODO_LIMIT);
    for (size_t i = 0; i < shown; i++) {
        auto [list, fresh] = lists.try_emplace(data.todo[i].id);
        if (fresh)
            ids.push_back(data.todo[i].id);
        list->second += todo_text(data.todo[i], i);
        is_long[data.todo[i].id] |= !data.todo[i].fields.empty();
    }
    for (const std::string &id : ids) {
        const todo_row *row = todo_headings;
        while (row->id && id != row->id)
            row++;
        text += format("<h3>{}</h3>\n<ul class=\"todo{}\">\n{}</ul>\n", row->id ? row->heading : html(id),
                       is_long[id] ? "" : " short", lists[id]);
    }
    return text + left_out(shown, data.todo.size(), "thing", "the program's text lists all of them") +
           "<p class=\"note\">Ticks last until the page is closed; print it to keep them.</p>\n</section>\n";
}

std::string contents(const review_data &data) {
    const std::string unseen = "not looked at";
    bool compared = compared_access(data), followed = followed_lines(data);
    size_t lost = static_cast<size_t>(
        std::count_if(data.lines.begin(), data.lines.end(), [](const line_fate &line) { return line.fate != "kept"; }));
    const struct {
        const char *id, *name;
        std::string count;
    } entries[] = {
        {"h-files", "Files", grouped(static_cast<long long>(data.files.size()))},
        {"h-access", "Who gets through",
         compared ? counted(count_findings(data, is_difference), "difference") : unseen},
        {"h-checks", "Checks", counted(count_findings(data, is_check), "finding")},
        {"h-todo", "To do", followed ? counted(data.todo.size(), "thing") : unseen},
        {"h-lines", "Lines", followed ? grouped(static_cast<long long>(lost)) + " not kept as they were" : unseen},
        {"h-sign", "Signature", ""}};
    std::string text;
    for (const auto &entry : entries)
        text += format("<li><a href=\"#{}\">{}</a> <span>{}</span></li>\n", entry.id, entry.name, entry.count);
    return "<nav aria-label=\"Contents\"><ul>\n" + text + "</ul></nav>\n";
}

const char filter_box[] =
    "<div class=\"box\" hidden><label for=\"filter\">Show only</label>\n"
    "<input id=\"filter\" type=\"search\" placeholder=\"proxy or host\" autocomplete=\"off\" spellcheck=\"false\" "
    "autocapitalize=\"off\" aria-describedby=\"shown\">\n<span id=\"shown\" class=\"note\" "
    "role=\"status\"></span></div>\n";

const char signature_section[] =
    "<section class=\"sign\" aria-labelledby=\"h-sign\"><h2 id=\"h-sign\">Signature</h2>\n"
    "<ul class=\"todo\"><li><input type=\"checkbox\" id=\"s1\"><label for=\"s1\">To be put into service as it "
    "is</label>"
    "</li>\n<li><input type=\"checkbox\" id=\"s2\"><label for=\"s2\">To be put into service after the changes noted "
    "here"
    "</label></li>\n<li><input type=\"checkbox\" id=\"s3\"><label for=\"s3\">Not to be put into "
    "service</label></li></ul>"
    "\n<div class=\"lines-to-fill\"><p>Name</p><p>Date</p><p>Signature</p></div>\n</section>\n";

// The file that the upgrade writes.
std::string subject_of_upgrade(const review_data &data) {
    for (const file_record &file : data.files)
        if (file.role == "result")
            return file.name;
    return data.command.back();
}

/// What a page is of: what stands in its heading.
struct page_head {
    std::string title, subject;
};

page_head find_head(const review_data &data) {
    if (!data.command.empty())
        return {"Upgrade review", subject_of_upgrade(data)};
    if (data.files.empty())
        return {"Review", ""};
    const std::string &conf = data.files.front().name;
    if (data.files.front().role == "first configuration")
        return {"Diff", conf + (data.files.size() > 1 ? " " + data.files[1].name : "")};
    for (const finding &told : data.findings)
        if (told.has_sides)
            return {"Explain", format("{} {} {}", conf, told.proxy, told.host)};
    return {data.files.size() > 1 ? "Explain" : "Review", conf}; // a check, or trouble kept it from an answer
}

} // namespace

std::string make_page(const review_data &data, const access_side &before, const access_side &after) {
    const status_row &status = statuses[std::clamp(data.status, 0, 2)];
    page_head head = find_head(data);
    std::string name = html(head.subject, 200);
    std::string page = format("<!DOCTYPE html>\n<html lang=\"en\">\n<head>\n<meta charset=\"utf-8\">\n<meta "
                              "http-equiv=\"Content-Security-Policy\" content=\"default-src 'none'; style-src {}; "
                              "script-src {}; base-uri 'none'; form-action 'none'\">\n<meta name=\"viewport\" "
                              "content=\"width=device-width, initial-scale=1\">\n<meta name=\"referrer\" "
                              "content=\"no-referrer\">\n<title>{}: {}</title>\n<style>",
                              policy_hash(page_style), policy_hash(page_script), head.title, name);
    page += page_style;
    page += format(
        "</style>\n</head>\n<body>\n<a class=\"skip\" href=\"#main\">Skip to the findings</a>\n<header>\n"
        "<p class=\"program\">moatwall-review</p>\n<h1>{} <span>{}</span></h1>\n"
        "<div class=\"verdict {}\"><p class=\"word\"><span class=\"sign-mark\" aria-hidden=\"true\">{}</span> "
        "{}</p>\n<p>{}</p></div>\n{}{}</header>\n<main id=\"main\">\n",
        head.title, name, status.style, status.sign, status.words, verdict_text(data), contents(data), filter_box);
    page += files_section(data);
    page += access_section(data, before, after);
    page += checks_section(data);
    page += todo_section(data);
    page += lines_section(data);
    page += signature_section;
    page += "</main>\n<script>";
    page += page_script;
    page += "</script>\n</body>\n</html>\n";
    return page;
}
