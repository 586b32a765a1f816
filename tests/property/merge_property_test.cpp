// Maps merged: batches and the finding of equal maps against plain procedures that walk lists, on random input.
#include "netperm_support.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <set>

namespace {

struct plain_map {
    int number;
    std::string pd, src, policy, tag; // no tag on a map that an earlier run left
    std::vector<std::string> sets;    // the config sets of its policy, "set=proxy"

    std::string text() const {
        std::string line = numbertext(number) + " " + pd + " " + src + " " + policy;
        for (const std::string &set : sets)
            line += " " + set;
        return line + "\n";
    }
};

// The maps batch by batch, each with those of its batch and source folded into it.
std::string merged_plainly(std::vector<plain_map> waiting) {
    std::string text;
    int number = 0;
    std::sort(waiting.begin(), waiting.end(), [](const auto &a, const auto &b) { return a.number < b.number; });
    while (!waiting.empty()) {
        std::vector<plain_map> batch, rest;
        for (const plain_map &map : waiting) {
            auto same_tag = [&](const plain_map &other) { return !map.tag.empty() && other.tag == map.tag; };
            (std::any_of(batch.begin(), batch.end(), same_tag) ? rest : batch).push_back(map);
        }
        for (; !batch.empty(); batch.erase(batch.begin())) {
            plain_map &survivor = batch[0];
            survivor.number = ++number;
            for (auto other = batch.begin() + 1; survivor.policy != "*" && other != batch.end();) {
                if (other->src != survivor.src || other->pd != survivor.pd) {
                    ++other;
                    continue;
                }
                survivor.policy = "Policy-" + numbertext(number);
                for (const std::string &set : other->sets)
                    survivor.sets.insert(survivor.sets.begin(), set);
                other = batch.erase(other);
            }
            text += survivor.text();
        }
        waiting = rest;
    }
    return text;
}

// Puts the old configuration's maps and policies in front of those of a file, by a walk over all maps for each.
void conf_merged_plainly(FragList old, FragList now) {
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
            pushfrag(&maps->child, map, maps); // so the walk begins with the newest
        }
    }
    sort_frags(&maps->child);
    freefrag(from_file);
    from_file = fdel(now, "policy");
    Frag *policies = fset(now, "policy", nullptr);
    std::swap(policies->child, ffind(old, "policy")->child);
    while (Frag *policy = from_file->child) {
        from_file->child = policy->next;
        if (ffind(&policies->child, policy->name))
            freefrag(policy);
        else
            pushfrag(&policies->child, policy, policies);
    }
    freefrag(from_file);
}

std::string random_conf(unsigned most_maps, unsigned most_policies) {
    std::string text = "policy_old=\n";
    for (unsigned count = 1 + random_below(most_maps); count > 0; count--) {
        std::string key = "map_" + numbertext(static_cast<int>(random_below(30))) + "_";
        text += key + "id=\n";
        for (const std::string &field :
             {"pd=" + one_of({"P", "P", "D"}), "src=" + one_of({"g", "h"}), "proxy=" + one_of({"*", "*", "x"}),
              "policy=" + one_of({"p", "q", "r", "s", "t", "*"})})
            text += random_below(30) ? key + field + "\n" : "";
    }
    for (unsigned count = random_below(most_policies); count > 0; count--)
        text += "policy_" + one_of({"p", "q", "r", "s"}) + "_proxy" + one_of({"_1", "_2", "_10", ""}) + "=\n";
    return text;
}

} // namespace

TEST(merge_property, batches) {
    seed_random(4);
    for (int round = 0; round < 1000; round++) {
        std::vector<plain_map> maps;
        std::string text;
        std::set<unsigned> numbers;
        while (numbers.size() < 30) {
            plain_map map{static_cast<int>(random_below(100)),
                          one_of({"P", "P", "P", "D"}),
                          one_of({"g", "h", "i"}),
                          "*",
                          one_of({"a", "b", "c", "d"}),
                          {}};
            if (!numbers.insert(static_cast<unsigned>(map.number)).second)
                continue;
            std::string proxy = map.tag, id = numbertext(map.number), key = "map_" + id + "_", set = proxy + "-" + id;
            bool tagged = random_below(6) != 0;
            if (!tagged)
                map.tag = "";
            if (map.pd == "P") {
                map.policy = "pol-" + id;
                map.sets = {set + "=" + proxy};
                if (!tagged)
                    map.sets.push_back(set + "y=" + proxy);
                for (const std::string &entry : map.sets)
                    text += "policy_" + map.policy + "_proxy_" + entry + "\n";
            }
            text += key + "pd=" + map.pd + "\n" + key + "src=" + map.src + "\n" + key + "policy=" + map.policy + "\n" +
                    key + "proxy=" + (map.pd == "P" ? "*" : proxy) + "\n";
            if (tagged)
                text += key + "tag_proxy=" + proxy + "\n" + key + "tag_cs=" + set + "\n";
            maps.push_back(map);
        }
        tree db(text);
        merge_maps(db);
        std::string merged;
        size_t permits = 0;
        for (Frag *frag = ffind(db, "map")->child; frag; frag = frag->next) {
            ASSERT_EQ(ffind(&frag->child, "tag"), nullptr);
            plain_map map{atoi(frag->name),
                          fval(&frag->child, "pd"),
                          fval(&frag->child, "src"),
                          fval(&frag->child, "policy"),
                          "",
                          {}};
            Frag *sets = ffind(db, ("policy_" + map.policy + "_proxy").c_str());
            permits += sets != nullptr;
            for (Frag *set = sets ? sets->child : nullptr; set; set = set->next)
                map.sets.push_back(std::string(set->name) + "=" + set->value);
            merged += map.text();
        }
        ASSERT_EQ(merged, merged_plainly(maps)) << text;
        ASSERT_EQ(split(names_of(ffind(db, "policy")->child), ' ').size(), permits) << "a policy that no map names";
    }
}

TEST(merge_property, maps_of_a_file) {
    seed_random(5);
    scratch_dir dir;
    for (int round = 0; round < 600; round++) {
        std::string before = random_conf(8, 4), file = random_conf(12, 16), path = dir.write("file", file);
        tree db(before), old(before), plain;
        cur_database = db;
        conf_merge(db, path.c_str());
        cur_database = &def_database;
        importffile(path.c_str(), plain, 1);
        conf_merged_plainly(old, plain);
        ASSERT_EQ(db.text(), plain.text()) << before << "--\n" << file;
    }
}
