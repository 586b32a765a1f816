/// Who gets through: the ordered rules of each proxy, as a netperm table or as the maps of a configuration give them,
/// and who gets through now compared with before, decided for all hosts.
#ifndef ACCESS_H
#define ACCESS_H

#include "read/configuration.h"
#include "read/netperm_table.h"
#include "review.h"

#include <functional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

/// One host pattern of one proxy. Its texts are views into what the side was made of.
struct access_rule {
    std::string_view pattern; ///< as written, up to a blank
    std::string_view tail;    ///< of a table's rule: from the first option word to the end of the line
    bool permit = false;
    bool unmarked = false;         ///< it is a table's that permits because nothing in it says otherwise
    bool is_map = false;           ///< it is not a table's
    long line = 0;                 ///< of the rule, or the first of the map
    const Frag *element = nullptr; ///< the element that holds the pattern, if it is of a list
    size_t source = SIZE_MAX;      ///< index of the rule in the table, or in the side's `maps`; of a refusal none
    size_t table = 0;              ///< index in the side's `tables`, for a rule of one
};

/// Appends a rule like `rule` for each host of a table's rule for hosts, with the ruling that the host has there.
void add_rule_hosts(const table_rule &from, access_rule rule, std::vector<access_rule> &into);

/// A map in the order in which maps decide.
struct access_map {
    const Frag *frag = nullptr;
    long number = 0;
    long line = 0; ///< its first
    bool permit = false;
    std::string source, policy, proxy;
};

/// One side of the comparison. What it was made of must outlive it.
struct access_side {
    std::vector<const netperm_table *> tables;
    const configuration *conf = nullptr; ///< whose maps decide, null for none
    std::vector<access_map> maps;
    std::vector<std::string> proxies; ///< all that it knows, in order of appearance
    bool knows(const std::string &proxy) const { return known.count(proxy) != 0; }

    /// Lets a table decide behind what is there.
    void add_table(const netperm_table &table);
    /// Lets the maps of a configuration decide.
    void set_maps(const configuration &from);
    void add_proxy(const std::string &proxy);

    /// The rules for hosts that a table has under a name, and the first of all its rules there.
    struct named_rules {
        size_t first = 0; ///< 0 of a proxy that was known before, too
        std::vector<size_t> hosts{};
    };
    /// Those of each table, `*` standing for all names that begin so.
    std::vector<std::unordered_map<std::string, named_rules>> filed;
    /// The maps that concern each proxy, `*` standing for those that concern all.
    std::unordered_map<std::string, std::vector<size_t>> maps_of;
    std::unordered_set<std::string> known;
};

/// The rules of a proxy in the order in which they are tried; a source that stands again behind itself is left out,
/// since it decides about nobody.
std::vector<access_rule> rules_of(const access_side &side, const std::string &proxy);
/// The maps that concern a proxy, as indexes in the order in which they are tried.
std::set<size_t> maps_for(const access_side &side, const std::string &proxy);
/// The elements that a source leads to, as an enumeration of network objects finds them: the members of a group in
/// order, lists and groups by their types; a list that is missing ends the walk, and one that was met before adds
/// nothing. A null alone where the source is no object, but stands for itself as a host.
std::vector<const Frag *> source_elements(const configuration &conf, std::string source,
                                          std::unordered_set<const Frag *> &met_lists);
/// What a rule of the side comes to as a decision.
decision decision_of(const access_side &side, const access_rule &rule);
/// "permitted by 10.* (new.conf:812, map 94)", or denied, or "refused": the one wording of who decides.
std::string decision_text(const decision &made);
/// Appends a finding about a host, or about those of two rules: who decided before, and who decides now.
finding &tell_change(review_data &data, const char *id, const decision &was, const decision &is);
/// Who decides about the host, a word without blanks, at that proxy.
decision decide(const access_side &side, const std::string &proxy, const std::string &host);
/// Whether the word's pattern covers the host: the comparison's own matcher, apart from the upgrade's.
bool covers(std::string_view pattern, std::string_view host);

/// Parameters by their clear names, prefix in front, with their values.
using option_set = std::map<std::string, std::set<std::string>>;
/// The options under which a permit rule or map lets a host into the proxy: words of a rule's tail; of a map the
/// parameters of its policy and of the config sets that the policy lists for the proxy.
option_set options_of(const access_side &side, const access_rule &rule, const std::string &proxy);
/// The options that the rule after lacks or has otherwise, in words; empty if there are none. If all of those before
/// are known, also those that only the rule after has.
std::string changed_options(const option_set &was, const option_set &is, bool is_whole);

// The comparison.

struct access_options {
    std::string only_proxy;                             ///< empty for all
    const configuration *initial_environment = nullptr; ///< to name causes; may be null
    const configuration *own_result = nullptr; ///< what the upgrade writes where the side after is another; else null
    std::function<void(const std::string &what)> progress = [](const std::string &) {}; ///< told of each step
    uint64_t work_limit = 150'000'000; ///< steps in all, after which proxies are not decided
};

/// Compares the two sides proxy by proxy: fills `data.access` and appends findings `wider`, `narrower`, `options` and
/// `not-decided`, each with the shortest host that is treated so.
void compare_access(const access_side &before, const access_side &after, const access_options &options,
                    review_data &data);

#endif
