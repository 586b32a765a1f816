/// A fragment file line by line: which key each line assigns, as the store would read it.
#ifndef FRAGMENT_LINES_H
#define FRAGMENT_LINES_H

#include <string>
#include <vector>

/// One assignment. A line without `=` runs on into the next, so an assignment can begin lines before it ends.
struct assignment {
    std::string key; ///< stored names joined by `_`, without prefixes
    std::string value;
    long line = 0;     ///< where it begins, as an editor counts
    long end_line = 0; ///< where it ends
    long attr = 0;     ///< prefix bits of the last component
    bool section_form = false;
};

/// All assignments of a file in their order, read by the grammar of the store, both forms. False if it can't be opened;
/// a read error ends it like the end of the file.
bool read_assignments(const char *path, std::vector<assignment> &into);

#endif
