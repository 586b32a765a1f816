// Host patterns, covered rules and groups against plain procedures that do it step by step, on random input.
#include "netperm_support.h"

#include <gtest/gtest.h>

namespace {

std::string random_word(const char *alphabet, unsigned longest) {
    std::string word;
    unsigned bytes = static_cast<unsigned>(strlen(alphabet));
    for (unsigned left = random_below(longest + 1); left > 0; left--)
        word += alphabet[random_below(bytes)];
    return word;
}

struct plain_rule {
    std::string marker, host, tail;
};

// The maps of rules that are split already: rules that an earlier one covers go, neighbours join.
std::string plain_maps(std::vector<plain_rule> rules) {
    for (size_t i = 0; i < rules.size(); i++)
        for (size_t j = i + 1; j < rules.size();)
            if (plain_wildmatch(rules[i].host, rules[j].host).match())
                rules.erase(rules.begin() + static_cast<long>(j));
            else
                j++;
    std::string maps;
    int group = 0;
    for (size_t i = 0; i < rules.size();) {
        std::string hosts = rules[i].host, type = rules[i].marker.empty() ? "%-permit%" : rules[i].marker;
        size_t next = i + 1;
        for (; next < rules.size() && rules[next].tail == rules[i].tail &&
               (rules[next].marker.empty() ? "%-deny%" : rules[next].marker) == type;
             next++)
            hosts += "," + rules[next].host;
        bool deny = type == "%-deny%";
        std::string flag = rules[i].tail.substr(0, rules[i].tail.find_last_not_of(' ') + 1);
        maps += (i ? "|" : "") + std::string(deny ? "D " : "P ") + hosts + " [" + flag + "] " +
                (deny ? "*@p" : "p-" + numbertext(group + 1) + "@*");
        group++;
        i = next;
    }
    return maps;
}

} // namespace

TEST(rule_property, wildmatch_gives_the_plain_verdict) {
    seed_random(1);
    const char *alphabets[] = {"ab", "ab*", "a*", "a", "ab.*"};
    int matches = 0;
    for (int count = 0; count < 60000; count++) {
        std::string pattern = random_word(count % 3 ? "ab*" : "a**", 10),
                    subject = random_word(alphabets[count % 5], 12);
        if (count % 4 == 0) // a subject that is likely to match
            subject = random_word("ab*", 3) + pattern + random_word("ab*", 3);
        bool verdict = plain_wildmatch(pattern, subject).match();
        matches += verdict;
        const char *ends[] = {"", " ", "\t*", " a"};
        std::string p = pattern + ends[random_below(4)], s = subject + ends[random_below(4)];
        ASSERT_EQ(wildmatch(p.c_str(), s.c_str()), verdict) << "'" << p << "' against '" << s << "'";
    }
    EXPECT_GT(matches, 5000);
}

TEST(rule_property, covered_rules_and_groups) {
    seed_random(2);
    const char *const prefixes[] = {"", "", "permit-", "permit-", "deny-", "absorb-"};
    const char *const markers[] = {"", "", "", "", "%-permit%", "%-deny%"};
    const char *const tails[] = {"", "", "", "-x", "-x ", "-y"};
    for (int round = 0; round < 800; round++) {
        tree db;
        std::string table;
        std::vector<plain_rule> rules;
        unsigned few = random_below(4);
        for (unsigned lines = 1 + random_below(few ? 8 : 60); lines > 0; lines--) {
            std::string prefix = one_of(prefixes), marker = one_of(markers), tail = one_of(tails), line;
            std::string type = !marker.empty()       ? marker
                               : prefix == "deny-"   ? "%-deny%"
                               : prefix == "permit-" ? "%-permit%"
                                                     : "";
            for (unsigned hosts = 1 + random_below(3); hosts > 0; hosts--) {
                std::string host = random_word(few ? "a1.*" : "ab1.*", few ? 4 : 6) + one_of({"", "a", "*", "1"});
                if (host.empty())
                    host = "h";
                rules.push_back({type, host, tail});
                line += host + " ";
            }
            if (tail.empty() && random_below(2))
                line.pop_back();
            table += "p: " + prefix + "hosts" + std::string(1 + random_below(2), ' ') + marker + line + tail + "\n";
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
        for (unsigned lists = random_below(12); lists > 0; lists--)
            for (unsigned elements = 1 + random_below(3); elements > 0; elements--)
                text += "netobj_list_" + one_of({"l$LIST", "k", "x-1$LIST", "x-2$LIST", "y$LIST", "z%5F$LIST"}) +
                        "_element_" + numbertext(static_cast<int>(random_below(4))) + "_" +
                        one_of({"addr", "addr", "addr", "name"}) + "=" + one_of(hosts) + "\n";
        tree one(text), indexed(text);
        translation run(indexed);
        for (int group = 0; group < 30; group++) {
            tree rules;
            std::string wanted;
            for (unsigned count = 1 + random_below(3); count > 0; count--) {
                std::string host = one_of(hosts);
                fset(rules, numbertext(static_cast<int>(count)).c_str(),
                     (one_of({"", " ", "%-deny%"}) + host + " -x").c_str());
                wanted = lowercase(host) + "," + wanted;
            }
            std::string found;
            Frag *lists = ffind(one, "netobj_list");
            for (Frag *list = lists->child; list && found.empty(); list = list->next) {
                Frag *elements = ffind(&list->child, "element");
                std::string have;
                for (Frag *element = elements ? elements->child : nullptr; element; element = element->next)
                    have += (fval(&element->child, "addr") ? lowercase(fval(&element->child, "addr")) : "(none)") + ",";
                if (have == wanted)
                    found = fragname(list);
            }
            int seq = 1 + static_cast<int>(random_below(2));
            if (found.empty())
                for (int number = seq; found.empty(); number++)
                    if (!ffind(&lists->child, ("x-" + numbertext(number) + "$LIST").c_str()))
                        found = "x-" + numbertext(number) + "$LIST";
            if (found.size() > 5 && found[found.size() - 5] == '$')
                found.erase(found.size() - 5);
            Frag *last = rules.head;
            while (last->next)
                last = last->next;
            ASSERT_EQ(fragname(find_netgroup(one, rules.head, last, seq, "x")), found) << one.text() << rules.text();
            ASSERT_EQ(fragname(run.find_netgroup(rules.head, last, seq, "x")), found) << one.text() << rules.text();
        }
        ASSERT_EQ(indexed.text(), one.text());
    }
}
