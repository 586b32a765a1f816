// Fragment files: what can't be opened, limits of keys, XML.
#include "dump.h"
#include "support.h"

#include <gtest/gtest.h>

using std::string;

static string n(size_t count) { return string(count, 'n'); }

TEST(fragfile, files_that_can_not_be_opened) {
    scratch_dir dir;
    const string one = dir.write("one", "a=1\n"), two = dir.write("two", "a=2\nb=3\n"), none = dir.path + "/none";
    cur_database = nullptr;
    EXPECT_EQ(importenv(one.c_str()), 0);
    EXPECT_EQ(importinitialenv(two.c_str()), 0);
    EXPECT_EQ(dump(def_database), "b=3 a=1");
    EXPECT_EQ(importenv(two.c_str()), 0);
    EXPECT_EQ(importenv(none.c_str()), 1);
    EXPECT_EQ(importffile(dir.path.c_str(), &def_database, 0), 0); // a folder opens, but can't be read
    EXPECT_EQ(dump(def_database), "b=3 a=2");
    EXPECT_EQ(exportffile((none + "/out").c_str(), &def_database, 50), 1);
    EXPECT_EQ(exportffile((none + "/out").c_str(), &def_database, 99), 1);
    EXPECT_EQ(exportenv((none + "/out").c_str(), 50), 1);
    EXPECT_EQ(dump(def_database), "version{moatwall.conf=050} b=3 a=2");
    freelist(def_database);
    def_database = nullptr;
    FILE *full = fopen("/dev/full", "w");
    setvbuf(full, nullptr, _IONBF, 0);
    tree db("a=1\n");
    keynamelen = 0;
    EXPECT_EQ(outffile(full, db.head, keynamebuf), 1);
    fclose(full);
}

TEST(fragfile, written_bytes) {
    tree db("b=1\nb_c=2\na=3\n");
    fset(db, "b_d_nothing_below", nullptr);
    setvalue(ffind(db, "a"), std::string_view("x\0y", 3));
    EXPECT_EQ(db.text(), string("b=1\nb_c=2\na=x\0y\n", 16));
    EXPECT_EQ(ffind(db, "b")->value[1], '\0'); // the line feed that stood here while writing is gone
}

TEST(fragfile, keys_of_180_bytes_lead_no_further) {
    for (size_t length : {178U, 179U}) {
        string top = n(length), lines = top + "=1\n" + top + "_b=1\n", deeper = top + "_b_c=1\n";
        tree db;
        for (const char *below : {"_b_c_d", "_b_c", "_b", ""})
            fset(db, (top + below).c_str(), "1");
        // What stands in front of `b` is `top` and a `_`: 179 bytes let `c` through, 180 don't; 181 never let `d`.
        EXPECT_EQ(db.text(), length == 178 ? lines + deeper : lines);
    }
}

TEST(fragfile, keys_that_do_not_fit_are_left_out) {
    struct {
        string name, expected;
        long attr;
        const char *below;
    } rows[] = {{n(1023), n(1023) + "=1\n", 0, ""},
                {n(1024), "", 0, ""},
                {n(100000), "", 0, "_x"},
                {n(1016), "permit-" + n(1016) + "=1\n", 1, ""},
                {n(1017), "", 1, ""},
                {n(1022), n(1022) + "_=1\n", 0, "_"},
                {n(1022), "", 0, "_x"},
                {n(1021), n(1021) + "_x=1\n", 0, "_x"}};
    scratch_dir dir;
    const string out = dir.path + "/out";
    for (const auto &r : rows) {
        tree db("last=2\n");
        fset(db, (r.name + r.below).c_str(), "1");
        db.head->attr = r.attr;
        fset(db, "first_a", "0");
        EXPECT_EQ(exportffile(out.c_str(), db, 50), r.expected.empty() ? 1 : 0) << r.name.size();
        EXPECT_EQ(read_file(out), "first_a=0\n" + r.expected + "last=2\n") << r.name.size();
    }
}

TEST(fragfile, xml) {
    scratch_dir dir;
    string out = dir.path + "/out";
    tree db("a=unseen\na_b=<\"&\na_permit-c=1\na_permit-c_use%5Fname=2\na_permit-relay=3\na_e_f_=\n*=4\n");
    fset(db, "a_g", nullptr);
    fset(db, ("a_" + n(70)).c_str(), "5");
    EXPECT_EQ(exportffile(out.c_str(), db, 99), 0);
    EXPECT_EQ(read_file(out), "<?xml version=\"1.0\"?>\n<moatwall.conf>\n  <a " + n(63) +
                                  "=\"5\" b=\"<\"&\" permit-c=\"1\" relay-permit=\"3\" >\n"
                                  "    <permit-c use_name=\"2\" >\n    </permit-c>\n"
                                  "    <e >\n      <f =\"\" >\n      </f>\n    </e>\n"
                                  "  </a>\n  <* >\n  </*>\n</moatwall.conf>\n");
    EXPECT_EQ(outxmlfile(stdout, nullptr, 2), 0);
}
