// The host rules of one proxy become config sets, network objects, policies and maps.
#include "frag_tools.h"
#include "netperm.h"
#include "text_hash.h"
#include "translation.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <set>
#include <unordered_set>
#include <vector>

namespace {

bool one_matches(const std::vector<std::string_view> &patterns, std::string_view word) {
    return std::any_of(patterns.begin(), patterns.end(),
                       [&](std::string_view pattern) { return wildmatch(pattern.data(), word.data()) != 0; });
}

// The longest text between two neighbouring stars, or its beginning. Every word that the pattern matches holds it.
std::string_view middle_of(std::string_view pattern) {
    constexpr size_t limit = 32;
    std::string_view middle;
    size_t star = pattern.find('*');
    for (size_t next; (next = pattern.find('*', star + 1)) != std::string_view::npos; star = next)
        if (next - star - 1 > middle.size())
            middle = pattern.substr(star + 1, next - star - 1);
    return middle.substr(0, limit);
}

/// Patterns with the same head and the same tail. A word with this head and tail is tried on each; once the patterns
/// are many, only on those whose middle, a text between two of its stars, stands in the word.
struct pattern_list {
    static constexpr size_t MANY = 32;

    std::vector<std::string_view> patterns;
    // Empty until the patterns are many.
    std::unordered_map<std::string_view, std::vector<std::string_view>, text_hash> by_middle;
    std::set<size_t> middle_lens;

    void add(std::string_view pattern) {
        patterns.push_back(pattern);
        if (patterns.size() == MANY)
            for (std::string_view earlier : patterns)
                add_middle(earlier);
        else if (patterns.size() > MANY)
            add_middle(pattern);
    }

    void add_middle(std::string_view pattern) {
        std::string_view middle = middle_of(pattern);
        by_middle[middle].push_back(pattern);
        middle_lens.insert(middle.size());
    }

    bool match(std::string_view word) const {
        if (patterns.size() < MANY || patterns.size() <= word.size() * middle_lens.size())
            return one_matches(patterns, word);
        std::unordered_set<std::string_view, text_hash> met;
        for (size_t len : middle_lens)
            for (size_t at = 0; at + len <= word.size(); at++) {
                auto found = by_middle.find(word.substr(at, len));
                if (found != by_middle.end() && met.insert(found->first).second && one_matches(found->second, word))
                    return true;
            }
        return false;
    }
};

/// The host words of the rules that stay, to tell whether one of them covers a further host without trying all. A
/// pattern matches only words that begin with its head, what it has in front of its first `*`, and end with its tail,
/// what it has behind its last. So these two lead to the few patterns that have to be tried; this builds on what
/// `wildmatch` says of each. All words are views into the rules' values.
struct cover_index {
    std::unordered_set<std::string_view, text_hash> words;
    std::unordered_map<std::string_view, std::unordered_map<std::string_view, pattern_list, text_hash>, text_hash>
        by_head_and_tail;
    std::set<size_t> head_lens, tail_lens;

    explicit cover_index(size_t rules) : words(rules) {}

    void add(std::string_view word) {
        words.insert(word);
        size_t first_star = word.find('*');
        if (first_star == std::string_view::npos)
            return;
        std::string_view tail = word.substr(word.rfind('*') + 1);
        by_head_and_tail[word.substr(0, first_star)][tail].add(word);
        head_lens.insert(first_star);
        tail_lens.insert(tail.size());
    }

    bool covers(std::string_view word) const {
        if (words.count(word))
            return true;
        for (size_t head_len : head_lens) {
            if (head_len > word.size())
                break;
            auto by_tail = by_head_and_tail.find(word.substr(0, head_len));
            if (by_tail == by_head_and_tail.end())
                continue;
            for (size_t tail_len : tail_lens) {
                if (tail_len > word.size())
                    break;
                auto patterns = by_tail->second.find(word.substr(word.size() - tail_len));
                if (patterns != by_tail->second.end() && patterns->second.match(word))
                    return true;
            }
        }
        return false;
    }
};

// The rules in the order of the table, one for each host. Their words are views into the values.
std::vector<rule_text> split_rules(Frag *hosts) {
    sort_frags(&hosts->child);
    std::vector<rule_text> rules;
    for (const Frag *frag = hosts->child; frag; frag = frag->next) {
        rule_text rule = read_rule(frag);
        // A text without a marker of its own has the class of its prefix in the table.
        if (rule.marker.empty() && (frag->attr & ATTR_DENY))
            rule.marker = DENY_MARKER;
        rule.permit_prefix = (frag->attr & ATTR_PERMIT) && !(frag->attr & ATTR_DENY);
        size_t first = rules.size();
        rules.push_back(rule);
        const char *at = rule.tail;
        while (*at && *at != '-') {
            // If the rule has no marker, a further host is read like a rule's first: it can have a marker of its own.
            rule_text further = rule.marker.empty() ? read_rule_text(at) : rule;
            if (!rule.marker.empty())
                further.host = {at, word_len(at)};
            further.permit_prefix = rule.permit_prefix;
            rules.push_back(further);
            at = skip_blanks(at + word_len(at));
        }
        for (; first < rules.size(); first++)
            rules[first].tail = at;
    }
    return rules;
}

// The rules without those that can never apply, since the pattern of an earlier one that stays covers their host.
// Classes and tails play no part.
std::vector<rule_text> without_covered(const std::vector<rule_text> &rules) {
    cover_index staying(rules.size());
    std::vector<rule_text> left;
    for (const rule_text &rule : rules)
        if (!staying.covers(rule.host)) {
            staying.add(rule.host);
            left.push_back(rule);
        }
    return left;
}

// The end of the group that `first` begins. A rule without a marker begins a group as a permit rule, but joins one
// only as a deny rule; if its prefix is `permit-` it joins none, since a deny must not swallow a permit.
const rule_text *end_of_group(const rule_text *first, const rule_text *end) {
    std::string_view group_class = first->marker.empty() ? PERMIT_MARKER : first->marker;
    const rule_text *rule = first + 1;
    for (; rule != end; rule++) {
        if (rule->marker.empty() && rule->permit_prefix)
            break;
        std::string_view rule_class = rule->marker.empty() ? DENY_MARKER : rule->marker;
        if (rule_class != group_class || (rule->tail != first->tail && strcmp(rule->tail, first->tail) != 0))
            break;
    }
    return rule;
}

// Turns the words of a tail into parameters of the config set. The result is the last policy that it names, if any.
std::optional<std::string> parse_tail(Frag *config_set, std::string tail) {
    std::optional<std::string> policy;
    list_indexes indexes;
    char *at = tail.data();
    while (*at) {
        if (!has_prefix(at, "-policy")) {
            at = take_word(indexes, config_set, at);
            continue;
        }
        at += strlen("-policy");
        while (is_blank(*at))
            at++;
        size_t len = word_len(at);
        policy.emplace(at, len);
        for (char &byte : *policy)
            if (byte == '_')
                byte = '-';
        at += len;
        while (is_blank(*at))
            at++;
    }
    return policy;
}

} // namespace

int translate_hosts(translation &run, Frag *proxy) {
    Frag *hosts = fdel(&proxy->child, "hosts");
    if (!hosts)
        return 1;
    std::vector<rule_text> rules = without_covered(split_rules(hosts));
    const rule_text *end = rules.data() + rules.size();

    const char *proxy_name = proxy->name;
    Frag *config_sets = nullptr;
    name_index set_names;
    int number = 1;
    for (const rule_text *first = rules.data(), *next; first != end; first = next) {
        next = end_of_group(first, end);
        int k = number++;
        if (!config_sets) {
            config_sets = fsetp(&proxy->child, "config-sets", nullptr, proxy);
            set_names = name_index(&config_sets->child);
        }
        std::string set_name = k == 1 ? proxy_name : proxy_name + ("-" + numbertext(k));
        Frag *config_set = set_names.set_key(&config_sets->child, set_name.c_str(), nullptr, config_sets);

        std::optional<std::string> policy = parse_tail(config_set, first->tail);
        if (policy)
            if (Frag *model = run.proxies.find_key(("policy-" + *policy).c_str()))
                run.templates.apply(model, config_set, proxy);

        Frag *group = run.group_of(first, next, k, policy ? policy->c_str() : proxy_name);
        std::string source = std::string("$$NETOBJ.") + fragname(group);
        if (first->marker == DENY_MARKER) {
            run.record_map("*", "D", proxy_name, source.c_str(), proxy_name, config_set);
        } else {
            std::string set_clear_name = fragname(config_set);
            std::string made =
                run.new_policy(policy ? policy->c_str() : nullptr, proxy_name, k, set_clear_name.c_str());
            run.record_map(made.c_str(), "P", "*", source.c_str(), proxy_name, config_set);
        }
    }
    pushfrag(&run.spent, hosts, nullptr);
    return 0;
}

int untrans_hosts(FragList db, Frag *proxy) {
    translation run(db);
    return translate_hosts(run, proxy);
}
