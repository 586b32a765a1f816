// The tree, its names and key paths, its order, and the limits of its files.
#include "netperm_support.h"

#include <cerrno>
#include <gtest/gtest.h>
#include <sys/resource.h>

using std::string;

static string n(int count) { return string(static_cast<size_t>(count), 'n'); }

TEST(store, keys_and_parents) {
    tree db;
    fset(db, "a_b_c", "1");
    fset(db, "a_", "below");
    EXPECT_STREQ(fset(db, "a_b", "")->value, "");
    fset(db, "z", "last");
    EXPECT_EQ(dump(db.head), "z=last a{=below b={c=1}}");
    fset(db, "a_b=ignored", nullptr);
    EXPECT_EQ(fval(db, "a_b"), nullptr);
    EXPECT_EQ(ffind(db, "a_c"), nullptr);
    EXPECT_EQ(ffind2(db, "a_b", "c"), ffind(db, "a_b_c=ignored"));
    EXPECT_EQ(ffind2(db, "a_c", "c"), nullptr);
    // A bare child list knows no owner; given one, only a node made directly in the list gets it.
    Frag *a = ffind(db, "a"), *x = fset(&a->child, "x", "1");
    EXPECT_EQ(x->parent, nullptr);
    EXPECT_EQ(fsetp(&a->child, "x", "2", a)->parent, nullptr);
    EXPECT_STREQ(fragkeyname(fsetp(&a->child, "p_q", "1", a)), "a_p_q");
    // `fset_list` gives its node a parent, new or not; if it has one, the first child is linked in its place.
    EXPECT_EQ(fset_list(&a, "x", "2")->parent, a);
    a->child->parent = nullptr;
    EXPECT_EQ(fset_list(&a, "x", "3"), x);
    EXPECT_EQ(a->child->parent, a);
    cur_database = nullptr;
    symfset("s", "1");
    EXPECT_STREQ(symffind("s")->value, "1");
    fremove(&def_database, "s");
}

TEST(store, nodes_are_handed_over_and_copied) {
    tree db("a{b=1 c=2 d_e=3} x:3{p=1}"), copy;
    copy.head = copy_fragtree(db, nullptr);
    fset(copy, "x_p", "changed");
    Frag *c = fdel(db, "a_c");
    EXPECT_EQ(c->parent, nullptr);
    EXPECT_STREQ(c->next->name, "d");
    freefrag(c);
    EXPECT_EQ(fdel(db, "a_c"), nullptr);
    EXPECT_TRUE(fremove(db, "a_b"));
    EXPECT_FALSE(fremove(db, "a_b"));
    EXPECT_EQ(dump(db.head) + " / " + dump(copy.head), "a_d_e=3 x:3_p=1 / a{b=1 c=2 d_e=3} x:3_p=changed");
    EXPECT_TRUE(linked(copy.head, nullptr));
}

// Whoever holds a node may free, grow, swap and replace its blocks, and make nodes with blocks of its own.
TEST(store, blocks_belong_to_the_heap) {
    scratch_dir dir;
    tree set("a=1 b=2"), copy, read;
    string lines;
    for (int length = 0; length < 40; length++) {
        fset(set, n(length + 1).c_str(), n(length).c_str());
        lines += n(length + 1) + "=" + n(length) + "\n";
    }
    copy.head = copy_fragtree(set, nullptr);
    importffile(dir.write("f", lines + "long=" + n(40000) + "\nlong=" + n(33000) + "\n").c_str(), read, 0);
    EXPECT_EQ(fval(read, "long"), n(33000));
    for (FragList list : {&set.head, &copy.head, &read.head}) {
        for (Frag *frag = *list; frag; frag = frag->next) { // the line feed has room behind the value, and an end
            frag->value[frag->vlen] = '\n';
            frag->value[frag->vlen + 1] = 0;
            frag->value[frag->vlen] = 0;
        }
        Frag *first = *list, *second = first->next;
        std::swap(first->name, second->name);
        free(first->value);
        first->value = strdup("x");
        first->vlen = 1;
        second->value = static_cast<char *>(realloc(second->value, 200));
        strcpy(second->value, n(199).c_str());
        second->vlen = 199;
        free(second->name);
        second->name = strdup("a name of the holder's own");
        fset(list, "a name of the holder's own", "1");
        renamefrag(second, "a_b");
        setvalue(first, std::string_view(first->value, 1)); // of its own value
        Frag *made = static_cast<Frag *>(calloc(1, sizeof(Frag)));
        made->name = strdup("made");
        made->value = strdup("by hand");
        made->vlen = 7;
        pushfrag(list, made, nullptr);
        fset(list, "made", "longer than it was");
        EXPECT_STREQ(made->value, "longer than it was");
        fremove(list, "made");
    }
    // A node that stands in no list need not have a name.
    freefrag(static_cast<Frag *>(calloc(1, sizeof(Frag))));
    Frag bare{}, *list = &bare;
    EXPECT_STREQ(fragname(&bare), "");
    EXPECT_STREQ(fragkeyname(&bare), "");
    freelist(copy_fragtree(&list, nullptr));
    renamefrag(&bare, "a_b");
    EXPECT_STREQ(bare.name, "a%5Fb");
    free(bare.name);
    // A value that goes is free for the next one.
    auto peak = [] { // in KiB
        rusage used;
        getrusage(RUSAGE_SELF, &used);
        return used.ru_maxrss;
    };
    const long before = peak();
    const string mebibyte = n(1 << 20);
    for (int turn = 0; turn < 2000; turn++)
        fset(set, "turns", turn % 2 ? "short" : mebibyte.c_str());
    EXPECT_LT(peak() - before, 500 << 10); // a sanitizer holds 256 MiB back
}

TEST(store, trees_of_any_depth) {
    tree db, copy;
    Frag *frag = fset(db, "a", nullptr);
    for (int level = 0; level < 1000000; level++)
        pushfrag(&frag->child, newsymfrag("b", 1), frag), frag = frag->child;
    copy.head = copy_fragtree(db, nullptr);
    EXPECT_EQ(strlen(fragkeyname(frag)), KEYNAME_SIZE - 1);
}

TEST(store, names) {
    tree frag("old=1");
    for (const char *row :
         {"a_b%c a%5Fb%25c a_b%c 0", "a%5Fb a%255Fb deny-a%5Fb 3", "x x absorb-x 12", "a=b a=b permit-a=b 5"}) {
        std::vector<string> words = split(row, ' ');
        renamefrag(frag.head, words[0].c_str());
        frag.head->attr = atol(words[3].c_str());
        EXPECT_EQ(frag.head->name, words[1]);
        EXPECT_EQ(fragname(frag.head), words[2]);
    }
    renamefrag(frag.head, n(100).c_str());
    frag.head->attr = 8;
    EXPECT_EQ(fragname(frag.head), "onlyon-" + n(56));
    EXPECT_STREQ(fragname(nullptr), "");
    // Escapes are decoded up to the end of what the size lets through, and no further.
    for (const char *row : {"a%|a%|-1", "a%4|a%4|-1", "a%41%aF|aA\xaf|-1", "%5f%5F|__|-1", "%zz-||-1", "ab%5Fc|ab%|4",
                            "ab%5Fc|ab_|6", "abc|abc|0", "abc||1"}) {
        std::vector<string> words = split(row, '|');
        char buffer[64];
        tree cut(words[0] + "=v");
        EXPECT_EQ(copy_fragname_len(cut.head, buffer, atoi(words[2].c_str())), words[1]) << row;
    }
    EXPECT_STREQ(attr_remap("deny-spam"), "spam-deny");
    EXPECT_STREQ(attr_revmap("route-char-permit"), "permit-route-char");
    EXPECT_STREQ(attr_remap("Deny-spam"), "Deny-spam");
    // 900 and a `_` and 118 make 1019, the last length that fits; one more `_` and the component would pass it.
    tree db;
    Frag *below = fset(db, (n(900) + "_" + n(118) + "_x").c_str(), "1");
    EXPECT_EQ(fragkeyname(below), n(900) + "_" + n(118) + "_");
    below->parent->attr = ATTR_PERMIT;
    EXPECT_EQ(fragkeyname(below), n(900) + "__x");
}

TEST(store, switches) {
    for (const char *on : {"|0", " \t|0", "  YES|1", "True|1", "on |0", "2|2", "0|0", "9x|9", "off|0"})
        EXPECT_EQ(is_on(split(on, '|')[0].c_str()), atoi(split(on, '|')[1].c_str())) << on;
    EXPECT_EQ(is_on(nullptr) + is_blanks(nullptr) + is_blanks(" \t ") + is_blanks(" \n"), 2);
}

TEST(store, order) {
    // The first character behind the zeros is passed over before digits are looked for: `0x` against `1` is `x` against
    // `1`, both at their ends, and the bytes decide.
    for (const string &fact :
         split("2<10 9<10a 10<9a 12<3a 99b>100a 5=5 05=5 1<1a 0x<x 007=7 0=00 0<1 0<10 0<0x 10<1a 19<2x Z<a "
               "a<ab <1 <a = a<\xff -1<1 a10<a9 %5F<A 10=010 1z<1\xff 1a10<1a2 1<0x 0x<10 1<0xy",
               ' ')) {
        size_t at = fact.find_first_of("<=>");
        string a = fact.substr(0, at), b = fact.substr(at + 1);
        int sign = fact[at] == '<' ? -1 : fact[at] == '>', there = fragmatch(a.c_str(), b.c_str());
        EXPECT_EQ((there > 0) - (there < 0), sign) << fact;
        EXPECT_EQ(fragmatch(b.c_str(), a.c_str()) > 0, sign < 0) << fact;
    }
    // Ties keep their order, unless more pairs fall than rise and a list, or a part of it, is turned around first.
    for (const char *row :
         {"|", "3 2 1|1 2 3", "10 9 2 1 11|1 2 9 10 11", "a B 10 9|9 10 B a", "1 01 3 2|1 01 2 3", "2 1 01|1 01 2",
          "9 8 7 1 01|01 1 7 8 9", "1 2 3 4 6 05 5|1 2 3 4 05 5 6", "1 2 3 4 7 6 05 5|1 2 3 4 5 05 6 7"}) {
        tree db(split(row, '|')[0]);
        EXPECT_EQ(sort_frags(db), 0);
        EXPECT_EQ(dump(db.head), split(row, '|')[1]) << row;
    }
}

TEST(store, files_that_can_not_be_opened) {
    scratch_dir dir;
    const string one = dir.write("one", "a=1\n"), two = dir.write("two", "a=2\nb=3\n"), none = dir.path + "/none";
    cur_database = nullptr;
    errno = EINTR; // of an earlier call
    EXPECT_EQ(importenv(two.c_str()) + importenv(one.c_str()) + importinitialenv(two.c_str()), 0);
    EXPECT_EQ(dump(def_database), "b=3 a=1");
    EXPECT_EQ(importenv(none.c_str()), 1);
    EXPECT_EQ(importffile(dir.path.c_str(), &def_database, 0), 0); // a folder opens, but can't be read
    cur_database = nullptr;
    EXPECT_EQ(exportenv((none + "/out").c_str(), 99), 1);
    EXPECT_EQ(dump(def_database), "version_moatwall.conf=099 b=3 a=1");
    freelist(def_database);
    def_database = nullptr;
    FILE *full = fopen("/dev/full", "w");
    setvbuf(full, nullptr, _IONBF, 0);
    tree db("a=1");
    keynamelen = 0;
    EXPECT_EQ(outffile(full, db.head, keynamebuf), 1);
    fclose(full);
    EXPECT_EQ(db.text() + db.head->value, "a=1\n1"); // the line feed that stands behind it while writing is gone
}

TEST(store, keys_that_do_not_fit) {
    for (int length : {178, 179}) { // 179 bytes in front of a component let it through, 180 don't
        tree db;
        fset(db, (n(length) + "_b").c_str(), "1");
        fset(db, (n(length) + "_b_c_d").c_str(), "1");
        EXPECT_EQ(db.text(), n(length) + "_b=1\n");
        fset(db, (n(length) + "_b_c").c_str(), "1");
        EXPECT_EQ(db.text(), n(length) + "_b=1\n" + (length == 178 ? n(length) + "_b_c=1\n" : ""));
    }
    // Of a name of so many bytes, with what is below it, and its bits: what is shown behind it, or `-` if nothing.
    const char *rows[] = {"1023||0|=1", "1024||0|-",    "100000|_x|0|-", "1016||1|=1",
                          "1017||1|-",  "1022|_|0|_=1", "1022|_x|0|-",   "1021|_x|0|_x=1"};
    scratch_dir dir;
    for (const char *row : rows) {
        std::vector<string> r = split(row, '|');
        const string name = n(atoi(r[0].c_str()));
        tree db("first_a=0");
        Frag *top = fset(&db.head->next, (name + r[1]).c_str(), "1");
        (top->parent ? top->parent : top)->attr = atol(r[2].c_str());
        db.head->next->next = newsymfrag("last", 4);
        setvalue(db.head->next->next, "2");
        EXPECT_EQ(exportffile((dir.path + "/out").c_str(), db, 50), r[3] == "-") << row;
        string shown = r[3] == "-" ? "" : (r[2] == "1" ? "permit-" : "") + name + r[3] + "\n";
        EXPECT_EQ(read_file(dir.path + "/out"), "first_a=0\n" + shown + "last=2\n") << row;
    }
}
