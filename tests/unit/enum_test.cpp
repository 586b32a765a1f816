// The walk over network objects, authentication and the web proxy's program.
#include "dump.h"
#include "nupgrade.h"
#include "support.h"

#include <gtest/gtest.h>

using std::string;

namespace {
struct walk {
    string seen;
    const char *stop_at = ""; // an address that ends the walk with 7
};
} // namespace

static int note(Frag *element, const char *name, void *arg) {
    walk *w = static_cast<walk *>(arg);
    const char *address = element ? fval(&element->child, "addr") : nullptr;
    w->seen += (w->seen.empty() ? "" : " ") + string(name) + ":" + (address ? address : element ? "?" : "-");
    return address && string(w->stop_at) == address ? 7 : 0;
}

static const char *const objects =
    "netobj_list_l_element_2_addr=a\nnetobj_list_l_element_1_addr=b\nnetobj_list_l_element_3_x=1\n"
    "netobj_list_m_element_1_addr=c\nnetobj_list_none_x=1\n"
    "netobj_group_g_member_2_type=L\nnetobj_group_g_member_2_name=l\nnetobj_group_g_member_1_type=List\n"
    "netobj_group_g_member_1_name=m\n"
    // g1 holds itself, g2 and then m; g2 holds g1 and l.
    "netobj_group_g1_member_1_type=G\nnetobj_group_g1_member_1_name=g1\nnetobj_group_g1_member_2_type=Group\n"
    "netobj_group_g1_member_2_name=g2\nnetobj_group_g1_member_3_type=L\nnetobj_group_g1_member_3_name=m\n"
    "netobj_group_g2_member_1_type=G\nnetobj_group_g2_member_1_name=g1\nnetobj_group_g2_member_2_type=L\n"
    "netobj_group_g2_member_2_name=l\n"
    // What is no member to walk, then a list that is not there.
    "netobj_group_odd_member_1_type=G\nnetobj_group_odd_member_1_name=gone\nnetobj_group_odd_member_2_name=l\n"
    "netobj_group_odd_member_3_type=g\nnetobj_group_odd_member_3_name=g\nnetobj_group_odd_member_4_type=H\n"
    "netobj_group_odd_member_4_name=l\nnetobj_group_odd_member_5_type=G\n"
    "netobj_group_broken_member_1_type=L\nnetobj_group_broken_member_1_name=gone\nnetobj_group_broken_member_2_type=L\n"
    "netobj_group_broken_member_2_name=l\n"
    "netobj_group_outer_member_1_type=G\nnetobj_group_outer_member_1_name=broken\nnetobj_group_outer_member_2_type=L\n"
    "netobj_group_outer_member_2_name=l\n"
    "netobj_group_nameless_member_1_type=L\nnetobj_group_nameless_member_2_type=L\n"
    "netobj_group_nameless_member_2_name=l\n"
    "netobj_group_holder_member_1_type=G\nnetobj_group_holder_member_1_name=empty\nnetobj_group_holder_member_2_type="
    "L\n"
    "netobj_group_holder_member_2_name=l\n"
    "netobj_group_empty_x=1\nnetobj_group_childless_member=\n"
    // A list and a group that is walked twice, once it is out of the way.
    "netobj_group_twice_member_1_type=G\nnetobj_group_twice_member_1_name=g\nnetobj_group_twice_member_2_type=G\n"
    "netobj_group_twice_member_2_name=g\n";

TEST(enumeration, objects) {
    struct row {
        const char *name, *seen;
        int result = 0;
        const char *stop_at = "";
    };
    const row rows[] = {{"l", "l:a l:b l:?"},
                        {"l", "l:a l:b", 7, "b"},
                        {"none", "", 1},
                        {"nobody", "nobody:-"},
                        {"$$NETOBJ.g", "l:a l:b l:? m:c"},
                        {"$$NETOBJ.g", "l:a", 7, "a"},
                        {"$$NETOBJ.gone", "", 1},
                        {"$$NETOBJ.g1", "l:a l:b l:? m:c"},
                        {"$$NETOBJ.g1", "l:a l:b", 7, "b"},
                        {"$$NETOBJ.g2", "m:c l:a l:b l:?"},
                        {"$$NETOBJ.odd", ""},
                        {"$$NETOBJ.broken", "", 1},
                        {"$$NETOBJ.outer", "", 1},
                        {"$$NETOBJ.holder", "", 1},
                        {"$$NETOBJ.nameless", "", 1},
                        {"$$NETOBJ.empty", "", 1},
                        {"$$NETOBJ.childless", ""},
                        {"$$NETOBJ.twice", "l:a l:b l:? m:c l:a l:b l:? m:c"},
                        {"$$netobj.g", "$$netobj.g:-"}};
    for (const row &r : rows) {
        tree db(objects);
        string before = dump(db.head);
        walk w{"", r.stop_at};
        EXPECT_EQ(enum_netobj(db, r.name, note, &w), r.result) << r.name;
        EXPECT_EQ(w.seen, r.seen) << r.name;
        EXPECT_EQ(dump(db.head), before) << r.name; // no mark is left
    }
}

TEST(enumeration, lists_and_groups) {
    tree db(objects);
    fset(db, "netobj_list_childless_element", nullptr);
    walk w;
    EXPECT_EQ(enum_netlist(db, nullptr, "m", note, &w), 0);
    EXPECT_EQ(enum_netlist(db, ffind(db, "netobj_list_m"), "any", note, &w), 0);
    EXPECT_EQ(enum_netlist(db, nullptr, "childless", note, &w), 0);
    EXPECT_EQ(enum_netlist(db, nullptr, "nobody", note, &w), 1);
    EXPECT_EQ(enum_netgroup(db, ffind(db, "netobj_group_g2"), "any", note, &w), 0);
    EXPECT_EQ(w.seen, "m:c any:c m:c l:a l:b l:?");
    // A group that carries the mark already, here one further up, is passed over.
    fset(db, "netobj_group_g1_tag", nullptr);
    w.seen.clear();
    EXPECT_EQ(enum_netobj(db, "$$NETOBJ.g2", note, &w), 0);
    EXPECT_EQ(w.seen, "l:a l:b l:?");
}

TEST(web_proxy, authentication_values) {
    struct row {
        const char *value;
        int on;
    };
    for (const row &r : {row{nullptr, 0},
                         {"", 0},
                         {"never", 0},
                         {"Inherit", 0},
                         {"NEVER", 0},
                         {"always", 1},
                         {" never", 1},
                         {"off", 1},
                         {"0", 1}})
        EXPECT_EQ(is_authon(r.value), r.on) << (r.value ? r.value : "null");
}

TEST(web_proxy, program) {
    const string exec = "def_proxy_http-px_proxy-exec=";
    const string own = "def_proxy_http-px_authenticate=", set1 = "def_proxy_http-px_config-sets_s%5F1_authenticate=";
    const string set2 = "def_proxy_http-px_config-sets_t_authenticate=", global = "def_proxy_global_authenticate=";
    const string policy = "policy_p_parm_authenticate=always\n";
    struct row {
        string before, program; // an empty program: nothing changes
    };
    const row rows[] = {
        {"def_proxy_http-px_x=1\n" + own + "always\n", ""},
        {exec + "./HTTP-XTK\n" + own + "never\n", ""},
        {exec + "other\n", "./http-px"},
        {exec + "\n" + own + "always\n", "./http-xtk"},
        {exec + "./http-px\n" + own + "\n", "./http-xtk"},
        {exec + "./http-px\n" + own + "Never\n" + set1 + "always\n" + global + "x\n", "./http-px"},
        {exec + "./http-px\n" + own + "INHERIT\n" + set1 + "always\n", "./http-xtk"},
        {exec + "./http-px\n" + own + "inherit\n" + set1 + "inherit\n", "./http-px"},
        {exec + "./http-px\n" + own + "x\n" + set1 + "never\n", "./http-xtk"},
        {exec + "./http-px\n" + set1 + "never\n" + set2 + "always\n" + global + "x\n", "./http-px"},
        {exec + "./http-px\n" + set1 + "inherit\n" + set2 + "always\n", "./http-xtk"},
        {exec + "./http-px\n" + own.substr(0, own.size() - 1) + "_z=1\n" + set1.substr(0, set1.size() - 1) + "_z=1\n",
         "./http-px"},
        {exec + "./http-px\n" + global + "never\n", "./http-xtk"},
        {exec + "./http-px\n" + global.substr(0, global.size() - 1) + "_z=never\n", "./http-xtk"},
        // A policy counts where it names an open set, with a value, and asks for authentication.
        {exec + "./http-px\n" + set2 + "inherit\n" + policy + "policy_p_proxy_t=http-px\n", "./http-xtk"},
        {exec + "./http-px\n" + set2 + "never\n" + policy + "policy_p_proxy_t=http-px\n", "./http-px"},
        {exec + "./http-px\n" + set2 + "inherit\n" + policy + "policy_p_proxy_u=http-px\n", "./http-px"},
        {exec + "./http-px\n" + set2 + "inherit\n" + policy + "policy_p_proxy_t_z=http-px\n", "./http-px"},
        {exec + "./http-px\n" + set2 + "inherit\npolicy_p_parm_authenticate=\npolicy_p_proxy_t=http-px\n", "./http-px"},
        {exec + "./http-px\n" + set2 + "inherit\npolicy_p_parm_authenticate=never\npolicy_p_proxy_t=\n", "./http-xtk"},
        {exec + "./http-px\n" + policy + "policy_p_proxy_t=http-px\n", "./http-px"},
        // The set's clear name is the key below the policy.
        {exec + "./http-px\n" + set1 + "inherit\n" + policy + "policy_p_proxy_s%5F1=http-px\n", "./http-px"},
        {exec + "./http-px\n" + set1 + "inherit\n" + policy + "policy_p_proxy_s_1=http-px\n", "./http-xtk"},
    };
    for (const row &r : rows) {
        tree db(r.before);
        EXPECT_EQ(do_http_hack(db), 0) << r.before;
        tree expected(r.before);
        if (!r.program.empty())
            fset(expected, exec.c_str(), r.program.c_str());
        EXPECT_EQ(db.text(), expected.text());
    }
    tree db("def_proxy_tn-px_x=1\n");
    EXPECT_EQ(do_http_hack(db), 1);
}
