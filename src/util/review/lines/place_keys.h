/// Where a line says what it says: keys that stay the same when entries get other numbers, another layout or another
/// place in their list.
#ifndef REVIEW_PLACE_KEYS_H
#define REVIEW_PLACE_KEYS_H

#include "read/configuration.h"

#include <string>
#include <unordered_map>
#include <utility>

inline bool begins(std::string_view text, std::string_view with) { return text.substr(0, with.size()) == with; }

/// The place keys of one configuration. In them an element stands for its number by its address, a member by type and
/// name, a map or another numbered record by all that it says, and an alias stands in the list of its interface: of a
/// numbered result, in the list in which it stands there.
struct place_keys {
    explicit place_keys(const configuration &of, bool is_saved = false) : conf(of), takes_bearers(is_saved) {}

    struct key_of {
        std::string key;
        long bits = 0;      ///< of all prefixes on the way that are no part of a record's name
        bool named = false; ///< the bits stand in the name, as those of a policy's parameter do
    };
    /// The key of a node; with `later` that of an equal entry so many further on in its list, with `FIRST` of the
    /// first.
    key_of find(const Frag *frag, int later = 0);
    static constexpr int FIRST = -1'000'000'000;
    /// The depths at which records, config sets and elements stand.
    static constexpr size_t RECORD_DEPTHS[] = {1, 2, 4};
    /// Its plain path without prefixes, as `ffind` takes it.
    static std::string path(const Frag *frag);

private:
    const configuration &conf;
    bool takes_bearers;
    /// Of numbered entries what they say, and how many of their list that say it stand in front.
    std::unordered_map<const Frag *, std::pair<std::string, int>> identities;

    std::string identity(const Frag *entry, int later);
};

/// The keys below which records are numbered in the order that matters. Ends with a null.
extern const char *const numbered_families[];
/// The node on the way to `frag` at a depth counted from the top, or null.
const Frag *at_depth(const Frag *frag, size_t depth);
/// The interface that a flat key of an address is about, and the field of an element that an import makes of it; nulls
/// for any other key.
std::pair<const ip_var_rec *, const char *> find_address_key(std::string_view key);
/// True for what stands for no address there.
bool is_placeholder(std::string_view address);
/// True for one of the three lists of the firewall's own addresses.
bool is_location(const Frag *list);
/// True for a filter rule, which holds its fields.
bool is_filter_rule(const Frag *frag);
/// True if two sets of bits are the same prefixes.
bool same_prefix(long a, long b);
/// The characters of a filter rule that a numbered save keeps.
constexpr size_t RULE_LIMIT = 126;
/// A filter rule's text as it is read again: ten fields, the last of which ends at a `+`, and no more than are kept.
std::string filter_text(std::string text);
/// All values below a node with their paths, in the order of these: what a record says. Of a filter rule, what is left
/// of it once it was saved by numbers and imported.
std::string record_text(const Frag *record);

#endif
