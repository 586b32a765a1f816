/// A configuration file of either layout as one tree in the canonical layout, with the lines on which its entries
/// begin.
#ifndef CANONICAL_CONF_H
#define CANONICAL_CONF_H

#include "frag_tools.h"
#include "fragment_lines.h"
#include "nupgrade.h"

#include <functional>
#include <string>
#include <unordered_map>
#include <vector>

/// Owns its tree.
struct canonical_conf {
    canonical_conf() = default;
    ~canonical_conf() { freelist(tree); }
    canonical_conf(const canonical_conf &) = delete;
    canonical_conf &operator=(const canonical_conf &) = delete;

    Frag *tree = nullptr;
    bool numbered = false;                         ///< the file's layout
    std::vector<assignment> lines;                 ///< the file as it stands
    std::unordered_map<std::string, long> entries; ///< first line of an entry, by family and clear name: "map 3"

    FragList db() { return &tree; }
    /// The line of an entry such as ("policy", "staff"); 0 if the file has none.
    long line_of(const std::string &family, const std::string &name) const;
};

/// Whether the lines are wanted, too, which costs as much as the tree.
enum class with_lines { yes, no };

/// Reads the file. False if it can't be opened.
bool load_canonical(const char *path, canonical_conf &conf, with_lines lines = with_lines::yes);
/// The entry of a family by its clear name, or by its stored one; null if there is none.
Frag *find_named(FragList db, const char *family, const std::string &name);
/// The children of the node that `key` leads to, sorted as a save would number them; empty if there is none.
std::vector<Frag *> sorted_children(FragList db, const char *key);
/// The clear name of a node, whatever its length.
std::string clear_name(Frag *frag);
/// The value of a child, or an empty string.
std::string child_value(Frag *frag, const char *key);
/// The addresses of all elements behind a map's source, each group's once; the source itself if it names nothing.
std::vector<std::string> source_addresses(FragList db, const std::string &source);
/// Calls `what` with key and value of each node that has one below `frag`, the key beginning behind it.
void walk_values(Frag *frag, const std::function<void(const std::string &key, Frag *node)> &what);

#endif
