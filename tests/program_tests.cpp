// Runs of the built program whose inputs are too large or too odd for a golden case, and many command lines at a time.
#include "support.h"

#include <gtest/gtest.h>
#include <iterator>
#include <sstream>
#include <sys/stat.h>

namespace {

const std::string STAMP = "version_moatwall.conf=050\nversion_firewall=5.5\n";
const std::string PRE_40 = STAMP + "version_upgraded=PRE 4.0\n";

struct program : testing::Test {
    scratch_dir dir;

    // Runs the program with the arguments in `line`, separated by blanks.
    run_result run(const std::string &line) {
        std::istringstream words(UPGRADE_PROGRAM " " + line);
        return run_program(dir.path, {std::istream_iterator<std::string>(words), {}});
    }
    std::string file(const std::string &name) { return read_file(dir.path + "/" + name); }
};

TEST_F(program, failed_save_still_ends_with_status_0) {
    dir.write("old", "a=1\n");
    run_result result = run("-V50 -m old missing/out");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(run("-V50 -m old /dev/full").status, 0);
}

TEST_F(program, directories_in_place_of_files) {
    mkdir((dir.path + "/folder").c_str(), 0700);
    run_result result = run("-V50 -R folder -m folder out");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, UPGRADE_PROGRAM ": failed to open report file folder for writing\n");
    EXPECT_EQ(file("out"), PRE_40);
}

// Trees of a hundred thousand levels are read, merged and freed, and the writer stops where keys get too long. A value
// survives at any length. A stored name of any length is legal in the tree; a key that can't hold it is left out whole.
TEST_F(program, sizes) {
    std::string deep, value(1 << 20, 'v'), name(10000, 'n');
    for (int level = 0; level < 100000; level++)
        deep += "a_";
    dir.write("deep", "x=1\n" + deep + "b=2\n");
    dir.write("value", "a=" + value + "\n");
    dir.write("env", "netobj_list_1_name=" + name + "\nnetobj_list_1_element_1_addr=10.0.0.1\n" +
                         "netobj_list_2_name=ok\nnetobj_list_2_element_1_addr=10.0.0.2\n");
    EXPECT_EQ(run("-V50 -m deep -m deep out").status, 0);
    EXPECT_EQ(file("out"), PRE_40 + "x=1\n");
    EXPECT_EQ(run("-V50 -m value out").status, 0);
    EXPECT_EQ(file("out"), PRE_40 + "a=" + value + "\n");
    EXPECT_EQ(run("-V50 -e env out").status, 0);
    EXPECT_EQ(file("out"), PRE_40 + "netobj_list_ok_element_1_addr=10.0.0.2\n");
    const std::string outside = "netobj_list_Outside_element_";
    dir.write("env", outside + "1_interface=" + value + "\n" + outside + "2_interface=" + deep + "\n" + outside +
                         "3_interface=" + deep + "\n" + outside + "3_alias=yes\n");
    EXPECT_EQ(run("-V41 -e env out").status, 0);
    EXPECT_NE(file("out").find("_interface=" + value + "\n"), std::string::npos);
    EXPECT_NE(file("out").find("_interface=" + deep + "\n"), std::string::npos);
}

TEST_F(program, usage) {
    dir.write("a", "x=1\n");
    for (const char *line : {"", "-m", "-V2 out", "-x a out", "- a out", "-- a out", "-v1 a out", "-V50 -R rep",
                             "-V50 -m a", "-V50 -n a", "-V50 stray -m a", "-m a -x out", "-m a -V50 -n out"}) {
        run_result result = run(line);
        EXPECT_EQ(result.status, 1) << line;
        EXPECT_EQ(result.err, "usage: " UPGRADE_PROGRAM " [-Vx] [-n netperm] [-m mergefile] outputfile\n");
        EXPECT_EQ(result.out + file("out") + file("rep"), "") << line;
    }
}

TEST_F(program, option_loop) {
    dir.write("old", "def_proxy_a_x=1\nversion_firewall=4.1\n");
    const std::string post_41 = "version_moatwall.conf=050\nversion_upgraded=POST 4.0\nversion_firewall=5.5\n",
                      all = post_41 + "def_proxy_a_x=1\n", behind_stamp = all.substr(all.find('\n'));
    struct {
        const char *line, *output; // an empty name for standard output
        std::string content, error = "";
    } rows[] = {
        {"-V50 -m old out", "out", all},
        {"-m old -V50 out", "out", all},
        {"-V 50 -m old out", "out", all},
        {"-V41 -V 50 -m old out", "out", all},
        {"stray -V50 words -m old out", "out", all},
        {"-V50 -m old -x", "-x", all},
        {"-m old -V 50", "", all},
        {"-V50 -m old -e none", "", post_41},
        // Only the loop takes an option by its letter alone; what such an option reads is not inspected.
        {"-V50 -mfoo old out", "out",
         "version_moatwall.conf=050\nversion_upgraded=PRE 4.0\nversion_firewall=5.5\ndef_proxy_a_x=1\n"},
        {"-Vx -m old out", "out", "version_moatwall.conf=000" + behind_stamp},
        {"-V50 -m none out", "out", PRE_40, "Failed to merge none\n"},
        {"-V50 a out", "out", PRE_40},
    };
    for (const auto &r : rows) {
        run_result result = run(r.line);
        EXPECT_EQ(result.status, 0) << r.line;
        EXPECT_EQ(result.err, r.error);
        EXPECT_EQ(*r.output ? file(r.output) : result.out, r.content) << r.line;
        EXPECT_EQ(*r.output ? result.out : file("out"), "") << r.line;
        remove((dir.path + "/out").c_str());
    }
    for (const char *line : {"-V2 -m old out", "-V99 -m old out", "-V 2 -m old out"}) {
        run(line);
        EXPECT_EQ(file("out").substr(0, 22), "<?xml version=\"1.0\"?>\n") << line;
    }
    // The last argument is never an option, so what looks like one here names an output in the numbered layout.
    run("-m old x -V50");
    EXPECT_NE(file("-V50").find("version_moatwall.conf=001\n"), std::string::npos);
    EXPECT_NE(file("-V50").find("def_num_proxies=1\n"), std::string::npos);
}

} // namespace
