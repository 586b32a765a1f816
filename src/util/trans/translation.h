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
    bool permit_prefix = false; ///< its line in the table says `permit-`, which its text does not show
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
char *take_word(list_indexes &indexes, Frag *config_set, char *text);

/// What the policies' templates of a table give to config sets. Each rule that names a policy takes what it can of the
/// template, which may hold thousands of attributes that none can take, such as the hosts of lines for all proxies. So
/// each template is gone through once.
struct policy_templates {
    policy_templates() = default;
    ~policy_templates();
    policy_templates(const policy_templates &) = delete;
    policy_templates &operator=(const policy_templates &) = delete;
    /// Hands a copy of each attribute of the template to `addparm`, for the config set of that proxy.
    void apply(Frag *model, Frag *config_set, Frag *proxy);

private:
    std::unordered_map<Frag *, Frag *> usable; ///< by the template, its attributes without what no config set takes
};

/// What the translation of one proxy after another looks up, indexed once for a run over all of them. Without it a
/// table of many rules would cost a walk over all lists, policies and maps for each.
struct translation {
    FragList db;
    name_index proxies, policies, lists, groups;
    name_index maps; ///< those that were here before; the run's own have numbers that only grow
    std::unordered_map<std::string, Frag *, text_hash>
        lists_by_hosts;                                          ///< the first list with these hosts, in lower case
    std::unordered_map<std::string, int, text_hash> taken_names; ///< for a taken name, the number to try next
    policy_templates templates;
    /// Translated rules. They are freed at the end: records that are made meanwhile would be put into the memory that
    /// each gives back, all over the heap, and the passes that go through them next would wait for it.
    Frag *spent = nullptr;

    explicit translation(FragList database);
    ~translation() { freelist(spent); }
    translation(const translation &) = delete;
    translation &operator=(const translation &) = delete;
    /// `find_netgroup` for the rules from `first` up to, but not with, `end`.
    Frag *group_of(const rule_text *first, const rule_text *end, int seq, const char *base);
    /// `make_policy` for a `name` in which the caller has made each `_` a `-`.
    std::string new_policy(const char *name, const char *base, int seq, const char *cs);
    /// `addmap` with the indexes of this run.
    void record_map(const char *policy, const char *pd, const char *proxy, const char *src, const char *tag_proxy,
                    Frag *config_set);

private:
    std::string free_name(const name_index &names, std::string base, int seq, const char *suffix);
};
/// `untrans_hosts` with the indexes of a run over many proxies.
int translate_hosts(translation &run, Frag *proxy);

#endif
