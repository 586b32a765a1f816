// Host patterns, covered rules and groups against plain procedures that do it step by step, on random input.
#include "netperm_support.h"

#include <gtest/gtest.h>

namespace {

std::string random_word(const std::string &alphabet, unsigned longest) {
    std::string word;
    for (unsigned left = random_below(longest + 1); left > 0; left--)
        word += alphabet[random_below(static_cast<unsigned>(alphabet.size()))];
    return word;
}

// The maps of rules that are split already: rules that an earlier one covers go, neighbours join. A rule without a marker
// has none here or, if it joins nothing, its prefix `permit-`.
std::string plain_maps(const std::vector<plain_rule> &all) {
    std::vector<plain_rule> rules = uncovered(all);
    std::string maps;
    int group = 1;
    for (size_t i = 0; i < rules.size(); group++) {
        const plain_rule &first = rules[i];
        std::string hosts = first.host, type = first.marker == "%-deny%" ? first.marker : "%-permit%";
        while (++i < rules.size() && rules[i].tail == first.tail &&
               (rules[i].marker.empty() ? "%-deny%" : rules[i].marker) == type)
            hosts += "," + rules[i].host;
        bool deny = type == "%-deny%";
        maps += (maps.empty() ? "p=" : "|") + std::string(deny ? "D " : "P ") + hosts + " [" +
                first.tail.substr(0, first.tail.find_last_not_of(' ') + 1) + "] " +
                (deny ? "*@p" : "p-" + numbertext(group) + "@*");
    }
    return maps + "\n";
}

} // namespace

TEST(rule_property, wildmatch_gives_the_plain_verdict) {
    seed_random(1);
    const char *const alphabets[] = {"ab", "ab*", "a*", "a", "ab.*"};
    int matches = 0;
    for (int count = 0; count < 60000; count++) {
        std::string pattern = random_word(count % 3 ? "ab*" : "a**", 10), subject = random_word(one_of(alphabets), 12);
        if (count % 4 == 0) // a subject that is likely to match
            subject = random_word("ab*", 3) + pattern + random_word("ab*", 3);
        bool verdict = plain_wildmatch(pattern.c_str(), subject.c_str());
        matches += verdict;
        std::string p = pattern + one_of({"", " ", "\t*", " a"}), s = subject + one_of({"", " ", "\t*", " a"});
        ASSERT_EQ(wildmatch(p.c_str(), s.c_str()), verdict) << "'" << p << "' against '" << s << "'";
    }
    EXPECT_GT(matches, 5000);
}

TEST(rule_property, covered_rules_and_groups) {
    seed_random(2);
    for (int round = 0; round < 800; round++) {
        tree db;
        std::string table;
        std::vector<plain_rule> rules;
        unsigned few = random_below(4);
        const bool many = round % 20 == 0; // patterns that have only the bytes between their stars
        for (unsigned lines = many ? 150 : 1 + random_below(few ? 8 : 60); lines > 0; lines--) {
            std::string prefix = one_of({"", "", "permit-", "permit-", "deny-", "absorb-"}),
                        marker = one_of({"", "", "", "", "%-permit%", "%-deny%"}),
                        tail = one_of({"", "", "", "-x", "-x ", "-y"}), line, type = marker;
            if (marker.empty() && prefix == "deny-")
                type = "%-deny%";
            else if (marker.empty() && prefix == "permit-")
                type = prefix;
            for (unsigned hosts = 1 + random_below(3); hosts > 0; hosts--) {
                std::string host = random_word(few ? "a1.*" : "ab1.*", few ? 4 : 6) + one_of({"", "a", "*", "1"});
                if (many && random_below(2)) {
                    host = "*";
                    for (unsigned letters = 4 + random_below(2); letters > 0; letters--)
                        host += "abc"[random_below(3)];
                    host += one_of({"*", "*", "*b*", "*c*"});
                } else if (many) {
                    host = "x" + random_word("abc", 9);
                }
                rules.push_back({type, host.empty() ? "h" : host, tail});
                line += rules.back().host + " ";
            }
            if (tail.empty() && random_below(2))
                line.pop_back();
            table += "p: " + prefix + "hosts" + one_of({" ", "  "}) + marker + line + tail + "\n";
        }
        read_table(db, table);
        untrans_hosts(db, ffind(db, "def_proxy_p"));
        ASSERT_EQ(rules_of(db), plain_maps(rules)) << table;
    }
}

// Groups in the same database one after another: an equal list is found, the first in list order, and else a new one is
// made. The indexed search of a run must give what the search for one group gives, and both the plain one.
TEST(rule_property, groups_found_again) {
    seed_random(3);
    const char *const hosts[] = {"a", "A", "b", "B", "c"};
    for (int round = 0; round < 100; round++) {
        std::string text = "netobj_list_none_x=1\n";
        for (unsigned lists = random_below(24); lists > 0; lists--)
            text += "netobj_list_" + one_of({"l$LIST", "k", "x-1$LIST", "x-2$LIST", "y$LIST", "z%5F$LIST"}) +
                    "_element_" + numbertext(static_cast<int>(random_below(4))) + "_" +
                    one_of({"addr", "addr", "addr", "name"}) + "=" + one_of(hosts) + "\n";
        tree one(text), indexed(text);
        translation run(indexed);
        for (int group = 0; group < 30; group++) {
            std::string lines, wanted, found;
            int seq = 1 + static_cast<int>(random_below(2)), count = 0, most = 1 + static_cast<int>(random_below(3));
            for (std::string host; count++ < most; wanted += lowercase(host) + ",") {
                host = one_of(hosts);
                lines += numbertext(count) + "=" + one_of({"", " ", "%-deny%"}) + host + " -x\n";
            }
            for (Frag *list = children_of(one, "netobj_list"); list && found.empty(); list = list->next) {
                std::string have;
                for (Frag *element = children_of(&list->child, "element"); element; element = element->next)
                    have += lowercase(value_of(element, "addr")) + ",";
                if (have == wanted)
                    found = fragname(list);
            }
            for (int number = seq; found.empty(); number++)
                if (!ffind(one, ("netobj_list_x-" + numbertext(number) + "$LIST").c_str()))
                    found = "x-" + numbertext(number) + "$LIST";
            if (found.size() > 5 && found[found.size() - 5] == '$')
                found.erase(found.size() - 5);
            tree rules(lines);
            std::vector<rule_text> views;
            Frag *last = rules.head;
            for (Frag *rule = rules.head; rule; last = rule, rule = rule->next)
                views.push_back(read_rule(rule));
            ASSERT_EQ(fragname(find_netgroup(one, rules.head, last, seq, "x")), found) << one.text() << lines;
            ASSERT_EQ(fragname(run.find_netgroup(views.data(), views.data() + views.size(), seq, "x")), found)
                << one.text() << lines;
        }
        ASSERT_EQ(indexed.text(), one.text());
    }
}
