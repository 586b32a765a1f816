/// The fragment store: trees of named fragments, their names and key paths, their files and their order.
///
/// A configuration is a tree of `Frag` nodes. A key path such as "def_proxy_tn-px" names a node: its components are
/// joined by `_`, and each is one level of the tree. A sibling list is singly linked and is handled through the
/// address of the pointer that heads it, a `FragList`: a database global, some node's `child` field or a local.
/// A whole database is one `FragList`. New siblings always go to the head, so a list stands in reverse order of
/// creation until `sort_frags` or a pass that rebuilds it says otherwise.
///
/// A list owns its nodes and a node owns its name and value. `fdel` hands a node to the caller, `freefrag` frees one
/// with all below it. Node, name and value are each a block of the C heap by itself. So whoever holds a node may free
/// its name or value, grow it with realloc(), swap it with another node's or put a block of his own in its place, and
/// may make nodes with calloc() and names with strdup(). Two things must hold: a node in a list has a name, and a value
/// has its terminator at `value[vlen]`. Where the store runs out of memory, the process ends in `outofcore`.
#ifndef NSYM_H
#define NSYM_H

#include <cstddef>
#include <cstdio>
#include <string>
#include <string_view>

/// Attribute bits. A file and a rendered name show one at most, as a prefix; deny goes before permit, absorb, onlyon.
enum : long { ATTR_PERMIT = 1, ATTR_DENY = 2, ATTR_ABSORB = 4, ATTR_ONLYON = 8 };

/// One node. Only the store's own functions and passes that relink lists write the links.
struct Frag {
    Frag *next;   ///< next sibling, null at the end
    Frag *child;  ///< first child, null for a leaf
    Frag *parent; ///< owning node; null at the top level and on nodes made through a bare child list
    char *name;   ///< stored name: `_` as %5F and `%` as %25 where `renamefrag` wrote it; no attribute prefix
    char *value;  ///< null (interior node, never written to a file) or a terminated string; null and empty differ
    long vlen;    ///< bytes in `value` without its terminator, 0 while it is null; the store's blocks hold `vlen` + 2
    long attr;    ///< attribute bits
};
static_assert(sizeof(Frag) == 7 * sizeof(void *), "a node is seven machine words");

using FragList = Frag **;

/// The databases. `oldconf` and `initconf` are read for inspection: after `upgrade()` they hold those nodes of the
/// first two `-m` files that it looked at ahead of merging them, and no others; the network objects were moved out of
/// `oldconf`.
extern Frag *def_database, *oldconf, *initconf, *nptdatabase;
/// The list that the run works on. The functions that use it point it at `def_database` first if it is null.
extern FragList cur_database;

// Memory. Each of these ends the process through `outofcore` instead of failing.

/// Prints "Outofcore()\n" on standard error and exits with status 1.
[[noreturn]] void outofcore();
/// A fresh block of `size` bytes, to be released with free().
void *getcore(size_t size);
/// `block` (may be null) at its new size, as realloc() moves it.
void *growcore(void *block, size_t size);
/// A fresh heap copy of `text`.
char *makestr(const char *text);
/// A fresh heap copy of exactly `len` bytes of `text`, with a terminator behind them.
char *makestr_len(const char *text, size_t len);

// Nodes and keys. A key is read up to `=` or its end; any component may be empty. Matching is exact, on stored names.

/// A new unlinked node named by exactly `len` bytes of `name`; all else is 0 or null.
Frag *newsymfrag(const char *name, size_t len);
/// Frees the node (may be null), its name and value if it has any, and its subtree, at any depth. Its siblings stay, so
/// unlink it first.
void freefrag(Frag *frag);
/// Frees the node and every sibling behind it.
void freelist(Frag *first);
/// The node that `key` leads to, or null. Only the first node of each component's name is followed.
Frag *ffind(FragList list, const char *key);
/// `ffind` of `key2` below the node that `key1` leads to, or null.
Frag *ffind2(FragList list, const char *key1, const char *key2);
/// Finds or makes the node of `key` and gives it a copy of `value`; null takes its value away. New nodes go to the
/// head of their lists; one made directly in `list` gets `parent`. `value` must not be the node's own value.
Frag *fsetp(FragList list, const char *key, const char *value, Frag *parent);
/// `fsetp` with no parent.
Frag *fset(FragList list, const char *key, const char *value);
/// `fset` below the node that `*frag` holds, linking the new node (or else its first child) to it as parent.
Frag *fset_list(Frag **frag, const char *key, const char *value);
/// Unlinks the node of `key` and hands it over with its subtree; its `parent` is null and its `next` stays as it was.
/// Null, and nothing changed, if the key leads nowhere.
Frag *fdel(FragList list, const char *key);
/// The value of the node of `key`, not a copy; null if there is no node or it has none.
char *fval(FragList list, const char *key);
/// A deep copy of the whole list in the same order, the copies' parent being `parent`; null for an empty list.
Frag *copy_fragtree(FragList list, Frag *parent);
/// `ffind` and `fset` on `cur_database`.
Frag *symffind(const char *key);
Frag *symfset(const char *key, const char *value);

// Names. The results of `fragname` and `fragkeyname` live in static buffers until the next call.

constexpr size_t KEYNAME_SIZE = 1024;
constexpr size_t FRAGNAME_SIZE = 64;
extern char keynamebuf[KEYNAME_SIZE]; ///< result of `fragkeyname`; the writer builds its keys here too
extern int keynamelen;                ///< length of the key in it

/// Renames the node to the stored form of `name`: each `_` becomes %5F and each `%` becomes %25. The old name, if there
/// is one, is freed.
void renamefrag(Frag *frag, const char *name);
/// `renamefrag` to the text of the number.
void renumberfrag(Frag *frag, int number);
/// The stored form of a clear name.
std::string storedname(std::string_view name);
/// The node's name (may be null) as text, prefix in front, escapes decoded; at most 63 stored bytes of it.
char *fragname(Frag *frag);
/// `fragname` into the caller's buffer of `size` bytes; with a size of 0 or less the caller vouches for the room.
char *copy_fragname_len(Frag *frag, char *buffer, int size);
/// `copy_fragname_len` with no limit.
char *copy_fragname(Frag *frag, char *buffer);
/// The node's full key as a file shows it, each component with its prefix. Null gives an empty string. A component
/// that would bring the key to 1020 bytes is left out.
char *fragkeyname(Frag *frag);
/// The prefix that a node with these bits shows, or an empty string.
const char *attr_prefix(long attr);
/// Takes every attribute prefix in any case off the front of `*name` and returns their bits.
long strip_attr_prefixes(const char **name);
/// The stored name for a name of a file, the other way round in `attr_revmap`; the argument if it is not in the table.
const char *attr_remap(const char *name);
const char *attr_revmap(const char *name);
/// Both as a table: names that begin like a prefixed one but are single parameters. It ends with a row of nulls.
struct attr_map_rec {
    const char *file_name;
    const char *stored_name;
};
extern const attr_map_rec attr_map_tab[];
/// The value of two hexadecimal digits, anything else counting as 0.
int hexconvert(const char *digits);

// Texts.

/// 1 if `text` is null, empty or nothing but blanks and tabs.
int is_blanks(const char *text);
/// The value of a switch: 1 for on, yes, true; a leading number as it is; 0 for all else and for null.
int is_on(const char *text);

// Files.

/// Reads a fragment file into the list. With mode 0 a line replaces an existing value, with mode 1 it stays.
/// 1 if the file can't be opened, and nothing changes; else 0. A read error counts as the end of the file.
int importffile(const char *path, FragList list, int mode);
/// `importffile` with mode 0, but of what the file holds only the nodes that one of `keys` leads to are made, and what
/// lies below them only for a key that ends in `_`. No two of the keys begin alike; a null ends them.
int inspectffile(const char *path, FragList list, const char *const *keys);
/// `importffile` into `cur_database` with mode 0, and with mode 1.
int importenv(const char *path);
int importinitialenv(const char *path);
/// Writes the list from `first` on as lines of a fragment file, `position` being the place in `keynamebuf` behind
/// the `keynamelen` bytes of key in front of it. 1 if a key was written short, which ends the writing, or if a key
/// did not fit the buffer, which leaves out that node and what lies below it; else 0.
int outffile(FILE *stream, Frag *first, char *position);
/// Writes the node (may be null) and what lies below it as one XML element. Always 0.
int outxmlfile(FILE *stream, Frag *frag, int indent);
/// Takes the memory that `outxmlfile` needs for the list, so that it takes none once an output is open.
void reserve_xml(FragList list);
/// Brings `cur_database` into the layout of the output version (numbered for 1 and 41), stamps and saves it.
/// `name` null stands for standard output. The result is that of `exportffile`.
int exportenv(const char *name, int version);
/// Writes the list: XML at version 99, else a fragment file. 1 if the output can't be opened.
int exportffile(const char *name, FragList list, int version);

// Order.

/// Sorts one sibling list, numbers by their value. It is a merge sort whose ties keep their order; only a list in which
/// more neighbours are out of order than in order is turned around first.
int sort_frags(FragList list);
/// Negative, 0 or positive as the first name comes before, ties with or comes behind the second.
int fragmatch(const char *a, const char *b);

#endif
