/// Why a host is treated otherwise, where that can be told.
#ifndef ACCESS_CAUSES_H
#define ACCESS_CAUSES_H

#include "access_compare.h"

/// What is looked up to name causes: indexes of the two sides and the maps of the initial environment.
struct cause_finder {
    const access_side &before;
    const access_side &after;

    cause_finder(const access_side &before_side, const access_side &after_side, const access_causes &causes);
    /// Prepares for a proxy, whose rules must stay where they are.
    void begin_proxy(const std::string &proxy, const std::vector<access_rule> &before_rules,
                     const std::vector<access_rule> &after_rules);
    /// The cause of the difference between two deciding rules, null for none; empty if it isn't known.
    std::string cause(const access_rule *was, const access_rule *is) const;

private:
    struct spellings {
        std::unordered_set<std::string_view> exact;
        std::unordered_set<std::string> lower;
    };

    std::unordered_set<std::string> initial_maps;                    // as texts of their four values
    std::unordered_map<std::string, std::vector<size_t>> lists_with; // lists of the result, by address
    std::unordered_map<std::string, std::vector<size_t>> maps_with;  // its maps, by group
    std::unordered_set<std::string> prefixed;                        // names in it without the prefixes that they have
    std::string proxy;
    spellings was_spelled, is_spelled;

    bool differs_in_case(const access_rule *rule, const spellings &others) const;
    bool is_cut(const access_rule *was, const access_rule *is) const;
    bool lost_prefix(const access_rule &was) const;
    bool met_group(const access_rule &was) const;
};

#endif
