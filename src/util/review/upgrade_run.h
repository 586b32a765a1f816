/// The upgrade's own passes, run in a process of their own so that nothing is guessed and nothing of the user's
/// changes.
#ifndef UPGRADE_RUN_H
#define UPGRADE_RUN_H

#include "upgrade_command.h"

#include <string_view>
#include <sys/types.h>

/// A folder for the files of one review, gone with the record, and also when a signal ends the program. One at a time.
struct scratch_folder {
    scratch_folder();
    ~scratch_folder();
    scratch_folder(const scratch_folder &) = delete;
    scratch_folder &operator=(const scratch_folder &) = delete;
    /// The path of the file of that name in it, which must be one of the few that are known.
    std::string file(const char *name) const { return path + "/" + name; }
    std::string path; ///< empty if it could not be made
};

/// Removes the scratch folder of a program that ends where it stands; takes no memory.
void remove_scratch();

/// A file without a name, for what a run reads or writes. No disk can be too full for it.
struct memory_file {
    memory_file();
    ~memory_file();
    memory_file(const memory_file &) = delete;
    memory_file &operator=(const memory_file &) = delete;
    bool write(std::string_view text) const;
    /// All that it holds.
    std::string text() const;
    /// A path that leads to it in this process and its children.
    std::string path() const;
    int file;
};

/// What one run of the upgrade left behind.
struct upgrade_result {
    bool ran = false; ///< it came to its end by itself, whatever its status
    int exit_status = 0;
    std::string messages;          ///< its standard error, with the user's file names
    std::string output_bytes_path; ///< the result, or what went to standard output; empty if nothing was saved
    std::string canonical_path;    ///< the same result in the canonical layout; empty likewise
    std::string trouble;           ///< what kept it from running, or its result from being kept
};

/// Runs the command as it stands and, where its result is in another layout, once more for the canonical one. Output
/// and report go to the scratch folder; an input that is also the report is copied there first.
upgrade_result run_upgrade(const upgrade_command &command, const scratch_folder &scratch);
/// Runs the upgrade with these words in this process, its name in front of them, and ends with its status.
[[noreturn]] void end_as_upgrade(std::vector<std::string> words);
/// Waits for a child's end. The result is its status as waitpid() gives it.
int wait_for(pid_t child);
/// True if both paths lead to one file.
bool same_file(const std::string &a, const std::string &b);

#endif
