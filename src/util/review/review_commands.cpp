// The four commands as sequences of what the other files know.
#include "review_commands.h"
#include "access_compare.h"
#include "access_maps.h"
#include "conf_diff.h"
#include "input_checks.h"
#include "line_fates.h"
#include "netperm_rules.h"
#include "result_checks.h"
#include "todo_list.h"
#include "upgrade_run.h"

#include <algorithm>
#include <fmt/format.h>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <unistd.h>

using fmt::format;

namespace {

void trouble(review_data &data, std::string text) { tell(data, "trouble", std::move(text)); }

std::string read_all(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

// Each message of the upgrade once; those that end a run are told as trouble by the caller.
void tell_messages(const std::string &messages, review_data &data) {
    for (size_t at = 0; at < messages.size();) {
        size_t end = std::min(messages.find('\n', at), messages.size());
        if (end > at)
            tell(data, "message", "the upgrade says: " + messages.substr(at, end - at));
        at = end + 1;
    }
}

/// Why the output is not what the upgrade would write now.
struct byte_difference {
    std::string text;
    std::string cause; ///< the same as the cause of what only the output says
};

byte_difference describe_difference(const upgrade_command &command, const std::string &is,
                                    const std::string &should_be) {
    if (is.size() < should_be.size() && should_be.compare(0, is.size(), is) == 0)
        return {format("it is cut short: {} of {} bytes are there", is.size(), should_be.size()),
                "the result is cut short"};
    struct stat output {
    }, input{};
    stat(command.output.c_str(), &output);
    for (const upgrade_step &step : command.steps) {
        if (step.letter != 'V' && step.letter != 'R' && stat(step.argument.c_str(), &input) == 0 &&
            input.st_mtime > output.st_mtime)
            return {format("it is an older result: {} was changed after it", step.argument),
                    "the result is older than the inputs"};
    }
    auto first = std::mismatch(is.begin(), is.begin() + static_cast<long>(std::min(is.size(), should_be.size())),
                               should_be.begin());
    return {format("it was made of other inputs or with other options, or changed by hand: the first difference is in "
                   "line {}",
                   std::count(is.begin(), first.first, '\n') + 1),
            "a change by hand, or other inputs"};
}

// Compares the output with what the upgrade writes. The result is the cause of what only the output says.
std::string compare_bytes(const upgrade_command &command, const upgrade_result &run, review_data &data) {
    struct stat status {};
    if (!command.has_output)
        return "";
    if (stat(command.output.c_str(), &status) != 0) {
        tell(data, "not-written", "not there yet: this is a preview of what would be written", command.output);
        return "";
    }
    if (!S_ISREG(status.st_mode) || access(command.output.c_str(), R_OK) != 0) {
        tell(data, "not-written", "nothing can be read back from it: what is told is what would be written",
             command.output);
        return "";
    }
    std::string is = read_all(command.output), should_be = read_all(run.output_bytes_path);
    data.written = is == should_be ? "same" : "different";
    if (is == should_be)
        return "";
    byte_difference found = describe_difference(command, is, should_be);
    tell(data, "not-written", "not what the upgrade writes: " + found.text, command.output);
    return found.cause;
}

// The result that is looked at: the output as it stands where a reader takes it back, else the upgrade's own.
std::string result_path(const upgrade_command &command, const upgrade_result &run, const review_data &data) {
    if (command.version == 99)
        return run.canonical_path;
    return command.has_output && data.written != "absent" ? command.output : run.output_bytes_path;
}

std::string result_name(const upgrade_command &command) {
    if (command.version == 99) // its lines are not those of the file
        return command.has_output ? command.output + " (in the canonical layout)" : "standard output";
    return command.has_output ? command.output : "standard output";
}

bool read_side(const std::string &path, const std::string &name, access_side &side) {
    if (!read_access_maps(path.c_str(), side))
        return false;
    side.files[side.map_file] = name;
    return true;
}

// Reads who decided before: the tables, or from 4.0 on the maps of the old configuration. False if nothing tells.
bool read_before(const upgrade_command &command, const review_data &data, access_side &side) {
    std::vector<std::string> tables = step_files(command, 'n'), imports = step_files(command, 'e');
    if (data.release < 40 && !tables.empty())
        return std::all_of(tables.begin(), tables.end(),
                           [&](const std::string &table) { return read_netperm_rules(table.c_str(), side); });
    if (data.release < 40 && imports.empty())
        return false;
    return read_side(data.release < 40 ? imports.front() : command.old_conf,
                     data.release < 40 ? imports.front() : command.old_conf, side);
}

std::set<std::string> permitted_proxies(const access_side &side) {
    std::set<std::string> proxies;
    for (const std::string &proxy : side.proxies) {
        std::vector<access_rule> rules = rules_of(side, proxy);
        if (std::any_of(rules.begin(), rules.end(), [](const access_rule &rule) { return rule.permit; }))
            proxies.insert(proxy);
    }
    return proxies;
}

access_options options_for(const review_options &options) {
    access_options compare;
    compare.only_proxy = options.proxy;
    compare.progress = [&options](const std::string &proxy) {
        options.progress("comparing who gets through " + proxy);
    };
    return compare;
}

/// What the upgrade writes, and why the output is another; that is empty if it isn't.
struct own_result {
    std::string path, changed;
};

// True if the one proxy that is asked for, if any, is on one of the sides.
bool knows_asked(const review_options &options, const review_sides &sides, review_data &data) {
    if (options.proxy.empty() || sides.before.knows(options.proxy) || sides.after.knows(options.proxy))
        return true;
    trouble(data, format("no proxy {} is known there", options.proxy));
    return false;
}

// Who gets through, before and after. The result are the proxies that the tables let somebody through.
std::set<std::string> review_access(const upgrade_command &command, const std::string &result, const own_result &own,
                                    const review_options &options, review_data &data, review_sides &sides) {
    auto &[before, after] = sides;
    std::set<std::string> used;
    if (!read_before(command, data, before))
        return used;
    if (data.release < 40)
        used = permitted_proxies(before);
    if (!read_side(result, result_name(command), after)) {
        trouble(data, "the result can't be read: " + result_name(command));
        return used;
    }
    access_causes causes;
    causes.initial_environment = data.release == 55 ? "" : command.init_conf;
    causes.old_configuration = command.old_conf;
    std::vector<std::string> merged = step_files(command, 'm');
    merged.erase(merged.begin(), merged.begin() + static_cast<long>(std::min<size_t>(merged.size(), 2)));
    causes.merged = std::move(merged);
    access_side written;
    if (!own.changed.empty() && command.version != 99 && read_access_maps(own.path.c_str(), written))
        causes.written = &written;
    causes.changed = own.changed;
    if (knows_asked(options, sides, data))
        compare_access(before, after, causes, options_for(options), data);
    return used;
}

// The canonical layout has no place for a proxy without parameters: the file's own names, and its policies, tell it.
void add_bare_proxies(canonical_conf &canonical, canonical_conf &saved) {
    std::set<std::string> known;
    for (Frag *proxy : sorted_children(canonical.db(), "def_proxy"))
        known.insert(clear_name(proxy));
    auto add = [&](const std::string &name) {
        if (!name.empty() && known.insert(name).second)
            fset(canonical.db(), ("def_proxy_" + storedname(name)).c_str(), nullptr);
    };
    for (Frag *proxy : sorted_children(saved.db(), "def_proxy"))
        add(clear_name(proxy));
    for (Frag *policy : sorted_children(canonical.db(), "policy")) {
        for (Frag *entry : sorted_children(&policy->child, "proxy"))
            add(entry->value ? entry->value : "");
    }
}

// Each configuration of the command line once, as far as it says something by itself.
void check_inputs(const upgrade_command &command, review_data &data) {
    std::set<std::string> checked;
    for (char letter : {'e', 'm'}) {
        for (const std::string &file : step_files(command, letter)) {
            canonical_conf conf;
            if (!checked.insert(file).second || !load_canonical(file.c_str(), conf))
                continue;
            bool stands_alone = letter == 'e' || (file == command.old_conf && data.release >= 40);
            check_input(conf, file, stands_alone, data);
        }
    }
}

void check_outcome(const upgrade_command &command, const upgrade_result &run, const std::string &result,
                   const std::set<std::string> &used, review_data &data) {
    canonical_conf looked_at, saved, canonical;
    if (load_canonical(result.c_str(), looked_at))
        check_result(looked_at, result_name(command), data);
    check_inputs(command, data);
    for (const std::string &file : step_files(command, 'm'))
        check_unsaved_keys(file, data);
    if (run.canonical_path.empty() || !load_canonical(run.canonical_path.c_str(), canonical, with_lines::no))
        return;
    if (ffind(canonical.db(), "dest"))
        read_assignments(run.canonical_path.c_str(), canonical.lines);
    bool is_own = data.written != "different" || command.version == 99; // what is looked at is what the upgrade writes
    if (is_own || load_canonical(run.output_bytes_path.c_str(), saved, with_lines::no))
        add_bare_proxies(canonical, is_own ? looked_at : saved);
    if (command.numbered())
        check_left_out(canonical, result_name(command), data);
    list_todo(command, canonical, used, data);
}

} // namespace

int review_status(const review_data &data) {
    bool told_something = !data.todo.empty();
    for (const finding &told : data.findings) {
        if (told.id == "trouble" || told.id == "not-decided")
            return 2;
        told_something = told_something || (told.id != "explain" && told.id != "same");
    }
    for (const access_row &row : data.access) {
        if (row.verdict == "not decided")
            return 2;
    }
    return told_something;
}

void review_upgrade(const upgrade_command &command, const review_options &options, review_data &data,
                    review_sides &sides) {
    data.command = command.words;
    if (command.refused.empty() && !check_files(command, data))
        trouble(data, "an input can't be read");
    detect_release(command, data);
    check_command(command, data);
    if (!command.refused.empty() || review_status(data) == 2) {
        if (!command.refused.empty())
            trouble(data, "the upgrade would not run");
        return;
    }
    options.progress("running the upgrade");
    scratch_folder scratch;
    upgrade_result run = run_upgrade(command, scratch);
    tell_messages(run.messages, data);
    if (run.output_bytes_path.empty()) {
        trouble(data, run.trouble.empty() ? format("the upgrade ends with status {}", run.exit_status) : run.trouble);
        return;
    }
    std::string changed = compare_bytes(command, run, data);
    std::string result = result_path(command, run, data);
    std::set<std::string> used = review_access(command, result, {run.output_bytes_path, changed}, options, data, sides);
    options.progress("accounting for every line");
    account_lines(command, {run.output_bytes_path, run.canonical_path}, data);
    options.progress("checking the result");
    check_outcome(command, run, result, used, data);
}

void explain_host(const std::string &conf, const std::string &table, const std::string &proxy, const std::string &host,
                  review_data &data, review_sides &sides) {
    auto &[rules, maps] = sides;
    if (host.empty() || host.find('*') != std::string::npos || host.find_first_of(" \t") != std::string::npos) {
        trouble(data, format("{} is no host: a host is a word without *", host));
        return;
    }
    if (!check_configuration(conf, "configuration", data) || !read_access_maps(conf.c_str(), maps)) {
        trouble(data, "can't read " + conf);
        return;
    }
    if (!table.empty() &&
        (!check_configuration(table, "netperm table", data) || !read_netperm_rules(table.c_str(), rules))) {
        trouble(data, "can't read " + table);
        return;
    }
    // A table also names what is no proxy, such as alerts, and nobody gets through there.
    bool named = std::any_of(rules.tables.begin(), rules.tables.end(),
                             [&](const access_table &each) { return each.proxies.count(proxy) != 0; });
    if (!maps.knows(proxy) && !rules.knows(proxy) && !named) {
        trouble(data, format("no proxy {} is known there", proxy));
        return;
    }
    decision now = decide(maps, proxy, host), before = table.empty() ? now : decide(rules, proxy, host);
    bool through = now.decision == "permit", was_through = before.decision == "permit";
    const char *id = table.empty() ? "explain" : through == was_through ? "same" : through ? "wider" : "narrower";
    finding &told = tell(data, id, "");
    told.proxy = proxy;
    told.host = host;
    told.has_sides = true;
    told.before = before;
    told.after = now;
}

void review_diff(const std::string &before, const std::string &after, const review_options &options, review_data &data,
                 review_sides &sides) {
    bool readable = check_configuration(before, "first configuration", data);
    readable = check_configuration(after, "second configuration", data) && readable;
    canonical_conf old_conf, new_conf;
    if (!readable || !load_canonical(before.c_str(), old_conf) || !load_canonical(after.c_str(), new_conf) ||
        !read_access_maps(before.c_str(), sides.before) || !read_access_maps(after.c_str(), sides.after)) {
        trouble(data, "a configuration can't be read");
        return;
    }
    diff_configurations(old_conf, new_conf, before, after, data);
    if (knows_asked(options, sides, data))
        compare_access(sides.before, sides.after, access_causes(), options_for(options), data);
}

void review_check(const std::string &path, review_data &data) {
    canonical_conf conf;
    if (!check_configuration(path, "configuration", data) || !load_canonical(path.c_str(), conf))
        trouble(data, "can't read " + path);
    else
        check_result(conf, path, data);
}
