// What one line of an input is good for: the upgrade without it.
#include "checks/checks.h"
#include "lines/accounting.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <tuple>

using fmt::format;

void review_line(const upgrade_command &command, const std::string &path, long line, loaded_files &files,
                 review_data &data) {
    bool is_table = false;
    std::string file = path;           // as the command names it
    const std::string *text = nullptr; // of an input
    for (const upgrade_step &step : command.steps)
        if (strchr("nme", step.letter) && (step.argument == path || same_file(step.argument, path))) {
            is_table = is_table || step.letter == 'n';
            file = step.argument;
            text = files.bytes(file);
        }
    if (!text || line > std::count(text->begin(), text->end(), '\n') + 1)
        return void(tell(data, "trouble",
                         file + (text ? " has no such line"
                                 : command.has_output && same_file(file, command.output)
                                     ? " is the result: --all says where its lines come from"
                                     : " is no input of this upgrade that can be read")));
    // All lines of an assignment go together.
    long first = line, last = line;
    if (!is_table)
        for (const conf_line &each : files.conf(file, conf_layout::as_written)->lines)
            if (each.line <= line && line <= each.end_line)
                std::tie(first, last) = std::pair(each.line, each.end_line);
    std::string_view rest = *text, said = take_line(rest);
    for (long at = 1; at < first; at++)
        said = take_line(rest);
    said = said.substr(0, said.find('\r'));
    if (said.find_first_not_of(" \t") == said.npos || (is_table && said[0] == '#'))
        return void(tell(data, "trouble", "this line says nothing", file, line));
    std::vector<bool> blank(static_cast<size_t>(first));
    blank.resize(static_cast<size_t>(last) + 1, true);
    upgrade_result with = run_upgrade(command, {}, true),
                   without = run_upgrade(command, {{file, blanked(*text, blank)}}, true);
    for (const auto &[run, when] : {std::pair(&with, ""), {&without, "without this line "}})
        if (!run->good())
            return void(tell(data, "trouble", format("{}the upgrade fails: {}", when, run->trouble)));
    if (with.output == without.output)
        return void(tell(data, "same",
                         format("{}: without it the result{} is the same, byte for byte", said,
                                command.version == 99 ? " in the canonical layout" : ""),
                         file, line));
    std::string name = command.has_output ? command.output : "standard output";
    auto before = read_configuration(name, std::move(with.output), conf_layout::translated);
    auto after = read_configuration("without it", std::move(without.output), conf_layout::translated);
    // What it is good for is first of all who gets through; groups and policies then have other names and numbers.
    tell(data, "explain", format("{}: before is with this line, now is without it", said), file, line).leads = true;
    size_t told = data.findings.size();
    access_side with_it, without_it;
    with_it.set_maps(*before);
    without_it.set_maps(*after);
    compare_access(with_it, without_it, {}, data);
    if (data.findings.size() == told)
        diff_configurations(*before, *after, data);
    if (data.findings.size() == told)
        tell(data, "same", format("{}: without it other lines stand there, but nothing that is found is another", said),
             file, line);
}
