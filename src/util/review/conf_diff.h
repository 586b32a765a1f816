/// Two configurations by meaning, in whatever layout each is.
#ifndef CONF_DIFF_H
#define CONF_DIFF_H

#include "canonical_conf.h"
#include "review.h"

/// Appends a `setting` finding for each key that one side has alone or with another value, and `map` findings for the
/// maps. Changes both trees: their lists are numbered anew.
void diff_configurations(canonical_conf &before, canonical_conf &after, const std::string &before_name,
                         const std::string &after_name, review_data &data);

#endif
