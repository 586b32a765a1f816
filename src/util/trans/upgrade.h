/// The upgrade driver, the netperm translation and the merging of configurations.
///
/// A pass takes a database, changes it in place and reports nothing but what is told here.
#ifndef UPGRADE_H
#define UPGRADE_H

#include "nsym.h"

// The driver.

/// The report stream, null when there is none.
extern FILE *repf;
/// The whole run of the program, with main()'s arguments. The result is its exit status; a usage error and a netperm
/// table that can't be opened exit with status 1.
int upgrade(int argc, char **argv);
/// Prints the usage line on standard error and exits with status 1.
[[noreturn]] void usage(const char *program);
/// The release that wrote the configuration, as two digits; 0 if its version key has no value. 32 if it has no
/// `def_proxy`, 40 if it has no version key.
int old_config_type(FragList conf);

// The last passes before saving.

/// Turns the global login setting into the states of three proxies.
void pre_save_cleanup(FragList db);
/// Takes over from the new initial environment `init` what must come from there. Always 0.
int copy_50_stuff(FragList db, FragList init);
/// Applies the changes of release 5.5 and stamps the database. Always 0.
int do_55_upgrades(FragList db);

// Merging.

/// Merges a fragment file into `db`, which is the current database: what is there wins, maps that are there already
/// stay out, and all maps are renumbered. A file that can't be read is told on standard error.
void conf_merge(FragList db, const char *path);
/// 1 if no child of the `map` node `list` is the same as `map`.
int dont_have_map(FragList db, Frag *list, Frag *map);
/// 1 if the two maps are the same, 0 if not.
int same_map(FragList db, Frag *a, Frag *b);
/// 0 if the policies of these names both exist and list the same config sets. Leaves both lists sorted.
int not_same_policy(FragList db, const char *a, const char *b);
/// 1 for any two sources.
int not_same_netobj(FragList db, const char *a, const char *b);
/// Makes of URL-encoded text, which it overwrites, elements of the network list `name`. Always 0.
int xurl2netobj(FragList db, const char *name, char *text);

// The netperm pass.

/// Reads a netperm table and translates it in `cur_database`, as the old configuration's type asks. Exits with status
/// 1 if the table can't be opened.
void netperm_pass(const char *path, int config_type);
/// Reads a table from the stream to its end into one subtree per proxy below `def_proxy`. Always 0.
int readnpt(FILE *stream, FragList db);
/// Files one rule under a proxy. `line` names it among the rules of its attribute. Always 0.
int add_rule(Frag *proxy, int line, const char *attribute, const char *text);

/// Turns the `hosts` rules of a proxy into config sets, groups, policies and maps. 1 if it has none.
int untrans_hosts(FragList db, Frag *proxy);

/// A heap copy of `text`, owned by the caller.
char *makestring(const char *text);
/// 1 if the proxy has a use for authentication, and for the x settings.
int needsauth(const char *proxy);
int needsx(const char *proxy);
/// 1 if the word at `pattern`, in which `*` stands for any bytes, matches the word at `subject`. A word ends at a
/// blank, a tab or the end of the string. A `*` that faces a `*` counts as an ordinary byte.
int wildmatch(const char *pattern, const char *subject);
/// Makes of each host word from `text` on a rule of its own below `hosts`, numbered by `*counter`, with the marker in
/// front and the rule's tail behind it. `text` is cut up. The result is the tail, a heap string of the caller's.
char *burst_sub(Frag *hosts, int *counter, const char *marker, char *text);
/// Sets the word at `text` as a parameter of the config set; "-exec" takes all the rest. `text` is cut up. The result
/// is the place where the next word begins.
char *parse_arg(Frag *config_set, char *text);
/// The same, with the indexes of the config set's lists.
char *parse_arg(list_indexes &indexes, Frag *config_set, char *text);
/// Takes over an attribute of a policy template, which is in no list any more, into the config set of that proxy, or
/// frees it if the proxy has no use for it.
void addparm(Frag *config_set, Frag *attribute, const char *proxy);
/// 1 if the value is no acceptable `xgateway` rule, which is told on standard error.
int bad_xgateway(Frag *attribute);

/// The network group of the hosts of the rules from `first` to `last`: that of an equal list, or else of a new list
/// that is named by `base` and the first free number from `seq` up. The database owns it.
Frag *find_netgroup(FragList db, Frag *first, Frag *last, int seq, const char *base);
/// Makes a policy called `name`, or if that is null or taken by `name` or else `base` and the first free number from
/// `seq` up, for the config set `cs`. The result is its name, a heap string of the caller's.
char *make_policy(FragList db, char *name, const char *base, int seq, const char *cs);
/// Records a map under the next number of the process. Always 0.
int addmap(FragList db, const char *policy, const char *pd, const char *proxy, const char *src, const char *tag_proxy,
           Frag *config_set);

/// Removes attributes that a proxy has no use for.
void clean_auth_etc(FragList db);
/// Removes the `port` attributes.
void conv_plugdata(FragList db);
/// Turns `destination` rules into `dest` records.
void conv_dests(FragList db);
/// Makes `dest` records of the rule or of all rules below it.
void new_dest(FragList db, Frag *rule);

/// Folds permit maps of different proxies with one source, and gives all maps their final numbers.
void merge_maps(FragList db);
/// 0 if a map from `list` on has the `tag_proxy` of `map`, else 1.
int proxies_not_in_maps(FragList db, Frag *map, Frag *list);

// Rules of a netperm table, shared by the files of the translation.

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
/// The length of the word at `text`.
size_t word_len(const char *text);

/// What the translation of one table after another proxy looks up, indexed once for a run over all proxies. Without
/// it a table of many rules would cost a walk over all lists, policies and maps for each.
struct translation {
    FragList db;
    name_index proxies, policies, lists, groups, maps;
    std::unordered_map<std::string, Frag *> lists_by_hosts; ///< the first list with these hosts, in lower case
    std::unordered_map<std::string, int> taken_names;       ///< by a numbered name, the number to go on with
    Frag *spent = nullptr; ///< translated rules, freed at the end: their holes would scatter what is made meanwhile

    explicit translation(FragList database);
    ~translation() { freelist(spent); }
    translation(const translation &) = delete;
    translation &operator=(const translation &) = delete;
    /// `find_netgroup` for the rules from `first` up to, but not with, `end`.
    Frag *find_netgroup(const rule_text *first, const rule_text *end, int seq, const char *base);
    std::string make_policy(const char *name, const char *base, int seq, const char *cs);
    void addmap(const char *policy, const char *pd, const char *proxy, const char *src, const char *tag_proxy,
                Frag *config_set);

private:
    std::string free_name(const name_index &names, std::string base, int seq, const char *suffix);
};
/// `untrans_hosts` with the indexes of a run over many proxies.
int untrans_hosts(translation &run, Frag *proxy);

#endif
