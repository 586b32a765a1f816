// A further fragment file merged into the database.
#include "netperm_support.h"

#include <gtest/gtest.h>

namespace {

struct conf_merging : testing::Test {
    scratch_dir dir;

    // The database behind the merging of a file of that text.
    std::string merged(const std::string &before, const std::string &file) {
        tree db(before);
        cur_database = db;
        conf_merge(db, dir.write("file", file).c_str());
        cur_database = &def_database;
        return db.text();
    }
    struct row {
        std::string before, file, after;
    };
    void check(const std::vector<row> &rows) {
        for (const row &r : rows)
            EXPECT_EQ(merged(r.before, r.file), r.after) << r.before << "--\n" << r.file;
    }
};

// A map of "pd src proxy policy", with `-` for a key that is not there and `0` for an empty value.
Frag *map_of(FragList list, const std::string &text) {
    static int made;
    Frag *map = fset(list, numbertext(++made).c_str(), nullptr);
    std::vector<std::string> words = split(text, ' ');
    const char *keys[] = {"pd", "src", "proxy", "policy"};
    for (size_t at = 0; at < 4; at++)
        if (words[at] != "-")
            fsetp(&map->child, keys[at], words[at] == "0" ? "" : words[at].c_str(), map);
    return map;
}

const std::string POLICIES =
    "policy_p_proxy_b=1\npolicy_p_proxy_10=1\npolicy_p_proxy_9=1\n"
    "policy_same_proxy_9=2\npolicy_same_proxy_b=3\npolicy_same_proxy_10=4\n"
    "policy_more_proxy_c=1\npolicy_more_proxy_9=1\npolicy_more_proxy_10=1\npolicy_more_proxy_b=1\n"
    "policy_other_proxy_z=1\npolicy_other_proxy_a=1\npolicy_other_proxy_b=1\n"
    "policy_none_x=1\npolicy_empty_proxy=\npolicy_void_proxy=\n";

} // namespace

TEST_F(conf_merging, same_map) {
    struct {
        const char *a, *b;
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
        tree db(POLICIES), maps;
        Frag *a = map_of(maps, r.a), *b = map_of(maps, r.b);
        EXPECT_EQ(same_map(db, a, b), r.same) << r.a << " / " << r.b;
        EXPECT_EQ(same_map(db, b, a), r.same) << r.b << " / " << r.a;
    }
    EXPECT_EQ(not_same_netobj(nullptr, "a", "a"), 1);
}

TEST_F(conf_merging, not_same_policy) {
    struct {
        const char *a, *b;
        int result;
        const char *sorted_a, *sorted_b; // what the `proxy` nodes list afterwards
    } rows[] = {
        {"p", "same", 0, "9 10 b", "9 10 b"}, {"p", "more", 1, "9 10 b", "9 10 b c"},
        {"p", "other", 1, "9 10 b", "a b z"}, {"more", "p", 1, "9 10 b c", "9 10 b"},
        {"p", "none", 1, "b 10 9", ""},       {"p", "missing", 1, "b 10 9", ""},
        {"empty", "void", 0, "", ""},         {"p", "void", 1, "9 10 b", ""},
        {"p", "p", 0, "9 10 b", "9 10 b"},
    };
    for (const auto &r : rows) {
        tree db(POLICIES);
        auto sets = [&](std::string name) {
            Frag *frag = ffind(db, ("policy_" + name + "_proxy").c_str());
            return names_of(frag ? frag->child : nullptr);
        };
        EXPECT_EQ(not_same_policy(db, r.a, r.b), r.result) << r.a << " " << r.b;
        EXPECT_EQ(sets(r.a), r.sorted_a) << r.a << " " << r.b;
        EXPECT_EQ(sets(r.b), r.sorted_b) << r.a << " " << r.b;
    }
    tree empty;
    EXPECT_EQ(not_same_policy(empty, "a", "a"), 1);
}

TEST_F(conf_merging, dont_have_map) {
    tree db(POLICIES), have("map=\n"), maps;
    Frag *list = have.head;
    Frag *map = map_of(maps, "P s x p");
    EXPECT_EQ(dont_have_map(db, list, map), 1);
    map_of(&list->child, "P s x q");
    map_of(&list->child, "P s x other");
    EXPECT_EQ(dont_have_map(db, list, map), 1);
    map_of(&list->child, "P s x same");
    map_of(&list->child, "P t x p");
    EXPECT_EQ(dont_have_map(db, list, map), 0);
    EXPECT_EQ(dont_have_map(db, list, map_of(maps, "D t x p")), 1);
    map_of(&list->child, "- t x p");
    EXPECT_EQ(dont_have_map(db, list, map_of(maps, "D t x p")), 0);
}

TEST_F(conf_merging, keys_outside_maps_and_policies) {
    check({
        {"a=1\nb_c=2\nb_e=\nn_x=1\n", "a=9\nb_c=9\nb_d=3\nb_e=9\nn=9\nz=4\nz=5\n",
         "z=4\na=1\nb_d=3\nb_c=2\nb_e=\nn=\nn_x=1\n"},
        {"map-x_1=a\n", "maps_1_pd=P\n", "maps_1_pd=P\nmap-x_1=a\n"},
    });
}

TEST_F(conf_merging, numbers_of_maps) {
    check({
        {"x=1\n", "map_3_pd=P\nmap_1_pd=P\n", "map_1_pd=P\nmap_3_pd=P\nx=1\n"},
        {"map_4_pd=D\nmap_10_pd=P\nmap_2_id=2\nx=1\n", "y=2\n", "map_1_id=2\nmap_2_pd=D\nmap_3_pd=P\ny=2\nx=1\n"},
        // The file's maps come behind the old ones, in the order of their numbers; the second of two equal ones stays
        // out.
        {"map_7_pd=P\nmap_7_src=a\n",
         "map_10_pd=P\nmap_10_src=e\nmap_9_pd=P\nmap_9_src=d\nmap_9_id=9\nmap_1_pd=P\nmap_1_src=a\nmap_1_id=1\n"
         "map_11_pd=P\nmap_11_src=d\nmap_11_id=11\n",
         "map_1_pd=P\nmap_1_src=a\nmap_2_id=9\nmap_2_src=d\nmap_2_pd=P\nmap_3_src=e\nmap_3_pd=P\n"},
        {"map_1_pd=P\nmap_1_src=a\nmap_1_policy=p\n", "map_1_pd=P\nmap_1_src=a\nmap_1_policy=q\n",
         "map_1_pd=P\nmap_1_src=a\nmap_1_policy=p\n"},
        // An old map without `pd` is the same as any.
        {"map_1_src=a\nmap_2_pd=P\n", "map_1_pd=D\nmap_2_pd=P\nmap_2_src=q\n", "map_1_src=a\nmap_2_pd=P\n"},
        {"map=\n", "map_7_pd=P\nmap_7_src=a\nmap_8_pd=P\nmap_8_src=a\nmap_9_pd=D\n",
         "map_1_src=a\nmap_1_pd=P\nmap_2_pd=D\n"},
        {"map=old\nmap_3_pd=P\n", "map=new\n", "map_1_pd=P\n"},
    });
}

TEST_F(conf_merging, policies) {
    auto p = [](const std::string &text) { return "policy_" + text + "\n"; };
    check({
        {"x=1\n", "policy_b_x=1\npolicy_a_x=1\n", p("a_x=1") + p("b_x=1") + "x=1\n"},
        {p("b_x=1") + p("a_x=2") + "x=1\n", "y=1\n", p("b_x=1") + p("a_x=2") + "y=1\nx=1\n"},
        {p("a_x=1") + p("b_y=1"), p("a_x=9") + p("a_z=9") + p("c_z=1") + p("d=1"),
         p("c_z=1") + p("d=1") + p("a_x=1") + p("b_y=1")},
        {p("a%5Fb_x=1"), p("a%5Fb_x=2"), p("a%5Fb_x=2") + p("a%5Fb_x=1")},
        {p("a_b=1"), p("a%5Fb_x=2"), p("a_b=1")},
        {p("a_x=1"), p("permit-a_x=2"), p("permit-a_x=2") + p("a_x=1")},
        {"policy=\n", p("a=1"), p("a=1")},
    });
}

// A map that differs in its policy alone is the same if both policies are in the file and list the same config sets.
TEST_F(conf_merging, maps_and_policies) {
    const std::string old_map = "map_1_pd=P\nmap_1_src=a\nmap_1_proxy=*\nmap_1_policy=p\n",
                      new_map = "map_1_pd=P\nmap_1_src=a\nmap_1_proxy=*\nmap_1_policy=q\n",
                      came_in = "map_2_policy=q\nmap_2_proxy=*\nmap_2_src=a\nmap_2_pd=P\n",
                      p = "policy_p_proxy_b=1\npolicy_p_proxy_a=1\n", q = "policy_q_proxy_a=2\npolicy_q_proxy_b=2\n",
                      differs = "policy_q_proxy_a=2\n";
    check({
        {old_map + p, new_map + p + q, "policy_q_proxy_a=2\npolicy_q_proxy_b=2\n" + p + old_map},
        {old_map + p, new_map + p + differs, differs + p + old_map + came_in},
        {old_map + p, new_map + q, "policy_q_proxy_b=2\npolicy_q_proxy_a=2\n" + p + old_map + came_in},
        {old_map + p + q, old_map + p + q, p + q + old_map},
    });
}

TEST_F(conf_merging, missing_file) {
    tree db("map_3_pd=P\nmap_1_pd=D\npolicy_b_x=1\npolicy_a_x=1\nx=1\n");
    cur_database = db;
    testing::internal::CaptureStderr();
    conf_merge(db, (dir.path + "/none").c_str());
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "Failed to merge " + dir.path + "/none\n");
    cur_database = &def_database;
    EXPECT_EQ(db.text(), "policy_b_x=1\npolicy_a_x=1\nmap_1_pd=D\nmap_2_pd=P\nx=1\n");
}
