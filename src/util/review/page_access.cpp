// Who gets through: the differences, the rules of each proxy in order, and the data for asking about a host.
#include "page_parts.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <map>
#include <nlohmann/json.hpp>
#include <set>

using fmt::format;
using nlohmann::json;

namespace {

// What a browser still shows without a wait. What is beyond is told.
constexpr size_t ROW_LIMIT = 1000;           // differences
constexpr size_t PROXY_LIMIT = 400;          // proxies with their rules
constexpr size_t BLOCK_LIMIT = 150;          // lines or maps of one proxy on one side
constexpr size_t PATTERN_LIMIT = 6;          // patterns of one line or map
constexpr size_t ASKED_RULES_LIMIT = 500000; // rules of all proxies that the box for hosts knows

/// What the kinds of differences are called, worst first, each with a sign so that it does not rest on the colour.
struct kind_row {
    const char *id, *sign, *meaning;
};
const kind_row kinds[] = {
    {"not-decided", "?", "the comparison did not come to an end"},
    {"wider", "\u25B2", "refused before, permitted now"},
    {"narrower", "\u25BC", "permitted before, refused now"},
    {"options", "\u25C6", "permitted on both sides, and options of the rule are lost"},
    {"same", "=", "treated as before"},
    {"explain", "=", "who decides"},
    {nullptr, nullptr, nullptr},
};

const kind_row *find_kind(const std::string &id) {
    const kind_row *row = kinds;
    while (row->id && id != row->id)
        row++;
    return row->id ? row : nullptr;
}

std::string side_cell(const decision &side) {
    std::string text = format("<b>{}</b>", html(side.decision));
    if (!side.line && !side.map)
        return text + " <span class=\"by\">nothing covers it</span>";
    text += side.map ? format(" by map {}", side.map) : std::string(" by the rule");
    return text + format(" {} <span class=\"by\">{}</span>", code(side.pattern), place_html(side.file, side.line));
}

std::string difference_row(const finding &told, const kind_row &kind) {
    std::string why = html(told.has_sides ? told.cause : told.text);
    std::string row = format("<tr class=\"f {0}\"><td data-l=\"What\"><span class=\"kind {0}\"><span "
                             "aria-hidden=\"true\">{1}</span> {0}</span></td>\n<th scope=\"row\">{2}</th>",
                             kind.id, kind.sign, html(told.proxy));
    if (!told.has_sides)
        return row + format("<td colspan=\"5\">{}</td></tr>\n", why);
    return row + format("<td data-l=\"Host\">{}</td><td data-l=\"Before\">{}</td><td data-l=\"After\">{}</td>"
                        "<td data-l=\"Why\">{}</td><td data-l=\"Pairs\" class=\"num\">{}</td></tr>\n",
                        code(told.host), side_cell(told.before), side_cell(told.after), why.empty() ? "&ndash;" : why,
                        grouped(std::max(told.count, 1L)));
}

std::string difference_table(const review_data &data) {
    std::string rows, legend;
    size_t all = 0, shown = 0;
    for (const kind_row *kind = kinds; kind->id; kind++) {
        size_t before = all;
        for (const finding &told : data.findings)
            if (told.id == kind->id && all++ < ROW_LIMIT) {
                rows += difference_row(told, *kind);
                shown++;
            }
        if (all > before)
            legend += format("<li><span class=\"kind {0}\"><span aria-hidden=\"true\">{1}</span> {0}</span> {2}</li>\n",
                             kind->id, kind->sign, kind->meaning);
    }
    if (all == 0)
        return compared_access(data) ? "<p>No host is treated otherwise than before, at any proxy.</p>\n"
                                     : "<p>Not looked at.</p>\n";
    auto differences = static_cast<size_t>(std::count_if(data.findings.begin(), data.findings.end(), is_difference));
    return format(
        "<ul class=\"legend\">\n{}</ul>\n<table class=\"stack\" "
        "id=\"differences\">\n<caption>{}</caption>\n<thead><tr><th scope=\"col\">What</th><th "
        "scope=\"col\">Proxy</th><th scope=\"col\">Host</th><th scope=\"col\">Before</th><th "
        "scope=\"col\">After</th><th scope=\"col\">Why</th><th scope=\"col\" class=\"num\">Pairs</th></tr>"
        "</thead>\n<tbody>\n{}</tbody></table>\n{}"
        "<p class=\"note\">Pairs: how many pairs of a rule and a map differ in this way.</p>\n",
        legend,
        differences ? counted(differences, "difference") + ", with the shortest host of each as an example"
                    : "Who decides about the host",
        rows, left_out(shown, all, "difference", "the program's text and its <code>--json</code> list all of them"));
}

using marks = std::set<std::pair<long, long>>; // line and map

/// One proxy with what both sides say of it.
struct proxy_view {
    std::string name, verdict;
    marks before, after; // what the differences name
};

// The rules of one line or one map, at `first` up to `end`.
std::string rule_block(const std::vector<access_rule> &rules, size_t first, size_t end, bool is_marked) {
    const access_rule &rule = rules[first];
    std::string text = format("<li class=\"{}{}\"><b>{}</b><i>{}</i>", rule.permit ? "p" : "d", is_marked ? " x" : "",
                              rule.permit ? "P<span class=\"vh\">ermit</span>" : "D<span class=\"vh\">eny</span>",
                              rule.map ? rule.map : rule.line);
    for (size_t i = first; i < std::min(end, first + PATTERN_LIMIT); i++)
        text += " <code>" + html(rules[i].pattern, 60) + "</code>";
    if (end - first > PATTERN_LIMIT)
        text += format(" <span class=\"by\">and {} more</span>", end - first - PATTERN_LIMIT);
    return text + (is_marked ? " <span class=\"mark\">differs</span></li>\n" : "</li>\n");
}

std::string side_strip(const char *when, const std::vector<access_rule> &rules, const marks &marked) {
    std::string blocks;
    size_t shown = 0, all = 0;
    bool maps = !rules.empty() && rules[0].map != 0;
    for (size_t i = 0, end = 0; i < rules.size(); i = end) {
        while (end < rules.size() && rules[end].source == rules[i].source && rules[end].permit == rules[i].permit)
            end++;
        if (all++ < BLOCK_LIMIT) {
            blocks += rule_block(rules, i, end, marked.count({rules[i].line, rules[i].map}) != 0);
            shown++;
        }
    }
    return format("<p class=\"side\">{}: {}{}</p>\n<ol class=\"strip\">\n{}</ol>\n{}", when,
                  rules.empty() ? "nobody is let through" : counted(rules.size(), "pattern"),
                  rules.empty() ? "" : " in " + counted(all, maps ? "map" : "line"), blocks,
                  left_out(shown, all, maps ? "map" : "line", "they stand in the file"));
}

// Texts of files go into the data byte by byte, each as the character of its number, so that none is lost.
std::string widened(std::string_view bytes) {
    std::string text;
    for (char byte : bytes) {
        unsigned char value = static_cast<unsigned char>(byte);
        if (value >= 0x80) {
            text += static_cast<char>(0xC0 | value >> 6);
            text += static_cast<char>(0x80 | (value & 0x3F));
        } else {
            text += byte;
        }
    }
    return text;
}

/// The rules of all proxies as the page's script takes them: patterns, and runs of patterns that one line or map has:
/// [how many, P or D, the file's index, line, map].
struct asked_data {
    json files = json::array(), proxies = json::array(), missing = json::array();
    std::map<std::string, size_t> file_index;
    size_t rules = 0;

    json side(const access_side &owner, const std::vector<access_rule> &list) {
        json patterns = json::array(), runs = json::array();
        for (size_t i = 0, end = 0; i < list.size(); i = end) {
            while (end < list.size() && list[end].source == list[i].source && list[end].permit == list[i].permit)
                patterns.push_back(widened(list[end++].pattern));
            decision made = decision_of(owner, &list[i]);
            auto [file, fresh] = file_index.emplace(made.file, files.size());
            if (fresh)
                files.push_back(widened(made.file));
            runs.push_back({end - i, list[i].permit ? "P" : "D", file->second, made.line, made.map});
        }
        return json::array({patterns, runs});
    }

    void add(const std::string &proxy, const json &before, const json &after) {
        proxies.push_back(json::array({widened(proxy), before, after}));
    }

    // Neither a `<` nor a byte above 126 is left, so that nothing in it can end the element.
    std::string text() const {
        std::string plain = json{{"files", files}, {"proxies", proxies}, {"missing", missing}}.dump(-1, ' ', true);
        std::string safe;
        for (char byte : plain)
            safe += byte == '<' ? "\\u003C" : std::string(1, byte);
        return safe;
    }
};

// Every proxy that a side knows, those that differ first.
std::vector<proxy_view> list_proxies(const review_data &data, const access_side &before, const access_side &after) {
    std::vector<proxy_view> views;
    for (const std::string &name : before.proxies)
        views.push_back({name, "", {}, {}});
    for (const std::string &name : after.proxies)
        if (!before.knows(name))
            views.push_back({name, "", {}, {}});
    std::map<std::string, proxy_view *> by_name;
    for (proxy_view &view : views)
        by_name[view.name] = &view;
    for (const access_row &row : data.access)
        if (auto found = by_name.find(row.proxy); found != by_name.end())
            found->second->verdict = row.verdict;
    for (const finding &told : data.findings)
        if (auto found = by_name.find(told.proxy); told.has_sides && found != by_name.end()) {
            found->second->before.insert({told.before.line, told.before.map});
            found->second->after.insert({told.after.line, told.after.map});
        }
    std::stable_partition(views.begin(), views.end(), [](const proxy_view &view) { return view.verdict != "same"; });
    return views;
}

// `before_text` is empty where only one side is looked at.
std::string proxy_strips(const proxy_view &view, const std::string &before_text,
                         const std::vector<access_rule> &after) {
    bool is_same = view.verdict == "same";
    return format("<details class=\"f proxy{}\"{}><summary><span class=\"name\">{}</span> <span "
                  "class=\"state\">{}</span></summary>\n{}{}</details>\n",
                  is_same ? "" : " matters", is_same ? "" : " open", html(view.name),
                  view.verdict.empty() ? "not compared" : html(view.verdict), before_text,
                  side_strip(before_text.empty() ? "Now" : "After", after, view.after));
}

std::string host_box(const asked_data &asked) {
    std::string missing;
    if (!asked.missing.empty())
        missing =
            format("<p class=\"more\">{} with too many rules for this box are not in it: ask <code>moatwall-review "
                   "explain</code> about {}.</p>\n",
                   counted(asked.missing.size(), "proxy"), asked.missing.size() == 1 ? "it" : "them");
    return "<div class=\"ask\"><h3>One host</h3>\n"
           "<p class=\"scriptless note\">With a script-enabled browser there is a box here that tells for each proxy "
           "which rule and which map decide about a host; without, ask <code>moatwall-review explain</code>.</p>\n"
           "<div class=\"box\" hidden><label for=\"host\">Host, as rules write it</label>\n"
           "<input id=\"host\" type=\"search\" placeholder=\"10.1.7.13\" autocomplete=\"off\" spellcheck=\"false\" "
           "autocapitalize=\"off\" aria-describedby=\"host-hint\">\n"
           "<span id=\"host-hint\" class=\"note\">Which rule and which map decide about it, for each "
           "proxy.</span></div>\n"
           "<p id=\"answer\" class=\"answer\" role=\"status\"></p>\n"
           "<table id=\"decisions\" class=\"stack\" hidden><caption>Who decides about this host</caption>\n<thead><tr>"
           "<th scope=\"col\">Proxy</th><th scope=\"col\">Before</th><th scope=\"col\">After</th></tr></thead>"
           "<tbody></tbody></table>\n" +
           missing + "</div>\n";
}

} // namespace

bool is_access_finding(const finding &told) { return find_kind(told.id) != nullptr; }

bool is_difference(const finding &told) { return is_access_finding(told) && told.id != "explain" && told.id != "same"; }

bool compared_access(const review_data &data) {
    return !data.access.empty() || std::any_of(data.findings.begin(), data.findings.end(), is_access_finding);
}

std::string proxies_with(const review_data &data, const char *id) {
    std::vector<std::string> names;
    for (const finding &told : data.findings)
        if (told.id == id && std::find(names.begin(), names.end(), told.proxy) == names.end())
            names.push_back(told.proxy);
    if (names.empty())
        return "";
    std::string list;
    for (size_t i = 0; i < std::min<size_t>(names.size(), 5); i++)
        list += (i ? ", " : "") + html(names[i], 60);
    return format("{} ({}{})", counted(names.size(), "proxy"), list, names.size() > 5 ? ", &hellip;" : "");
}

std::string access_section(const review_data &data, const access_side &before, const access_side &after) {
    asked_data asked;
    std::string strips, same_strips;
    size_t same = 0;
    std::vector<proxy_view> views = list_proxies(data, before, after);
    for (size_t i = 0; i < views.size(); i++) {
        std::vector<access_rule> was = rules_of(before, views[i].name), is = rules_of(after, views[i].name);
        bool is_same = views[i].verdict == "same";
        same += is_same ? 1 : 0;
        if (i < PROXY_LIMIT)
            (is_same ? same_strips : strips) +=
                proxy_strips(views[i], before.files.empty() ? "" : side_strip("Before", was, views[i].before), is);
        if (asked.rules + was.size() + is.size() > ASKED_RULES_LIMIT) {
            asked.missing.push_back(widened(views[i].name));
            continue;
        }
        asked.rules += was.size() + is.size();
        asked.add(views[i].name, asked.side(before, was), asked.side(after, is));
    }
    std::string text =
        "<section aria-labelledby=\"h-access\"><h2 id=\"h-access\">Who gets through</h2>\n" + difference_table(data);
    if (views.empty())
        return text + "</section>\n";
    std::string same_text;
    if (same)
        same_text =
            format("<details class=\"fold\"><summary>{} with every host treated as before</summary>\n{}</details>\n",
                   counted(same, "proxy"), same_strips);
    return text + host_box(asked) +
           "<h3>Rules in order, proxy by proxy</h3>\n"
           "<p class=\"note\">The first that covers a host decides; a host that none covers is refused. <b "
           "class=\"key p\">P</b> permits, <b class=\"key d\">D</b> denies. The number is the line of a table's rule "
           "or "
           "the number of a map. Rules that the table above names are marked.</p>\n" +
           strips + same_text +
           left_out(std::min(views.size(), PROXY_LIMIT), views.size(), "proxy", "the box above knows them") +
           "<script type=\"application/json\" id=\"rules\">" + asked.text() + "</script>\n</section>\n";
}
