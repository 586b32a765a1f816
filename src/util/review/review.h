/// What the parts of the review tell each other: the records of its answer. Words for them stand in `say/`.
#ifndef REVIEW_H
#define REVIEW_H

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

enum class ruling { refused, permit, deny };

/// Who decides about a host on one side, and how.
struct decision {
    ruling made = ruling::refused;
    std::string file;        ///< where the rule or the map stands; empty for none
    long line = 0;           ///< its line as an editor counts it, 0 for none
    std::optional<long> map; ///< the map's number
    std::string pattern;     ///< the host word or list element that covers the host
};

/// A place in a file. Line 0 stands for the whole file, an empty name for none.
struct place {
    std::string file;
    long line = 0;
};

/// Something to look at. `id` is one of `finding_names`.
struct finding {
    std::string id, text, advice;   ///< the advice where the name alone doesn't say what to do
    std::string proxy, host, cause; ///< empty where they say nothing
    place at, by, result;           ///< `by` is a second place: what overrode it, where its name stands again
    long count = 0;                 ///< how many such there are, if more than one is told by it
    bool leads = false;             ///< a cause: it is told first, and what follows from it is folded behind it
    bool follows = false;           ///< it comes of the cause that stands first among the findings
    decision before, after;         ///< of one that names a host
};

enum class verdict { same, different, not_decided };

/// What the comparison of one proxy came to.
struct access_row {
    std::string proxy;
    verdict found = verdict::same;
    size_t before_rules = 0, after_maps = 0;
};

enum class fate { kept, reshaped, overridden, without_effect, unexplained };
enum class proof { placed, run, not_tried };

/// The reason of a line that says what another says.
inline constexpr char said_twice[] = "the same said twice";

/// What became of one line of an input.
struct line_fate {
    uint32_t file = 0; ///< index in `files`
    long line = 0;
    fate became = fate::kept;
    proof how = proof::placed;
    std::string reason;
    long result_line = 0; ///< where it stands in the result, 0 for nowhere
    long by_line = 0;     ///< what overrode it, 0 for nothing
    uint32_t by_file = 0; ///< an index in `files`
};

enum class origin { input, release, layout, nowhere };

/// Where a line of the result comes from.
struct line_origin {
    long line = 0;
    origin from = origin::nowhere;
    uint32_t file = 0; ///< of an input, an index in `files`
    long input_line = 0;
};

/// Something that an administrator has to decide or enter again, with what is to be entered.
struct todo_item {
    std::string id, text, proxy;
    std::vector<std::pair<std::string, std::string>> fields;
};

enum class file_role { table, old_configuration, initial_environment, merged, environment, configuration, result };

/// A file that the answer speaks of.
struct file_record {
    file_role role = file_role::result;
    std::string name, sha256;
    long long size = -1; ///< -1 if it can't be read
};

enum class written { absent, same, different };

/// The whole of what the program says.
struct review_data {
    int release = 0;
    std::string release_reason; ///< which key told the release
    std::string host_name;      ///< of the firewall, as the old configuration has it
    written result = written::absent;
    std::vector<std::string> command; ///< the upgrade's words
    std::vector<file_record> files;
    std::vector<finding> findings;
    std::vector<access_row> access;
    std::vector<line_fate> lines;
    std::vector<line_origin> origins;
    std::vector<todo_item> todo;
};

/// Appends a finding and gives it back for more to be said.
finding &tell(review_data &data, const char *id, std::string text, std::string file = {}, long line = 0);
/// The number of the file in `data.files`, which takes it in if it is new.
uint32_t file_number(review_data &data, const std::string &name, file_role role);

#endif
