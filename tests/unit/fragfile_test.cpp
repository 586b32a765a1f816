// Fragment files: the reader, the writer, XML and the save.
#include "dump.h"
#include "support.h"

#include <gtest/gtest.h>

using std::string;

static string n(size_t count) {
    return string(count, 'n');
}

// A file's bytes; a `~` in the text stands for a zero byte.
static string bytes(string text) {
    for (char &byte : text)
        if (byte == '~')
            byte = '\0';
    return text;
}

namespace {
struct read_row {
    string file, expected, before = "";
};
} // namespace

static void expect_reads(const std::vector<read_row> &rows, int mode) {
    scratch_dir dir;
    for (const read_row &r : rows) {
        tree db(r.before);
        EXPECT_EQ(importffile(dir.write("file", bytes(r.file)).c_str(), db, mode), 0);
        EXPECT_EQ(dump(db.head), bytes(r.expected)) << r.file;
        EXPECT_TRUE(linked(db.head, nullptr)) << r.file;
    }
}

TEST(fragfile, flat_form) {
    expect_reads({{"", ""},
                  {"a=1\nb=2\n", "b=2 a=1"},
                  {"a_b_c=1\na_d=2\n", "a{d=2 b{c=1}}"},
                  {"a=1\na=2\n", "a=2"},
                  {"a=12345\na=x\n", "a=x"},
                  {"a=1\na=\n", "a=1"},
                  {"a=\n", "a="},
                  {"a=\n", "a={b=1}", "a_b=1\n"},
                  {"foo\nbar=1\n", "foo\nbar=1"},
                  {"# a=b\n", "# a=b"},
                  {" \t a = 1 \n\r\n \nb_ \n\tc=2\n", "b{c=2} a = 1 "},
                  {"a__b=1\n=2\n_=3\n", "=2{=3} a{{b=1}}"},
                  {"a=b=c_d\n", "a=b=c_d"},
                  {"a=x\\\nb=[y]\n", "b=[y] a=x\\"},
                  {"a[b]=1\na]\\b=2\n", "a]\\b=2 a[b]=1"},
                  {"a=1\r\nb=x\ry\r\r\nc=\r\n", "c= b=xy a=1"},
                  {"a\r=1\n", "a\r=1"},
                  {"a~b=1\n~c_=2\n \t~d\n", "=d a=b=1"},
                  {"a=~x~\nb=~\n", "b=~ a=~x~"}},
                 0);
}

TEST(fragfile, prefixes) {
    expect_reads({{"PERMIT-a=1\n", "a:1=1"},
                  {"permit-deny-a=1\ndeny-Deny-b=2\n", "b:2=2 a:3=1"},
                  {"Onlyon-ABSORB-a_deny-b=1\n", "a:12{b:2=1}"},
                  {"permit-relay=1\ndeny-route-char=2\n", "route-char-deny=2 relay-permit=1"},
                  {"Permit-relay=1\ndeny-permit-spam=2\n", "spam:3=2 relay:1=1"},
                  {"a_permit-spam_b=1\n", "a{spam-permit{b=1}}"},
                  {"permit-=1\n", ":1=1"},
                  {"permita=1\na-permit-b=2\n", "a-permit-b=2 permita=1"},
                  {" permit- a=1\n", " a:1=1"},
                  // Every line sets the bits of every node of its key anew.
                  {"permit-a_deny-b=1\na_b=2\n", "a{b=2}"},
                  {"permit-a_deny-b=1\nabsorb-a_c=2\n", "a:4{c=2 b:2=1}"}},
                 0);
}

TEST(fragfile, section_form) {
    expect_reads(
        {
            {"[a_b]\nc=1\nd=2\n[e]\nf=3\n", "e{f=3} a{b{d=2 c=1}}"},
            {"[a\\b]c=1\n[a]d=2\n", "a{d=2 b{c=1}}"},
            {"[a]\nb_c=1\nd=2\n", "a{b{d=2 c=1}}"},
            {"[a]=1\n", "a{=1}"},
            {"a_[b=1\n c=2\n[e]f=3\n", "e{f=3} c=2 b=1 a"},
            {"[a]\nx[=1\n[b[]\ny=2\n", "b[{y=2} a{x[=1}"},
            // Blanks behind the first bracket are skipped, behind a later one they belong to the name.
            {"[ a]\nx=1\n[ b]\ny=2\n[\nc]z=3\n", "\nc{z=3}  b{y=2} a{x=1}"},
            {"[ [a]\nx=1\n[[b]y=2\n", "[b{y=2} a{x=1}"},
            {"[permit-a]\nDeny-b=1\npermit-relay=2\n", "permit-a{permit-relay=2 Deny-b=1}"},
            {"[a]\nb=2\n", "a:1{b:2=2}", "permit-a_deny-b=1\n"},
            {"[a]\nb=\nb=1\nb=\n", "a{b=1}"},
            {"[a]\nb=1 \\ junk=[x]\n \t y\\\n\\\nz\nc=[_]\r\n", "a{c=[_] b=1 yz}"},
            {"[a]\nb=1\\\n\r 2\n", "a{b=1 2}"},
            {"[a]\nb=1\\skip~ 2\n", "a{b=12}"},
            {"[a]\nb=\\\n\nc=\\\n_\n", "a{c=_ b=}"},
            {"[a]\nb~c=1\n~d\n[~e\n", "=e a{=d b=c=1}"},
            {"[a]\nb=x~y\n", "a{b=x~y}"},
        },
        0);
}

TEST(fragfile, existing_values_stay_in_mode_1) {
    expect_reads(
        {
            {"a=2\nb=3\nb=4\n", "b=3 a=1", "a=1\n"},
            {"permit-a=2\n", "a:1=1", "a=1\n"},
            {"a_b=2\n", "a{b=1}", "permit-a_deny-b=1\n"},
            {"a_c=2\n", "a{c=2 b=1}", "a_b=1\n"},
            // An interior node's missing value becomes an empty one at the line end, whatever the line holds.
            {"a=\nc=5\n", "a={b=1} c={d=2}", "a_b=1\nc_d=2\n"},
            {"b_=1\nb=2\n", "b={=1}"},
            {"[a]\nb=2\nc=3\nc=4\n", "a{c=3 b=1}", "a_b=1\n"},
            // In the section form a node made in front of an assignment opens that assignment for writing.
            {"[new][a]\nb=2\nc=3\n", "new a{b=2 c=1}", "a_b=1\na_c=1\n"},
            {"new_[a]b=2\nc=3\n", "new a{b=2 c=1}", "a_b=1\na_c=1\n"},
        },
        1);
}

TEST(fragfile, end_of_file_in_every_state) {
    expect_reads({{"a=1\n \r\n\t", "a=1"},
                  {"x_y", "x"},
                  {"permit-a", ""},
                  {"a=1", "a=1"},
                  {"a=", "a"},
                  {"a=\r", "a"},
                  {"a=1\r", "a=1"},
                  {"[", ""},
                  {"[a", ""},
                  {"[a]b", "a"},
                  {"[a]b=", "a{b}"},
                  {"[a]b=1", "a{b=1}"},
                  {"[a]b=1\\", "a{b=1}"},
                  {"[a]b=1\\xx", "a{b=1}"},
                  {"[a]b=\\\n", "a{b}"},
                  {"[a]b=1\\\n \t", "a{b=1}"}},
                 0);
}

TEST(fragfile, long_names_and_values) {
    expect_reads(
        {
            {n(63) + "=v\n", n(63) + "=v"},
            {n(63) + "_b=v\n", n(63) + "{b=v}"},
            {n(64) + "=v\n", n(63) + "==v"},
            {n(64) + "_b=v\n", n(63) + "=_b=v"},
            {n(65) + "=v\n", n(63) + "=n=v"},
            {"a_" + n(10000) + "\n", "a{" + n(63) + "=" + n(9936) + "}"},
            {"permit-" + n(63) + "=v\n", n(56) + ":1=nnnnnn=v"},
            {" " + n(63) + "=v\n", n(63) + "=v"},
            {"[a]" + n(63) + "=v\n", "a{" + n(63) + "=v}"},
            {"[a]" + n(64) + "=v\n", "a{" + n(63) + "=v}"},
            {"[" + n(65) + "]b=v\n", n(63) + "{b=v}"},
            {"[" + n(10000) + "_b\\" + n(70) + "]c=v\n", n(63) + "{b{" + n(63) + "{c=v}}}"},
            {"a=" + n(40000) + "\nb=" + n(1 << 20) + "\n", "b=" + n(1 << 20) + " a=" + n(40000)},
        },
        0);
}

TEST(fragfile, files_that_can_not_be_read) {
    scratch_dir dir;
    tree db("a=1\n");
    EXPECT_EQ(importffile((dir.path + "/none").c_str(), db, 0), 1);
    EXPECT_EQ(importffile(dir.path.c_str(), db, 0), 0); // a folder opens, but can't be read
    EXPECT_EQ(dump(db.head), "a=1");
}

TEST(fragfile, wrappers_read_into_the_current_database) {
    scratch_dir dir;
    cur_database = nullptr;
    EXPECT_EQ(importenv(dir.write("one", "a=1\n").c_str()), 0);
    EXPECT_EQ(importinitialenv(dir.write("two", "a=2\nb=3\n").c_str()), 0);
    EXPECT_EQ(dump(def_database), "b=3 a=1");
    EXPECT_EQ(importenv((dir.path + "/two").c_str()), 0);
    EXPECT_EQ(dump(def_database), "b=3 a=2");
    EXPECT_EQ(importenv((dir.path + "/none").c_str()), 1);
    freelist(def_database);
    def_database = nullptr;
    cur_database = nullptr;
}

TEST(fragfile, written_lines) {
    struct row {
        long attr;
        const char *name, *line;
    };
    for (const row &r : {row{3, "a", "x_deny-a=v\n"}, row{13, "a", "x_permit-a=v\n"}, row{12, "a", "x_absorb-a=v\n"},
                         row{8, "%5Fa", "x_onlyon-%5Fa=v\n"}, row{1, "route-char-deny", "x_permit-deny-route-char=v\n"},
                         row{0, "relay-permit", "x_permit-relay=v\n"}, row{0, "", "x_=v\n"}}) {
        tree db("x_y_z=\n");
        Frag *frag = fset(&db.head->child, r.name, "v");
        frag->attr = r.attr;
        EXPECT_EQ(db.text(), string(r.line) + "x_y_z=\n");
    }
    tree db("b=1\nb_c=2\nb_deny-d_e=\na=3\n");
    fset(db, "b_d_nothing_below", nullptr);
    setvalue(ffind(db, "a"), std::string_view("x\0y", 3));
    EXPECT_EQ(db.text(), bytes("b=1\nb_c=2\nb_deny-d_e=\na=x~y\n"));
    EXPECT_EQ(ffind(db, "b")->value[1], '\0'); // the line feed that stood here while writing is gone
}

TEST(fragfile, keys_of_180_bytes_lead_no_further) {
    for (size_t length : {178U, 179U}) {
        tree db;
        string top = n(length);
        for (const char *below : {"_b_c_d", "_b_c", "_b", ""})
            fset(db, (top + below).c_str(), "1");
        // What stands in front of `b` is `top` and a `_`: 179 bytes let `c` through, 180 don't; 181 never let `d`.
        EXPECT_EQ(db.text(), top + "=1\n" + top + "_b=1\n" + (length == 178 ? top + "_b_c=1\n" : ""));
    }
}

TEST(fragfile, keys_that_do_not_fit_are_left_out) {
    struct row {
        string name, expected;
        long attr;
        const char *below;
    };
    const row rows[] = {{n(1023), n(1023) + "=1\n", 0, ""},
                        {n(1024), "", 0, ""},
                        {n(100000), "", 0, "_x"},
                        {n(1016), "permit-" + n(1016) + "=1\n", 1, ""},
                        {n(1017), "", 1, ""},
                        {n(1022), n(1022) + "_=1\n", 0, "_"},
                        {n(1022), "", 0, "_x"},
                        {n(1021), n(1021) + "_x=1\n", 0, "_x"}};
    for (const row &r : rows) {
        tree db;
        fset(db, "last", "2");
        fset(db, (r.name + r.below).c_str(), "1");
        db.head->attr = r.attr;
        fset(db, "first_a", "0");
        scratch_dir dir;
        EXPECT_EQ(exportffile((dir.path + "/out").c_str(), db, 50), r.expected.empty() ? 1 : 0) << r.name.size();
        EXPECT_EQ(read_file(dir.path + "/out"), "first_a=0\n" + r.expected + "last=2\n") << r.name.size();
    }
}

TEST(fragfile, outputs_that_can_not_be_written) {
    scratch_dir dir;
    tree db("a=1\n");
    EXPECT_EQ(exportffile((dir.path + "/none/out").c_str(), db, 50), 1);
    EXPECT_EQ(exportffile((dir.path + "/none/out").c_str(), db, 99), 1);
    FILE *full = fopen("/dev/full", "w");
    setvbuf(full, nullptr, _IONBF, 0);
    keynamelen = 0;
    EXPECT_EQ(outffile(full, db.head, keynamebuf), 1);
    fclose(full);
}

TEST(fragfile, xml) {
    scratch_dir dir;
    string out = dir.path + "/out";
    tree db("a=unseen\na_b=<\"&\na_permit-c=1\na_permit-c_use%5Fname=2\na_permit-relay=3\na_e_f_=\n*=4\n");
    fset(db, "a_g", nullptr);
    fset(db, ("a_" + n(70)).c_str(), "5");
    EXPECT_EQ(exportffile(out.c_str(), db, 99), 0);
    EXPECT_EQ(read_file(out), "<?xml version=\"1.0\"?>\n<moatwall.conf>\n"
                              "  <a " +
                                  n(63) +
                                  "=\"5\" b=\"<\"&\" permit-c=\"1\" relay-permit=\"3\" >\n"
                                  "    <permit-c use_name=\"2\" >\n    </permit-c>\n"
                                  "    <e >\n      <f =\"\" >\n      </f>\n    </e>\n"
                                  "  </a>\n  <* >\n  </*>\n</moatwall.conf>\n");
    EXPECT_EQ(outxmlfile(stdout, nullptr, 2), 0);
}

TEST(fragfile, save) {
    // An empty database gets every count of the numbered layout.
    const string lists = "netobj_num_list=4\nnetobj_list_1_name=all_interfaces\nnetobj_list_1_num_elements=0\n"
                         "netobj_list_2_name=Inside\nnetobj_list_2_num_elements=0\n"
                         "netobj_list_3_name=Outside\nnetobj_list_3_num_elements=0\n"
                         "netobj_list_4_name=Service\nnetobj_list_4_num_elements=0\n";
    const string counts = "nat_numrules=0\npfedit_fwd_numrules=0\npfedit_lcl_numrules=0\ndest_num_entries=0\n"
                          "sroute_num_entries=0\nmap_num_entries=0\n" +
                          lists;
    struct row {
        int version;
        string before, expected;
    };
    const row rows[] = {
        {50, "", "version_moatwall.conf=050\n"},
        {2, "version_moatwall.conf=041\nmap_num_entries=7\n", "version_moatwall.conf=002\nmap_num_entries=7\n"},
        {1000, "version_x=1\n", "version_moatwall.conf=1000\nversion_x=1\n"},
        {50, "def_proxy_global_name=global\ndef_proxy_global_x=1\n",
         "version_moatwall.conf=050\ndef_proxy_*_name=*\ndef_proxy_*_x=1\n"},
        {99, "",
         "<?xml version=\"1.0\"?>\n<moatwall.conf>\n  <version moatwall.conf=\"099\" >\n  </version>\n"
         "</moatwall.conf>\n"},
        {1, "", "version_moatwall.conf=001\n" + counts + "cust_num_proxies=0\n"},
        // The state of a proxy goes to its service before the proxies lose their names.
        {41, "OS_Type=NT\ndef_proxy_global_state=on\ndef_proxy_tn-px_state=off\n",
         "version_moatwall.conf=041\n" + counts + "cust_num_proxies=0\nproxy_telnet=off\n" +
             "OS_Type=NT\ndef_num_proxies=2\n"
             "def_proxy_1_name=tn-px\ndef_proxy_1_realname=tn-px\ndef_proxy_1_num_parms=1\n"
             "def_proxy_1_parm_1_value=off\ndef_proxy_1_parm_1_name=state\n"
             "def_proxy_2_name=*\ndef_proxy_2_realname=*\ndef_proxy_2_num_parms=1\n"
             "def_proxy_2_parm_1_value=on\ndef_proxy_2_parm_1_name=state\n"},
    };
    scratch_dir dir;
    string out = dir.path + "/out";
    for (const row &r : rows) {
        tree db(r.before);
        cur_database = db;
        EXPECT_EQ(exportenv(out.c_str(), r.version), 0);
        EXPECT_EQ(read_file(out), r.expected) << r.version;
    }
    cur_database = nullptr;
    EXPECT_EQ(exportenv((dir.path + "/none/out").c_str(), 50), 1);
    EXPECT_EQ(dump(def_database), "version{moatwall.conf=050}");
    freelist(def_database);
    def_database = nullptr;
    cur_database = nullptr;
}
