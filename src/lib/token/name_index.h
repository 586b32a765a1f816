/// Lookups by name in sibling lists that are too long to be walked for each.
#ifndef NAME_INDEX_H
#define NAME_INDEX_H

#include "nsym.h"
#include "text_hash.h"

#include <cstdint>
#include <set>
#include <unordered_map>
#include <vector>

/// An index of one sibling list by stored name, for a pass that looks up many names in it. It gives what a walk from
/// the head would give, as long as the pass tells it of every node that comes, goes or gets another name. It owns no
/// node and lives no longer than the pass.
struct name_index {
    name_index() = default;
    /// Indexes the list as it stands.
    explicit name_index(FragList list);
    /// Indexes the children of the node that `key` leads to, if there is one.
    name_index(FragList list, const char *key);
    /// The first node of exactly that name, or null.
    Frag *find(std::string_view name) const;
    /// What `ffind` gives for the key in the indexed list.
    Frag *find_key(const char *key) const;
    /// The first node of exactly that name; if there is none, a new one at the head of the indexed list, which must be
    /// `list`.
    Frag *find_or_make(FragList list, std::string_view name, Frag *parent);
    /// What `fsetp` does for the key in the indexed list, which must be `list`.
    Frag *set_key(FragList list, const char *key, const char *value, Frag *parent);
    /// Takes note of a node that was just put at the head of the list.
    void add(Frag *frag);
    /// Takes note that a node leaves the list or is about to be renamed.
    void remove(Frag *frag);

    size_t count = 0; ///< nodes of the list

private:
    /// A hash table with one slot for each name, open addressed and at most half full. A slot leads to the entry of the
    /// node nearest the head; the entry is null if the list has no node of that name any more. A free slot has the hash
    /// 0. Slots are this small because in a large table each look at another place waits for memory, and a search for a
    /// name that is not there looks at slots alone.
    struct slot {
        uint32_t hash;
        uint32_t entry;
    };
    std::vector<slot> slots;
    std::vector<Frag *> entries;
    /// Of a name that several nodes have, all but the nearest, the farthest first.
    std::unordered_map<std::string, std::vector<Frag *>, text_hash> hidden;

    size_t place(uint32_t hash, std::string_view name) const;
    void take(slot &at, uint32_t hash, Frag *frag);
    void make_room(size_t more);
};

/// Indexes of many lists. A short list is walked, and one that a lookup finds long gets an index. As with one index,
/// the pass tells of every node that comes or goes.
struct list_indexes {
    list_indexes() = default;
    list_indexes(const list_indexes &) = delete;
    list_indexes &operator=(const list_indexes &) = delete;
    /// The first node of exactly that name in the list, or null.
    Frag *find(FragList list, std::string_view name);
    /// The first node of exactly that name; if there is none, a new one at the head of the list.
    Frag *find_or_make(FragList list, std::string_view name, Frag *parent);
    /// What `ffind` gives for the key in the list, with an index for each long list on the way. `siblings` (may be
    /// null) gets the list that the node stands in.
    Frag *find_key(FragList list, const char *key, FragList *siblings = nullptr);
    /// What `fsetp` does for the key in the list, likewise.
    Frag *set_key(FragList list, const char *key, const char *value, Frag *parent);
    /// Takes note of a node that was just put at the head of the list.
    void add(FragList list, Frag *frag);
    /// Takes note that a node is about to leave the list.
    void remove(FragList list, Frag *frag);
    /// The nodes in the list.
    size_t count(FragList list);
    /// The first number above the count of the list's nodes that none of them has as its name. The caller makes the
    /// node.
    int free_number(FragList list);
    /// Forgets the lists below the node, which are about to be freed or changed.
    void forget_below(Frag *frag);

private:
    name_index *index_of(FragList list);
    name_index &index_of_long(FragList list);
    void drop_index(FragList list);
    bool find_in_short(FragList list, std::string_view name, Frag **found) const;

    /// What is known of a list's free numbers: from its count up to `last` only those in `freed` can be free.
    struct number_search {
        int last = 0;
        std::set<int> freed{};
    };
    std::unordered_map<FragList, name_index> indexes; ///< of long lists; one that gets short loses its index
    FragList last_list = nullptr;                     ///< the list of the index that was used last
    name_index *last_index = nullptr;
    std::unordered_map<FragList, number_search> searches; ///< of the lists that were asked for a free number
};

#endif
