// Why a line has no place of its own: another line has it, or a rule of the release takes it away.
#include "frag_tools.h"
#include "lines/accounting.h"
#include "nupgrade.h"
#include "upgrade.h"

#include <algorithm>
#include <cstring>
#include <fmt/ranges.h>
#include <set>

namespace {

constexpr size_t DEPTH_LIMIT = 180; // bytes of key in front of a name whose children are written

/// When a rule holds for a line.
enum : unsigned {
    ALWAYS = 0,
    FROM_40 = 1,
    NOT_55 = 2,
    NUMBERED = 4,   // the result is
    TABLES = 8,     // they decide
    LOGIN = 16,     // the line is the state of a service that network login switches on, and an input does
    SERVED = 32,    // the line is that of a service of the platform
    REMOVED = 64,   // its file is imported, or comes ahead of an import
    UNREAD = 128,   // the file is passed over
    SERVICES = 256, // are those of the platform that saves them by themselves
    OLDER = 512,    // its file comes ahead of the initial environment
    MUST = 1024,    // what stands in the result all the same is told
    AHEAD = 2048,   // it comes ahead of a table
    ANEW = 4096     // of the list of all interfaces, it is no field of one that is in no other list
};

/// What a numbered save makes anew with all that is below it.
const char *const renumbered[] = {"map_num", "sroute_num", "dest_num", "policy_num", nullptr};

/// Rules that take lines of configurations away: patterns of keys, or a list of the release whose keys go with all that
/// is below them; when they hold, and what they say.
const struct {
    const char *key;
    const char *const *names; ///< behind the key; null for none
    unsigned when;
    const char *reason;
} reason_rows[] = {
    {"*", nullptr, UNREAD, "of a configuration of 5.5 nothing but the first file is merged"},
    {"def_proxy_*", nullptr, REMOVED | MUST, "-e removes all proxies that are there"},
    {"cust_proxy_*", nullptr, REMOVED, "-e removes all proxies that are there"},
    {"policy_*", nullptr, REMOVED | MUST, "-e removes all policies that are there"},
    {"map_*", nullptr, REMOVED | MUST, "-e removes all maps that are there"},
    {"proxy_*", nullptr, REMOVED | SERVED, "a service of 4.1, whose proxy goes with all others"},
    {"version_firewall", nullptr, NOT_55, "the release is stamped anew"},
    {"version_upgraded", nullptr, NOT_55, "the release is stamped anew"},
    {"version_moatwall.conf", nullptr, ALWAYS, "the layout is stamped anew"},
    {"map", nullptr, ALWAYS, "maps together have no value"},
    {"map_#*_tag*", nullptr, TABLES | AHEAD, "it is for the translation of tables alone"},
    {"def_proxy_alerts_*", nullptr, TABLES | AHEAD, "nothing but enable is kept of alerts"},
    {"*trusted_networks", nullptr, TABLES | AHEAD, "a table takes the value away"},
    {"network_loginok", nullptr, MUST, "it goes before saving; enabled, it switches the logins on"},
    {"network_loginok_*", nullptr, ALWAYS, "it goes with network_loginok"},
    {"def_proxy_*_state", nullptr, LOGIN, "network_loginok switches it on"},
    {"def_proxy_global_name", nullptr, ALWAYS, "the proxy for all is saved as *"},
    {"def_proxy_sql-px_proxy-exec", nullptr, NOT_55 | OLDER | MUST,
     "its program is taken from the initial environment"},
    {"map_numrules", nullptr, NUMBERED, "the numbered layout has no such count"},
    {"nat_numrules", nullptr, NUMBERED, "counts are made anew"},
    {"", renumbered, NUMBERED, "counts are made anew"},
    {"pfedit_*_numrules", nullptr, NUMBERED, "counts are made anew"},
    {"netobj_list_*_element_#*_alias", nullptr, NUMBERED, "an alias is told by the list that it stands in"},
    {"netobj_list_all%5Finterfaces_*", nullptr, NUMBERED | ANEW, "the list of all interfaces is made anew"},
    {"proxy_*", nullptr, NUMBERED | SERVICES | SERVED, "the services of 4.1 follow their proxies"},
    {"", del_55_keys, NOT_55 | MUST, "release 5.5 drops it"},
    {"def_proxy_", del_55_proxies, NOT_55 | MUST, "the new release has no such proxy"},
    {"def_proxy_", del_50_proxies, FROM_40 | MUST, "the new release has no such proxy"},
    {"def_proxy_", del_netperm_proxies, TABLES, "a table takes this proxy away"},
};

/// The reason of the first row for the key whose conditions hold and that has all bits of `asked`; null if there is
/// none.
const char *row_reason(const std::string &key, unsigned holds, unsigned asked) {
    for (const auto &row : reason_rows) {
        if ((holds & row.when) != row.when || (row.when & asked) != asked)
            continue;
        if (!row.names && covers(row.key, key))
            return row.reason;
        for (const char *const *name = row.names; name && *name; name++)
            if (begins(key + "_", std::string(row.key) + *name + "_"))
                return row.reason;
    }
    return nullptr;
}

bool is_below(const Frag *frag, const char *family) { return frag && is_named(at_depth(frag, 0), family); }

// The depth at which its entry stands.
size_t entry_depth(const account_line &line) {
    return static_cast<size_t>(std::count(line.key.begin(), std::find(line.key.begin(), line.key.end(), '#'), '_'));
}

// Whether a line can't win in an entry of numbered records: it is of the same file and says something else in the
// entry, or is of another entry there, or gives an address, which leads to the entry that has it.
bool is_of_another(const account_line &winner, const account_line &line) {
    if (!is_numbered(line) || winner.input != line.input)
        return false;
    if (!is_numbered(winner))
        return begins(winner.key, "ip_") && is_named(line.said->node, "addr");
    size_t depth = entry_depth(line);
    const Frag *entry = at_depth(line.said->node, depth), *other = at_depth(winner.said->node, depth);
    return entry && other &&
           (entry == other ? winner.said->node != entry && winner.said->key != line.said->key
                           : entry->parent == other->parent);
}

/// The maps that stand while a file is merged, the first of those that are the same.
struct standing_maps {
    const configuration &file;
    std::unordered_map<std::string, const Frag *> known{};

    // What a map says up to its first missing value, one value more each time: five texts of a map that lacks none. A
    // policy is the same by the config sets that it lists in the file, whatever its name.
    std::vector<std::string> texts(const Frag *map) const {
        std::vector<std::string> all = {""};
        for (const char *field : {"pd", "src", "proxy", "policy"}) {
            const Frag *value = find_named(map->child, field);
            if (!value || !value->value)
                break;
            std::string said = value->value;
            std::set<std::string> sets;
            if (is_named(value, "policy"))
                for (const Frag *entry : configuration::children(file.record("policy", said), "proxy"))
                    sets.insert(entry->name);
            all.push_back(all.back() + (sets.empty() ? said : fmt::format("\2{}", fmt::join(sets, "\n"))) + '\n');
        }
        return all;
    }

    void add(const Frag *map) {
        std::vector<std::string> said = texts(map);
        for (const std::string &text : said)
            known.emplace(text, map);
        if (said.size() < 5)
            known.emplace('\1' + said.back(), map);
    }

    // Two maps are the same up to what the first or the second lacks.
    const Frag *find(const Frag *map) const {
        std::vector<std::string> said = texts(map), asked = {said.back()};
        for (const std::string &text : said)
            asked.push_back('\1' + text);
        for (const std::string &text : asked)
            if (auto found = known.find(text); found != known.end())
                return found->second;
        return nullptr;
    }
};

/// The maps that a merge leaves out, since they are the same as one that stands. The first file that has any brings all
/// of its own, and an import removes what stands.
struct merged_maps {
    std::unordered_map<const Frag *, account_line *> winners{}; ///< the first lines of what stands, by what is left out

    merged_maps(accounting &all, result_places &own) {
        std::unordered_map<const Frag *, account_line *> first_lines;
        for (account_line &line : all.lines)
            if (is_map_line(line))
                first_lines.emplace(at_depth(line.said->node, 1), &line);
        std::vector<const Frag *> stand;
        std::set<const configuration *> merged = {nullptr}; // once more they bring nothing; nor does a table
        for (size_t i = all.last_import; i < all.in.command.steps.size(); i++) {
            const upgrade_step &step = all.in.command.steps[i];
            const account_input *input = strchr("nm", step.letter) ? all.input_of(step) : nullptr;
            if (!input || input->unread)
                continue;
            for (const Frag *map : input->table ? own.conf.children("map") : std::vector<Frag *>())
                if (account_line *line = own.notes(map).from; line && !line->said) {
                    first_lines.emplace(map, line);
                    stand.push_back(map);
                }
            if (!merged.insert(input->conf).second)
                continue;
            standing_maps maps{*input->conf};
            bool is_first = stand.empty();
            for (const Frag *map : stand)
                maps.add(map);
            for (const Frag *map : input->conf->children("map"))
                if (const Frag *there = is_first ? nullptr : maps.find(map)) {
                    winners.emplace(map, first_lines[there]);
                } else {
                    maps.add(map);
                    stand.push_back(map);
                }
        }
    }

    // The first line of the map that stands in the way of a line's; null if there is none.
    account_line *winner(const account_line &line) const {
        auto found = winners.find(at_depth(line.said->node, 1));
        return found == winners.end() ? nullptr : found->second;
    }
};

/// What is asked of one candidate after the other.
struct reason_finder {
    accounting &all;
    result_places &own;
    merged_maps maps;
    const maprec *services; ///< of the platform
    std::unordered_map<std::string_view, account_line *>
        imported{}; ///< lines with a value in imported files, by their keys

    reason_finder(accounting &of, result_places &in) : all(of), own(in), maps(of, in), services(services_of(in.conf)) {
        for (account_line &line : all.lines)
            if (line.said && line.input->imported && !line.said->value.empty() && !line.is_removed())
                imported.insert_or_assign(line.said->key, &line);
    }

    // Whether the save keeps what the line says of an interface, since that is in no list but the one of all.
    bool is_kept(const account_line &line) const {
        if (!begins(line.key, "netobj_list_all%5Finterfaces_"))
            return false;
        const Frag *node = line.said->node, *element = at_depth(node, 4);
        std::string interface = configuration::value(element, "interface");
        return element && node->parent == element && node->value && !is_named(node, "location") &&
               !is_named(node, "interface") && !is_blanks(interface.c_str()) &&
               all.located.count(lowercase(interface)) == 0;
    }

    // The service whose state the line says; null if it says none.
    const maprec *service_of(const account_line &line) const {
        return begins(line.key, "proxy_") ? find_maprec(services, &maprec::service, line.key.c_str() + strlen("proxy_"))
                                          : nullptr;
    }

    unsigned conditions(const account_line &line) const {
        const account_input &input = *line.input;
        bool is_older = std::max(input.step, input.imported) < all.init_step && input.name != all.in.command.init_conf;
        const Frag *node = line.said->node;
        bool is_login_state = all.logs_in && node && is_named(node, "state") && node == at_depth(node, 3) &&
                              is_listed(login_services, clear_name(node->parent));
        int release = all.data.release;
        return (release >= 40 && release != 55 ? FROM_40 : 0U) | (release != 55 ? NOT_55 : 0U) |
               (all.in.command.numbered() ? NUMBERED : 0U) | (all.has_tables ? TABLES : 0U) |
               (is_login_state ? LOGIN : 0U) | (services == map_nt ? SERVICES : 0U) | (service_of(line) ? SERVED : 0U) |
               (input.removed ? REMOVED : 0U) | (input.unread ? UNREAD : 0U) | (is_older ? OLDER : 0U) |
               (input.translated ? AHEAD : 0U) | (is_kept(line) ? 0U : ANEW);
    }

    // What the release says of a key below a proxy.
    const char *proxy_reason(const account_line &line, unsigned holds) const {
        const Frag *top =
            begins(line.key, "def_proxy_") ? at_depth(line.said->node, 3) : nullptr; // of the proxy's keys
        if (!top)
            return "";
        if ((holds & NOT_55) && top == line.said->node && is_named(top, "proxy-exec") &&
            program_of(configuration::value(own.conf.record("def_proxy", shown_name(top->parent)), "proxy-type")))
            return "the release sets the program of this type of proxy";
        if (!(holds & FROM_40) || !is_named(top, "authenticate"))
            return "";
        const configuration *init = all.in.files.conf(all.in.command.init_conf, conf_layout::translated);
        return init && init->find(place_keys::path(top->parent).c_str())
                   ? "authentication is chosen anew where the initial environment has the proxy"
                   : "";
    }

    // What an import says of the flat keys of an address: they become an element, or nothing. Null if it is none of
    // them.
    const char *address_reason(const account_line &line, unsigned holds) const {
        auto [row, field] = find_address_key(line.key);
        if (!row || !(holds & REMOVED))
            return nullptr;
        const configuration &conf = *line.input->conf;
        const Frag *address = conf.find((std::string("ip_") + row->address).c_str());
        if (!address && strcmp(field, "netmask") != 0) // of these the mask alone goes
            return nullptr;
        if (is_placeholder(configuration::value(address, "")))
            return "without an address there is no element for it";
        if ((holds & NUMBERED) && is_blanks(conf.value((std::string("ip_") + row->interface).c_str()).c_str()))
            return NO_INTERFACE;
        return is_below(line.place, "ip") ? "an import makes an element of it" : nullptr;
    }

    // Whether it says of network login something else than the line that decides.
    bool is_other_login(const account_line &line) const {
        return line.key == "network_loginok" && all.login && !line.value().empty() &&
               line.value() != all.login->value();
    }

    const char *conf_reason(const account_line &line) const {
        if (!line.said)
            return "it names no key by itself";
        const std::string &key = line.key;
        unsigned holds = conditions(line);
        if (&line == all.login && !all.logs_in)
            return "it goes before saving, and no other network_loginok counts beside it";
        if (is_other_login(line))
            return "";
        if (const char *reason = row_reason(key, holds | MUST, 0))
            return reason;
        if (const char *reason = address_reason(line, holds))
            return reason;
        if (begins(key, "pfedit_") && line.said->value.find_first_not_of('+') == line.said->value.npos)
            return "a filter rule without fields is not saved";
        if ((holds & REMOVED) && covers("pfedit_*_*_*", line.said->key))
            return "an import takes filter rules by their texts alone";
        if (covers("pfedit_*_rule*_*", line.said->key))
            return "it is no field, and stays below the text of its rule";
        if (line.said->role == line_role::count)
            return "counts are made anew";
        if (line.said->role == line_role::dropped)
            return "it is half of a pair of name and value";
        size_t last = line.said->key.rfind('_'), before = last == 0 || last == line.said->key.npos ? 0 : last - 1;
        if (size_t front = line.said->key.rfind('_', before); front != line.said->key.npos && front + 1 >= DEPTH_LIMIT)
            return "its key is too deep to be saved";
        if (line.said->role == line_role::name && !own.conf.numbered)
            return "nothing is left of what it names";
        const Frag *bare = own.conf.numbered ? nullptr : own.conf.find(place_keys::path(line.said->node).c_str());
        if (bare && bare->value && bare->vlen == 0 && bare->child && begins(key, "def_proxy_"))
            return "a list stands in the place of its value";
        if (begins(key, "netobj_list_") && all.is_dropped(at_depth(line.said->node, 4)))
            return NO_INTERFACE;
        return proxy_reason(line, holds);
    }

    // Why a line can't stand in the result, though it does; empty if it can.
    const char *taken_away(const account_line &line) const {
        unsigned holds = conditions(line);
        if ((holds & LOGIN) && line.place && text_of(line.place) == "on")
            return ""; // network_loginok brings it back
        if (const char *reason = row_reason(line.key, holds | MUST, MUST))
            return reason;
        if (is_map_line(line) && maps.winner(line))
            return "a map that is the same stands there already";
        if ((holds & REMOVED) && line.key == "gui_client" && !line.said->value.empty() && is_below(line.place, "gui") &&
            line.input->conf->find("netobj_group_fw-admin"))
            return "an import makes an element of it";
        // A known service goes; on NT the states of proxies come back as services.
        const maprec *service = (holds & REMOVED) ? service_of(line) : nullptr;
        bool comes_back = service && (holds & SERVICES) && (holds & NUMBERED) &&
                          own.conf.find((std::string("def_proxy_") + service->proxy + "_state").c_str());
        if (service && !comes_back && !strchr(service->service, '_') && line.input->conf->find("def_proxy"))
            return "its state goes to its proxy, or nowhere";
        if (const char *reason = is_below(line.place, "ip") ? address_reason(line, holds) : nullptr)
            return reason;
        return is_named(line.said->node, "authenticate") ? proxy_reason(line, holds) : "";
    }

    // The line that has the place which this one would have.
    account_line *winner(const account_line &line) const {
        if (is_other_login(line))
            return all.login;
        std::vector<const Frag *> places = own.at(line.key);
        const Frag *frag = places.empty() ? nullptr : places.front();
        bool is_map = is_map_line(line);
        const Frag *under = frag || is_map ? nullptr : own.conf.find(all.saved_path(line.said->node).c_str());
        // Of a list in its place the value is not saved; whatever else stands below a key takes no value away.
        if (under && (is_numbered(line) || (under->child && begins(line.key, "def_proxy_"))))
            frag = under;
        // Whatever an import makes of a key, it is no longer what another file said by it.
        auto last = imported.find(line.said->key);
        account_line *by = last == imported.end() ? nullptr : last->second;
        if (frag) {
            account_line *there = own.notes(frag).from;
            // Of a numbered record, what came in one line, or a field of it.
            const Frag *entry = is_numbered(line) ? at_depth(frag, entry_depth(line)) : nullptr;
            for (const Frag *above = frag; entry && above != entry->parent; above = above->parent)
                for (account_line *each : {own.notes(above).from, own.notes(above).valued})
                    there = there && may_win(*there, line) ? there : each;
            return by && by->value() == text_of(frag) ? by : there && is_of_another(*there, line) ? nullptr : there;
        }
        if (by)
            return by;
        // A rule of a table that was repeated stands as a list, in the place of a value.
        const Frag *proxy = begins(line.key, "def_proxy_") ? at_depth(line.said->node, 2) : nullptr;
        if (auto filed = all.filed.proxies.find(proxy ? clear_name(proxy) : ""); filed != all.filed.proxies.end())
            if (auto rules = filed->second.find(line.said->node->name); rules != filed->second.end())
                return rules->second.begin()->second.line;
        // Of a policy that is there already nothing is merged.
        const Frag *policy = begins(line.key, "policy_") ? at_depth(line.said->node, 1) : nullptr;
        const Frag *there = policy ? own.conf.record("policy", shown_name(policy)) : nullptr;
        if (account_line *first = there ? own.notes(there).from : nullptr; first && first->input != line.input)
            return first;
        return is_map ? maps.winner(line) : nullptr;
    }

    // What is there wins, but for what the release forces and what an import brings.
    bool may_win(const account_line &other, const account_line &line) const {
        const account_input &by = *other.input, &of = *line.input;
        bool is_init = by.name == all.in.command.init_conf;
        const conf_line *forced = (is_init ? other : line).said;
        if (is_init != (of.name == all.in.command.init_conf) && all.is_forced(line) && forced && !forced->value.empty())
            return is_init;
        // An import replaces what is there; of its own lines the last counts.
        if (of.imported && !line.said->value.empty() && !is_numbered(line))
            return other.input == line.input ? other.line > line.line : by.imported > of.imported;
        return by.step <= of.step || by.imported > of.step;
    }
};

} // namespace

void find_reasons(accounting &all, result_places &own) {
    reason_finder finder(all, own);
    for (account_line &line : all.lines) {
        if (!line.candidate)
            continue;
        line.reason = line.by ? said_twice : line.input->table ? table_reason(all, line) : finder.conf_reason(line);
        account_line *by = line.reason.empty() && line.said ? finder.winner(line) : nullptr;
        if (by && by != &line && finder.may_win(*by, line))
            line.by = by;
    }
}

void check_standing(accounting &all, result_places &result) {
    reason_finder finder(all, result);
    std::unordered_set<const account_line *> repeated; // another line says it, too, and may
    for (const account_line &line : all.lines)
        if (line.by && !(line.said && line.said->node && *finder.taken_away(line)))
            repeated.insert(line.by);
    for (const account_line &line : all.lines) {
        // The layout makes names anew.
        bool is_own = line.place && line.said && line.said->role == line_role::setting && line.said->node->value &&
                      !line.candidate && repeated.count(&line) == 0 && !is_named(line.said->node, "name");
        const char *taken = is_own ? finder.taken_away(line) : "";
        if (*taken)
            all.tell_of(line, "unexplained", std::string("it stands in the result, and yet ") + taken);
    }
}
