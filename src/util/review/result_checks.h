/// What in a configuration hangs in the air, was cut, or was left out when it was saved.
#ifndef RESULT_CHECKS_H
#define RESULT_CHECKS_H

#include "canonical_conf.h"
#include "review.h"

/// Appends findings `dangling`, `cut`, `left-out`, `twice` and `count` for a configuration of either layout; `name` is
/// what its findings call the file.
void check_result(canonical_conf &conf, const std::string &name, review_data &data);
/// Appends findings `dangling` and `count` for an input. What names something that another file may hold is told only
/// if the file stands alone, as an old configuration does.
void check_input(canonical_conf &conf, const std::string &name, bool stands_alone, review_data &data);
/// Appends what a numbered save left out of `canonical`, the same result in the canonical layout.
void check_left_out(canonical_conf &canonical, const std::string &name, review_data &data);
/// Appends the keys of an input that no save writes, since they are too long or too deep.
void check_unsaved_keys(const std::string &path, review_data &data);

#endif
