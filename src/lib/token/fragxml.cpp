// XML: a child with a value is an attribute of its parent's element, a child with children an element inside it.
#include "nsym.h"

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

} // namespace

int outxmlfile(FILE *stream, Frag *frag, int indent) {
    if (!frag)
        return 0;
    // The open elements, each with the child to look at next: no depth of the tree costs stack.
    struct element {
        Frag *frag;
        Frag *next;
    };
    std::vector<element> open{{frag, frag->child}};
    open_element(stream, frag, indent);
    while (!open.empty()) {
        element &top = open.back();
        while (top.next && !top.next->child)
            top.next = top.next->next;
        if (Frag *inner = top.next) {
            top.next = inner->next;
            indent += 2;
            open_element(stream, inner, indent);
            open.push_back({inner, inner->child});
        } else {
            close_element(stream, top.frag, indent);
            indent -= 2;
            open.pop_back();
        }
    }
    return 0;
}
