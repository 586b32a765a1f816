/// What the parts of the review know of each other: the records that they fill.
#ifndef REVIEW_H
#define REVIEW_H

#include <string>
#include <utility>
#include <vector>

/// Who decides about a host on one side, and how.
struct decision {
    std::string decision = "refused"; ///< "refused", "permit" or "deny"
    std::string file;                 ///< where the rule or the map stands, as named on the command line; may be empty
    long line = 0;                    ///< its line as an editor counts it, 0 for none
    long map = 0;                     ///< the map's number, 0 for a rule or none
    std::string pattern;              ///< the host word or list element that covers the host
};

/// Something to look at. `id` is the stable name that stands in brackets.
struct finding {
    std::string id, text;
    std::string proxy, host, cause; ///< empty where they say nothing
    std::string file;
    long line = 0, count = 0;
    bool has_sides = false; ///< `before` and `after` mean something
    decision before, after;
};

/// What the comparison of one proxy came to.
struct access_row {
    std::string proxy, verdict; ///< verdict: "same", "different" or "not decided"
    size_t before_rules = 0, after_maps = 0;
};

/// What became of one line of an input.
struct line_fate {
    std::string file;
    long line = 0;
    std::string fate; ///< "kept", "reshaped", "overridden", "without effect" or "unexplained"
    std::string reason;
    std::string text; ///< the line itself, without its end
};

/// Something that an administrator has to decide or enter again, with what is to be entered.
struct todo_item {
    std::string id, text, proxy;
    std::vector<std::pair<std::string, std::string>> fields;
};

/// An input or output of the upgrade.
struct file_record {
    std::string
        role; ///< "netperm table", "old configuration", "initial environment", "merged file", "environment", "result"
    std::string name, sha256;
    long long size = -1; ///< -1 if it can't be read
};

/// The whole of what the program says.
struct review_data {
    int status = 0; ///< 0 nothing to look at, 1 something, 2 trouble
    int release = 0;
    std::string release_reason;       ///< which key told the release
    std::string written = "absent";   ///< "same", "absent" or "different"
    std::vector<std::string> command; ///< the upgrade's words
    std::vector<file_record> files;
    std::vector<finding> findings;
    std::vector<access_row> access;
    std::vector<line_fate> lines;
    std::vector<todo_item> todo;
};

#endif
