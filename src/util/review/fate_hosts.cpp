// The `hosts` rules of a table: which map each came to, or which earlier rule covers it.
#include "fate_table.h"
#include "frag_tools.h"
#include "name_index.h"
#include "netperm.h"

#include <cstring>
#include <map>

namespace {

/// Finds the rule that covers a host word: equal words by the word, patterns by what they have in front of their first
/// star and behind their last.
struct cover_finder {
    struct pattern {
        std::string_view word;
        size_t id;
    };
    using by_tail = std::unordered_map<std::string_view, std::vector<pattern>>;

    size_t *trials; // of patterns
    std::unordered_map<std::string_view, size_t> words{};
    std::map<size_t, std::unordered_map<std::string_view, by_tail>> heads{}; // by the length of the head
    std::map<size_t, bool> tail_lens{};

    void add(std::string_view word, size_t id) {
        words.emplace(word, id);
        size_t star = word.find('*');
        if (star == std::string_view::npos)
            return;
        std::string_view tail = word.substr(word.rfind('*') + 1);
        heads[star][word.substr(0, star)][tail].push_back({word, id});
        tail_lens[tail.size()] = true;
    }

    size_t find_below(const by_tail &tails, std::string_view word) {
        size_t first = 0;
        for (const auto &len : tail_lens) {
            if (len.first > word.size())
                break;
            auto found = tails.find(word.substr(word.size() - len.first));
            if (found == tails.end())
                continue;
            for (const pattern &tried : found->second) {
                (*trials)++;
                if (!wildmatch(tried.word.data(), word.data()))
                    continue;
                first = first && first < tried.id ? first : tried.id;
                break;
            }
        }
        return first;
    }

    /// 0 if no rule covers the word.
    size_t find(std::string_view word) {
        auto same = words.find(word);
        size_t first = same == words.end() ? 0 : same->second;
        for (const auto &[len, by_head] : heads) {
            if (len > word.size())
                break;
            auto head = by_head.find(word.substr(0, len));
            size_t id = head == by_head.end() ? 0 : find_below(head->second, word);
            if (id && (!first || id < first))
                first = id;
        }
        return first;
    }
};

constexpr size_t MOST_TRIALS = 100'000'000; // what a table of nothing but stars may cost

/// The host words of a rule and its tail, as the translation splits it.
struct split_rule {
    std::vector<std::string_view> hosts;
    std::string_view tail;
};

split_rule split(const fate_entry &entry) {
    split_rule rule;
    const char *at = skip_blanks(entry.value.c_str());
    // A marker gives the whole rule its class in front of its first host; a rule without one can have it at each.
    bool classed = marker_len(at) != 0 || (entry.attr & ATTR_DENY) != 0;
    for (bool first = true; first || (*at && *at != '-'); first = false) {
        if (first || !classed)
            at += marker_len(at);
        rule.hosts.emplace_back(at, word_len(at));
        at = skip_blanks(at + word_len(at));
    }
    rule.tail = at;
    return rule;
}

// The policy that a tail names, or an empty text.
std::string policy_of(std::string_view tail) {
    std::string policy;
    bool named = false;
    for (size_t at = 0; at < tail.size();) {
        size_t end = std::min(tail.find_first_of(" \t", at), tail.size());
        std::string_view word = tail.substr(at, end - at);
        if (word == "-exec")
            break;
        if (named || word.substr(0, 7) == "-policy") {
            policy = named ? word : word.substr(7);
            named = !named && policy.empty();
        }
        at = std::min(tail.find_first_not_of(" \t", end), tail.size());
    }
    for (char &byte : policy)
        byte = byte == '_' ? '-' : byte;
    return policy;
}

bool same_host(Frag *element, std::string_view host) {
    Frag *addr = ffind(&element->child, "addr");
    return addr && lowercase(value_of(addr)) == lowercase(host);
}

} // namespace

void fate_table::find_map(Frag *map, list_indexes &indexes) {
    static constexpr char source[] = "$$NETOBJ.";
    const char *src = fval(&map->child, "src");
    const char *policy = fval(&map->child, "policy");
    const char *proxy = fval(&map->child, "proxy");
    if (!src || !policy || !proxy || !has_prefix(src, source))
        return;
    Frag *groups = ffind(&run.db, "netobj_group"), *lists = ffind(&run.db, "netobj_list");
    auto named_in = [&indexes](Frag *top, const char *name) {
        return top ? indexes.find(&top->child, name_in_file(storedname(name).c_str(), 0)) : nullptr;
    };
    Frag *group = named_in(groups, src + strlen(source));
    const char *list_name = group ? fval(&group->child, "member_1_name") : nullptr;
    Frag *list = list_name ? named_in(lists, list_name) : nullptr;
    Frag *elements = list ? ffind(&list->child, "element") : nullptr;
    if (!elements)
        return;
    sort_frags(&elements->child);
    host_map found{map, list_name, elements->child};
    if (std::string_view(policy) == "*") {
        maps_of[proxy].push_back(found);
        return;
    }
    Frag *policies = ffind(&run.db, "policy");
    Frag *entry = named_in(policies, policy);
    Frag *sets = entry ? ffind(&entry->child, "proxy") : nullptr;
    for (Frag *set = sets ? sets->child : nullptr; set; set = set->next)
        if (set->value)
            maps_of[set->value].push_back(found);
}

void fate_table::find_maps(list_indexes &indexes) {
    maps_of.clear();
    Frag *top = ffind(&run.db, "map");
    if (!top)
        return;
    sort_frags(&top->child);
    for (Frag *map = top->child; map; map = map->next)
        find_map(map, indexes);
}

// The maps of one proxy stand in the order of its rules, so the hosts that stay lead through them one by one.
void fate_table::follow_hosts(const fate_proxy &proxy, const table_rules &rules) {
    const std::vector<host_map> &maps = maps_of[proxy.name];
    size_t at = 0, begun_by = 0; // the map that the next host is in, and the rule of its first host
    Frag *element = nullptr;
    bool in_step = true;
    cover_finder covers{&cover_trials};
    for (size_t id : rules) {
        const fate_entry &entry = run.ledger.entries[id];
        split_rule rule = split(entry);
        std::string stays, left_out;
        hosts_outcome outcome;
        for (std::string_view host : rule.hosts) {
            size_t by = cover_trials < MOST_TRIALS ? covers.find(host) : 0;
            if (by) {
                left_out += (left_out.empty() ? "" : ", ") + std::string(host) + " by line " +
                            std::to_string(run.ledger.entries[by].line);
                continue;
            }
            covers.add(host, id);
            if (!element && at < maps.size()) {
                element = maps[at].elements;
                begun_by = id;
            }
            in_step = in_step && element && same_host(element, host);
            if (!in_step) {
                stays = ", some map";
                continue;
            }
            std::string number = maps[at].map->name;
            bool permits = same_text(fval(&maps[at].map->child, "pd"), "P");
            if (outcome.map.empty())
                outcome = {number, fval(&maps[at].map->child, "src"), maps[at].list, ""};
            std::string text = "map " + number + (permits ? " permits" : " denies");
            if (begun_by != id)
                text += ", together with line " + std::to_string(run.ledger.entries[begun_by].line);
            if (stays.size() < text.size() || stays.compare(stays.size() - text.size(), text.size(), text) != 0)
                stays += ", " + text;
            element = element->next;
            at += element ? 0 : 1;
        }
        if (stays.empty()) {
            run.ledger.say(id, fate::without_effect,
                           rule.hosts.size() == 1 ? "an earlier rule, line " +
                                                        left_out.substr(left_out.rfind(' ') + 1) + ", covers its host"
                                                  : "earlier rules cover all its hosts: " + left_out);
            continue;
        }
        std::string policy = policy_of(rule.tail);
        std::vector<std::string> &users = users_of[policy];
        if (users.empty() || users.back() != proxy.name)
            users.push_back(proxy.name);
        outcome.reason = "for " + proxy.name + stays.substr(1) + (left_out.empty() ? "" : "; covered: " + left_out);
        outcomes.try_emplace(id, std::move(outcome));
    }
}
