// Runs of the built program whose inputs are too large or too odd for a golden case.
#include "support.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

namespace {

struct program : testing::Test {
    scratch_dir dir;

    run_result run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), UPGRADE_PROGRAM);
        return run_program(dir.path, arguments);
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

} // namespace
