// Both layouts there and back.
#include "netperm_support.h"
#include "nupgrade.h"

#include <gtest/gtest.h>
#include <set>

using std::string;

// The file as it is saved in that version, as a set of lines: the order says nothing.
static std::set<string> saved(int version, const std::set<string> &lines) {
    scratch_dir dir;
    string file;
    for (const string &line : lines)
        file += line + "\n";
    tree db;
    importffile(dir.write("env", file).c_str(), db, 0);
    norm_fragtree(db);
    cur_database = db;
    EXPECT_EQ(exportenv((dir.path + "/out").c_str(), version), 0);
    cur_database = nullptr;
    EXPECT_TRUE(linked(db.head, nullptr));
    std::vector<string> left = split(read_file(dir.path + "/out"), '\n');
    return {left.begin(), left.end() - 1};
}

// An environment that lost lines, but no names, and without the addresses that only the first read takes up. Aliases
// change their order with each read, and back with the next.
TEST(layout_property, what_is_saved_and_read_again_is_the_same) {
    seed_random(59);
    for (int round = 0; round < 80; round++) {
        std::set<string> env;
        for (const string &line : split(read_file(EXAMPLES_DIR + one_of({"/old-4.1.conf", "/env-4.1-nt.conf"})), '\n'))
            if (line.find("ip_") != 0 && !line.empty() &&
                (random_below(9) || line.find("name=") != string::npos || line.find("_num") < 5))
                env.insert(line);
        const std::set<string> once = saved(1, env);
        ASSERT_EQ(saved(50, saved(1, saved(41, once))), saved(50, once));
    }
}
