// What must hold of the result of the netperm pass for any table.
#include "netperm_support.h"

#include <gtest/gtest.h>
#include <map>
#include <set>

namespace {

struct random_table {
    std::string text = "policy-web: password p\npolicy-web: destination a\npolicy-web: destination b\n";
    std::map<std::string, std::vector<plain_rule>> rules; // by proxy, in table order
    std::vector<plain_rule> common;                       // of the lines for all

    random_table() {
        for (unsigned lines = random_below(40); lines > 0; lines--) {
            std::string names = one_of({"tn-px", "ftp-px", "http-px", "tn-px,ftp-px", "plug", "*"}),
                        prefix = one_of({"permit-", "permit-", "deny-", "deny-", ""}), hosts;
            if (names != "*")
                for (const std::string &proxy : split(names, ','))
                    rules.emplace(proxy, common);
            if (random_below(5) == 0) {
                text += names + ": " + prefix +
                        one_of({"destination d", "port 1", "timeout 2", "authserver s", "xgateway *"}) + "\n";
                continue;
            }
            std::vector<plain_rule> made;
            for (unsigned count = 1 + random_below(4); count > 0; count--) {
                std::string host =
                    one_of({"a", "b", "ab", "a.b", "a*", "*b", "a.*", "*.b", "c.*.b", "c.a.b", "*", "10.1", "10.*"});
                if (host == "*" && random_below(3))
                    host = "b*";
                made.push_back({prefix, host, ""});
                hosts += " " + host;
            }
            text += names + ": " + prefix + "hosts" + hosts +
                    one_of({"", "", " -x", " -x -y", " -policy web", " -policy corp_net -x", " -exec /bin/x -y"}) +
                    "\n";
            if (names == "*")
                common.insert(common.end(), made.begin(), made.end());
            for (auto &[proxy, list] : rules)
                if (names == "*" || ("," + names + ",").find("," + proxy + ",") != std::string::npos)
                    list.insert(list.end(), made.begin(), made.end());
        }
    }
};

// What the proxies' maps hold, in the order of their numbers, while each map is checked by itself.
void take_maps(FragList db, std::map<std::string, std::vector<plain_rule>> &rules) {
    int number = 0;
    for (Frag *map = children_of(db, "map"); map; map = map->next) {
        ASSERT_EQ(map->name, numbertext(++number));
        ASSERT_EQ(ffind(&map->child, "tag"), nullptr);
        ASSERT_NE(hosts_of(db, map).substr(0, 1), "(") << hosts_of(db, map);
        bool deny = value_of(map, "pd") == "D";
        ASSERT_EQ(value_of(map, "pd"), deny ? "D" : "P");
        ASSERT_EQ(value_of(map, deny ? "policy" : "proxy"), "*");
        std::set<std::string> proxies;
        if (deny)
            proxies.insert(value_of(map, "proxy"));
        for (Frag *set = deny ? nullptr : children_of(db, "policy_" + value_of(map, "policy") + "_proxy"); set;
             set = set->next) {
            ASSERT_NE(ffind(db, ("def_proxy_" + std::string(set->value) + "_config-sets_" + set->name).c_str()),
                      nullptr);
            ASSERT_TRUE(proxies.insert(set->value).second) << "two rules of one proxy in one map";
        }
        ASSERT_FALSE(proxies.empty());
        for (const std::string &proxy : proxies)
            for (const std::string &host : split(hosts_of(db, map), ','))
                rules[proxy].push_back({deny ? "deny-" : "permit-", host, ""});
    }
}

std::string first_match(const std::vector<plain_rule> &rules, const char *host) {
    for (const plain_rule &rule : rules)
        if (plain_wildmatch(rule.host.c_str(), host))
            return rule.marker;
    return "none";
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

        std::map<std::string, std::vector<plain_rule>> made;
        ASSERT_NO_FATAL_FAILURE(take_maps(db, made)) << table.text;
        for (Frag *proxy = children_of(db, "def_proxy"); proxy; proxy = proxy->next) {
            for (const char *gone : {"hosts", "destination", "port"})
                ASSERT_EQ(ffind(&proxy->child, gone), nullptr) << proxy->name;
            ASSERT_NE(std::string(proxy->name).substr(0, 7), "policy-");
            ASSERT_STRNE(proxy->name, "global");
        }
        for (const auto &[proxy, rules] : table.rules) {
            std::vector<plain_rule> left = uncovered(rules), &found = made[proxy];
            ASSERT_EQ(found.size(), left.size()) << table.text;
            for (size_t at = 0; at < left.size(); at++) {
                ASSERT_EQ(found[at].host, left[at].host) << table.text;
                ASSERT_TRUE(left[at].marker.empty() || found[at].marker == left[at].marker) << table.text;
            }
            // A deny never becomes a permit, nor the reverse.
            for (const char *host : {"a", "b", "ab", "a.b", "c.b", "c.x.b", "x.b", "10.1", "10.2", "bb", "q"}) {
                std::string wanted = first_match(rules, host), answer = first_match(found, host);
                denied += wanted == "deny-";
                permitted += wanted == "permit-";
                ASSERT_TRUE(wanted.empty() ? answer != "none" : answer == wanted) << proxy << " " << host << "\n"
                                                                                  << table.text;
            }
        }
        ASSERT_EQ(made.size(), table.rules.size()) << table.text;
    }
    EXPECT_GT(denied, 2000);
    EXPECT_GT(permitted, 2000);
}
