// The tree, its names and its key paths.
#include "dump.h"
#include "support.h"

#include <cstring>
#include <gtest/gtest.h>

using std::string;

TEST(nsym, set_and_find) {
    tree db;
    fset(db, "a_b_c", "1");
    EXPECT_EQ(fval(db, "a_b"), nullptr);
    EXPECT_STREQ(fval(db, "a_b_c=ignored"), "1");
    EXPECT_EQ(ffind(db, "a_c"), nullptr);
    EXPECT_EQ(ffind2(db, "a_b", "c"), ffind(db, "a_b_c"));
    fset(db, "a_", "below");
    fset(db, "a_b", "");
    EXPECT_EQ(dump(db.head), "a{=below b={c=1}}");
    EXPECT_EQ(ffind(db, "a_b")->vlen, 0);
    fset(db, "a_b", nullptr);
    fset(db, "z", "last");
    EXPECT_EQ(dump(db.head), "z=last a{=below b{c=1}}");
}

TEST(nsym, parents) {
    tree db;
    Frag *a = fset(db, "a", nullptr);
    // A bare child list knows no owner; given one, only a node made directly in the list gets it.
    Frag *x = fset(&a->child, "x", "1"), *y = fset(&a->child, "y", "1");
    EXPECT_EQ(x->parent, nullptr);
    EXPECT_EQ(fsetp(&a->child, "x", "2", a)->parent, nullptr);
    Frag *deep = fsetp(&a->child, "p_q", "1", a);
    EXPECT_EQ(deep->parent->parent, a);
    EXPECT_STREQ(fragkeyname(deep), "a_p_q");
    // `fset_list` gives its node a parent, new or not; if it has one, the first child is linked in its place.
    EXPECT_EQ(fset_list(&a, "x", "2"), x);
    EXPECT_EQ(x->parent, a);
    EXPECT_EQ(fset_list(&a, "z", "1")->parent, a);
    a->child->parent = nullptr;
    EXPECT_EQ(fset_list(&a, "x", "3"), x);
    EXPECT_EQ(a->child->parent, a);
    EXPECT_EQ(fset_list(&a, "r_s", "1")->parent->parent, a);
    fset_list(&a, "x", "4");
    EXPECT_EQ(y->parent, nullptr); // never touched
    EXPECT_EQ(dump(db.head), "a{r{s=1} z=1 p{q=1} y=1 x=4}");
}

TEST(nsym, delete_hands_the_node_over) {
    tree db("a_b=1\na_c=2\na_d_e=3\n");
    Frag *c = fdel(db, "a_c");
    EXPECT_EQ(c->parent, nullptr);
    EXPECT_STREQ(c->next->name, "d");
    freefrag(c);
    EXPECT_EQ(fdel(db, "a_c"), nullptr);
    EXPECT_TRUE(fremove(db, "a_b"));
    EXPECT_EQ(dump(db.head), "a{d{e=3}}");
    EXPECT_TRUE(fremove(db, "a_d"));
    EXPECT_EQ(ffind(db, "a")->child, nullptr);
    EXPECT_FALSE(fremove(db, "a_d"));
}

TEST(nsym, copy_shares_nothing) {
    tree db("x=1\ny_p=2\ny_permit-deny-q_r=3\nz=4\n"), copy;
    copy.head = copy_fragtree(db, nullptr);
    fset(copy, "y_p", "changed");
    EXPECT_EQ(dump(db.head), "x=1 y{p=2 q:3{r=3}} z=4");
    EXPECT_EQ(dump(copy.head), "x=1 y{p=changed q:3{r=3}} z=4");
    EXPECT_TRUE(linked(copy.head, nullptr));
}

TEST(nsym, trees_of_any_depth) {
    tree db, copy;
    Frag *frag = fset(db, "a", nullptr);
    for (int level = 0; level < 1000000; level++)
        pushfrag(&frag->child, newsymfrag("b", 1), frag), frag = frag->child;
    copy.head = copy_fragtree(db, nullptr);
    EXPECT_EQ(strlen(fragkeyname(frag)), KEYNAME_SIZE - 1);
}

TEST(nsym, clear_and_stored_names) {
    struct {
        const char *text, *stored, *clear;
        long attr;
    } rows[] = {
        {"a_b%c", "a%5Fb%25c", "a_b%c", 0},
        {"a%5Fb", "a%255Fb", "deny-a%5Fb", ATTR_DENY | ATTR_PERMIT},
        {"x", "x", "absorb-x", ATTR_ABSORB | ATTR_ONLYON},
        {"a=b", "a=b", "permit-a=b", ATTR_PERMIT | ATTR_ABSORB},
        {"", "", "onlyon-", ATTR_ONLYON},
    };
    tree frag("old=1\n");
    for (const auto &r : rows) {
        renamefrag(frag.head, r.text);
        frag.head->attr = r.attr;
        EXPECT_STREQ(frag.head->name, r.stored);
        EXPECT_STREQ(fragname(frag.head), r.clear);
    }
    EXPECT_STREQ(fragname(nullptr), "");
    EXPECT_STREQ(attr_remap("deny-spam"), "spam-deny");
    EXPECT_STREQ(attr_revmap("route-char-permit"), "permit-route-char");
    EXPECT_STREQ(attr_remap("Deny-spam"), "Deny-spam");
    EXPECT_STREQ(attr_revmap("x"), "x");
}

TEST(nsym, decoding_stops_at_the_end) {
    struct {
        string stored, clear;
        int size;
    } rows[] = {
        {"a%", "a%", -1},     {"a%4", "a%4", -1}, {"a%41%", "aA%", -1}, {"%5f%5F", "__", -1},
        {"%zz-", "", -1},     {"%4z", "@", -1},   {"ab%5Fc", "ab%", 4}, {"ab%5Fc", "ab%5", 5},
        {"ab%5Fc", "ab_", 6}, {"abc", "abc", 0},  {"abc", "", 1},
    };
    char buffer[64];
    for (const auto &r : rows) {
        tree frag(r.stored + "=v\n");
        EXPECT_STREQ(copy_fragname_len(frag.head, buffer, r.size), r.clear.c_str()) << r.stored << " " << r.size;
    }
    tree db;
    pushfrag(db, newsymfrag(string(100, 'n').c_str(), 100), nullptr);
    db.head->attr = ATTR_DENY;
    EXPECT_EQ(fragname(db.head), "deny-" + string(58, 'n'));
}

TEST(nsym, key_of_a_node_leaves_out_what_does_not_fit) {
    tree db;
    string long_name(900, 'n');
    // 900 and a `_` and 118 make 1019, the last length that fits; one more `_` and the component would pass it.
    Frag *below = fset(db, (long_name + "_" + string(118, 'm') + "_x").c_str(), "1");
    EXPECT_EQ(fragkeyname(below), long_name + "_" + string(118, 'm') + "_");
    below->parent->attr = ATTR_PERMIT;
    EXPECT_EQ(fragkeyname(below), long_name + "__x");
}

TEST(nsym, switches_and_blanks) {
    const std::pair<const char *, int> rows[] = {{nullptr, 0}, {"", 0},      {" \t", 0}, {"  YES", 1},
                                                 {"True", 1},  {"on ", 0},   {"2", 2},   {"0", 0},
                                                 {"07x", 7},   {"maybe", 0}, {"off", 0}, {"-1", 0}};
    for (const auto &[text, on] : rows)
        EXPECT_EQ(is_on(text), on) << (text ? text : "null");
    EXPECT_EQ(is_blanks(nullptr), 1);
    EXPECT_EQ(is_blanks(" \t "), 1);
    EXPECT_EQ(is_blanks(" \n"), 0);
}
