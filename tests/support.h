/// What the tests share: trees from text and back, scratch folders, runs of the program.
#ifndef SUPPORT_H
#define SUPPORT_H

#include "frag_tools.h"
#include "name_index.h"
#include "nsym.h"

#include <string>
#include <vector>

/// A database that frees what it holds.
struct tree {
    Frag *head = nullptr;

    tree() = default;
    /// The lines of a fragment file as a tree whose siblings stand, at every level, in the order of the text (a file
    /// that is read stands the other way round).
    explicit tree(const std::string &text);
    ~tree() { freelist(head); }
    tree(const tree &) = delete;
    tree &operator=(const tree &) = delete;

    operator FragList() { return &head; }
    /// The tree as the lines of a fragment file, siblings in list order.
    std::string text() const;
};

/// The text of a list as a fragment file.
std::string text_of(Frag *first);
/// The names of the siblings from `first` on, joined by blanks.
std::string names_of(const Frag *first);
/// A random number below `limit`, from a generator that each test seeds for itself with `seed_random`.
unsigned random_below(unsigned limit);
void seed_random(unsigned seed);

/// A new folder below the system's scratch folder, removed with all it holds.
struct scratch_dir {
    std::string path;

    scratch_dir();
    ~scratch_dir();
    scratch_dir(const scratch_dir &) = delete;
    scratch_dir &operator=(const scratch_dir &) = delete;

    /// Writes a file of that name and returns its path.
    std::string write(const std::string &name, const std::string &content) const;
};

/// All bytes of a file; empty if there is none.
std::string read_file(const std::string &path);

struct run_result {
    int status; ///< exit status, or -1 if a signal ended the program
    std::string out, err;
};

/// Runs the command in the folder and waits for its end.
run_result run_program(const std::string &dir, const std::vector<std::string> &command);

#endif
