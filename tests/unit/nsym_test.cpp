// The tree, its names and its key paths.
#include "dump.h"
#include "support.h"

#include <cstring>
#include <gtest/gtest.h>

TEST(nsym, set_and_find) {
    tree db;
    fset(db, "a_b_c", "1");
    EXPECT_EQ(fval(db, "a_b"), nullptr);
    EXPECT_NE(ffind(db, "a_b"), nullptr);
    EXPECT_STREQ(fval(db, "a_b_c=ignored"), "1");
    EXPECT_EQ(ffind(db, "a_c"), nullptr);
    EXPECT_EQ(ffind2(db, "a_b", "c"), ffind(db, "a_b_c"));
    fset(db, "a_", "below");
    EXPECT_STREQ(fval(db, "a_"), "below");
    EXPECT_EQ(fval(db, "a"), nullptr);
    fset(db, "a_b", "");
    EXPECT_STREQ(fval(db, "a_b"), "");
    EXPECT_EQ(ffind(db, "a_b")->vlen, 0);
    fset(db, "a_b", nullptr);
    EXPECT_EQ(fval(db, "a_b"), nullptr);
    EXPECT_STREQ(fval(db, "a_b_c"), "1");
    fset(db, "z", "last");
    EXPECT_EQ(names_of(db.head), "z a");
}

TEST(nsym, parents) {
    tree db;
    Frag *a = fset(db, "a", nullptr);
    // A bare child list knows no owner; given one, only a node made directly in the list gets it.
    EXPECT_EQ(fset(&a->child, "x", "1")->parent, nullptr);
    EXPECT_EQ(fsetp(&a->child, "x", "2", a)->parent, nullptr);
    Frag *deep = fsetp(&a->child, "p_q", "1", a);
    EXPECT_EQ(deep->parent->parent, a);
    EXPECT_STREQ(fragkeyname(deep), "a_p_q");
}

TEST(nsym, set_list_links_the_node_or_else_the_first_child) {
    tree db;
    Frag *a = fset(db, "a", nullptr);
    Frag *x = fset(&a->child, "x", "1");
    // The node has no parent: it gets one, new or not, and the first child is left as it is.
    Frag *y = fset(&a->child, "y", "1");
    EXPECT_EQ(fset_list(&a, "x", "2"), x);
    EXPECT_EQ(x->parent, a);
    EXPECT_EQ(y->parent, nullptr);
    EXPECT_EQ(fset_list(&a, "z", "1")->parent, a);
    // The node has a parent already: the first child, if it has none, is linked in its place.
    a->child->parent = nullptr;
    EXPECT_EQ(fset_list(&a, "x", "3"), x);
    EXPECT_EQ(ffind(db, "a_z")->parent, a);
    EXPECT_EQ(y->parent, nullptr);
    Frag *deep = fset_list(&a, "p_q", "1");
    EXPECT_EQ(deep->parent, ffind(db, "a_p"));
    EXPECT_EQ(deep->parent->parent, a);
    // Both are linked: nothing else is touched.
    fset_list(&a, "x", "4");
    EXPECT_EQ(y->parent, nullptr);
    EXPECT_EQ(dump(db.head), "a{p{q=1} z=1 y=1 x=4}");
}

TEST(nsym, delete_hands_the_node_over) {
    tree db("a_b=1\na_c=2\na_d_e=3\n");
    Frag *c = fdel(db, "a_c");
    EXPECT_EQ(c->parent, nullptr);
    EXPECT_STREQ(c->next->name, "d");
    EXPECT_EQ(db.text(), "a_b=1\na_d_e=3\n");
    freefrag(c);
    EXPECT_EQ(fdel(db, "a_c"), nullptr);
    EXPECT_TRUE(fremove(db, "a_b"));
    EXPECT_EQ(names_of(ffind(db, "a")->child), "d");
    EXPECT_TRUE(fremove(db, "a_d"));
    EXPECT_EQ(ffind(db, "a")->child, nullptr);
    EXPECT_FALSE(fremove(db, "a_d"));
}

TEST(nsym, copy_shares_nothing) {
    tree db("x=1\ny_p=2\ny_q_r=3\nz=4\n");
    ffind(db, "y_q")->attr = ATTR_DENY;
    tree copy;
    copy.head = copy_fragtree(db, nullptr);
    fset(copy, "y_p", "changed");
    EXPECT_EQ(db.text(), "x=1\ny_p=2\ny_deny-q_r=3\nz=4\n");
    EXPECT_EQ(copy.text(), "x=1\ny_p=changed\ny_deny-q_r=3\nz=4\n");
    EXPECT_EQ(ffind(copy, "y_q_r")->parent, ffind(copy, "y_q"));
    EXPECT_EQ(ffind(copy, "y_q")->parent, ffind(copy, "y"));
}

TEST(nsym, trees_of_any_depth) {
    tree db;
    Frag *frag = fset(db, "a", nullptr);
    for (int level = 0; level < 1000000; level++)
        pushfrag(&frag->child, newsymfrag("b", 1), frag), frag = frag->child;
    tree copy;
    copy.head = copy_fragtree(db, nullptr);
    EXPECT_EQ(strlen(fragkeyname(frag)), KEYNAME_SIZE - 1);
}

TEST(nsym, clear_and_stored_names) {
    struct row {
        const char *text, *stored, *clear;
        long attr;
    };
    const row rows[] = {
        {"a_b%c", "a%5Fb%25c", "a_b%c", 0},
        {"a%5Fb", "a%255Fb", "deny-a%5Fb", ATTR_DENY | ATTR_PERMIT},
        {"x", "x", "absorb-x", ATTR_ABSORB | ATTR_ONLYON},
        {"a=b", "a=b", "permit-a=b", ATTR_PERMIT | ATTR_ABSORB},
        {"", "", "onlyon-", ATTR_ONLYON},
    };
    for (const row &r : rows) {
        Frag *frag = newsymfrag("old", 3);
        renamefrag(frag, r.text);
        frag->attr = r.attr;
        EXPECT_STREQ(frag->name, r.stored);
        EXPECT_STREQ(fragname(frag), r.clear);
        freefrag(frag);
    }
}

TEST(nsym, decoding_stops_at_the_end) {
    struct row {
        const char *stored, *clear;
        int size;
    };
    const row rows[] = {
        {"a%", "a%", -1},     {"a%4", "a%4", -1}, {"a%41%", "aA%", -1}, {"%5f%5F", "__", -1},
        {"%zz-", "", -1},     {"%4z", "@", -1},   {"ab%5Fc", "ab%", 4}, {"ab%5Fc", "ab%5", 5},
        {"ab%5Fc", "ab_", 6}, {"abc", "abc", 0},  {"abc", "", 1},
    };
    for (const row &r : rows) {
        char buffer[64];
        Frag *frag = newsymfrag(r.stored, strlen(r.stored));
        EXPECT_STREQ(copy_fragname_len(frag, buffer, r.size), r.clear) << r.stored << " " << r.size;
        freefrag(frag);
    }
    Frag *long_name = newsymfrag(std::string(100, 'n').c_str(), 100);
    long_name->attr = ATTR_DENY;
    EXPECT_EQ(fragname(long_name), "deny-" + std::string(58, 'n'));
    freefrag(long_name);
    EXPECT_STREQ(fragname(nullptr), "");
}

TEST(nsym, key_of_a_node_leaves_out_what_does_not_fit) {
    tree db;
    std::string long_name(900, 'n');
    Frag *top = newsymfrag(long_name.data(), long_name.size());
    pushfrag(db, top, nullptr);
    Frag *below = fsetp(&top->child, (std::string(118, 'm') + "_x").c_str(), "1", top);
    // 900 and a `_` and 118 make 1019, the last length that fits; one more `_` and the component would pass it.
    EXPECT_EQ(fragkeyname(below), long_name + "_" + std::string(118, 'm') + "_");
    below->parent->attr = ATTR_PERMIT;
    EXPECT_EQ(fragkeyname(below), long_name + "__x");
}

TEST(nsym, names_of_the_attribute_table) {
    EXPECT_STREQ(attr_remap("deny-spam"), "spam-deny");
    EXPECT_STREQ(attr_revmap("route-char-permit"), "permit-route-char");
    EXPECT_STREQ(attr_remap("Deny-spam"), "Deny-spam");
    EXPECT_STREQ(attr_revmap("x"), "x");
}

TEST(nsym, switches_and_blanks) {
    struct row {
        const char *text;
        int on;
    };
    for (const row &r : {row{nullptr, 0},
                         {"", 0},
                         {" \t", 0},
                         {"  YES", 1},
                         {"True", 1},
                         {"on ", 0},
                         {"2", 2},
                         {"0", 0},
                         {"07x", 7},
                         {"maybe", 0},
                         {"off", 0},
                         {"-1", 0}})
        EXPECT_EQ(is_on(r.text), r.on) << (r.text ? r.text : "null");
    EXPECT_EQ(is_blanks(nullptr), 1);
    EXPECT_EQ(is_blanks(" \t "), 1);
    EXPECT_EQ(is_blanks(" \n"), 0);
}
