// Fragment files of random content: refills of the reader's buffer, the reader against plain calls, the round trip.
#include "dump.h"
#include "support.h"

#include <fstream>
#include <gtest/gtest.h>

using std::string;

static const size_t refill = 32766; // bytes that the reader takes at a time

static string pick(const std::vector<string> &from) {
    return from[random_below(static_cast<unsigned>(from.size()))];
}

static string read_dump(const string &path, tree &before, int mode) {
    tree db;
    db.head = copy_fragtree(before, nullptr);
    importffile(path.c_str(), db, mode);
    EXPECT_TRUE(linked(db.head, nullptr));
    return dump(db.head);
}

TEST(fragfile_property, a_boundary_anywhere_changes_nothing) {
    const std::vector<string> flat = {"a",
                                      "b",
                                      "permit-",
                                      "Deny-",
                                      "permit-relay",
                                      "_",
                                      "=",
                                      "\n",
                                      "\r",
                                      " ",
                                      "\t",
                                      "[",
                                      "]",
                                      "\\",
                                      string(1, '\0'),
                                      "\n\n",
                                      "1",
                                      string(61, 'n'),
                                      "onlyon-",
                                      " a_b=",
                                      "a=x\n",
                                      "=1\n",
                                      "\\ x\n \t"};
    tree before("a=1\na_b=2\nrelay-permit=3\n");
    scratch_dir dir;
    seed_random(12);
    for (int round = 0; round < 120; round++) {
        string content = round % 3 == 1 ? "[" : "";
        for (unsigned count = random_below(25); count > 0; count--)
            content += pick(flat);
        int mode = round % 2;
        string whole = read_dump(dir.write("whole", content), before, mode);
        // Line ends in front of a file are skipped, so they move every byte of it onto the boundary in turn.
        string path = dir.write("cut", string(refill, '\n'));
        std::fstream cut(path, std::ios::in | std::ios::out | std::ios::binary);
        for (size_t at = content.size() + 1; at-- > 0;) {
            cut.seekp(static_cast<std::streamoff>(refill - at) - 1);
            cut << '\n' << content << std::flush;
            ASSERT_EQ(read_dump(path, before, mode), whole) << content << "\ncut at " << at;
        }
    }
}

TEST(fragfile_property, boundaries_inside_long_values) {
    scratch_dir dir;
    tree empty, a("a=0\n");
    for (size_t length : {refill - 3, refill - 2, refill - 1, refill, 2 * refill - 2, 3 * refill + 1}) {
        string value(length, 'v');
        EXPECT_EQ(read_dump(dir.write("flat", "a=" + value + "\r\nb=1"), a, 0), "b=1 a=" + value);
        EXPECT_EQ(read_dump(dir.write("skip", "[a]b=1\\" + value + "\n" + string(length, ' ') + "2\n"), empty, 0),
                  "a{b=12}");
        EXPECT_EQ(read_dump(dir.write("section", "[" + value + "]b=1\n"), empty, 0), string(63, 'v') + "{b=1}");
    }
}

// A flat file line by line through `ffind`, `fsetp` and `attr`, as the mode says.
static void plain_line(FragList db, const std::vector<std::pair<long, string>> &key, const string &value, int mode) {
    FragList list = db;
    Frag *node = nullptr;
    bool made = false;
    for (const auto &[bits, name] : key) {
        Frag *parent = node;
        node = ffind(list, name.c_str());
        made = !node;
        if (made)
            node = fsetp(list, name.c_str(), nullptr, parent);
        node->attr = bits;
        list = &node->child;
    }
    if (!node->value || (!value.empty() && (made || mode == 0)))
        setvalue(node, made || mode == 0 ? value.c_str() : "");
}

TEST(fragfile_property, the_reader_does_what_plain_calls_do) {
    const std::vector<std::pair<long, string>> prefixes = {
        {0, ""}, {0, ""}, {0, ""}, {1, "permit-"}, {3, "Deny-PERMIT-"}, {12, "absorb-onlyon-"}};
    scratch_dir dir;
    seed_random(121);
    for (int round = 0; round < 60; round++) {
        unsigned names = round % 4 ? 5 : 400; // few names meet often, many make long sibling lists
        tree read("n1=old\nn1_n2=old\n"), plain("n1=old\nn1_n2=old\n");
        string file;
        for (int line = 0; line < 600; line++) {
            std::vector<std::pair<long, string>> key;
            for (unsigned depth = 1 + random_below(3); depth > 0; depth--) {
                const auto &[bits, prefix] = prefixes[random_below(6)];
                string name = "n" + std::to_string(random_below(key.empty() ? names / 4 + 1 : names));
                file += (key.empty() ? "" : "_") + prefix + name;
                key.emplace_back(bits, name);
            }
            string value = random_below(4) ? std::to_string(random_below(100)) : "";
            file += "=" + value + "\n";
            plain_line(plain, key, value, round % 2);
        }
        ASSERT_EQ(importffile(dir.write("file", file).c_str(), read, round % 2), 0);
        ASSERT_EQ(dump(read.head), dump(plain.head));
    }
}

static void grow(FragList list, Frag *parent, unsigned depth) {
    for (unsigned count = random_below(depth == 4 ? 8 : 4); count > 0; count--) {
        string name = pick({"a", "b", "c", "relay-permit", "%5F%25", "x y", "#", "permit", "", "]\\"});
        Frag *frag = fsetp(list, name.c_str(), pick({"v", "", " [_]=\\ ", string(1000, 'v')}).c_str(), parent);
        frag->attr = name == "relay-permit" ? 0 : static_cast<long>(random_below(16));
        if (random_below(3) == 0)
            setvalue(frag, nullptr);
        if (depth > 0)
            grow(&frag->child, frag, depth - 1);
    }
}

// What comes back of a list: what has a value or leads to one, turned around, with the one prefix that was written.
static string survivors(const Frag *frag) {
    string text;
    for (; frag; frag = frag->next) {
        string below = survivors(frag->child);
        if (!frag->value && below.empty())
            continue;
        string node = frag->name;
        for (long bit : {ATTR_DENY, ATTR_PERMIT, ATTR_ABSORB, ATTR_ONLYON})
            if (frag->attr & bit) {
                node += ":" + std::to_string(bit);
                break;
            }
        node += (frag->value ? "=" + string(frag->value) : "") + (below.empty() ? "" : "{" + below + "}");
        text = node + (text.empty() ? "" : " " + text);
    }
    return text;
}

TEST(fragfile_property, what_is_written_reads_back) {
    scratch_dir dir;
    seed_random(122);
    for (int round = 0; round < 300; round++) {
        tree db, empty;
        grow(db, nullptr, 4);
        ASSERT_EQ(exportffile((dir.path + "/out").c_str(), db, 50), 0);
        ASSERT_EQ(read_dump(dir.path + "/out", empty, 0), survivors(db.head)) << db.text();
    }
}
