/// What in a netperm table is read otherwise than it looks.
#ifndef TABLE_CHECKS_H
#define TABLE_CHECKS_H

#include "review.h"

#include <string_view>

/// Appends `file` findings for the lines of the table's text.
void check_table(const std::string &name, std::string_view text, review_data &data);

#endif
