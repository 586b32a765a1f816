// The accounting as a sequence of steps, the lines that it is about, and what is told of them.
#include "frag_tools.h"
#include "lines/accounting.h"
#include "upgrade.h"

#include <algorithm>
#include <fmt/format.h>
#include <set>
#include <utility>

using fmt::format;

namespace {

void collect_inputs(accounting &all) {
    size_t merges = 0;
    for (size_t i = 0; i < all.in.command.steps.size(); i++) {
        const upgrade_step &step = all.in.command.steps[i];
        bool is_table = step.letter == 'n', is_import = step.letter == 'e';
        if (!is_table && !is_import && step.letter != 'm')
            continue;
        for (account_input &ahead : all.inputs) {
            ahead.translated = ahead.translated || is_table;
            ahead.removed = ahead.removed || is_import;
        }
        account_input *known = all.input_of(step);
        account_input &input = known ? *known : all.inputs.emplace_back();
        if (!known)
            input = {step.argument, i + 1, is_table ? all.in.files.table(step.argument) : nullptr};
        merges += step.letter == 'm';
        bool is_first = is_import || (!is_table && merges == 1);
        bool is_read = all.data.release < 40 || (all.data.release != 55 && !is_table) || is_first;
        input.unread = input.unread && !is_read;
        input.imported = is_import ? i + 1 : input.imported;
        all.last_import = is_import ? i + 1 : all.last_import;
        input.removed = is_read ? is_import : input.removed;
        all.init_step = step.letter == 'm' && merges == 2 ? i + 1 : all.init_step;
        // Only an import translates a file.
        conf_layout layout = input.imported ? conf_layout::translated : conf_layout::merged;
        input.conf = is_table ? nullptr : all.in.files.conf(step.argument, layout);
    }
}

void collect_numbers(accounting &all) {
    std::map<std::string, std::set<long>> numbers;
    auto collect = [&](const Frag *list) {
        std::set<long> unused, &of_list = list ? numbers[place_keys::path(list)] : unused;
        const Frag *owner = at_depth(list, 2);
        for (const Frag *each : configuration::children(list, ""))
            if (bool has_other_list = owner && is_location(owner) && says_yes(all.merged_value(each, "alias"));
                is_digit(*each->name) && !all.is_dropped(each) && !has_other_list)
                of_list.insert(strtol(each->name, nullptr, 10));
    };
    for (const account_input &input : all.inputs) {
        if (!input.conf || input.unread)
            continue;
        for (const char *const *family = numbered_families; *family; family++)
            collect(input.conf->find(*family));
        for (const char *family : {"netobj_list", "netobj_group"})
            for (const Frag *record : input.conf->children(family))
                for (const char *entries : {"element", "member"})
                    collect(find_named(record->child, entries));
    }
    for (const auto &[list, of_list] : numbers)
        all.numbers[list].assign(of_list.begin(), of_list.end());
}

void collect_located(accounting &all) {
    for (const char *list : {"Inside", "Outside", "Service"})
        for (const Frag *each : all.in.own.children(format("netobj_list_{}_element", list).c_str()))
            if (std::string interface = configuration::value(each, "interface");
                !is_blanks(interface.c_str()) && !says_yes(configuration::value(each, "alias"))) {
                std::vector<const Frag *> &there = all.located[lowercase(interface)];
                if (there.empty() || there[0]->parent == each->parent) // not what a list ahead has
                    there.push_back(each);
            }
}

// Another place that a line can have.
std::string other_key(const accounting &all, const account_line &line) {
    const account_input &input = *line.input;
    std::string_view said = line.said->key;
    // A rule's text that is merged as it is, is read again as a rule of the numbered layout.
    if (covers("pfedit_*_rule*", said) && !input.conf->numbered && all.in.command.numbered())
        return format("{}#{}\n", said.substr(0, said.find("_rule") + 1), filter_text(std::string(line.said->value)));
    // Without its count a numbered config set becomes one of a proxy of that name.
    if (constexpr std::string_view owner = "cust_proxy_"; begins(line.key, owner)) {
        std::string rest = line.key.substr(owner.size()), name = rest.substr(0, rest.find('_'));
        return format("def_proxy_{0}_config-sets_{1}", name, rest);
    }
    // A merge numbers the count of maps like a map.
    if (constexpr std::string_view map = "map_"; begins(line.key, "map_num"))
        return "map_#" + record_text(at_depth(line.said->node, 1)) +
               line.key.substr(std::min(line.key.find('_', map.size()), line.key.size()));
    return "";
}

// Where a line says what it says, and whether that decides about network login. `met` are the records up to it.
void read_assignment(accounting &all, account_line &line, std::unordered_set<const Frag *> &met) {
    const account_input &input = *line.input;
    line.key = line.said->key;
    if (line.said->node) {
        place_keys::key_of place = input.keys->find(line.said->node);
        line.key = line.said->role == line_role::name ? name_key(place.key) : place.key;
        line.bits = place.named ? place.bits : line.said->bits;
        line.other_key = other_key(all, line);
        for (size_t depth : place_keys::RECORD_DEPTHS)
            if (const Frag *record = at_depth(line.said->node, depth); record && met.insert(record).second)
                all.records.insert(input.keys->find(record, place_keys::FIRST).key);
        for (size_t end = 0; !line.other_key.empty() && end != std::string::npos;) {
            end = line.other_key.find('_', end + 1);
            all.records.insert(line.other_key.substr(0, end));
        }
    }
    if (line.key == "network_loginok" && !line.said->value.empty() && !input.unread && (!all.login || input.imported)) {
        all.login = &line;
        all.logs_in = lowercase(line.said->value) == "enabled";
    }
}

void collect_input(accounting &all, account_input &input) {
    const configuration *conf = input.conf;
    const netperm_table *table = input.table;
    input.keys = conf ? std::make_shared<place_keys>(*conf) : nullptr;
    std::string_view rest = conf ? conf->bytes : table ? table->bytes : std::string_view();
    uint32_t file = file_number(all.data, input.name, table ? file_role::table : file_role::merged);
    std::unordered_set<const Frag *> met; // records
    size_t next = 0;                      // assignment or rule
    long behind = 0;                      // the last assignment's end
    for (long at = 1; !rest.empty(); at++) {
        account_line &line = all.lines.emplace_back();
        line.text = take_line(rest);
        line.input = &input;
        line.file = file;
        line.line = line.end_line = at;
        line.first_rule = next;
        for (; table && next < table->rules.size() && table->rules[next].line == at; next++, line.rules++)
            all.rule_lines[table].push_back(&line);
        if (conf && next < conf->lines.size() && conf->lines[next].line == at) {
            line.said = &conf->lines[next++];
            line.end_line = behind = line.said->end_line;
            read_assignment(all, line, met);
        }
        bool is_more = !line.said && at <= behind, is_comment = table && begins(line.text, "#");
        bool is_blank_line = line.text.find_first_not_of(" \t\r") == line.text.npos;
        if (is_more || (line.rules == 0 && (is_comment || (is_blank_line && !line.said))))
            all.lines.pop_back();
    }
}

/// What is told of a line that has not turned, if anything is.
std::pair<const char *, const char *> notice_of(const account_line &line, bool is_numbered) {
    bool has_no_place = line.became == fate::reshaped && line.how == proof::run && !line.by;
    bool is_rule = line.place && begins(line.key, "pfedit_");
    if (is_rule && (is_named(line.place, "comment") ? text_of(line.place).size() < line.said->value.size()
                                                    : is_numbered && line.said->value.size() > RULE_LIMIT))
        return {"cut", "the comment of a filter rule that has no room for it in the result"};
    if (line.became == fate::unexplained)
        return {"unexplained", "nothing comes of it, and no reason is known"};
    if (!line.place && line.reason == NO_INTERFACE && (covers("ip_*addr", line.key) || covers("*_addr", line.key)))
        return {"left-out", "it has no interface, so that a numbered save drops it"};
    if (!line.place && has_no_place && line.reason.empty())
        return {"lost", line.shared ? "it stands nowhere in the result, which is another without it and others"
                                    : "it stands nowhere in the result, which is another without it"};
    return {nullptr, nullptr};
}

// The line of what the upgrade writes by which a line of an input stands there; null for none.
const conf_line *written_for(const account_line &line, const result_places &own) {
    if (!line.place)
        return nullptr;
    if (line.said && line.said->role == line_role::name)
        if (auto name = own.name_lines.find(line.place); name != own.name_lines.end())
            return name->second;
    const conf_line *there = own.conf.origin(line.place);
    return there ? there : own.conf.origin(line.place->parent); // what the layout says by the list of an entry
}

// The line that gives a place the prefix with which what another line says stands there; null if there is none.
const account_line *turned_by(const accounting &all, result_places &own, const account_line &line) {
    long bits = own.keys.find(line.place).bits;
    for (const account_line &each : all.lines)
        if (each.said && each.key == line.key && !same_prefix(each.bits, line.bits) && same_prefix(each.bits, bits))
            return &each;
    return nullptr;
}

void tell_lines(accounting &all, result_places &own) {
    for (account_line &line : all.lines) {
        const conf_line *written = written_for(line, own);
        written_line stands =
            written ? all.written[static_cast<size_t>(written - own.conf.lines.data())] : written_line();
        auto [id, notice] = notice_of(line, own.conf.numbered);
        std::string what = id ? notice : "";
        if (line.turned && (!written || stands.there)) {
            id = "turned";
            what = turned_text(line.place);
        } else if (!id && line.lost) {
            id = "lost";
            what = line.rules == 0 && !stands.there ? LACKING
                                                    : format("the upgrade writes {} for it, and the result lacks that",
                                                             text_of_line(own.conf, *line.lost));
        }
        if (line.shared)
            line.reason += std::string(line.reason.empty() ? "" : "; ") + "together with others it matters";
        if (line.by) {
            line.by_file = line.by->file;
            line.by_line = line.by->line;
        }
        const account_line *by = line.turned && all.told["turned"] < MOST_TOLD ? turned_by(all, own, line) : line.by;
        if (id)
            all.tell_of(line, id, what, by ? by->at() : place(),
                        stands.there && !line.lost ? all.in_result(stands.there->line) : place());
        line.result_line = stands.there ? stands.there->end_line : 0;
        if (stands.turned && line.became == fate::kept) {
            line.became = fate::reshaped;
            line.reason = "with another prefix";
        }
        if (written && !stands.there && line.became <= fate::reshaped) {
            line.became = fate::unexplained;
            line.reason = LACKING;
        }
    }
    for (const account_line &line : all.lines)
        for (long at = line.line; at <= line.end_line; at++)
            all.data.lines.emplace_back(line).line = at;
    for (const auto &[id, count] : all.told)
        if (count > MOST_TOLD)
            tell(all.data, id.c_str(), format("{} more such lines", count - MOST_TOLD));
}

} // namespace

void accounting::tell_some(const char *id, std::string text, const place &at, const place &by, const place &result) {
    if (++told[id] > MOST_TOLD)
        return;
    finding &made = tell(data, id, std::move(text), at.file, at.line);
    made.by = by;
    made.result = result;
}

void accounting::tell_of(const account_line &line, const char *id, const std::string &what, const place &by,
                         const place &result) {
    tell_some(id, format("{}: {}", line.text, what), line.at(), by, result);
}

account_input *accounting::input_of(const upgrade_step &step) {
    for (account_input &each : inputs)
        if (each.name == step.argument && (each.table != nullptr) == (step.letter == 'n'))
            return &each;
    return nullptr;
}

std::string turned_text(const Frag *at) {
    return "it stands with another prefix in the result: " + decoded_name(fragkeyname(const_cast<Frag *>(at)));
}

std::string accounting::merged_value(const Frag *entry, const char *field) const {
    std::string key = place_keys::path(entry) + '_' + field;
    for (const account_input &input : inputs)
        if (std::string value = input.conf && !input.unread ? input.conf->value(key.c_str()) : ""; !value.empty())
            return value;
    return "";
}

bool accounting::is_dropped(const Frag *element) const {
    const Frag *list = at_depth(element, 2);
    return in.command.numbered() && list && element == at_depth(element, 4) && is_location(list) &&
           is_blanks(merged_value(element, "interface").c_str());
}

std::string accounting::saved_path(const Frag *node) const {
    std::string path = place_keys::path(node);
    for (size_t end = path.find('_'); end != path.npos && in.command.numbered(); end = path.find('_', end + 1)) {
        auto known = numbers.find(path.substr(0, end));
        if (known == numbers.end() || !is_digit(path[end + 1]))
            continue;
        const std::vector<long> &all_numbers = known->second;
        size_t front = end + 1, size = std::min(path.find('_', front), path.size()) - front;
        long was = strtol(&path[front], nullptr, 10);
        auto number = std::lower_bound(all_numbers.begin(), all_numbers.end(), was);
        bool is_saved = number != all_numbers.end() && *number == was;
        const char *form = known->first == "link" || known->first == "key" ? "{:04}" : "{}";
        return path.replace(front, size, format(fmt::runtime(form), is_saved ? number - all_numbers.begin() + 1 : 0));
    }
    return path;
}

bool accounting::is_forced(const account_line &line) const {
    return begins(line.key, "def_proxy_") && data.release >= 40 && data.release != 55 &&
           is_listed(force_list, line.said->node->name) && bits_of(at_depth(line.said->node, 2)) == 0;
}

std::string_view account_line::value() const {
    bool composed = said->node && said->node->value &&
                    (said->role == line_role::name || said->key.find("_cyberurl_") != said->key.npos);
    return composed ? text_of(said->node) : said->value;
}

void account_lines(const account_inputs &inputs, review_data &data) {
    accounting all{inputs, data};
    all.has_tables = data.release < 40 && !inputs.before.tables.empty();
    inputs.progress("looking for every line in the result");
    collect_inputs(all);
    for (account_input &input : all.inputs)
        collect_input(all, input);
    collect_numbers(all);
    collect_located(all);
    if (all.has_tables)
        file_rules(all);
    result_places own(inputs.own, all.records);
    place_conf_lines(all, own);
    if (all.has_tables)
        place_table_lines(all, own);
    find_reasons(all, own);
    inputs.progress("leaving out what has no place");
    prove_candidates(all);
    find_origins(all, own);
    match_installed(all);
    check_standing(all, own);
    check_records(all, own);
    tell_lines(all, own);
}
