/// A configuration as the review reads it: its bytes, its assignments with their lines, and what each of them says in
/// the canonical layout.
///
/// The review translates the numbered layout by itself and calls no pass for it, so that a fault of a pass shows.
#ifndef REVIEW_CONFIGURATION_H
#define REVIEW_CONFIGURATION_H

#include "name_index.h"
#include "nsym.h"
#include "nupgrade.h"

#include <deque>
#include <memory>
#include <memory_resource>
#include <string>
#include <string_view>
#include <vector>

/// What an assignment does.
enum class line_role : uint8_t {
    setting, ///< gives its node the value
    name,    ///< names its node: a record, a parameter, or the config set that a policy lists
    count,   ///< says how many entries there are; it has no node
    dropped, ///< means nothing in the canonical layout, such as a parameter that lacks its name; it has no node
};

/// One assignment. A line without `=` runs on into the next, so that an assignment can begin lines before it ends.
struct conf_line {
    std::string_view key;            ///< as written: stored names joined by `_`, without prefixes
    std::string_view value;          ///< as written
    size_t begin = 0, end = 0;       ///< its bytes in the file, the line end among them
    Frag *node = nullptr;            ///< of the tree: the one that has its value or its name
    uint32_t line = 0, end_line = 0; ///< where it begins and ends, as an editor counts
    uint8_t bits = 0;                ///< of all prefixes on its key and, of a numbered parameter, in front of its name
    bool section_form = false;       ///< its key depends on what stands in front of it
    line_role role = line_role::setting;
};

/// The bytes of a file, kept by all who have views of them.
struct file_bytes {
    file_bytes(std::string from = {}) : held(std::make_shared<const std::string>(std::move(from))) {}
    std::shared_ptr<const std::string> held;
};

/// How a file is looked at: `as_written` where its keys enter a database without translation, `merged` where what is
/// there stays, too: of the lines of one key the first counts, and else the last.
enum class conf_layout { translated, as_written, merged };

/// One configuration. Its nodes, their names and their values stay where they are as long as it lives, and are no
/// blocks of the heap: what the store frees, takes the place of or grows must not be one of them.
struct configuration {
    std::string name; ///< of the file, for messages
    file_bytes file;
    std::string_view bytes = *file.held;
    std::vector<conf_line> lines;
    bool numbered = false; ///< the file is in the numbered layout
    Frag *tree = nullptr;  ///< the canonical layout; children that are numbers stand in their order
    mutable list_indexes indexes;
    std::deque<Frag> nodes; ///< those of the tree, and those that the translation took out of it
    /// The interfaces in whose lists of aliases elements of the location lists stood.
    std::unordered_map<const Frag *, std::string> bearers;

    configuration(std::string of, file_bytes from) : name(std::move(of)), file(std::move(from)) {}

    FragList db() const { return const_cast<FragList>(&tree); }
    /// A copy of the text that stays, with a zero byte behind it.
    char *keep(std::string_view text);
    void set_value(Frag *frag, std::string_view value);
    /// Makes a child of that stored name at the head of those of `parent`, which is null for the top, as one of the
    /// line of that number, 0 for none. The indexes are told.
    Frag *add(list_indexes &known, Frag *parent, std::string_view stored, long line);
    /// The node of the key below `parent`, whose missing nodes are made likewise.
    Frag *make(list_indexes &known, Frag *parent, std::string_view key, long line);

    /// What `ffind` gives for the key, by index.
    Frag *find(const char *key) const { return indexes.find_key(db(), key); }
    /// The value of the node of the key below `frag`, or of the key in the tree; empty if there is none.
    std::string value(const char *key) const { return value(find(key), ""); }
    static std::string value(const Frag *frag, const char *key);
    /// The record of a family such as "netobj_group" that a value refers to by its clear name; null if there is none. A
    /// name that begins like a prefix also leads to a record whose key shows that prefix.
    Frag *record(const char *family, const std::string &clear) const;
    /// The children of the node of the key, in order; none if it is missing.
    std::vector<Frag *> children(const char *key) const { return children(find(key), ""); }
    static std::vector<Frag *> children(const Frag *frag, const char *key);
    /// The assignment that gave the node its value or, of a record, that named it or something in it first. Null if
    /// none did.
    const conf_line *origin(const Frag *frag) const;
    /// Its line, 0 for none.
    long line_of(const Frag *frag) const { return origin(frag) ? origin(frag)->line : 0; }

private:
    std::pmr::monotonic_buffer_resource texts;
};

/// The attribute bits of a node of a configuration; what stands above them is the number of its line from 1, 0 for
/// none.
inline long bits_of(const Frag *frag) { return frag->attr & 15; }
/// A node's value, empty for none.
inline std::string_view text_of(const Frag *frag) {
    return frag->value ? std::string_view(frag->value, static_cast<size_t>(frag->vlen)) : std::string_view();
}
/// A stored name or key with its escapes decoded; and a name as it is stored.
std::string decoded_name(std::string_view stored);
std::string encoded_name(std::string_view name);
/// The stored name of an attribute that a file calls otherwise, and the other way round; else the name itself.
const char *stored_attribute(const char *name);
const char *file_attribute(const char *name);
/// A node's name in clear, whatever its length, without a prefix; and with the one that it shows.
std::string clear_name(const Frag *frag);
std::string shown_name(const Frag *frag);
/// The owner of a config set that a policy lists; the proxy for all is saved under another name.
std::string owner_of(const Frag *entry);
/// The prefix that stands in front of a name with these bits; and the bits of all prefixes in front of the name, which
/// is moved behind them. The review's own reading, apart from the store's.
const char *prefix_of(long bits);
long take_prefixes(const char **name);

/// Takes the next line off the text, and gives it without its line end.
std::string_view take_line(std::string_view &text);
/// Takes from a map's source the mark that its name is that of a group. False if it has none.
bool take_group_mark(std::string &source);
/// Whether a switch is on: "on", "yes" or "true" in any case, or a number other than 0.
bool says_yes(std::string_view text);
/// The services of the platform that the configuration is of.
const maprec *services_of(const configuration &conf);
/// True if the word is in a list that ends in a null.
bool is_listed(const char *const *list, std::string_view word);

/// All nodes from `first` on and below them, siblings side by side.
std::vector<Frag *> nodes_of(Frag *first);

/// Reads the bytes as a configuration.
std::unique_ptr<configuration> read_configuration(std::string name, file_bytes bytes, conf_layout layout);
/// The steps of `read_configuration`: the assignments by the grammar of the store, both forms, and the tree of what
/// they say as written; then the canonical layout.
void read_assignments(configuration &conf, conf_layout layout);
void translate(configuration &conf);

#endif
