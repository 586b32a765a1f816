// The host rules of one proxy become config sets, network objects, policies and maps.
#include "nsym.h"
#include "upgrade.h"

#include <cstdlib>
#include <cstring>
#include <set>
#include <unordered_set>

namespace {

/// The host words of the rules that stay, to tell whether one of them covers a further host without trying all. A
/// pattern matches only words that begin with what it has in front of its first `*` and end with what it has behind its
/// last, so these two lead to the few patterns that have to be tried. All words are views into the rules' values.
struct cover_index {
    using by_tail = std::unordered_map<std::string_view, std::vector<const char *>>;

    std::unordered_set<std::string_view> words;
    std::unordered_map<std::string_view, by_tail> patterns;
    std::set<size_t> head_lens, tail_lens;

    void add(std::string_view word) {
        words.insert(word);
        size_t first_star = word.find('*');
        if (first_star == std::string_view::npos)
            return;
        std::string_view tail = word.substr(word.rfind('*') + 1);
        patterns[word.substr(0, first_star)][tail].push_back(word.data());
        head_lens.insert(first_star);
        tail_lens.insert(tail.size());
    }

    bool covers(std::string_view word) const {
        if (words.count(word))
            return true;
        for (size_t head_len : head_lens) {
            if (head_len > word.size())
                break;
            auto head = patterns.find(word.substr(0, head_len));
            if (head != patterns.end() && one_matches(head->second, word))
                return true;
        }
        return false;
    }

    bool one_matches(const by_tail &tails, std::string_view word) const {
        for (size_t tail_len : tail_lens) {
            if (tail_len > word.size())
                break;
            auto tail = tails.find(word.substr(word.size() - tail_len));
            if (tail != tails.end())
                for (const char *pattern : tail->second)
                    if (wildmatch(pattern, word.data()))
                        return true;
        }
        return false;
    }
};

// A rule whose text has no marker of its own gets the one that its prefix in the table stands for, in front of its
// first word.
void give_marker(Frag *rule) {
    std::string_view text = rule->value ? rule->value : "";
    size_t blanks = static_cast<size_t>(skip_blanks(text.data()) - text.data());
    if (!rule_marker(text.data() + blanks).empty() || !(rule->attr & (ATTR_DENY | ATTR_PERMIT)))
        return;
    std::string marked(text.substr(0, blanks));
    marked += rule->attr & ATTR_DENY ? DENY_MARKER : PERMIT_MARKER;
    marked += text.substr(blanks);
    setvalue(rule, marked);
}

// Makes of each rule with several hosts one rule for each, all numbered from 1 in the order of the table, in which they
// then stand.
void split_rules(Frag *hosts) {
    sort_frags(&hosts->child);
    Frag *rule = hosts->child;
    hosts->child = nullptr;
    FragList tail = &hosts->child;
    int number = 1;
    while (rule) {
        Frag *next = rule->next;
        rule->next = nullptr;
        give_marker(rule);
        renumberfrag(rule, number++);
        *tail = rule;
        rule_text text = read_rule(rule);
        if (*text.tail && *text.tail != '-') {
            std::string marker(text.marker);
            std::string host(text.host, text.host_len);
            // The numbers are all new, so the further rules are made apart, where they come to stand in order.
            Frag further{};
            char *rule_tail = burst_sub(&further, &number, marker.c_str(), rule->value + (text.tail - rule->value));
            setvalue(rule, marker + host + " " + rule_tail);
            free(rule_tail);
            rule->next = further.child;
        }
        while (*tail) {
            (*tail)->parent = hosts;
            tail = &(*tail)->next;
        }
        rule = next;
    }
}

// Drops each rule whose host an earlier rule that stays covers, whatever their classes and tails are.
void drop_covered_rules(Frag *hosts) {
    cover_index staying;
    for (FragList link = &hosts->child; *link;) {
        Frag *rule = *link;
        rule_text text = read_rule(rule);
        std::string_view host(text.host, text.host_len);
        if (staying.covers(host)) {
            *link = rule->next;
            freefrag(rule);
        } else {
            staying.add(host);
            link = &rule->next;
        }
    }
}

// The last rule of the group that `first` begins. A rule without a marker begins a group as a permit rule, but joins
// one only as a deny rule.
Frag *last_of_group(Frag *first) {
    rule_text begun = read_rule(first);
    std::string_view group_class = begun.marker.empty() ? PERMIT_MARKER : begun.marker;
    Frag *last = first;
    while (last->next) {
        rule_text text = read_rule(last->next);
        std::string_view rule_class = text.marker.empty() ? DENY_MARKER : text.marker;
        if (rule_class != group_class || strcmp(text.tail, begun.tail) != 0)
            break;
        last = last->next;
    }
    return last;
}

struct policy_name {
    bool given = false;
    std::string text;
};

// Turns the words of a tail into parameters of the config set. The last policy that it names is the result.
policy_name parse_tail(Frag *config_set, std::string tail) {
    policy_name policy;
    char *at = tail.data();
    while (*at) {
        if (!has_prefix(at, "-policy")) {
            at = parse_arg(config_set, at);
            continue;
        }
        at += strlen("-policy");
        while (is_blank(*at))
            at++;
        size_t len = word_len(at);
        policy.given = true;
        policy.text.assign(at, len);
        for (char &byte : policy.text)
            if (byte == '_')
                byte = '-';
        at += len;
        while (is_blank(*at))
            at++;
    }
    return policy;
}

// Hands what the policy's template has over to the config set.
void apply_template(const translation &run, const std::string &policy, Frag *config_set, const char *proxy) {
    Frag *model = run.proxies.find_key(("policy-" + policy).c_str());
    if (!model)
        return;
    Frag *parameter = copy_fragtree(&model->child, config_set);
    while (parameter) {
        Frag *next = parameter->next;
        parameter->next = nullptr;
        addparm(config_set, parameter, proxy);
        parameter = next;
    }
}

} // namespace

int untrans_hosts(translation &run, Frag *proxy) {
    Frag *hosts = fdel(&proxy->child, "hosts");
    if (!hosts)
        return 1;
    split_rules(hosts);
    drop_covered_rules(hosts);

    const char *proxy_name = proxy->name;
    Frag *config_sets = nullptr;
    name_index set_names;
    int number = 1;
    for (Frag *first = hosts->child; first;) {
        Frag *last = last_of_group(first);
        int k = number++;
        if (!config_sets) {
            config_sets = fsetp(&proxy->child, "config-sets", nullptr, proxy);
            set_names = name_index(&config_sets->child);
        }
        std::string set_name = k == 1 ? proxy_name : proxy_name + ("-" + numbertext(k));
        Frag *config_set = set_names.set_key(&config_sets->child, set_name.c_str(), nullptr, config_sets);

        rule_text text = read_rule(first);
        policy_name policy = parse_tail(config_set, text.tail);
        if (policy.given)
            apply_template(run, policy.text, config_set, proxy_name);

        Frag *group = run.find_netgroup(first, last, k, policy.given ? policy.text.c_str() : proxy_name);
        std::string source = std::string("$$NETOBJ.") + fragname(group);
        if (text.marker == DENY_MARKER) {
            run.addmap("*", "D", proxy_name, source.c_str(), proxy_name, config_set);
        } else {
            std::string set_clear_name = fragname(config_set);
            std::string made =
                run.make_policy(policy.given ? policy.text.c_str() : nullptr, proxy_name, k, set_clear_name.c_str());
            run.addmap(made.c_str(), "P", "*", source.c_str(), proxy_name, config_set);
        }
        first = last->next;
    }
    pushfrag(&run.spent, hosts, nullptr);
    return 0;
}

int untrans_hosts(FragList db, Frag *proxy) {
    translation run(db);
    return untrans_hosts(run, proxy);
}
