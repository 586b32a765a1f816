/// A tree with all that a fragment file can't show: null values, every attribute bit, nodes that nothing lies below.
#ifndef DUMP_H
#define DUMP_H

#include "nsym.h"

#include <string>

/// The siblings from `frag` on, joined by blanks, each as name:attr=value{children}; what is not there is left out.
inline std::string dump(const Frag *frag) {
    std::string text;
    for (bool first = true; frag; frag = frag->next, first = false) {
        text += (first ? "" : " ") + std::string(frag->name);
        if (frag->attr)
            text += ":" + std::to_string(frag->attr);
        if (frag->value)
            text += "=" + std::string(frag->value, static_cast<size_t>(frag->vlen));
        if (frag->child)
            text += "{" + dump(frag->child) + "}";
    }
    return text;
}

/// True if every node of the list and below it points at the node that owns it.
inline bool linked(const Frag *frag, const Frag *parent) {
    for (; frag; frag = frag->next)
        if (frag->parent != parent || !linked(frag->child, frag))
            return false;
    return true;
}

#endif
