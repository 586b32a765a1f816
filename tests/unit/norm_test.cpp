// From the canonical layout to the numbered one.
#include "dump.h"
#include "nupgrade.h"
#include "support.h"

#include <gtest/gtest.h>
#include <sstream>

using std::string;

// What every numbered database without rules, maps and routes begins with.
static const string no_rules = "nat_numrules=0\npfedit_fwd_numrules=0\npfedit_lcl_numrules=0\n";
static const string no_maps = "dest_num_entries=0\nsroute_num_entries=0\nmap_num_entries=0\n";

static std::vector<string> lines(const string &text) {
    std::istringstream in(text);
    std::vector<string> all;
    for (string line; std::getline(in, line);)
        all.push_back(line);
    return all;
}

// The lines of the text with `front` in front of each.
static string prefixed(const string &front, const string &text) {
    string all;
    for (const string &line : lines(text))
        all += front + line + "\n";
    return all;
}

static string empty_list(int number, const string &name) {
    string key = "netobj_list_" + std::to_string(number);
    return key + "_name=" + name + "\n" + key + "_num_elements=0\n";
}

TEST(norm, example_to_the_canonical_layout) {
    scratch_dir dir;
    tree db;
    importffile(dir.write("env", "def_num_proxies=1\n"
                                 "def_proxy_1_realname=tn-px\n"
                                 "def_proxy_1_name=tn-px\n"
                                 "def_proxy_1_num_parms=1\n"
                                 "def_proxy_1_parm_1_name=proxy-exec\n"
                                 "def_proxy_1_parm_1_value=./tn-px\n"
                                 "cust_num_proxies=1\n"
                                 "cust_proxy_1_name=tn-px-2\n"
                                 "cust_proxy_1_realname=tn-px\n"
                                 "cust_proxy_1_num_parms=1\n"
                                 "cust_proxy_1_parm_1_name=permit-hosts_0\n"
                                 "cust_proxy_1_parm_1_value=*\n"
                                 "policy_num_entries=1\n"
                                 "policy_1_name=tn-px-1\n"
                                 "policy_1_num_proxies=1\n"
                                 "policy_1_proxy_1_name=tn-px-2\n"
                                 "policy_1_num_parms=1\n"
                                 "policy_1_parm_1_name=desc\n"
                                 "policy_1_parm_1_value=tn-px\n"
                                 "netobj_num_list=1\n"
                                 "netobj_list_1_name=Trusted$LIST\n"
                                 "netobj_list_1_num_elements=1\n"
                                 "netobj_list_1_element_1_addr=*\n")
                    .c_str(),
                db, 0);
    EXPECT_EQ(norm_fragtree(db), 0);
    EXPECT_EQ(db.text(), "netobj_list_Trusted$LIST_element_1_addr=*\n"
                         "policy_tn-px-1_parm_desc=tn-px\n"
                         "policy_tn-px-1_proxy_tn-px-2=tn-px\n"
                         "def_proxy_tn-px_config-sets_tn-px-2_hosts_permit-0=*\n"
                         "def_proxy_tn-px_proxy-exec=./tn-px\n"
                         "def_proxy_tn-px_name=tn-px\n");
    EXPECT_EQ(ffind(db, "def_proxy_tn-px_config-sets_tn-px-2_hosts_0")->attr, ATTR_PERMIT);
}

TEST(norm, example_to_the_numbered_layout) {
    tree db("def_proxy_tn-px_name=tn-px\n"
            "def_proxy_tn-px_proxy-exec=./tn-px\n"
            "def_proxy_tn-px_config-sets_tn-px-2_hosts_permit-0=*\n"
            "policy_tn-px-1_proxy_tn-px-2=tn-px\n"
            "policy_tn-px-1_parm_desc=tn-px\n"
            "netobj_list_Trusted$LIST_element_1_addr=*\n");
    EXPECT_EQ(norm41(db), 0);
    EXPECT_EQ(db.text(), no_rules + no_maps +
                             "cust_num_proxies=1\n"
                             "cust_proxy_1_realname=tn-px\n"
                             "cust_proxy_1_name=tn-px-2\n"
                             "cust_proxy_1_num_parms=1\n"
                             "cust_proxy_1_parm_1_value=*\n"
                             "cust_proxy_1_parm_1_name=permit-hosts_0\n"
                             "def_num_proxies=1\n"
                             "def_proxy_1_name=tn-px\n"
                             "def_proxy_1_realname=tn-px\n"
                             "def_proxy_1_num_parms=1\n"
                             "def_proxy_1_parm_1_value=./tn-px\n"
                             "def_proxy_1_parm_1_name=proxy-exec\n"
                             "policy_num_entries=1\n"
                             "policy_1_parm_1_value=tn-px\n"
                             "policy_1_parm_1_name=desc\n"
                             "policy_1_num_parms=1\n"
                             "policy_1_num_proxies=1\n"
                             "policy_1_name=tn-px-1\n"
                             "policy_1_proxy_1_name=tn-px-2\n"
                             "netobj_num_list=5\n" +
                             empty_list(1, "all_interfaces") + empty_list(2, "Inside") + empty_list(3, "Outside") +
                             empty_list(4, "Service") +
                             "netobj_list_5_num_elements=1\n"
                             "netobj_list_5_name=Trusted$LIST\n"
                             "netobj_list_5_element_1_addr=*\n");
}

TEST(norm, empty_database_after_a_canonical_pass) {
    tree db;
    norm_fragtree(db);
    norm41(db);
    EXPECT_EQ(db.text(), no_rules + no_maps + "cust_num_proxies=0\nnetobj_num_list=4\n" +
                             empty_list(1, "all_interfaces") + empty_list(2, "Service") + empty_list(3, "Outside") +
                             empty_list(4, "Inside"));
}

TEST(norm, sibling_orders) {
    tree db("def_proxy_b_x=1\ndef_proxy_b_y%5F=2\ndef_proxy_b_config-sets_s1_p=1\ndef_proxy_b_config-sets_s2_p=\n"
            "def_proxy_a_config-sets_s3=1\ndef_proxy_a_name=other\ncust_proxy_old_x=1\n"
            "policy_q_proxy_s1=b\npolicy_q_proxy_s%5F2=b\npolicy_p=1\npolicy_p_parm_e=1\npolicy_p_parm_deny-f%5F0=\n"
            "netobj_group_g_member_10_name=m\nnetobj_group_g_member_9_name=n\nnetobj_group_h%25_x=1\n"
            "map_num_entries=7\nmap_10_src=a\nmap_9_src=b\nmap_numrules=3\nsroute_2_x=1\ndest_7_pd=P\ndest_num_x=1\n"
            "menu_meta_3_x=1\nmenu_meta_1_x=2\nnat_rule_3_x=1\nnat_rule_1_x=2\nnat_numrules=9\n"
            "link_12_x=1\nlink_7_x=2\nlink_note=3\nkey_0002_x=1\nkey_a_x=2\nkey_1_x=3\n");
    norm41(db);
    EXPECT_EQ(db.text(),
              "pfedit_fwd_numrules=0\npfedit_lcl_numrules=0\n"
              "def_num_proxies=2\n"
              "def_proxy_1_name=other\ndef_proxy_1_realname=a\ndef_proxy_1_num_parms=0\n"
              "def_proxy_2_name=b\ndef_proxy_2_realname=b\ndef_proxy_2_num_parms=2\n"
              "def_proxy_2_parm_2_value=2\ndef_proxy_2_parm_2_name=y_\n"
              "def_proxy_2_parm_1_value=1\ndef_proxy_2_parm_1_name=x\n"
              // The set collected last comes first; the one that stood in `cust_proxy` is its own owner.
              "cust_num_proxies=4\ncust_proxy_1_realname=b\ncust_proxy_1_name=s2\ncust_proxy_1_num_parms=1\n"
              "cust_proxy_1_parm_1_value=\ncust_proxy_1_parm_1_name=p\n"
              "cust_proxy_2_realname=b\ncust_proxy_2_name=s1\ncust_proxy_2_num_parms=1\n"
              "cust_proxy_2_parm_1_value=1\ncust_proxy_2_parm_1_name=p\n"
              "cust_proxy_3=1\ncust_proxy_3_realname=a\ncust_proxy_3_name=s3\ncust_proxy_3_num_parms=0\n"
              "cust_proxy_4_realname=old\ncust_proxy_4_name=old\ncust_proxy_4_num_parms=1\n"
              "cust_proxy_4_parm_1_value=1\ncust_proxy_4_parm_1_name=x\n"
              "policy_num_entries=2\n"
              "policy_1=1\npolicy_1_parm_2_value=\npolicy_1_parm_2_name=deny-f_0\n"
              "policy_1_parm_1_value=1\npolicy_1_parm_1_name=e\npolicy_1_num_parms=2\npolicy_1_num_proxies=0\n"
              "policy_1_name=p\n"
              "policy_2_num_parms=0\npolicy_2_num_proxies=2\npolicy_2_name=q\n"
              "policy_2_proxy_1_name=s1\npolicy_2_proxy_2_name=s_2\n"
              "netobj_num_list=4\nnetobj_num_group=2\n" +
                  empty_list(1, "all_interfaces") + empty_list(2, "Inside") + empty_list(3, "Outside") +
                  empty_list(4, "Service") +
                  "netobj_group_1_num_members=2\nnetobj_group_1_name=g\n"
                  "netobj_group_1_member_1_name=n\nnetobj_group_1_member_2_name=m\n"
                  "netobj_group_2_name=h%\nnetobj_group_2_x=1\n"
                  "map_1_src=b\nmap_2_src=a\nmap_num_entries=2\n"
                  "sroute_1_x=1\nsroute_num_entries=1\ndest_1_pd=P\ndest_num_entries=1\n"
                  "menu_meta_1_x=2\nmenu_meta_2_x=1\n"
                  "nat_rule_1_x=2\nnat_rule_2_x=1\nnat_numrules=2\n"
                  "link_0001_x=2\nlink_0002_x=1\nlink_note=3\nkey_0001_x=3\nkey_0002_x=1\nkey_a_x=2\n");
}

TEST(norm, names_of_parameters) {
    struct row {
        const char *parameter, *names;
        long attr = 0;
    };
    const row rows[] = {{"x", "x"},
                        {"x", "permit-x", 1},
                        {"x", "deny-x", 2},
                        {"x", "permit-deny-x", 3},
                        {"x", "absorb-x", 4},
                        {"x", "onlyon-x", 8},
                        {"x", "absorb-x", 12},
                        {"x", "permit-x", 5},
                        {"x", "deny-x", 10},
                        {"x", "permit-deny-x", 15},
                        {"hosts_permit-0", "permit-hosts_0"},
                        {"hosts_permit-deny-0", "permit-deny-hosts_0"},
                        {"hosts_absorb-0", "hosts_0"},
                        {"hosts_0", "permit-hosts_0", 1},
                        {"hosts_deny-0", "permit-deny-hosts_0", 1},
                        {"hosts_permit-0", "permit-absorb-hosts_0", 4},
                        {"hosts_00", "hosts_00"},
                        {"permit-relay", "permit-relay"},
                        {"permit-relay", "permit-deny-relay-permit", 3},
                        {"permit-relay_0", "permit-relay_0"},
                        {"use%5Fname%5Flogs", "use_name_logs"},
                        {"%25", "%"},
                        {"", ""}};
    for (const row &r : rows) {
        tree db(string("entry_") + r.parameter + "=v\n");
        Frag *entry = db.head;
        entry->child->attr |= r.attr;
        EXPECT_EQ(norm_parm(entry, "parm", "num_parms"), 0);
        EXPECT_EQ(db.text(), string("entry_num_parms=1\nentry_parm_1_value=v\nentry_parm_1_name=") + r.names + "\n");
        EXPECT_EQ(ffind(db, "entry_parm_1_value")->attr, 0);
    }
}

TEST(norm, parameters) {
    struct row {
        const char *before, *after;
    };
    const row rows[] = {
        {"", "num{parms=0} parm"},
        {"h=lost\nh_0=a\nh_x=\nh_1_y=d\ns=1\ns_sub=2\nnull_sub=3\n",
         "num{parms=5} parm{5{value{sub=3} name=null} 4{value=1{sub=2} name=s} 3{value name=h_1} 2{value= name=h_x} "
         "1{value=a name=h_0}}"},
        // A child `parm` holds the parameters, and what else the entry has stays.
        {"x=1\nparm_a%5F0=2\nparm_Deny-permit-DENY-b=3\nname=y\n",
         "num{parms=2} parm{2{value=3 name=permit-deny-b} 1{value=2 name=a_0}} x=1 name=y"},
        {"num_proxies=1\nparm_permit-=\n", "parm{1{value= name=permit-}} num{parms=1 proxies=1}"},
        {"parm=\nx=1\n", "num{parms=0} parm x=1"},
    };
    for (const row &r : rows) {
        tree db("entry=\n");
        // The names of a policy's parameters keep their prefixes, so no file reader may see them.
        std::vector<string> all = lines(r.before);
        for (auto line = all.rbegin(); line != all.rend(); ++line)
            fsetp(&db.head->child, line->c_str(), line->c_str() + line->find('=') + 1, db.head);
        norm_parm(db.head, "parm", "num_parms");
        EXPECT_EQ(dump(db.head->child), r.after) << r.before;
        EXPECT_TRUE(linked(db.head, nullptr)) << r.before;
    }
}

TEST(norm, flags_in_a_name) {
    struct row {
        const char *name, *expected;
        long attr, bits;
    };
    for (const row &r :
         {row{nullptr, "deny-", 2, 2}, row{"", "", 0, 0}, row{"DENY-Permit-deny-x", "permit-deny-x", 0, 3},
          row{"permit-", "permit-", 0, 1}, row{"absorb-deny-x", "permit-absorb-deny-x", 5, 5},
          row{"deny-x", "permit-deny-x", 1, 3}, row{"denyx", "denyx", 8, 8}}) {
        tree db("value=\nname=\n");
        setvalue(db.head->next, r.name);
        db.head->attr = r.attr;
        flags_to_name(db.head, db.head->next);
        EXPECT_EQ(dump(db.head->next), string("name=") + r.expected);
        EXPECT_EQ(db.head->attr, r.bits);
    }
}

TEST(norm, filter_rules) {
    const string longer(200, 'c'), pluses(9, '+');
    struct row {
        string before, after;
    };
    const row rows[] = {
        {"", "numrules=0\n"},
        {"10_type=t\n9_comment=c\n9_x=1\nnumrules=7\n7_proto_y=1\n",
         "numrules=3\nrule1=" + pluses + "\nrule2=" + pluses + "c\nrule2_x=1\nrule3=t" + pluses + "\n"},
        {"rule7_type=t\n1=old\n1_dstmask=\n1_srcport=1,2\n1_dstaddr=*\n",
         "numrules=1\nrule1=+++1,2++++*++\nrule7_type=t\n"},
        {"1_comment=" + longer + "\n", "numrules=1\nrule1=" + pluses + string(117, 'c') + "\n"},
        {"1_comment=" + string(117, 'c') + "\n", "numrules=1\nrule1=" + pluses + string(117, 'c') + "\n"},
        {"1_type=" + longer + "\n1_comment=x\n", "numrules=1\nrule1=" + string(126, 'c') + "\n"},
        {"1_type=" + string(125, 'c') + "\n1_interface=x\n", "numrules=1\nrule1=" + string(125, 'c') + "+\n"},
    };
    for (const row &r : rows) {
        tree db(prefixed("pfedit_lcl_", r.before));
        EXPECT_EQ(norm_pfrules(db, "pfedit_lcl", "pfedit_lcl_numrules"), 0);
        EXPECT_EQ(db.text(), prefixed("pfedit_lcl_", r.after));
    }
}

TEST(norm, small_steps) {
    tree db("a_2_x=1\na_10_x=3\na_b_x=4\na_9_x=2\na_numrules=7\n");
    EXPECT_EQ(norm_renumber(db, "a", "c_n", "a_numrules"), 0);
    EXPECT_EQ(db.text(), "c_n=4\na_1_x=1\na_2_x=2\na_3_x=3\na_4_x=4\n");
    EXPECT_EQ(norm_renumber(db, "none", nullptr, nullptr), 0);
    EXPECT_EQ(norm_vpndata(db, "none"), 0);
    EXPECT_EQ(names_of(db.head), "c a");
    EXPECT_EQ(norm_netobj(nullptr, "element", "num_elements"), 1);
    tree lists("l%5F_element_3_a=1\nl%5F_element_1_a=2\nl%5F_num_elements=7\nm_x=1\n");
    EXPECT_EQ(norm_netobj(lists.head, "element", "num_elements"), 3);
    EXPECT_EQ(lists.text(), "1_name=l_\n1_element_1_a=2\n1_element_2_a=1\n1_num_elements=2\n2_name=m\n2_x=1\n");
    // A name in clear has at most 63 bytes.
    tree long_name("x=1\n");
    renamefrag(long_name.head, string(100, 'n').c_str());
    norm_netobj(long_name.head, "element", "num_elements");
    EXPECT_EQ(long_name.text(), "1=1\n1_name=" + string(63, 'n') + "\n");
}

TEST(norm, interfaces) {
    struct row {
        const char *before, *after; // what stands below `netobj_list`; the alias lists' counts come later
    };
    const row rows[] = {
        {"",
         "all%5Finterfaces_num_elements=0\nInside_num_elements=0\nOutside_num_elements=0\nService_num_elements=0\n"},
        // Only elements with an interface stay, aliases go to their interface's list, and its name ends at a colon.
        {"Inside_element_1_interface=e0\nInside_element_2_addr=a\nInside_element_3_alias=YES\n"
         "Inside_element_3_interface=e0:1\nInside_element_4_alias=yes\nInside_element_4_addr=b\n"
         "Inside_element_5_interface= \t\nInside_element_6_interface=e1:2:3\nInside_element_6_alias=no\n",
         "all%5Finterfaces_num_elements=2\nall%5Finterfaces_element_2_location=Inside\n"
         "all%5Finterfaces_element_2_interface=e1:2:3\nall%5Finterfaces_element_1_location=Inside\n"
         "all%5Finterfaces_element_1_interface=e0\ne0$INTERFACE_element_1_interface=e0:1\nOutside_num_elements=0\n"
         "Service_num_elements=0\nInside_num_elements=2\nInside_element_1_interface=e0\n"
         "Inside_element_2_interface=e1:2:3\n"},
        // Inside goes before Outside and Outside before Service, whatever the case of the name.
        {"Service_element_1_interface=E0\nInside_element_1_interface=e0\nOutside_element_1_interface=e1\n"
         "Service_element_2_interface=e1\nService_element_3_interface=e2\n",
         "all%5Finterfaces_num_elements=3\n"
         "all%5Finterfaces_element_3_location=Inside\nall%5Finterfaces_element_3_interface=e0\n"
         "all%5Finterfaces_element_1_location=Service\nall%5Finterfaces_element_1_interface=e2\n"
         "all%5Finterfaces_element_2_location=Outside\nall%5Finterfaces_element_2_interface=e1\n"
         "Service_num_elements=3\nService_element_1_interface=E0\nService_element_2_interface=e1\n"
         "Service_element_3_interface=e2\nInside_num_elements=1\nInside_element_1_interface=e0\n"
         "Outside_num_elements=1\nOutside_element_1_interface=e1\n"},
        // Entries that no location list bears out are kept and marked.
        {"all%5Finterfaces_num_elements=99\nall%5Finterfaces_element_7_interface=e9\n"
         "all%5Finterfaces_element_7_location=Inside\nall%5Finterfaces_element_2_interface=e8\n"
         "all%5Finterfaces_element_5_location=x\nall%5Finterfaces_element_6_interface=E0\n"
         "all%5Finterfaces_element_6_location=Outside\nall%5Finterfaces_element_8_interface=z\n"
         "all%5Finterfaces_element_8_location=other\nother_element_1_interface=z\nInside_element_1_interface=e0\n",
         "Outside_num_elements=0\nService_num_elements=0\nall%5Finterfaces_num_elements=5\n"
         "all%5Finterfaces_element_5_location=Inside\nall%5Finterfaces_element_5_interface=e0\n"
         "all%5Finterfaces_element_1_location=Unknown\nall%5Finterfaces_element_1_interface=e8\n"
         "all%5Finterfaces_element_2_location=Unknown\n"
         "all%5Finterfaces_element_3_interface=e9\nall%5Finterfaces_element_3_location=Unknown\n"
         "all%5Finterfaces_element_4_interface=z\nall%5Finterfaces_element_4_location=other\n"
         "other_element_1_interface=z\nInside_num_elements=1\nInside_element_1_interface=e0\n"},
        // New aliases stand behind those of the file.
        {"e0$INTERFACE_element_1_addr=old\nInside_element_2_interface=e0\nInside_element_2_alias=1\n",
         "all%5Finterfaces_num_elements=0\nOutside_num_elements=0\nService_num_elements=0\n"
         "e0$INTERFACE_element_2_interface=e0\ne0$INTERFACE_element_1_addr=old\nInside_num_elements=0\n"},
    };
    for (const row &r : rows) {
        tree db(prefixed("netobj_list_", r.before));
        EXPECT_EQ(norm_interfaces(db), 0);
        string text;
        for (const string &line : lines(db.text()))
            if (line.find("$INTERFACE_num_elements=") == string::npos)
                text += line + "\n";
        EXPECT_EQ(text, prefixed("netobj_list_", r.after)) << r.before;
    }
    // A number that the count meets again costs no alias its address.
    tree db("netobj_list_e0$INTERFACE_element_2_addr=old\nnetobj_list_Inside_element_1_interface=e0\n"
            "netobj_list_Inside_element_1_addr=new\nnetobj_list_Inside_element_1_alias=yes\n");
    norm_interfaces(db);
    EXPECT_NE(db.text().find("_addr=old\n"), string::npos);
    EXPECT_NE(db.text().find("_addr=new\n"), string::npos);
}

TEST(norm, odd_interface_names) {
    struct row {
        const char *interface, *list;
    };
    for (const row &r : {row{"e_0", "netobj_list_e_0$INTERFACE"}, row{":1", "netobj_list_$INTERFACE"},
                         row{"a=b", "netobj_list_a"}, row{"_", "netobj_list__$INTERFACE"},
                         row{"e0:x_y", "netobj_list_e0$INTERFACE"}, row{" e0", "netobj_list_ e0$INTERFACE"}}) {
        tree db("netobj_list_Inside_element_1_addr=a\nnetobj_list_Inside_element_2_addr=b\n");
        for (const char *element : {"netobj_list_Inside_element_1_interface", "netobj_list_Inside_element_2_interface"})
            fset(db, element, r.interface);
        fset(db, "netobj_list_Inside_element_2_alias", "yes");
        norm_interfaces(db);
        Frag *alias = ffind2(db, r.list, "element_1");
        ASSERT_NE(alias, nullptr) << r.interface;
        EXPECT_EQ(dump(alias->child), string("interface=") + r.interface + " addr=b");
        EXPECT_STREQ(fval(db, "netobj_list_Inside_element_1_addr"), "a");
        EXPECT_STREQ(fval(db, "netobj_list_all%5Finterfaces_element_1_interface"), r.interface);
    }
}

TEST(norm, lists_of_interfaces) {
    tree db("netobj_list_Inside_element_1_interface=e0\nnetobj_list_none_x=1\nloose_interface=e1\n");
    EXPECT_EQ(is_in_list(db, "Inside", "e0"), 1);
    EXPECT_EQ(is_in_list(db, "Inside", "E0"), 0);
    EXPECT_EQ(is_in_list(db, "none", "e0"), 0);
    EXPECT_EQ(is_in_list(db, "gone", "e0"), 0);
    EXPECT_EQ(is_in_list(db, nullptr, "e0"), 0);
    EXPECT_EQ(is_in_list(db, "Inside", nullptr), 0);
    EXPECT_EQ(add_to_allif(db, ffind(db, "loose")), 0); // no list above it to name
    EXPECT_EQ(add_to_allif(db, ffind(db, "netobj_list_Inside_element_1")), 0);
    EXPECT_EQ(add_to_allif(db, ffind(db, "netobj_list_none")), 1);
    EXPECT_EQ(dump(ffind(db, "netobj_list_all%5Finterfaces_element")),
              "element{2{location=Inside interface=e0} 1{interface=e1}}");
}
