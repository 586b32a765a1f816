/// Finding maps that are the same as a further one, for a configuration merge of many maps.
#ifndef MAP_FINDER_H
#define MAP_FINDER_H

#include "name_index.h"
#include "text_hash.h"

#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

/// The maps below a `map` node, to tell whether one of them is the same as a further map without comparing it with
/// each. It answers as `dont_have_map` does, whose walk begins with the newest map.
///
/// `pd`, `src` and `proxy` lead from branch to branch, in the order in which `same_map` compares them, then `policy` to
/// the last. A map that lacks a value ends at the branch in front of it, and is the same as every map that gets there:
///
///     map 1: pd=P src=g proxy=* policy=web    goes  P > P,g > P,g,* > P,g,*,web
///     map 2: pd=P src=h                       goes  P > P,h, where it ends for lack of a proxy
///     pd=P src=h proxy=* policy=web           has the same in map 2, which ends on its way
///     pd=P src=g proxy=* policy=mail          has the same in map 1 if mail and web list the same config sets
///
/// `same_map` sorts the lists of config sets that it compares, and their order shows in the output. So what a walk
/// would have sorted is sorted here: the lists of the maps down to the newest that is the same.
struct map_finder {
    /// `maps`: how many there will be, at most.
    map_finder(FragList database, size_t maps);
    /// Takes note of a map that was just put at the head of the list.
    void add(Frag *map);
    /// True if one of the maps is the same as that one.
    bool has_same(Frag *map);

private:
    using arrival = size_t; // of a map: 1 for the one that was added first, and so on; 0 for none

    /// The policies of the maps that agree in `pd`, `src` and `proxy`, as far as they exist and list config sets.
    struct policies {
        struct added_sets {
            arrival added;
            Frag *config_sets;
        };
        arrival newest = 0;
        std::vector<added_sets> unsorted;               // that no comparison has come to yet, the newest last
        std::unordered_map<size_t, arrival> by_content; // of the sorted ones, the newest with each content
    };
    /// The maps that agree in all values so far.
    struct branch {
        arrival newest = 0;
        arrival newest_ending = 0;             // the newest that lacks the next value
        std::unique_ptr<policies> by_policies; // behind `proxy` alone
    };
    struct branch_key {
        const branch *before;
        std::string_view value; // a view of the first such map's, which stays
        bool operator==(const branch_key &other) const { return before == other.before && value == other.value; }
    };
    struct branch_hash {
        size_t operator()(const branch_key &key) const {
            return text_hash()(key.value) ^ reinterpret_cast<size_t>(key.before);
        }
    };

    Frag *config_sets_of(const char *policy_name);
    size_t sorted_content(Frag *config_sets);
    bool has_same_sets(policies *same_source, const char *policy_name, arrival newest_same);

    FragList db;
    list_indexes indexes;
    arrival last = 0;
    branch root;
    std::unordered_map<branch_key, branch, branch_hash> branches;
    // A number for each content, of the lists of config sets that are sorted.
    std::unordered_map<Frag *, size_t> content_of;
    std::unordered_map<std::string, size_t, text_hash> contents;
};

#endif
