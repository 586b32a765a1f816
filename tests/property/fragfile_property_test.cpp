// Fragment files of random content: refills of the reader's buffer, and the reader against plain calls.
#include "dump.h"
#include "support.h"

#include <fstream>
#include <gtest/gtest.h>

using std::string;

static const size_t refill = 32766; // bytes that the reader takes at a time

static string read_dump(const string &path, int mode, FragList before) {
    tree db;
    db.head = copy_fragtree(before, nullptr);
    importffile(path.c_str(), db, mode);
    EXPECT_TRUE(linked(db.head, nullptr));
    return dump(db.head);
}

TEST(fragfile_property, a_boundary_anywhere_changes_nothing) {
    const string parts[] = {"a",
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
                            "1",
                            string(1, '\0'),
                            "\n\n",
                            " a_b=",
                            "a=x\n",
                            "=1\n",
                            "\\ x\n \t",
                            "onlyon-",
                            string(61, 'n')};
    tree before("a=1\na_b=2\nrelay-permit=3\n");
    scratch_dir dir;
    seed_random(12);
    for (int round = 0; round < 120; round++) {
        string content = round % 3 == 1 ? "[" : "";
        for (unsigned count = random_below(25); count > 0; count--)
            content += parts[random_below(std::size(parts))];
        string whole = read_dump(dir.write("whole", content), round % 2, before);
        // Line ends in front of a file are skipped, so they move every byte of it onto the boundary in turn.
        string path = dir.write("cut", string(refill, '\n'));
        std::fstream cut(path, std::ios::in | std::ios::out | std::ios::binary);
        for (size_t at = content.size() + 1; at-- > 0;) {
            cut.seekp(static_cast<std::streamoff>(refill - at) - 1);
            cut << '\n' << content << std::flush;
            ASSERT_EQ(read_dump(path, round % 2, before), whole) << content << "\ncut at " << at;
        }
    }
}

TEST(fragfile_property, boundaries_inside_long_names_and_values) {
    scratch_dir dir;
    const string name(63, 'v');
    tree none, a("a=0\n");
    for (size_t length :
         {refill - 3, refill - 2, refill - 1, refill, 2 * refill - 2, 3 * refill + 1, size_t{1} << 20}) {
        string value(length, 'v');
        EXPECT_EQ(read_dump(dir.write("f", "a=" + value + "\r\nb=1"), 0, a), "b=1 a=" + value);
        EXPECT_EQ(read_dump(dir.write("f", "a_" + value + "\n"), 0, none), "a{" + name + "=" + value.substr(64) + "}");
        EXPECT_EQ(read_dump(dir.write("f", "[a]b=1\\" + value + "\n" + string(length, ' ') + "2\n"), 0, none),
                  "a{b=12}");
        EXPECT_EQ(read_dump(dir.write("f", "[" + value + "\\" + value + "]b=1\n"), 0, none),
                  name + "{" + name + "{b=1}}");
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
    const std::pair<long, string> prefixes[] = {
        {0, ""}, {0, ""}, {0, ""}, {1, "permit-"}, {3, "Deny-PERMIT-"}, {12, "absorb-onlyon-"}};
    scratch_dir dir;
    seed_random(121);
    for (int round = 0; round < 60; round++) {
        unsigned names = round % 4 ? 5 : 400; // few names meet often, many make long sibling lists
        tree before("n1=old\nn1_n2=old\n"), plain("n1=old\nn1_n2=old\n");
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
        ASSERT_EQ(read_dump(dir.write("file", file), round % 2, before), dump(plain.head));
    }
}
