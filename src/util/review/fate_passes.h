/// The upgrade's passes followed on a database whose values know the entries that they came from.
#ifndef FATE_PASSES_H
#define FATE_PASSES_H

#include "fate_ledger.h"
#include "upgrade_command.h"

#include <unordered_map>
#include <unordered_set>

/// What the passes work on.
struct fate_run {
    fate_ledger &ledger;
    const upgrade_command &command;
    int config_type = 0;
    Frag *db = nullptr;      ///< what the upgrade would hold after the options so far
    std::string last_table;  ///< the netperm table whose result is in it
    std::string environment; ///< the last environment that took its proxies, maps and policies away
    std::unordered_map<std::string, size_t> switched_on; ///< states that a login setting sets, with its entry

    fate_run(fate_ledger &lines, const upgrade_command &words) : ledger(lines), command(words) {}
    ~fate_run() { freelist(db); }
    fate_run(const fate_run &) = delete;
    fate_run &operator=(const fate_run &) = delete;
};

/// The entries that own a value in the list, each with the key of one such value.
std::unordered_map<size_t, std::string> owners_of(Frag *first);
/// Says the fate of every entry that owns a value in the subtree.
void say_below(fate_ledger &ledger, Frag *frag, fate f, const std::string &reason);
/// Reads the entries of an input into the database as the store reads the file in that mode.
void read_entries(fate_run &run, size_t input, int mode);
/// What is taken from the old configuration ahead of all options: its network objects, or if it has no proxies those
/// that its text keys tell of.
void follow_start(fate_run &run, size_t old_conf, bool has_proxies);
/// A merge of a fragment file.
void follow_merge(fate_run &run, size_t input);
/// An environment in the numbered layout, and what it takes away.
void follow_environment(fate_run &run, size_t input);
/// The passes behind the last option. `init` is the tree of the initial environment.
void follow_last_passes(fate_run &run, FragList init);

#endif
