// From the numbered layout to the canonical one.
#include "dump.h"
#include "nupgrade.h"
#include "support.h"

#include <gtest/gtest.h>

using std::string;

namespace {
struct pass_row {
    string before, after;
};
} // namespace

// Runs the pass on each tree (siblings in the order of its lines) and compares what comes out, siblings in list order.
template <typename Pass> static void expect_pass(Pass pass, const std::vector<pass_row> &rows) {
    for (const pass_row &r : rows) {
        tree db(r.before);
        EXPECT_EQ(pass(db), 0);
        EXPECT_EQ(db.text(), r.after) << r.before;
    }
}

TEST(canon, driver) {
    expect_pass(
        norm_fragtree,
        {
            {"x_y=1\n", "x_y=1\n"},
            // The proxies' count says that they are numbered, and without it the sets stay too.
            {"def_proxy_1_realname=a\ncust_num_proxies=1\ncust_proxy_1_name=s\n",
             "def_proxy_1_realname=a\ncust_num_proxies=1\ncust_proxy_1_name=s\n"},
            {"def_num_proxies=0\ndef_proxy_1_realname=a\ndef_proxy_1_name=b\ncust_proxy_1_name=s\n",
             "def_proxy_a_name=b\ncust_proxy_1_name=s\n"},
            {"def_num_proxies=1\ndef_proxy_1_realname=*\ndef_proxy_1_state=on\ndef_proxy_1_name=x\n",
             "def_proxy_global_state=on\ndef_proxy_global_name=global\n"},
            {"def_proxy_*_state=on\n", "def_proxy_global_name=global\ndef_proxy_global_state=on\n"},
            {"netobj_num_list=1\nnetobj_num_group=1\nnetobj_num_x=2\nnetobj_list_1_name=a_b\n", "netobj_num_x=2\n"},
            {"map_num_entries=1\nmap_num_x=2\nmap_1_src=a\nsroute_num=3\nsroute_2_x=1\ndest_num_entries=0\n",
             "map_1_src=a\nsroute_2_x=1\n"},
        });
    tree db;
    norm_fragtree(db);
    EXPECT_EQ(dump(db.head), "netobj{list{Service{element} Outside{element} Inside{element}}}");
    tree counts("netobj_num_list=1\nnetobj_num_group=1\nmap_num_entries=1\n");
    norm_fragtree(counts);
    EXPECT_EQ(dump(counts.head), "netobj{list{Service{element} Outside{element} Inside{element}}} map");
}

TEST(canon, proxies) {
    expect_pass(canon_def, {
                               {"x=1\n", "x=1\n"},
                               {"def_proxy_1_realname=a_b%c\ndef_proxy_1_name=n_n\n", "def_proxy_a%5Fb%25c_name=n_n\n"},
                               {"def_proxy_7_num_parms=1\ndef_proxy_7_num_x=2\ndef_proxy_7_parm_1_name=p\n"
                                "def_proxy_7_parm_1_value=1\ndef_proxy_7_z=3\n",
                                "def_proxy_7_p=1\ndef_proxy_7_num_x=2\ndef_proxy_7_z=3\n"},
                               // A name without a value counts as absent.
                               {"def_proxy_1_realname_z=1\ndef_proxy_1_q=2\n", "def_proxy_1_q=2\n"},
                               {"def_proxy_1_parm_1_name_z=1\ndef_proxy_1_parm_1_value=2\ndef_proxy_1_q=3\n"
                                "def_proxy_1_parm_2_name=x\ndef_proxy_1_parm_2_value_z=1\n",
                                "def_proxy_1_q=3\n"},
                           });
}

TEST(canon, names_of_parameters) {
    struct row {
        const char *name, *expected;
    };
    const row rows[] = {{"proxy-exec", "proxy-exec=v"},
                        {"permit-hosts_0", "hosts{0:1=v}"},
                        {"deny-permit-hosts_1", "hosts{1:3=v}"},
                        {"use_name_logs", "use%5Fname%5Flogs=v"},
                        {"permit-relay", "relay-permit=v"},
                        {"Permit-relay", "relay:1=v"},
                        {"deny-spam_x", "spam%5Fx:2=v"},
                        {"absorb-ONLYON-PERMIT-absorb-x", "x:13=v"},
                        {"permit-", ":1=v"},
                        {"x-permit-y", "x-permit-y=v"},
                        {"hosts_", "hosts%5F=v"},
                        {"hosts_1x", "hosts{1x=v}"},
                        {"hosts_1_2_x", "hosts{1{2{x=v}}}"},
                        {"hosts_x_1", "hosts%5Fx%5F1=v"},
                        {"_1", "{1=v}"},
                        {"_x%", "%5Fx%25=v"},
                        {"x%", "x%=v"},
                        {"a=b", "a=v"},
                        {"a=b_c", "a=b%5Fc=v"},
                        {"a b", "a b=v"},
                        {"", "=v"}};
    for (const row &r : rows) {
        tree db("parm_1_name=x\nparm_1_value=v\n");
        tree entry("entry=\n");
        setvalue(ffind(db, "parm_1_name"), r.name);
        entry.head->child = db.head;
        db.head = nullptr;
        canon_parm(entry.head, "parm", nullptr, nullptr);
        EXPECT_EQ(dump(entry.head->child), r.expected) << r.name;
    }
}

TEST(canon, parameters_that_meet) {
    struct row {
        const char *before, *after;
    };
    const row rows[] = {
        // Each goes to the head of its list.
        {"parm_1_name=a\nparm_1_value=1\nparm_2_name=b\nparm_2_value=2\nx=3\n", "b=2 a=1 x=3"},
        {"parm_1_name=deny-h_0\nparm_1_value=1\nparm_2_name=h_1\nparm_2_value=2\n", "h{1=2 0:2=1}"},
        {"parm_1_name=h_0\nparm_1_value=1\nparm_2_name=permit-h\nparm_2_value=2\n", "h:1=2{0=1}"},
        {"parm_1_name=h\nparm_1_value=2\nparm_2_name=h_0\nparm_2_value=1\n", "h{0=1}"},
        {"parm_1_name=permit-a\nparm_1_value=1\nparm_2_name=a\nparm_2_value=2\n", "a=2"},
        {"parm_1_name=a_b\nparm_1_value=1\nparm_2_name=a_b\nparm_2_value=2\n", "a%5Fb=2 a%5Fb=1"},
        {"parm_1_name=a\nparm_2_value=2\nparm_3_name=c\nparm_3_value=\n", "c="},
        {"num_parms=9\nx=1\n", "x=1"},
        {"num_parms=9\nnum=\n", "num="},
        {"cyberurl_1_access=deny\ncyberurl_1_url=u\ncyberurl_1_z=2\nx=1\n", "url{1=deny u} x=1"},
        {"cyberurl_1_access=\ncyberurl_1_url=\ncyberurl_1=old\n", "url{1= }"},
        {"cyberurl_2_url=u\ncyberurl_3=old\ncyberurl_3_access=deny\ncyberurl_4_access_x=1\ncyberurl_4_url=u\n",
         "url{2 3=old 4}"},
        {"parm_1_name=cyberurl_1\nparm_1_value=v\n", "url{1=v}"},
    };
    for (const row &r : rows) {
        tree db("entry=\n");
        tree below(r.before);
        db.head->child = below.head;
        below.head = nullptr;
        canon_parm(db.head, "parm", "num_parms", "num");
        EXPECT_EQ(dump(db.head->child), r.after) << r.before;
    }
}

TEST(canon, config_sets) {
    expect_pass(
        canon_cust,
        {
            {"cust_proxy_1_name=s_1\ncust_proxy_1_realname=a\ncust_proxy_1_x=1\ncust_proxy_2_name=t\n"
             "cust_proxy_2_realname=a\ncust_proxy_2_y=2\ndef_proxy_a_z=1\n",
             "def_proxy_a_config-sets_t_y=2\ndef_proxy_a_config-sets_s%5F1_x=1\ndef_proxy_a_z=1\n"},
            {"def_proxy_a_z=1\ncust_proxy_1_name=s\ncust_proxy_1_realname=b\ncust_proxy_1_x=1\n",
             "def_proxy_b_config-sets_s_x=1\ndef_proxy_a_z=1\n"},
            {"cust_proxy_1_name=s\ncust_proxy_1_realname=\ncust_proxy_1_x=1\n", "def_proxy_s_config-sets_s_x=1\n"},
            {"cust_proxy_7_x=1\n", "def_proxy_7_config-sets_7_x=1\n"},
            // An owner's name is stored with its escapes, and so are the names that look it up.
            {"def_proxy_a%5Fb%25_z=1\ncust_proxy_1_name=s\ncust_proxy_1_realname=a_b%\ncust_proxy_1_x=1\n",
             "def_proxy_a%5Fb%25_config-sets_s_x=1\ndef_proxy_a%5Fb%25_z=1\n"},
            {"cust_proxy_1_name=s_s\ncust_proxy_1_x=1\n", "def_proxy_s%5Fs_config-sets_s%5Fs_x=1\n"},
            {"cust_proxy_1_realname=a_b\ncust_proxy_1_x=1\n", "def_proxy_a%5Fb_config-sets_1_x=1\n"},
            {"cust_proxy_1_realname_z=a\ncust_proxy_1_name_z=s\ncust_proxy_1_x=1\n", "def_proxy_1_config-sets_1_x=1\n"},
            {"cust_proxy_1_name=s\ncust_proxy_1_realname=a\ncust_proxy_1_parm_1_name=permit-h_0\n"
             "cust_proxy_1_parm_1_value=*\ncust_proxy_1_num_parms=1\n",
             "def_proxy_a_config-sets_s_h_permit-0=*\n"},
        });
    tree db("def_proxy_a_z=1\ncust_proxy_1_name=s\n");
    canon_cust(db);
    EXPECT_EQ(dump(db.head), "def{proxy{s{config-sets{s}} a{z=1}}} cust{proxy}");
    EXPECT_TRUE(linked(db.head, nullptr));
}

TEST(canon, network_objects) {
    expect_pass([](FragList db) { return canon_netobj(db, "netobj_list"); },
                {
                    {"netobj_list_1_name=all_interfaces\nnetobj_list_1_num_elements=4\nnetobj_list_1_element_3_addr=a\n"
                     "netobj_list_2_num_x=1\nnetobj_list_2_num_members=1\nnetobj_group_1_name=g\n",
                     "netobj_list_all%5Finterfaces_element_3_addr=a\nnetobj_list_2_num_x=1\nnetobj_group_1_name=g\n"},
                    {"netobj_list_1_name=n\nnetobj_list_1_x=1\nnetobj_list_2_name=n\nnetobj_list_2_x=2\n",
                     "netobj_list_n_x=1\nnetobj_list_n_x=2\n"},
                    {"netobj_list_1_name_z=n\nnetobj_list_1_x=1\n", "netobj_list_1_x=1\n"},
                });
    tree db("netobj_group_1_name=g\nnetobj_group_1_num_members=1\nnetobj_group_1_member_2_type=L\n");
    canon_netobj(db, "netobj_group");
    EXPECT_EQ(dump(db.head), "netobj{group{g{member{2{type=L}}}}}");
}

TEST(canon, interfaces) {
    const string in = "netobj_list_Inside_element_", out = "netobj_list_Outside_element_";
    const string e0 = "netobj_list_e0$INTERFACE_element_";
    expect_pass(canon_interfaces,
                {
                    {in + "1_interface=e0\n" + e0 + "1_addr=a\n" + e0 + "1_interface=e0\n" + e0 + "2_addr=b\n",
                     in + "1_interface=e0\n" + in + "2_alias=yes\n" + in + "2_addr=a\n" + in + "2_interface=e0\n" + in +
                         "3_alias=yes\n" + in + "3_addr=b\n"},
                    {e0 + "1_addr=a\n", e0 + "1_addr=a\n"},
                    // The first location list that holds the interface gets its aliases, and in it the first element.
                    {out + "1_interface=e0\n" + e0 + "1_addr=a\n" + in + "2_interface=e0\n" + in + "1_interface=e0\n",
                     out + "1_interface=e0\n" + in + "1_interface=e0\n" + in + "2_interface=e0\n" + in +
                         "3_alias=yes\n" + in + "3_addr=a\n"},
                    // Aliases have none of their own, whatever says so; `no` makes no alias.
                    {in + "1_alias=2\n" + in + "1_interface=e0\n" + e0 + "1_addr=a\n",
                     in + "1_alias=2\n" + in + "1_interface=e0\n" + e0 + "1_addr=a\n"},
                    {in + "1_alias=no\n" + in + "1_interface=e0\n" + e0 + "1_alias=no\n",
                     in + "1_alias=no\n" + in + "1_interface=e0\n" + in + "2_alias=yes\n"},
                    {in + "1_interface=e0\nnetobj_list_e0$INTERFACE_x=1\n", in + "1_interface=e0\n"},
                    {in + "1_interface=\n" + in + "2_addr=a\nnetobj_list_$INTERFACE_element_1_addr=b\n",
                     in + "1_interface=\n" + in + "2_addr=a\nnetobj_list_$INTERFACE_element_1_addr=b\n"},
                    // The name is taken whole, as a key.
                    {in + "1_interface=e0:1\n" + e0 + "1_addr=a\nnetobj_list_e0:1$INTERFACE_element_1_addr=b\n",
                     in + "1_interface=e0:1\n" + in + "2_alias=yes\n" + in + "2_addr=b\n" + e0 + "1_addr=a\n"},
                    {in + "1_interface=e_0\nnetobj_list_e_0$INTERFACE_element_1_addr=b\nnetobj_list_e_x=1\n",
                     in + "1_interface=e_0\n" + in + "2_alias=yes\n" + in + "2_addr=b\nnetobj_list_e_x=1\n"},
                    // Numbers go on behind the count, past those that are taken.
                    {in + "3_interface=x\n" + in + "1_interface=e0\n" + e0 + "1_addr=a\n" + e0 + "2_addr=b\n",
                     in + "1_interface=e0\n" + in + "3_interface=x\n" + in + "4_alias=yes\n" + in + "4_addr=a\n" + in +
                         "5_alias=yes\n" + in + "5_addr=b\n"},
                    {in + "10_addr=a\n" + in + "9_addr=b\n", in + "9_addr=b\n" + in + "10_addr=a\n"},
                });
}

TEST(canon, policies) {
    expect_pass(
        [](FragList db) { return canon_policy(db, "policy"); },
        {
            {"policy_num_entries=2\npolicy_1_name=p_1\npolicy_1_num_proxies=1\npolicy_1_num_parms=1\npolicy_1_num_x=1\n"
             "policy_1_proxy_1_name=s_1\npolicy_1_proxy_2_name=none\npolicy_1_proxy_2=old\npolicy_1_proxy_2_x=1\n"
             "policy_1_proxy_s=old\npolicy_2_proxy_1_name_z=1\npolicy_2_proxy_1=old\npolicy_2_x=1\n"
             "def_proxy_a_config-sets_t=1\ndef_proxy_b%5F_config-sets_s%5F1=1\ndef_proxy_c_config-sets_s%5F1=1\n"
             "def_proxy_c_config-sets_s=1\ndef_proxy_d_x=1\n",
             "policy_p%5F1_num_x=1\npolicy_p%5F1_proxy_s%5F1=b_\npolicy_p%5F1_proxy_none_x=1\npolicy_p%5F1_proxy_s=c\n"
             "policy_2_x=1\n"
             "def_proxy_a_config-sets_t=1\ndef_proxy_b%5F_config-sets_s%5F1=1\ndef_proxy_c_config-sets_s%5F1=1\n"
             "def_proxy_c_config-sets_s=1\ndef_proxy_d_x=1\n"},
            // Parameters keep their prefixes, and their names are one component each.
            {"policy_1_parm_1_name=permit-h_0\npolicy_1_parm_1_value=1\npolicy_1_parm_1=old\n"
             "policy_1_parm_2_name=permit-relay\npolicy_1_parm_2_value=\npolicy_1_parm_3_name=x\npolicy_1_parm_3_y=2\n"
             "policy_1_parm_4_value=1\npolicy_1_parm_4=old\n",
             "policy_1_parm_permit-h%5F0=1\npolicy_1_parm_permit-relay=\npolicy_1_parm_3_y=2\npolicy_1_parm_4=old\n"},
        });
    tree db("policy_1_num_proxies=1\npolicy_1_num_parms=1\npolicy_1_parm_1_name=permit-h_0\npolicy_1_parm_1_value=v\n");
    canon_policy(db, "policy");
    EXPECT_EQ(dump(db.head), "policy{1{parm{permit-h%5F0=v}}}");
}

TEST(canon, filter_rules) {
    struct row {
        const char *before, *after;
    };
    const row rows[] = {
        {"numrules=0\n", ""},
        {"rule3=t+i\n", "3{interface=i type=t}"},
        {"rule1=x+++y\n", "1{srcport=y type=x}"},
        {"rule007=\nrule1=+\nrule02=+++++++++\n", "1 2 7"},
        {"rule1=1+2+3+4+5+6+7+8+9+c+d+e\n", "1{comment=c dstmask=9 dstaddr=8 dstport=7 srcmask=6 srcaddr=5 srcport=4 "
                                            "proto=3 interface=2 type=1}"},
        {"rule10=a\nrule9=b\nrule=c\nrule0=d\nrulex5=e\nrule5x=f\nrule-3=g\nnote=h\n4=i\n",
         "4{type=i} 5{type=f} 9{type=b} 10{type=a} note{type=h} rule{type=c} rule-3{type=g} rule0{type=d} "
         "rulex5{type=e}"},
        {"rule2_x=1\nrule1=a\nrule1_x=1\n", "1{type=a x=1}"},
    };
    for (const row &r : rows)
        for (const char *list : {"pfedit_lcl", "pfedit_fwd"}) {
            tree rules(r.before), db(string(list) + "=\n");
            Frag *top = ffind(db, list);
            for (Frag *rule = top->child = rules.head; rule; rule = rule->next)
                rule->parent = top;
            rules.head = nullptr;
            EXPECT_EQ(canon_pfrules(db), 0);
            EXPECT_EQ(dump(ffind(db, list)->child), r.after) << r.before;
        }
}

TEST(canon, addresses) {
    const string in = "netobj_list_Inside_element_", out = "netobj_list_Outside_element_";
    const string service = "netobj_list_Service_element_", address(300, '1');
    expect_pass(
        canon_ip,
        {
            {"x=1\n", "x=1\n"},
            {"ip_insideaddr=a\nip_insidemask=m\nip_insidbcast=b\nip_insidiface=i\nip_insidifaceflags=f\nip_x=1\n",
             in + "1_broadcast=b\n" + in + "1_interfaceflags=f\n" + in + "1_interface=i\n" + in + "1_netmask=m\n" + in +
                 "1_addr=a\nip_x=1\n"},
            {"ip_outsideaddr=a\nip_outsidmask=m\nip_thirdaddr=b\nip_thirdmask=n\n",
             service + "1_netmask=n\n" + service + "1_addr=b\n" + out + "1_addr=a\nip_outsidmask=m\n"},
            // An address that an element has adds to that element and replaces its fields.
            {out + "4_addr=a\n" + out + "4_interface=old\nip_outsideaddr=a\nip_outsidiface=new\nip_outsidbcast=\n",
             out + "4_broadcast=\n" + out + "4_addr=a\n" + out + "4_interface=new\n"},
            {in + "1_addr=b\n" + in + "2_x=1\nip_insideaddr=a\n",
             in + "3_addr=a\n" + in + "1_addr=b\n" + in + "2_x=1\n"},
            // No address at all leaves the row's keys, but for the mask, where they are; a placeholder drops them.
            {"ip_outsidemask=m\nip_outsidiface=i\nip_insideaddr_z=1\nip_insidiface=j\n",
             "ip_outsidiface=i\nip_insidiface=j\n"},
            {"ip_insideaddr=none\nip_insidiface=i\nip_outsideaddr=\nip_outsidemask=m\nip_thirdaddr=XXX.XXX.XXX.XXX\n"
             "ip_thirdbcast=b\nip_thirdifaceflags=f\n",
             ""},
            {service + "1_addr=none\nip_thirdaddr=none\nip_thirdiface=i\n",
             service + "1_interface=i\n" + service + "1_addr=none\n"},
            {"ip_insideaddr=" + address + "\nip_insidiface=i\n",
             in + "1_interface=i\n" + in + "1_addr=" + address + "\n"},
        });
    // A number that the count meets again costs no element its address.
    tree db(in + "2_addr=b\nip_insideaddr=a\n");
    canon_ip(db);
    EXPECT_NE(db.text().find("_addr=a\n"), string::npos);
    EXPECT_NE(db.text().find("_addr=b\n"), string::npos);
}
