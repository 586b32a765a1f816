// Tables, and single functions that no pass calls in this form.
#include "netperm_support.h"
#include "nupgrade.h"
#include "text_hash.h"

#include <gtest/gtest.h>
#include <new>

using std::string;

TEST(tables, platforms) {
    for (const char *row : {"NT40|1", "NT|1", "NT351|1", "|0", "N|0", "nt|0", "\\sNT|0", "BSD40|0", "BSD|0", "SOL28|0",
                            "HPUX|0", "AIX|0", "other|0"})
        EXPECT_EQ(determine_os_maprec(tree("OS_Type=" + split(row, '|')[0])) == map_nt, split(row, '|')[1] == "1")
            << row;
    EXPECT_EQ(determine_os_maprec(tree("OS_Type_NT=1")), map_unix);
    string names;
    for (const os2maprec_row *row = os2maprec; row->os; row++)
        names += string(row->os) + (row->table == map_nt ? "! " : " ");
    EXPECT_EQ(names, "NT40! BSD40 NT! BSD SOL HPUX AIX ");
}

// Every row with all its bits, and what the functions say of them and of proxies without a row.
TEST(tables, needs) {
    string rows;
    for (const proxy_attr_rec *row = proxy_attr_tab; row->proxy; row++) {
        rows += string(row->proxy) + " " + numbertext(row->bits) + " ";
        EXPECT_EQ(needsauth(row->proxy) + needsx(row->proxy) * 2, row->bits & 3) << row->proxy;
    }
    EXPECT_EQ(rows, "alerts 0 ssl-px 0 radm 4 info-px 0 gui 12 tn-px 3 login-sh 1 credsvc 1 ahttp-px 5 http-px 1 "
                    "rlogin-px 3 mrlyd 0 mrly 0 pop3-px 1 whois 0 fingerd 0 svcgrd-fingerd 0 svcgrd-ftpd 0 "
                    "svcgrd-rlogind 0 svcgrd-telnetd 0 ldap-px 0 VDOLive 0 NetShow 0 ");
    for (const char *name : {"other", "tn-px-2", "ssl", "netshow"})
        EXPECT_EQ(needsauth(name) + needsx(name), 2) << name;
}

// Against values of other implementations.
TEST(functions, sip_hash) {
    EXPECT_EQ(sip_hash(0x0706050403020100, 0x0f0e0d0c0b0a0908, ""), 0xabac0158050fc4dc);
    EXPECT_EQ(sip_hash(0, 0, "abc"), 0xc03bc3a0042630f2);
    EXPECT_EQ(sip_hash(0, 0, "12345678"), 0x3489982430560a87);
    EXPECT_EQ(sip_hash(0, 0, "0123456789abcdefgh"), 0x5b5c74d6eb3b75cc);
    EXPECT_EQ(sip_hash(0, 0, std::string_view("\xff\0x", 3)), 0x1b3c7a29c56c1833);
    EXPECT_NE(text_hash()("abc"), sip_hash(0, 0, "abc")); // a key by chance
}

TEST(functions, old_config_type) {
    for (const char *row : {"|40", "=4.1|41", "=5.5.1|55", "=V5.55b|55", "=|50", "=new|50", "=5.0|50", "=4|40",
                            "=V4.0b|40", "=5.6|56", "=5.|50", "=45|45", "=4..1|40", "=0.9|9", "=.5.5|55", "_x=1|0"}) {
        const string end = split(row, '|')[0], version = end.empty() ? "" : "version_firewall" + end;
        EXPECT_EQ(old_config_type(tree("def_proxy_a_x=1 " + version)), atoi(split(row, '|')[1].c_str())) << row;
        EXPECT_EQ(old_config_type(tree(version)), 32) << row;
    }
}

TEST(functions, rules_handed_in) {
    tree maps("1_tag_proxy=a 2_tag_cs=x 3_tag_proxy=b 4_tag_proxy=A");
    auto fresh = [&](const char *map, const char *list) {
        return proxies_not_in_maps(maps, ffind(maps, map), ffind(maps, list));
    };
    EXPECT_EQ(fresh("1", "1") + fresh("3", "1") + fresh("4", "1"), 0);
    EXPECT_EQ(fresh("1", "2") + fresh("2", "1") + fresh("1", "none"), 3);
    tree db("hosts= policy{x-y_z=1 x-y-1_z=1}");
    int counter = 5;
    string text = "a\tb  c \t -x  y -z ";
    char *tail = burst_sub(db.head, &counter, "%-deny%", text.data());
    EXPECT_STREQ(tail, "-x  y -z ");
    free(tail);
    EXPECT_EQ(counter, 8);
    EXPECT_EQ(dump(db.head->child), "5=%-deny%a -x  y -z  6=%-deny%b -x  y -z  7=%-deny%c -x  y -z ");
    char *policy = make_policy(db, string("x_y").data(), "tn-px", 1, "set");
    EXPECT_EQ(policy + dump(ffind(db, "policy_x-y-2")->child), "x-y-2parm_desc=tn-px proxy_set=tn-px");
    free(policy);
    EXPECT_EQ(addmap(db, "a", "P", "*", "s", "tn-px", db.head), 0);
    EXPECT_EQ(dump(children_of(db, "map")->child), "tag{cs=hosts proxy=tn-px} src=s pd=P proxy=* policy=a");
    text = "-x \t -exec  a b";
    EXPECT_EQ(parse_arg(db.head, parse_arg(db.head, text.data())), text.data() + text.size());
    EXPECT_EQ(value_of(db.head, "-x") + value_of(db.head, "exec"), "*a b");
    const Frag *group = find_netgroup(db, ffind(db, "hosts_5"), ffind(db, "hosts_7"), 3, "tn");
    EXPECT_EQ(dump(group), "tn-3_member_1{name=tn-3$LIST type=L}");
}

// What is not there is no failure, and these have none at all.
TEST(functions, results) {
    for (const string text : {"", "a_1_x=1"}) {
        tree db(text);
        EXPECT_EQ(canon_def(db) + canon_cust(db) + canon_netobj(db, "a") + canon_policy(db, "a") + canon_pfrules(db),
                  0);
        EXPECT_EQ(canon_ip(db) + norm_renumber(db, "a", nullptr, nullptr) + norm_vpndata(db, "a"), 0);
        EXPECT_EQ(dump(db.head), text.empty() ? "" : "a_0001_x=1");
        EXPECT_EQ(norm_pfrules(db, "a", "a_n") + canon_pfrule_sub(db, "a") + canon_pfrule_sub(db, "none"), 0);
    }
}

static int note(Frag *element, const char *name, void *arg) {
    *static_cast<string *>(arg) += string(name) + ":" + fval(&element->child, "addr") + " ";
    return 0;
}

TEST(functions, network_objects_handed_in) {
    tree db("netobj{list{l_element_1_addr=a m_element_1_addr=b none_element Inside_element_1_interface=e0} group{"
            "h_member{1{type=G name=g} 2{type=L name=m}} g{tag member_1{type=L name=l}}}} loose_interface=e1");
    string seen;
    EXPECT_EQ(enum_netlist(db, nullptr, "m", note, &seen) + enum_netlist(db, nullptr, "none", note, &seen), 0);
    EXPECT_EQ(enum_netlist(db, ffind(db, "netobj_list_m"), "any", note, &seen), 0);
    EXPECT_EQ(enum_netlist(db, nullptr, "nobody", note, &seen), 1);
    EXPECT_EQ(enum_netgroup(db, ffind(db, "netobj_group_h"), "any", note, &seen), 0);
    EXPECT_EQ(seen, "m:b any:b m:b "); // a group that carries the mark already is passed over
    EXPECT_EQ(is_in_list(db, "Inside", "e0"), 1);
    EXPECT_EQ(is_in_list(db, "Inside", "E0") + is_in_list(db, "l", "e0") + is_in_list(db, "gone", "e0"), 0);
    EXPECT_EQ(is_in_list(db, nullptr, "e0") + is_in_list(db, "Inside", nullptr), 0);
    EXPECT_EQ(add_to_allif(db, ffind(db, "loose")), 0); // no list above it to name
    EXPECT_EQ(add_to_allif(db, ffind(db, "netobj_list_Inside_element_1")), 0);
    EXPECT_EQ(add_to_allif(db, ffind(db, "netobj_list_l")), 1);
    EXPECT_EQ(dump(ffind(db, "netobj_list_all%5Finterfaces_element")->child),
              "2{location=Inside interface=e0} 1_interface=e1");
    EXPECT_EQ(is_authon(nullptr) + is_authon("") + is_authon("NEVER") + is_authon("Inherit"), 0);
    EXPECT_EQ(is_authon(" never") + is_authon("0"), 2);
}

// A read unit of a table holds 8190 bytes; what a longer line has behind them is judged as a line of its own.
TEST(functions, long_lines_of_a_table) {
    auto rules = [](const string &table) {
        tree db;
        read_table(db, table);
        fremove(db, "def_proxy_global");
        return dump(ffind(db, "def_proxy")->child);
    };
    // So many bytes of a kind, the text behind them, and the rules. Blanks without a line end take the rest of theirs
    // along.
    const char *rows[] = {"8189; ;\na: y 1;a_y=1",    "8190; ;a: x 1\nb: x 1;b_x=1",
                          "8190; ;a: x 1;",           "8189;#;\na: y 1;a_y=1",
                          "8190;#;a: x 1\n;a_x=1",    "8189; ;tn: x 1\n;n_x=1",
                          "8189;,;a: x 1\n;",         "8186;,;a: xy 1\n;a_x=",
                          "8183;,;a: xy 12\n;a_xy=1", "8183;,;a: xy 1b: z 2\n;b_z=2 a_xy=1"};
    for (const char *row : rows) {
        std::vector<string> r = split(row, ';');
        EXPECT_EQ(rules(string(static_cast<size_t>(atoi(r[0].c_str())), r[1][0]) + r[2]), r[3]) << row;
    }
    EXPECT_EQ(rules(string(8190, ' ') + "\na: x 1\na: x 2\n"), "a_x{3=2 1=1}"); // and that counts for no line
}

// Also where the libraries are used without the program around them.
TEST(functions, containers_end_in_outofcore) { EXPECT_EQ(std::get_new_handler(), &outofcore); }
