/// The upgrade's command line as the upgrade itself reads it, and runs of it in a process of their own, that write into
/// memory and change nothing.
#ifndef UPGRADE_RUN_H
#define UPGRADE_RUN_H

#include <string>
#include <unordered_map>
#include <vector>

/// One option, in the order in which the upgrade works through them.
struct upgrade_step {
    char letter = 0;           ///< V, R, n, m or e
    std::string argument;      ///< its file; for V the text that is read as a number
    size_t index = 0;          ///< of the option's word in `words`
    size_t argument_index = 0; ///< of the word that holds the argument: for V the option's own, if text stands in it
};

/// A whole command line without the program's name.
struct upgrade_command {
    std::vector<std::string> words;
    std::vector<upgrade_step> steps; ///< up to the first that is refused
    std::vector<size_t> passed_over; ///< words that are no option and not the output
    std::string output;              ///< empty also if there is none
    bool has_output = false;         ///< false: an option took the last word, and the result goes to standard output
    int version = 1;                 ///< the output version
    /// The files that are read ahead of all options, for the release and for what it hands over: the first two that
    /// follow a word that is `-m` exactly. Empty if there is none.
    std::string old_conf, init_conf;
    std::string refused; ///< why the upgrade answers with its usage line; empty if it runs

    /// True if the result is in the numbered layout.
    bool numbered() const { return version == 1 || version == 41; }
};

/// Reads the words behind the program's name by the upgrade's rules. Never fails: what the upgrade would refuse is told
/// in `refused`.
upgrade_command parse_upgrade_command(const std::vector<std::string> &words);
/// The arguments of all steps of that letter, in order.
std::vector<std::string> step_files(const upgrade_command &command, char letter);

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
