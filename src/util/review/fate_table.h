/// Netperm tables rule by rule, and what their translation made of each rule.
#ifndef FATE_TABLE_H
#define FATE_TABLE_H

#include "fate_passes.h"
#include "name_index.h"

/// The rules of one attribute of a proxy in their order, by their numbers in the ledger.
using table_rules = std::vector<size_t>;

struct fate_proxy {
    std::string name;
    size_t named_by = 0; ///< the rule that names it first
    std::unordered_map<std::string, table_rules> attributes;
};

/// The length of a marker at the start of a rule's text, which gives the rule its class; 0 if there is none.
size_t marker_len(const char *text);

/// A `hosts` rule that became part of a map, to be looked for in the result.
struct hosts_outcome {
    std::string map, src, list, reason; ///< the first map's number and source and the list behind it
};

/// All tables of a run, the second on top of what the first left.
struct fate_table {
    fate_run &run;
    size_t input = 0;
    std::vector<fate_proxy> proxies; ///< in the order of their names; the first is `global`
    std::unordered_map<std::string, size_t> by_name;
    std::unordered_map<size_t, long> units;             ///< a rule's number among the lines that the reader sees
    std::unordered_map<size_t, std::string> words;      ///< the attribute as written
    std::unordered_map<size_t, std::string> naming;     ///< rules that name a proxy first, which gives it its place
    std::unordered_map<size_t, hosts_outcome> outcomes; ///< of `hosts` rules that stay

    explicit fate_table(fate_run &of) : run(of) {}

    /// Reads the table. Lines that are no rule get their fate at once.
    void read(size_t table_input);
    /// Follows the rules into the database as it is behind the option, which gets their numbers for owners.
    void follow();

private:
    void read_unit(std::string unit, long number, long line);
    void serve_name(std::string name, size_t id);
    void file_rule(fate_proxy &proxy, size_t id, bool for_all);
    void follow_proxy(const fate_proxy &proxy, Frag *frag);
    void follow_attribute(const fate_proxy &proxy, const std::string &attribute, const table_rules &rules, Frag *frag);
    void follow_template(const fate_proxy &proxy, list_indexes &indexes);
    void follow_destinations(const table_rules &rules);
    void say_unreached();
    bool own_value(size_t id, Frag *node) const;
    std::string why_lost(const fate_proxy &proxy, const std::string &attribute) const;

    // fate_hosts.cpp
    size_t cover_trials = 0; // of all proxies
    void find_maps(list_indexes &indexes);
    void find_map(Frag *map, list_indexes &indexes);
    void follow_hosts(const fate_proxy &proxy, const table_rules &rules);

    struct host_map {
        Frag *map;
        std::string list;
        Frag *elements; ///< the first of them
    };
    std::unordered_map<std::string, std::vector<host_map>> maps_of;     ///< by proxy, in order
    std::unordered_map<std::string, std::vector<std::string>> users_of; ///< of a policy: proxies whose rules name it
    std::unordered_map<std::string_view, Frag *> destinations;          ///< `dest` records by their text
};

#endif
