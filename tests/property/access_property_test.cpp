// Who gets through: the readers against plain procedures, the comparison against a plain automaton and all short words.
#include "access_compare.h"
#include "access_maps.h"
#include "fragment_lines.h"
#include "netperm_rules.h"
#include "upgrade.h"

#include <algorithm>
#include <array>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <unistd.h>

using std::string;
using std::vector;

static std::mt19937 generator;
static unsigned below(unsigned limit) { return static_cast<unsigned>(generator()) % limit; }

template <typename list> static string any_of(const list &texts) {
    return *(std::begin(texts) + below(static_cast<unsigned>(std::size(texts))));
}

static string scratch(const string &name, const string &content) {
    static const struct scratch_folder {
        string path = std::filesystem::temp_directory_path() / ("access-" + std::to_string(getpid()));
        scratch_folder() { std::filesystem::create_directory(path); }
        ~scratch_folder() { std::filesystem::remove_all(path); }
    } folder;
    std::ofstream(folder.path + "/" + name, std::ios::binary) << content;
    return folder.path + "/" + name;
}

static void add_values(std::map<string, string> &values, const string &path, const Frag *first) {
    for (const Frag *frag = first; frag; frag = frag->next) {
        if (frag->value)
            values[path + frag->name] = string(frag->value, static_cast<size_t>(frag->vlen));
        add_values(values, path + frag->name + "_", frag->child);
    }
}

TEST(access_property, assignments_are_what_the_store_reads) {
    const string bytes("abc__==\n\n\r \t[]\\1\0", 18);
    const string parts[] = {"permit-", "Deny-", "permit-relay", "onlyon-", "a_b=", "\\x\n \t2\n", string(62, 'n')};
    generator.seed(1);
    for (int round = 0; round < 1000; round++) {
        string content = round % 3 == 0 ? "[" : "";
        for (unsigned count = below(50); count > 0; count--)
            content += below(4) ? string(1, bytes[below(18)]) : any_of(parts);
        string path = scratch("conf", content);
        std::map<string, string> read, expected;
        vector<assignment> made;
        ASSERT_TRUE(read_assignments(path.c_str(), made));
        for (const assignment &each : made)
            if (string &value = read[each.key]; !each.value.empty())
                value = each.value;
        Frag *tree = nullptr;
        importffile(path.c_str(), &tree, 0);
        add_values(expected, "", tree);
        freelist(tree);
        ASSERT_EQ(read, expected) << content;
    }
    vector<assignment> made;
    read_assignments(scratch("conf", "\n \na_b=1\nfoo\nbar=2\n[s]\nx=1\\\n 2\n").c_str(), made);
    const std::array<long, 6> lines = {made[0].line,     made[0].end_line, made[1].line,
                                       made[1].end_line, made[2].line,     made[2].end_line};
    EXPECT_EQ(lines, (std::array<long, 6>{3, 3, 4, 5, 7, 8}));
}

using rule_pair = std::pair<long, long>; // the rule's line and the map's number, 0 for none

/// A proxy's two lists, a rule or map each: patterns with `+` or `-` in front.
struct two_lists {
    std::array<vector<string>, 2> lists;
    access_side before, after;

    two_lists(const vector<string> &was, const vector<string> &is) : lists{was, is} {
        string table, conf = "policy_o_proxy_s=p\n";
        for (const string &rule : was)
            table += string("p: ") + (rule[0] == '+' ? "permit" : "deny") + "-hosts " + rule.substr(1) + "\n";
        for (size_t i = 0; i < is.size(); i++) {
            string n = std::to_string(i + 1), map = "map_" + n;
            conf += map + (is[i][0] == '+' ? "_pd=P\n" : "_pd=D\n") + map + "_proxy=p\n" + map + "_policy=o\n" + map +
                    "_src=$$NETOBJ.g" + n + "\nnetobj_group_g" + n + "_member_1_name=l" + n + "\nnetobj_list_l" + n +
                    "_element_1_addr=" + is[i].substr(1) + "\n";
        }
        read_netperm_rules(scratch("was", table).c_str(), before);
        read_access_maps(scratch("is", conf).c_str(), after);
    }
    /// Adds the pair that decides if it decides otherwise, with the length of the word if no shorter one was there.
    template <typename test> void add(std::map<rule_pair, size_t> &pairs, size_t length, test accepts) const {
        std::array<long, 2> first = {0, 0};
        std::array<bool, 2> permits = {false, false};
        for (size_t list = 0; list < 2; list++)
            for (size_t i = lists[list].size(); i-- > 0;)
                if (accepts(list, i)) {
                    first[list] = static_cast<long>(i) + 1;
                    permits[list] = lists[list][i][0] == '+';
                }
        if (permits[0] != permits[1])
            pairs.emplace(rule_pair(first[0], first[1]), length);
    }
    void add_word(std::map<rule_pair, size_t> &pairs, const string &word) const {
        add(pairs, word.size(),
            [&](size_t list, size_t i) { return wildmatch(&lists[list][i][1], word.c_str()) != 0; });
    }
};

// The places of a pattern that a byte leads to: a star stays, and what is behind it is tried on that very byte. The
// first byte of the pattern is its rule's sign.
static unsigned step(const string &pattern, size_t at, char byte) {
    if (at >= pattern.size())
        return 0;
    if (pattern[at] != '*')
        return pattern[at] == byte ? 1u << (at + 1) : 0;
    return 1u << at | (at + 1 == pattern.size() ? 0 : step(pattern, at + 1, byte));
}

/// Each pair that decides otherwise, with the length of its shortest word: all sets of places of all patterns at once.
static std::map<rule_pair, size_t> plain_core(const two_lists &both) {
    using state = std::array<vector<unsigned>, 2>;
    std::map<rule_pair, size_t> found;
    vector<state> now = {{vector<unsigned>(both.lists[0].size(), 2), vector<unsigned>(both.lists[1].size(), 2)}};
    std::set<state> met;
    for (size_t depth = 1; !now.empty(); depth++) {
        vector<state> next;
        for (const state &at : now)
            for (char byte : string("abz")) {
                state to = at;
                for (size_t list = 0; list < 2; list++)
                    for (size_t i = 0; i < at[list].size(); i++) {
                        to[list][i] = 0;
                        for (size_t place = 0; place < 16; place++)
                            to[list][i] |= at[list][i] >> place & 1 ? step(both.lists[list][i], place, byte) : 0;
                    }
                if (!met.insert(to).second)
                    continue;
                next.push_back(to);
                both.add(found, depth, [&](size_t list, size_t i) {
                    const string &pattern = both.lists[list][i];
                    unsigned ends = 1u << pattern.size() | (pattern.back() == '*' ? 1u << (pattern.size() - 1) : 0);
                    return (to[list][i] & ends) != 0;
                });
            }
        now = std::move(next);
    }
    return found;
}

TEST(access_property, no_difference_is_missed_and_none_invented) {
    generator.seed(3);
    vector<string> words = {""};
    for (size_t i = 0; words.size() < 1093; i++) // of up to six bytes
        for (char byte : string("abz"))
            words.push_back(words[i] + byte);
    for (int round = 0; round < 600; round++) {
        vector<string> was, is;
        auto rule = [&] {
            string made = below(2) ? "+" : "-";
            for (unsigned length = 1 + below(round % 3 ? 3 : 5); length > 0; length--)
                made += "ab*"[below(3)];
            return made;
        };
        for (unsigned count = below(7); count > 0; count--)
            was.push_back(rule());
        for (const string &each : was)
            if (unsigned fate = below(8); fate > 0) // lost, moved, turned or kept
                is.insert(fate == 1 ? is.begin() : is.end(), fate == 2 ? "-" + each.substr(1) : each);
        for (unsigned count = below(3); count > 0; count--)
            is.insert(is.begin() + below(static_cast<unsigned>(is.size()) + 1), rule());
        two_lists both(was, is);
        string shown = testing::PrintToString(was) + testing::PrintToString(is);
        std::map<rule_pair, size_t> expected = plain_core(both), short_ones, found, real, tried;
        review_data data;
        compare_access(both.before, both.after, {}, {}, data);
        for (const finding &each : data.findings) {
            found[{each.before.line, each.after.map}] = each.host.size();
            both.add_word(real, each.host);
            EXPECT_EQ(decide(both.after, "p", each.host).map, each.after.map) << shown << each.host;
        }
        ASSERT_EQ(found, expected) << shown;
        ASSERT_EQ(found, real) << shown;
        for (size_t i = 1; i < words.size(); i++)
            both.add_word(tried, words[i]);
        std::copy_if(expected.begin(), expected.end(), std::inserter(short_ones, short_ones.end()),
                     [](const auto &each) { return each.second <= 6; });
        ASSERT_EQ(tried, short_ones) << shown;
    }
}

/// What the upgrade makes of a table and a merged file, which comes in front of it if it begins with a `<`.
static string upgraded(const string &table, const string &merged, int version) {
    Frag *db = nullptr;
    cur_database = &db;
    bool merged_first = merged[0] == '<';
    string table_path = scratch("table", table), out = scratch("out", "");
    string merged_path = scratch("merged", merged.substr(merged_first ? 1 : 0));
    if (merged_first)
        conf_merge(&db, merged_path.c_str());
    netperm_pass(table_path.c_str(), 32);
    if (!merged_first)
        conf_merge(&db, merged_path.c_str());
    exportenv(out.c_str(), version);
    cur_database = &def_database;
    freelist(db);
    std::ifstream file(out, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// The findings, the merged file of the last upgrade standing for the initial environment.
static string reviewed(const string &table, const string &result) {
    access_side before, after;
    review_data data;
    read_netperm_rules(scratch("table", table).c_str(), before);
    read_access_maps(scratch("result", result).c_str(), after);
    string told, folder = before.files[0].substr(0, before.files[0].rfind('/'));
    compare_access(before, after, {folder + "/merged", "", {}}, {}, data);
    for (const finding &each : data.findings)
        told += each.id + " " + each.proxy + " " + each.host + (each.cause.empty() ? "" : ": ") + each.cause + "\n";
    return told;
}

// Tables of all that is read in an odd way: whoever reads one otherwise than the translation finds differences.
TEST(access_property, the_translation_changes_nothing_but_what_is_known) {
    const string kinds[] = {"permit-hosts", "deny-hosts", "hosts",   "absorb-hosts", "hosts %-deny%",
                            "DENY-hosts",   "Hosts",      "hosts=x", "user"};
    const string tails[] = {"",
                            "",
                            " -log",
                            " -a  -b",
                            " -policy s",
                            " -policy_x -c",
                            " -exec /b/x -y ",
                            " -n_5 -d=e",
                            " -o_t -o_t_u_v=w_x -u_5=",
                            " -e%5Ff_g -p%2541 relay-permit_h deny-relay permit-k"};
    const string hosts[] = {"a*", "ab", "b", "a*b", "*b", "c", "*", "bc*", "%-deny%z"};
    const string names[] = {"a", "b-px", "b_px", "c, a", "a a", "*", "*x", "a *", "global", "policy-s", "gui", "d=e"};
    const string ends[] = {"\n", "\n", "\n", "\r\n", "\rx\n", string("\0x\n", 3), "\n#\n", "\n #\n", "\n \t\n"};
    const string known = ": an unmarked rule that joined a deny";
    generator.seed(4);
    for (int round = 0; round < 400; round++) {
        string table;
        for (unsigned count = below(10); count > 0; count--) {
            table += string(below(30) ? 0 : 8150 + below(60), ' ') + any_of(names) + (below(2) ? " :" : ",: ") +
                     any_of(kinds);
            for (unsigned host = 0; host <= below(3); host++)
                table += " " + any_of(hosts);
            table += any_of(tails) + any_of(ends);
        }
        std::istringstream told(reviewed(table, upgraded(table, "", round % 2 ? 1 : 50)));
        for (string line; std::getline(told, line);)
            ASSERT_TRUE(line.compare(0, 9, "narrower ") == 0 && line.size() > known.size() &&
                        line.compare(line.size() - known.size(), known.size(), known) == 0)
                << line << "\n"
                << table;
    }
}

TEST(access_property, each_difference_and_its_cause) {
    const string map = "map_1_proxy=*\nmap_1_pd=P\nmap_1_policy=q\nmap_1_src=$$NETOBJ.g\npolicy_q_proxy_s=a\n"
                       "netobj_group_g_member_1_type=L\nnetobj_group_g_member_1_name=g$LIST\n"
                       "def_proxy_a_config-sets_s_x=1\nnetobj_list_g$LIST_element_1_addr=10*\n";
    const string group = "netobj_group_a-1_member_1_type=L\nnetobj_group_a-1_member_1_name=o\n";
    const string table = "a: permit-hosts x -log\na: deny-hosts x* y\n", name(63, 'n');
    const string was_there = ": a group of that name was there already\n", cut = ": a name cut at 63 bytes\n";
    const string letters = ": equal but for the case of letters\n";
    const struct {
        string table, merged, told;
        string from, to; // an edit of the result, which is canonical then
    } rows[] = {
        {"*: deny-hosts 10.3.0.1\na: hosts *\n", "", "narrower a 0: an unmarked rule that joined a deny\n", "", ""},
        {"a: permit-hosts A\nb: permit-hosts a\n", "", "wider b A" + letters + "narrower b a" + letters, "", ""},
        {"a: permit-hosts 10.1\n", map, "wider a 10: by the initial environment\n", "", ""},
        {"a: permit-hosts x\n", "<" + group + "netobj_list_o_element_1_addr=y\n",
         "wider a y" + was_there + "narrower a x" + was_there, "", ""},
        {"a: permit-hosts x -policy " + name + "1\na: permit-hosts y -policy " + name + "2\n", "",
         "narrower a x" + cut + "narrower a y" + cut, "", ""},
        {"a: permit-hosts x\n", "netobj_group_deny-a-1_member_1_type=L\n",
         "narrower a x: the prefix was replaced by a merge\n", "", ""},
        {table, "", "narrower a x\n", "map_1_pd=P\n", ""},
        {table, "", "narrower a x\n", "map_1_", "map_9_"},
        {table, "", "narrower a x\n", "map_1_pd=P", "map_1_pd=D"},
        {table, "", "wider a y\nwider a 0\n", "1$LIST_element_1_addr=x\n", "1$LIST_element_1_addr=*\n"},
        {table, "", "narrower a x\n", "policy_a-1_proxy_a=a\n", ""},
        {table, "", "options a x\n", "def_proxy_a_config-sets_a_-log=*\n", ""},
        {"a: permit-hosts a** -x\na: deny-hosts a*\n", "", "", "", ""},
        {"a: deny-hosts a**\na: permit-hosts a*\n", "", "narrower a a\n", "", ""},
        {"a: permit-hosts x -policy\n", "", "", "", ""}, // whose name is empty
    };
    for (const auto &row : rows) {
        string result = upgraded(row.table, row.merged, row.from.empty() ? 1 : 50);
        for (size_t at = 0; !row.from.empty() && (at = result.find(row.from, at)) != string::npos; at += row.to.size())
            result.replace(at, row.from.size(), row.to);
        EXPECT_EQ(reviewed(row.table, result), row.told) << row.table << row.from;
    }
    // A config set without an owner is one of the proxy called like it, and of two policies the last is found.
    EXPECT_EQ(reviewed("a: permit-hosts x\n",
                       "def_num_proxies=1\ndef_proxy_1_realname=a\ncust_num_proxies=1\ncust_proxy_1_name=a\n"
                       "policy_1_name=p\npolicy_2_name=p\npolicy_2_proxy_1_name=a\nmap_1_pd=P\nmap_1_policy=p\n"
                       "map_1_proxy=*\nmap_1_src=$$NETOBJ.g\nnetobj_group_1_name=g\nnetobj_group_1_member_1_type=L\n"
                       "netobj_group_1_member_1_name=l\nnetobj_list_1_name=l\nnetobj_list_1_element_1_addr=x\n"),
              "");
}
