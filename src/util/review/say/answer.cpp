// The answer as data: what findings, fates and things to do are called, how much they matter, and what they come to
// together.
#include "say/say.h"

#include <algorithm>
#include <fmt/format.h>
#include <fmt/ranges.h>
#include <map>
#include <nlohmann/json.hpp>

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
    {"mixed", grade::decide, "record of two files", "records of two files"},
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
    {"lost-value", "Values lost to the new release"},
    {"policy", "Policies to enter again"},
    {"proxy", "Proxies to enter again"},
    {"maps", "Maps to enter again"},
    {nullptr, "Other things"},
};

// The word of the value among all of its enumeration.
template <typename enumeration> static const char *pick(std::initializer_list<const char *> words, enumeration value) {
    return words.begin()[static_cast<size_t>(value)];
}

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

namespace {

// What a finding says, without its place and its advice.
std::string finding_text(const finding &told) {
    std::string text = told.text;
    if (!told.host.empty())
        text = format("{} {}: {}", told.proxy, told.host, text);
    else if (!told.proxy.empty() && text.find(told.proxy) == std::string::npos)
        text = format("{}: {}", told.proxy, text);
    for (const auto &[what, at] : {std::pair("also", told.by), std::pair("in the result", told.result)}) {
        std::string where = place_text(at.file, at.line);
        if (!where.empty() && text.find(where) == std::string::npos)
            text += format("; {} {}", what, where);
    }
    if (told.count > 1)
        text += format(told.host.empty() ? " ({} in all)" : "; {} pairs of rule and map", told.count);
    return told.cause.empty() ? text : text + "; cause: " + told.cause;
}

// Adds fields, each a key with its value, but for those that say nothing: an empty text, a zero, null as data.
template <typename value_type, typename... more_fields>
void put(json &object, const char *key, const value_type &value, const more_fields &...more) {
    if (value != value_type{})
        object[key] = value;
    if constexpr (sizeof...(more) > 0)
        put(object, more...);
}

// An object of such fields, null if it has none.
template <typename... fields> json object_of(const fields &...keys_and_values) {
    json object;
    put(object, keys_and_values...);
    return object;
}

json side_object(const decision &side) {
    return object_of("decision", word(side.made), "map", side.map ? json(*side.map) : json(), "file", side.file, "line",
                     side.line, "pattern", side.pattern);
}

json finding_object(const finding &told, grade weight) {
    json object = object_of("id", told.id, "grade", word(weight), "text", finding_text(told), "advice", told.advice);
    put(object, "proxy", told.proxy, "host", told.host, "cause", told.cause, "count", told.count);
    put(object, "file", told.at.file, "line", told.at.line);
    put(object, "by", object_of("file", told.by.file, "line", told.by.line));
    put(object, "result", object_of("file", told.result.file, "line", told.result.line));
    put(object, "leads", told.leads, "follows", told.follows);
    if (!told.host.empty())
        put(object, "before", side_object(told.before), "after", side_object(told.after));
    return object;
}

json todo_object(const todo_item &item) {
    json fields = json::array();
    for (const auto &[name, value] : item.fields)
        fields.push_back({{"name", name}, {"value", value}});
    return object_of("id", item.id, "text", item.text, "proxy", item.proxy, "fields", fields);
}

json line_object(const review_data &data, const line_fate &line) {
    json by = line.by_line ? object_of("file", data.files[line.by_file].name, "line", line.by_line) : json();
    return object_of("file", data.files[line.file].name, "line", line.line, "fate", word(line.became), "reason",
                     json(line.reason), "proof", word(line.how), "result_line", line.result_line, "by", by);
}

json origin_object(const review_data &data, const line_origin &each) {
    json object = object_of("line", each.line, "from", word(each.from));
    if (each.from == origin::input)
        put(object, "file", data.files[each.file].name, "input_line", each.input_line);
    return object;
}

} // namespace

finding &tell(review_data &data, const char *id, std::string text, std::string file, long line) {
    finding &told = data.findings.emplace_back();
    told.id = id;
    told.text = std::move(text);
    told.at = {std::move(file), line};
    return told;
}

uint32_t file_number(review_data &data, const std::string &name, file_role role) {
    auto is_it = [&](const file_record &file) { return file.name == name; };
    auto found = std::find_if(data.files.begin(), data.files.end(), is_it);
    if (found == data.files.end())
        found = data.files.insert(found, {role, name, "", -1});
    return static_cast<uint32_t>(found - data.files.begin());
}

std::string counted(size_t number, const char *one, const char *many) {
    return format("{} {}", number, number == 1 ? one : many);
}

std::string place_text(const std::string &file, long line) { return line ? format("{}:{}", file, line) : file; }

json answer_object(review_data &data) {
    auto key = [](const finding &told) {
        return std::make_tuple(!told.leads, told.follows, find_row(finding_names, told.id),
                               told.id == "file" && told.at.line != 0);
    };
    std::stable_sort(data.findings.begin(), data.findings.end(),
                     [key](const finding &a, const finding &b) { return key(a) < key(b); });
    bool in_trouble = false;
    json files = json::array(), findings = files, access = files, todo = files;
    std::map<std::pair<grade, const finding_row *>, size_t> counts; // the worst first
    for (const finding &told : data.findings) {
        bool is_preview = told.id == "not-written" && data.result == written::absent;
        const finding_row *row = find_row(finding_names, told.id);
        grade weight = is_preview ? grade::know : row->weight;
        in_trouble = in_trouble || told.id == "trouble" || told.id == "not-decided";
        findings.push_back(finding_object(told, weight));
        counts[{weight, row}]++;
    }
    for (const file_record &file : data.files)
        files.push_back(object_of("role", word(file.role), "name", file.name, "size",
                                  file.size < 0 ? json() : json(file.size), "sha256", file.sha256));
    for (const access_row &row : data.access)
        access.push_back(object_of("proxy", row.proxy, "verdict", word(row.found), "before_rules",
                                   json(row.before_rules), "after_maps", json(row.after_maps)));
    for (const todo_item &item : data.todo)
        todo.push_back(todo_object(item));
    std::map<grade, std::vector<std::string>> totals; // in words
    for (const auto &[name, count] : counts)
        if (name.first != grade::none)
            totals[name.first].push_back(counted(count, name.second->one, name.second->many));
    if (!data.todo.empty())
        totals[grade::decide].push_back(counted(data.todo.size(), "thing to do", "things to do"));
    grade worst = totals.empty() ? grade::none : totals.begin()->first;
    json object{{"status", in_trouble ? 2 : worst != grade::none}, {"grade", word(worst)}};
    const char *heads[] = {in_trouble ? "Trouble" : "Wrong", "To decide", "To know"};
    std::string verdict = totals.empty() ? "Nothing to look at. " : "";
    for (const auto &[weight, parts] : totals)
        verdict += format("{}: {}. ", heads[static_cast<size_t>(weight)], fmt::join(parts, ", "));
    bool is_whole = !data.command.empty() && data.result == written::same;
    verdict = is_whole ? verdict + "The result is written, whole." : verdict.substr(0, verdict.size() - 1);
    put(object, "verdict", verdict, "release", json(data.release), "written", word(data.result));
    put(object, "command", json(data.command), "release_reason", data.release_reason, "host_name", data.host_name);
    put(object, "files", files, "findings", findings, "access", access, "todo", todo);
    return object;
}

std::string dumped(const json &value, int indent) {
    return value.dump(indent, ' ', false, json::error_handler_t::replace);
}

std::string report_json(const json &answer, const review_data &data) {
    std::string text = dumped(answer, 1);
    text.resize(text.size() - 2); // its end follows behind the lines: there can be a million of them
    auto add_list = [&](const char *key, const auto &list, auto object_for) {
        text += format(",\n \"{}\": [", key);
        for (const auto &each : list)
            text += (&each == &list.front() ? "\n  " : ",\n  ") + dumped(object_for(data, each), -1);
        text += "]";
    };
    add_list("lines", data.lines, line_object);
    add_list("origins", data.origins, origin_object);
    return text + "\n}\n";
}

bool is_told_name(const std::string &name) {
    bool is_kind = name.compare(0, 5, "todo.") == 0 && find_row(todo_names, name.substr(5))->id;
    return is_kind || name == "todo" || find_row(finding_names, name)->id;
}
