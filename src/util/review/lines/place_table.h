/// Where the rules of tables stand in a result.
#ifndef REVIEW_PLACE_TABLE_H
#define REVIEW_PLACE_TABLE_H

#include "access/access_compare.h"
#include "frag_tools.h"
#include "lines/accounting.h"

#include <map>
#include <set>

/// Places rules by what they say.
struct rule_placer {
    accounting &all;
    result_places &result;
    const access_side &side;
    bool own;
    std::multimap<std::string, const Frag *> parameters{}; ///< of proxies and config sets, by name and value
    std::multimap<std::string, const Frag *> records{};    ///< of destinations, by their text
    /// The config sets that a template of a table went into.
    std::map<std::pair<uint32_t, std::string>, std::vector<const Frag *>> templated{};
    std::unordered_map<const Frag *, std::pair<uint32_t, std::string>> template_of{}; ///< the other way round
    std::vector<std::pair<size_t, const Frag *>> turned{}; ///< rules, and where what they say has another prefix
    std::set<std::string> asked{};                         ///< attributes of names of which only the first rule counts

    /// Takes the parameters of a proxy or config set into the index, those of all, and the templates of the tables.
    void index_parameters(const Frag *entry);
    void index_result();
    /// Notes that a rule, the line with that number, stands at `frag`; as the line's place if it has none yet.
    void note(size_t number, const Frag *frag, std::string reason);
    /// Tells a loss, unless the result is not the installed one.
    void tell_lost(size_t number, std::string text);
    /// Places the rules for hosts with what is made of them: partners by index, before and after; the map, and the
    /// config set with the words of the tail.
    void place_hosts();
    std::vector<std::pair<size_t, size_t>> find_partners(const std::string &proxy, const rule_partners &partners);
    /// Whether no line of a configuration stands at the map.
    bool is_of_table(const access_rule &now) const;
    void take_map(const access_map &map, const Frag *element, const Frag *set, size_t number);
    void take_set(const Frag *set, std::string_view tail, size_t number);
    /// Places any other rule, and tells where it has to stand, too, and does not; `owners` are where it does, by path.
    void place_attribute(size_t number, const table_rule &rule);
    void place_destination(size_t number, const table_rule &rule, std::set<std::string> &owners);
    void check_destinations();
    void take_turned();
    void tell_missing(size_t number, const table_rule &rule, const std::set<std::string> &owners);
};

/// A child by its name, or null.
inline const Frag *child_of(const Frag *frag, const char *name) { return find_named(frag->child, name); }

#endif
