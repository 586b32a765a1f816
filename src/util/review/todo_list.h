/// What an administrator has to decide or enter again after an upgrade.
#ifndef TODO_LIST_H
#define TODO_LIST_H

#include "canonical_conf.h"
#include "review.h"
#include "upgrade_command.h"

#include <set>

/// Fills data.todo. `result` is what was upgraded, in the canonical layout; `table_proxies` are the proxies that the
/// netperm tables permit something, for a configuration from before 4.0.
void list_todo(const upgrade_command &command, canonical_conf &result, const std::set<std::string> &table_proxies,
               review_data &data);

#endif
