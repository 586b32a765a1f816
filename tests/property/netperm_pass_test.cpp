// What must hold of the result of the netperm pass for any table.
#include "netperm_support.h"

#include <gtest/gtest.h>
#include <map>
#include <set>

namespace {

struct plain_rule {
    char type; // P, D, or blank for a line without a prefix
    std::string host;
};

struct random_table {
    std::string text;
    std::map<std::string, std::vector<plain_rule>> rules; // by proxy, in table order
    std::vector<plain_rule> common;

    random_table() {
        const char *const tails[] = {
            "", "", " -x", " -x -y", " -policy web", " -policy corp_net -x", " -exec /bin/x -y"};
        text = "policy-web: password p\npolicy-web: destination a\npolicy-web: destination b\n";
        for (unsigned lines = random_below(40); lines > 0; lines--) {
            std::string names = one_of({"tn-px", "ftp_px", "http-px", "tn_px, ftp-px", "plug", "*"});
            std::string prefix = one_of({"permit-", "permit-", "deny-", "deny-", ""});
            if (random_below(5) == 0) {
                text += names + ": " + prefix +
                        one_of({"destination d", "port 1", "timeout 2", "authserver s", "xgateway *"}) + "\n";
                continue;
            }
            std::string hosts;
            std::vector<plain_rule> made;
            for (unsigned count = 1 + random_below(4); count > 0; count--) {
                std::string host =
                    one_of({"a", "b", "ab", "a.b", "a*", "*b", "a.*", "*.b", "c.*.b", "c.a.b", "*", "10.1", "10.*"});
                if (host == "*" && random_below(3))
                    host = "b*";
                made.push_back({prefix.empty() ? ' ' : prefix[0] == 'p' ? 'P' : 'D', host});
                hosts += " " + host;
            }
            text += names + ": " + prefix + "hosts" + hosts + one_of(tails) + "\n";
            add(names, made);
        }
    }

private:
    void add(const std::string &names, const std::vector<plain_rule> &made) {
        if (names == "*") {
            for (auto &proxy : rules)
                proxy.second.insert(proxy.second.end(), made.begin(), made.end());
            common.insert(common.end(), made.begin(), made.end());
            return;
        }
        for (const std::string &proxy : names[0] == 't' && names.size() > 5
                                            ? std::vector<std::string>{"tn-px", "ftp-px"}
                                            : std::vector<std::string>{names == "ftp_px" ? "ftp-px" : names}) {
            std::vector<plain_rule> &list = rules.emplace(proxy, common).first->second;
            list.insert(list.end(), made.begin(), made.end());
        }
    }
};

// The rules that the maps hold for a proxy, in the order of their numbers.
std::vector<plain_rule> rules_in_maps(FragList db, const std::string &proxy) {
    std::vector<plain_rule> rules;
    for (Frag *map = ffind(db, "map") ? ffind(db, "map")->child : nullptr; map; map = map->next) {
        bool deny = strcmp(fval(&map->child, "pd"), "D") == 0;
        bool meant = deny && proxy == fval(&map->child, "proxy");
        if (!deny)
            for (Frag *set = ffind2(db, "policy", (std::string(fval(&map->child, "policy")) + "_proxy").c_str())->child;
                 set; set = set->next)
                meant |= proxy == set->value;
        if (meant)
            for (const std::string &host : split(hosts_of(db, map), ','))
                rules.push_back({deny ? 'D' : 'P', host});
    }
    return rules;
}

char first_match(const std::vector<plain_rule> &rules, const std::string &host) {
    for (const plain_rule &rule : rules)
        if (plain_wildmatch(rule.host, host).match())
            return rule.type;
    return '-';
}

} // namespace

TEST(netperm_pass_property, any_table) {
    seed_random(6);
    scratch_dir dir;
    int denied = 0, permitted = 0;
    for (int round = 0; round < 500; round++) {
        random_table table;
        tree db;
        cur_database = db;
        netperm_pass(dir.write("table", table.text).c_str(), 32);
        ASSERT_EQ(cur_database, static_cast<FragList>(db));
        cur_database = &def_database;

        int number = 0;
        for (Frag *map = ffind(db, "map") ? ffind(db, "map")->child : nullptr; map; map = map->next) {
            ASSERT_EQ(map->name, numbertext(++number));
            ASSERT_EQ(ffind(&map->child, "tag"), nullptr);
            ASSERT_NE(hosts_of(db, map).substr(0, 1), "(") << hosts_of(db, map);
            std::string policy = fval(&map->child, "policy");
            if (strcmp(fval(&map->child, "pd"), "D") == 0) {
                ASSERT_EQ(policy, "*");
                ASSERT_NE(ffind2(db, "def_proxy", fval(&map->child, "proxy")), nullptr);
            } else {
                ASSERT_STREQ(fval(&map->child, "pd"), "P");
                ASSERT_STREQ(fval(&map->child, "proxy"), "*");
                ASSERT_NE(ffind2(db, "policy", (policy + "_proxy").c_str()), nullptr) << policy;
                std::set<std::string> proxies;
                for (Frag *set = ffind2(db, "policy", (policy + "_proxy").c_str())->child; set; set = set->next) {
                    ASSERT_NE(ffind(db, ("def_proxy_" + std::string(set->value) + "_config-sets_" + set->name).c_str()),
                              nullptr);
                    ASSERT_TRUE(proxies.insert(set->value).second) << "two rules of one proxy in one map";
                }
            }
        }
        for (Frag *proxy = ffind(db, "def_proxy")->child; proxy; proxy = proxy->next) {
            for (const char *gone : {"hosts", "destination", "port"})
                ASSERT_EQ(ffind(&proxy->child, gone), nullptr) << proxy->name;
            ASSERT_NE(std::string(proxy->name).substr(0, 7), "policy-");
            ASSERT_STRNE(proxy->name, "global");
        }
        ASSERT_EQ(fval(db, "trusted_networks"), nullptr);

        for (const auto &proxy : table.rules) {
            std::vector<plain_rule> left;
            for (const plain_rule &rule : proxy.second) {
                bool covered = false;
                for (const plain_rule &earlier : left)
                    covered |= plain_wildmatch(earlier.host, rule.host).match();
                if (!covered)
                    left.push_back(rule);
            }
            std::vector<plain_rule> found = rules_in_maps(db, proxy.first);
            ASSERT_EQ(found.size(), left.size()) << table.text;
            for (size_t at = 0; at < left.size(); at++) {
                ASSERT_EQ(found[at].host, left[at].host) << table.text;
                ASSERT_TRUE(left[at].type == ' ' || found[at].type == left[at].type) << table.text;
            }
            for (const char *host : {"a", "b", "ab", "a.b", "c.b", "c.x.b", "x.b", "10.1", "10.2", "bb", "q"}) {
                char wanted = first_match(proxy.second, host), made = first_match(found, host);
                denied += wanted == 'D';
                permitted += wanted == 'P';
                ASSERT_TRUE(wanted == ' ' ? made != '-' : made == wanted) << proxy.first << " " << host << "\n"
                                                                          << table.text;
            }
        }
    }
    EXPECT_GT(denied, 2000);
    EXPECT_GT(permitted, 2000);
}

TEST(netperm_pass_property, order_of_proxies_and_what_stays_of_them) {
    tree db("trusted_networks=old\ndef_proxy_gui_x=1\n");
    scratch_dir dir;
    cur_database = db;
    std::string table =
        dir.write("table", "b: x 1\nalerts: enable on\nalerts: other 1\nalerts: hosts h\npolicy-p: x 1\n"
                           "Policy-p: hosts h\na: x 1\nlogin_ts: x 1\nradm: x 1\nauthenIP: x 1\n"
                           "getvers, netconfig gui: x 1\nmrly: authserver s\n");
    netperm_pass(table.c_str(), 0);
    EXPECT_EQ(names_of(ffind(db, "def_proxy")->child), "mrly a Policy-p alerts b");
    EXPECT_EQ(names_of(ffind(db, "def_proxy_alerts")->child), "enable");
    EXPECT_EQ(ffind(db, "def_proxy_alerts_enable")->next, nullptr);
    EXPECT_EQ(ffind(db, "def_proxy_mrly")->child, nullptr);
    EXPECT_EQ(text_of(ffind(db, "def_proxy_Policy-p_config-sets")), "");
    EXPECT_NE(ffind(db, "trusted_networks"), nullptr);
    EXPECT_EQ(fval(db, "trusted_networks"), nullptr);
    EXPECT_NE(ffind(db, "untrusted_networks"), nullptr);
    EXPECT_EQ(names_of(ffind(db, "map")->child), "1");

    // From release 4.0 on the table goes to a database of its own, and for 5.5 it isn't even opened.
    std::string before = db.text();
    netperm_pass(dir.write("t", "z: x 1\n").c_str(), 41);
    EXPECT_EQ(cur_database, &def_database);
    EXPECT_EQ(text_of(nptdatabase), "def_proxy_z_x=1\n");
    EXPECT_EQ(def_database, nullptr);
    cur_database = db;
    netperm_pass((dir.path + "/none").c_str(), 55);
    EXPECT_EQ(cur_database, static_cast<FragList>(db));
    EXPECT_EQ(db.text(), before);
    cur_database = &def_database;
    freelist(nptdatabase);
    nptdatabase = nullptr;
}
