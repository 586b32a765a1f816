// Single functions: decisions that change no database, and what no pass calls in this form.
#include "netperm_support.h"

#include <gtest/gtest.h>

TEST(functions, same_map) {
    const std::string policies = "policy_p_proxy_b=1\npolicy_p_proxy_10=1\npolicy_p_proxy_9=1\n"
                                 "policy_same_proxy_9=2\npolicy_same_proxy_b=3\npolicy_same_proxy_10=4\n"
                                 "policy_more_proxy_c=1\npolicy_more_proxy_9=1\npolicy_more_proxy_10=1\n"
                                 "policy_more_proxy_b=1\npolicy_none_x=1\npolicy_empty_proxy=\npolicy_void_proxy=\n";
    struct {
        const char *a, *b; // each "pd src proxy policy", `-` for a key that is not there
        int same;
    } rows[] = {
        {"P s x p", "P s x p", 1},       {"P s x p", "D s x p", 0},       {"P - x p", "D s x p", 0},
        {"- s x p", "D t y q", 1},       {"- - - -", "- - - -", 1},       {"0 s x p", "P s x p", 0},
        {"0 s x p", "0 s x p", 1},       {"P - x p", "P s y q", 1},       {"P s x p", "P t x p", 0},
        {"P s - p", "P t x p", 0},       {"P s - p", "P s x q", 1},       {"P s x p", "P s y p", 0},
        {"P s x -", "P s x q", 1},       {"P s x -", "P s y -", 0},       {"P s x p", "P s x same", 1},
        {"P s x p", "P s x more", 0},    {"P s x p", "P s x zz", 0},      {"P s x zz", "P s x zz", 1},
        {"P s x *", "P s x p", 0},       {"P s x p", "P s X p", 0},       {"P s x empty", "P s x void", 1},
        {"P s x none", "P s x none", 1}, {"P s x none", "P s x void", 0},
    };
    for (const auto &r : rows) {
        tree db(policies + "map_1=" + r.a + " - -\nmap_2=" + r.b + " - -\n");
        expand_maps(db);
        Frag *a = ffind(db, "map_1"), *b = ffind(db, "map_2");
        if (r.a[0] == '0')
            fset(&a->child, "pd", "");
        if (r.b[0] == '0')
            fset(&b->child, "pd", "");
        EXPECT_EQ(same_map(db, a, b), r.same) << r.a << " / " << r.b;
        EXPECT_EQ(same_map(db, b, a), r.same) << r.b << " / " << r.a;
    }
}

TEST(functions, proxies_not_in_maps) {
    tree maps("1_tag_proxy=a\n2_tag_cs=x\n3_tag_proxy=b\n4_tag_proxy=A\n5_src=g\n");
    auto fresh = [&](const char *map, const char *list) {
        return proxies_not_in_maps(maps, ffind(maps, map), ffind(maps, list));
    };
    EXPECT_EQ(fresh("1", "1") + fresh("3", "1") + fresh("4", "1"), 0);
    EXPECT_EQ(fresh("1", "2") + fresh("4", "5") + fresh("2", "1") + fresh("1", "none"), 4);
}

TEST(functions, burst_sub) {
    struct {
        const char *marker, *text, *tail, *hosts;
        int counter;
    } rows[] = {
        {"", "b c -x", "-x", "5=b -x\n6=c -x\n", 7},
        {"%-deny%", "b", "", "5=%-deny%b \n", 6},
        {"%-permit%", "b \t", "", "5=%-permit%b \n", 6},
        {"", "a\tb  c \t -x  y -z ", "-x  y -z ", "5=a -x  y -z \n6=b -x  y -z \n7=c -x  y -z \n", 8},
        {"%-deny%", "%-permit%a -", "-", "5=%-deny%%-permit%a -\n", 6},
        {"", "-x b", "", "5=-x \n6=b \n", 7},
    };
    for (const auto &r : rows) {
        tree db("hosts=\n");
        int counter = 5;
        std::string text = r.text;
        char *tail = burst_sub(db.head, &counter, r.marker, text.data());
        EXPECT_STREQ(tail, r.tail);
        free(tail);
        EXPECT_EQ(counter, r.counter);
        EXPECT_EQ(text_of(db.head->child), r.hosts);
    }
}

TEST(functions, make_policy) {
    tree db("policy_x_y=1\npolicy_x-1_y=1\n");
    for (const auto &[name, made] : {std::pair<std::string, std::string>{"x", "x-2"}, {"a_b_c", "a-b-c"}}) {
        char *result = make_policy(db, std::string(name).data(), "tn-px", 1, "set");
        EXPECT_EQ(result, made);
        free(result);
    }
    EXPECT_EQ(text_of(ffind(db, "policy_a-b-c")->child), "parm_desc=tn-px\nproxy_set=tn-px\n");
}

TEST(functions, old_config_type) {
    struct {
        const char *version; // what stands behind "version_firewall", null for no such line
        int type;
    } rows[] = {
        {nullptr, 40},        {"=4.1\n", 41},  {"=5.5.1\n", 55}, {"=5.5\n", 55},   {"=V5.55b\n", 55}, {"=\n", 50},
        {"=new\n", 50},       {"=5.0\n", 50},  {"=4\n", 40},     {"=V4.0b\n", 40}, {"=5.6\n", 56},    {"=5.\n", 50},
        {"=45\n", 45},        {"=4..1\n", 40}, {"=4.x1\n", 40},  {"=4 .1\n", 40},  {"=3.2\n", 32},    {"=0.9\n", 9},
        {"=10.3\n", 10},      {"=.5.5\n", 55}, {"=4.1.9\n", 41}, {"=55\n", 55},    {"_x=1\n", 0},     {"=", 0},
        {"=r 6, v5.5\n", 60}, {"=.\n", 50},
    };
    for (const auto &r : rows) {
        std::string version = r.version ? "version_firewall" + std::string(r.version) : "";
        tree conf("def_proxy_a_x=1\n" + version), old(version);
        EXPECT_EQ(old_config_type(conf), r.type) << version;
        EXPECT_EQ(old_config_type(old), 32) << version;
    }
    tree bare("def_proxy=\n");
    EXPECT_EQ(old_config_type(bare), 40);
}
