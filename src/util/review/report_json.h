/// The review as data.
#ifndef REPORT_JSON_H
#define REPORT_JSON_H

#include "review.h"

/// One JSON object. Bytes that are no UTF-8 become the replacement character.
std::string report_json(const review_data &data);

#endif
