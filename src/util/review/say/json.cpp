// The answer as one JSON object.
#include "say/say.h"

#include <fmt/format.h>
#include <nlohmann/json.hpp>

namespace {

template <typename value_type> void put(json &object, const char *key, const value_type &value) {
    if (value != value_type{})
        object[key] = value;
}

json place_object(const std::string &file, long line) {
    json object = json::object();
    put(object, "file", file);
    put(object, "line", line);
    return object;
}

json side_object(const decision &side) {
    json object{{"decision", word(side.made)}};
    if (side.map)
        object["map"] = *side.map;
    object.update(place_object(side.file, side.line));
    put(object, "pattern", side.pattern);
    return object;
}

json finding_object(const review_data &data, const finding &told) {
    json object{{"id", told.id}, {"grade", word(grade_of(data, told))}, {"text", finding_text(told)}};
    for (const auto &[key, value] : {std::make_pair("advice", &told.advice), std::make_pair("proxy", &told.proxy),
                                     std::make_pair("host", &told.host), std::make_pair("cause", &told.cause)})
        put(object, key, *value);
    put(object, "count", told.count);
    object.update(place_object(told.at.file, told.at.line));
    if (!told.by.file.empty())
        object["by"] = place_object(told.by.file, told.by.line);
    if (!told.result.file.empty())
        object["result"] = place_object(told.result.file, told.result.line);
    put(object, "leads", told.leads);
    put(object, "follows", told.follows);
    if (told.has_sides)
        object.update({{"before", side_object(told.before)}, {"after", side_object(told.after)}});
    return object;
}

json todo_object(const todo_item &item) {
    json object{{"id", item.id}, {"text", item.text}};
    put(object, "proxy", item.proxy);
    object["fields"] = json::array();
    for (const auto &[name, value] : item.fields)
        object["fields"].push_back({{"name", name}, {"value", value}});
    return object;
}

json line_object(const review_data &data, const line_fate &line) {
    json object = place_object(data.files[line.file].name, line.line);
    object.update({{"fate", word(line.became)}, {"reason", line.reason}, {"proof", word(line.how)}});
    put(object, "result_line", line.result_line);
    if (line.by_line)
        object["by"] = place_object(data.files[line.by_file].name, line.by_line);
    return object;
}

json origin_object(const review_data &data, const line_origin &each) {
    json object{{"line", each.line}, {"from", word(each.from)}};
    if (each.from == origin::input)
        object.update({{"file", data.files[each.file].name}, {"input_line", each.input_line}});
    return object;
}

} // namespace

json answer_object(const review_data &data) {
    json object{{"status", data.status}, {"grade", word(worst_grade(data))}, {"verdict", verdict_sentence(data)}};
    object.update({{"release", data.release}, {"written", word(data.result)}, {"command", data.command}});
    put(object, "release_reason", data.release_reason);
    put(object, "host_name", data.host_name);
    for (const char *key : {"files", "findings", "access", "todo"})
        object[key] = json::array();
    for (const file_record &file : data.files) {
        object["files"].push_back({{"role", word(file.role)}, {"name", file.name}});
        if (file.size >= 0)
            object["files"].back().update({{"size", file.size}, {"sha256", file.sha256}});
    }
    for (const finding &told : data.findings)
        object["findings"].push_back(finding_object(data, told));
    for (const access_row &row : data.access)
        object["access"].push_back({{"proxy", row.proxy},
                                    {"verdict", word(row.found)},
                                    {"before_rules", row.before_rules},
                                    {"after_maps", row.after_maps}});
    for (const todo_item &item : data.todo)
        object["todo"].push_back(todo_object(item));
    return object;
}

std::string dumped(const json &value, int indent) {
    return value.dump(indent, ' ', false, json::error_handler_t::replace);
}

std::string report_json(const review_data &data) {
    std::string text = dumped(answer_object(data), 1);
    text.resize(text.size() - 2); // its end follows behind the lines: there can be a million of them
    auto add_list = [&](const char *key, const auto &list, auto object_of) {
        text += fmt::format(",\n \"{}\": [", key);
        for (const auto &each : list)
            text += (&each == &list.front() ? "\n  " : ",\n  ") + dumped(object_of(data, each), -1);
        text += "]";
    };
    add_list("lines", data.lines, line_object);
    add_list("origins", data.origins, origin_object);
    return text + "\n}\n";
}
