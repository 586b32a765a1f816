// The review as one JSON object.
#include "report_json.h"
#include "report_text.h"

#include <nlohmann/json.hpp>

using json = nlohmann::ordered_json;

namespace {

void put(json &object, const char *key, const std::string &text) {
    if (!text.empty())
        object[key] = text;
}

void put(json &object, const char *key, long number) {
    if (number)
        object[key] = number;
}

json side_object(const decision &side) {
    json object{{"decision", side.decision}};
    put(object, "map", side.map);
    put(object, "file", side.file);
    put(object, "line", side.line);
    put(object, "pattern", side.pattern);
    return object;
}

json finding_object(const finding &told) {
    json object{{"id", told.id}, {"text", told.has_sides ? finding_text(told) : told.text}};
    put(object, "proxy", told.proxy);
    put(object, "host", told.host);
    put(object, "count", told.count);
    put(object, "cause", told.cause);
    put(object, "file", told.file);
    put(object, "line", told.line);
    if (told.has_sides) {
        object["before"] = side_object(told.before);
        object["after"] = side_object(told.after);
    }
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

} // namespace

std::string report_json(const review_data &data) {
    json object{{"status", data.status}, {"verdict", verdict_sentence(data)}, {"release", data.release}};
    put(object, "release_reason", data.release_reason);
    object["written"] = data.written;
    object["command"] = data.command;
    for (const char *key : {"files", "findings", "access", "lines", "todo"})
        object[key] = json::array();
    for (const file_record &file : data.files)
        object["files"].push_back(
            {{"role", file.role}, {"name", file.name}, {"size", file.size}, {"sha256", file.sha256}});
    for (const finding &told : data.findings)
        object["findings"].push_back(finding_object(told));
    for (const access_row &row : data.access)
        object["access"].push_back({{"proxy", row.proxy},
                                    {"verdict", row.verdict},
                                    {"before_rules", row.before_rules},
                                    {"after_maps", row.after_maps}});
    for (const line_fate &line : data.lines)
        object["lines"].push_back(
            {{"file", line.file}, {"line", line.line}, {"fate", line.fate}, {"reason", line.reason}});
    for (const todo_item &item : data.todo)
        object["todo"].push_back(todo_object(item));
    return object.dump(2, ' ', false, json::error_handler_t::replace) + "\n";
}
