// Host patterns, covered rules, first match, and maps of a file, on random data against plain procedures.
#include "netperm_support.h"
#include "translation.h"

#include <gtest/gtest.h>
#include <map>
#include <set>

namespace {

std::string random_word(const std::string &alphabet, unsigned longest) {
    std::string word;
    for (unsigned left = random_below(longest + 1); left > 0; left--)
        word += alphabet[random_below(static_cast<unsigned>(alphabet.size()))];
    return word;
}

std::string first_match(const std::vector<plain_rule> &rules, const char *host) {
    for (const plain_rule &rule : rules)
        if (plain_wildmatch(rule.host.c_str(), host))
            return rule.marker;
    return "none";
}

// Puts old maps in front of those of a file, by a walk over all for each; the walk begins with the newest.
void merge_plainly(FragList old, FragList now) {
    Frag *from_file = fdel(now, "map"), *maps = fset(now, "map", nullptr);
    int number = 0;
    for (Frag *from : {ffind(old, "map"), from_file}) {
        sort_frags(&from->child);
        while (Frag *map = from->child) {
            from->child = map->next;
            if (from == from_file && !dont_have_map(now, maps, map)) {
                freefrag(map);
                continue;
            }
            renumberfrag(map, ++number);
            pushfrag(&maps->child, map, maps);
        }
    }
    freefrag(from_file);
    sort_frags(&maps->child);
}

std::string random_conf(unsigned most_maps, unsigned most_policies) {
    std::string text;
    for (unsigned count = 1 + random_below(most_maps); count > 0; count--) {
        std::string key = "map_" + numbertext(static_cast<int>(random_below(30))) + "_";
        text += key + "id=\n";
        for (const std::string &field :
             {"pd=" + one_of({"P", "P", "D"}), "src=" + one_of({"g", "h"}), "proxy=" + one_of({"*", "*", "x"}),
              "policy=" + one_of({"p", "q", "r", "s", "t", "*"})})
            text += random_below(30) ? key + field + "\n" : "";
    }
    for (unsigned count = most_policies ? random_below(most_policies) : 0; count > 0; count--)
        text += "policy_" + one_of({"p", "q", "r", "s"}) + "_proxy" + one_of({"_1", "_2", "_10", ""}) + "=\n";
    return text;
}

std::string random_attributes(unsigned depth) {
    std::string text;
    for (unsigned left = 1 + random_below(4); left > 0; left--) {
        text += one_of({"hosts", "ho%73ts", "proxy", "password", "passwor%64", "authenticate", "authserver", "xgateway",
                        "xgatewa%79", "url", "sid", "x", "1", "2", "10"});
        text += one_of({"", "", "", ":1", ":2"}) + one_of({"", "=*", "=b", "=%-deny%*"});
        text += depth > 0 && random_below(2) ? "{" + random_attributes(depth - 1) + "} " : " ";
    }
    return text;
}

} // namespace

// What a policy's template gives to one config set after another, against a copy of the whole template for each.
TEST(netperm_property, templates) {
    seed_random(7);
    for (int round = 0; round < 2000; round++) {
        const std::string proxy = one_of({"mrlyd", "http-px", "other", "policy-w"}), own = random_attributes(0),
                          text = "policy-w{" + random_attributes(3) + "config-sets{a b{" + own + "} c}} " +
                                 (proxy == "policy-w" ? "" : proxy + "_config-sets{a b{" + own + "} c}");
        std::string made[2];
        for (bool plain : {false, true}) {
            tree db(text);
            policy_templates templates;
            Frag *model = ffind(db, "policy-w"), *user = ffind(db, proxy.c_str());
            testing::internal::CaptureStderr();
            for (Frag *set = ffind(&user->child, "config-sets")->child; set; set = set->next) {
                if (!plain)
                    templates.apply(model, set, user);
                for (Frag *next, *copy = plain ? copy_fragtree(&model->child, set) : nullptr; copy; copy = next) {
                    next = copy->next;
                    copy->next = nullptr;
                    addparm(set, copy, user->name);
                }
            }
            made[plain] = testing::internal::GetCapturedStderr() + dump(db.head);
        }
        ASSERT_EQ(made[0], made[1]) << proxy << " " << text;
    }
}

TEST(netperm_property, wildmatch_gives_the_plain_verdict) {
    seed_random(1);
    for (int count = 0; count < 60000; count++) {
        std::string pattern = random_word(count % 3 ? "ab*" : "a**", 10);
        std::string subject = random_word(one_of({"ab", "ab*", "a*", "a", "ab.*"}), 12);
        if (count % 4 == 0) // a subject that is likely to match
            subject = random_word("ab*", 3) + pattern + random_word("ab*", 3);
        bool verdict = plain_wildmatch(pattern.c_str(), subject.c_str());
        std::string p = pattern + one_of({"", " ", "\t*", " a"}), s = subject + one_of({"", " ", "\t*", " a"});
        ASSERT_EQ(wildmatch(p.c_str(), s.c_str()), verdict) << "'" << p << "' against '" << s << "'";
    }
    std::string stars, subject(20000, 'a'); // a plain recursion would take exponential time
    for (int count = 0; count < 200; count++)
        stars += "*a";
    EXPECT_EQ(wildmatch((stars + "*b").c_str(), subject.c_str()), 0);
    EXPECT_EQ(wildmatch((stars + "*b").c_str(), (subject + "b").c_str()), 1);
}

// Of any table, the first rule and the first map that a host meets say the same: a deny never becomes a permit, nor the
// reverse, and no rule with the prefix `permit-` ends in a deny map.
TEST(netperm_property, first_match_of_the_table_and_the_maps) {
    seed_random(6);
    scratch_dir dir;
    for (int round = 0; round < 300; round++) {
        std::string text = "policy-web: password p\npolicy-web: destination a\n";
        std::map<std::string, std::vector<plain_rule>> rules, made; // by proxy
        std::vector<plain_rule> common;                             // of the lines for all
        const bool many = round % 15 == 0; // patterns that have only the bytes between their stars
        for (unsigned lines = random_below(many ? 200 : 40); lines > 0; lines--) {
            std::string names = one_of({"tn-px", "ftp-px", "http-px", "tn-px,ftp-px", "plug", "*"}),
                        prefix = one_of({"permit-", "permit-", "deny-", "deny-", ""}), hosts;
            for (const std::string &proxy : split(names, ','))
                if (names != "*")
                    rules.emplace(proxy, common);
            std::vector<plain_rule> line;
            for (unsigned count = 1 + random_below(4); count > 0; count--) {
                std::string host =
                    one_of({"a", "b", "ab", "a.b", "a*", "*b", "a.*", "*.b", "c.*.b", "c.a.b", "*", "10.1", "10.*"});
                if (many)
                    host = random_below(2) ? "*" + random_word("abc", 5) + "c" + one_of({"*", "*", "*b*", "*c*"})
                                           : "x" + random_word("abc", 9);
                else if (host == "*" && random_below(3))
                    host = random_word("a1.*", 4) + "b";
                line.push_back({prefix, host, ""});
                hosts += " " + host;
            }
            text += names + ": " + prefix + "hosts" + hosts +
                    one_of({"", "", " -x", " -x -y", " -policy web", " -policy corp_net -x", " -exec /bin/x -y"}) +
                    "\n";
            if (names == "*")
                common.insert(common.end(), line.begin(), line.end());
            for (auto &[proxy, list] : rules)
                if (names == "*" || ("," + names + ",").find("," + proxy + ",") != std::string::npos)
                    list.insert(list.end(), line.begin(), line.end());
        }
        tree db;
        cur_database = db;
        netperm_pass(dir.write("table", text).c_str(), 32);
        cur_database = &def_database;
        for (Frag *map = children_of(db, "map"); map; map = map->next) {
            bool deny = value_of(map, "pd") == "D";
            std::set<std::string> proxies;
            if (deny)
                proxies.insert(value_of(map, "proxy"));
            const std::string sets = "policy_" + (deny ? "none" : value_of(map, "policy")) + "_proxy";
            for (Frag *set = children_of(db, sets); set; set = set->next)
                ASSERT_TRUE(proxies.insert(set->value).second) << "two rules of one proxy in one map\n" << text;
            for (const std::string &proxy : proxies)
                for (const std::string &host : split(hosts_of(db, map), ','))
                    made[proxy].push_back({deny ? "deny-" : "permit-", host, ""});
        }
        for (const auto &[proxy, list] : rules) {
            std::vector<plain_rule> left = uncovered(list), &found = made[proxy];
            ASSERT_EQ(found.size(), left.size()) << text;
            for (size_t at = 0; at < left.size(); at++) {
                ASSERT_EQ(found[at].host, left[at].host) << text;
                ASSERT_TRUE(left[at].marker.empty() || found[at].marker == left[at].marker) << text;
            }
            for (const char *host : {"a", "b", "ab", "a.b", "c.b", "c.x.b", "x.b", "10.1", "10.2", "bb", "q"}) {
                std::string wanted = first_match(list, host), said = first_match(found, host);
                ASSERT_TRUE(wanted.empty() ? said != "none" : said == wanted) << proxy << " " << host << "\n" << text;
            }
        }
        ASSERT_EQ(made.size(), rules.size()) << text;
    }
}

TEST(netperm_property, maps_of_a_file) {
    seed_random(5);
    scratch_dir dir;
    for (int round = 0; round < 400; round++) {
        std::string before = random_conf(8, 0), file = random_conf(12, 16), path = dir.write("file", file);
        tree db(before), old(before), plain;
        cur_database = db;
        conf_merge(db, path.c_str());
        cur_database = &def_database;
        importffile(path.c_str(), plain, 1);
        merge_plainly(old, plain);
        ASSERT_EQ(db.text(), plain.text()) << before << "--\n" << file;
    }
}
