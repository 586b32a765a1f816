// What passes and walks do that no fragment file shows.
#include "dump.h"
#include "nupgrade.h"
#include "support.h"

#include <gtest/gtest.h>

using std::string;

// A number that the count of elements meets again costs no element its address.
TEST(nupgrade, numbers_met_again) {
    tree addresses("netobj_list_Inside_element_2_addr=old\nip_insideaddr=new\n");
    canon_ip(addresses);
    tree aliases("netobj_list_e0$INTERFACE_element_2_addr=old\nnetobj_list_Inside_element_1_interface=e0\n"
                 "netobj_list_Inside_element_1_addr=new\nnetobj_list_Inside_element_1_alias=yes\n");
    norm_interfaces(aliases);
    for (const string &text : {addresses.text(), aliases.text()}) {
        EXPECT_NE(text.find("_addr=old\n"), string::npos) << text;
        EXPECT_NE(text.find("_addr=new\n"), string::npos) << text;
    }
}

TEST(nupgrade, flags_in_a_name) {
    struct {
        const char *name, *expected;
        long attr, bits;
    } rows[] = {{nullptr, "deny-", 2, 2},          {"", "", 0, 0},
                {"permit-", "permit-", 0, 1},      {"DENY-Permit-deny-x", "permit-deny-x", 0, 3},
                {"deny-x", "permit-deny-x", 1, 3}, {"absorb-deny-x", "permit-absorb-deny-x", 5, 5},
                {"denyx", "denyx", 8, 8}};
    for (const auto &r : rows) {
        tree db("value=\nname=\n");
        setvalue(db.head->next, r.name);
        db.head->attr = r.attr;
        flags_to_name(db.head, db.head->next);
        EXPECT_EQ(dump(db.head->next), string("name=") + r.expected);
        EXPECT_EQ(db.head->attr, r.bits);
    }
}

TEST(nupgrade, odd_interface_names) {
    const char *rows[][2] = {{"e_0", "netobj_list_e_0$INTERFACE"},
                             {":1", "netobj_list_$INTERFACE"},
                             {"a=b", "netobj_list_a"},
                             {"_", "netobj_list__$INTERFACE"},
                             {"e0:x_y", "netobj_list_e0$INTERFACE"},
                             {" e0", "netobj_list_ e0$INTERFACE"}};
    for (const auto &[interface, list] : rows) {
        const string element = "netobj_list_Inside_element_", name = string("_interface=") + interface + "\n";
        tree db(element + "1_addr=a\n" + element + "1" + name + element + "2" + name + element + "2_addr=b\n" +
                element + "2_alias=yes\n");
        norm_interfaces(db);
        Frag *alias = ffind2(db, list, "element_1");
        ASSERT_NE(alias, nullptr) << interface;
        EXPECT_EQ(dump(alias->child), string("interface=") + interface + " addr=b");
        EXPECT_STREQ(fval(db, "netobj_list_Inside_element_1_addr"), "a");
        EXPECT_STREQ(fval(db, "netobj_list_all%5Finterfaces_element_1_interface"), interface);
    }
}

TEST(nupgrade, lists_of_interfaces) {
    tree db("netobj_list_Inside_element_1_interface=e0\nnetobj_list_none_x=1\nloose_interface=e1\n");
    EXPECT_EQ(is_in_list(db, "Inside", "e0"), 1);
    const char *none[][2] = {{"Inside", "E0"}, {"none", "e0"}, {"gone", "e0"}, {nullptr, "e0"}, {"Inside", nullptr}};
    for (const auto &[list, interface] : none)
        EXPECT_EQ(is_in_list(db, list, interface), 0);
    EXPECT_EQ(add_to_allif(db, ffind(db, "loose")), 0); // no list above it to name
    EXPECT_EQ(add_to_allif(db, ffind(db, "netobj_list_Inside_element_1")), 0);
    EXPECT_EQ(add_to_allif(db, ffind(db, "netobj_list_none")), 1);
    EXPECT_EQ(dump(ffind(db, "netobj_list_all%5Finterfaces_element")),
              "element{2{location=Inside interface=e0} 1{interface=e1}}");
}

static int note(Frag *element, const char *name, void *arg) {
    *static_cast<string *>(arg) += string(name) + ":" + fval(&element->child, "addr") + " ";
    return 0;
}

TEST(enumeration, lists_and_groups_that_are_handed_in) {
    tree db("netobj_list_l_element_1_addr=a\nnetobj_list_m_element_1_addr=b\nnetobj_group_h_member_1_type=G\n"
            "netobj_group_h_member_1_name=g\nnetobj_group_h_member_2_type=L\nnetobj_group_h_member_2_name=m\n"
            "netobj_group_g_member_1_type=L\nnetobj_group_g_member_1_name=l\n");
    fset(db, "netobj_list_childless_element", nullptr);
    string seen;
    EXPECT_EQ(enum_netlist(db, nullptr, "m", note, &seen), 0);
    EXPECT_EQ(enum_netlist(db, ffind(db, "netobj_list_m"), "any", note, &seen), 0);
    EXPECT_EQ(enum_netlist(db, nullptr, "childless", note, &seen), 0);
    EXPECT_EQ(enum_netlist(db, nullptr, "nobody", note, &seen), 1);
    EXPECT_EQ(enum_netgroup(db, ffind(db, "netobj_group_h"), "any", note, &seen), 0);
    EXPECT_EQ(seen, "m:b any:b l:a m:b ");
    // A group that carries the mark already, here one further up, is passed over.
    fset(db, "netobj_group_g_tag", nullptr);
    seen.clear();
    EXPECT_EQ(enum_netobj(db, "$$NETOBJ.h", note, &seen), 0);
    EXPECT_EQ(seen, "m:b ");
}

TEST(web_proxy, authentication_values) {
    for (const char *off : {"", "never", "Inherit", "NEVER"})
        EXPECT_EQ(is_authon(off), 0) << off;
    EXPECT_EQ(is_authon(nullptr), 0);
    for (const char *on : {"always", " never", "off", "0"})
        EXPECT_EQ(is_authon(on), 1) << on;
}
