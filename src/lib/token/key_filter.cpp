// What of a file an inspection keeps.
#include "key_filter.h"
#include "frag_tools.h"

void key_filter::go_down() {
    is_top = false;
    here = below;
}

// True if the key leads to a node of that name here. `below` becomes what is left of it behind the name.
bool key_filter::leads_to(const char *key, std::string_view name) {
    if (!*key) { // nothing is left of a key that ends in `_`, and it leads to everything
        below = key;
        return true;
    }
    std::string_view component = key_component(key);
    if (component != name)
        return false;
    key += component.size();
    below = *key == '_' ? key + 1 : nullptr;
    return true;
}

bool key_filter::wants(std::string_view name) {
    below = nullptr;
    if (!is_top)
        return here && leads_to(here, name);
    for (const char *const *key = keys; *key; key++)
        if (leads_to(*key, name))
            return true;
    return false;
}
