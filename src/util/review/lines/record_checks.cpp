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
    std::unordered_map<std::string, size_t> owners; // of keys in numbered records
    std::vector<bool> repeated(all.lines.size());   // by another line of the file, which can have the place
    for (const account_line &line : all.lines)
        if (line.by != NO_LINE && all.lines[line.by].input == line.input)
            repeated[line.by] = true;
    for (size_t i = 0; i < all.lines.size(); i++) {
        const account_line &line = all.lines[i];
        const account_input &input = all.inputs[line.input];
        bool is_own = line.place && line.said && line.said->node && result.notes(line.place).valued == i;
        if (!is_own || is_map_line(line) || input.imported || repeated[i])
            continue;
        auto tell_ahead = [&](const char *what, const account_line &ahead) {
            all.tell_some("unexplained",
                          format("{}: it stands in the result, and yet a file ahead {}", line.text, what), line,
                          all.place_of(ahead));
        };
        // A `_` in its name hides a policy.
        const Frag *policy = begins(line.key, "policy_") ? at_depth(line.place, 1) : nullptr;
        size_t first = policy && !strstr(policy->name, "%5F") ? result.notes(policy).from : NO_LINE;
        const account_input *ahead =
            first == NO_LINE || !all.lines[first].said ? nullptr : &all.inputs[all.lines[first].input];
        if (ahead && ahead->step < input.step && !ahead->removed)
            tell_ahead("has the policy", all.lines[first]);
        if (!is_numbered(line))
            continue;
        const account_line &owner = all.lines[owners.emplace(place_keys::path(line.said->node), i).first->second];
        if (owner.input != line.input)
            tell_ahead("says its key", owner);
    }
}

// Tells records whose fields are of several files, since these merge by number: as it stands nobody wrote the record.
void check_mixed(accounting &all, result_places &result, const char *family) {
    for (const Frag *record : result.conf.children(family)) {
        size_t first = NO_LINE, last = 0;
        for (const Frag *field = record->child; field; field = field->next)
            if (size_t of = result.notes(field).valued; of != NO_LINE && all.lines[of].said) {
                first = std::min(first, of);
                last = std::max(last, of);
            }
        if (first == NO_LINE || all.lines[first].input == all.lines[last].input)
            continue;
        const account_line &line = all.lines[first], &other = all.lines[last];
        all.tell_some("mixed",
                      format("record {} of {} is of fields of two files: {} and {}", clear_name(record), family,
                             line.text, other.text),
                      line, all.place_of(other));
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
            size_t first = at == order.end() ? NO_LINE : result.notes(at->first).from;
            if (first != NO_LINE && all.lines[first].input == line.input) // no other file or table says it
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
