// Indexes and the reader on random data, against walks and against what plain calls give; both layouts there and back.
#include "netperm_support.h"
#include "nupgrade.h"

#include <gtest/gtest.h>
#include <set>

using std::string;
using std::to_string;

TEST(store_property, indexes_of_many_lists_give_what_walks_give) {
    seed_random(52);
    tree db("a_x=1 b_x=1 c_x=1");
    list_indexes indexes;
    for (int number = 300; number < 3000; number++) // a list whose count meets numbers that are taken
        fset(&db.head, ("c_" + to_string(number)).c_str(), nullptr);
    for (int step = 0; step < 15000; step++) {
        const string owner = one_of({"a", "b", "c", "b_x"}), name = "n" + to_string(random_below(800));
        const string key = name + one_of({"", "", "=z", "_n3"}), one = "n" + to_string(random_below(800));
        Frag *parent = ffind(db, owner.c_str());
        FragList list = &parent->child;
        auto length = [&] {
            size_t count = 0;
            for (Frag *frag = *list; frag; frag = frag->next)
                count++;
            return count;
        };
        if (random_below(8) == 0) {
            pushfrag(list, newsymfrag(name.data(), name.size()), parent);
            indexes.add(list, *list);
        } else if (random_below(8) == 0) {
            const string number = to_string(length() + random_below(40)), &left = random_below(2) ? name : number;
            if (Frag *gone = indexes.find(list, left); gone && gone != ffind(db, "b_x")) {
                indexes.forget_below(gone);
                indexes.remove(list, gone);
                fremove(list, left.c_str());
            }
        } else if (random_below(500) == 0) { // the lists below change with no word to the indexes
            indexes.forget_below(ffind(db, "b"));
            for (int number = 0; number < 20 && owner[0] == 'b'; number++)
                fsetp(list, to_string(number).c_str(), nullptr, parent);
        } else {
            const Frag *set = indexes.set_key(list, key.c_str(), "1", parent);
            ASSERT_EQ(set, ffind(list, key.c_str()));
        }
        FragList siblings = nullptr;
        ASSERT_EQ(indexes.find_key(list, (one + "_n3").c_str(), &siblings), ffind(list, (one + "_n3").c_str()));
        ASSERT_EQ(siblings, ffind(list, one.c_str()) ? &ffind(list, one.c_str())->child : list);
        if (step % 20 == 0) {
            size_t number = length() + 1;
            while (ffind(list, to_string(number).c_str()))
                number++;
            ASSERT_EQ(indexes.free_number(list), static_cast<int>(number));
            indexes.set_key(list, to_string(number).c_str(), nullptr, parent);
        }
    }
    EXPECT_TRUE(linked(db.head, nullptr));
}

static string read_dump(const string &path, int mode) {
    tree db("a=1{b=2} relay-permit=3");
    importffile(path.c_str(), db, mode);
    EXPECT_TRUE(linked(db.head, nullptr));
    return dump(db.head);
}

// Leaves of the list what the keys that begin like this lead to, as the whole file would have it.
static void keep_only(FragList list, const string &path, const char *const *keys) {
    for (FragList link = list; Frag *frag = *link;) {
        const string here = path + frag->name + "_";
        bool led = false; // to this node, through it, or from above to all below
        for (const char *const *key = keys; *key; key++)
            led = led || has_prefix((string(*key) + "_").c_str(), here.c_str()) ||
                  (string(*key).back() == '_' && has_prefix(here.c_str(), *key));
        if (led) {
            keep_only(&frag->child, here, keys);
            link = &frag->next;
        } else {
            *link = frag->next;
            freefrag(frag);
        }
    }
}

TEST(store_property, an_inspection_gives_what_its_keys_lead_to_in_the_whole_file) {
    const char *const keys[] = {"a_b", "relay-permit_b_a_", "b_", "_a", nullptr};
    const char *parts[] = {"a", "b", "_",  "=", "\n", "a_b=", "permit-", "permit-relay_b",
                           "[", "]", "\\", "1", " ",  "_a"};
    scratch_dir dir;
    seed_random(18);
    for (int round = 0; round < 4000; round++) {
        string content = round % 3 == 1 ? "[" : "";
        for (unsigned count = random_below(40); count > 0; count--)
            content += one_of(parts);
        const string path = dir.write("file", content);
        tree whole, inspected;
        importffile(path.c_str(), whole, 0);
        keep_only(whole, "", keys);
        ASSERT_EQ(inspectffile(path.c_str(), inspected, keys), 0);
        ASSERT_EQ(dump(inspected.head), dump(whole.head)) << content;
        ASSERT_TRUE(linked(inspected.head, nullptr));
    }
}

// Line ends in front of a file are skipped, so they move every byte of it onto the end of the reader's buffer in turn.
TEST(store_property, a_boundary_anywhere_changes_nothing) {
    const size_t refill = 32766;
    const char *parts[] = {"a",    "b",         "permit-", "Deny-", "permit-relay", "_", "=",    "\n",    "\r",
                           " ",    "\t",        "[",       "]",     "\\",           "1", "\n\n", " a_b=", "a=x\n",
                           "=1\n", "\\ x\n \t", "onlyon-"};
    scratch_dir dir;
    seed_random(12);
    for (int round = 0; round < 60; round++) {
        string content = round % 3 == 1 ? "[" : "";
        for (unsigned count = random_below(25); count > 0; count--)
            content +=
                random_below(20) ? one_of(parts) : string(random_below(2) ? 61 : 1, random_below(2) ? 'n' : '\0');
        const string whole = read_dump(dir.write("whole", content), round % 2);
        for (size_t at = 0; at <= content.size(); at++)
            ASSERT_EQ(read_dump(dir.write("cut", string(refill - at, '\n') + content), round % 2), whole)
                << content << at;
    }
    const string value(3 * refill + 1, 'v');
    EXPECT_EQ(read_dump(dir.write("f", "a=" + value + "\r\nb=1"), 0), "b=1 a=" + value + "{b=2} relay-permit=3");
}

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
TEST(store_property, what_is_saved_and_read_again_is_the_same) {
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
