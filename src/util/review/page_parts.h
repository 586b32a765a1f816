/// What the files of the page share.
#ifndef PAGE_PARTS_H
#define PAGE_PARTS_H

#include "access.h"
#include "review.h"

/// The two files that are built into the page.
extern const char *const page_style;
extern const char *const page_script;

/// Bytes of a file as text of an element: what is no character, or can't be seen, or turns the direction of writing
/// is shown as an escape such as `\xE9` or `\u{202E}`. Longer text is cut at `limit` bytes, and the cut is told.
std::string html(std::string_view bytes, size_t limit = std::string_view::npos);
/// The same between `<code>` and `</code>`, cut where a line of the page would be.
std::string code(std::string_view bytes);
/// A number with a comma between thousands.
std::string grouped(long long number);
/// "1 rule", "3 rules".
std::string counted(size_t number, const char *one);
/// Tells what a cap left out, and where it is to be had; empty if nothing was.
std::string left_out(size_t shown, size_t all, const char *one, const char *rest);
/// "old.conf:12", or less.
std::string place(const std::string &file, long line);
/// The same as text of an element that keeps the number in one piece.
std::string place_html(const std::string &file, long line);
/// The source expression that lets this text run under the page's own policy.
std::string policy_hash(std::string_view text);

/// True for findings that stand in the table of who gets through.
bool is_access_finding(const finding &told);
/// True for those of them that say that a host is treated otherwise, or may be.
bool is_difference(const finding &told);
/// What was looked at: trouble ends a review early, and a command of its own asks for less.
bool compared_access(const review_data &data);
bool followed_lines(const review_data &data);
/// How many proxies have a finding of that id, and which: "3 proxies (a, b, c)".
std::string proxies_with(const review_data &data, const char *id);

/// The sections of the page.
std::string access_section(const review_data &data, const access_side &before, const access_side &after);
std::string lines_section(const review_data &data);

#endif
