// Host rules of a proxy into config sets, groups, policies and maps.
#include "netperm_support.h"

#include <gtest/gtest.h>
#include <map>

namespace {

// The maps made of the rules of the one proxy `p`, given as lines of a table without its name, joined by `|`.
std::string translated(const std::string &rules) {
    tree db;
    std::string table;
    for (const std::string &line : split(rules, '|'))
        table += "p: " + line + "\n";
    read_table(db, table);
    EXPECT_EQ(untrans_hosts(db, ffind(db, "def_proxy_p")), 0);
    EXPECT_EQ(ffind(db, "def_proxy_p_hosts"), nullptr);
    return rules_of(db);
}

struct row {
    const char *rules, *maps;
};

void check(const std::vector<row> &rows) {
    for (const row &r : rows)
        EXPECT_EQ(translated(r.rules), r.maps) << r.rules;
}

// The same for the class and the hosts of each map alone, in rows "rules => maps" with one sign for a rule's attribute:
// `+` permit-hosts, `-` deny-hosts, `~` absorb-hosts, `.` hosts.
void check_classes(const std::vector<std::string> &rows) {
    const std::map<char, std::string> words = {
        {'+', "permit-hosts "}, {'-', "deny-hosts "}, {'~', "absorb-hosts "}, {'.', "hosts "}};
    for (const std::string &row : rows) {
        size_t arrow = row.find(" => ");
        std::string rules, classes;
        for (const std::string &rule : split(row.substr(0, arrow), '|'))
            rules += (rules.empty() ? "" : "|") + words.at(rule[0]) + rule.substr(1);
        for (const std::string &map : split(translated(rules), '|'))
            classes += (classes.empty() ? "" : "|") + map.substr(0, map.find(" ["));
        EXPECT_EQ(classes, row.substr(arrow + 4)) << row;
    }
}

// The group of the hosts of these rules, given as lines "number=value".
std::string group_of(FragList db, const char *rules, int seq, const char *base) {
    tree list(rules);
    Frag *last = list.head;
    while (last->next)
        last = last->next;
    return find_netgroup(db, list.head, last, seq, base)->name;
}

std::string policy_of(FragList db, const char *name, const char *base, int seq) {
    std::string wanted = name ? name : "";
    char *made = make_policy(db, name ? wanted.data() : nullptr, base, seq, "set");
    std::string text = made;
    free(made);
    EXPECT_EQ(wanted.find('_'), std::string::npos);
    return text;
}

} // namespace

TEST(rule_translation, worked_example) {
    tree db;
    read_table(db, "tn-px: hosts a b -log\ntn-px: hosts a.* -x\ntn-px: hosts c -policy corp_web\n"
                   "policy-corp_web: password secret\n");
    int first = next_map_number();
    EXPECT_EQ(untrans_hosts(db, ffind(db, "def_proxy_tn-px")), 0);
    number_from(db, "map", first);
    ASSERT_EQ(names_of(ffind(db, "map")->child), "1 2 3 4");
    EXPECT_EQ(rules_of(db), "P a [-log] tn-px-1@*|P b [-log] tn-px-2@*|P a.* [-x] tn-px-3@*|"
                            "P c [password=secret] corp-web@*");
    EXPECT_EQ(text_of(ffind(db, "def_proxy_tn-px")->child),
              "config-sets_tn-px-4_password=secret\nconfig-sets_tn-px-3_-x=*\nconfig-sets_tn-px-2_-log=*\n"
              "config-sets_tn-px_-log=*\n");
    std::string lists, groups;
    for (const std::string &made : split("corp-web-4 c|tn-px-3 a.*|tn-px-2 b|tn-px-1 a", '|')) {
        std::string name = split(made, ' ')[0];
        groups += "group_" + name + "_member_1_name=" + name + "$LIST\ngroup_" + name + "_member_1_type=L\n";
        lists += "list_" + name + "$LIST_element_1_addr=" + split(made, ' ')[1] + "\n";
    }
    EXPECT_EQ(text_of(ffind(db, "netobj")->child), groups + lists);
    EXPECT_EQ(text_of(ffind(db, "policy")->child),
              "corp-web_parm_desc=tn-px\ncorp-web_proxy_tn-px-4=tn-px\ntn-px-3_parm_desc=tn-px\n"
              "tn-px-3_proxy_tn-px-3=tn-px\ntn-px-2_parm_desc=tn-px\ntn-px-2_proxy_tn-px-2=tn-px\n"
              "tn-px-1_parm_desc=tn-px\ntn-px-1_proxy_tn-px=tn-px\n");
    EXPECT_EQ(text_of(ffind(db, "map_4")->child), "tag_cs=tn-px-4\ntag_proxy=tn-px\nsrc=$$NETOBJ.corp-web-4\npd=P\n"
                                                  "proxy=*\npolicy=corp-web\n");
    check({{"hosts %-permit%a -log|hosts %-permit%b -log|hosts %-deny%c", "P a,b [-log] p-1@*|D c [] *@p"}});
}

// A deny must never become a permit, nor the reverse.
TEST(rule_translation, class_of_neighbours) {
    check_classes({"+a|+b => P a,b", "+a|-b => P a|D b", "+a|.b => P a|P b", "-a|-b => D a,b", "-a|+b => D a|P b",
                   "-a|.b => D a,b", ".a|+b => P a,b", ".a|-b => P a|D b", ".a|.b => P a|P b", ".a|+b|.c => P a,b|P c",
                   "-a|.b|+c|-d => D a,b|P c|D d", "~a|~b => P a|P b", "-a|~b => D a,b",
                   "-a -x|-b -y|+c -y => D a|D b|P c", "-a -x|.b -y|.c -y => D a|P b|P c", "-a -x|+b -x => D a|P b",
                   "+a -x|-b -x|+c -x => P a|D b|P c", "+a -x|+b|+c -x => P a|P b|P c"});
}

TEST(rule_translation, class_of_a_rule) {
    // An empty host word is a host all the same and keeps its class. The marker of a further word counts where that
    // word's rule shows no other.
    check_classes({".%-deny%a|+b => D a|P b", "+%-deny%a|-b => D a,b", "-%-permit%a|+b => P a,b",
                   "- \t %-permit%a b => P a,b", "~%-deny%a b => D a,b", "-a b\tc -x => D a,b,c",
                   "+a b|-c d => P a,b|D c,d", ".a b -x => P a|P b", "-  \ta \tb -x => D a,b", "+  a|+b => P a,b",
                   ".%-deny% a -x => D ,a", "- => D ", "- \t  => D ", "+|+b => P ,b", ".a %-deny%b => P a|D b",
                   "+a %-deny%b => P a,%-deny%b", "--x -y => D -x", "-%-PERMIT%a %-permit => D %-PERMIT%a,%-permit"});
    tree bits("def_proxy_p_hosts_permit-deny-1=a\ndef_proxy_p_hosts_absorb-permit-2=b\n");
    ASSERT_EQ(ffind(bits, "def_proxy_p_hosts_1")->attr, ATTR_PERMIT | ATTR_DENY);
    Frag *bare = fset(bits, "def_proxy_p_hosts_3", nullptr);
    bare->attr = ATTR_DENY;
    EXPECT_EQ(untrans_hosts(bits, ffind(bits, "def_proxy_p")), 0);
    EXPECT_EQ(rules_of(bits), "D a [] *@p|P b [] p-2@*|D  [] *@p");
}

TEST(rule_translation, covered_rules) {
    check_classes({".* -x|-a|+b -x => P *", "-*|+a b c|+ => D *", "-a|+* => D a|P *",
                   "+10.1.1.1|+10.* -x|-10.1.1.2 => P 10.1.1.1|P 10.*", "+a -x|-a -y => P a", "-a|+a => D a",
                   "+A*|-a1 => P A*|D a1", "+*.1|-*.2.1 2.1 => P *.1|D *.2.1", "+a.* b a.b => P a.*,b",
                   "+a -x|-a|+b -x => P a,b", "-10.1|+10.*.9|-10.2.9 10.9 => D 10.1|P 10.*.9|D 10.9"});
}

TEST(rule_translation, tails) {
    check({
        {"permit-hosts a -a -b|permit-hosts b -b -a", "P a [-b -a] p-1@*|P b [-a -b] p-2@*"},
        {"permit-hosts a -a -b|permit-hosts b -a  -b", "P a [-b -a] p-1@*|P b [-b -a] p-2@*"},
        {"permit-hosts a \t -x|permit-hosts b -x", "P a,b [-x] p-1@*"},
        {"permit-hosts a -x |permit-hosts b -x", "P a [-x] p-1@*|P b [-x] p-2@*"},
        {"permit-hosts a |permit-hosts b c|permit-hosts d", "P a,b,c,d [] p-1@*"},
        {"permit-hosts a -x word y", "P a [y word -x] p-1@*"},
        {"permit-hosts a -x -exec  /bin/x  -policy w", "P a [exec=/bin/x  -policy w -x] p-1@*"},
        {"permit-hosts a -exec", "P a [exec=] p-1@*"},
        {"permit-hosts a -policy corp_web_1 -x", "P a [-x] corp-web-1@*"},
        {"permit-hosts a -policyweb -x", "P a [-x] web@*"},
        {"permit-hosts a -x -policy\t u  -y -policy w", "P a [-y -x] w@*"},
        {"permit-hosts a -policy w|permit-hosts b -policy w -x|permit-hosts c -policy w",
         "P a [] w@*|P b [-x] w-2@*|P c [] w-3@*"},
        {"deny-hosts a -policy w -x|permit-hosts b -policy w", "D a [-x] *@p|P b [] w@*"},
    });
}

TEST(rule_translation, templates) {
    tree db;
    read_table(db, "http-px: permit-hosts a -auth -policy long_name\nhttp-px: deny-hosts b -policy none\n"
                   "policy-long-name: password one\npolicy-long-name: password two\npolicy-long-name: xgateway *\n"
                   "policy-long-name: permit-timeout 1\npolicy-long-name: deny-timeout 2\n"
                   "policy-long-name: url u\npolicy-long-name: permit-hosts z\npolicy-long-name: proxy q\n");
    untrans_hosts(db, ffind(db, "def_proxy_http-px"));
    EXPECT_EQ(rules_of(db),
              "P a [password=one deny-timeout=2 permit-timeout=1 url -auth] long-name@*|D b [] *@http-px");
    EXPECT_EQ(text_of(ffind(db, "def_proxy_http-px")->child),
              "config-sets_http-px_password=one\nconfig-sets_http-px_deny-timeout=2\n"
              "config-sets_http-px_permit-timeout=1\nconfig-sets_http-px_url_0=u\nconfig-sets_http-px_-auth=*\n");
    EXPECT_STREQ(fragkeyname(ffind(db, "def_proxy_http-px_config-sets_http-px_timeout")),
                 "def_proxy_http-px_config-sets_http-px_deny-timeout");
    EXPECT_NE(ffind(db, "netobj_list_none-2$LIST"), nullptr);
    EXPECT_EQ(ffind(db, "policy_none"), nullptr);
    EXPECT_EQ(names_of(ffind(db, "def_proxy_policy-long-name")->child), "proxy hosts url timeout xgateway password");
}

TEST(rule_translation, rules_come_in_the_order_of_their_numbers) {
    tree db("def_proxy_p_hosts_permit-10=j\ndef_proxy_p_hosts_permit-9=i h\ndef_proxy_p_hosts_permit-0=a\n"
            "def_proxy_p_config-sets_p_old=1\n");
    EXPECT_EQ(untrans_hosts(db, ffind(db, "def_proxy_p")), 0);
    EXPECT_EQ(rules_of(db), "P a,i,h,j [old=1] p-1@*");
    tree none("def_proxy_p_x=1\ndef_proxy_q_hosts=value\n");
    EXPECT_EQ(untrans_hosts(none, ffind(none, "def_proxy_p")), 1);
    EXPECT_EQ(untrans_hosts(none, ffind(none, "def_proxy_q")), 0);
    EXPECT_EQ(none.text(), "def_proxy_p_x=1\n");
    EXPECT_EQ(names_of(none.head), "def");
    EXPECT_EQ(ffind(none, "def_proxy_q")->child, nullptr);
}

TEST(rule_translation, group_is_found_by_its_hosts) {
    const std::string lists = "netobj_list_none_x=1\nnetobj_list_noaddr_element_1_name=a\n"
                              "netobj_list_ab$LIST_element_1_addr=a\nnetobj_list_ab$LIST_element_2_addr=b\n"
                              "netobj_list_plain_element_7_addr=Q\nnetobj_list_also_element_1_addr=q\n"
                              "netobj_list_tn%5Fpx$LIST_element_1_addr=tn\nnetobj_list_$LIST_element_1_addr=void\n"
                              "netobj_list_cut$1234_element_1_addr=cut\nnetobj_list_tn-px-2$LIST_element_1_addr=z\n"
                              "netobj_list_tn-px-3$LIST_x=1\nnetobj_list_LIST_element_1_addr=four\n"
                              "netobj_group_plain_member_1_type=G\n";
    struct {
        const char *rules, *group, *made; // the hosts of the group's list, if it is a new one
    } rows[] = {
        {"1= \t%-deny%A -x\n2=%-permit%B c\n", "ab", ""},
        {"1=b\n2=a\n", "tn-px-4", "b,a"},
        {"1=a\n", "tn-px-4", "a"},
        {"1=a\n2=b\n3=C\n", "tn-px-4", "a,b,C"},
        {"1=q -x\n", "plain", ""},
        {"1=tn\n", "tn%5Fpx", ""},
        {"1=void\n", "", ""},
        {"1=cut\n", "cut", ""},
        {"1=four\n", "LIST", ""},
    };
    for (const auto &r : rows) {
        tree db(lists);
        EXPECT_EQ(group_of(db, r.rules, 2, "tn-px"), r.group) << r.rules;
        std::string text = db.text();
        Frag *made = ffind(db, "netobj_list_tn-px-4$LIST");
        EXPECT_EQ(made ? elements_of(made) : "", r.made);
        EXPECT_EQ(group_of(db, r.rules, 2, "tn-px"), r.group) << r.rules;
        EXPECT_EQ(db.text(), text);
    }
    tree db(lists);
    group_of(db, "1=q\n", 1, "x");
    group_of(db, "1=tn\n", 1, "x");
    EXPECT_EQ(text_of(ffind(db, "netobj_group")), "group_tn%5Fpx_member_1_name=tn_px$LIST\n"
                                                  "group_tn%5Fpx_member_1_type=L\ngroup_plain_member_1_type=G\n");
}

TEST(rule_translation, names_of_new_groups_and_policies) {
    tree db("policy_x_y=1\npolicy_x-1_y=1\npolicy_e_y=1\nnetobj_list_e_x=1\nnetobj_list_q-1$LIST_x=1\n");
    EXPECT_EQ(policy_of(db, nullptr, "tn-px", 1), "tn-px-1");
    EXPECT_EQ(policy_of(db, nullptr, "tn-px", 1), "tn-px-2");
    EXPECT_EQ(policy_of(db, "x", "tn-px", 1), "x-2");
    EXPECT_EQ(policy_of(db, "x", "tn-px", 7), "x-7");
    EXPECT_EQ(policy_of(db, "a_b_c", "tn-px", 1), "a-b-c");
    EXPECT_EQ(text_of(ffind(db, "policy_a-b-c")->child), "parm_desc=tn-px\nproxy_set=tn-px\n");
    // What stands behind a `=` is no part of a key, so no number behind it can make such a name a free one.
    EXPECT_EQ(policy_of(db, "e=f", "tn-px", 1), "e-2");
    EXPECT_EQ(group_of(db, "1=host\n", 1, "e=f"), "e-2");
    EXPECT_EQ(group_of(db, "1=other\n", 1, "q"), "q-2");
    // The name of a list as text has 63 bytes, so that a longer one loses its suffix.
    std::string base(70, 'n'), cut(63, 'n');
    EXPECT_EQ(group_of(db, "1=long\n", 1, base.c_str()), cut);
    EXPECT_EQ(ffind(db, ("netobj_list_" + base + "-1$LIST").c_str())->child->child->child->value, std::string("long"));
    EXPECT_EQ(fval(db, ("netobj_group_" + cut + "_member_1_name").c_str()), cut);
}

TEST(rule_translation, maps_take_free_numbers) {
    tree db("set=\n");
    int number = next_map_number();
    std::string taken = "map_" + numbertext(number + 1) + "_id";
    fset(db, taken.c_str(), "merged");
    for (int count = 0; count < 2; count++)
        EXPECT_EQ(addmap(db, "pol", "P", "*", "$$NETOBJ.g", "tn_px", ffind(db, "set")), 0);
    number_from(db, "map", number);
    ASSERT_EQ(names_of(ffind(db, "map")->child), "1 2 3");
    EXPECT_EQ(text_of(ffind(db, "map_2")->child), "id=merged\n");
    for (const char *key : {"map_1", "map_3"})
        EXPECT_EQ(text_of(ffind(db, key)->child),
                  "tag_cs=set\ntag_proxy=tn_px\nsrc=$$NETOBJ.g\npd=P\nproxy=*\npolicy=pol\n");
}
