/// Merging: maps of different proxies, a further configuration, the network lists of an old one.
#ifndef MERGING_H
#define MERGING_H

#include "nsym.h"

/// Folds permit maps of different proxies with one source, and gives all maps their final numbers.
void merge_maps(FragList db);
/// 0 if a map from `list` on has the `tag_proxy` of `map`, else 1.
int proxies_not_in_maps(FragList db, Frag *map, Frag *list);

/// Merges a fragment file into `db`, which must be the current database. A key that `db` has keeps its value, and a map
/// of the file comes in only if no map that is there is the same. If `db` has maps, they and then the file's are
/// numbered anew from 1; else the file's keep their numbers. A file that can't be read is told on standard error.
void conf_merge(FragList db, const char *path);
/// 1 if no child of the `map` node `list` is the same as `map`.
int dont_have_map(FragList db, Frag *list, Frag *map);
/// 1 if the two maps are the same, 0 if not.
int same_map(FragList db, Frag *a, Frag *b);
/// 0 if the policies of these names both exist and list the same config sets. Leaves both lists sorted.
int not_same_policy(FragList db, const char *a, const char *b);
/// 1, whatever the sources are: only equal texts name the same source.
int not_same_netobj(FragList db, const char *a, const char *b);

/// Adds the words of URL-encoded text to the network list `name` as elements. The function may overwrite the text.
/// Always 0.
int xurl2netobj(FragList db, const char *name, char *text);

#endif
