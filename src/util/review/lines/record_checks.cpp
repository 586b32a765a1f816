// Whether the records of inputs stand in the order and the place that several files leave them.
#include "frag_tools.h"
#include "lines/accounting.h"

#include <algorithm>
#include <cstring>

namespace {

void tell(accounting &all, const account_line &line, const char *what, const account_line &ahead) {
    finding *told =
        all.tell_some("unexplained", std::string(line.text) + ": it stands in the result, and yet " + what, line);
    if (told)
        told->by = {all.inputs[ahead.input].name, ahead.line};
}

// Of the lines of one key in several files that are merged but one has a place, and of a policy that is there nothing
// is merged.
void check_owners(accounting &all, result_places &result) {
    std::unordered_map<std::string, size_t> owners; // of keys in numbered records
    for (size_t i = 0; i < all.lines.size(); i++) {
        const account_line &line = all.lines[i];
        const account_input &input = all.inputs[line.input];
        bool is_own = line.place && line.said && line.said->node && result.notes(line.place).valued == i;
        if (!is_own || is_map_line(line) || input.imported)
            continue;
        // A `_` in its name hides a policy.
        const Frag *policy = begins(line.key, "policy_") ? at_depth(line.place, 1) : nullptr;
        size_t first = policy && !strstr(policy->name, "%5F") ? result.notes(policy).from : NO_LINE;
        const account_input *ahead =
            first == NO_LINE || !all.lines[first].said ? nullptr : &all.inputs[all.lines[first].input];
        if (ahead && ahead->step < input.step && ahead->last_step >= all.last_import)
            tell(all, line, "a file ahead has the policy", all.lines[first]);
        if (!is_numbered(line))
            continue;
        auto [owner, is_new] = owners.emplace(place_keys::path(line.said->node), i);
        if (!is_new && all.lines[owner->second].input != line.input)
            tell(all, line, "a file ahead says its key", all.lines[owner->second]);
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
        std::string text =
            std::string("record ") + clear_name(record) + " of " + family + " is of fields of two files: ";
        finding *told = all.tell_some("mixed", text.append(line.text).append(" and ").append(other.text), line);
        if (told)
            told->by = {all.inputs[other.input].name, other.line};
    }
}

using moved_records = std::unordered_map<const Frag *, const Frag *>; // what they are in what the upgrade writes

// The numbered records of inputs, but for those that another file or a table says, too.
moved_records records_of_inputs(const accounting &all, result_places &result) {
    moved_records moved;
    for (const account_line &line : all.lines)
        if (line.place && !line.candidate && line.other_key.empty() && is_numbered(line))
            for (size_t depth : {1, 2}) {
                const Frag *record = at_depth(line.said->node, depth), *now = at_depth(line.place, depth);
                size_t first = record && now ? result.notes(now).from : NO_LINE;
                if (first != NO_LINE && all.lines[first].input == line.input)
                    moved.emplace(record, now);
            }
    return moved;
}

// Whether they keep the order that they have in a file behind those up to `last`, which grows.
void check_order(accounting &all, const configuration &file, const char *family, const moved_records &moved,
                 const std::unordered_map<const Frag *, size_t> &order, size_t &last) {
    for (const Frag *record : file.children(family)) {
        auto found = moved.find(record);
        auto at = found == moved.end() ? order.end() : order.find(found->second);
        if (at != order.end() && at->second < last)
            all.tell_some("unexplained",
                          std::string("the records of ") + family + " stand in another order in the result", file.name,
                          file.line_of(record));
        last = at == order.end() ? last : std::max(last, at->second);
    }
}

} // namespace

void check_records(accounting &all, result_places &result) {
    check_owners(all, result);
    moved_records moved = records_of_inputs(all, result), installed;
    for (size_t i = 0; i < all.written.size() && &all.in.own != &all.in.result; i++)
        if (const conf_line &was = all.in.own.lines[i], *is = all.written[i].there; is && was.node)
            for (size_t depth : {1, 2})
                installed.emplace(at_depth(is->node, depth), at_depth(was.node, depth));
    for (const char *const *family = numbered_families; *family; family++) {
        check_mixed(all, result, *family);
        std::unordered_map<const Frag *, size_t> order;
        for (const Frag *record : result.conf.children(*family))
            if (is_digit(*record->name)) // others are not sorted
                order.emplace(record, order.size());
        size_t last = 0;
        for (const account_input &input : all.inputs) {
            last = std::string_view(*family) == "map" ? last : 0; // those of a later file come behind
            if (input.conf)
                check_order(all, *input.conf, *family, moved, order, last);
        }
        last = 0;
        check_order(all, all.in.result, *family, installed, order, last);
    }
}
