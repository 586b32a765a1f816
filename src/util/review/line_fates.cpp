// Every line of every input accounted for: the passes are followed, and the result has the last word.
#include "line_fates.h"
#include "fate_check.h"
#include "fate_losses.h"
#include "fate_table.h"
#include "frag_tools.h"
#include "fragment_lines.h"
#include "input_checks.h"
#include "name_index.h"
#include "upgrade.h"

#include <algorithm>
#include <cstring>
#include <unordered_set>

namespace {

/// One accounting.
struct accounting {
    const upgrade_command &command;
    const account_inputs &inputs;
    fate_ledger ledger;
    fate_run run;
    fate_table table;
    Frag *old_conf = nullptr, *init_conf = nullptr, *result = nullptr;
    list_indexes result_indexes;
    bool followed = true; // all passes were

    accounting(const upgrade_command &words, const account_inputs &from)
        : command(words), inputs(from), run(ledger, words), table(run) {}
    ~accounting() {
        for (Frag *tree : {old_conf, init_conf, result})
            freelist(tree);
    }
    accounting(const accounting &) = delete;
    accounting &operator=(const accounting &) = delete;

    void follow_options();
    void follow_table(size_t step);
    void take_table_result(Frag *fresh);
    void find_forced();
    bool holds(const std::string &key, std::string_view value);
    void say_in_result(Frag *frag, const std::string &key);
    void say_outcomes();
    void say_leftovers();
    void say_places();
    bool has_place(size_t id, size_t path_len);

    std::unordered_map<std::string, size_t> forced; // keys that the initial environment decides, with its entries
    std::unordered_set<std::string> pairs;          // of the result, once two siblings of one name are met
};

// The database that the upgrade holds behind a table, with the owners of what it held before.
void accounting::take_table_result(Frag *fresh) {
    for (const char *key : {"version_firewall", "version_upgraded", "version_moatwall.conf"})
        fremove(&fresh, key);
    if (Frag *global = ffind(&fresh, "def_proxy_*"))
        renamefrag(global, "global");
    list_indexes indexes;
    visit_frags(run.db, [&](Frag *frag, const std::string &key) {
        size_t id = owner_of(frag);
        if (!id)
            return;
        Frag *found = indexes.find_key(&fresh, key.c_str());
        if (found && found->child && !found->value)
            found = ffind(&found->child, "1"); // a rule of the table made a list of the value
        if (!found && is_taken_late(key))
            found = indexes.set_key(&fresh, key.c_str(), frag->value, nullptr);
        if (found && value_of(found) == value_of(frag) && owner_of(found) && owner_of(found) != id)
            ledger.say(id, fate::reshaped, "as " + key + ", a key that two entries have");
        else if (found && value_of(found) == value_of(frag))
            set_owner(found, id);
        else if (loss lost = taken_by_table(key, run.last_table); lost.what != fate::open)
            ledger.say(id, lost.what, lost.reason);
    });
    freelist(run.db);
    run.db = fresh;
    for (const char *key : {"trusted_networks", "untrusted_networks"})
        fset(&run.db, key, nullptr);
}

void accounting::follow_table(size_t step) {
    size_t input = ledger.open(command.steps[step].argument, true);
    table.read(input);
    if (run.config_type >= 40) {
        std::string reason = run.config_type == 55
                                 ? "a table is not read for a configuration of release 5.5"
                                 : "a table changes nothing for a configuration of release 4.0 or later";
        for (size_t id = ledger.inputs[input].first; id < ledger.inputs[input].end; id++)
            ledger.say(id, fate::without_effect, reason);
        return;
    }
    memory_file output;
    Frag *fresh = nullptr;
    followed = run_quietly({{}, {}, {}, {}, true, 0, {}, {}, {}}, words_up_to(command, step), output) &&
               importffile(output.path().c_str(), &fresh, 0) == 0 && followed;
    run.last_table = command.steps[step].argument;
    take_table_result(fresh);
    table.follow();
}

void accounting::follow_options() {
    if (!command.old_conf.empty()) {
        importffile(command.old_conf.c_str(), &old_conf, 0);
        run.config_type = old_config_type(&old_conf);
        follow_start(run, ledger.open(command.old_conf, false), ffind(&old_conf, "def_proxy") != nullptr);
    } else {
        run.config_type = 32;
    }
    if (!command.init_conf.empty()) {
        importffile(command.init_conf.c_str(), &init_conf, 0);
        ledger.open(command.init_conf, false);
    }
    int merges = 0;
    for (size_t step = 0; step < command.steps.size(); step++) {
        const upgrade_step &at = command.steps[step];
        if (at.letter == 'n') {
            follow_table(step);
        } else if (at.letter == 'e') {
            follow_environment(run, ledger.open(at.argument, false));
        } else if (at.letter == 'm') {
            size_t input = ledger.open(at.argument, false);
            if (run.config_type == 55 && merges++ != 0) {
                for (size_t id = ledger.inputs[input].first; id < ledger.inputs[input].end; id++)
                    ledger.say(id, fate::without_effect, "nothing but the first file is merged for release 5.5");
                continue;
            }
            if (run.config_type != 55 && merges++ == 1)
                if (Frag *exec = fdel(&run.db, "def_proxy_sql-px_proxy-exec")) {
                    say_below(ledger, exec, fate::overridden,
                              "the program of sql-px is the new release's: it goes before " + at.argument +
                                  " is merged");
                    freefrag(exec);
                }
            follow_merge(run, input);
        }
    }
    follow_last_passes(run, &init_conf);
}

bool ends_in_number(const std::string &key) {
    size_t last = key.rfind('_');
    return last != std::string::npos && key.find_first_not_of("0123456789", last + 1) == std::string::npos;
}

// The keys that the initial environment decides ahead of what is older.
void accounting::find_forced() {
    if (command.init_conf.empty() || run.config_type < 40 || run.config_type == 55)
        return;
    const fate_input &init = ledger.inputs[ledger.open(command.init_conf, false)];
    for (size_t id = init.first; id < init.end; id++) {
        const fate_entry &entry = ledger.entries[id];
        std::string last = entry.key.substr(entry.key.rfind('_') + 1);
        bool decides = last == "proxy-type" || last == "proxy-exec" || last == "bind-port";
        if (decides && !entry.value.empty() && has_prefix(entry.key.c_str(), "def_proxy_"))
            forced[entry.key] = id;
    }
    for (const auto &[key, id] : forced)
        if (holds(key, ledger.entries[id].value))
            ledger.say(id, fate::kept, "the new release decides here, whatever an older file says");
}

// True if the result has the key with that value, be it behind a sibling of the same name.
bool accounting::holds(const std::string &key, std::string_view value) {
    Frag *found = result_indexes.find_key(&result, key.c_str());
    if (!found || !found->value)
        return false;
    if (value_of(found) == value)
        return true;
    if (pairs.empty()) {
        std::vector<assignment> lines;
        read_assignments(inputs.canonical_path.c_str(), lines);
        for (const assignment &line : lines)
            pairs.insert(line.key + '=' + line.value);
        pairs.insert("");
    }
    return pairs.count(key + '=' + std::string(value)) != 0;
}

// The key of an entry as a file that is saved gives it back.
std::string entry_key_in_file(const fate_entry &entry) {
    size_t last = entry.key.rfind('_') + 1;
    return entry.key.substr(0, last) + name_in_file(entry.key.c_str() + last, entry.attr);
}

// What became of a value that the database holds in the end.
void accounting::say_in_result(Frag *frag, const std::string &key) {
    size_t id = owner_of(frag);
    if (!id || !frag->value)
        return;
    const fate_entry &entry = ledger.entries[id];
    bool is_rule = ledger.inputs[entry.input].table;
    bool is_text_key =
        !is_rule && entry.key != key && (entry.key == "trusted_networks" || entry.key == "untrusted_networks");
    if ((is_text_key || value_of(frag) == entry.value) && holds(key, value_of(frag))) {
        loss lost = lost_on_saving(key, &result, command.version, result_indexes);
        if (lost.what != fate::open)
            ledger.say(id, lost.what, lost.reason);
        else if (!is_rule && (key == entry.key || key == entry_key_in_file(entry)))
            ledger.say(id, fate::kept, "as it stands");
        else if (is_rule && !ends_in_number(key))
            ledger.say(id, fate::kept, "as " + key);
        else
            ledger.say(id, fate::reshaped,
                       is_text_key ? "as elements of " + key.substr(0, key.find("_element")) : "as " + key);
        return;
    }
    auto on = run.switched_on.find(key);
    auto init = forced.find(key);
    Frag *found = result_indexes.find_key(&result, key.c_str());
    if (!found || !found->value)
        return;
    if (on != run.switched_on.end())
        ledger.say(id, fate::overridden, "overridden by " + ledger.where(on->second));
    else if (init != forced.end() && holds(key, ledger.entries[init->second].value))
        ledger.say(id, fate::overridden, "overridden by " + ledger.where(init->second));
    else
        ledger.say(id, fate::overridden, why_other_value(key, value_of(found)));
}

// The rules of a table that became maps: a later option can have renumbered these or taken them away.
void accounting::say_outcomes() {
    std::unordered_map<std::string_view, Frag *> by_source;
    Frag *maps = ffind(&result, "map");
    for (Frag *map = maps ? maps->child : nullptr; map; map = map->next)
        if (Frag *src = ffind(&map->child, "src"))
            by_source.emplace(value_of(src), map);
    for (const auto &[id, outcome] : table.outcomes) {
        Frag *map = maps ? result_indexes.find(&maps->child, outcome.map) : nullptr;
        auto same_source = by_source.find(outcome.src);
        Frag *lists = ffind(&result, "netobj_list");
        if (outcome.map.empty() ? maps != nullptr : map && same_text(fval(&map->child, "src"), outcome.src.c_str()))
            ledger.say(id, fate::reshaped, outcome.reason);
        else if (same_source != by_source.end())
            ledger.say(id, fate::reshaped, "a map of the source " + outcome.src);
        else if (lists && result_indexes.find(&lists->child, storedname(outcome.list)))
            ledger.say(id, fate::reshaped,
                       "its hosts are in the list " + outcome.list + "; maps go when an environment (" +
                           run.environment + ") is read");
        else if (!run.environment.empty())
            ledger.say(id, fate::reshaped,
                       "its hosts are in a list; maps go when an environment (" + run.environment + ") is read");
    }
}

// Names that stand for a prefixed one in the store: behind a prefix of their own they don't read back.
bool begins_like_prefix(const std::string &key) {
    for (const char *name : {"relay", "spam", "route-char"})
        if (key.find(name) != std::string::npos)
            return true;
    return false;
}

// Whether the file ends in that name and a `=` without a value or a line end, which makes a key without a value.
bool ends_in_name(const fate_input &file, std::string_view name) {
    std::string_view text = file.text;
    if (file.table || text.empty() || text.back() != '=')
        return false;
    text.remove_suffix(1);
    text.remove_prefix(text.find_last_of("[]\\_\n \t") + 1);
    return text == name;
}

// Whether a proxy in front of the rule's colon has a name that a file gives back as another, or as that of another.
bool is_read_otherwise(std::string_view rule) {
    rule = rule.substr(0, rule.find(':'));
    for (size_t at = 0; at < rule.size();) {
        size_t end = std::min(rule.find_first_of(" \t,", at), rule.size());
        std::string name(rule.substr(at, end - at));
        if (name_in_file(name.c_str(), 0) != name || begins_like_prefix(name))
            return true;
        at = end + 1;
    }
    return false;
}

// Whether a pass takes away a value of the key itself, whose children are what counts.
bool is_top_of_records(const std::string &key) {
    for (const char *top : {"map", "policy", "dest", "netobj", "def_proxy"})
        if (key == top)
            return true;
    return false;
}

// Whether a name, once it is saved, begins the section form or ends its key too early.
bool breaks_a_file(const Frag *frag) {
    std::string name = name_in_file(frag);
    return name[0] == '[' || name.find('=') != std::string::npos;
}

// What neither a pass nor the result has told.
void accounting::say_leftovers() {
    bool broken = false;
    visit_frags(run.db, [&](Frag *frag, const std::string &) { broken = broken || breaks_a_file(frag); });
    for (const auto &[id, proxy] : table.naming)
        if (!ledger.knows(id, fate::overridden))
            ledger.say(id, fate::reshaped,
                       "names the proxy " + proxy + " first, which gives it its place" +
                           (ledger.knows(id, fate::without_effect) ? "; else " : "") + ledger.entries[id].reason);
    for (size_t id = 1; id < ledger.entries.size(); id++) {
        const fate_entry &entry = ledger.entries[id];
        const fate_input &input = ledger.inputs[entry.input];
        if (entry.known != fate::open)
            continue;
        std::string_view name = std::string_view(entry.key).substr(entry.key.rfind('_') + 1);
        for (const fate_input &other : ledger.inputs)
            if (!input.table && &other != &input && ends_in_name(other, name))
                ledger.say(id, fate::overridden,
                           "overridden by the end of " + other.name + ", its key without a value");
        bool read_in = false;
        for (const upgrade_step &step : command.steps)
            read_in = read_in || (strchr("nme", step.letter) && step.argument == input.name);
        if (!read_in)
            ledger.say(id, fate::without_effect, "this file is read for the release alone");
        else if (!input.table && is_too_deep(entry.key))
            ledger.say(id, command.version == 99 ? fate::kept : fate::without_effect,
                       command.version == 99 ? "XML has room for its long key" : "its key is too long to be saved");
        else if (is_top_of_records(entry.key))
            ledger.say(id, fate::without_effect, "a value of the key `" + entry.key + "` itself is lost");
        else if (input.table && is_read_otherwise(input.line(entry.line)))
            ledger.say(id, fate::reshaped,
                       "its proxy's name begins like an attribute's prefix, and reads otherwise once saved");
        else if (begins_like_prefix(entry.key))
            ledger.say(id, fate::reshaped,
                       "its name begins like an attribute's prefix, and reads otherwise once saved");
        else if (input.table && !run.environment.empty())
            ledger.say(id, fate::without_effect, "proxies go when an environment (" + run.environment + ") is read");
        else if (broken)
            ledger.say(id, fate::reshaped,
                       "a name with a `=` in it, or a `[` at its front, makes the result read otherwise from there on");
    }
}

// True if the result can show the order in which this entry and others brought the path into being: the entry's place
// counts unless those right behind it, as far as one that has an effect, stand below the same path.
bool accounting::has_place(size_t id, size_t path_len) {
    static const char *const saved_always[] = {"cust",   "def", "netobj", "sroute", "dest",
                                               "pfedit", "nat", "proxy",  nullptr};
    constexpr size_t MOST_STEPS = 10000;
    const fate_entry &entry = ledger.entries[id];
    const fate_input &input = ledger.inputs[entry.input];
    for (size_t next = id + 1; next < input.end && next < id + MOST_STEPS; next++) {
        if (ledger.entries[next].key.compare(0, path_len + 1, entry.key, 0, path_len + 1) != 0)
            break;
        if (ledger.knows(next, fate::overridden))
            return false;
    }
    std::string path = entry.key.substr(0, path_len);
    std::string top = path.substr(0, path.find('_'));
    bool counts_alone =
        path.size() > 4 && path.compare(path.size() - 4, 4, "_num") == 0 && top != "def" && top != "cust";
    // Maps and policies that stay out were taken away whole.
    if (top == "map" || top == "policy" || counts_alone)
        return false;
    if (result_indexes.find_key(&result, path.c_str()))
        return true;
    // What a pass makes is saved below these; lists and filter rules have other names by then.
    bool renamed = top == "netobj" || top == "pfedit";
    for (const char *const *saved = saved_always; *saved; saved++)
        if (top == *saved && (renamed || std::count(path.begin(), path.end(), '_') < 2))
            return command.numbered() || !run.environment.empty();
    return false;
}

// Lines without an effect of their own that put what other lines say in its place.
void accounting::say_places() {
    for (size_t id = 1; id < ledger.entries.size(); id++) {
        fate_entry &entry = ledger.entries[id];
        bool placed = false;
        for (size_t len = entry.made_from; len && len != std::string::npos && !placed;
             len = entry.key.find('_', len + 1))
            placed = entry.known == fate::without_effect && has_place(id, len);
        if (placed)
            ledger.say(id, fate::reshaped, entry.reason + ", yet the line's place orders what is saved");
    }
}

/// The records of one file, and whether blanking a line of it alone can be tried.
struct file_records {
    std::string name;
    std::vector<line_fate> lines; // by line, with a fate where there is something to tell
    std::vector<fate> known;

    explicit file_records(const fate_input &input) : name(input.name) {
        size_t count = static_cast<size_t>(input.lines());
        lines.resize(count);
        known.resize(count);
    }
    void say(long line, fate f, const std::string &reason, bool told) {
        size_t at = static_cast<size_t>(line) - 1;
        if (at >= lines.size() || (!lines[at].fate.empty() && known[at] >= f))
            return;
        known[at] = f;
        lines[at].fate = fate_name(f);
        lines[at].reason = told ? reason : "no reason is known";
    }
};

bool is_blank_line(std::string_view text) { return text.find_first_not_of(" \t\r") == std::string_view::npos; }

void record_entries(const fate_ledger &ledger, const fate_input &input, file_records &records) {
    std::vector<size_t> on_line(records.lines.size() + 1); // how many entries stand on it
    for (size_t id = input.first; id < input.end; id++)
        on_line[std::min(static_cast<size_t>(ledger.entries[id].line), records.lines.size())]++;
    for (size_t id = input.first; id < input.end; id++) {
        const fate_entry &entry = ledger.entries[id];
        fate f = entry.known;
        std::string reason = entry.reason;
        if (entry.end_line > entry.line)
            reason +=
                "; it runs over the lines " + std::to_string(entry.line) + " to " + std::to_string(entry.end_line);
        if (entry.end_line == entry.line && on_line[static_cast<size_t>(entry.line)] > 1)
            reason += "; the line is read in pieces, for its length";
        if (f == fate::without_effect && reason.size() > entry.reason.size())
            f = fate::reshaped;
        for (long line = entry.line; line <= entry.end_line; line++)
            records.say(line, f, reason, entry.known != fate::open);
    }
}

// Lines of a fragment file that no assignment stands on.
void record_others(const fate_ledger &ledger, const fate_input &input, file_records &records) {
    long last = input.first < input.end ? ledger.entries[input.end - 1].line : 0;
    size_t next = input.first;
    for (long line = 1; line <= input.lines(); line++) {
        std::string_view text = input.line(line);
        if (!records.lines[static_cast<size_t>(line) - 1].fate.empty() || is_blank_line(text))
            continue;
        while (next < input.end && ledger.entries[next].line < line)
            next++;
        if (line > last)
            records.say(line, fate::without_effect, "the file ends before a `=` makes it an assignment", true);
        else
            records.say(line, fate::reshaped,
                        "heads the lines from line " + std::to_string(ledger.entries[next].line) + " on", true);
    }
}

} // namespace

void account_lines(const upgrade_command &command, const account_inputs &inputs, review_data &data) {
    accounting account(command, inputs);
    if (!command.refused.empty() || importffile(inputs.canonical_path.c_str(), &account.result, 0) != 0)
        return;
    account.follow_options();
    if (!account.followed) {
        tell(data, "trouble", "the upgrade can't be followed as far as to a table: the lines are not accounted for");
        return;
    }
    account.find_forced();
    visit_frags(account.run.db, [&](Frag *frag, const std::string &key) { account.say_in_result(frag, key); });
    account.say_outcomes();
    account.say_leftovers();
    account.say_places();

    std::vector<file_records> files;
    std::unordered_map<std::string, std::string> texts;
    for (const fate_input &input : account.ledger.inputs) {
        auto known =
            std::find_if(files.begin(), files.end(), [&](const file_records &f) { return f.name == input.name; });
        if (known == files.end())
            known = files.emplace(files.end(), input);
        record_entries(account.ledger, input, *known);
        if (!input.table)
            record_others(account.ledger, input, *known);
        texts[input.name] = input.text;
        for (size_t i = 0; i < known->lines.size(); i++)
            known->lines[i].text = input.line(static_cast<long>(i) + 1);
    }
    size_t first = data.lines.size();
    for (file_records &file : files)
        for (size_t i = 0; i < file.lines.size(); i++) {
            line_fate &line = file.lines[i];
            if (line.fate.empty() || is_blank_line(line.text))
                continue;
            line.file = file.name;
            line.line = static_cast<long>(i) + 1;
            data.lines.push_back(std::move(line));
        }
    if (!check_claims(command, inputs.result_path, texts, data.lines))
        tell(data, "trouble", "the upgrade fails without some lines: what is said of their fate is not certain");
    for (size_t i = first; i < data.lines.size(); i++) {
        const line_fate &line = data.lines[i];
        if (line.fate != "unexplained")
            continue;
        finding found;
        found.id = "unexplained";
        found.text = line.file + " line " + std::to_string(line.line) + ": no reason is known for what became of `" +
                     line.text + "`";
        found.file = line.file;
        found.line = line.line;
        data.findings.push_back(std::move(found));
    }
}

fate_summary summarize_lines(const review_data &data) {
    fate_summary summary;
    for (fate f : {fate::kept, fate::reshaped, fate::overridden, fate::without_effect, fate::open})
        summary.totals.emplace_back(fate_name(f), 0);
    std::unordered_map<std::string, size_t> group_of;
    for (const line_fate &line : data.lines) {
        for (auto &[name, count] : summary.totals)
            count += name == line.fate ? 1 : 0;
        if (line.fate == "kept")
            continue;
        std::string key = line.file + '\0' + line.fate + '\0' + line.reason;
        auto [known, is_new] = group_of.try_emplace(key, summary.groups.size());
        if (is_new)
            summary.groups.push_back({line.file, line.fate, line.reason, {}});
        summary.groups[known->second].lines.push_back(&line);
    }
    return summary;
}
