// Both layouts on random data: the indexes against walks, interfaces against the plain procedure, the round trip.
#include "dump.h"
#include "netperm_support.h"
#include "nupgrade.h"

#include <algorithm>
#include <gtest/gtest.h>

using std::string;
using std::to_string;

static bool chance(unsigned one_in) { return random_below(one_in) == 0; }

// Unlinks the very node.
static void unlink_frag(FragList list, const Frag *frag) {
    while (*list != frag)
        list = &(*list)->next;
    *list = frag->next;
}

static int length(const Frag *frag) {
    int count = 0;
    for (; frag; frag = frag->next)
        count++;
    return count;
}

TEST(layout_property, a_name_index_gives_what_a_walk_gives) {
    const char *ends[] = {"", "=1", "_n1", "_n2_x"};
    seed_random(51);
    for (int round = 0; round < 40; round++) {
        auto name = [round] { return "n" + to_string(random_below(round % 2 ? 6 : 60)); };
        tree db("n1=1\nn2_x=2\nn3=3\n"), plain("n1=1\nn2_x=2\nn3=3\n"); // the same through the index and plain calls
        name_index index(db);
        for (int step = 0; step < 400; step++) {
            string key = name() + one_of(ends), renamed = name();
            unsigned what = random_below(6), at = random_below(100);
            if (what > 2) {
                const char *value = chance(3) ? nullptr : "v";
                const Frag *set = index.set_key(db, key.c_str(), value, nullptr);
                ASSERT_EQ(set, ffind(db, key.c_str()));
                fsetp(plain, key.c_str(), value, nullptr);
            } else { // one more to the front, one to the front under another name, or one gone
                for (tree *top : {&db, &plain}) {
                    FragList link = *top;
                    for (unsigned skip = at; skip > 0 && *link && (*link)->next; skip--)
                        link = &(*link)->next;
                    Frag *frag = what > 0 && *link ? *link : newsymfrag("", 0);
                    if (frag == *link && top == &db)
                        index.remove(frag);
                    if (frag == *link)
                        *link = frag->next;
                    renamefrag(frag, renamed.c_str());
                    if (what < 2)
                        pushfrag(*top, frag, nullptr);
                    else
                        freefrag(frag);
                }
                if (what < 2)
                    index.add(db.head);
            }
            key = name() + one_of(ends);
            ASSERT_EQ(index.find_key(key.c_str()), ffind(db, key.c_str())) << key;
            ASSERT_EQ(index.find(renamed), ffind(db, renamed.c_str())) << renamed;
            ASSERT_EQ(dump(db.head), dump(plain.head));
        }
    }
}

TEST(layout_property, indexes_of_many_lists_give_what_walks_give) {
    seed_random(52);
    tree db("a_x=1\nb_x=1\nc_x=1\n"), plain("a_x=1\nb_x=1\nc_x=1\n");
    list_indexes indexes;
    for (Frag *top : {db.head, plain.head}) // a list whose count meets numbers that are taken
        for (int number = 300; number < 3000; number++)
            fset(&top, ("c_" + to_string(number)).c_str(), nullptr);
    for (int step = 0; step < 15000; step++) {
        const char *owners[] = {"a", "b", "c", "b_x"}, *ends[] = {"", "", "=z", "_n3"};
        const string owner = one_of(owners), name = "n" + to_string(random_below(800)), key = name + one_of(ends);
        Frag *parent = ffind(db, owner.c_str()), *plain_parent = ffind(plain, owner.c_str());
        FragList list = &parent->child;
        if (chance(8)) {
            pushfrag(list, newsymfrag(name.data(), name.size()), parent);
            pushfrag(&plain_parent->child, newsymfrag(name.data(), name.size()), plain_parent);
            indexes.add(list, *list);
        } else if (chance(8)) {
            const string number = to_string(length(*list) + random_below(40)), &left = chance(2) ? name : number;
            if (Frag *gone = indexes.find(list, left); gone && gone != ffind(db, "b_x")) {
                indexes.forget_below(gone);
                indexes.remove(list, gone);
                fremove(list, left.c_str());
                fremove(&plain_parent->child, left.c_str());
            }
        } else if (chance(500)) { // the lists below change with no word to the indexes
            indexes.forget_below(ffind(db, "b"));
            for (Frag *changed : {parent, plain_parent})
                for (int number = 0; number < 20; number++)
                    if (owner[0] == 'b')
                        fsetp(&changed->child, to_string(number).c_str(), nullptr, changed);
        } else {
            const string value = to_string(step);
            const Frag *set = indexes.set_key(list, key.c_str(), value.c_str(), parent);
            ASSERT_EQ(set, ffind(list, key.c_str()));
            fsetp(&plain_parent->child, key.c_str(), value.c_str(), plain_parent);
        }
        const string one = "n" + to_string(random_below(800));
        ASSERT_EQ(indexes.find(list, one), ffind(list, one.c_str()));
        ASSERT_EQ(indexes.find_key(list, (one + "_n3").c_str()), ffind(list, (one + "_n3").c_str()));
        for (int again = step % 20 == 0 ? 4 : 0; again > 0; again--) {
            size_t number = length(*list) + 1;
            ASSERT_EQ(indexes.count(list), number - 1);
            while (ffind(list, to_string(number).c_str()))
                number++;
            ASSERT_EQ(indexes.free_number(list), static_cast<int>(number));
            const string text = to_string(number);
            indexes.set_key(list, text.c_str(), nullptr, parent);
            fsetp(&plain_parent->child, text.c_str(), nullptr, plain_parent);
        }
    }
    ASSERT_EQ(dump(db.head), dump(plain.head));
    EXPECT_TRUE(linked(db.head, nullptr));
}

// Saving the interfaces step by step, with a walk for every question.

static Frag *made_sure(FragList list, const string &key, Frag *parent) {
    Frag *frag = ffind(list, key.c_str());
    return frag ? frag : fsetp(list, key.c_str(), nullptr, parent);
}

static void plain_add_to_allif(FragList db, Frag *source) {
    if (is_blanks(fval(&source->child, "interface")))
        return;
    Frag *list = made_sure(db, "netobj_list_all%5Finterfaces", nullptr);
    Frag *all = made_sure(&list->child, "element", list);
    sort_frags(&all->child);
    int number = 1;
    for (Frag *frag = all->child; frag;) {
        renumberfrag(frag, number++);
        const char *interface = fval(&frag->child, "interface");
        Frag *next = frag->next;
        if (interface && lowercase(interface) == lowercase(fval(&source->child, "interface"))) {
            unlink_frag(&all->child, frag);
            freefrag(frag);
            next = all->child;
            number = 1;
        }
        frag = next;
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
        bool is_alias = is_on(fval(&frag->child, "alias"));
        fremove(&frag->child, "alias");
        const string interface = is_blanks(fval(&frag->child, "interface")) ? "" : fval(&frag->child, "interface");
        if (interface.empty()) {
            unlink_frag(&element->child, frag);
            freefrag(frag);
            continue;
        }
        string key = "netobj_list_" + interface.substr(0, interface.find(':')) + "$INTERFACE";
        Frag *aliases = made_sure(db, key, nullptr);
        if (!ffind(&aliases->child, "element")) {
            fsetp(&aliases->child, "element", nullptr, aliases);
            fsetp(&aliases->child, "num_elements", "0", aliases);
        }
        if (!is_alias)
            continue;
        unlink_frag(&element->child, frag);
        fremove(&aliases->child, "num_elements");
        Frag *below = made_sure(&aliases->child, "element", aliases);
        size_t number = length(below->child) + 1;
        while (ffind(&below->child, to_string(number).c_str()))
            number++;
        Frag *moved = fsetp(&below->child, to_string(number).c_str(), nullptr, below);
        moved->child = copy_fragtree(&frag->child, moved);
        fsetp(&aliases->child, "num_elements", to_string(length(below->child)).c_str(), aliases);
        freefrag(frag);
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
    const char *interfaces[] = {"e0", "E0", "e1", "e0:1", "e1:2:3", "E1:2:3", "", " \t", "e2", "a_b", "A_b", "e3"};
    // Keys that lead into one another's lists, elements and counts.
    const char *keys[] = {"a=",
                          "a_element=",
                          "a_element_2=",
                          "a_num_elements_x",
                          "a_num=",
                          "a_num_elements_x$INTERFACE=",
                          "a_num_elements_x$INTERFACE_element_1=",
                          "a_num_elements=",
                          "e0$INTERFACE_element_3=",
                          "Inside=",
                          "Inside_element=",
                          "Inside_element_2=",
                          "Outside_element_element=",
                          "Service_element_1_x"};
    const char *switches[] = {"yes", "no", "1", "0", "", "On"};
    const char *locations[] = {"Inside", "Outside", "Service", "other", "gone", ""};
    string text;
    const bool nested = chance(2);
    for (const char *list : {"Inside", "all%5Finterfaces", "Service", "Outside", "e0$INTERFACE", "other"}) {
        unsigned number = 0;
        for (unsigned count = random_below(chance(4) ? nested ? 120 : 30 : 5); count > 0; count--) {
            number += strchr(list, '$') ? 1 : 1 + random_below(3); // alias lists have no gaps
            string key =
                "netobj_list_" + string(list) + "_element_" + (nested && chance(9) ? "element" : to_string(number));
            text += key + "_addr=" + to_string(random_below(1000)) + "\n";
            string interface = one_of(interfaces);
            if (nested && chance(3))
                interface = one_of(keys);
            else if (nested && !chance(3)) // long lists on the way
                interface = string(chance(2) ? "a_num_elements_" : "a_num_") + to_string(random_below(40));
            text += chance(6) ? "" : key + "_interface=" + interface + "\n";
            text += chance(3) ? key + "_alias=" + one_of(switches) + "\n" : "";
            text += chance(8) ? key + "_alias_z=1\n" : "";
            text += chance(2) ? key + "_location=" + one_of(locations) + "\n" : "";
        }
        text += chance(2) ? "netobj_list_" + string(list) + "_num_elements=7\n" : "";
    }
    return text;
}

TEST(layout_property, interfaces_come_out_as_the_plain_procedure_puts_them) {
    seed_random(56);
    for (int round = 0; round < 250; round++) {
        const string before = random_interfaces();
        tree db(before), plain;
        for (const char *list : {"netobj_list_Inside_element", "netobj_list_all%5Finterfaces_element"})
            if (Frag *element = ffind(db, list); element && round % 2) // as a read leaves it, numbers falling
                reverse_frags(&element->child);
        plain.head = copy_fragtree(db, nullptr);
        norm_interfaces(db);
        plain_norm_interfaces(plain);
        for (Frag *top : {db.head, plain.head}) // the true counts of alias lists
            norm_netobj(ffind(&top, "netobj_list")->child, "element", "num_elements");
        ASSERT_EQ(dump(db.head), dump(plain.head)) << before;
        ASSERT_TRUE(linked(db.head, nullptr));
    }
}

// The alias lists that come with a file go to the locations again, an interface's name being a key.

static void plain_canon_if(FragList db, const char *location) {
    Frag *list = made_sure(db, location, nullptr), *element = made_sure(&list->child, "element", list);
    std::vector<Frag *> here;
    for (Frag *frag = element->child; frag; frag = frag->next)
        here.push_back(frag);
    if (here.empty())
        return;
    size_t number = here.size() + 1;
    for (Frag *frag : here) {
        const char *interface = fval(&frag->child, "interface");
        if (!interface || !*interface || is_on(fval(&frag->child, "alias")))
            continue;
        Frag *aliases = fdel(db, ("netobj_list_" + string(interface) + "$INTERFACE").c_str());
        Frag *below = aliases ? ffind(&aliases->child, "element") : nullptr;
        for (Frag *alias = below ? below->child : nullptr; alias; alias = alias->next) {
            while (ffind(&element->child, to_string(number).c_str()))
                number++;
            Frag *folded = fsetp(&element->child, to_string(number++).c_str(), nullptr, element);
            folded->child = copy_fragtree(&alias->child, folded);
            fsetp(&folded->child, "alias", "yes", folded);
        }
        freefrag(aliases);
    }
    sort_frags(&element->child);
}

TEST(layout_property, alias_lists_are_folded_as_the_plain_procedure_folds_them) {
    seed_random(57);
    for (int round = 0; round < 120; round++) {
        const string names[] = {
            "e0", "a_b", "a_b$INTERFACE_element_2_c", "a_b$INTERFACE=", "a=", "a_d_" /* and a number */};
        const auto interface = [&] {
            const string name = names[chance(2) ? 5 : random_below(5)];
            return name.back() == '_' ? name + to_string(random_below(40)) : name;
        };
        string before;
        for (int count = random_below(100); count > 0; count--) {
            const string key =
                "netobj_list_" + one_of({"Inside", "Outside", "Service"}) + "_element_" + to_string(random_below(90));
            before += key + "_interface=" + interface() + "\n" + (chance(8) ? key + "_alias=yes\n" : "");
        }
        for (int count = random_below(150); count > 0; count--) {
            string name = interface();
            if (name.back() == '=')
                name.pop_back();
            else
                name += "$INTERFACE";
            before +=
                "netobj_list_" + name + "_element_" + to_string(random_below(4)) + "_addr=" + to_string(count) + "\n";
        }
        tree db(before), plain(before);
        canon_interfaces(db);
        for (const char *location : {"netobj_list_Inside", "netobj_list_Outside", "netobj_list_Service"})
            plain_canon_if(plain, location);
        ASSERT_EQ(dump(db.head), dump(plain.head)) << before;
        ASSERT_TRUE(linked(db.head, nullptr));
    }
}

// Plug sets become proxies, a set's name being a key too.

static void plain_split(Frag *def_proxy) {
    Frag *plug = fdel(&def_proxy->child, "plug-px"), *sets = fdel(&plug->child, "config-sets");
    while (Frag *set = sets->child) {
        sets->child = set->next;
        Frag *proxy = fsetp(&def_proxy->child, fragname(set), nullptr, def_proxy);
        freelist(proxy->child);
        proxy->child = copy_fragtree(&plug->child, proxy);
        Frag *own = fsetp(&proxy->child, "config-sets", nullptr, proxy);
        fsetp(&proxy->child, "proxy-type", "plug-px", proxy);
        if (Frag *port = fdel(&set->child, "port")) {
            fsetp(&proxy->child, "bind-port", port->value, proxy);
            freefrag(port);
        }
        pushfrag(&own->child, set, own);
    }
    freefrag(sets);
    freefrag(plug);
}

TEST(layout_property, plug_sets_become_proxies_as_the_plain_procedure_makes_them) {
    seed_random(58);
    for (int round = 0; round < 80; round++) {
        string before;
        for (int count = 1 + random_below(80); count > 0; count--) {
            string name = one_of({"a", "b", "a%5Fb", "a%5Fb%5F", "a%5F", "a%5Fconfig-sets%5F", "a%3D", "other"});
            name += chance(4) ? "" : to_string(random_below(30));
            before += "def_proxy_plug-px_config-sets_" + name + "_port=" + to_string(count) + "\n";
        }
        for (int count = random_below(30); count > 0; count--)
            before += "def_proxy_plug-px_p" + to_string(count) + "=1\n" + "def_proxy_a_n" + to_string(count) + "=2\n";
        tree db(before), plain(before);
        up41(db);
        plain_split(ffind(plain, "def_proxy"));
        up41(plain);
        ASSERT_EQ(dump(db.head), dump(plain.head)) << before;
        ASSERT_TRUE(linked(db.head, nullptr));
    }
}

// A random environment as a save in numbered form writes it.
namespace {
struct environment {
    string file;
    int serial = 0;

    void line(const string &key, const string &value) { file += key + "=" + value + "\n"; }
    void count(const string &key, unsigned number) { line(key, to_string(number)); }
    string fresh(const string &name) { return name + to_string(++serial); }
    void element(const string &list, unsigned n, const string &addr, const string &interface, const string &location) {
        string key = list + "_element_" + to_string(n);
        line(key + "_addr", addr);
        line(key + "_interface", interface);
        if (!location.empty())
            line(key + "_location", location);
    }
    void parameters(const string &key, const string &first, const string &others) {
        const char *all_prefixes[] = {"", "permit-", "deny-", "permit-deny-", "absorb-", "onlyon-"};
        unsigned all = random_below(7);
        for (unsigned n = all; n > 0; n--) { // those of a list stand together
            string parm = key + "_parm_" + to_string(n), prefix = all_prefixes[random_below(n < 4 ? 4 : 6)];
            line(parm + "_name", prefix + fresh(n < 4 ? first : others));
            line(parm + "_value", chance(4) ? "" : fresh("v"));
        }
        count(key + "_num_parms", all);
    }
    unsigned list(const string &front, const string &end, unsigned limit, const string &tail = "") {
        unsigned all = random_below(limit);
        for (unsigned n = 1; n <= all; n++)
            line(front + to_string(n) + end, fresh("v") + tail);
        return all;
    }
    // One proxy is the global one; config sets stand in the order of their owners turned around.
    void proxies() {
        unsigned all = 0, sets = 0;
        std::vector<string> names{fresh("p%_"), "*", fresh("p-"), fresh("p-")};
        names.resize(2 + random_below(3));
        for (const string &name : names) {
            string key = "def_proxy_" + to_string(++all);
            line(key + "_realname", name);
            line(key + "_name", name == "*" || chance(2) ? name : fresh("N_"));
            parameters(key, "h_", "use_%x");
        }
        for (auto owner = names.rbegin(); owner != names.rend(); ++owner)
            for (unsigned more = random_below(4); more > 0; more--) {
                string key = "cust_proxy_" + to_string(++sets);
                line(key + "_realname", *owner);
                line(key + "_name", fresh("s%_"));
                parameters(key, "h_", "use_%x");
            }
        count("def_num_proxies", all);
        count("cust_num_proxies", sets);
    }
    void policies_and_lists() {
        for (const string key : {"policy_1", "policy_2", "policy_3"}) {
            line(key + "_name", fresh("q%_"));
            count(key + "_num_proxies", list(key + "_proxy_", "_name", 4));
            parameters(key, "a_b_", "desc");
        }
        count("policy_num_entries", 3);
        for (const string name : {"map", "sroute", "dest"})
            count(name + "_num_entries", list(name + "_", "_x", 15));
        count("nat_numrules", list("nat_rule_", "_x", 15));
        list("menu_meta_", "_x", 15);
        list("link_000", "_x", 10);
        for (const string name : {"pfedit_lcl_", "pfedit_fwd_"})
            count(name + "numrules", list(name + "rule", "", 5, "+i+tcp++1.2.3.4+m+80+++c"));
    }
    // Lists of aliases first, those of the interface that a save comes to last in front.
    void network_objects() {
        const std::pair<string, unsigned> sides[] = {
            {"Service", random_below(3)}, {"Outside", 1}, {"Inside", random_below(4)}};
        unsigned interfaces = sides[0].second + 1 + sides[2].second, lists = 0, at = 1;
        auto list_named = [&](const string &name) {
            string list = "netobj_list_" + to_string(++lists);
            line(list + "_name", name);
            return list;
        };
        for (unsigned n = interfaces; n > 0; n--) {
            string name = "e" + to_string(n), aliases = list_named(name + "$INTERFACE");
            unsigned number = random_below(4);
            for (unsigned alias = 1; alias <= number; alias++)
                element(aliases, alias, fresh("a"), name, "");
            count(aliases + "_num_elements", number);
        }
        string all = list_named("all_interfaces");
        element(all, 1, "old", "gone", "Unknown");
        for (const auto &[side, elements] : sides) {
            string list = list_named(side);
            for (unsigned n = 1; n <= elements; n++) {
                string addr = fresh("a"), name = "e" + to_string(at++);
                element(list, n, addr, name, "");
                element(all, at, addr, name, side);
            }
            count(list + "_num_elements", elements);
        }
        count(all + "_num_elements", at);
        count("netobj_num_list", lists);
        line("netobj_group_1_name", fresh("g%_"));
        line("netobj_group_1_member_1_name", fresh("v"));
        count("netobj_group_1_num_members", 1);
        count("netobj_num_group", 1);
    }
};

string read_and_saved(const string &file) {
    scratch_dir dir;
    tree db;
    importffile(dir.write("env", file).c_str(), db, 0);
    norm_fragtree(db);
    cur_database = db;
    EXPECT_EQ(exportenv((dir.path + "/out").c_str(), 1), 0);
    cur_database = nullptr;
    return read_file(dir.path + "/out");
}

string sorted(const string &file) {
    string text;
    std::vector<string> lines = split(file, '\n');
    std::sort(lines.begin(), lines.end());
    for (const string &line : lines)
        text += line + "\n";
    return text;
}
} // namespace

// What a read turns around, a second one turns back.
TEST(layout_property, an_environment_that_is_saved_twice_is_itself) {
    seed_random(59);
    for (int round = 0; round < 150; round++) {
        environment env;
        env.line("version_moatwall.conf", "001");
        env.line("other_permit-x_a%5Fb", "");
        env.proxies();
        env.policies_and_lists();
        env.network_objects();
        const string saved = read_and_saved(env.file);
        ASSERT_EQ(sorted(read_and_saved(saved)), sorted(env.file));
        string file; // without the counts that a read does not look at
        for (const string &line : split(env.file, '\n'))
            if (line.find("_num") == string::npos || line.find("_num_proxies") < 5)
                file += line + "\n";
        ASSERT_EQ(sorted(read_and_saved(file)), sorted(saved));
    }
}
