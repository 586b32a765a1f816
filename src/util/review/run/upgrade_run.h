/// Runs of the upgrade itself, in a process of their own, that write into memory and change nothing.
#ifndef UPGRADE_RUN_H
#define UPGRADE_RUN_H

#include "run/upgrade_command.h"

#include <unordered_map>

/// What one run came to.
struct upgrade_result {
    std::string output;   ///< what it would have saved or written to standard output
    std::string messages; ///< its standard error, with the user's file names
    std::string trouble;  ///< what kept it from coming to a good end; empty if nothing did
    bool good() const { return trouble.empty(); }
};

/// Texts that a run reads in place of files, by the files' names as the command has them.
using replaced_files = std::unordered_map<std::string, std::string>;

/// Runs the command, with `no_xml` in the canonical layout where it asks for XML.
upgrade_result run_upgrade(const upgrade_command &command, const replaced_files &instead = {}, bool no_xml = false);
/// True if both paths lead to one file.
bool same_file(const std::string &a, const std::string &b);

#endif
