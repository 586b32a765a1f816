/// Every line of every input accounted for.
#ifndef LINE_FATES_H
#define LINE_FATES_H

#include "review.h"
#include "upgrade_command.h"

/// What the upgrade made of the command, as far as the accounting looks at it.
struct account_inputs {
    std::string result_path;    ///< the bytes of its result
    std::string canonical_path; ///< the same result in the canonical layout
};

/// Fills `data.lines` with a record for each line of each input that says something: blank lines and a table's comments
/// have none. Appends a finding `unexplained` for each line that no reason explains. Runs the upgrade again without
/// the lines that are said to be without effect, and says so of none that changes the result. Without a result,
/// nothing.
void account_lines(const upgrade_command &command, const account_inputs &inputs, review_data &data);

/// Lines of one fate and reason.
struct fate_group {
    std::string file, fate, reason;
    std::vector<const line_fate *> lines;
};
/// How many lines have each fate, in the order kept, reshaped, overridden, without effect, unexplained, and all that
/// are not kept, grouped by file and reason in the order of their first lines. The groups point into `data`.
struct fate_summary {
    std::vector<std::pair<std::string, size_t>> totals;
    std::vector<fate_group> groups;
};
fate_summary summarize_lines(const review_data &data);

#endif
