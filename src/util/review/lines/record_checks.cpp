// Whether the records of inputs stand in the order and the place that several files leave them.
#include "frag_tools.h"
#include "lines/accounting.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>

using fmt::format;

namespace {

// Of the lines of one key in several files that are merged but one has a place, and of a policy that is there nothing
// is merged.
void check_owners(accounting &all, result_places &result) {
    std::unordered_map<std::string, const account_line *> owners; // of keys in numbered records
    std::unordered_set<const account_line *> repeated; // by another line of the file, which can have the place
    for (const account_line &line : all.lines)
        if (line.by && line.by->input == line.input)
            repeated.insert(line.by);
    for (const account_line &line : all.lines) {
        const account_input &input = *line.input;
        bool is_own = line.place && line.said && line.said->node && result.notes(line.place).valued == &line;
        if (!is_own || is_map_line(line) || input.imported || repeated.count(&line) != 0)
            continue;
        auto tell_ahead = [&](const char *what, const account_line &ahead) {
            all.tell_of(line, "unexplained", format("it stands in the result, and yet a file ahead {}", what),
                        ahead.at());
        };
        // A `_` in its name hides a policy.
        const Frag *policy = begins(line.key, "policy_") ? at_depth(line.place, 1) : nullptr;
        const account_line *first = policy && !strstr(policy->name, "%5F") ? result.notes(policy).from : nullptr;
        const account_input *ahead = first && first->said ? first->input : nullptr;
        if (ahead && ahead->step < input.step && !ahead->removed)
            tell_ahead("has the policy", *first);
        if (!is_numbered(line))
            continue;
        const account_line &owner = *owners.emplace(place_keys::path(line.said->node), &line).first->second;
        if (owner.input != line.input)
            tell_ahead("says its key", owner);
    }
}

// Tells records whose fields are of several files, since these merge by number: as it stands nobody wrote the record.
void check_mixed(accounting &all, result_places &result, const char *family) {
    for (const Frag *record : result.conf.children(family)) {
        std::map<std::pair<const account_input *, long>, const account_line *> said; // by the input and the line there
        for (const Frag *field = record->child; field; field = field->next)
            if (const account_line *line = result.notes(field).valued; line && line->said)
                said.emplace(std::pair(line->input, line->line), line);
        if (said.empty() || said.begin()->first.first == said.rbegin()->first.first)
            continue;
        const account_line &line = *said.begin()->second, &other = *said.rbegin()->second;
        all.tell_some("mixed",
                      format("record {} of {} is of fields of two files: {} and {}", clear_name(record), family,
                             line.text, other.text),
                      line.at(), other.at());
    }
}

} // namespace

void check_records(accounting &all, result_places &result) {
    check_owners(all, result);
    std::unordered_map<const Frag *, size_t> order, moved; // of records, and where those of files stand in that order
    for (const char *const *family = numbered_families; *family; family++)
        for (const Frag *record : result.conf.children(*family))
            if (is_digit(*record->name)) // others are not sorted
                order.emplace(record, order.size());
    for (size_t depth : {1, 2}) {
        for (const account_line &line : all.lines) {
            bool is_record = !line.candidate && line.other_key.empty() && is_numbered(line);
            auto at = order.find(is_record ? at_depth(line.place, depth) : nullptr);
            const account_line *first = at == order.end() ? nullptr : result.notes(at->first).from;
            if (first && first->input == line.input) // no other file or table says it
                moved.emplace(at_depth(line.said->node, depth), at->second);
        }
        for (size_t i = 0; i < all.written.size() && &all.in.own != &all.in.result; i++) {
            const conf_line *installed = all.written[i].there;
            auto at = order.find(at_depth(all.in.own.lines[i].node, depth));
            if (installed && at != order.end())
                moved.emplace(at_depth(installed->node, depth), at->second);
        }
    }
    for (const char *const *family = numbered_families; *family; family++) {
        check_mixed(all, result, *family);
        size_t last = 0;
        auto check_order = [&](const configuration &file) { // behind those up to `last`
            for (const Frag *record : file.children(*family))
                if (auto at = moved.find(record); at != moved.end()) {
                    if (at->second < last)
                        all.tell_some("unexplained",
                                      format("the records of {} stand in another order in the result", *family),
                                      place{file.name, file.line_of(record)});
                    last = std::max(last, at->second);
                }
        };
        for (const account_input &input : all.inputs) {
            last = std::string_view(*family) == "map" ? last : 0; // those of a later file come behind
            if (input.conf)
                check_order(*input.conf);
        }
        last = 0;
        check_order(all.in.result);
    }
}
