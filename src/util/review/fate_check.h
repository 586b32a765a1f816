/// Runs of the upgrade for the accounting of lines, and the test of what it claims.
#ifndef FATE_CHECK_H
#define FATE_CHECK_H

#include "review.h"
#include "upgrade_run.h"

#include <unordered_map>

/// Runs the upgrade with the words of the command, some of them replaced, in a process of its own, silently. Its result
/// goes to `output`. False if it did not come to its end with status 0.
bool run_quietly(const upgrade_command &command, std::vector<std::string> words, const memory_file &output);

/// The words that lead from the options up to and with that step to a result in the canonical layout; the release is
/// told from the same files as by the whole command.
std::vector<std::string> words_up_to(const upgrade_command &command, size_t step);

/// Blanks all lines that are said to be without effect, runs the upgrade and compares its result. Where it differs, the
/// lines that make the difference are found and get another fate, and so do those that could not be tried in time.
/// False if a run failed, so that nothing is known of some.
bool check_claims(const upgrade_command &command, const std::string &result_path,
                  const std::unordered_map<std::string, std::string> &texts, std::vector<line_fate> &lines);

#endif
