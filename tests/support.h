/// What the tests share: trees from text and back, chance, scratch folders, runs of programs.
#ifndef SUPPORT_H
#define SUPPORT_H

#include "frag_tools.h"
#include "name_index.h"
#include "nsym.h"

#include <string>
#include <vector>

/// A database that frees what it holds.
///
/// As text a tree is its siblings in list order with blanks between them, each `name:bits=value{children}`; what is not
/// there is left out. An only child can stand behind a `_` if its parent has no value: `a_b:1{c=1 d}`. In a value that
/// is read, `\s` stands for a blank.
struct tree {
    Frag *head = nullptr;

    tree() = default;
    /// Such a text; or, if it ends in a line end, the lines of a fragment file, siblings in the order of the text.
    explicit tree(const std::string &text);
    ~tree() { freelist(head); }
    tree(const tree &) = delete;
    tree &operator=(const tree &) = delete;

    operator FragList() { return &head; }
    /// The tree as the lines of a fragment file, in which a node without a value or with many bits does not show.
    std::string text() const;
};

/// The text of a list as `tree` has it, all bits and missing values told.
std::string dump(const Frag *first);
/// True if every node of the list and below it points at the node that owns it.
bool linked(const Frag *first, const Frag *parent);
/// A random number below `limit`, from a generator that each test seeds for itself with `seed_random`.
unsigned random_below(unsigned limit);
void seed_random(unsigned seed);
/// One of the words by chance.
template <size_t count> std::string one_of(const char *const (&words)[count]) { return words[random_below(count)]; }

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
