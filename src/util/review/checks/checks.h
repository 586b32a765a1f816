/// Checks of the words, of each input and of the result, the comparison of two configurations, and what is left to do.
#ifndef REVIEW_CHECKS_H
#define REVIEW_CHECKS_H

#include "access/access.h"
#include "read/files.h"
#include "review.h"
#include "run/upgrade_run.h"

#include <fmt/format.h>
#include <map>
#include <set>

// Words and inputs.

/// Takes note of the command's files in `data.files`, with their sizes and sums, and tells what in their bytes and in
/// tables reads otherwise than it looks. False if one can't be read.
bool check_files(const upgrade_command &command, loaded_files &files, review_data &data);
/// The same for one file.
bool check_configuration(const std::string &path, file_role role, loaded_files &files, review_data &data);
/// Finds the release that wrote the old configuration, and its host name.
void detect_release(const upgrade_command &command, loaded_files &files, review_data &data);
/// Mistakes on the command line, and configurations that seem to be of another site or release, or to have changed
/// places.
void check_command(const upgrade_command &command, loaded_files &files, review_data &data);
/// Lines of a table that mean something else than they look like. Its hosts and names are compared with the command's
/// old configuration and initial environment, if there are any.
void check_table(const netperm_table &table, const upgrade_command &command, loaded_files &files, review_data &data);

/// Tells findings of one name, with what to do about each; `leads` those that much else comes of.
struct adviser {
    review_data &data;
    const char *id;
    bool leads = false;
    template <typename... types>
    finding &operator()(const place &at, std::string advice, fmt::format_string<types...> text,
                        types &&...values) const {
        finding &told = tell(data, id, fmt::format(text, std::forward<types>(values)...), at.file, at.line);
        told.advice = std::move(advice);
        told.leads = leads;
        return told;
    }
};
/// `configuration::value` by its short name.
inline std::string value_of(const Frag *frag, const char *key = "") { return configuration::value(frag, key); }
/// The pattern of the network that an address such as 10.1.0.0 or 10.1 looks like; empty for all other words.
std::string network_pattern(std::string_view word);
/// The release that a value of `version_firewall` stands for, such as 41.
int release_of(std::string version);
/// The proxies that a configuration switches on, or off, by themselves or as a service of 4.1; none without one.
std::set<std::string> switched(const configuration *conf, bool on);

// Configurations.

/// What in a configuration hangs in the air, counts wrong, stands twice, or has no place in the saved form. `is_input`
/// leaves out what is only wrong in a result; `stands_alone` says that its names must lead somewhere in it. What stands
/// twice is told with the origins that `data` has.
void check_conf(const configuration &conf, bool is_input, bool stands_alone, review_data &data);
/// Keys that an input says twice, otherwise, as it is read: by -m the first of them is found, by -e the last. Those of
/// lists count only with `has_lists`: an old configuration's are taken ahead of its merge.
void check_input_doubles(const configuration &conf, bool has_lists, review_data &data);
/// Tells what the configuration, in the canonical layout, says and the XML of that name does not.
void check_xml(std::string_view xml, const configuration &own, const std::string &name, review_data &data);
/// Appends a finding `setting` or `map` for all that one has and the other has not, or says otherwise: every field. A
/// numbered record is compared as a whole.
void diff_configurations(const configuration &before, const configuration &after, review_data &data);

// What is left to do.

/// Fills `data.todo`, by the findings `wider` among the rest. `result` is the result in whatever layout, `before` who
/// decided before.
void list_todo(const upgrade_command &command, loaded_files &files, const configuration &result,
               const access_side &before, review_data &data);

#endif
