/// The review as text: a line a finding, worst first.
#ifndef REPORT_TEXT_H
#define REPORT_TEXT_H

#include "review.h"

#include <functional>

struct text_options {
    bool all = false;   ///< lines that were kept, too
    bool quiet = false; ///< the verdict alone
};

/// Sorts the findings, worst first, those of one name in their order.
void sort_findings(review_data &data);
/// What a finding says, with its place in front.
std::string finding_text(const finding &told);
/// A finding as one line without its end. Bytes that a terminal would act on are shown as %XX.
std::string finding_line(const finding &told);
/// How many findings of each name there are, worst first, of those that `counts` takes: "2 doubts about files, 1 text
/// cut".
std::string finding_totals(const review_data &data, const std::function<bool(const finding &)> &counts);
/// A sentence for the whole: what a reader has to know if he reads nothing else.
std::string verdict_sentence(const review_data &data);
/// The whole text.
std::string report_text(const review_data &data, const text_options &options);

#endif
