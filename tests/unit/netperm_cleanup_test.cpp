// Attributes that proxies have no use for, and `dest` records.
#include "netperm_support.h"

#include <gtest/gtest.h>

namespace {

// The database behind `conv_dests`, its records numbered from 1 on.
std::string with_dests(const std::string &before) {
    tree db(before);
    int first = next_dest_number();
    conv_dests(db);
    number_from(db, "dest", first);
    return db.text();
}

std::string record(const std::string &number, const std::string &pd, const std::string &dest,
                   const std::string &service, const std::string &rule) {
    std::string key = "dest_" + number + "_";
    return key + "desc=" + rule + "\n" + key + "service=" + service + "\n" + key + "pg=P\n" + key + "dest=" + dest +
           "\n" + key + "pd=" + pd + "\n";
}

} // namespace

TEST(netperm_cleanup, attributes_without_use) {
    auto proxy = [](const std::string &name, const std::string &kept) {
        std::string text;
        for (const std::string &attribute : split(kept, ' '))
            text += "def_proxy_" + name + "_" + attribute + "=1\n";
        return text;
    };
    const std::string all = "a authserver port xforwarder b authenticate c xforwarder_2 Authserver authserver-x",
                      most = "a authserver port xforwarder xforwarder_2 b authenticate c Authserver authserver-x";
    tree db(proxy("whois", all) + proxy("http-px", all) + proxy("rlogin-px", all) + proxy("other", all) +
            "x_authserver=1\n");
    clean_auth_etc(db);
    EXPECT_EQ(db.text(), proxy("whois", "a port b c Authserver authserver-x") +
                             proxy("http-px", "a authserver port b authenticate c Authserver authserver-x") +
                             proxy("rlogin-px", most) + proxy("other", most) + "x_authserver=1\n");
    for (Frag *frag = ffind(db, "def_proxy_other")->child; frag; frag = frag->next)
        EXPECT_EQ(frag->parent, ffind(db, "def_proxy_other"));
    tree ports(proxy("plug", "port a port_3 Port ports") + proxy("whois", "port") + "def_port_x=1\n");
    conv_plugdata(ports);
    EXPECT_EQ(ports.text(), proxy("plug", "a Port ports") + "def_port_x=1\n");
    EXPECT_NE(ffind(ports, "def_proxy_whois"), nullptr);
}

TEST(netperm_cleanup, dest_records) {
    struct row {
        std::string before, after;
    };
    const row rows[] = {
        {"def_proxy_p_x=1\n", "def_proxy_p_x=1\n"},
        {"proxy_p_destination=1\n", "proxy_p_destination=1\n"},
        {"def_proxy_p_destination=a b \ndef_proxy_p_x=1\n",
         record("1", "P", "a b ", "p", "def_proxy_p_destination") + "def_proxy_p_x=1\n"},
        {"def_proxy_p_q%5Fr_permit-7=x\ndef_proxy_tn%5Fpx_deny-destination=a\n",
         record("1", "D", "a", "tn_px", "def_proxy_tn%5Fpx_deny-destination") + "def_proxy_p_q%5Fr_permit-7=x\n"},
        {"def_proxy_p_destination_9=c\ndef_proxy_p_destination_deny-4=b\ndef_proxy_p_destination_permit-1=%-deny%a\n",
         record("1", "P", "c", "destination", "def_proxy_p_destination_9") +
             record("2", "D", "b", "destination", "def_proxy_p_destination_deny-4") +
             record("3", "D", "a", "destination", "def_proxy_p_destination_permit-1")},
        // Where a node has rules below it, its own value is none of them.
        {"def_proxy_p_destination=own\ndef_proxy_p_destination_1=\n",
         record("1", "P", "", "destination", "def_proxy_p_destination_1")},
        {"def_proxy_b_destination=x\ndef_proxy_a_config-sets_a_destination=y\n"
         "def_proxy_a_config-sets_a-2_destination_1=z\ndef_proxy_a_destination=w\n",
         record("1", "P", "x", "b", "def_proxy_b_destination") + record("2", "P", "w", "a", "def_proxy_a_destination") +
             record("3", "P", "y", "a", "def_proxy_a_config-sets_a_destination") +
             record("4", "P", "z", "destination", "def_proxy_a_config-sets_a-2_destination_1")},
    };
    for (const row &r : rows)
        EXPECT_EQ(with_dests(r.before), r.after) << r.before;
}

TEST(netperm_cleanup, class_of_a_destination) {
    // "prefix|value|pd|dest"
    const char *rows[] = {"|a|P|a",
                          "permit-|a|P|a",
                          "deny-|a|D|a",
                          "absorb-|a|P|a",
                          "deny-permit-|a|D|a",
                          "absorb-deny-|a|D|a",
                          "|%-permit%a|P|a",
                          "|%-deny%a %-deny%b|D|a %-deny%b",
                          "permit-|%-deny% a|D| a",
                          "deny-|%-permit%a|P|a",
                          "| %-deny%a|P| %-deny%a",
                          "deny-| %-permit%a|D| %-permit%a",
                          "deny-||D|",
                          "|%-deny|P|%-deny"};
    for (const char *row : rows) {
        std::vector<std::string> words = split(row, '|');
        tree db("def_proxy_p_" + words[0] + "destination=" + words[1] + "\n");
        conv_dests(db);
        Frag *made = ffind(db, "dest")->child;
        EXPECT_EQ(fval(&made->child, "pd"), words[2]) << row;
        EXPECT_EQ(fval(&made->child, "dest"), words[3]) << row;
    }
}

TEST(netperm_cleanup, one_destination_of_a_config_set) {
    tree db("def_proxy_a_config-sets_a_x=1\n");
    Frag *set = ffind(db, "def_proxy_a_config-sets_a");
    for (const char *value : {"first", "last"}) {
        Frag *rule = newsymfrag("destination", strlen("destination"));
        setvalue(rule, value);
        pushfrag(&set->child, rule, set);
    }
    conv_dests(db);
    EXPECT_STREQ(fval(&ffind(db, "dest")->child->child, "dest"), "last");
    EXPECT_EQ(text_of(set), "a_destination=first\na_x=1\n");
}

TEST(netperm_cleanup, records_take_free_numbers) {
    tree db("p_destination_1=a\np_destination_2=b\n");
    int first = next_dest_number();
    std::string taken = "dest_" + numbertext(first + 1) + "_id";
    fset(db, taken.c_str(), "merged");
    new_dest(db, ffind(db, "p_destination"));
    number_from(db, "dest", first);
    ASSERT_EQ(names_of(ffind(db, "dest")->child), "1 2 3");
    EXPECT_STREQ(fval(db, "dest_1_dest"), "a");
    EXPECT_EQ(text_of(ffind(db, "dest_2")->child), "id=merged\n");
    EXPECT_STREQ(fval(db, "dest_3_dest"), "b");
    EXPECT_EQ(text_of(ffind(db, "p")), "p_destination_1=a\np_destination_2=b\n");
}
