// The page: the answer's own data, cut to what a browser takes, with the lines and rules that it speaks of.
#include "say/say.h"

#include <algorithm>
#include <ctime>
#include <fmt/chrono.h>
#include <kainjow/mustache.hpp>
#include <map>
#include <nlohmann/json.hpp>

using fmt::format;
namespace mustache = kainjow::mustache;

namespace {

// What a browser still shows without a wait. What is beyond is told.
constexpr size_t TEXT_LIMIT = 4000; // bytes of one text
constexpr size_t ROW_LIMIT = 1000;  // rows of one list
constexpr size_t PRINT_LIMIT = 60;  // dropped lines of a file, or rules of a proxy, that are printed one by one

constexpr char unseen[] = "Not looked at.";

#include "page_template.h" // the page with its style and script, as the build put it together

// The value as the template takes it: null, false and an empty text or list are not there. Every text becomes escaped
// here, whichever tag of the template shows it: there is no raw form.
mustache::data data_of(const json &value) {
    if (value.is_array()) {
        mustache::list list;
        for (const json &each : value)
            list.push_back(data_of(each));
        return list;
    }
    if (value.is_object()) {
        mustache::object object;
        for (const auto &[key, each] : value.items())
            object.emplace(key, data_of(each));
        return object;
    }
    if (value.is_boolean() || value.is_null() || value == "")
        return value == true;
    std::string text = value.is_string() ? value.get<std::string>() : value.dump();
    std::string safe = mustache::html_escape(shown(std::string_view(text).substr(0, TEXT_LIMIT)));
    return text.size() > TEXT_LIMIT ? safe + format(" ... ({} bytes in all)", text.size()) : safe;
}

// The list with as many rows as the page takes, and what is said of all: their number, or why there is none.
json list_of(json list, json rows, const char *one, const char *many, const char *none) {
    list.update({{"count", rows.empty() ? "" : counted(rows.size(), one, many)}, {"none", rows.empty() ? none : ""}});
    if (rows.size() > ROW_LIMIT) {
        list["more"] = format("{} more, of which moatwall-review itself tells", rows.size() - ROW_LIMIT);
        rows.erase(rows.begin() + ROW_LIMIT, rows.end());
    }
    list["rows"] = std::move(rows);
    return list;
}

// Adds the rules of both sides in order to each proxy, and puts those first that are not the same.
json proxy_values(json proxies, const access_side &before, const access_side &after) {
    auto differs = [](const json &each) { return each["verdict"] != "same"; };
    std::stable_partition(proxies.begin(), proxies.end(), differs);
    for (json &each : proxies) {
        bool is_short = each.value("before_rules", PRINT_LIMIT) + each.value("after_maps", 0U) <= PRINT_LIMIT;
        each.update({{"differs", differs(each)}, {"prints", differs(each) && is_short}});
        for (const access_side *side : {&before, &after}) {
            json rules = json::array();
            for (const access_rule &rule : rules_of(*side, each["proxy"]))
                rules.push_back(rules.size() < ROW_LIMIT // those behind are counted
                                    ? json{{"class", rule.permit ? "permit" : "deny"},
                                           {"text", decision_text(decision_of(*side, rule))}}
                                    : json());
            if (side == &after || !side->proxies.empty())
                each["sides"].push_back(list_of({{"when", side == &after ? "Now" : "Before"}}, std::move(rules),
                                                "pattern", "patterns", "nobody is let through"));
        }
    }
    return proxies;
}

// Lines of one file that went or came one way, with the number of all and the places, texts and reasons of the first.
template <typename record, typename reason_type>
json group_values(const std::string &name, const std::string &file, std::string_view bytes,
                  const std::vector<const record *> &lines, reason_type reason_of) {
    std::vector<std::string_view> texts;
    while (!bytes.empty())
        texts.push_back(take_line(bytes));
    json rows = json::array();
    for (size_t i = 0; i < std::min(lines.size(), ROW_LIMIT); i++) {
        auto number = static_cast<size_t>(lines[i]->line);
        std::string text(number <= texts.size() ? texts[number - 1].substr(0, 400) : "");
        rows.push_back({{"at", place_text(file, lines[i]->line)}, {"text", text}, {"why", reason_of(lines[i])}});
    }
    return {{"name", name}, {"from", file}, {"count", counted(lines.size(), "line", "lines")}, {"rows", rows}};
}

// The lines of the inputs by what became of them, and those of the result by where they come from. What is dropped is
// printed, too, where it is not much.
json line_values(review_session &session) {
    const review_data &data = session.data;
    std::map<std::pair<int, uint32_t>, std::vector<const line_fate *>> fates; // the worst first
    for (const line_fate &line : data.lines)
        if (line.reason != said_twice) // these are counted
            fates[{-static_cast<int>(line.became), line.file}].push_back(&line);
    json groups = json::array();
    for (const auto &[key, lines] : fates) {
        fate became = lines[0]->became;
        bool is_alarm = became == fate::unexplained, is_short = lines.size() <= PRINT_LIMIT;
        const std::string &file = data.files[key.second].name;
        auto reason_of = [&](const line_fate *line) { return line_reason(session, *line, true); };
        groups.push_back(group_values(word(became), file, *session.files.bytes(file), lines, reason_of));
        groups.back()["opens"] = is_alarm;
        groups.back()["prints"] = is_alarm || (became == fate::without_effect && is_short);
    }
    std::map<origin, std::vector<const line_origin *>> origins;
    for (const line_origin &each : data.origins)
        origins[each.from].push_back(&each);
    for (const auto &[from, lines] : origins) {
        std::string name = format("from {}{}", from == origin::nowhere ? "" : "the ", word(from));
        auto place_of = [&data](const line_origin *line) {
            return line->from == origin::input ? place_text(data.files[line->file].name, line->input_line) : "";
        };
        groups.push_back(group_values(name, session.subject, session.after.conf->bytes, lines, place_of));
    }
    return groups;
}

// The findings by the part of the page that tells them.
void sort_findings(json &values, bool is_compared) {
    json followers, access, checks;
    for (json &told : values["findings"])
        if (told.contains("follows"))
            followers.push_back(told);
        else if (!told.contains("leads"))
            (told.contains("host") || told["id"] == "not-decided" || told["id"] == "turned" ? access : checks)
                .push_back(told);
    const char *same = !is_compared        ? unseen
                       : followers.empty() ? "No host is treated otherwise than before, at any proxy."
                                           : "What there is follows from the cause above.";
    values["followers"] = list_of({}, followers, "finding follows", "findings follow", "");
    values["parts"] = {
        list_of({{"part", "access"}, {"heading", "Who gets through"}}, access, "difference", "differences", same),
        list_of({{"part", "checks"}, {"heading", "Checks"}}, checks, "finding", "findings",
                "There is nothing else to look at.")};
    if (values["grade"] == word(grade::wrong))
        std::swap(values["parts"][0], values["parts"][1]);
}

} // namespace

std::string report_page(json values, review_session &session) {
    static const std::map<std::string, const char *> heads = {
        {"wrong", "Wrong: to be mended before anything is signed"},
        {"decide", "Decide before signing"},
        {"know", "Know before signing"},
        {"none", "Nothing to look at"}};
    bool in_trouble = values["status"] == 2;
    values["head"] = in_trouble ? "Wrong: not everything could be told" : heads.at(values["grade"]);
    for (const finding &told : session.data.findings)
        if (!told.host.empty() && session.data.access.empty())
            values["access"] = {{{"proxy", told.proxy}, {"verdict", "asked for"}}};
    sort_findings(values, !session.data.access.empty());
    const char *last = "";
    for (json &item : values["todo"]) {
        const char *heading = find_row(todo_names, item["id"])->heading;
        item["kind"] = heading == last ? "" : heading;
        last = heading;
    }
    values["sheet"] = list_of({}, std::move(values["todo"]), "thing", "things",
                              session.own ? "Nothing is to be decided or entered again." : unseen);
    values["proxies"] = proxy_values(std::move(values["access"]), session.before, session.after);
    values["fates"] = session.data.lines.empty() ? unseen : fate_counts(session.data);
    values["groups"] = line_values(session);
    return render_page(std::move(values), session);
}

std::string render_page(json values, const review_session &session) {
    std::string made = format("{:%Y-%m-%d %H:%M %Z}", fmt::localtime(time(nullptr)));
    values.update(
        {{"title", session.title}, {"subject", session.subject}, {"made", made}, {"version", REVIEW_VERSION}});
    mustache::mustache page(page_template);
    page.set_custom_escape([](const std::string &text) { return text; }); // by `data_of`
    return page.render(data_of(values));
}
