// XML: a child with a value is an attribute of its parent's element, a child with children an element inside it.
#include "nsym.h"

#include <vector>

namespace {

void write_blanks(FILE *stream, int count) { fprintf(stream, "%*s", count, ""); }

void open_element(FILE *stream, Frag *frag, int indent) {
    write_blanks(stream, indent);
    fprintf(stream, "<%s ", fragname(frag));
    for (Frag *child = frag->child; child; child = child->next)
        if (child->value)
            fprintf(stream, "%s=\"%s\" ", fragname(child), child->value);
    fputs(">\n", stream);
}

void close_element(FILE *stream, Frag *frag, int indent) {
    write_blanks(stream, indent);
    fprintf(stream, "</%s>\n", fragname(frag));
}

// The open elements, outermost first, each with the child to look at next. This takes the place of recursion, which a
// deep tree would make too deep for the stack.
struct element {
    Frag *frag;
    Frag *next;
};
std::vector<element> open_elements;

// Goes through the elements below the node and calls `open` and `close` for each, the node's own included.
template <class Open, class Close> void walk_elements(Frag *frag, Open open, Close close) {
    open(frag);
    open_elements.push_back({frag, frag->child});
    while (!open_elements.empty()) {
        element &top = open_elements.back();
        while (top.next && !top.next->child)
            top.next = top.next->next;
        if (Frag *inner = top.next) {
            top.next = inner->next;
            open(inner);
            open_elements.push_back({inner, inner->child});
        } else {
            close(top.frag);
            open_elements.pop_back();
        }
    }
}

} // namespace

void reserve_xml(FragList list) {
    for (Frag *frag = *list; frag; frag = frag->next)
        walk_elements(
            frag, [](Frag *) {}, [](Frag *) {});
}

int outxmlfile(FILE *stream, Frag *frag, int indent) {
    if (!frag)
        return 0;
    // Behind a failed write no more is written: the blanks in front of the elements of a deep tree can be more than any
    // disk holds, and would take as long.
    auto open = [&](Frag *inner) {
        if (!ferror(stream))
            open_element(stream, inner, indent);
        indent += 2;
    };
    auto close = [&](Frag *inner) {
        indent -= 2;
        if (!ferror(stream))
            close_element(stream, inner, indent);
    };
    walk_elements(frag, open, close);
    return 0;
}
