// Walking the elements of a network object.
#include "frag_tools.h"
#include "nupgrade.h"

#include <cstring>
#include <vector>

int enum_netobj(FragList db, const char *name, enum_callback callback, void *arg) {
    static const char group_mark[] = "$$NETOBJ.";
    if (has_prefix(name, group_mark)) {
        Frag *group = ffind2(db, "netobj_group", name + strlen(group_mark));
        return group ? enum_netgroup(db, group, name, callback, arg) : 1;
    }
    if (Frag *list = ffind2(db, "netobj_list", name))
        return enum_netlist(db, list, name, callback, arg);
    return callback(nullptr, name, arg);
}

int enum_netgroup(FragList db, Frag *group, const char *, enum_callback callback, void *arg) {
    // The groups under way from the outermost in, each with the member to look at next: groups can lie in groups to
    // any depth.
    struct level {
        Frag *group;
        Frag *member;
    };
    Frag *members = ffind(&group->child, "member");
    if (!members)
        return 1;
    fsetp(&group->child, "tag", nullptr, group);
    std::vector<level> levels{{group, members->child}};
    int result = 0;
    while (!levels.empty()) {
        Frag *member = levels.back().member;
        if (result != 0 || !member) {
            fremove(&levels.back().group->child, "tag");
            levels.pop_back();
            continue;
        }
        levels.back().member = member->next;
        const char *member_name = fval(&member->child, "name");
        const char *type = fval(&member->child, "type");
        if (type && *type == 'L') {
            result = member_name ? enum_netlist(db, nullptr, member_name, callback, arg) : 1;
        } else if (type && *type == 'G' && member_name) {
            Frag *inner = ffind2(db, "netobj_group", member_name);
            if (!inner || ffind(&inner->child, "tag"))
                continue;
            members = ffind(&inner->child, "member");
            if (!members) {
                result = 1;
                continue;
            }
            fsetp(&inner->child, "tag", nullptr, inner);
            levels.push_back({inner, members->child});
        }
    }
    return result;
}

int enum_netlist(FragList db, Frag *list, const char *name, enum_callback callback, void *arg) {
    if (!list)
        list = ffind2(db, "netobj_list", name);
    Frag *elements = list ? ffind(&list->child, "element") : nullptr;
    if (!elements)
        return 1;
    for (Frag *element = elements->child; element; element = element->next)
        if (int result = callback(element, name, arg))
            return result;
    return 0;
}
