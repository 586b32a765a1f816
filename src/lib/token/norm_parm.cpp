// Numbered parameters.
#include "frag_tools.h"
#include "nupgrade.h"

#include <cstring>

void flags_to_name(Frag *frag, Frag *name) {
    const char *rest = name->value ? name->value : "";
    for (;;) {
        if (has_prefix_nocase(rest, "deny-")) {
            frag->attr |= ATTR_DENY;
            rest += strlen("deny-");
        } else if (has_prefix_nocase(rest, "permit-")) {
            frag->attr |= ATTR_PERMIT;
            rest += strlen("permit-");
        } else {
            break;
        }
    }
    std::string text = frag->attr & ATTR_PERMIT ? "permit-" : "";
    text += frag->attr & ATTR_DENY ? "deny-" : "";
    text += rest;
    setvalue(name, text);
}

int norm_parm(Frag *entry, const char *list_key, const char *count_key) {
    Frag *parameter;
    if (Frag *list = fdel(&entry->child, list_key)) {
        parameter = list->child;
        list->child = nullptr;
        freefrag(list);
    } else {
        parameter = entry->child;
        entry->child = nullptr;
    }
    Frag *list = fsetp(&entry->child, list_key, nullptr, entry);
    int number = 1;
    while (parameter) {
        Frag *next = parameter->next;
        std::string base_name = attr_revmap(fragname(parameter));
        if (parameter->child && is_digit(*parameter->child->name)) {
            // Each child of a list parameter is an entry of its own; the child's bits go into its name.
            for (Frag *child = parameter->child; child; child = child->next) {
                Frag *numbered = faddchild(list, numbertext(number++), nullptr);
                std::string text = base_name + "_" + child->name;
                Frag *name = faddchild(numbered, "name", text.c_str());
                faddchild(numbered, "value", child->value);
                flags_to_name(child, name);
            }
            freefrag(parameter);
        } else {
            Frag *numbered = faddchild(list, numbertext(number++), nullptr);
            Frag *name = faddchild(numbered, "name", base_name.c_str());
            pushfrag(&numbered->child, parameter, numbered);
            renamefrag(parameter, "value");
            flags_to_name(parameter, name);
            parameter->attr = 0;
        }
        parameter = next;
    }
    fsetp(&entry->child, count_key, numbertext(number - 1).c_str(), entry);
    return 0;
}
