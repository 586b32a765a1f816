// Numbered families: counted lists, plain renumbering, filter rules.
#include "frag_tools.h"
#include "nupgrade.h"

#include <cstring>

int norm_netobj(Frag *entry, const char *sublist_key, const char *count_key) {
    int number = 1;
    for (; entry; entry = entry->next) {
        fsetp(&entry->child, "name", fragname(entry), entry);
        renumberfrag(entry, number++);
        if (Frag *sublist = ffind(&entry->child, sublist_key)) {
            sort_frags(&sublist->child);
            int count = number_frags(sublist->child);
            fsetp(&entry->child, count_key, numbertext(count).c_str(), entry);
        }
    }
    return number;
}

// Moves the node at the head of the list to its place among the numbers, which stand behind it in order up to `last`.
static void place_count(FragList list, Frag *last) {
    Frag *made = *list;
    // Most counts come behind all numbers, and then the long list need not be gone through again.
    if (is_digit(*made->name) || fragmatch(last->name, made->name) > 0) {
        sort_frags(list);
        return;
    }
    *list = made->next;
    made->next = nullptr;
    last->next = made;
}

int norm_renumber(FragList db, const char *list_key, const char *count_key, const char *delete_key) {
    if (delete_key)
        fremove(db, delete_key);
    int count = 0;
    Frag *list = ffind(db, list_key);
    Frag *first = nullptr;
    Frag *last = nullptr;
    if (list) {
        sort_frags(&list->child);
        first = list->child;
        for (Frag *frag = first; frag; frag = frag->next) {
            renumberfrag(frag, ++count);
            last = frag;
        }
    }
    if (!count_key)
        return 0;
    fset(db, count_key, numbertext(count).c_str());
    // The numbers are in order. Only the count, which in some families is a child of the list, can disturb it.
    if (first && list->child != first)
        place_count(&list->child, last);
    return 0;
}

// The rule's fields, taken off it and joined by `+`. The file's filter rules have room for 126 bytes, and what goes
// beyond is cut.
static std::string join_rule(Frag *rule) {
    constexpr size_t limit = 126;
    std::string text;
    for (const char *const *key = pfkeynames; *key; key++) {
        Frag *field = fdel(&rule->child, *key);
        if (key != pfkeynames && text.size() < limit)
            text += '+';
        if (field && field->value)
            text.append(field->value, strnlen(field->value, limit - text.size()));
        freefrag(field);
    }
    return text;
}

int norm_pfrules(FragList db, const char *list_key, const char *count_key) {
    fremove(db, count_key);
    int count = 0;
    if (Frag *list = ffind(db, list_key)) {
        sort_frags(&list->child);
        for (Frag *rule = list->child; rule; rule = rule->next) {
            if (has_prefix(fragname(rule), "rule"))
                continue;
            renamefrag(rule, ("rule" + numbertext(++count)).c_str());
            setvalue(rule, join_rule(rule));
        }
    }
    fset(db, count_key, numbertext(count).c_str());
    return 0;
}

int norm_vpndata(FragList db, const char *list_key) {
    Frag *list = ffind(db, list_key);
    if (!list)
        return 0;
    sort_frags(&list->child);
    int number = 1;
    for (Frag *frag = list->child; frag; frag = frag->next)
        if (is_digit(*frag->name)) {
            char text[16];
            snprintf(text, sizeof text, "%04d", number++);
            renamefrag(frag, text);
        }
    sort_frags(&list->child);
    return 0;
}
