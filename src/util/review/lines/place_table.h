/// Where the rules of tables stand in a result.
#ifndef REVIEW_PLACE_TABLE_H
#define REVIEW_PLACE_TABLE_H

#include "frag_tools.h"
#include "lines/accounting.h"

#include <fmt/format.h>
#include <map>

/// Places rules by what they say.
struct rule_placer {
    accounting &all;
    result_places &result;
    const access_side &side;
    using index = std::multimap<std::pair<const Frag *, std::string>, const Frag *>;
    index parameters{};                                 ///< of proxies and config sets, by all that they say
    std::multimap<std::string, const Frag *> records{}; ///< of destinations, by their descriptions
    /// The proxies and names of the config sets that each template of a table went into.
    std::map<std::pair<uint32_t, std::string>, std::vector<std::pair<std::string, std::string>>> templated{};
    std::vector<std::pair<size_t, const Frag *>> turned{}; ///< rules, and where what they say has another prefix

    /// Takes the parameters of a proxy or config set into the index, those of all, and the records.
    void index_parameters(const Frag *entry);
    void index_result();
    /// Notes that a rule, the line with that number, stands at `frag`; as the line's place if it has none yet.
    void note(size_t number, const Frag *frag, std::string reason);
    /// Tells a loss, unless an import takes the line away.
    void tell_lost(size_t number, std::string text);
    /// Places the rules for hosts with what is made of them: partners by index, before and after; the map, and the
    /// config set with the words of the tail.
    void place_hosts();
    using maps_by_source = std::unordered_map<std::string_view, std::vector<size_t>>;
    std::vector<std::pair<size_t, size_t>> find_partners(const std::string &proxy,
                                                         const std::vector<access_rule> &before,
                                                         const std::vector<access_rule> &after,
                                                         const maps_by_source &alike);
    /// Whether no line of a configuration stands at the map.
    bool is_of_table(const access_rule &now) const;
    void take_map(const access_map &map, const Frag *element, const Frag *set, size_t number);
    void take_set(const Frag *set, const rule_options &options, size_t number);
    /// Places the other rules with the owners that have them, and tells what one of these lacks.
    void place_attributes();
    void place_rule(const Frag *owner, const std::string &attribute, const std::string &number, const filed_rule &of);
    void place_template(const std::string &proxy, const std::string &name, const filed_attributes &attributes);
    void place_destinations(const std::string &owner, const std::string &name, const numbered_rules &rules);
    const Frag *place_destination(const std::string &owner, const std::string &service, const std::string &key,
                                  const filed_rule &of);
    void place_removed(const filed_rule &of);
    void take_turned();
};

/// Where a proxy's config set of that name stands.
inline std::string set_path(const std::string &proxy, const std::string &name) {
    return fmt::format("def_proxy_{}_config-sets_{}", storedname(proxy), storedname(name));
}
/// A child by its name, or null.
inline const Frag *child_of(const Frag *frag, const char *name) { return find_named(frag->child, name); }

#endif
