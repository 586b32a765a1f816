// The comparison of two ordered lists of host patterns, for all hosts at once.
//
// A rule whose words an earlier one accepts decides nothing and goes first. What is left of the two lists is aligned by
// equal patterns in equal order. A host whose deciding rules are both aligned is decided by partners: each partner
// accepts what the other accepts, and their order is the same on both sides. So a host can be treated otherwise only
// by partners that decide differently, or where at least one rule without a partner decides; and only below these the
// automaton is searched, for each of them by itself and in the direction of its shortest words.
#include "access/proxy_comparison.h"

#include <algorithm>

namespace {

constexpr size_t MOST_RULES = size_t{1} << 20; // of a proxy on one side
constexpr size_t MOST_BYTES = size_t{1} << 22; // of the patterns of a proxy

bool has_star(const kept_rule &rule) { return rule.head < rule.pattern.size(); }

/// False if surely no word is accepted by both.
bool can_meet(const kept_rule &a, const kept_rule &b) {
    size_t head = std::min(a.head, b.head), tail = std::min(a.tail, b.tail);
    return a.pattern.compare(0, head, b.pattern, 0, head) == 0 &&
           a.pattern.compare(a.pattern.size() - tail, tail, b.pattern, b.pattern.size() - tail, tail) == 0;
}

kept_rule kept_of(std::string_view pattern, const access_rule *rule) {
    kept_rule kept;
    kept.pattern = pattern;
    kept.rule = rule;
    kept.head = std::min(pattern.find('*'), pattern.size());
    kept.tail = pattern.size() - (has_star(kept) ? pattern.rfind('*') + 1 : 0);
    return kept;
}

/// The shortest word of a pattern.
std::string shortest_word(std::string_view pattern) {
    std::string word(pattern);
    word.erase(std::remove(word.begin(), word.end(), '*'), word.end());
    return word.empty() || (pattern.size() > 1 && pattern.substr(pattern.size() - 2) == "**") ? word + '0' : word;
}

} // namespace

const std::string &proxy_comparison::lacking(const access_rule &was, const access_rule &is) {
    auto [known, added] = known_lacking.try_emplace({was.table, was.source, is.source});
    if (added)
        known->second = lacking_options(options_of(before, was, proxy), options_of(after, is, proxy));
    return known->second;
}

// The name of the finding that a host decided by these two rules is, or null.
const char *proxy_comparison::difference_of(size_t list, uint32_t place, uint32_t other) {
    const access_rule *was = kept[0][list == 0 ? place : other].rule, *is = kept[1][list == 0 ? other : place].rule;
    bool was_permitted = was && was->permit, is_permitted = is && is->permit;
    if (was_permitted != is_permitted)
        return is_permitted ? "wider" : "narrower";
    return was_permitted && !lacking(*was, *is).empty() ? "options" : nullptr;
}

void proxy_comparison::note(size_t list, uint32_t place, uint32_t other, const std::string &word) {
    uint32_t was = list == 0 ? place : other, is = list == 0 ? other : place;
    if (const char *id = difference_of(list, place, other))
        differences.try_emplace({was, is}, difference{id, kept[0][was].rule, kept[1][is].rule, word});
}

bool proxy_comparison::read() {
    size_t bytes = 0;
    std::array<std::vector<kept_rule>, 2> all;
    for (size_t list = 0; list < 2; list++) {
        bool fits = false;
        rules[list] = rules_of(list == 0 ? before : after, proxy, MOST_RULES, &fits);
        for (const access_rule &rule : rules[list])
            bytes += rule.pattern.size() + 1;
        if (!fits || bytes > MOST_BYTES)
            return false;
        for (const access_rule &rule : rules[list])
            all[list].push_back(kept_of(rule.pattern, &rule));
        all[list].push_back(kept_of("*", nullptr));
    }
    pattern_automaton whole;
    for (size_t list = 0; list < 2; list++)
        for (uint32_t i = 0; i < all[list].size(); i++)
            all[list][i].end = whole.add(all[list][i].pattern, list, i);
    whole.finish();
    for (size_t list = 0; list < 2; list++)
        for (uint32_t i = 0; i < all[list].size(); i++) {
            const kept_rule &each = all[list][i];
            bool is_first = whole.nodes[each.end].rule[list] == i && !each.pattern.empty();
            if (is_first && !whole.is_covered(each.pattern, list, i, budget))
                kept[list].push_back(each);
        }
    return true;
}

// The longest sequence of equal patterns that stand in the same order on both sides. No pattern stands twice on one.
void proxy_comparison::align(bool of_one_ruling) {
    for (size_t list = 0; list < 2; list++)
        for (uint32_t i = 0; i < kept[list].size(); i++)
            kept[list][i].end = automaton.add(kept[list][i].pattern, list, i);
    automaton.finish();
    std::vector<uint32_t> ends; // for each length, the rule that ends a sequence of that length earliest
    std::vector<uint32_t> in_front(kept[0].size(), NO_RULE);
    auto twin = [&](uint32_t i) { return automaton.nodes[kept[0][i].end].rule[1]; };
    for (uint32_t i = 0; i < kept[0].size(); i++) {
        const access_rule *was = kept[0][i].rule, *is = twin(i) == NO_RULE ? nullptr : kept[1][twin(i)].rule;
        if (twin(i) == NO_RULE || (of_one_ruling && !(was && is && was->permit == is->permit)))
            continue;
        auto at =
            std::lower_bound(ends.begin(), ends.end(), i, [&](uint32_t a, uint32_t b) { return twin(a) < twin(b); });
        in_front[i] = at == ends.begin() ? NO_RULE : *(at - 1);
        if (at == ends.end())
            ends.push_back(i);
        else
            *at = i;
    }
    for (uint32_t i = ends.empty() ? NO_RULE : ends.back(); i != NO_RULE; i = in_front[i]) {
        kept[0][i].partner = twin(i);
        kept[1][twin(i)].partner = i;
    }
}

// Whether the words that the two decide are to be looked for below the rule at that place of the list. Partners are
// looked at from one side. Without a partner, those with one that has no star are found at its one word, those with one
// that has no partner either by the side that has more of these, so that the words of few are not searched for many,
// and those with one whose partner is earlier don't exist.
bool proxy_comparison::is_wanted(size_t list, uint32_t place, uint32_t other) {
    const kept_rule &rule = kept[list][place], &that = kept[1 - list][other];
    bool takes_alone = list == 0 ? kept[0].size() >= kept[1].size() : kept[1].size() > kept[0].size();
    bool is_mine = rule.partner != NO_RULE   ? rule.partner == other
                   : that.partner == NO_RULE ? takes_alone && has_star(that)
                                             : that.partner > place;
    return is_mine && can_meet(rule, that) && difference_of(list, place, other) &&
           differences.count(list == 0 ? std::pair(place, other) : std::pair(other, place)) == 0;
}

// All rules of the other side that decide about some words that this one decides, as far as they are wanted.
void proxy_comparison::search(size_t list, uint32_t place) {
    const kept_rule &rule = kept[list][place];
    std::string word = shortest_word(rule.pattern);
    pattern_automaton::state at = automaton.walk(word, {NO_RULE, NO_RULE}, budget);
    if (automaton.accepted(at, list) == place)
        note(list, place, automaton.accepted(at, 1 - list), word);
    if (!has_star(rule))
        return;
    std::vector<bool> wanted;
    uint32_t last = rule.partner == NO_RULE ? static_cast<uint32_t>(kept[1 - list].size()) : rule.partner + 1;
    for (uint32_t i = rule.partner == NO_RULE ? 0 : rule.partner; i < last; i++)
        if (is_wanted(list, place, i)) {
            wanted.resize(i);
            wanted.push_back(true);
        }
    budget.take(kept[1 - list].size());
    if (wanted.empty())
        return;
    // An automaton of the rules that can meet this one: of its own list the earlier ones, of the other those up to the
    // last that is wanted.
    pattern_automaton few;
    uint32_t end = few.add(rule.pattern, 0, place);
    for (uint32_t i = 0; i < place; i++)
        if (can_meet(rule, kept[list][i]))
            few.add(kept[list][i].pattern, 0, i);
    for (uint32_t i = 0; i < wanted.size(); i++)
        if (can_meet(rule, kept[1 - list][i]))
            few.add(kept[1 - list][i].pattern, 1, i);
    few.finish();
    budget.take(place + wanted.size() + few.nodes.size());
    is_decided = search_words(few, place, end, wanted, budget,
                              [&](const std::string &found, uint32_t other) { note(list, place, other, found); });
}

void proxy_comparison::run() {
    is_decided = budget.left != 0 && read();
    if (!is_decided)
        return;
    align(false);
    for (size_t list = 0; list < 2; list++)
        for (uint32_t i = 0; i < kept[list].size() && is_decided; i++)
            if (uint32_t partner = kept[list][i].partner;
                partner == NO_RULE || (list == 0 && difference_of(0, i, partner)))
                search(list, i);
    is_decided = is_decided && budget.left != 0;
}
