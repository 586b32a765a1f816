/// What the files of the netperm translation share, and nobody else needs: rules as texts, and the indexes of a run.
#ifndef TRANSLATION_H
#define TRANSLATION_H

#include "name_index.h"
#include "text_hash.h"

#include <string>
#include <string_view>
#include <unordered_map>

/// A rule's text taken apart: behind leading blanks a marker that tells its class, the host word, and the tail, which
/// is what follows the host word and blanks.
struct rule_text {
    std::string_view marker;    ///< "%-permit%", "%-deny%" or empty
    std::string_view host;      ///< the host word, which ends at a blank, a tab or the text's end
    const char *tail;           ///< up to the text's end
    bool permit_prefix = false; ///< its attribute in the table has the prefix `permit-` alone; reading a text leaves it
};
constexpr char PERMIT_MARKER[] = "%-permit%";
constexpr char DENY_MARKER[] = "%-deny%";
/// Reads the text of a rule; a null value reads like an empty one.
rule_text read_rule(const Frag *rule);
/// Reads the text from its first byte on.
rule_text read_rule_text(const char *text);
/// The marker at the very start of `text`, or empty.
std::string_view rule_marker(const char *text);
/// `parse_arg` with the indexes of the config set's lists.
char *parse_arg(list_indexes &indexes, Frag *config_set, char *text);

/// What the translation of one proxy after another looks up, indexed once for a run over all of them. Without it a
/// table of many rules would cost a walk over all lists, policies and maps for each.
struct translation {
    FragList db;
    name_index proxies, policies, lists, groups;
    name_index maps; ///< those that were here before: the run's own numbers only grow
    /// The first list with these hosts, in lower case.
    std::unordered_map<std::string, Frag *, text_hash> lists_by_hosts;
    std::unordered_map<std::string, int, text_hash> taken_names; ///< by a numbered name, the number to go on with
    Frag *spent = nullptr; ///< translated rules, freed at the end: their holes would scatter what is made meanwhile

    explicit translation(FragList database);
    ~translation() { freelist(spent); }
    translation(const translation &) = delete;
    translation &operator=(const translation &) = delete;
    /// `find_netgroup` for the rules from `first` up to, but not with, `end`.
    Frag *find_netgroup(const rule_text *first, const rule_text *end, int seq, const char *base);
    /// `make_policy`, but `name` stays as it is, each `_` in it having become `-` before.
    std::string make_policy(const char *name, const char *base, int seq, const char *cs);
    void addmap(const char *policy, const char *pd, const char *proxy, const char *src, const char *tag_proxy,
                Frag *config_set);

private:
    std::string free_name(const name_index &names, std::string base, int seq, const char *suffix);
};
/// `untrans_hosts` with the indexes of a run over many proxies.
int untrans_hosts(translation &run, Frag *proxy);

#endif
