// What the attributes of a policy's template become in a config set.
#include "frag_tools.h"
#include "netperm.h"
#include "translation.h"

#include <cstring>
#include <vector>

int bad_xgateway(Frag *attribute) {
    const char *text = skip_blanks(attribute->value);
    text += rule_marker(text).size();
    if (*text == '*')
        return 0;
    fprintf(stderr, "Ignoring bad xgateway rule %s=%s\n", fragkeyname(attribute), text);
    return 1;
}

namespace {

// Attributes that no config set takes: hosts are the rules' own, and a proxy is no parameter.
bool is_never_taken(const char *name) { return strcmp(name, "hosts") == 0 || strcmp(name, "proxy") == 0; }

// Attributes of which a config set takes one at most.
bool is_login(const char *name) {
    return strcmp(name, "authenticate") == 0 || strcmp(name, "authserver") == 0 || strcmp(name, "password") == 0;
}

// True if the config set of that proxy does not take an attribute of that name, whatever its value is.
bool is_refused(Frag *config_set, const char *name, const char *proxy) {
    if (is_login(name))
        return !needsauth(proxy) || ffind(&config_set->child, name);
    if (strcmp(name, "xgateway") == 0)
        return !needsx(proxy);
    return is_never_taken(name);
}

bool has_bad_value(Frag *attribute) {
    return strcmp(attribute->name, "xgateway") == 0 && attribute->value && bad_xgateway(attribute);
}

// True if the children of the attribute become attributes of its name, each for itself.
bool is_flattened(const Frag *attribute) {
    return attribute->child && strcmp(attribute->name, "url") != 0 && strcmp(attribute->name, "sid") != 0;
}

} // namespace

void addparm(Frag *config_set, Frag *attribute, const char *proxy) {
    // An attribute with children is flattened: each of them takes its name and its place, its own children likewise.
    std::vector<Frag *> pending{attribute};
    while (!pending.empty()) {
        Frag *frag = pending.back();
        pending.pop_back();
        if (is_refused(config_set, frag->name, proxy) || has_bad_value(frag)) {
            freefrag(frag);
        } else if (!is_flattened(frag)) {
            pushfrag(&config_set->child, frag, config_set);
        } else {
            std::string name = fragname(frag);
            sort_frags(&frag->child);
            reverse_frags(&frag->child);
            while (Frag *child = frag->child) {
                frag->child = child->next;
                child->next = nullptr;
                child->parent = frag->parent;
                renamefrag(child, name.c_str());
                pending.push_back(child);
            }
            freefrag(frag);
        }
    }
}

namespace {

// A copy of the node with all below it, linked to nothing but `parent`.
Frag *copy_alone(Frag *frag, Frag *parent) {
    Frag *copy = newsymfrag(frag->name, strlen(frag->name));
    copy->parent = parent;
    copy->attr = frag->attr;
    if (frag->value)
        setvalue(copy, {frag->value, static_cast<size_t>(frag->vlen)});
    copy->child = copy_fragtree(&frag->child, copy);
    return copy;
}

// Drops all values of a login attribute but the first. A config set that takes the first refuses the others, since it
// has one; and a proxy without the need refuses them all.
void drop_refused_logins(Frag *attribute) {
    sort_frags(&attribute->child);
    Frag *first = attribute->child;
    if (first->child)
        return; // what it is flattened to can have another name, and then the second is the first of this name
    freelist(first->next);
    first->next = nullptr;
}

// A copy of the template's attributes, in their order, without what no config set takes.
Frag *copy_usable(Frag *model) {
    Frag *usable = nullptr;
    FragList end = &usable;
    for (Frag *attribute = model->child; attribute; attribute = attribute->next) {
        if (is_never_taken(attribute->name))
            continue;
        std::string name = is_flattened(attribute) ? fragname(attribute) : "";
        if (is_never_taken(name.c_str()))
            continue;
        *end = copy_alone(attribute, nullptr);
        if (is_login(name.c_str()))
            drop_refused_logins(*end);
        end = &(*end)->next;
    }
    return usable;
}

} // namespace

policy_templates::~policy_templates() {
    for (const auto &entry : usable)
        freelist(entry.second);
}

void policy_templates::apply(Frag *model, Frag *config_set, Frag *proxy) {
    auto [known, is_new] = usable.try_emplace(model);
    Frag *&attributes = known->second;
    if (!is_new && model == proxy) {
        // A proxy that is the template of its own rules has changed with the last of them.
        freelist(attributes);
        is_new = true;
    }
    if (is_new)
        attributes = copy_usable(model);
    for (Frag *attribute = attributes; attribute; attribute = attribute->next)
        if (!is_refused(config_set, attribute->name, proxy->name))
            addparm(config_set, copy_alone(attribute, config_set), proxy->name);
}
