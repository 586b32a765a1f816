/// The program's commands, and their answer in words: the tables of names, the text, the data and the page.
#ifndef REVIEW_SAY_H
#define REVIEW_SAY_H

#include "access/access.h"
#include "read/files.h"
#include "review.h"

#include <functional>
#include <nlohmann/json_fwd.hpp>

using json = nlohmann::ordered_json;

/// How much a finding matters: all is not what it should be, somebody has to decide, it is a normal step to know of.
enum class grade { wrong, decide, know, none };

/// The names of findings, worst first, with what one and many of them are called in the verdict; ends with a null.
extern const struct finding_row {
    const char *id;
    grade weight;
    const char *one, *many;
} finding_names[];
/// The names of what is to be done, with the headings of the sheet; ends with a null.
extern const struct todo_row { const char *id, *heading; } todo_names[];
/// The row of a name, that of the null for one that is not in the table.
template <typename row_type> const row_type *find_row(const row_type *row, const std::string &id) {
    while (row->id && id != row->id)
        row++;
    return row;
}

/// The word of an enumeration's value.
template <typename enumeration> const char *word(enumeration value);

/// One question, what is to be shown, and all that the answer is made of.
struct review_session {
    std::vector<std::string> words;         ///< of the command
    std::vector<std::string> upgrade_words; ///< the upgrade's command line
    std::string table;                      ///< for `explain`; empty for none
    std::string proxy;                      ///< only this one is compared; empty for all
    std::function<void(const std::string &what)> progress = [](const std::string &) {}; ///< told of each step

    bool all = false;              ///< every line, kept ones too, and every origin; what follows from a cause, too
    bool lines = false;            ///< groups of lines, not counts alone
    bool quiet = false;            ///< the verdict alone
    bool as_json = false;          ///< all as data
    std::vector<std::string> only; ///< names of findings, and of what is to be done with `todo.` in front; or empty
    unsigned width = 0;            ///< of the terminal, 0 where lines are not wrapped
    std::string html;              ///< the page's file, empty for no page
    std::string title, subject;    ///< the page's heading; the subject of an upgrade is what it writes

    loaded_files files;
    std::unique_ptr<configuration> own; ///< what the upgrade writes, in a layout that a reader takes back
    access_side before, after;
    review_data data;
};

// The commands. They fill in `data`, but for a fleet.

/// An upgrade, before or after it was made. With a word, FILE:N, what would be another without that line.
void review_upgrade(review_session &session);
/// Why a host gets its answer from a configuration, and from a netperm table: CONF PROXY HOST.
void explain_host(review_session &session);
/// Two configurations by meaning, and who gets through: BEFORE AFTER.
void review_diff(review_session &session);
/// What hangs in the air in one configuration: CONF.
void review_check(review_session &session);

/// What goes to standard output, the page if there is to be one, and the exit status.
struct reply {
    int status;
    std::string text, page;
};
/// Says what `data` has.
reply report(review_session &session);
/// Sums up answers that `--json` wrote, one that can't be read as trouble, with links to the pages beside them.
reply sum_up_fleet(review_session &session);

/// The answer as data, but for its lines and their origins, with the exit status. Puts the findings in the order in
/// which they are told.
json answer_object(review_data &data);
/// The answer with all lines and origins, as text; and the page.
std::string report_json(const json &answer, const review_data &data);
std::string report_page(json answer, review_session &session);
/// One value as text; bytes that are no UTF-8 become the replacement character.
std::string dumped(const json &value, int indent);
/// The built-in page filled with the values, its heading, who made it, and when.
std::string render_page(json values, const review_session &session);
/// True if `only` can name it: a finding, `todo`, or a kind of what is to be done such as `todo.off`.
bool is_told_name(const std::string &name);
/// "1 rule", "3 rules"; "old.conf:12", or the file alone.
std::string counted(size_t number, const char *one, const char *many);
std::string place_text(const std::string &file, long line);
/// The text with all that is no character, or is not seen, as an escape.
std::string shown(std::string_view text);

/// Where a line went, such as "by init.conf:12: the same service", or what all of its group have in common.
std::string line_reason(const review_session &session, const line_fate &line, bool is_alone);
/// How many lines had which fate: "12 kept, 3 reshaped".
std::string fate_counts(const review_data &data);

#endif
