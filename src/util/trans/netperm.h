/// The netperm translation: a table is read into one subtree per proxy, and its rules become the newer data model.
///
/// A pass takes a database, changes it in place and reports nothing but what is told here.
#ifndef NETPERM_H
#define NETPERM_H

#include "nsym.h"

/// Reads a netperm table and translates it in `cur_database`, as the old configuration's type asks. Exits with status
/// 1 if the table can't be opened.
void netperm_pass(const char *path, int config_type);
/// Reads a table from the stream to its end into one subtree per proxy below `def_proxy`. A read error ends it too,
/// and what it has of a line by then is dropped. Always 0.
int readnpt(FILE *stream, FragList db);
/// Files one rule under a proxy. `line` names it among the rules of its attribute. Always 0.
int add_rule(Frag *proxy, int line, const char *attribute, const char *text);
/// The attribute words that a line for all proxies, `*`, gives to the proxy `global` alone. A proxy that a later line
/// names for the first time begins with a copy of `global`. Ends with a null word.
struct global_word_rec {
    const char *word;
    bool inherited; ///< true if it is in the copy of `global` that a proxy begins with
};
extern const global_word_rec global_word_tab[];
/// The proxies that the pass removes once the table is read, with all their rules. Ends with a null.
extern const char *const del_netperm_proxies[];
/// Removes these proxies, where they exist, in the order of the table.
void remove_proxies(FragList db, const char *const *proxies);

// Rules.

/// Turns the `hosts` rules of a proxy into config sets, groups, policies and maps. 1 if it has none.
int untrans_hosts(FragList db, Frag *proxy);
/// A heap copy of `text`, owned by the caller.
char *makestring(const char *text);
/// 1 if the proxy has a use for authentication, and for the x settings.
int needsauth(const char *proxy);
int needsx(const char *proxy);
/// The bits of `proxy_attr_tab`. Who uses them:
/// NEEDS_AUTH: `clean_auth_etc`, on a proxy's own attributes, and `addparm`, on a template's.
/// NEEDS_X: the same two, for `xforwarder` and `xgateway`.
/// Nothing reads the other two, which came with the table; a new bit must not be one of them.
enum : int { NEEDS_AUTH = 1, NEEDS_X = 2, UNREAD_4 = 4, UNREAD_8 = 8 };
/// What a proxy needs. A proxy without a row needs all. Ends with a row whose name is null.
struct proxy_attr_rec {
    const char *proxy;
    int bits;
};
extern const proxy_attr_rec proxy_attr_tab[];
/// True if the proxy has one of the needs.
bool proxy_needs(const char *proxy, int bits);
/// 1 if the word at `pattern`, in which `*` stands for any bytes, matches the word at `subject`. A word ends at a
/// blank, a tab or the end of the string. A `*` that faces a `*` counts as an ordinary byte. Its very verdict is what
/// others build on: wildmatch.cpp names them.
int wildmatch(const char *pattern, const char *subject);
/// Makes a rule of its own below `hosts` of each host word from `text` on, with a number from `*counter` up, the marker
/// in front and the tail of `text` behind. `text` is cut up. The result is the tail, a heap string of the caller's.
char *burst_sub(Frag *hosts, int *counter, const char *marker, char *text);
/// Sets the word at `text` as a parameter of the config set; "-exec" takes all the rest. `text` is cut up. The result
/// is the place where the next word begins.
char *parse_arg(Frag *config_set, char *text);
/// Gives an attribute of a policy's template to the config set of that proxy, or frees it if the proxy has no use for
/// it. The attribute must be in no list.
void addparm(Frag *config_set, Frag *attribute, const char *proxy);
/// 1 if the value is no acceptable `xgateway` rule, which is told on standard error.
int bad_xgateway(Frag *attribute);

// Groups, policies and maps.

/// The network group of the hosts of the rules from `first` to `last`: that of an equal list, or else of a new list
/// that is named by `base` and the first free number from `seq` up. The database owns it.
Frag *find_netgroup(FragList db, Frag *first, Frag *last, int seq, const char *base);
/// Makes a policy for the config set `cs` of the proxy `base`. It is called `name`, in which each `_` becomes `-`; if
/// that is taken, `name` with the first free number from `seq` up; and if `name` is null, `base` with such a number.
/// The result is what it is called, a heap string of the caller's.
char *make_policy(FragList db, char *name, const char *base, int seq, const char *cs);
/// Records a map under the next number of the process. Always 0.
int addmap(FragList db, const char *policy, const char *pd, const char *proxy, const char *src, const char *tag_proxy,
           Frag *config_set);

// The table's other attributes.

/// Removes attributes that a proxy has no use for.
void clean_auth_etc(FragList db);
/// What `clean_auth_etc` removes from a proxy that lacks the need. Ends with a row whose attribute is null.
struct needed_attr_rec {
    const char *attribute;
    int need; ///< a bit of `proxy_attr_tab`
};
extern const needed_attr_rec needed_attr_tab[];
/// Removes the attributes `del_plug_attrs`, those that say where a proxy listens, from every proxy.
void conv_plugdata(FragList db);
/// Ends with a null.
extern const char *const del_plug_attrs[];
/// Turns `destination` rules into `dest` records.
void conv_dests(FragList db);
/// Makes `dest` records of the rule or of all rules below it.
void new_dest(FragList db, Frag *rule);

#endif
