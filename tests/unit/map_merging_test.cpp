// Maps of different proxies folded, and the final numbers.
#include "netperm_support.h"

#include <gtest/gtest.h>

namespace {

struct row {
    const char *maps, *result;
    std::string policies = "";
};

void check(const std::vector<row> &rows) {
    for (const row &r : rows) {
        tree db(r.policies);
        add_maps(db, r.maps);
        merge_maps(db);
        EXPECT_EQ(maps_and_policies(db), r.result) << r.maps;
    }
}

} // namespace

TEST(map_merging, folding) {
    check({
        {"1 P g * tn-1 tn tn|2 P g * ftp-1 ftp ftp-2", "1 P g * Policy-1 / Policy-1(Policy-1;ftp-2=ftp;tn=tn)"},
        {"4 D g tn * tn tn|5 P g * a-1 a a|6 P g * b-1 b b|7 P g * c-1 c c",
         "1 D g tn *|2 P g * Policy-2 / Policy-2(Policy-2;c=c;b=b;a=a)"},
        {"1 D g tn * tn tn|2 D g tn * ftp ftp", "1 D g tn *|2 D g tn * /"},
        {"1 D g a * a a|2 P g * b-1 b b|3 P h * c-1 c c", "1 D g a *|2 P g * b-1|3 P h * c-1 / c-1(c;c=c) b-1(b;b=b)"},
        {"1 P g * a-1 a a|2 P g * a-2 a a-2|3 P g * b-1 b b|4 P g * b-2 b b-2",
         "1 P g * Policy-1|2 P g * Policy-2 / Policy-2(Policy-2;b-2=b;a-2=a) Policy-1(Policy-1;b=b;a=a)"},
        {"1 P g * a-1 a a|2 P g * a-2 a a-2|3 P g * b-1 b b",
         "1 P g * Policy-1|2 P g * a-2 / a-2(a;a-2=a) Policy-1(Policy-1;b=b;a=a)"},
        {"1 P g * a-1 a a|2 P h * b-1 b b|3 P g * c-1 c c|4 P h * d-1 d d",
         "1 P g * Policy-1|2 P h * Policy-2 / Policy-2(Policy-2;d=d;b=b) Policy-1(Policy-1;c=c;a=a)"},
        {"1 P g * a-1 a a|2 P g x b-1 b b", "1 P g * Policy-1 / Policy-1(Policy-1;b=b;a=a)"},
        {"1 P g * a-1 a a|2 P g * * b b", "1 P g * Policy-1 / Policy-1(Policy-1;b=b;a=a)"},
        {"1 P g * a-1 a same|2 P g * b-1 b same", "1 P g * Policy-1 / Policy-1(Policy-1;same=b)"},
    });
}

TEST(map_merging, order) {
    check({
        {"1 P a * p1 p p|2 P b * p2 p p|3 P c * p3 p p|4 P d * q1 q q|5 P e * q2 q q|6 P f * q3 q q",
         "1 P a * p1|2 P d * q1|3 P b * p2|4 P e * q2|5 P c * p3|6 P f * q3 / "
         "q3(q;q=q) q2(q;q=q) q1(q;q=q) p3(p;p=p) p2(p;p=p) p1(p;p=p)"},
        {"9 D a p * p p|10 D b p * p p|2 D c q * q q|30 D d q * q q", "1 D c q *|2 D a p *|3 D b p *|4 D d q * /"},
        {"5 D a p * p p|6 D b x * - -|7 D c p * p p|8 D d x * - -|9 D e x * - x",
         "1 D a p *|2 D b x *|3 D d x *|4 D e x *|5 D c p * /"},
    });
    tree db("policy_x_y=1\n");
    merge_maps(db);
    EXPECT_EQ(names_of(db.head), "policy");
    tree again;
    add_maps(again, "3 P g * a-1 a a|4 P g * b-1 b b");
    merge_maps(again);
    std::string once = maps_and_policies(again);
    merge_maps(again);
    EXPECT_EQ(maps_and_policies(again), once);
}

TEST(map_merging, maps_without_tags_and_names_in_use) {
    const std::string two = "policy_b-1_proxy_x=px\npolicy_b-1_proxy_y=py\npolicy_b-1_parm_desc=d\n";
    check({
        {"1 P g * a-1 a a|2 P g * b-1 - -", "1 P g * Policy-1 / Policy-1(Policy-1;y=py;x=px;a=a)", two},
        {"1 P g * a-1 a y|2 P g * b-1 b -", "1 P g * Policy-1 / Policy-1(Policy-1;x=px;y=py)", two},
        {"1 P g * a-1 a a|2 P g * b-1 - z", "1 P g * Policy-1 / Policy-1(Policy-1;y=py;x=px;a=a)", two},
        {"1 P g * a-1 a a|2 P g * gone - -", "1 P g * Policy-1 / Policy-1(Policy-1;a=a)"},
        {"1 P g * w a a|2 P g * w b b", "1 P g * w / w(a;a=a)"},
        {"1 P g * w a a|2 P g * w - -|3 P g * w c c", "1 P g * w / w(a;a=a)"},
        // "Policy-1" belongs to another.
        {"1 P g * a-1 a a|2 P g * b-1 b b", "1 P g * Policy-1-1 / Policy-1-1(Policy-1-1;b=b;a=a) Policy-1(x)",
         "policy_Policy-1_parm_desc=x\n"},
        {"1 P g * a-1 a a|2 P g * b-1 b b",
         "1 P g * Policy-1-2 / Policy-1-2(Policy-1-2;b=b;a=a) Policy-1(x) Policy-1-1()",
         "policy_Policy-1_parm_desc=x\npolicy_Policy-1-1_q=1\n"},
        {"1 P g * Policy-1 a a|2 P g * b-1 b b", "1 P g * Policy-1 / Policy-1(Policy-1;b=b;a=a)"},
    });
}

TEST(map_merging, maps_that_stay_apart) {
    check({
        {"1 P - * a-1 a a|2 P - * b-1 b b", "1 P - * a-1|2 P - * b-1 / b-1(b;b=b) a-1(a;a=a)"},
        {"1 - g * a-1 a a|2 - g * b-1 b b", "1 - g * a-1|2 - g * b-1 / b-1(b;b=b) a-1(a;a=a)"},
        {"1 P g - a-1 a a|2 P g - b-1 b b", "1 P g - a-1|2 P g - b-1 / b-1(b;b=b) a-1(a;a=a)"},
        {"1 P g * - a a|2 P g * b-1 b b", "1 P g * -|2 P g * b-1 / b-1(b;b=b)"},
        {"1 P g * a-1 a a|2 P g * - b b|3 P g * c-1 c c", "1 P g * Policy-1|2 P g * - / Policy-1(Policy-1;c=c;a=a)"},
        {"1 P g * gone a -|2 P g * b-1 b b", "1 P g * gone|2 P g * b-1 / b-1(b;b=b)"},
        {"1 P g * bare a a|2 P g * b-1 b b", "1 P g * bare|2 P g * b-1 / b-1(b;b=b) bare(x)",
         "policy_bare_parm_desc=x\n"},
        // A policy that a further map names.
        {"1 P g * w a a|2 P g * b-1 b b|3 P h * w c c", "1 P g * w|2 P g * b-1|3 P h * w / b-1(b;b=b) w(a;a=a)"},
        {"1 P g * a-1 a a|2 P g * w b b|3 P h * w c c", "1 P g * a-1|2 P g * w|3 P h * w / w(b;b=b) a-1(a;a=a)"},
        {"1 P g * a-1 a a|2 P g * w b b|3 P h * w b c|4 P g * d-1 d d",
         "1 P g * Policy-1|2 P g * w|3 P h * w / w(b;b=b) Policy-1(Policy-1;d=d;a=a)"},
    });
}

TEST(map_merging, proxies_not_in_maps) {
    tree maps("1_tag_proxy=a\n2_tag_cs=x\n3_tag_proxy=b\n4_tag_proxy=A\n5_src=g\n");
    auto map = [&](const char *name) { return ffind(maps, name); };
    EXPECT_EQ(proxies_not_in_maps(maps, map("1"), map("1")), 0);
    EXPECT_EQ(proxies_not_in_maps(maps, map("3"), map("1")), 0);
    EXPECT_EQ(proxies_not_in_maps(maps, map("1"), map("2")), 1);
    EXPECT_EQ(proxies_not_in_maps(maps, map("4"), map("1")), 0);
    EXPECT_EQ(proxies_not_in_maps(maps, map("4"), map("5")), 1);
    EXPECT_EQ(proxies_not_in_maps(maps, map("2"), map("1")), 1);
    EXPECT_EQ(proxies_not_in_maps(maps, map("1"), nullptr), 1);
}
