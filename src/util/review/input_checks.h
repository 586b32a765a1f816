/// What can be said of the command line and of each input without running anything.
#ifndef INPUT_CHECKS_H
#define INPUT_CHECKS_H

#include "review.h"
#include "upgrade_command.h"

/// Appends a finding without sides and gives it back. `line` is 0 for none.
finding &tell(review_data &data, const char *id, std::string text, const std::string &file = "", long line = 0);
/// Appends `command-line` findings: words that do something else than they seem to.
void check_command(const upgrade_command &command, review_data &data);
/// Records every file of the command with its size and digest and appends `file` findings. False if an input can't be
/// read at all, or is of a kind that can't be read twice.
bool check_files(const upgrade_command &command, review_data &data);
/// Works out the release from the old configuration as the upgrade does, and by which key.
void detect_release(const upgrade_command &command, review_data &data);
/// What check_files() tells of one configuration, for the commands that take single files. False likewise.
bool check_configuration(const std::string &path, const char *role, review_data &data);

#endif
