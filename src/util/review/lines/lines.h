/// Every line of every input, and every line of the result, accounted for.
#ifndef REVIEW_LINES_H
#define REVIEW_LINES_H

#include "access/access.h"
#include "read/files.h"
#include "review.h"
#include "run/upgrade_run.h"

#include <functional>

/// What is known of the upgrade when its lines are looked at.
struct account_inputs {
    const upgrade_command &command;
    loaded_files &files;
    const configuration &result; ///< the file that is installed, or the same as `own`
    const configuration &own;    ///< what the upgrade writes, not as XML
    const access_side &before;   ///< who decided before
    const std::function<void(const std::string &)> &progress;
};

/// Fills `data.lines` with a record for each line of each input that says something, and `data.origins` with one for
/// each line of the result. Appends findings `turned`, `lost`, `unexplained` and `from-nowhere`. What is said to be
/// without effect or overridden was left out, all of it together, and the upgrade wrote the same bytes.
void account_lines(const account_inputs &inputs, review_data &data);

/// What would be another without one line of an input: runs the upgrade without it and fills `data.findings` with the
/// differences by meaning, both sides with their lines. `line` is as an editor counts.
void review_line(const upgrade_command &command, const std::string &path, long line, loaded_files &files,
                 review_data &data);

#endif
