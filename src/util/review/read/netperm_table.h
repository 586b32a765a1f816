/// A netperm table as the review reads it: rule by rule, with the line of each.
#ifndef REVIEW_NETPERM_TABLE_H
#define REVIEW_NETPERM_TABLE_H

#include "read/configuration.h"

#include <map>
#include <optional>

/// One rule. A physical line that is too long for one read gives several.
struct table_rule {
    long line = 0;                    ///< as an editor counts
    long unit = 0;                    ///< the number under which the upgrade files it: reads from 1, all counted
    std::vector<std::string> names{}; ///< in order, each `_` turned into `-`; a wildcard as written, `*` first
    std::string_view attribute{};     ///< without its prefix, up to a `=`, not escaped
    std::string_view word{};          ///< the attribute as written
    long bits = 0;                    ///< of its prefix
    std::string_view text{};          ///< what stands behind the attribute and one blank
};

struct netperm_table {
    std::string name; ///< of the file
    file_bytes file;
    std::string_view bytes = *file.held; ///< all of it; the rules' texts are views into it
    std::vector<table_rule> rules{};
    /// Lines that say something to a reader and nothing to the upgrade, and why, such as "no colon in this line".
    std::map<long, const char *> dropped{};
};

/// Reads the bytes as a table.
std::unique_ptr<netperm_table> read_netperm_table(std::string name, file_bytes bytes);
/// True for names of a table that are no proxy: templates of policies, `global` and `alerts`.
bool is_no_proxy(std::string_view name);
/// True for proxies of a table that the new release has no more: their rules are read, and then they are removed.
bool is_removed_proxy(std::string_view name);
/// True for these, and for proxies that the upgrade of a configuration of `release` removes whatever it came from.
bool is_dropped_proxy(std::string_view name, int release);

/// Takes the blanks and tabs in front off the text.
void skip_blank(std::string_view &text);
/// Takes the next word off the text, blanks in front of it passed over; empty at the end.
std::string_view take_word(std::string_view &text);
/// The hosts of a rule's text. The first word is one whatever it looks like.
struct rule_hosts {
    std::string_view marker; ///< "%-permit%", "%-deny%" or empty
    std::vector<std::string_view> hosts;
    std::string_view tail; ///< from the first option word on
};
rule_hosts split_hosts(std::string_view text);
/// The option words of a tail, but for those that name a policy, and for `-exec`, which takes all that follows.
struct rule_options {
    std::vector<std::string_view> words;
    std::string policy; ///< the name that the table gives the template of the last that is named; empty for none
    std::optional<std::string> exec;
};
rule_options split_options(std::string_view tail);

#endif
