/// The review as a page to look at, print and sign.
#ifndef PAGE_H
#define PAGE_H

#include "access.h"
#include "review.h"

/// One HTML file without any request to elsewhere. Whatever comes from a file is escaped; equal data give equal bytes.
std::string make_page(const review_data &data, const access_side &before, const access_side &after);

#endif
