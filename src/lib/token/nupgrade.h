/// The two layouts of a database and the passes between them, the 4.1 upgrade, and library facilities.
///
/// In the canonical layout proxies, policies, lists and groups are named nodes; in the numbered layout, the one on
/// disk, they are counted lists whose entries hold their names as values. All passes work in place and report
/// nothing: what they don't find they pass over. Each returns 0 unless told otherwise.
#ifndef NUPGRADE_H
#define NUPGRADE_H

#include "nsym.h"

// From numbered to canonical.

/// Brings a database read from an environment file into the canonical layout.
int norm_fragtree(FragList db);
/// Names the proxies of `def_proxy` and turns their numbered parameters into children.
int canon_def(FragList db);
/// Moves the config sets of `cust_proxy` below the proxies that own them, making those that are missing.
int canon_cust(FragList db);
/// Turns the numbered parameters of `entry`, kept in its child `list_key`, into children of the entry. Their count
/// goes, and the node `interior_key` if that leaves it with neither value nor children; each key may be null.
int canon_parm(Frag *entry, const char *list_key, const char *count_key, const char *interior_key);
/// Names the entries of a family, "netobj_list" or "netobj_group", and removes their counts.
int canon_netobj(FragList db, const char *family);
/// Folds the interfaces' alias lists into the location lists, which exist afterwards.
int canon_interfaces(FragList db);
/// The same for the location list of that key. Any key will do; aliases are looked for below `netobj_list`.
int canon_if(FragList db, const char *location);
/// Names the policies of `family`, their proxy entries and their parameters.
int canon_policy(FragList db, const char *family);
/// Splits the filter rules of both rule lists into fields.
int canon_pfrules(FragList db);
/// The same for the rule list of that key.
int canon_pfrule_sub(FragList db, const char *list_key);
/// Turns the flat address keys below `ip` into elements of the location lists.
int canon_ip(FragList db);

/// One interface's keys below `ip`, each of which becomes a field of an element of the location list `elements`.
struct ip_var_rec {
    const char *address;   ///< becomes `addr`
    const char *mask;      ///< becomes `netmask`
    const char *broadcast; ///< becomes `broadcast`
    const char *interface; ///< becomes `interface`
    const char *flags;     ///< becomes `interfaceflags`
    const char *elements;  ///< key of the list's elements
    const char *label;     ///< the interface's side in words
};
/// The keys of the three interfaces; ends with a row of nulls.
extern const ip_var_rec ip_var_tab[];

/// The ten fields of a filter rule in the order of its text; ends with a null.
extern const char *const pfkeynames[];

// From canonical to numbered.

/// Brings a canonical database into the numbered layout; nothing that expects the canonical one can run after it.
int norm41(FragList db);
/// Writes names into the entries of a family from `entry` (may be null) on, numbers them, and counts their sublists.
/// The result is the number that a further entry would get.
int norm_netobj(Frag *entry, const char *sublist_key, const char *count_key);
/// Sorts and renumbers the list of that key. `delete_key` (may be null) is removed first; the count goes to
/// `count_key` (may be null), also when there is no list.
int norm_renumber(FragList db, const char *list_key, const char *count_key, const char *delete_key);
/// Renumbers the filter rules of the list and joins each one's fields into its value.
int norm_pfrules(FragList db, const char *list_key, const char *count_key);
/// Renumbers the entries of the list whose names begin with a digit, with four digits.
int norm_vpndata(FragList db, const char *list_key);
/// Turns the parameters of an entry into the numbered list `list_key`: those of its child of that name, or else all
/// its children. Their count goes to `count_key`.
int norm_parm(Frag *entry, const char *list_key, const char *count_key);
/// Writes the permit and deny bits of `frag` as prefixes into the value of `name`, once each and in that order;
/// such prefixes that the value has already are added to the bits.
void flags_to_name(Frag *frag, Frag *name);
/// Takes the aliases out of the location lists and rebuilds the list of all interfaces.
int norm_interfaces(FragList db);
/// Takes the aliases out of the location list of that key and enters the rest into the list of all interfaces. Any key
/// will do; both go below `netobj_list`, which exists afterwards.
int norm_if(FragList db, const char *location);
/// Enters a copy of an element of a location list into the list of all interfaces, in place of an entry for the same
/// interface, which is freed. 1 if it has no interface and was not entered.
int add_to_allif(FragList db, Frag *element);
/// 1 if an element of that list has exactly that interface; 0 if not, or if either name is null.
int is_in_list(FragList db, const char *list_name, const char *interface);

// The 4.1 release.

/// One row of a service table; an empty cell is an empty string. A table ends with a row of nulls.
struct maprec {
    const char *proxy;   ///< name of the proxy
    const char *service; ///< name of the service below the 4.1 node `proxy`
    const char *type;    ///< for the proxy's `proxy-type`
    const char *port;    ///< for its `bind-port`
    const char *exec;    ///< for its `proxy-exec`
};
extern const maprec map_unix[], map_nt[];

/// An OS name and its service table. The table of them ends with a row of nulls.
struct os2maprec_row {
    const char *os;
    const maprec *table;
};
extern const os2maprec_row os2maprec[];

/// The service table that `OS_Type` asks for, `map_unix` where it names no platform.
const maprec *determine_os_maprec(FragList db);
/// The first row whose cell in that column equals `text`, or null.
const maprec *find_maprec(const maprec *table, const char *maprec::*column, const char *text);
/// On the NT platform, carries the proxies' states back to the services of the node `proxy`, which exists
/// afterwards. 1 if there is no `def_proxy`.
int norm41states(FragList db);
/// Brings the canonical data of a 4.1 environment forward. 1 if there is no `def_proxy`.
int up41(FragList db);

// Library facilities on a canonical database.

/// A function that is handed each element (null for a name that is no list), the object's name and the caller's
/// `arg`. A result other than 0 ends the walk.
using enum_callback = int (*)(Frag *element, const char *name, void *arg);

/// Walks the elements of a map source, "$$NETOBJ." and a group's name, or of the list of that name. 0 when the walk
/// ran to its end, 1 when there was nothing to walk, else the callback's result. A name that is no list is handed to
/// the callback as it is, with no element.
int enum_netobj(FragList db, const char *name, enum_callback callback, void *arg);
/// Walks the members of a group, and of the groups in it. A group that is being walked, which a child `tag` marks until
/// its end, is passed over, so that a ring ends; one that stands in two groups is walked in both. The callback gets the
/// name of each list; `name` is not looked at.
int enum_netgroup(FragList db, Frag *group, const char *name, enum_callback callback, void *arg);
/// Walks the elements of the list, or of the list called `name` if it is null.
int enum_netlist(FragList db, Frag *list, const char *name, enum_callback callback, void *arg);
/// 1 if a value of `authenticate` turns authentication on.
int is_authon(const char *value);
/// Chooses the program of the proxy `http-px` by whether authentication is in use for it. 1 if there is no such
/// proxy.
int do_http_hack(FragList db);

#endif
