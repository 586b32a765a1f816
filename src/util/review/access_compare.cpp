// The comparison of two ordered lists of host patterns, for all hosts at once.
//
// A rule whose words an earlier one accepts decides nothing and goes first. What is left of the two lists is aligned by
// equal patterns in equal order. A host whose deciding rules are both aligned is decided by partners: each partner
// accepts what the other accepts, and their order is the same on both sides. So a host can be treated otherwise only
// by partners that decide differently, or where at least one rule without a partner decides; and only below these the
// automaton is searched, for each of them by itself and in the direction of its shortest words.
#include "access_compare.h"

#include "access_causes.h"
#include "nsym.h"
#include "pattern_automaton.h"
#include "upgrade.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace {

constexpr uint64_t QUICK_STEPS = 200'000;      // of a search in the whole automaton, before one that leaves rules out
constexpr size_t MOST_BYTES = size_t{1} << 24; // of the patterns of a proxy
constexpr size_t MOST_TRIALS = 50'000'000;     // of patterns of the upgrade's own result

/// A rule that can decide something, by its place in its list.
struct kept_rule {
    const access_rule *rule;
    uint32_t end = 0;           // its node
    uint32_t partner = NO_RULE; // its place in the other list
    size_t head, tail;          // bytes in front of the first star and behind the last; both all of it without a star

    explicit kept_rule(const access_rule *kept) : rule(kept) {
        size_t star = kept->pattern.find('*');
        head = std::min(star, kept->pattern.size());
        tail = star == std::string_view::npos ? head : kept->pattern.size() - kept->pattern.rfind('*') - 1;
    }
    bool has_star() const { return head < rule->pattern.size(); }
};

/// Whether some word is accepted by both.
bool meet(const kept_rule &a, const kept_rule &b) {
    std::string_view left = a.rule->pattern, right = b.rule->pattern;
    size_t head = std::min(a.head, b.head), tail = std::min(a.tail, b.tail);
    if (left.compare(0, head, right, 0, head) != 0 ||
        left.compare(left.size() - tail, tail, right, right.size() - tail, tail) != 0)
        return false;
    if (a.has_star() && b.has_star())
        return true;
    return a.has_star() ? wildmatch(left.data(), right.data()) != 0 : wildmatch(right.data(), left.data()) != 0;
}

struct difference {
    std::string id;
    const access_rule *was;
    const access_rule *is;
    std::string word;
};

struct proxy_comparison {
    const access_side &before;
    const access_side &after;
    const std::string &proxy;
    work_budget &budget;
    std::array<std::vector<access_rule>, 2> rules;
    std::array<std::vector<kept_rule>, 2> kept;
    pattern_automaton automaton;
    std::map<std::pair<uint32_t, uint32_t>, difference> differences; // by the places of the deciding rules
    std::map<std::pair<size_t, size_t>, bool> known_options;         // by line and map
    bool is_decided = true;

    void run();
    void drop_covered();
    void align();
    void search_partners(uint32_t was);
    void search_alone(size_t list, uint32_t place);
    void search_exact(size_t list, uint32_t place);

    const access_rule *rule_at(size_t list, uint32_t place) const {
        return place == NO_RULE ? nullptr : kept[list][place].rule;
    }
    const char *difference_of(const access_rule *was, const access_rule *is);
    void note(size_t list, uint32_t place, uint32_t other, const std::string &word);
    bool is_lacking(const access_rule &was, const access_rule &is);
    uint32_t first_aligned_behind(size_t list, uint32_t place) const;
};

// Whether a permit rule's options are not what the deciding map gives.
bool proxy_comparison::is_lacking(const access_rule &was, const access_rule &is) {
    if (was.map != 0 || was.origin == class_origin::map || was.tail.empty())
        return false;
    auto [known, added] = known_options.try_emplace({was.source, is.source}, false);
    if (added)
        known->second = !has_options(after, after.maps[is.source], proxy, was.tail);
    return known->second;
}

// The name of the finding that a host decided by these two rules is, or null.
const char *proxy_comparison::difference_of(const access_rule *was, const access_rule *is) {
    bool was_permitted = was && was->permit;
    bool is_permitted = is && is->permit;
    if (was_permitted != is_permitted)
        return is_permitted ? "wider" : "narrower";
    return was_permitted && is_lacking(*was, *is) ? "options" : nullptr;
}

void proxy_comparison::note(size_t list, uint32_t place, uint32_t other, const std::string &word) {
    uint32_t was = list == 0 ? place : other, is = list == 0 ? other : place;
    if (const char *id = difference_of(rule_at(0, was), rule_at(1, is)))
        differences.try_emplace({was, is}, difference{id, rule_at(0, was), rule_at(1, is), word});
}

void proxy_comparison::drop_covered() {
    pattern_automaton whole;
    std::array<std::vector<uint32_t>, 2> ends;
    for (size_t list = 0; list < 2; list++)
        for (uint32_t i = 0; i < rules[list].size(); i++)
            ends[list].push_back(whole.add(rules[list][i].pattern, list, i));
    whole.finish();
    for (size_t list = 0; list < 2; list++)
        for (uint32_t i = 0; i < rules[list].size(); i++) {
            const access_rule &rule = rules[list][i];
            bool is_first = whole.nodes[ends[list][i]].rule[list] == i;
            if (is_first && !rule.pattern.empty() && !whole.is_covered(rule.pattern, list, i, budget))
                kept[list].emplace_back(&rule);
        }
}

// Partners: the longest sequence of equal patterns that stand in the same order on both sides. No pattern stands twice
// on one side.
void proxy_comparison::align() {
    for (size_t list = 0; list < 2; list++)
        for (uint32_t i = 0; i < kept[list].size(); i++)
            kept[list][i].end = automaton.add(kept[list][i].rule->pattern, list, i);
    automaton.finish();
    std::vector<uint32_t> ends; // for each length, the rule that ends a sequence of that length earliest
    std::vector<uint32_t> in_front(kept[0].size(), NO_RULE);
    auto twin = [&](uint32_t i) { return automaton.nodes[kept[0][i].end].rule[1]; };
    for (uint32_t i = 0; i < kept[0].size(); i++) {
        if (twin(i) == NO_RULE)
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

// The first aligned rule of the other list whose partner is behind the place.
uint32_t proxy_comparison::first_aligned_behind(size_t list, uint32_t place) const {
    for (size_t i = place; i < kept[list].size(); i++)
        if (kept[list][i].partner != NO_RULE)
            return kept[list][i].partner;
    return NO_RULE;
}

// What decides about the one word of a rule without a star.
void proxy_comparison::search_exact(size_t list, uint32_t place) {
    word_search search;
    search.list = list;
    search.rule = place;
    search.end = kept[list][place].end;
    search.found = [&](const std::string &word, uint32_t other) {
        note(list, place, other, word);
        return true;
    };
    is_decided = search_words(automaton, search, budget) && is_decided;
}

/// An automaton of the rules that can meet one rule: of its own list the earlier ones, of the other those before a
/// place.
struct narrowed {
    pattern_automaton automaton;
    uint32_t end = 0;

    narrowed(const std::array<std::vector<kept_rule>, 2> &kept, size_t list, uint32_t place, uint32_t other_limit,
             const std::vector<bool> &wanted, work_budget &budget) {
        const kept_rule &rule = kept[list][place];
        end = automaton.add(rule.rule->pattern, list, place);
        for (uint32_t i = 0; i < place; i++)
            if (meet(rule, kept[list][i]))
                automaton.add(kept[list][i].rule->pattern, list, i);
        for (uint32_t i = 0; i < kept[1 - list].size() && i < other_limit; i++)
            if (meet(rule, kept[1 - list][i])) {
                uint32_t at = automaton.add(kept[1 - list][i].rule->pattern, 1 - list, i);
                if (!wanted.empty() && wanted[i])
                    automaton.nodes[at].wanted = i;
            }
        automaton.finish();
        budget.take(place + kept[1 - list].size() + automaton.nodes.size());
    }
};

// Partners that decide differently: whether they do decide, both of them, about some word.
void proxy_comparison::search_partners(uint32_t was) {
    uint32_t is = kept[0][was].partner;
    word_search search;
    search.rule = was;
    search.end = kept[0][was].end;
    search.other_limit = is + 1;
    search.found = [&](const std::string &word, uint32_t other) {
        if (other == is)
            note(0, was, is, word);
        return other == is;
    };
    work_budget quick{std::min(QUICK_STEPS, budget.left)};
    uint64_t given = quick.left;
    bool is_done = search_words(automaton, search, quick);
    budget.take(given - quick.left);
    if (is_done)
        return;
    narrowed few(kept, 0, was, is + 1, {}, budget);
    search.end = few.end;
    is_decided = search_words(few.automaton, search, budget) && is_decided;
}

// A rule without a partner: all rules of the other side that decide about some of its words.
void proxy_comparison::search_alone(size_t list, uint32_t place) {
    if (!kept[list][place].has_star()) {
        search_exact(list, place);
        return;
    }
    // Pairs with one that has no star are found at its one word, all others by the side that has more rules without a
    // partner, so that the words of few are not searched for many.
    auto count_alone = [this](size_t of) {
        return std::count_if(kept[of].begin(), kept[of].end(),
                             [](const kept_rule &each) { return each.partner == NO_RULE; });
    };
    size_t mine = static_cast<size_t>(count_alone(list)), theirs = static_cast<size_t>(count_alone(1 - list));
    bool takes_alone = mine > theirs || (mine == theirs && list == 0);
    uint32_t behind = first_aligned_behind(list, place);

    const access_rule *rule = rule_at(list, place);
    auto differs = [&](const access_rule *other) {
        return (list == 0 ? difference_of(rule, other) : difference_of(other, rule)) != nullptr;
    };
    std::vector<bool> wanted(kept[1 - list].size());
    size_t left = 0;
    for (uint32_t i = 0; i < wanted.size(); i++) {
        const kept_rule &other = kept[1 - list][i];
        bool is_mine = other.partner == NO_RULE ? takes_alone && other.has_star() : i >= behind;
        wanted[i] = is_mine && meet(kept[list][place], other) && differs(other.rule);
        left += wanted[i] ? 1 : 0;
    }
    budget.take(wanted.size());
    word_search search;
    search.list = list;
    search.rule = place;
    search.wants_none = differs(nullptr);
    search.wants_all = false;
    left += search.wants_none ? 1 : 0;
    if (left == 0)
        return;
    search.found = [&](const std::string &word, uint32_t other) {
        if (other == NO_RULE ? !search.wants_none : !wanted[other])
            return false;
        note(list, place, other, word);
        return --left == 0;
    };
    narrowed few(kept, list, place, NO_RULE, wanted, budget);
    search.end = few.end;
    is_decided = search_words(few.automaton, search, budget) && is_decided;
}

void proxy_comparison::run() {
    is_decided = budget.left != 0;
    if (!is_decided)
        return;
    rules = {rules_of(before, proxy), rules_of(after, proxy)};
    size_t bytes = 0;
    for (const auto &list : rules)
        for (const access_rule &rule : list)
            bytes += rule.pattern.size() + 1;
    is_decided = bytes <= MOST_BYTES && budget.take(16 * bytes); // what reading and dropping come to, or nearly
    if (!is_decided)
        return;
    drop_covered();
    align();
    for (uint32_t i = 0; i < kept[0].size() && is_decided; i++) {
        uint32_t partner = kept[0][i].partner;
        if (partner == NO_RULE)
            search_alone(0, i);
        else if (difference_of(kept[0][i].rule, kept[1][partner].rule))
            search_partners(i);
    }
    for (uint32_t i = 0; i < kept[1].size() && is_decided; i++)
        if (kept[1][i].partner == NO_RULE)
            search_alone(1, i);
}

std::string text_of(const decision &made) {
    std::string text = made.decision == "permit" ? "permitted" : made.decision == "deny" ? "denied" : made.decision;
    if (made.line == 0)
        return text;
    text += " by " + made.pattern + " (" + made.file + ":" + std::to_string(made.line);
    return text + (made.map != 0 ? ", map " + std::to_string(made.map) : "") + ")";
}

/// Causes as the upgrade's own result gives them: what it does not say came into the output afterwards.
struct cause_teller {
    const access_causes &known;
    cause_finder finder; // of the result that the upgrade writes
    std::vector<access_rule> rules{};
    size_t trials = MOST_TRIALS;

    cause_teller(const access_side &was, const access_side &is, const access_causes &causes)
        : known(causes), finder(was, causes.written ? *causes.written : is, causes) {}

    void begin_proxy(const proxy_comparison &made) {
        rules = known.written ? rules_of(*known.written, made.proxy) : made.rules[1];
        finder.begin_proxy(made.proxy, made.rules[0], rules);
    }
    std::string cause(const difference &told, const std::string &proxy);
};

std::string cause_teller::cause(const difference &told, const std::string &proxy) {
    if (!known.written)
        return told.id == "options" ? "" : finder.cause(told.was, told.is);
    auto decides = [&](const access_rule &rule) { return wildmatch(rule.pattern.data(), told.word.c_str()) != 0; };
    if (trials < rules.size())
        return "";
    trials -= rules.size();
    auto found = std::find_if(rules.begin(), rules.end(), decides);
    const access_rule *written = found == rules.end() ? nullptr : &*found;
    bool permits = written && written->permit;
    bool lacks = told.id == "options" && permits &&
                 !has_options(*known.written, known.written->maps[written->source], proxy, told.was->tail);
    if (permits != (told.is && told.is->permit) || (told.id == "options" && !lacks))
        return known.changed + ": the upgrade itself " +
               (permits   ? "permits"
                : written ? "denies"
                          : "refuses") +
               " it" + (told.id == "options" ? " with all options" : "");
    return told.id == "options" ? "" : finder.cause(told.was, written);
}

/// Turns the differences of a proxy into findings: one for each rule's line and map, with the shortest host.
void add_findings(const proxy_comparison &made, cause_teller &causes, review_data &data) {
    struct place {
        size_t id, was, is;
        std::string cause;
        bool operator<(const place &other) const {
            return std::tie(id, was, is, cause) < std::tie(other.id, other.was, other.is, other.cause);
        }
    };
    constexpr std::string_view ids[] = {"wider", "narrower", "options"}; // worst first
    std::map<place, finding> folded;
    for (const auto &[places, each] : made.differences) {
        place at{static_cast<size_t>(std::find(std::begin(ids), std::end(ids), each.id) - std::begin(ids)),
                 each.was ? each.was->source : SIZE_MAX, each.is ? each.is->source : SIZE_MAX,
                 causes.cause(each, made.proxy)};
        finding &found = folded[at];
        found.count++;
        if (found.count > 1 && found.host.size() <= each.word.size())
            continue;
        found.id = each.id;
        found.proxy = made.proxy;
        found.host = each.word;
        found.cause = at.cause;
        found.has_sides = true;
        found.before = decision_of(made.before, each.was);
        found.after = decision_of(made.after, each.is);
        found.file = found.after.line != 0 ? found.after.file : found.before.file;
        found.line = found.after.line != 0 ? found.after.line : found.before.line;
    }
    for (auto &[at, found] : folded) {
        found.text = text_of(found.before) + " before, " + text_of(found.after) + " now";
        if (at.id == 2)
            found.text += ", without all of its options";
        data.findings.push_back(std::move(found));
    }
}

} // namespace

void compare_access(const access_side &before, const access_side &after, const access_causes &causes,
                    const access_options &options, review_data &data) {
    cause_teller teller(before, after, causes);
    std::vector<std::string> proxies = before.proxies;
    std::copy_if(after.proxies.begin(), after.proxies.end(), std::back_inserter(proxies),
                 [&](const std::string &proxy) { return !before.knows(proxy); });
    uint64_t left = options.work_limit;
    for (const std::string &proxy : proxies) {
        if (!options.only_proxy.empty() && proxy != options.only_proxy)
            continue;
        if (options.progress)
            options.progress(proxy);
        // A proxy that can't be decided leaves the others half of what is left.
        work_budget budget{left / 2};
        uint64_t given = budget.left;
        proxy_comparison made{before, after, proxy, budget, {}, {}, {}, {}, {}, true};
        made.run();
        left -= given - budget.left;
        if (!made.differences.empty())
            teller.begin_proxy(made);
        add_findings(made, teller, data);
        access_row row;
        row.proxy = proxy;
        row.before_rules = made.rules[0].size();
        row.after_maps = maps_of(after, proxy).size();
        row.verdict = made.differences.empty() ? "same" : "different";
        if (!made.is_decided) {
            row.verdict = "not decided";
            finding open;
            open.id = "not-decided";
            open.proxy = proxy;
            open.text = "its patterns take more steps than are taken; some hosts may be treated otherwise unseen";
            data.findings.push_back(std::move(open));
        }
        data.access.push_back(std::move(row));
    }
}
