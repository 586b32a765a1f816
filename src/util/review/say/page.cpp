// What the page shows: the answer's own data, cut to what a browser takes, and the lines and rules that it speaks of.
#include "say/say.h"

#include <algorithm>
#include <fmt/format.h>
#include <map>
#include <nlohmann/json.hpp>

using fmt::format;

namespace {

// What a browser still shows without a wait. What is beyond is told.
constexpr size_t ROW_LIMIT = 1000;    // rows of one list
constexpr size_t RULE_LIMIT = 10'000; // patterns of all proxies
constexpr size_t PRINT_LIMIT = 60;    // dropped lines that are printed one by one

// As many rows as the page takes, with what is said of the whole: their number, or why there is none.
json list_of(json rows, const char *one, const char *many, const char *none) {
    json list{{"count", rows.empty() ? "" : counted(rows.size(), one, many)}, {"none", rows.empty() ? none : ""}};
    if (rows.size() > ROW_LIMIT) {
        list["more"] = format("{} more: the program's text and data have all", rows.size() - ROW_LIMIT);
        rows.erase(rows.begin() + ROW_LIMIT, rows.end());
    }
    list["rows"] = std::move(rows);
    return list;
}

// Adds to each proxy the rules of both sides, in order, and puts those first that are not the same.
json proxy_values(json proxies, const access_side &before, const access_side &after) {
    size_t room = RULE_LIMIT;
    auto side_values = [&](const char *when, const access_side &side, const std::string &proxy) {
        json texts = json::array();
        std::vector<access_rule> rules = rules_of(side, proxy);
        bool fits = rules.size() <= room;
        rules.resize(fits ? rules.size() : 0);
        for (const access_rule &rule : rules) {
            std::string text = decision_text(decision_of(side, &rule));
            texts.push_back({{"class", rule.permit ? "permit" : "deny"}, {"text", std::move(text)}});
        }
        room -= texts.size();
        std::string count = !fits           ? "too many for a page, ask moatwall-review explain"
                            : texts.empty() ? "nobody is let through"
                                            : counted(texts.size(), "pattern", "patterns");
        return json{{"when", when}, {"count", count}, {"rules", std::move(texts)}};
    };
    auto is_same = [](const json &each) { return each["verdict"] == "same"; };
    std::stable_sort(proxies.begin(), proxies.end(),
                     [&](const json &a, const json &b) { return is_same(a) < is_same(b); });
    for (json &each : proxies) {
        const std::string name = each["proxy"];
        each.update({{"differs", !is_same(each)}, {"sides", json::array()}});
        if (!before.proxies.empty())
            each["sides"].push_back(side_values("Before", before, name));
        each["sides"].push_back(side_values("Now", after, name));
    }
    return proxies;
}

// The lines of the inputs by what became of them, and those of the result that come from no input. What is dropped is
// printed, too, where it is not much.
json line_values(review_session &session) {
    const review_data &data = session.data;
    std::map<std::string, std::vector<std::string_view>> known;
    auto row_of = [&](const std::string &name, bool is_result, long line, std::string why) {
        auto [at, is_new] = known.try_emplace(is_result ? "" : name);
        std::string_view bytes;
        if (is_new && is_result)
            bytes = session.result->bytes;
        else if (const std::string *input = is_new ? session.files.bytes(name) : nullptr)
            bytes = *input;
        for (size_t i = 0; i < bytes.size(); i += at->second.back().size() + 1)
            at->second.push_back(bytes.substr(i, bytes.find('\n', i) - i));
        std::string text(at->second.size() < static_cast<size_t>(line) ? ""
                                                                       : at->second[static_cast<size_t>(line) - 1]);
        return json{{"at", place_text(name, line)}, {"text", text.substr(0, 400)}, {"why", std::move(why)}};
    };
    std::map<std::pair<fate, uint32_t>, size_t> counts;
    for (const line_fate &line : data.lines)
        counts[{line.became, line.file}]++;
    json groups = json::array();
    for (const line_group &group : group_lines(data)) {
        fate became = group[0]->became;
        const std::string &file = data.files[group[0]->file].name;
        if (groups.empty() || groups.back()["name"] != word(became) || groups.back()["from"] != file) {
            size_t count = counts[{became, group[0]->file}];
            bool is_alarm = became == fate::unexplained,
                 is_short = became == fate::without_effect && count <= PRINT_LIMIT;
            groups.push_back({{"name", word(became)}, {"from", file}, {"count", counted(count, "line", "lines")}});
            groups.back().update({{"opens", is_alarm}, {"prints", is_alarm || is_short}, {"rows", json::array()}});
        }
        for (const line_fate *line : group)
            if (json &rows = groups.back()["rows"]; rows.size() < ROW_LIMIT)
                rows.push_back(row_of(file, false, line->line, line_reason(data, {line})));
    }
    std::map<origin, std::pair<size_t, json>> made;
    for (const line_origin &each : data.origins)
        if (each.from != origin::input && made[each.from].first++ < ROW_LIMIT)
            made[each.from].second.push_back(row_of(result_name(data), true, each.line, ""));
    for (auto &[from, list] : made)
        if (list.first)
            groups.push_back({{"name", format("from {}", from == origin::nowhere ? "" : "the ") + word(from)},
                              {"from", result_name(data)},
                              {"rows", std::move(list.second)},
                              {"count", counted(list.first, "line", "lines")}});
    return groups;
}

} // namespace

std::string report_page(review_session &session, const say_options &options) {
    const review_data &data = session.data;
    json values = answer_object(data), causes = json::array(), followers = causes, access = causes, checks = causes;
    bool is_compared = !data.access.empty();
    for (json &told : values["findings"]) {
        bool is_access = told.contains("host") || told["id"] == "not-decided";
        if (told.contains("before") && data.access.empty())
            values["access"] = json::array({{{"proxy", told["proxy"]}, {"verdict", "asked for"}}});
        is_compared = is_compared || is_access;
        json &list = told.contains("leads")     ? causes
                     : told.contains("follows") ? followers
                     : is_access                ? access
                                                : checks;
        list.push_back(std::move(told));
    }
    const char *unseen = "Not looked at.", *folded = "What there is follows from the cause above.";
    const char *same = followers.empty() ? "No host is treated otherwise than before, at any proxy." : folded;
    values["parts"] = {list_of(std::move(access), "difference", "differences", is_compared ? same : unseen),
                       list_of(std::move(checks), "finding", "findings", "There is nothing else to look at.")};
    values["parts"][0].update({{"part", "access"}, {"heading", "Who gets through"}});
    values["parts"][1].update({{"part", "checks"}, {"heading", "Checks"}});
    values["followers"] = list_of(std::move(followers), "finding follows", "findings follow", "");
    for (json &item : values["todo"]) {
        bool is_next = &item != &values["todo"][0] && (&item)[-1]["id"] == item["id"];
        item["kind"] = is_next ? "" : find_row(todo_names, item["id"])->heading;
    }
    values["sheet"] = list_of(std::move(values["todo"]), "thing", "things",
                              session.result ? "Nothing is to be decided or entered again." : unseen);
    static const char *const heads[] = {"Wrong: to be mended before anything is signed", "Decide before signing",
                                        "Know before signing", "Nothing to look at"};
    const char *head = data.status == 2 ? "Wrong: not everything could be told" : "";
    values["head"] = *head ? head : heads[static_cast<size_t>(worst_grade(data))];
    values.update({{"title", options.title}, {"subject", options.subject}, {"causes", std::move(causes)}});
    values["proxies"] = proxy_values(std::move(values["access"]), session.before, session.after);
    values["fates"] = data.lines.empty() ? unseen : fate_counts(data);
    values["groups"] = line_values(session);
    return render_page(std::move(values));
}
