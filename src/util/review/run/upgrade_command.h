/// The upgrade's command line as the upgrade itself reads it.
#ifndef UPGRADE_COMMAND_H
#define UPGRADE_COMMAND_H

#include <string>
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

#endif
