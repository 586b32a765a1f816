/// Small helpers that the store and the passes share: whole steps on nodes, and functions on their texts.
#ifndef FRAG_TOOLS_H
#define FRAG_TOOLS_H

#include "nsym.h"

// Nodes.

/// The first component of a key.
inline std::string_view key_component(const char *key) {
    const char *end = key;
    while (*end && *end != '_' && *end != '=')
        end++;
    return {key, static_cast<size_t>(end - key)};
}
/// True if the node's stored name is exactly `name`. A loop, since for the few bytes of a name it is faster than
/// strcmp().
inline bool is_named(const Frag *frag, std::string_view name) {
    const char *at = frag->name;
    for (char byte : name)
        if (*at++ != byte)
            return false;
    return *at == 0;
}
/// The first node of exactly that stored name from `frag` on, or null.
inline Frag *find_named(Frag *frag, std::string_view name) {
    while (frag && !is_named(frag, name))
        frag = frag->next;
    return frag;
}
/// Puts the unlinked node at the head of the list as a child of `parent` (may be null).
inline void pushfrag(FragList list, Frag *frag, Frag *parent) {
    frag->next = *list;
    frag->parent = parent;
    *list = frag;
}
/// The node of `key`, made like `fsetp` makes it if it is missing, but with the value that it has.
Frag *fmake(FragList list, const char *key, Frag *parent = nullptr);
/// Makes a child of exactly that name at the head of the node's children, which must have none of it yet.
Frag *faddchild(Frag *parent, std::string_view name, const char *value);
/// The bytes that a value's block has behind the value: its terminator, and one more, so that a line feed can be put
/// there and be terminated.
constexpr size_t VALUE_END = 2;
/// Gives the node a copy of `value`, or none if it is null.
void setvalue(Frag *frag, const char *value);
/// Gives the node a copy of all bytes of `value`.
void setvalue(Frag *frag, std::string_view value);
/// Renames the node to the value of its child `key`, which goes. Without such a value the node keeps its name.
void take_name(Frag *frag, const char *key);
/// `fdel` and `freefrag`. True if there was such a node.
bool fremove(FragList list, const char *key);
/// Removes the node of `key` if it has neither value nor children.
void fremove_bare(FragList list, const char *key);
/// `fdel` for a node whose value is to be used: one that has none is freed too, and null is the result.
Frag *fdel_valued(FragList list, const char *key);
/// Turns the list around in place.
void reverse_frags(FragList list);
/// The nodes from `first` on.
size_t count_frags(const Frag *first);
/// Numbers the siblings from 1 by renaming them with the format "%d". The result is their count.
int number_frags(Frag *first);

// Texts.

/// The text that `number` gives in the format "%d".
std::string numbertext(int number);
/// The decimal integer at the start of `text`, as atoi() reads it; a number beyond the range of int wraps around.
int decimal(const char *text);
/// True if `text` begins with `prefix`, in any case with `has_prefix_nocase`.
bool has_prefix(const char *text, std::string_view prefix);
bool has_prefix_nocase(const char *text, std::string_view prefix);
/// True if both are there and equal.
bool same_text(const char *a, const char *b);
/// In lower case (ASCII), as strcasecmp() in the C locale compares.
inline char lowercase(char byte) { return byte >= 'A' && byte <= 'Z' ? static_cast<char>(byte - 'A' + 'a') : byte; }
std::string lowercase(std::string_view text);
/// True for a digit from 0 to 9.
inline bool is_digit(char byte) { return byte >= '0' && byte <= '9'; }
/// True for a blank or a tab.
inline bool is_blank(char byte) { return byte == ' ' || byte == '\t'; }
/// The first byte of `text` that is neither blank nor tab.
inline const char *skip_blanks(const char *text) {
    while (is_blank(*text))
        text++;
    return text;
}
/// The length of the word at `text`, which ends at a blank, a tab or the end.
size_t word_len(const char *text);

// Files.

/// The stream that fopen() opens; null if it can't be opened for anything but a lack of memory, which ends the process.
FILE *open_file(const char *path, const char *mode);

#endif
