// Who gets through now compared with before: two ordered lists of host patterns of each proxy, for all hosts at once.
//
// A rule whose words an earlier one accepts decides nothing and goes first. What is left of the two lists is aligned by
// equal patterns in equal order. A host whose deciding rules are both aligned is decided by partners: each partner
// accepts what the other accepts, and their order is the same on both sides. So a host can be treated otherwise only
// by partners that decide differently, or where at least one rule without a partner decides; and only below these the
// automaton is searched, for each of them by itself and in the direction of its shortest words.
#include "access/access.h"
#include "access/pattern_automaton.h"
#include "frag_tools.h"

#include <algorithm>
#include <map>
#include <set>
#include <tuple>

namespace {

constexpr size_t MOST_BYTES = size_t{1} << 22; // of the patterns of a proxy, one more for each

bool has_star(std::string_view pattern) { return pattern.find('*') != std::string_view::npos; }

/// False if surely no word is accepted by both: they differ in front of a star of either, or behind.
bool can_meet(std::string_view a, std::string_view b) {
    auto agree = [](auto begin, auto end, auto other, auto other_end) {
        auto same = [](char of_a, char of_b) { return of_a == of_b && of_a != '*'; };
        auto [at, at_other] = std::mismatch(begin, end, other, other_end, same);
        return at == end || at_other == other_end || *at == '*' || *at_other == '*';
    };
    return agree(a.begin(), a.end(), b.begin(), b.end()) && agree(a.rbegin(), a.rend(), b.rbegin(), b.rend());
}

/// The shortest word of a pattern.
std::string shortest_word(std::string_view pattern) {
    std::string word(pattern);
    word.erase(std::remove(word.begin(), word.end(), '*'), word.end());
    return word.empty() || (pattern.size() > 1 && pattern.substr(pattern.size() - 2) == "**") ? word + '0' : word;
}

/// The rules of one side, and last the refusal of whom no rule covers.
struct compared_list {
    std::vector<access_rule> rules{};
    std::vector<uint32_t> ends{};     // for each rule its node
    std::vector<uint32_t> partners{}; // for each rule that of the other list, or none
    std::vector<uint32_t> kept{};     // the rules that decide something
};

/// How a host is treated otherwise, worst first, and the names of the findings.
enum class change : uint8_t { wider, narrower, options, none };
constexpr const char *change_ids[] = {"wider", "narrower", "options"};

struct difference {
    change how;
    const access_rule &was, &is;
    std::string word; // the shortest that they decide
};

struct proxy_comparison {
    const access_side &before, &after;
    const std::string &proxy;
    work_budget budget;
    std::array<compared_list, 2> lists{};
    pattern_automaton automaton{};
    std::map<rule_pair, difference> differences{}; // by the deciding rules
    std::map<std::tuple<size_t, size_t, size_t>, std::string> known_options{};

    // The options that differ between the rule before and the rule after, in words. All rules of one line, and of one
    // map, have the same.
    const std::string &options_between(const access_rule &was, const access_rule &is) {
        auto [known, is_new] = known_options.try_emplace({was.table, was.source, is.source});
        if (is_new)
            known->second = changed_options(options_of(before, was, proxy), options_of(after, is, proxy),
                                            split_options(was.tail).policy.empty()); // a template can have more
        return known->second;
    }

    // Takes the rules of both sides but for those that decide nothing. False if there are too many.
    bool read() {
        size_t bytes = 0;
        for (size_t list = 0; list < 2; list++) {
            auto &[rules, ends, partners, kept] = lists[list];
            rules = rules_of(list == 0 ? before : after, proxy);
            rules.emplace_back().pattern = "*";
            for (const access_rule &rule : rules)
                bytes += rule.pattern.size() + 1;
            if (bytes > MOST_BYTES)
                return false;
            ends.resize(rules.size());
            partners.assign(rules.size(), NONE);
            for (uint32_t i = 0; i < rules.size(); i++) {
                if (rules[i].pattern.empty() || automaton.deciding(rules[i].pattern, budget)[list] != NONE)
                    continue;
                ends[i] = automaton.add(rules[i].pattern, list, i);
                if (automaton.nodes[ends[i]].rule[list] == i)
                    kept.push_back(i);
            }
        }
        return true;
    }

    // Makes partners of the longest sequence of equal patterns that stand in the same order on both sides. No pattern
    // is left twice on one side.
    void align() {
        std::map<uint32_t, uint32_t> last; // for each length, the twin and the rule that end such a sequence earliest
        std::vector<uint32_t> in_front(lists[0].ends.size(), NONE);
        auto twin = [&](uint32_t i) { return automaton.nodes[lists[0].ends[i]].rule[1]; };
        for (uint32_t i : lists[0].kept) {
            if (twin(i) == NONE)
                continue;
            auto at = last.lower_bound(twin(i));
            in_front[i] = at == last.begin() ? NONE : std::prev(at)->second;
            if (at != last.end())
                last.erase(at);
            last[twin(i)] = i;
        }
        for (uint32_t i = last.empty() ? NONE : last.rbegin()->second; i != NONE; i = in_front[i]) {
            lists[0].partners[i] = twin(i);
            lists[1].partners[twin(i)] = i;
        }
    }

    // A rule at a place of a list and one of the other list, by the lists.
    static rule_pair pair_of(size_t list, uint32_t place, uint32_t other) {
        return list == 0 ? rule_pair{place, other} : rule_pair{other, place};
    }

    // What becomes of a host that is decided by these two rules.
    change change_of(rule_pair rules) {
        const access_rule &was = lists[0].rules[rules[0]], &is = lists[1].rules[rules[1]];
        if (was.permit != is.permit)
            return is.permit ? change::wider : change::narrower;
        return was.permit && !options_between(was, is).empty() ? change::options : change::none;
    }

    void note(rule_pair rules, const std::string &word) {
        if (change how = change_of(rules); how != change::none)
            differences.try_emplace(rules, difference{how, lists[0].rules[rules[0]], lists[1].rules[rules[1]], word});
    }

    // Whether to look below the rule at that place of the list for words that the two decide. Those with a rule without
    // a partner are found at its one word if it has no star, or else by the side that has more rules, so that the words
    // of few are not searched for many. With a rule whose partner is earlier there are none.
    bool is_wanted(size_t list, uint32_t place, uint32_t other) {
        std::string_view pattern = lists[list].rules[place].pattern, that = lists[1 - list].rules[other].pattern;
        uint32_t its_partner = lists[1 - list].partners[other];
        bool takes_alone = (list == 1) == (lists[1].kept.size() > lists[0].kept.size());
        bool is_mine = its_partner == NONE ? takes_alone && has_star(that) : its_partner >= place;
        rule_pair rules = pair_of(list, place, other);
        return is_mine && can_meet(pattern, that) && change_of(rules) != change::none && differences.count(rules) == 0;
    }

    // Notes all rules of the other side that decide about some words that this one decides, as far as they are wanted.
    // False if the budget ended it.
    bool search(size_t list, uint32_t place) {
        const compared_list &own = lists[list], &others = lists[1 - list];
        std::string_view pattern = own.rules[place].pattern;
        std::string word = shortest_word(pattern);
        rule_pair deciding = automaton.deciding(word, budget);
        if (deciding[list] == place)
            note(deciding, word);
        if (!has_star(pattern))
            return true;
        uint32_t partner = own.partners[place];
        std::vector<bool> wanted; // up to the last
        for (uint32_t other : partner == NONE ? others.kept : std::vector<uint32_t>{partner})
            if (is_wanted(list, place, other)) {
                wanted.resize(other);
                wanted.push_back(true);
            }
        budget.take(others.kept.size());
        if (wanted.empty())
            return true;
        // An automaton of the rules that can meet this one: of its own list the earlier ones, of the other those up to
        // the last that is wanted.
        pattern_automaton few;
        uint32_t end = few.add(pattern, 0, place);
        for (size_t side : {list, 1 - list})
            for (uint32_t i : lists[side].kept)
                if (std::string_view that = lists[side].rules[i].pattern;
                    i < (side == list ? place : wanted.size()) && can_meet(pattern, that))
                    few.add(that, side == list ? 0 : 1, i);
        budget.take(place + wanted.size() + few.nodes.size());
        return find_words(few, end, std::move(wanted), budget,
                          [&](uint32_t other, const std::string &found) { note(pair_of(list, place, other), found); });
    }

    // Finds all differences. False if some may be left.
    bool run() {
        if (budget.left == 0 || !read())
            return false;
        align();
        for (size_t list = 0; list < 2; list++)
            for (uint32_t i : lists[list].kept)
                if (uint32_t partner = lists[list].partners[i];
                    partner == NONE || (list == 0 && change_of({i, partner}) != change::none))
                    if (!search(list, i))
                        return false;
        return budget.left != 0;
    }
};

std::string map_text(const access_map &map) {
    return (map.permit ? "P\n" : "D\n") + map.source + '\n' + map.proxy + '\n' + map.policy;
}

/// Turns the differences of a proxy into findings: one for each rule's line and map, with the shortest host.
struct finding_maker {
    using spellings = std::map<std::string, std::set<std::string_view>>; // patterns, by how they are in lower case

    proxy_comparison &made;
    const access_side &own;                    // what the upgrade writes, without maps where that is what stands there
    const std::set<std::string> &initial_maps; // those of the initial environment that were not there before
    review_data &data;
    std::array<spellings, 2> spelled{};
    // With what the upgrade writes, if that is known.
    proxy_comparison theirs{made.before, own, made.proxy, {access_options().work_limit}};

    /// Empty if none is known.
    std::string cause(const difference &from) {
        work_budget enough{UINT64_MAX};
        if (!theirs.lists[1].kept.empty() && theirs.change_of(theirs.automaton.deciding(from.word, enough)) != from.how)
            return "the output is not the upgrade's own";
        if (from.is.is_map && initial_maps.count(map_text(made.after.maps[from.is.source])) != 0)
            return "by the initial environment";
        if (from.was.unmarked && from.is.is_map && from.was.pattern == from.is.pattern && !from.is.permit)
            return "an unmarked rule that joined a deny";
        for (const auto &[rule, others] : {std::pair(&from.was, &spelled[1]), {&from.is, &spelled[0]}})
            if (auto alike = others->find(lowercase(rule->pattern));
                alike != others->end() && alike->second.count(rule->pattern) == 0)
                return "equal but for the case of letters";
        return "";
    }

    void add(const difference &from, const std::string &cause, long count) const {
        finding &found = tell_change(data, change_ids[static_cast<size_t>(from.how)],
                                     decision_of(made.before, from.was), decision_of(made.after, from.is));
        if (from.how == change::options)
            found.text += ", " + made.options_between(from.was, from.is);
        std::string state = configuration::value(made.after.conf->record("def_proxy", made.proxy), "state");
        if (from.how != change::narrower && !state.empty() && !says_yes(state))
            found.text += "; the proxy is off";
        found.proxy = made.proxy;
        found.host = made.lists[0].kept.size() + made.lists[1].kept.size() == 2 ? "any host" : from.word;
        found.cause = cause;
        found.count = count;
    }

    void add_all() {
        if (made.differences.empty())
            return;
        for (size_t list = 0; list < 2; list++)
            for (const access_rule &rule : made.lists[list].rules)
                spelled[list][lowercase(rule.pattern)].insert(rule.pattern);
        if (own.conf)
            theirs.read();
        using folded_place = std::tuple<change, size_t, size_t, size_t, std::string>;
        std::map<folded_place, std::pair<const difference *, long>> folded; // the shortest, and how many there are
        for (const auto &[places, each] : made.differences) {
            auto &[shortest, count] = folded[{each.how, each.was.table, each.was.source, each.is.source, cause(each)}];
            if (count++ == 0 || each.word.size() < shortest->word.size())
                shortest = &each;
        }
        for (const auto &[at, fold] : folded)
            add(*fold.first, std::get<4>(at), fold.second);
    }
};

} // namespace

void compare_access(const access_side &before, const access_side &after, const access_options &options,
                    review_data &data) {
    access_side own, initial;
    if (options.own_result)
        own.set_maps(*options.own_result);
    if (options.initial_environment)
        initial.set_maps(*options.initial_environment);
    std::set<std::string> initial_maps;
    for (const access_map &map : initial.maps)
        initial_maps.insert(map_text(map));
    for (const access_map &map : before.maps)
        initial_maps.erase(map_text(map));
    std::vector<std::string> proxies = before.proxies;
    std::copy_if(after.proxies.begin(), after.proxies.end(), std::back_inserter(proxies),
                 [&](const std::string &proxy) { return !before.knows(proxy); });
    uint64_t left = options.work_limit;
    bool is_alone = !options.only_proxy.empty();
    for (const std::string &proxy : proxies) {
        if (is_alone && proxy != options.only_proxy)
            continue;
        options.progress("comparing who gets through " + proxy);
        // A proxy that can't be decided leaves the others half of what is left.
        uint64_t given = is_alone ? left : left / 2;
        proxy_comparison made{before, after, proxy, {given}};
        bool is_decided = made.run();
        left -= given - made.budget.left;
        finding_maker{made, own, initial_maps, data}.add_all();
        verdict found = !is_decided                ? verdict::not_decided
                        : made.differences.empty() ? verdict::same
                                                   : verdict::different;
        data.access.push_back(
            {proxy, found, std::max<size_t>(made.lists[0].rules.size(), 1) - 1, maps_for(after, proxy).size()});
        if (!is_decided) {
            std::string alone = is_alone ? "" : "; more are taken for it alone: --proxy " + proxy;
            tell(data, "not-decided",
                 "its patterns take more steps than are taken; some hosts may be treated otherwise unseen" + alone)
                .proxy = proxy;
        }
    }
}
