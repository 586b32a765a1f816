// Runs of the built program whose inputs are too large or too odd for a golden case.
#include "support.h"

#include <cstring>
#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <sys/stat.h>

namespace {

struct program : testing::Test {
    scratch_dir dir;

    run_result run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), UPGRADE_PROGRAM);
        return run_program(dir.path, arguments);
    }
    // The same with the arguments in one line, separated by blanks.
    run_result run_line(const std::string &line) {
        std::istringstream words(line);
        return run({std::istream_iterator<std::string>(words), {}});
    }
    std::string file(const std::string &name) { return read_file(dir.path + "/" + name); }
};

TEST_F(program, failed_save_still_ends_with_status_0) {
    dir.write("old", "a=1\n");
    run_result result = run({"-V50", "-m", "old", "missing/out"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    result = run({"-V50", "-m", "old", "/dev/full"});
    EXPECT_EQ(result.status, 0);
}

TEST_F(program, directories_in_place_of_files) {
    mkdir((dir.path + "/folder").c_str(), 0700);
    run_result result = run({"-V50", "-R", "folder", "-m", "folder", "out"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, std::string(UPGRADE_PROGRAM) + ": failed to open report file folder for writing\n");
    EXPECT_EQ(file("out"), "version_moatwall.conf=050\nversion_firewall=5.5\nversion_upgraded=PRE 4.0\n");
}

// A tree as deep as a hundred thousand levels is read, merged and freed; the writer stops where keys get too long.
TEST_F(program, deep_tree) {
    std::string deep;
    for (int level = 0; level < 100000; level++)
        deep += "a_";
    dir.write("old", "x=1\n" + deep + "b=2\n");
    run_result result = run({"-V50", "-m", "old", "-m", "old", "out"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(file("out"), "version_moatwall.conf=050\nversion_firewall=5.5\nversion_upgraded=PRE 4.0\nx=1\n");
}

TEST_F(program, long_value_survives) {
    std::string value(1 << 20, 'v');
    dir.write("old", "a=" + value + "\n");
    EXPECT_EQ(run({"-V50", "-m", "old", "out"}).status, 0);
    EXPECT_EQ(file("out"),
              "version_moatwall.conf=050\nversion_firewall=5.5\nversion_upgraded=PRE 4.0\na=" + value + "\n");
}

// A stored name of any length is legal in the tree; a key that can't hold it is left out whole, not cut.
TEST_F(program, name_that_fits_no_key) {
    std::string long_name(10000, 'n');
    dir.write("env", "netobj_list_1_name=" + long_name +
                         "\nnetobj_list_1_element_1_addr=10.0.0.1\nnetobj_list_2_name=ok\n"
                         "netobj_list_2_element_1_addr=10.0.0.2\n");
    EXPECT_EQ(run({"-V50", "-e", "env", "out"}).status, 0);
    EXPECT_EQ(file("out"), "version_moatwall.conf=050\nversion_firewall=5.5\nversion_upgraded=PRE 4.0\n"
                           "netobj_list_ok_element_1_addr=10.0.0.2\n");
}

const std::string STAMP = "version_moatwall.conf=050\nversion_firewall=5.5\n";
const std::string PRE_40 = STAMP + "version_upgraded=PRE 4.0\n";
const std::string POST_40 = STAMP + "version_upgraded=POST 4.0\n";
// The same where a file has brought the release's key already.
const std::string POST_41 = "version_moatwall.conf=050\nversion_upgraded=POST 4.0\nversion_firewall=5.5\n";

TEST_F(program, usage) {
    dir.write("a", "x=1\n");
    for (const char *line : {"", "-m", "-V2 out", "-x a out", "- a out", "-- a out", "-v1 a out", "-V50 -R rep",
                             "-V50 -m a", "-V50 -n a", "-V50 stray -m a", "-m a -x out", "-m a -V50 -n out"}) {
        run_result result = run_line(line);
        EXPECT_EQ(result.status, 1) << line;
        EXPECT_EQ(result.err, "usage: " UPGRADE_PROGRAM " [-Vx] [-n netperm] [-m mergefile] outputfile\n");
        EXPECT_EQ(result.out + file("out") + file("rep"), "") << line;
    }
}

TEST_F(program, option_loop) {
    dir.write("old", "def_proxy_a_x=1\nversion_firewall=4.1\n");
    const std::string all = POST_41 + "def_proxy_a_x=1\n";
    struct {
        const char *line, *output; // an empty name for standard output
        std::string content;
    } rows[] = {
        {"-V50 -m old out", "out", all},
        {"-m old -V50 out", "out", all},
        {"-V 50 -m old out", "out", all},
        {"-V41 -V 50 -m old out", "out", all},
        {"stray -V50 words -m old out", "out", all},
        {"-V50 -m old -x", "-x", all},
        {"-m old -V 50", "", all},
        {"-V50 -m old -e none", "", POST_41},
        // Only the loop takes an option by its letter alone; what such an option reads is not inspected.
        {"-V50 -mfoo old out", "out",
         "version_moatwall.conf=050\nversion_upgraded=PRE 4.0" + all.substr(all.find("\nversion_firewall"))},
        {"-Vx -m old out", "out", "version_moatwall.conf=000" + all.substr(all.find('\n'))},
        {"-V50 -m none out", "out", PRE_40},
        {"-V50 a out", "out", PRE_40},
    };
    for (const auto &r : rows) {
        run_result result = run_line(r.line);
        EXPECT_EQ(result.status, 0) << r.line;
        EXPECT_EQ(result.err, strstr(r.line, "-m none") ? "Failed to merge none\n" : "");
        EXPECT_EQ(*r.output ? file(r.output) : result.out, r.content) << r.line;
        EXPECT_EQ(*r.output ? result.out : file("out"), "") << r.line;
        remove((dir.path + "/out").c_str());
    }
    for (const char *line : {"-V2 -m old out", "-V99 -m old out", "-V 2 -m old out"}) {
        run_line(line);
        EXPECT_EQ(file("out").substr(0, 22), "<?xml version=\"1.0\"?>\n") << line;
    }
    // The last argument is never an option, so what looks like one here names an output in the numbered layout.
    run_line("-m old x -V50");
    EXPECT_NE(file("-V50").find("version_moatwall.conf=001\n"), std::string::npos);
    EXPECT_NE(file("-V50").find("def_num_proxies=1\n"), std::string::npos);
}

TEST_F(program, report) {
    const std::string type = "Old config type=41\n", init = "merge: New Initial Environment\n",
                      last = "plug-px: set def_proxy_p_proxy-exec to ./plug-xtk\nremove: pki_LDAP\n";
    dir.write("old", "def_proxy_p_proxy-type=plug-px\nversion_firewall=4.1\npki_LDAP=1\n");
    dir.write("new", "version_firewall=5.5.2\ndef_proxy_p_proxy-type=plug-px\n");
    dir.write("init", "pki_LDAP=1\n");
    dir.write("table", "t: x 1\n");
    struct {
        const char *line;
        std::string report;
    } rows[] = {
        {"-R rep -V50 -m old -m init -m third out", type + "merge: Old config file\n" + init + last},
        {"-m old -Rx rep -V50 out", type + last},
        {"-m old -R rep -m init out", type + init + last},
        {"-R rep -n table -e init -V50 out", "Old config type=32\nprocess: table\nimport: init\nremove: pki_LDAP\n"},
        {"-R rep -n table -m new -m init out", "Old config type=55\nmerge: Old config file\n"},
        {"-R first -m old -R rep -m init out", type + init + last},
    };
    for (const auto &r : rows) {
        EXPECT_EQ(run_line(r.line).status, 0);
        EXPECT_EQ(file("rep"), r.report) << r.line;
    }
    EXPECT_EQ(file("first"), type + "merge: Old config file\n");
}

TEST_F(program, merges_by_release) {
    dir.write("old", "def_proxy_sql-px_proxy-exec=old\ndef_proxy_q_proxy-exec=old\nversion_firewall=5.0\n");
    dir.write("init", "def_proxy_sql-px_proxy-exec=new\nx=2\n");
    dir.write("third", "x=3\ny=3\n");
    run_line("-V50 -m old -m init -m third out");
    EXPECT_EQ(file("out"), "y=3\nx=2\n" + POST_41 + "def_proxy_q_proxy-exec=old\ndef_proxy_sql-px_proxy-exec=new\n");
    // Of a configuration of release 5.5 only the first merge happens.
    dir.write("new", "def_proxy_a_proxy-type=plug-px\nversion_firewall=5.5\nmap_7_pd=P\n");
    run_line("-V50 -m new -m init -m third out");
    EXPECT_EQ(file("out"), "map_7_pd=P\n" + STAMP + "def_proxy_a_proxy-type=plug-px\n");
    // Old networks become lists before anything is merged.
    dir.write("ancient", "trusted_networks=10.0.0.0%0A\nuntrusted_networks=*%20\nnetobj_list_Trusted$LIST_x=1\n");
    run_line("-V50 -m ancient out");
    EXPECT_EQ(file("out"),
              PRE_40 + "untrusted_networks=*%20\ntrusted_networks=10.0.0.0%0A\n"
                       "netobj_list_Untrusted$LIST_element_1_name=*\nnetobj_list_Untrusted$LIST_element_1_addr=*\n"
                       "netobj_list_Trusted$LIST_x=1\nnetobj_list_Trusted$LIST_element_1_name=10.0.0.0\n"
                       "netobj_list_Trusted$LIST_element_1_addr=10.0.0.0\n");
    // The lists of a release from 4.0 on are there before the merge, too.
    dir.write("lists", "def_proxy_a=\nnetobj_list_a_x=1\nnetobj_list_b_x=1\nnetobj_group_g_x=1\n");
    dir.write("more", "netobj_list_c_x=1\n");
    run_line("-V50 -m lists -m more out");
    EXPECT_EQ(file("out"),
              POST_40 + "def_proxy_a=\nnetobj_group_g_x=1\nnetobj_list_c_x=1\nnetobj_list_b_x=1\nnetobj_list_a_x=1\n");
}

TEST_F(program, netperm_table_by_release) {
    dir.write("v41", "def_proxy_a_x=1\nversion_firewall=4.1\n");
    dir.write("v55", "def_proxy_a_x=1\nversion_firewall=5.5\n");
    dir.write("table", "tn-px: permit-hosts 10.0.0.1\n");
    dir.write("out", "kept");
    for (const char *line : {"-V50 -n none -m v41 out", "-V50 -m v41 -n none out", "-V50 -n none a out"}) {
        run_result result = run_line(line);
        EXPECT_EQ(result.status, 1);
        EXPECT_EQ(result.err, "Failed to open none\n");
        EXPECT_EQ(file("out"), "kept");
    }
    for (const char *line : {"-V50 -n table -m v41 out", "-V50 -m v41 -n table out"}) {
        EXPECT_EQ(run_line(line).status, 0);
        EXPECT_EQ(file("out"), POST_41 + "def_proxy_a_x=1\n") << line;
    }
    for (const char *line : {"-V50 -n none -m v55 out", "-V50 -m v55 -n none out"}) {
        run_result result = run_line(line);
        EXPECT_EQ(result.status, 0);
        EXPECT_EQ(result.err, "");
        EXPECT_EQ(file("out"), STAMP + "def_proxy_a_x=1\n") << line;
    }
    // An empty table leaves two keys without values, which a merge then finds there.
    dir.write("empty", "");
    dir.write("v32", "trusted_networks=\nuntrusted_networks=%20\n");
    run_line("-V50 -n empty -m v32 out");
    EXPECT_EQ(file("out"), PRE_40 + "untrusted_networks=\ntrusted_networks=\n");
}

} // namespace
