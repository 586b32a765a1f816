// Who gets through: the readers against plain procedures, the comparison against all short words.
#include "access/access.h"
#include "netperm_support.h"
#include "read/files.h"
#include "upgrade.h"

#include <algorithm>
#include <array>
#include <gtest/gtest.h>
#include <map>
#include <set>
#include <sstream>

using std::string;
using std::vector;

template <typename list> static string any_of(const list &texts) {
    return *(std::begin(texts) + random_below(static_cast<unsigned>(std::size(texts))));
}

/// Both sides, made of texts: a configuration or, if a colon stands in it, a table before, and a configuration after.
struct text_sides {
    std::unique_ptr<netperm_table> table;
    std::unique_ptr<configuration> was, is;
    access_side before, after;

    text_sides(const string &from, const string &to)
        : table(read_netperm_table("old", from)), was(read_configuration("old", from, conf_layout::translated)),
          is(read_configuration("new", to, conf_layout::translated)) {
        if (from.find(": ") != string::npos)
            before.add_table(*table);
        else
            before.set_maps(*was);
        after.set_maps(*is);
    }
};

/// Pairs of the rule's line and the map's number that decide otherwise, 0 for none, with the length of the first word.
using deciding_pairs = std::map<std::pair<long, long>, size_t>;

/// A proxy's two lists, a rule or map each: patterns with `+` or `-` in front.
using two_lists = std::array<vector<string>, 2>;

static text_sides sides_of(const two_lists &lists) {
    string table, conf = "policy_o_proxy_s=p\n";
    for (const string &rule : lists[0])
        table += string("p: ") + (rule[0] == '+' ? "permit" : "deny") + "-hosts " + rule.substr(1) + "\n";
    for (size_t i = 0; i < lists[1].size(); i++) {
        string n = std::to_string(i + 1), map = "map_" + n, pd = lists[1][i][0] == '+' ? "P" : "D";
        conf += map + "_pd=" + pd + "\n" + map + "_proxy=p\n" + map + "_policy=o\n" + map + "_src=l" + n +
                "\nnetobj_list_l" + n + "_element_1_addr=" + lists[1][i].substr(1) + "\n";
    }
    return {table + "# none: \n", conf};
}

static void add_word(deciding_pairs &pairs, const two_lists &lists, const string &word) {
    std::array<size_t, 2> first{};
    std::array<bool, 2> permits{};
    for (size_t list = 0; list < 2; list++)
        for (size_t i = lists[list].size(); i-- > 0;)
            if (wildmatch(&lists[list][i][1], word.c_str())) {
                first[list] = i + 1;
                permits[list] = lists[list][i][0] == '+';
            }
    if (permits[0] != permits[1])
        pairs.emplace(std::pair(first[0], first[1]), word.size());
}

TEST(access_property, no_difference_is_missed_and_none_invented) {
    seed_random(3);
    vector<string> words = {""};
    for (size_t i = 0; words.size() < 3280; i++) // of up to seven bytes, the shortest first
        for (char byte : string("abz"))
            words.push_back(words[i] + byte);
    for (int round = 0; round < 600; round++) {
        two_lists lists;
        auto &[was, is] = lists;
        auto rule = [&] {
            string made = random_below(2) ? "+" : "-";
            for (unsigned length = 1 + random_below(round % 3 ? 3 : 5); length > 0; length--)
                made += "ab*"[random_below(3)];
            return made;
        };
        for (unsigned count = random_below(7); count > 0; count--)
            was.push_back(rule());
        for (const string &each : was)
            if (unsigned fate = random_below(8); fate > 0) // lost, moved, turned or kept
                is.insert(fate == 1 ? is.begin() : is.end(), fate == 2 ? "-" + each.substr(1) : each);
        for (unsigned count = random_below(3); count > 0; count--)
            is.insert(is.begin() + random_below(static_cast<unsigned>(is.size()) + 1), rule());
        text_sides sides = sides_of(lists);
        string shown = testing::PrintToString(was) + testing::PrintToString(is);
        deciding_pairs expected, found, real;
        review_data data;
        compare_access(sides.before, sides.after, {}, data);
        for (finding &each : data.findings) {
            each.host = each.host == "any host" ? "a" : each.host;
            found[{each.before.line, each.after.map.value_or(0)}] = each.host.size();
            add_word(real, lists, each.host);
            EXPECT_EQ(decide(sides.after, "p", each.host).map, each.after.map) << shown << each.host;
        }
        ASSERT_EQ(found, real) << shown;
        for (size_t i = 1; i < words.size(); i++)
            add_word(expected, lists, words[i]);
        for (const auto &[pair, length] : found) // there may be pairs whose shortest word is longer
            if (length > 7)
                expected.emplace(pair, length);
        ASSERT_EQ(found, expected) << shown;
    }
}

/// Maps and what they refer to, with a plain reading of them: names lead to records, groups are walked member by
/// member.
struct plain_maps {
    struct map {
        int number;
        bool permit;
        string source, policy, proxy;
    };
    std::map<string, vector<string>> lists;                     // addresses; a list without any has no elements
    std::map<string, vector<std::pair<string, string>>> groups; // types and names of members
    std::map<string, vector<string>> policies;                  // proxies whose config sets they list
    vector<map> maps;
    unsigned aliases = 0; // of the last addresses of the list Inside

    bool walk_list(const string &name, vector<string> &found) const {
        auto list = lists.find(name);
        if (list == lists.end() || list->second.empty())
            return false;
        found.insert(found.end(), list->second.begin(), list->second.end());
        return true;
    }
    bool walk_group(const string &name, std::set<string> tagged, vector<string> &found) const {
        if (groups.at(name).empty())
            return false;
        tagged.insert(name);
        for (const auto &[type, member] : groups.at(name)) {
            if (type[0] == 'L' && !walk_list(member, found))
                return false;
            bool enters = type[0] == 'G' && groups.count(member) != 0 && tagged.count(member) == 0;
            if (enters && !walk_group(member, tagged, found))
                return false;
        }
        return true;
    }
    bool concerns(const map &each, const string &proxy) const {
        if (each.proxy != "*" && each.proxy != proxy)
            return false;
        auto policy = policies.find(each.policy);
        return !each.permit ||
               (policy != policies.end() && std::count(policy->second.begin(), policy->second.end(), proxy));
    }
    /// The map that decides, or null.
    const map *deciding(const string &proxy, const string &host) const {
        for (const map &each : maps) {
            vector<string> patterns;
            bool is_group = each.source.compare(0, 9, "$$NETOBJ.") == 0;
            if (is_group && groups.count(each.source.substr(9)))
                walk_group(each.source.substr(9), {}, patterns);
            else if (!is_group && lists.count(each.source))
                walk_list(each.source, patterns);
            else if (!is_group)
                patterns = {each.source};
            for (const string &pattern : patterns)
                if (concerns(each, proxy) && wildmatch(pattern.c_str(), host.c_str()))
                    return &each;
        }
        return nullptr;
    }
    string text(bool numbered) const;
};

static string escaped(const string &name) {
    string stored;
    for (char byte : name)
        stored += byte == '_' ? "%5F" : byte == '%' ? "%25" : string(1, byte);
    return stored;
}

// The configuration in either layout, as a save writes it.
string plain_maps::text(bool numbered) const {
    string conf = numbered ? "def_num_proxies=0\ncust_num_proxies=9\n" : "version_moatwall.conf=050\n";
    int count = 0, sets = 0;
    auto record = [&](const string &family, const string &name) {
        string key = family + "_" + (numbered ? std::to_string(++count) : escaped(name));
        conf += numbered ? key + "_name=" + name + "\n" : key + "_desc=1\n";
        return key;
    };
    string alias_elements;
    for (const auto &[name, addresses] : lists) {
        string key = record("netobj_list", name);
        for (size_t i = 0; i < addresses.size(); i++) {
            bool is_alias = name == "Inside" && i + aliases >= addresses.size();
            string rest = "_element_" + std::to_string(i + 1) + "_", fields = rest + "addr=" + addresses[i] + "\n";
            if (is_alias && numbered)
                alias_elements += "netobj_list_99" + fields;
            else
                conf += key + fields + key + rest + (is_alias ? "alias=yes\n" : "interface=eth0\n");
        }
    }
    conf += alias_elements.empty() ? "" : "netobj_list_99_name=eth0$INTERFACE\n" + alias_elements;
    for (const auto &[name, members] : groups) {
        string key = record("netobj_group", name);
        for (size_t i = 0; i < members.size(); i++) {
            string member = key + "_member_" + std::to_string(i + 1);
            conf += member + "_type=" + members[i].first + "\n" + member + "_name=" + members[i].second + "\n";
        }
    }
    for (const auto &[name, proxies] : policies) {
        string key = record("policy", name);
        for (const string &proxy : proxies) {
            string n = std::to_string(++sets), set = proxy + "-" + n;
            conf += numbered ? key + "_proxy_" + n + "_name=" + set + "\ncust_proxy_" + n + "_name=" + set +
                                   "\ncust_proxy_" + n + "_realname=" + proxy + "\n"
                             : key + "_proxy_" + set + "=" + proxy + "\n";
        }
    }
    for (const map &each : maps) {
        string key = "map_" + std::to_string(each.number);
        conf += key + "_pd=" + (each.permit ? "P" : "D") + "\n" + key + "_src=" + each.source + "\n" + key +
                "_policy=" + each.policy + "\n" + key + "_proxy=" + each.proxy + "\n";
    }
    return conf;
}

static plain_maps any_maps() {
    const string lists[] = {"l", "g", "a_b", "deny-k", "x%5F", "Inside"}, groups[] = {"g", "h", "i_j", "permit-m"};
    const string policies[] = {"deny-p", "o_q", "%", "*", ""}, proxies[] = {"p", "q"},
                 hosts[] = {"a", "b", "a*", "*b", "aa"};
    plain_maps made;
    for (const string &list : lists)
        for (unsigned count = random_below(5) ? 1 + random_below(3) : 0; count > 0; count--)
            made.lists[list].push_back(any_of(hosts));
    made.aliases = made.lists.count("Inside") ? random_below(static_cast<unsigned>(made.lists["Inside"].size())) : 0;
    if (random_below(4) == 0)
        made.lists["l"] = {};
    for (const string &group : groups) {
        for (unsigned count = 1 + random_below(3); count > 0 && random_below(6); count--) {
            string type = any_of(vector<string>{"L", "List", "G", "G", "group", ""});
            made.groups[group].emplace_back(type, type[0] == 'G'    ? any_of(groups)
                                                  : random_below(7) ? any_of(lists)
                                                                    : "none");
        }
        if (random_below(9) == 0)
            made.groups[group] = {};
    }
    for (const string &policy : policies)
        for (const string &proxy : proxies)
            if (random_below(3))
                made.policies[policy].push_back(proxy);
    for (int number = 0; number < 5; number++)
        if (random_below(4))
            made.maps.push_back({number * 5, random_below(2) == 0,
                                 random_below(3)   ? "$$NETOBJ." + any_of(groups)
                                 : random_below(2) ? any_of(lists)
                                                   : any_of(hosts),
                                 any_of(policies), any_of(vector<string>{"*", "*", "p", "q"})});
    return made;
}

TEST(access_property, maps_decide_as_they_are_read_plainly) {
    seed_random(5);
    const vector<string> words = {"a", "b", "ab", "ba", "aa", "bb", "c", "cb", "ac", "l", "g", "a_b", "Inside"};
    for (int round = 0; round < 1500; round++) {
        plain_maps models[2] = {any_maps(), {}};
        models[1] = random_below(3) ? models[0] : any_maps();
        if (!models[1].maps.empty() && random_below(2))
            models[1].maps.erase(models[1].maps.begin());
        text_sides sides(models[0].text(random_below(2)), models[1].text(random_below(2)));
        for (unsigned i = 0; i < 2; i++)
            for (const string proxy : {"p", "q"})
                for (const string &word : words) {
                    const plain_maps::map *expected = models[i].deciding(proxy, word);
                    decision made = decide(i == 0 ? sides.before : sides.after, proxy, word);
                    ASSERT_EQ(made.map.value_or(-1), expected ? expected->number : -1) << word << "\n"
                                                                                       << sides.was->bytes << "\n"
                                                                                       << sides.is->bytes;
                    ASSERT_EQ(made.made == ruling::permit, expected && expected->permit);
                }
        review_data data;
        compare_access(sides.before, sides.after, {}, data);
        std::set<std::pair<string, bool>> found, told; // proxies that someone is let into, or kept out of
        auto add = [&](std::set<std::pair<string, bool>> &into, const string &proxy, const string &word) {
            const plain_maps::map *was = models[0].deciding(proxy, word), *is = models[1].deciding(proxy, word);
            if ((was && was->permit) != (is && is->permit))
                into.emplace(proxy, is && is->permit);
        };
        for (const string proxy : {"p", "q"})
            for (const string &word : words)
                add(found, proxy, word);
        for (const finding &each : data.findings) {
            add(found, each.proxy, each.host == "any host" ? "c" : each.host);
            if (each.id != "options") // whose numbers of sets differ, not their parameters
                told.emplace(each.proxy, each.id == "wider");
        }
        ASSERT_EQ(told, found) << sides.was->bytes << "\n" << sides.is->bytes;
    }
}

/// What the upgrade makes of a table and a file that is merged behind it.
static string upgraded(const string &table, const string &merged, int version) {
    tree db;
    scratch_dir folder;
    cur_database = db;
    netperm_pass(folder.write("table", table).c_str(), 32);
    conf_merge(db, folder.write("merged", merged).c_str());
    exportenv(folder.write("out", "").c_str(), version);
    cur_database = &def_database;
    return read_file(folder.path + "/out");
}

/// The findings, a line each, with their texts or without. What the upgrade itself writes is `own` (or what stands
/// there), and `merged` stands for the initial environment.
static string reviewed(const string &from, const string &to, bool with_texts, const string &own = "",
                       const string &merged = "") {
    text_sides sides(from, to);
    auto own_conf = read_configuration("own", own, conf_layout::translated);
    auto initial = read_configuration("initial", merged, conf_layout::as_written);
    access_options options;
    options.initial_environment = initial.get();
    options.own_result = own.empty() ? nullptr : own_conf.get();
    review_data data;
    compare_access(sides.before, sides.after, options, data);
    string told;
    for (const finding &each : data.findings)
        told += each.id + " " + each.proxy + " " + each.host + (with_texts ? " " + each.text : "") +
                (each.cause.empty() ? "" : ": ") + each.cause + "\n";
    return told;
}

// Tables of all that is read in an odd way: whoever reads one otherwise than the translation finds differences.
TEST(access_property, the_translation_changes_nothing_but_what_is_known) {
    const string kinds[] = {"permit-hosts", "deny-hosts", "hosts",   "absorb-hosts", "hosts %-deny%",
                            "DENY-hosts",   "Hosts",      "hosts=x", "user"};
    const vector<string> tails = split("|| -log| -a  -b| -policy s| -policy_x -c| -exec /b/x -y | -n_5 -d=e| "
                                       "-o_t -o_t_u_v=w_x -u_5=| -e%5Ff_g -p%41 relay-permit_h deny-relay permit-k",
                                       '|');
    const string hosts[] = {"a*", "ab", "b", "a*b", "*b", "c", "*", "bc*", "%-deny%z"};
    const string names[] = {"a", "b-px", "b_px", "c, a", "a a", "*", "*x", "a *", "global", "policy-s", "gui", "d=e"};
    const string ends[] = {"\n", "\n", "\n", "\r\n", "\rx\n", string("\0x\n", 3), "\n#\n", "\n #\n", "\n \t\n"};
    const string known = ": an unmarked rule that joined a deny";
    seed_random(4);
    for (int round = 0; round < 400; round++) {
        string table;
        for (unsigned count = random_below(10); count > 0; count--) {
            table += string(random_below(30) ? 0 : 8150 + random_below(60), ' ') + any_of(names) +
                     (random_below(2) ? " :" : ",: ") + any_of(kinds);
            for (unsigned host = 0; host <= random_below(3); host++)
                table += " " + any_of(hosts);
            table += any_of(tails) + any_of(ends);
        }
        std::istringstream told(reviewed("# none: \n" + table, upgraded(table, "", round % 2 ? 1 : 50), false));
        for (string line; std::getline(told, line);)
            ASSERT_TRUE(line.compare(0, 13, "narrower gui ") == 0 ||
                        (line.compare(0, 9, "narrower ") == 0 && line.size() > known.size() &&
                         line.compare(line.size() - known.size(), known.size(), known) == 0))
                << line << "\n"
                << table;
    }
}

TEST(access_property, differences_and_causes_of_upgrades) {
    const string map =
        "map_1_proxy=*\nmap_1_pd=P\nmap_1_policy=q\nmap_1_src=$$NETOBJ.g\npolicy_q_proxy_s=a\n"
        "netobj_group_g_member_1_type=L\nnetobj_group_g_member_1_name=l\nnetobj_list_l_element_1_addr=10*\n"
        "def_proxy_a_config-sets_s_x=1\n";
    const string letters = ": equal but for the case of letters\n";
    const struct {
        string table, merged, told;
    } rows[] = {
        {"*: deny-hosts 10.3.0.1\na: hosts *\n", "", "narrower a 0: an unmarked rule that joined a deny\n"},
        {"a: permit-hosts A\nb: permit-hosts a\n", "", "wider b A" + letters + "narrower b a" + letters},
        {"a: permit-hosts 10.1\n", map, "wider a 10: by the initial environment\n"},
        {"gui: permit-hosts *\n", "", "narrower gui any host\n"}, // the release removes it
        {"a: permit-hosts a** -x\na: deny-hosts a*\n", "", ""},
        {"a: deny-hosts a**\na: permit-hosts a*\n", "", "narrower a a\n"},
        {"a: permit-hosts x -policy\n", "", ""}, // whose name is empty
    };
    for (const auto &row : rows)
        EXPECT_EQ(reviewed(row.table, upgraded(row.table, row.merged, 1), false, "", row.merged), row.told)
            << row.table;
    // A config set without an owner is one of the proxy called like it, and of two policies the last is found.
    EXPECT_EQ(reviewed("a: permit-hosts x\n",
                       "def_num_proxies=1\ndef_proxy_1_realname=a\ncust_num_proxies=1\ncust_proxy_1_name=a\n"
                       "policy_1_name=p\npolicy_2_name=p\npolicy_2_proxy_1_name=a\nmap_1_pd=P\nmap_1_policy=p\n"
                       "map_1_proxy=*\nmap_1_src=x\n",
                       false),
              "");
}

// Options that go or come, the words of a finding, and an output that is not what the upgrade writes.
TEST(access_property, options_of_maps_and_words_of_findings) {
    const string map = "map_0_proxy=a\nmap_0_pd=P\nmap_0_policy=q\nmap_0_src=", sets = "def_proxy_a_config-sets_s_";
    const string host = map + "10.*\npolicy_q_proxy_s=a\npolicy_q_parm_desc=x\n",
                 every = map + "*\npolicy_q_proxy_s=a\n";
    const string auth = host + "policy_q_parm_authenticate=*\n", by = " by 10.* (old:1, map 0)",
                 by_new = " by 10.* (new:1, map 0)";
    const string lost = "permitted" + by + " before, permitted" + by_new + " now, ";
    const struct {
        string before, after, own, told;
    } rows[] = {
        {auth, host, "", "options a 10. " + lost + "authenticate = *, none now"},
        {host, auth, "", "options a 10. " + lost + "authenticate = *, none before"},
        {host + sets + "permit-url=x\n" + sets + "-log=*\n", host + sets + "deny-url=x\n" + sets + "-log=no\n", "",
         "options a 10. " + lost + "-log = *, no now, permit-url = x, none now, deny-url = x, none before"},
        {host + sets + "a_1=1\n" + sets + "a_2=2\n" + sets + "b=\n" + sets + "c=c\n" + sets + "-d=*\n" + sets + "e=e\n",
         host, "",
         "options a 10. " + lost +
             "without -d, a_1 = 1, none now, a_2 = 2, none now, b = , none now, c = c, none now and 1 more"},
        {"", every + "def_proxy_a_state=off\n", every,
         "wider a any host refused before, permitted by * (new:1, map 0) now; the proxy is off"},
        {host, "", host, "narrower a 10. permitted" + by + " before, refused now: the output is not the upgrade's own"},
        {auth, host, auth, "options a 10. " + lost + "authenticate = *, none now: the output is not the upgrade's own"},
    };
    for (const auto &row : rows)
        EXPECT_EQ(reviewed(row.before, row.after, true, row.own), row.told + (row.told.empty() ? "" : "\n"));
}
