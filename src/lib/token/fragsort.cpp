// The order of siblings.
#include "frag_tools.h"
#include "nsym.h"

#include <cstring>

int fragmatch(const char *a, const char *b) {
    if (!is_digit(*a) || !is_digit(*b))
        return strcmp(a, b);
    while (*a == '0')
        a++;
    while (*b == '0')
        b++;
    const char *in_a = *a ? a + 1 : a;
    const char *in_b = *b ? b + 1 : b;
    while (is_digit(*in_a) && is_digit(*in_b)) {
        in_a++;
        in_b++;
    }
    if (!*in_a && *in_b)
        return -1;
    if (!*in_b && *in_a)
        return 1;
    return strcmp(a, b);
}

int sort_frags(FragList list) {
    if (!*list)
        return 0;
    size_t in_order = 0;
    size_t out_of_order = 0;
    Frag *middle = *list;
    for (Frag *frag = *list; frag->next; frag = frag->next) {
        if (fragmatch(frag->name, frag->next->name) <= 0)
            in_order++;
        else
            out_of_order++;
        if ((in_order + out_of_order) % 2 == 0)
            middle = middle->next;
    }
    if (in_order < out_of_order) {
        reverse_frags(list);
        out_of_order = in_order;
    }
    if (out_of_order == 0)
        return 0;

    Frag *second = middle->next;
    middle->next = nullptr;
    Frag *first = *list;
    sort_frags(&first);
    sort_frags(&second);

    FragList tail = list;
    while (first && second) {
        Frag *&smaller = fragmatch(first->name, second->name) <= 0 ? first : second;
        *tail = smaller;
        tail = &smaller->next;
        smaller = smaller->next;
    }
    *tail = first ? first : second;
    return 0;
}
