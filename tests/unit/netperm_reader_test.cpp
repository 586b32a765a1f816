// Lines of a netperm table that are longer than a read unit.
#include "netperm_support.h"

#include <gtest/gtest.h>

// The lines of the rule tree without the "def_proxy_" in front of each.
static std::string rules(const std::string &table) {
    tree db;
    read_table(db, table);
    std::string text;
    for (const std::string &line : split(db.text(), '\n'))
        text += line.empty() ? "" : line.substr(strlen("def_proxy_")) + "\n";
    return text;
}

// A read unit holds 8190 bytes; what a longer line has behind them is judged as a line of its own.
TEST(netperm_reader, long_lines) {
    auto fill = [](size_t count, char byte) { return std::string(count, byte); };
    for (size_t length = 8189; length <= 8192; length++) {
        bool cut = length > 8190;
        EXPECT_EQ(rules("a: y 1\na: x " + fill(length - 6, 'v') + "\na: y 2\n"),
                  "a_x=" + fill(std::min<size_t>(length - 6, 8185), 'v') + "\na_y_" + (cut ? "4" : "3") +
                      "=2\na_y_1=1\n");
        // Blanks: a unit without its line end takes the rest of its line with it, and that counts for no line.
        EXPECT_EQ(rules("a: y 1\n" + fill(length - 1, ' ') + "\na: y 2\n"), "a_y_3=2\na_y_1=1\n") << length;
        EXPECT_EQ(rules("a: y 1\n" + fill(length - 1, '#') + "\na: y 2\n"),
                  std::string("a_y_") + (cut ? "4" : "3") + "=2\na_y_1=1\n");
    }
    struct {
        size_t count; // of the bytes in front of the text
        char byte;
        const char *text, *rules;
    } rows[] = {
        {8190, ' ', "a: x 1\nb: x 1", "b_x=1\n"},
        {8190, ' ', "a: x 1", ""},
        {8189, ' ', "tn: x 1\n", "n_x=1\n"},  // within a name, the rest of which is a name too
        {8189, ',', "a,b: x 1\n", "b_x=1\n"}, // behind a name
        {8189, ',', "a: x 1\n", ""},          // in front of the colon
        {8188, ',', "a: x 1\n", ""},          // behind the colon
        {8188, ',', "a: b:x 1\n", "b_x=1\n"}, // the same, and a colon follows
        {8187, ',', "a: x 1\n", ""},          // behind the blank there
        {8186, ',', "a: xy 1\n", "a_x=\n"},   // within the attribute
        {8178, ',', "a: deny-hosts x\n", "a_deny-host=\n"},
        {8185, ',', "a: xy 1\n", "a_xy=\n"},   // behind it
        {8184, ',', "a: xy 1\n", "a_xy=\n"},   // behind its blank
        {8183, ',', "a: xy 12\n", "a_xy=1\n"}, // within the text
        {8183, ',', "a: xy 1b: z 2\n", "b_z=2\na_xy=1\n"},
        {8183, ',', "a: xy 1#b: z 2\n", "a_xy=1\n"},
        {8183, ',', "a: xy 1 \t\nb: z 2\n", "b_z=2\na_xy=1\n"},
        {8183, ',', "a: xy 1\r\nb: z 2\n", "b_z=2\na_xy=1\n"},
        {8190, '#', "a: x 1\n", "a_x=1\n"}, // a comment ends with its read unit
        {3 * 8190, 'n', ": x 1\n", ""},
    };
    for (const auto &r : rows)
        EXPECT_EQ(rules(fill(r.count, r.byte) + r.text), r.rules) << r.count << r.byte << r.text;
}
