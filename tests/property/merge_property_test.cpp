// Maps merged: batches and the finding of equal maps against plain procedures that walk lists, on random input.
#include "netperm_support.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <map>

namespace {

std::string value_of(Frag *frag, const char *key) {
    const char *value = fval(&frag->child, key);
    return value ? value : "(none)";
}

struct plain_policy {
    std::string name, desc;
    std::vector<std::string> sets;
};

// The maps, given as their words, and the policies in list order, batch by batch.
std::string merged_plainly(std::vector<std::vector<std::string>> waiting, std::vector<plain_policy> policies) {
    enum { NUMBER, PD, SRC, PROXY, POLICY, TAG_PROXY, TAG_CS };
    std::string text;
    int number = 0;
    auto find = [&](const std::string &name) {
        return std::find_if(policies.begin(), policies.end(), [&](const auto &policy) { return policy.name == name; });
    };
    std::sort(waiting.begin(), waiting.end(),
              [](const auto &a, const auto &b) { return stoi(a[NUMBER]) < stoi(b[NUMBER]); });
    while (!waiting.empty()) {
        std::vector<std::vector<std::string>> batch, rest;
        for (const auto &map : waiting) {
            bool in_batch = false;
            for (const auto &other : batch)
                in_batch |= map[TAG_PROXY] != "-" && other[TAG_PROXY] == map[TAG_PROXY];
            (in_batch ? rest : batch).push_back(map);
        }
        waiting = rest;
        for (; !batch.empty(); batch.erase(batch.begin())) {
            std::vector<std::string> &survivor = batch[0];
            const std::string policy = survivor[POLICY], merged_name = "Policy-" + numbertext(++number);
            for (size_t at = 1; policy != "*" && at < batch.size();) {
                const std::vector<std::string> candidate = batch[at];
                if (candidate[SRC] != survivor[SRC] || candidate[PD] != survivor[PD]) {
                    at++;
                    continue;
                }
                if (survivor[POLICY] == policy) {
                    auto renamed = find(policy);
                    renamed->name = renamed->desc = survivor[POLICY] = merged_name;
                }
                auto absorbed = find(candidate[POLICY]);
                std::vector<std::string> added = {candidate[TAG_CS] + "=" + candidate[TAG_PROXY]};
                if (candidate[TAG_PROXY] == "-")
                    added = absorbed->sets;
                for (const std::string &set : added)
                    find(merged_name)->sets.insert(find(merged_name)->sets.begin(), set);
                policies.erase(find(candidate[POLICY]));
                batch.erase(batch.begin() + static_cast<long>(at));
            }
            text += (number > 1 ? "|" : "") + numbertext(number);
            for (int word = PD; word <= POLICY; word++)
                text += " " + survivor[static_cast<size_t>(word)];
        }
    }
    text += " /";
    for (const plain_policy &policy : policies) {
        text += " " + policy.name + "(" + policy.desc;
        for (const std::string &set : policy.sets)
            text += ";" + set;
        text += ")";
    }
    return text;
}

// What a merge of a file into the database leaves, by the plain walk over all maps that are there, the newest first.
// The two are given as they stand in the database and in the file's text.
std::string conf_merged_plainly(FragList old, FragList now) {
    for (FragList list : {&ffind(now, "map")->child, &ffind(now, "policy")->child}) // as a reader leaves them
        reverse_frags(list);
    FragList policies = &ffind(now, "policy")->child;
    for (Frag *policy = *policies; policy; policy = policy->next)
        if (Frag *sets = ffind(&policy->child, "proxy"))
            reverse_frags(&sets->child);
    std::vector<Frag *> maps, fresh;
    for (FragList list : {&ffind(old, "map")->child, &ffind(now, "map")->child}) {
        sort_frags(list);
        for (Frag *map = *list; map; map = map->next)
            (list == &ffind(old, "map")->child ? maps : fresh).push_back(map);
    }
    auto same_policy = [&](const std::string &a, const std::string &b) {
        Frag *sets_a = ffind2(policies, a.c_str(), "proxy"), *sets_b = ffind2(policies, b.c_str(), "proxy");
        if (!sets_a || !sets_b)
            return false;
        sort_frags(&sets_a->child);
        sort_frags(&sets_b->child);
        return names_of(sets_a->child) == names_of(sets_b->child);
    };
    auto same = [&](Frag *a, Frag *b) {
        for (const char *key : {"pd", "src", "proxy", "policy"}) {
            std::string left = value_of(a, key), right = value_of(b, key);
            if (left == "(none)" || right == "(none)")
                return true;
            if (left != right)
                return strcmp(key, "policy") == 0 && same_policy(left, right);
        }
        return true;
    };
    for (Frag *map : fresh) {
        bool have = false;
        for (size_t at = maps.size(); at > 0 && !have; at--)
            have = same(maps[at - 1], map);
        if (!have)
            maps.push_back(map);
    }
    std::string text;
    for (Frag *map : maps)
        text += value_of(map, "pd") + value_of(map, "src") + value_of(map, "proxy") + value_of(map, "policy") + "\n";
    std::string came_in;
    for (Frag *policy = *policies; policy; policy = policy->next)
        if (!ffind2(old, "policy", policy->name)) {
            Frag *sets = ffind(&policy->child, "proxy");
            came_in = std::string(policy->name) + ":" + names_of(sets ? sets->child : nullptr) + "\n" + came_in;
        }
    return text + came_in;
}

} // namespace

TEST(merge_property, batches) {
    seed_random(4);
    for (int round = 0; round < 1000; round++) {
        tree db;
        std::vector<std::vector<std::string>> maps;
        std::vector<plain_policy> policies;
        for (int number = 1; number <= 40; number++) {
            std::string id = numbertext(number), policy = "pol-" + id, proxy = one_of({"a", "b", "c", "d"}),
                        set = proxy + "-" + id;
            std::string pd = one_of({"P", "P", "P", "D"}), src = one_of({"g", "h", "i"});
            if (random_below(4) == 0)
                continue;
            std::string map = id + " " + pd + " " + src + (pd == "D" ? " " + proxy + " *" : " * " + policy);
            if (random_below(6) == 0) { // left by an earlier run, without its tag
                map += " - -";
                if (pd == "P") {
                    policies.insert(policies.begin(), {policy, "-", {set + "y=" + proxy, set + "x=" + proxy}});
                    for (const char *entry : {"x", "y"})
                        fset(db, ("policy_" + policy + "_proxy_" + set + entry).c_str(), proxy.c_str());
                    fset(db, ("policy_" + policy + "_parm_desc").c_str(), "-");
                }
            } else {
                map += " " + proxy + " " + set;
                if (pd == "P")
                    policies.insert(policies.begin(), {policy, proxy, {set + "=" + proxy}});
            }
            add_maps(db, map);
            maps.push_back(split(map, ' '));
        }
        Frag *list = ffind(db, "map");
        for (Frag *map = list->child; map; map = map->next) // shuffles the list
            if (map->next && random_below(2)) {
                Frag *moved = map->next;
                map->next = moved->next;
                pushfrag(&list->child, moved, list);
            }
        merge_maps(db);
        ASSERT_EQ(maps_and_policies(db), merged_plainly(maps, policies));
    }
}

TEST(merge_property, maps_of_a_file) {
    seed_random(5);
    scratch_dir dir;
    for (int round = 0; round < 600; round++) {
        auto conf = [](FragList list, unsigned most_maps, unsigned most_policies) {
            for (unsigned count = 1 + random_below(most_maps); count > 0; count--) {
                std::string key = "map_" + numbertext(static_cast<int>(random_below(30))) + "_";
                fset(list, (key + "id").c_str(), "");
                std::pair<const char *, std::string> fields[] = {{"pd", one_of({"P", "P", "D"})},
                                                                 {"src", one_of({"g", "h"})},
                                                                 {"proxy", one_of({"*", "*", "x"})},
                                                                 {"policy", one_of({"p", "q", "r", "s", "t", "*"})}};
                for (const auto &field : fields)
                    if (random_below(30))
                        fset(list, (key + field.first).c_str(), field.second.c_str());
            }
            fset(list, "policy_old", "");
            for (unsigned count = random_below(most_policies); count > 0; count--)
                fset(list,
                     ("policy_" + one_of({"p", "q", "r", "s"}) + "_proxy" + one_of({"_1", "_2", "_10", ""})).c_str(),
                     "");
        };
        tree old, file, db;
        conf(old, 8, 4);
        conf(file, 12, 16);
        db.head = copy_fragtree(old, nullptr);
        std::string before = old.text(), file_text = file.text();
        cur_database = db;
        conf_merge(db, dir.write("file", file_text).c_str());
        cur_database = &def_database;
        std::string expected = conf_merged_plainly(old, file);
        std::string text;
        int number = 0;
        for (Frag *map = ffind(db, "map")->child; map; map = map->next) {
            ASSERT_EQ(map->name, numbertext(++number));
            text +=
                value_of(map, "pd") + value_of(map, "src") + value_of(map, "proxy") + value_of(map, "policy") + "\n";
        }
        std::string kept;
        for (Frag *policy = ffind(db, "policy")->child; policy; policy = policy->next) {
            Frag *sets = ffind(&policy->child, "proxy");
            if (ffind2(old, "policy", policy->name))
                kept += std::string(policy->name) + " ";
            else
                text += std::string(policy->name) + ":" + names_of(sets ? sets->child : nullptr) + "\n";
        }
        ASSERT_EQ(text, expected) << before << "--\n" << file_text;
        ASSERT_EQ(kept, names_of(ffind(old, "policy")->child) + " ");
    }
}
