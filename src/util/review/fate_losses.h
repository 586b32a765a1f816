/// Reasons for what the result lacks: what a table's pass takes, and what a layout has no place for.
#ifndef FATE_LOSSES_H
#define FATE_LOSSES_H

#include "fate_passes.h"
#include "name_index.h"

/// A fate with its reason; `open` where there is nothing to tell.
struct loss {
    fate what = fate::open;
    std::string reason;
};

/// True for keys that the passes behind the last option take or set, so that no earlier result shows them.
bool is_taken_late(const std::string &key);
/// What the pass of a netperm table did to a key of a file that was merged before it.
loss taken_by_table(const std::string &key, const std::string &table);
/// What a save at that version does to a value of the canonical result.
loss lost_on_saving(const std::string &key, FragList result, int version, list_indexes &indexes);
/// True if a save leaves the key out for its length.
bool is_too_deep(const std::string &key);
/// Why a key of the result has another value, `value`, than its line gave it.
std::string why_other_value(const std::string &key, std::string_view value);

#endif
