// Both layouts on random data: the indexes against walks, interfaces against the plain procedure, the round trip.
#include "dump.h"
#include "nupgrade.h"
#include "support.h"

#include <algorithm>
#include <cstring>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <set>
#include <strings.h>

using std::string;
using std::to_string;

static bool chance(unsigned one_in) {
    return random_below(one_in) == 0;
}

static string pick(const std::vector<string> &from) {
    return from[random_below(static_cast<unsigned>(from.size()))];
}

// Unlinks the very node.
static void unlink_frag(FragList list, const Frag *frag) {
    while (*list != frag)
        list = &(*list)->next;
    *list = frag->next;
}

static Frag *nth(Frag *frag, unsigned position) {
    while (position-- > 0)
        frag = frag->next;
    return frag;
}

static unsigned length(const Frag *frag) {
    unsigned count = 0;
    for (; frag; frag = frag->next)
        count++;
    return count;
}

TEST(layout_property, a_name_index_gives_what_a_walk_gives) {
    seed_random(51);
    for (int round = 0; round < 40; round++) {
        auto name = [round] { return "n" + to_string(random_below(round % 2 ? 6 : 60)); };
        tree db, plain; // the same through the index and through plain calls
        auto push = [&](const string &text) {
            for (FragList list : {static_cast<FragList>(db), static_cast<FragList>(plain)})
                pushfrag(list, newsymfrag(text.data(), text.size()), nullptr);
        };
        for (unsigned count = random_below(30); count > 0; count--)
            push(name());
        name_index index(db);
        for (int step = 0; step < 300; step++) {
            unsigned count = length(db.head);
            string key = name() + pick({"", "=" + name(), "_" + name(), "_" + name() + "_x"});
            string value = pick({"", "1", "2"});
            if (chance(4)) {
                push(name());
                index.add(db.head);
            } else if (chance(3) && count > 0) {
                unsigned at = random_below(count);
                string renamed = name();
                bool back = chance(2); // under another name, or gone
                index.remove(nth(db.head, at));
                for (FragList list : {static_cast<FragList>(db), static_cast<FragList>(plain)}) {
                    Frag *frag = nth(*list, at);
                    unlink_frag(list, frag);
                    if (back) {
                        renamefrag(frag, renamed.c_str());
                        pushfrag(list, frag, nullptr);
                    } else
                        freefrag(frag);
                }
                if (back)
                    index.add(db.head);
            } else {
                const char *given = chance(3) ? nullptr : value.c_str();
                const Frag *set = index.set_key(db, key.c_str(), given, nullptr);
                ASSERT_EQ(set, ffind(db, key.c_str()));
                fsetp(plain, key.c_str(), given, nullptr);
            }
            key = name() + pick({"", "_" + name()});
            ASSERT_EQ(index.find_key(key.c_str()), ffind(db, key.c_str())) << key;
            string one = name();
            ASSERT_EQ(index.find(one), ffind(db, one.c_str()));
            ASSERT_EQ(dump(db.head), dump(plain.head));
        }
    }
}

TEST(layout_property, indexes_of_many_lists_give_what_walks_give) {
    seed_random(52);
    for (int round = 0; round < 3; round++) {
        auto name = [] { return "n" + to_string(random_below(800)); };
        tree db("a_x=1\nb_x=1\nc_x=1\n"), plain("a_x=1\nb_x=1\nc_x=1\n");
        list_indexes indexes;
        for (int step = 0; step < 6000; step++) {
            const string parent = pick({"a", "b", "c", "b_x"});
            Frag *owner = ffind(db, parent.c_str()), *plain_owner = ffind(plain, parent.c_str());
            FragList list = &owner->child, plain_list = &plain_owner->child;
            string key = name() + pick({"", "", "=z", "_" + name()}), value = to_string(step);
            if (chance(8)) {
                string pushed = name();
                pushfrag(list, newsymfrag(pushed.data(), pushed.size()), owner);
                pushfrag(plain_list, newsymfrag(pushed.data(), pushed.size()), plain_owner);
                indexes.add(list, *list);
            } else {
                const Frag *set = indexes.set_key(list, key.c_str(), value.c_str(), owner);
                ASSERT_EQ(set, ffind(list, key.c_str()));
                fsetp(plain_list, key.c_str(), value.c_str(), plain_owner);
            }
            string one = name();
            ASSERT_EQ(indexes.find(list, one), ffind(list, one.c_str()));
        }
        ASSERT_EQ(dump(db.head), dump(plain.head));
        EXPECT_TRUE(linked(db.head, nullptr));
    }
}

// Saving the interfaces step by step, with a walk for every question.

static Frag *made_sure(FragList list, const char *key, Frag *parent) {
    Frag *frag = ffind(list, key);
    return frag ? frag : fsetp(list, key, nullptr, parent);
}

static void plain_add_to_allif(FragList db, Frag *source) {
    Frag *list = made_sure(db, "netobj_list_all%5Finterfaces", nullptr);
    Frag *all = made_sure(&list->child, "element", list);
    sort_frags(&all->child);
    int number = 1;
    for (Frag *frag = all->child; frag;) {
        renumberfrag(frag, number);
        const char *interface = fval(&frag->child, "interface");
        if (interface && strcasecmp(interface, fval(&source->child, "interface")) == 0) {
            unlink_frag(&all->child, frag);
            freefrag(frag);
            frag = all->child;
            number = 1;
        } else {
            frag = frag->next;
            number++;
        }
    }
    Frag *added = fsetp(&all->child, to_string(number).c_str(), nullptr, all);
    added->child = copy_fragtree(&source->child, added);
    fsetp(&added->child, "location", fragname(source->parent->parent), added);
}

static void plain_norm_if(FragList db, const char *location) {
    Frag *list = made_sure(db, location, nullptr), *element = made_sure(&list->child, "element", list);
    fremove(&list->child, "num_elements");
    for (Frag *frag = element->child, *next; frag; frag = next) {
        next = frag->next;
        Frag *alias = fdel(&frag->child, "alias");
        bool is_alias = alias && is_on(alias->value);
        freefrag(alias);
        const char *interface = fval(&frag->child, "interface");
        if (is_blanks(interface)) {
            unlink_frag(&element->child, frag);
            freefrag(frag);
            continue;
        }
        string name = interface, key = "netobj_list_" + name.substr(0, name.find(':')) + "$INTERFACE";
        Frag *aliases = made_sure(db, key.c_str(), nullptr), *below = ffind(&aliases->child, "element");
        if (!below) {
            below = fsetp(&aliases->child, "element", nullptr, aliases);
            fsetp(&aliases->child, "num_elements", "0", aliases);
        }
        if (is_alias) {
            unlink_frag(&element->child, frag);
            Frag *moved = fsetp(&below->child, to_string(length(below->child) + 1).c_str(), nullptr, below);
            moved->child = copy_fragtree(&frag->child, moved);
            freefrag(frag);
            fsetp(&aliases->child, "num_elements", to_string(length(below->child)).c_str(), aliases);
        }
    }
    for (Frag *frag = element->child; frag; frag = frag->next)
        plain_add_to_allif(db, frag);
    sort_frags(&element->child);
    fsetp(&list->child, "num_elements", to_string(number_frags(element->child)).c_str(), list);
}

static void plain_norm_interfaces(FragList db) {
    for (const char *location : {"netobj_list_Service", "netobj_list_Outside", "netobj_list_Inside"})
        plain_norm_if(db, location);
    Frag *all = made_sure(db, "netobj_list_all%5Finterfaces", nullptr);
    Frag *element = made_sure(&all->child, "element", all);
    fremove(&all->child, "num_elements");
    for (Frag *frag = element->child; frag; frag = frag->next)
        if (!is_in_list(db, fval(&frag->child, "location"), fval(&frag->child, "interface")))
            fsetp(&frag->child, "location", "Unknown", frag);
    fsetp(&all->child, "num_elements", to_string(length(element->child)).c_str(), all);
}

static string random_interfaces() {
    string text;
    for (const char *list : {"Inside", "all%5Finterfaces", "Service", "Outside", "e0$INTERFACE", "other"}) {
        unsigned number = 0;
        for (unsigned count = random_below(chance(4) ? 30 : 5); count > 0; count--) {
            number += strchr(list, '$') ? 1 : 1 + random_below(3); // alias lists have no gaps
            string key = "netobj_list_" + string(list) + "_element_" + to_string(number);
            text += key + "_addr=" + to_string(random_below(1000)) + "\n";
            if (!chance(6))
                text += key + "_interface=" +
                        pick({"e0", "E0", "e1", "e0:1", "e1:2:3", "E1:2:3", "", " \t", "e2", "a_b", "A_b", "e3"}) +
                        "\n";
            if (chance(3))
                text += key + "_alias=" + pick({"yes", "no", "1", "0", "", "On"}) + "\n";
            if (chance(8))
                text += key + "_alias_z=1\n";
            if (chance(2))
                text += key + "_location=" + pick({"Inside", "Outside", "Service", "other", "gone", ""}) + "\n";
        }
        if (chance(2))
            text += "netobj_list_" + string(list) + "_num_elements=7\n";
    }
    return text;
}

TEST(layout_property, interfaces_come_out_as_the_plain_procedure_puts_them) {
    seed_random(56);
    for (int round = 0; round < 400; round++) {
        const string before = random_interfaces();
        tree db(before), plain(before);
        if (chance(2)) { // as a read leaves it, numbers falling
            for (const char *list : {"netobj_list_Inside_element", "netobj_list_all%5Finterfaces_element"})
                for (FragList top : {static_cast<FragList>(db), static_cast<FragList>(plain)})
                    if (Frag *element = ffind(top, list))
                        reverse_frags(&element->child);
        }
        norm_interfaces(db);
        plain_norm_interfaces(plain);
        for (FragList top : {static_cast<FragList>(db), static_cast<FragList>(plain)}) // the true counts of alias lists
            norm_netobj(ffind(top, "netobj_list")->child, "element", "num_elements");
        ASSERT_EQ(dump(db.head), dump(plain.head)) << before;
        ASSERT_TRUE(linked(db.head, nullptr));
    }
}

// A random environment file, and beside it what a canonical pass and a save in numbered form make of it.

namespace {
using parameters = std::vector<std::pair<string, string>>;

struct environment {
    string file;
    std::multiset<string> saved;

    void in(const string &key, const string &value) { file += key + "=" + value + "\n"; }
    void out(const string &key, const string &value) { saved.insert(key + "=" + value); }
    void both(const string &key, const string &saved_key, const string &value) {
        in(key, value);
        out(saved_key, value);
    }
    // A count of the file says nothing, the saved one is right.
    void count(const string &key, size_t number) {
        if (chance(2))
            in(key, "77");
        out(key, to_string(number));
    }
    void out_parameters(const string &key, const parameters &all) {
        out(key + "_num_parms", to_string(all.size()));
        for (size_t i = 0; i < all.size(); i++) {
            out(key + "_parm_" + to_string(i + 1) + "_name", all[i].first);
            out(key + "_parm_" + to_string(i + 1) + "_value", all[i].second);
        }
    }
};

// Prefixes as an input has them, and as they come back on a simple, a list and a policy's parameter.
const struct {
    const char *given, *simple, *list, *policy;
} prefixes[] = {
    {"", "", "", ""},
    {"permit-", "permit-", "permit-", "permit-"},
    {"DENY-permit-", "permit-deny-", "permit-deny-", "permit-deny-"},
    {"Absorb-", "absorb-", "", "Absorb-"},
    {"onlyon-Permit-", "permit-", "permit-", "onlyon-Permit-"},
    {"onlyon-absorb-", "absorb-", "", "onlyon-absorb-"},
    {"onlyon-", "onlyon-", "", "onlyon-"},
    {"deny-absorb-", "deny-", "deny-", "deny-absorb-"},
};
} // namespace

static string fresh(const string &name = "v") {
    static int serial;
    return name + to_string(++serial);
}

// Distinct numbers with gaps, in any order.
static std::vector<int> numbers(unsigned limit) {
    std::vector<int> all;
    int number = 0;
    for (unsigned count = random_below(limit); count > 0; count--)
        all.insert(all.begin() + random_below(static_cast<unsigned>(all.size()) + 1),
                   number += 1 + static_cast<int>(random_below(3)));
    return all;
}

// The place of one of the numbers among them all, from 1.
static string place(const std::vector<int> &all, int number) {
    return to_string(std::count_if(all.begin(), all.end(), [number](int other) { return other <= number; }));
}

// Writes the parameters of a proxy or a config set; gives them as they come back. A parameter goes to the head as it
// is read and again as it is canonicalised, so their order stays, but those of a list stand together, where its last
// one stood; the web addresses have only been read.
static parameters proxy_parameters(environment &env, const string &key) {
    struct group {
        string list;
        parameters all;
    };
    std::vector<group> groups;
    parameters back, addresses;
    for (int number : numbers(8)) {
        const auto &prefix = prefixes[random_below(std::size(prefixes))];
        string list = pick({"h", "sid", "", "", ""}), parm = key + "_parm_" + to_string(number), value = fresh();
        string name = list.empty() ? fresh(pick({"p-", "use_x", "a%_b"})) : list + "_" + fresh("");
        env.in(parm + "_value", value);
        env.in(parm + "_name", prefix.given + name);
        auto same = [&list](const group &one) { return !list.empty() && one.list == list; };
        auto before = std::find_if(groups.begin(), groups.end(), same);
        group now = before == groups.end() ? group{list, {}} : *before;
        if (before != groups.end())
            groups.erase(before);
        now.all.emplace_back((list.empty() ? prefix.simple : prefix.list) + name, value);
        groups.push_back(now);
    }
    for (const group &one : groups)
        back.insert(back.end(), one.all.begin(), one.all.end());
    for (int number : numbers(3)) {
        string address = to_string(number);
        env.in(key + "_cyberurl_" + address + "_access", "deny");
        env.in(key + "_cyberurl_" + address + "_url", address);
        addresses.emplace_back("url_" + address, "deny " + address);
    }
    env.in(key + "_parm_99_name", "dropped");
    back.insert(back.end(), addresses.rbegin(), addresses.rend());
    return back;
}

static void add_proxies(environment &env) {
    struct entry {
        string name, owner; // of a proxy, what its `name` says and its own name; of a config set, whose it is
        parameters all;
    };
    std::vector<entry> proxies, sets, collected;
    do {
        string key = "def_proxy_" + to_string(17 - proxies.size()), realname = proxies.empty() ? "*" : fresh("p%_");
        env.in(key + "_realname", realname);
        proxies.push_back(
            {proxies.empty() || chance(2) ? realname : fresh("N_"), realname, proxy_parameters(env, key)});
        if (proxies.back().name != realname)
            env.in(key + "_name", proxies.back().name);
    } while (!chance(4));
    env.in("def_num_proxies", "77");
    for (int number : numbers(7)) {
        string key = "cust_proxy_" + to_string(number), owner = proxies[random_below(number) % proxies.size()].owner;
        sets.push_back({fresh(pick({"s-", "s%_"})), owner, proxy_parameters(env, key)});
        env.in(key + "_name", sets.back().name);
        env.in(key + "_realname", owner);
    }
    env.in("cust_num_proxies", "0");
    for (const entry &one : proxies)
        std::copy_if(sets.begin(), sets.end(), std::back_inserter(collected),
                     [&one](const entry &set) { return set.owner == one.owner; });
    std::reverse(collected.begin(), collected.end());
    for (const auto &[top, all] : {std::pair<string, std::vector<entry>>{"def_", proxies}, {"cust_", collected}}) {
        env.out(top + "num_proxies", to_string(all.size()));
        for (size_t i = 0; i < all.size(); i++) {
            string key = top + "proxy_" + to_string(i + 1);
            env.out(key + "_realname", all[i].owner);
            env.out(key + "_name", all[i].name);
            env.out_parameters(key, all[i].all);
        }
    }
}

static void add_policies(environment &env) {
    size_t count = 0;
    for (int number : numbers(4)) {
        string key = "policy_" + to_string(number), saved = "policy_" + to_string(++count);
        env.both(key + "_name", saved + "_name", fresh(pick({"q-", "q_", "q%"})));
        std::vector<int> proxies = numbers(4);
        size_t left = proxies.size();
        env.out(saved + "_num_proxies", to_string(left));
        for (int entry : proxies) { // a read turns them around
            string back = saved + "_proxy_" + to_string(left--), field = pick({"_name", "_name", "_x"});
            env.both(key + "_proxy_" + to_string(entry) + field, back + field, fresh("s_"));
            if (field == "_x")
                env.out(back + "_name", to_string(entry));
        }
        parameters all;
        for (int parm : numbers(4)) {
            const auto &prefix = prefixes[random_below(std::size(prefixes))];
            string name = fresh(pick({"desc", "h_", "a_b_", "relay"})), value = pick({"", "v"});
            env.in(key + "_parm_" + to_string(parm) + "_name", prefix.given + name);
            env.in(key + "_parm_" + to_string(parm) + "_value", value);
            all.insert(all.begin(), {prefix.policy + name, value});
        }
        env.out_parameters(saved, all);
    }
    if (count > 0)
        env.count("policy_num_entries", count);
}

static void add_rules_and_counted_lists(environment &env) {
    for (const char *list : {"map", "sroute", "dest", "nat_rule", "menu_meta", "link", "key"}) {
        std::vector<int> all = numbers(15);
        bool four_digits = list == string("link") || list == string("key");
        for (int number : all) {
            string saved = place(all, number);
            saved = string(list) + "_" + (four_digits ? string(4 - saved.size(), '0') : "") + saved + "_x";
            env.both(string(list) + "_" + to_string(number) + "_x", saved, fresh());
        }
        if (list == string("nat_rule"))
            env.count("nat_numrules", all.size());
        else if (!four_digits && list != string("menu_meta"))
            env.count(string(list) + "_num_entries", all.size());
    }
    env.in("map_numrules", "3");
    for (const string list : {"pfedit_lcl_", "pfedit_fwd_"}) {
        std::vector<int> all = numbers(5);
        env.count(list + "numrules", all.size());
        for (int number : all) {
            string given, saved;
            unsigned count = 1 + random_below(13);
            for (unsigned field = 0; field < std::max(count, 10U); field++) {
                string value =
                    (field ? "+" : "") + (field < count ? string(random_below(5) * random_below(9), 'f') : "");
                given += field < count ? value : "";
                saved += field < 10 ? value : "";
            }
            env.in(list + "rule" + to_string(number), given);
            env.out(list + "rule" + place(all, number), saved.substr(0, 126));
        }
    }
}

// Interfaces with their aliases, entries of interfaces that are gone, ordinary lists, and groups.
static void add_network_objects(environment &env) {
    struct netlist {
        string name;
        std::vector<parameters> elements; // fields of each
    };
    std::vector<netlist> saved; // in the order of the saved file
    auto key_of = [next = 0](const string &what) mutable { return "netobj_" + what + to_string(next += 2) + "_"; };
    auto write = [&env](const string &key, int number, const parameters &element) {
        for (const auto &[field, value] : element)
            env.in(key + "element_" + to_string(number) + "_" + field, value);
    };
    netlist all{"all_interfaces", {}}, sides[] = {{"Service", {}}, {"Outside", {}}, {"Inside", {}}};
    string key = key_of("list_");
    env.in(key + "name", all.name);
    for (int number : {3, 7}) { // kept and marked, in order
        all.elements.push_back({{"interface", "gone" + to_string(number)}, {"location", "Unknown"}});
        write(key, number, {{"interface", "gone" + to_string(number)}, {"location", "Inside"}});
    }
    write(key, 5, {{"interface", "E0"}}); // replaced
    std::vector<netlist> alias_lists;
    for (netlist &side : sides) {
        key = key_of("list_");
        env.in(key + "name", side.name);
        for (unsigned count = random_below(4) + alias_lists.empty(); count > 0; count--) {
            string name = "e" + to_string(alias_lists.size()), alias_key = key_of("list_");
            side.elements.push_back({{"addr", fresh()}, {"interface", name}});
            write(key, static_cast<int>(side.elements.size()), side.elements.back());
            all.elements.push_back(side.elements.back());
            all.elements.back().emplace_back("location", side.name);
            alias_lists.push_back({name + "$INTERFACE", {}});
            env.in(alias_key + "name", name + "$INTERFACE");
            for (int number : numbers(4)) { // a read turns them around, and they are numbered as they then stand
                parameters alias = {{"addr", fresh()}, {"interface", chance(4) ? " " : name}};
                write(alias_key, number, alias);
                if (alias[1].second == name) // without an interface they are lost
                    alias_lists.back().elements.insert(alias_lists.back().elements.begin(), alias);
            }
        }
        write(key, static_cast<int>(side.elements.size()) + 1, {{"addr", "lost"}});
    }
    saved.push_back({fresh("l%_"), {}});
    key = key_of("list_");
    env.in(key + "name", saved[0].name);
    for (int number = 8; number < 12; number++)
        write(key, number, saved[0].elements.emplace_back(parameters{{"addr", fresh()}}));
    saved.insert(saved.end(), std::rbegin(sides), std::rend(sides));
    saved.push_back(all);
    saved.insert(saved.begin(), alias_lists.rbegin(), alias_lists.rend());
    env.count("netobj_num_list", saved.size());
    for (size_t i = 0; i < saved.size(); i++) {
        key = "netobj_list_" + to_string(i + 1) + "_";
        env.out(key + "name", saved[i].name);
        env.out(key + "num_elements", to_string(saved[i].elements.size()));
        for (size_t e = 0; e < saved[i].elements.size(); e++)
            for (const auto &[field, value] : saved[i].elements[e])
                env.out(key + "element_" + to_string(e + 1) + "_" + field, value);
    }
    for (int group : {2, 1}) {
        key = key_of("group_");
        string saved_key = "netobj_group_" + to_string(group) + "_";
        env.both(key + "name", saved_key + "name", fresh("g%_"));
        std::vector<int> members = numbers(15);
        for (int member : members)
            env.both(key + "member_" + to_string(member), saved_key + "member_" + place(members, member), fresh());
        if (!members.empty())
            env.out(saved_key + "num_members", to_string(members.size()));
    }
    env.count("netobj_num_group", 2);
}

TEST(layout_property, a_saved_environment_differs_only_as_it_should) {
    scratch_dir dir;
    seed_random(59);
    for (int round = 0; round < 300; round++) {
        environment env;
        add_proxies(env);
        add_policies(env);
        add_rules_and_counted_lists(env);
        add_network_objects(env);
        env.both("other_permit-x_a%5Fb", "other_permit-x_a%5Fb", "");
        env.out("version_moatwall.conf", "001");
        tree db;
        ASSERT_EQ(importffile(dir.write("env", env.file).c_str(), db, 0), 0);
        norm_fragtree(db);
        cur_database = db;
        ASSERT_EQ(exportenv((dir.path + "/out").c_str(), 1), 0);
        cur_database = nullptr;
        std::ifstream out(dir.path + "/out");
        std::multiset<string> saved;
        for (string line; std::getline(out, line);)
            saved.insert(line);
        std::vector<string> lost, added;
        std::set_difference(env.saved.begin(), env.saved.end(), saved.begin(), saved.end(), std::back_inserter(lost));
        std::set_difference(saved.begin(), saved.end(), env.saved.begin(), env.saved.end(), std::back_inserter(added));
        ASSERT_EQ(lost, std::vector<string>()) << env.file;
        ASSERT_EQ(added, std::vector<string>()) << env.file;
    }
}
