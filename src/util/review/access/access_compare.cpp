// Findings of what a comparison came to, and their causes.
#include "access/access_compare.h"
#include "access/proxy_comparison.h"
#include "frag_tools.h"

#include <algorithm>
#include <set>

namespace {

std::string map_text(const access_map &map) {
    return (map.permit ? "P\n" : "D\n") + map.source + '\n' + map.proxy + '\n' + map.policy;
}

/// Turns the differences of a proxy into findings: one for each rule's line and map, with the shortest host.
struct finding_maker {
    using spellings = std::set<std::pair<std::string, std::string_view>>; // patterns, in lower case and as they are

    proxy_comparison &made;
    const access_side &own;                    // what the upgrade writes, without maps where that is what stands there
    const std::set<std::string> &initial_maps; // those of the initial environment that were not there before
    review_data &data;
    std::array<spellings, 2> spelled{};
    std::vector<access_rule> own_rules{};
    pattern_automaton own_automaton{};

    bool is_spelled_otherwise(const access_rule *rule, const spellings &others) const {
        std::pair<std::string, std::string_view> key(rule ? lowercase(rule->pattern) : "", "");
        auto like = others.lower_bound(key);
        return rule && like != others.end() && like->first == key.first && !others.count({key.first, rule->pattern});
    }

    /// Empty if none is known.
    std::string cause(const difference &from) const {
        if (own.conf) {
            work_budget enough{UINT64_MAX};
            uint32_t at = own_automaton.accepted(own_automaton.walk(from.word, {NO_RULE, NO_RULE}, enough), 0);
            bool permits = at != NO_RULE && own_rules[at].permit;
            if (permits != (from.is && from.is->permit) ||
                (from.id == "options" && lacking_options(options_of(made.before, *from.was, made.proxy),
                                                         options_of(own, own_rules[at], made.proxy))
                                             .empty()))
                return "the output is not the upgrade's own";
        }
        if (from.is && initial_maps.count(map_text(made.after.maps[from.is->source])) != 0)
            return "by the initial environment";
        if (from.was && from.was->unmarked && from.is && from.was->pattern == from.is->pattern && !from.is->permit)
            return "an unmarked rule that joined a deny";
        bool by_case = is_spelled_otherwise(from.was, spelled[1]) || is_spelled_otherwise(from.is, spelled[0]);
        return by_case ? "equal but for the case of letters" : "";
    }

    void add(const difference &from, const std::string &cause, long count) const {
        finding found;
        found.id = from.id;
        found.proxy = made.proxy;
        found.host = made.kept[0].size() + made.kept[1].size() == 2 ? "any host" : from.word;
        found.cause = cause;
        found.count = count;
        found.has_sides = true;
        found.before = decision_of(made.before, from.was);
        found.after = decision_of(made.after, from.is);
        const decision &told = found.after.line != 0 ? found.after : found.before;
        found.at = {told.file, told.line};
        found.text = decision_text(found.before) + " before, " + decision_text(found.after) + " now";
        if (from.id == "options")
            found.text += ", " + made.lacking(*from.was, *from.is);
        const Frag *proxy = made.after.conf ? made.after.conf->record("def_proxy", made.proxy) : nullptr;
        const char *state = proxy ? fval(const_cast<FragList>(&proxy->child), "state") : nullptr;
        if (from.id != "narrower" && state && !is_on(state))
            found.text += "; the proxy is off";
        data.findings.push_back(std::move(found));
    }

    void add_all() {
        if (made.differences.empty())
            return;
        for (size_t list = 0; list < 2; list++)
            for (const access_rule &rule : made.rules[list])
                spelled[list].emplace(lowercase(rule.pattern), rule.pattern);
        own_rules = rules_of(own, made.proxy);
        for (uint32_t i = 0; i < own_rules.size(); i++)
            own_automaton.add(own_rules[i].pattern, 0, i);
        own_automaton.finish();
        constexpr std::string_view ids[] = {"wider", "narrower", "options"}; // worst first
        using folded_place = std::tuple<size_t, size_t, size_t, size_t, std::string>;
        std::map<folded_place, std::pair<const difference *, long>> folded; // the shortest, and how many there are
        for (const auto &[places, each] : made.differences) {
            size_t id = static_cast<size_t>(std::find(std::begin(ids), std::end(ids), each.id) - std::begin(ids));
            auto &[shortest, count] =
                folded[{id, each.was ? each.was->table : 0, each.was ? each.was->source : SIZE_MAX,
                        each.is ? each.is->source : SIZE_MAX, cause(each)}];
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
        if (options.progress)
            options.progress(proxy);
        // A proxy that can't be decided leaves the others half of what is left.
        uint64_t given = is_alone ? left : left / 2;
        work_budget budget{given};
        proxy_comparison made{before, after, proxy, budget};
        made.run();
        left -= given - budget.left;
        finding_maker{made, own, initial_maps, data}.add_all();
        verdict found = !made.is_decided           ? verdict::not_decided
                        : made.differences.empty() ? verdict::same
                                                   : verdict::different;
        data.access.push_back({proxy, found, made.rules[0].size(), maps_for(after, proxy).size()});
        if (!made.is_decided) {
            finding &open =
                tell(data, "not-decided",
                     "its patterns take more steps than are taken; some hosts may be treated otherwise unseen");
            open.proxy = proxy;
            open.text += is_alone ? "" : "; more are taken for it alone: --proxy " + proxy;
        }
    }
}

rule_partners align_rules(const access_side &before, const access_side &after, const std::string &proxy) {
    work_budget budget{access_options().work_limit};
    proxy_comparison made{before, after, proxy, budget};
    rule_partners partners;
    if (!made.read())
        return partners;
    made.align(true);
    for (const kept_rule &kept : made.kept[0])
        if (kept.partner != NO_RULE)
            partners.pairs.emplace_back(kept.rule - made.rules[0].data(),
                                        made.kept[1][kept.partner].rule - made.rules[1].data());
    partners.before = std::move(made.rules[0]);
    partners.after = std::move(made.rules[1]);
    return partners;
}
