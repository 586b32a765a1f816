/// What of a file an inspection keeps: the nodes that some keys lead to.
#ifndef KEY_FILTER_H
#define KEY_FILTER_H

#include "nsym.h"

/// Follows the keys while a reader goes through the components of its lines, and says which nodes are wanted. With the
/// keys "a_b" and "c_" these are `a`, `a_b` and `c`, and all that stands below `c`.
struct key_filter {
    /// The keys, ended by a null. No two of them begin with the same component.
    explicit key_filter(const char *const *wanted_keys) : keys(wanted_keys) {}
    key_filter(const key_filter &) = delete;
    key_filter &operator=(const key_filter &) = delete;

    /// The next component stands at the top of the tree.
    void go_top() { is_top = true; }
    /// The next component stands below the one that was asked for last.
    void go_down();
    /// True if no node that stands here is wanted, whatever its name.
    bool wants_nothing() const { return !is_top && !here; }
    /// True if the node of that name is wanted.
    bool wants(std::string_view name);

    /// Takes the place of every node that is not wanted. It has a value, so that a reader gives it none.
    Frag unwanted{nullptr, nullptr, nullptr, nullptr, no_value, 0, 0};

private:
    bool leads_to(const char *key, std::string_view name);

    const char *const *keys;
    bool is_top = true;
    const char *here = nullptr;  ///< below the top: the rest of the key that led here, null if none did
    const char *below = nullptr; ///< the same for what stands below the component that was asked for last
    char no_value[1] = {0};
};

#endif
