// Netperm tables into the rules of proxies.
#include "netperm_support.h"

#include <gtest/gtest.h>

namespace {

// The lines of the rule tree without the "def_proxy_" in front of each.
std::string rules(const std::string &table) {
    tree db;
    read_table(db, table);
    EXPECT_EQ(names_of(db.head), "def");
    EXPECT_NE(ffind(db, "def_proxy_global"), nullptr);
    std::string text;
    for (const std::string &line : split(db.text(), '\n'))
        text += line.empty() ? "" : line.substr(strlen("def_proxy_")) + "\n";
    return text;
}

struct row {
    std::string table, rules;
};

void check(const std::vector<row> &rows) {
    for (const row &r : rows)
        EXPECT_EQ(rules(r.table), r.rules) << r.table.substr(0, 200);
}

const std::string NUL(1, '\0');

} // namespace

TEST(netperm_reader, shapes_of_attributes) {
    check({
        {"", ""},
        {"# c\n*: permit-hosts 10.0.0.*\ntn_px, ftp-px: deny-hosts 10.0.0.9\n",
         "ftp-px_hosts_deny-3=10.0.0.9\nftp-px_hosts_permit-0=10.0.0.*\n"
         "tn-px_hosts_deny-3=10.0.0.9\ntn-px_hosts_permit-0=10.0.0.*\nglobal_hosts_permit-0=10.0.0.*\n"},
        {"a: hosts x\na: permit-hosts y\na: hosts z\n", "a_hosts_3=z\na_hosts_permit-2=y\na_hosts_0=x\n"},
        {"a: absorb-url x\na: url y\na: sid s\n", "a_sid_0=s\na_url_2=y\na_url_absorb-0=x\n"},
        {"a: timeout 1\n", "a_timeout=1\n"},
        {"a: deny-dest 1\na: dest 2\na: permit-dest 3\n", "a_dest_permit-3=3\na_dest_2=2\na_dest_deny-1=1\n"},
        {"a: authenticate x\na: deny-authenticate y\na: permit-authserver 1\na: authserver 2\n",
         "a_permit-authserver=1\na_authenticate=x\n"},
        {"a: password x\na: password y\n", "a_password_2=y\na_password_1=x\n"},
        {"a: use_name_logs 1\na: use_name_logs 2\na: x%y 3\n",
         "a_x%25y=3\na_use%5Fname%5Flogs_2=2\na_use%5Fname%5Flogs_1=1\n"},
        {"a: foo=bar 1\na: foo=baz 2\n", "a_foo_2=2\na_foo_1=1\n"},
    });
}

TEST(netperm_reader, prefixes) {
    struct {
        const char *word, *name;
        long attr;
    } rows[] = {
        {"permit-x", "x", ATTR_PERMIT}, {"DENY-x", "x", ATTR_DENY},
        {"Absorb-x", "x", ATTR_ABSORB}, {"onlyon-x", "onlyon-x", 0},
        {"permit-deny-x", "deny-x", 1}, {"deny-permit-x", "permit-x", 2},
        {"permit_x", "permit%5Fx", 0},  {"permit-use_x", "use%5Fx", ATTR_PERMIT},
        {"Permit-Hosts", "Hosts", 1},   {"deny-", "", ATTR_DENY},
        {"permitx", "permitx", 0},      {"xpermit-y", "xpermit-y", 0},
        {"deny%5Fx", "deny%255Fx", 0},  {"permit-Authenticate", "Authenticate", 1},
    };
    for (const auto &r : rows) {
        tree db("p_q=\n");
        Frag *proxy = ffind(db, "p");
        std::string word = r.word;
        EXPECT_EQ(add_rule(proxy, 7, word.c_str(), "text"), 0);
        EXPECT_EQ(word, r.word);
        EXPECT_STREQ(proxy->child->name, r.name) << r.word;
        EXPECT_STREQ(proxy->child->value, "text") << r.word;
        EXPECT_EQ(proxy->child->attr, r.attr) << r.word;
        EXPECT_EQ(proxy->child->parent, proxy);
        add_rule(proxy, -7, word.c_str(), "more");
        EXPECT_EQ(names_of(proxy->child->child), "-7 1") << r.word;
        EXPECT_EQ(proxy->child->attr, 0) << r.word;
        EXPECT_EQ(proxy->child->value, nullptr) << r.word;
        EXPECT_EQ(proxy->child->child->attr, r.attr) << r.word;
        EXPECT_EQ(proxy->child->child->next->attr, r.attr) << r.word;
    }
}

TEST(netperm_reader, wildcard) {
    check({
        {"a: x 1\n*: y 2\nb: z 3\n", "b_z=3\nb_y=2\na_y=2\na_x=1\nglobal_y=2\n"},
        {"b: x 1\na: x 2\n*anything: deny-x 3\n", "a_x_deny-3=3\na_x_1=2\nb_x_deny-3=3\nb_x_1=1\nglobal_deny-x=3\n"},
        {"a: z 0\n*: logging 1\n*: use_name_logs 2\n*: afw-dest 3\nb: z 4\n",
         "b_z=4\nb_afw-dest=3\na_z=0\nglobal_afw-dest=3\nglobal_use%5Fname%5Flogs=2\nglobal_logging=1\n"},
        // Only the very words go to `global` alone; a new proxy gets no `logging` in any case.
        {"a: z 0\n*: permit-logging 1\n*: Logging 2\nb: z 4\n",
         "b_z=4\nb_Logging=2\na_Logging=2\na_permit-logging=1\na_z=0\nglobal_Logging=2\nglobal_permit-logging=1\n"},
        {"a: logging 1\na: use_name_logs 2\na: afw-dest 3\n", "a_afw-dest=3\na_use%5Fname%5Flogs=2\na_logging=1\n"},
        {"global: x 1\na: y 2\n", "a_y=2\na_x=1\nglobal_x=1\n"},
        {"*: authenticate *\na: authenticate other\n", "a_authenticate=*\nglobal_authenticate=*\n"},
        // A proxy beside the star gets the rule twice, the second time in the place of its line.
        {"\na,*: hosts h\n", "a_hosts_2=h\na_hosts_0=h\nglobal_hosts_0=h\n"},
        {"\n*, a: x 1\n", "a_x_2=1\na_x_1=1\nglobal_x=1\n"},
        {"a: x 0\na * a: x 1\n", "a_x_2=1\na_x_1=0\nglobal_x=1\n"},
    });
}

TEST(netperm_reader, frame_of_a_line) {
    check({
        {",, tn_px\t,,tn-px ,: x 1\n", "tn-px_x_1=1\n"},
        {"a b,c: x 1\n", "c_x=1\nb_x=1\na_x=1\n"},
        {"a=b: x 1\na: x 2\n", "a_x_2=2\na_x_1=1\n"},
        {"a:b: c: d\n", "a_b:=c: d\n"},
        {"a:\t x  two words \t\n", "a_x= two words \t\n"},
        {"a: x\n", "a_x=\n"},
        {"a: x \n", "a_x=\n"},
        {"a: x\t\t \n", "a_x=\t \n"},
        {"a: x 1", "a_x=1\n"},
        {"a:\na: \t\n: x 1\n , : x 1\nno colon\n#a: x 1\n\n \t\r\na: hosts 1\na: hosts 2",
         "a_hosts_10=2\na_hosts_0=1\n"},
        {" #a: x 1\n", "#a_x=1\n"},
        {"a: x 1\r\na: y 1\rlost: z 1\nb\r: x 1\n", "a_y=1\na_x=1\n"},
        // White space in front is looked at only to tell a blank line, so a carriage return there is a name's first
        // byte.
        {"\ra: x 1\n", "\ra_x=1\n"},
        {"a: x 1" + NUL + "lost\na" + NUL + ": x 2\nb: x" + NUL + " 3\n", "b_x=\na_x=1\n"},
        {" " + NUL + "lost\na: hosts 1\na: hosts 2\n", "a_hosts_3=2\na_hosts_0=1\n"},
        {NUL + "\na: x 1\n", "a_x=1\n"},
    });
}

// A read unit holds 8190 bytes; what a longer line has behind them is judged as a line of its own.
TEST(netperm_reader, long_lines) {
    auto fill = [](size_t count, char byte = 'v') { return std::string(count, byte); };
    for (size_t length = 8189; length <= 8192; length++) {
        bool cut = length > 8190;
        std::string value = fill(length - 6);
        EXPECT_EQ(rules("a: y 1\na: x " + value + "\na: y 2\n"),
                  "a_x=" + fill(std::min<size_t>(length - 6, 8185)) + "\na_y_" + (cut ? "4" : "3") + "=2\na_y_1=1\n");
        // Blanks: a unit without its line end takes the rest of its line with it, and that counts for no line.
        EXPECT_EQ(rules("a: y 1\n" + fill(length - 1, ' ') + "\na: y 2\n"), "a_y_3=2\na_y_1=1\n") << length;
        EXPECT_EQ(rules("a: y 1\n" + fill(length - 1, '#') + "\na: y 2\n"),
                  std::string("a_y_") + (cut ? "4" : "3") + "=2\na_y_1=1\n");
    }
    std::string commas = fill(8190, ',');
    check({
        {fill(8190, ' ') + "a: x 1\nb: x 1", "b_x=1\n"},
        {fill(8190, ' ') + "a: x 1", ""},
        {fill(8189, ' ') + "tn: x 1\n", "n_x=1\n"},   // within a name, the rest of which is a name too
        {commas.substr(1) + "a,b: x 1\n", "b_x=1\n"}, // behind a name
        {commas.substr(1) + "a: x 1\n", ""},          // in front of the colon
        {commas.substr(2) + "a: x 1\n", ""},          // behind the colon
        {commas.substr(2) + "a: b:x 1\n", "b_x=1\n"}, // the same, and a colon follows
        {commas.substr(3) + "a: x 1\n", ""},          // behind the blank there
        {commas.substr(4) + "a: xy 1\n", "a_x=\n"},   // within the attribute
        {commas.substr(12) + "a: deny-hosts x\n", "a_deny-host=\n"},
        {commas.substr(5) + "a: xy 1\n", "a_xy=\n"},   // behind it
        {commas.substr(6) + "a: xy 1\n", "a_xy=\n"},   // behind its blank
        {commas.substr(7) + "a: xy 12\n", "a_xy=1\n"}, // within the text
        {commas.substr(7) + "a: xy 1b: z 2\n", "b_z=2\na_xy=1\n"},
        {commas.substr(7) + "a: xy 1#b: z 2\n", "a_xy=1\n"},
        {commas.substr(7) + "a: xy 1 \t\nb: z 2\n", "b_z=2\na_xy=1\n"},
        {commas.substr(7) + "a: xy 1\r\nb: z 2\n", "b_z=2\na_xy=1\n"},
        {"#" + commas.substr(1) + "a: x 1\n", "a_x=1\n"}, // a comment ends with its read unit
        {fill(3 * 8190, 'n') + ": x 1\n", ""},
    });
}

TEST(netperm_reader, second_table_joins_the_first) {
    tree db("def_proxy_old_x=1\nkeep=1\n");
    read_table(db, "a: hosts 1\na: hosts 2\na: t 3\n");
    read_table(db, "\na: permit-hosts 9\na: hosts 8\nb: t 1\na: t 5\n");
    EXPECT_EQ(db.text(), "def_proxy_b_t=1\ndef_proxy_a_t_5=5\ndef_proxy_a_t_1=3\ndef_proxy_a_hosts_3=8\n"
                         "def_proxy_a_hosts_permit-2=9\ndef_proxy_a_hosts_0=1\ndef_proxy_old_x=1\nkeep=1\n");
}
