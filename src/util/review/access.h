/// Who gets through: the ordered rules of each proxy, as a netperm table or as the maps of a configuration give them.
#ifndef ACCESS_H
#define ACCESS_H

#include "review.h"

#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

/// How a rule came to its class.
enum class class_origin { none, marker, permit_prefix, deny_prefix, absorb_prefix, map };

/// One host pattern of one proxy. Its texts are views into the side that it was asked of.
struct access_rule {
    std::string_view pattern; ///< as written, up to a blank
    std::string_view tail;    ///< of a table's rule: from the first option word to the end of the line
    bool permit = false;
    class_origin origin = class_origin::none;
    long line = 0;         ///< of the rule or the map
    long element_line = 0; ///< of the list element, 0 for a table's rule
    long map = 0;          ///< the map's number, 0 for a table's rule
    size_t source = 0;     ///< index in the side's `lines` or `maps`
};

/// A line of a table that sets hosts.
struct table_line {
    long line = 0;
    size_t file = 0; ///< index in the side's `files`
    class_origin prefix = class_origin::none;
    bool plain = true; ///< false where the attribute word goes on with a `=`
    std::string text;  ///< what stands behind the attribute word
};

/// That a table's line reached a proxy, or all of them, at a moment of the reading.
struct table_filing {
    size_t line = 0;   ///< index in the side's `lines`
    size_t moment = 0; ///< counts the names that the reading served
};

struct table_proxy {
    size_t named = 0; ///< the moment at which the table first named it
    std::vector<table_filing> own;
};

/// One table as read.
struct access_table {
    std::unordered_map<std::string, table_proxy> proxies;
    std::unordered_set<std::string> known; ///< proxies that were there before it
    std::vector<table_filing> wildcard;    ///< for every proxy of the table and every known one
    std::vector<table_filing> later;       ///< for the proxies named afterwards
};

struct list_element {
    std::string address;
    long line = 0;
};

struct group_member {
    std::string type, name;
    long line = 0;
};

/// A policy's entry: a config set and the proxies that own it.
struct policy_entry {
    std::string set;
    std::vector<std::string> proxies;
};

struct access_map {
    std::string label; ///< its key, a number
    long number = 0;
    bool permit = false;
    bool has_policy = false;           ///< an empty name is one, too
    std::string policy, proxy, source; ///< values as they stand
    std::string group;                 ///< the group that the source names
    long line = 0;                     ///< its first line
};

/// The name that a key of a fragment file gives to a node whose name is written so: without prefixes.
std::string name_in_key(const std::string &written);
/// A stored name or key with its escapes decoded, whatever its length.
std::string decoded_name(std::string_view stored);
/// One name for a parameter of a config set, whose clear name or path is given, in whatever layout it was written.
std::string parameter_name(std::string_view written);

/// A record of a configuration that values refer to by name.
template <typename part> struct named_records {
    struct record {
        std::string name;
        bool from_key = false; ///< the name stood in the key, where a prefix is no part of it
        std::vector<part> parts;
    };
    std::vector<record> records;
    std::unordered_map<std::string, size_t> index; ///< the one of each name that is found

    void add(record added) {
        index.emplace(added.name, records.size());
        records.push_back(std::move(added));
    }
    /// Adds one that is found ahead of others of its name.
    void add_in_front(record added) {
        index[added.name] = records.size();
        records.push_back(std::move(added));
    }
    /// The record that a value refers to, or null.
    const record *find(const std::string &name) const {
        auto found = index.find(name);
        if (found != index.end())
            return &records[found->second];
        found = index.find(name_in_key(name));
        return found != index.end() && records[found->second].from_key ? &records[found->second] : nullptr;
    }
};

/// One side of the comparison. Readers add to it; what it hands out lives as long as it stands unchanged.
struct access_side {
    std::vector<std::string> files;   ///< as named on the command line
    std::vector<std::string> proxies; ///< all that it knows, in order of appearance

    std::vector<access_table> tables;
    std::vector<table_line> lines;

    size_t map_file = 0;          ///< index in `files`
    std::vector<access_map> maps; ///< in the order in which they decide
    named_records<list_element> lists;
    named_records<group_member> groups;
    named_records<policy_entry> policies;
    /// Parameters of config sets and their values, by proxy, a zero byte and the set's name.
    std::unordered_map<std::string, std::unordered_map<std::string, std::string>> sets;
    /// The maps that concern a proxy, `*` standing for deny maps of all.
    std::unordered_map<std::string, std::vector<size_t>> maps_of;

    bool knows(const std::string &proxy) const;
    void add_proxy(const std::string &proxy);

private:
    std::unordered_set<std::string> known;
};

/// The rules of a proxy in the order in which they are tried.
std::vector<access_rule> rules_of(const access_side &side, const std::string &proxy);
/// The maps that concern a proxy, as indexes in the order in which they are tried.
std::vector<size_t> maps_of(const access_side &side, const std::string &proxy);
/// What a rule of the side, or null for none, comes to as a decision.
decision decision_of(const access_side &side, const access_rule *rule);
/// Who decides about the host, a word without blanks, at that proxy.
decision decide(const access_side &side, std::string_view proxy, std::string_view host);
/// Whether the option words of a table's rule are all in a config set that the map's policy lists for the proxy.
bool has_options(const access_side &after, const access_map &map, const std::string &proxy, std::string_view tail);

#endif
