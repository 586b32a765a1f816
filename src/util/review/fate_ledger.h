/// The inputs' lines and what became of each, while the passes are followed.
#ifndef FATE_LEDGER_H
#define FATE_LEDGER_H

#include "nsym.h"

#include <string>
#include <string_view>
#include <vector>

/// What can become of a line. Where several things do, the greatest is told.
enum class fate { open, without_effect, overridden, reshaped, kept };
/// Its name in the records.
const char *fate_name(fate f);

/// An assignment of a fragment file, or a rule of a netperm table. One can stand on several lines, as far as to
/// `end_line`, and a long table line can be several rules.
struct fate_entry {
    size_t input = 0;
    long line = 0, end_line = 0;
    std::string key;   ///< as stored; empty for a rule
    std::string value; ///< or the text behind the rule's attribute
    long attr = 0;
    bool section_form = false;
    size_t beats = 0;     ///< an entry of the same key whose place it took
    size_t made_from = 0; ///< length of the shortest path above its key that it brought into being, 0 for none
    fate known = fate::open;
    std::string reason;
};

/// An input file. Its entries stand together in the ledger.
struct fate_input {
    std::string name;
    bool table = false;
    std::string text;
    std::vector<size_t> starts; ///< where its lines begin in the text
    size_t first = 0, end = 0;  ///< its entries
    long lines() const { return static_cast<long>(starts.size()); }
    /// A line, counted from 1, without its end.
    std::string_view line(long number) const;
};

/// All entries, numbered from 1; 0 stands for what comes from no line. A node of a tree carries the number of the entry
/// that gave it its value above the bits of its attribute, where the passes leave it alone.
struct fate_ledger {
    std::vector<fate_input> inputs;
    std::vector<fate_entry> entries{1};

    /// The input of that name and kind, read if it is new. A file that can't be read has no lines.
    size_t open(const std::string &name, bool table);
    /// "FILE line N".
    std::string where(size_t id) const;
    bool knows(size_t id, fate f) const { return entries[id].known >= f; }
    /// Takes note of a fate, unless a greater one is known.
    void say(size_t id, fate f, std::string reason);
};

constexpr int OWNER_SHIFT = 8;
inline size_t owner_of(const Frag *frag) { return static_cast<size_t>(frag->attr) >> OWNER_SHIFT; }
inline void set_owner(Frag *frag, size_t id) {
    frag->attr = (frag->attr & ((1 << OWNER_SHIFT) - 1)) | static_cast<long>(id << OWNER_SHIFT);
}

/// A node's name as a file gives it back: what begins like a prefix there is one to whoever reads it.
std::string name_in_file(const Frag *frag);
std::string name_in_file(const char *name, long attr);
/// Calls `visit(frag, key)` for each node of the list and below it, the key being that of its path in a file.
template <class Visit> void visit_frags(Frag *first, Visit visit) {
    struct place {
        Frag *frag;
        size_t key_len; // of the path, with its `_`
    };
    std::string key;
    std::vector<place> pending{{first, 0}};
    while (!pending.empty()) {
        place at = pending.back();
        pending.pop_back();
        if (!at.frag)
            continue;
        pending.push_back({at.frag->next, at.key_len});
        key.resize(at.key_len);
        key += name_in_file(at.frag);
        visit(at.frag, key);
        if (at.frag->child) {
            key += '_';
            pending.push_back({at.frag->child, key.size()});
        }
    }
}
/// The value of a node as the store holds it, zero bytes included.
inline std::string_view value_of(const Frag *frag) {
    return frag->value ? std::string_view(frag->value, static_cast<size_t>(frag->vlen)) : std::string_view();
}

#endif
