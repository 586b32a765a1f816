// The commands as sequences of what the other folders know.
#include "access/access_compare.h"
#include "checks/checks.h"
#include "lines/lines.h"
#include "run/upgrade_run.h"
#include "say/say.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <set>
#include <sstream>
#include <sys/stat.h>
#include <unistd.h>

using fmt::format;

namespace {

void trouble(review_session &session, std::string text) { tell(session.data, "trouble", std::move(text)); }

// Takes note of the file; false, and told as trouble, if it can't be read.
bool is_read(const std::string &path, file_role role, review_session &session) {
    bool is_good = check_configuration(path, role, session.files, session.data);
    if (!is_good)
        trouble(session, "can't read " + path);
    return is_good;
}

// Both sides of the first line that differs.
std::string first_difference(const std::string &is, const std::string &should_be) {
    auto at = std::mismatch(is.begin(), is.end(), should_be.begin(), should_be.end()).first;
    size_t begin = at == is.begin() ? 0 : is.rfind('\n', static_cast<size_t>(at - is.begin()) - 1) + 1;
    auto line_of = [begin](const std::string &text) {
        std::string line = text.substr(std::min(begin, text.size()), 80);
        return begin < text.size() ? '"' + line.substr(0, line.find('\n')) + '"' : "not there";
    };
    return format("line {} is {}, and the upgrade writes {}", std::count(is.begin(), at, '\n') + 1, line_of(is),
                  line_of(should_be));
}

// An input that was changed after the result was made; empty for none.
std::string newer_input(const upgrade_command &command) {
    struct stat result {
    }, input{};
    stat(command.output.c_str(), &result);
    for (const upgrade_step &step : command.steps)
        if (strchr("nme", step.letter) && stat(step.argument.c_str(), &input) == 0 && input.st_mtime > result.st_mtime)
            return step.argument;
    return "";
}

// Whether the output is what the upgrade writes, and if not, what is the matter with it.
void compare_bytes(const upgrade_command &command, const std::string &should_be, review_session &session) {
    review_data &data = session.data;
    const std::string &output = command.output;
    const std::string *is = session.files.bytes(output), *old = session.files.bytes(command.old_conf);
    if (!command.has_output)
        return;
    if (!is) {
        bool is_there = access(output.c_str(), F_OK) == 0;
        const char *why = is_there ? "nothing can be read back from it: what is told is what would be written"
                                   : "not there yet: this is a preview of what would be written";
        return void(tell(data, "not-written", why, output));
    }
    data.result = *is == should_be ? written::same : written::different;
    if (data.result == written::same)
        return;
    std::string newer = newer_input(command), first = first_difference(*is, should_be), text, advice;
    bool is_cut = is->size() < should_be.size() && should_be.compare(0, is->size(), *is) == 0,
         is_old = old && *old == *is;
    advice = "run the upgrade again";
    if (is_cut) {
        text = format("cut short: {} of {} bytes are there", is->size(), should_be.size());
        advice = "look at the disk and at limits on the size of files, then " + advice;
    } else if (is_old) {
        text = "it is the old configuration, byte for byte: " + first;
        advice = "if the upgrade wrote into its input, that has to come from its copy";
    } else if (!newer.empty()) {
        text = format("an older result: {} was changed after it; {}", newer, first);
    } else {
        text = "made of other inputs or with other options, or changed by hand: " + first;
        advice += ", or make sure that the change is meant";
    }
    finding &told = tell(data, "not-written", std::move(text), output);
    told.advice = std::move(advice);
    told.leads = is_cut || is_old || !newer.empty();
}

// Who decided before: the tables, or from 4.0 on the old configuration's maps. False if nothing tells.
bool read_before(const upgrade_command &command, review_session &session) {
    bool is_old = session.data.release < 40;
    std::vector<std::string> tables = step_files(command, 'n'), imports = step_files(command, 'e');
    imports.push_back("");
    if (!is_old || tables.empty()) {
        const std::string &file = is_old ? imports.front() : command.old_conf;
        const configuration *conf = file.empty() ? nullptr : session.files.conf(file, conf_layout::translated);
        if (conf)
            session.before.set_maps(*conf);
        return conf != nullptr;
    }
    for (const std::string &table : tables)
        session.before.add_table(*session.files.table(table));
    return true;
}

void compare(const configuration *init, const configuration *own, review_session &session) {
    const std::string &only = session.proxy;
    if (!only.empty() && !session.before.knows(only) && !session.after.knows(only))
        return trouble(session, format("no proxy {} is known there", only));
    access_options options;
    options.only_proxy = only;
    options.progress = [&](const std::string &proxy) { session.progress("comparing who gets through " + proxy); };
    options.initial_environment = init;
    options.own_result = own;
    compare_access(session.before, session.after, options, session.data);
}

// Each configuration of the command line once, as far as it says something by itself.
void check_inputs(const upgrade_command &command, review_session &session) {
    std::set<std::string> checked;
    for (char letter : {'e', 'm'}) {
        for (const std::string &file : step_files(command, letter)) {
            const configuration *conf = session.files.conf(file, conf_layout::translated);
            bool stands_alone = letter == 'e' || (file == command.old_conf && session.data.release >= 40);
            if (conf && checked.insert(file).second)
                check_conf(*conf, true, stands_alone, session.data);
        }
    }
}

// What is told of the content comes of a cause, if there is one.
void mark_followers(review_data &data) {
    auto leads = [](const finding &told) { return told.leads; };
    bool has_cause = std::any_of(data.findings.begin(), data.findings.end(), leads);
    static const std::set<std::string> apart = {"trouble", "command-line", "file", "not-written", "message"};
    for (finding &told : data.findings)
        told.follows = told.follows || (has_cause && !told.leads && !apart.count(told.id));
}

// The upgrade's bytes, and what a reader takes back of them. False if it came to no end.
bool run(const upgrade_command &command, review_session &session, std::string &bytes) {
    session.progress("running the upgrade");
    upgrade_result run = run_upgrade(command);
    std::istringstream messages(run.messages);
    for (std::string line; std::getline(messages, line);)
        if (!line.empty())
            tell(session.data, "message", "the upgrade says: " + line);
    bytes = run.output;
    std::string name = command.has_output ? command.output : "standard output";
    if (run.good() && command.version == 99) { // XML
        run = run_upgrade(command, {}, true);
        name += " (in the canonical layout)";
    }
    if (!run.good()) {
        trouble(session, run.trouble);
        return false;
    }
    session.own = read_configuration(name, std::move(run.output), conf_layout::translated);
    return true;
}

} // namespace

void review_upgrade(const upgrade_command &command, const std::string &file, long line, review_session &session) {
    review_data &data = session.data;
    loaded_files &files = session.files;
    data.command = command.words;
    detect_release(command, files, data);
    bool is_readable = check_files(command, files, data);
    check_command(command, files, data);
    if (!command.refused.empty() || !is_readable)
        return trouble(session, is_readable ? "the upgrade would not run" : "an input can't be read");
    if (line)
        return review_line(command, file, line, files, data);
    std::string bytes;
    if (!run(command, session, bytes))
        return;
    compare_bytes(command, bytes, session);
    bool is_own = data.result != written::different || command.version == 99;
    const configuration &result = is_own ? *session.own : *files.conf(command.output, conf_layout::translated);
    const configuration *init = files.conf(command.init_conf, conf_layout::translated);
    session.result = &result;
    session.after.set_maps(result);
    if (read_before(command, session))
        compare(data.release == 55 ? nullptr : init, is_own ? nullptr : session.own.get(), session);
    session.progress("accounting for every line");
    account_lines({command, files, result, session.before, session.after, bytes, session.progress}, data);
    session.progress("checking the result");
    check_conf(result, false, true, data);
    check_inputs(command, session);
    list_todo(command, files, result, session.before, data);
    mark_followers(data);
}

void explain_host(const std::string &conf, const std::string &table, const std::string &host, review_session &session) {
    review_data &data = session.data;
    if (host.empty() || host.find_first_of("* \t") != std::string::npos)
        return trouble(session, format("{} is no host: a host is a word without *", host));
    if (!is_read(conf, file_role::configuration, session) ||
        (!table.empty() && !is_read(table, file_role::table, session)))
        return;
    session.after.set_maps(*session.files.conf(conf, conf_layout::translated));
    const netperm_table *rules = table.empty() ? nullptr : session.files.table(table);
    if (rules)
        session.before.add_table(*rules);
    bool is_named = session.after.knows(session.proxy);
    for (const table_rule &rule : rules ? rules->rules : std::vector<table_rule>()) // names that are no proxy, too
        is_named = is_named || std::count(rule.names.begin(), rule.names.end(), session.proxy);
    if (!is_named)
        return trouble(session, format("no proxy {} is known there", session.proxy));
    decision now = decide(session.after, session.proxy, host),
             was = rules ? decide(session.before, session.proxy, host) : now;
    bool through = now.made == ruling::permit, was_through = was.made == ruling::permit;
    std::string text = rules ? decision_text(was) + " before, " + decision_text(now) + " now" : decision_text(now);
    const char *id = !rules ? "explain" : through == was_through ? "same" : through ? "wider" : "narrower";
    finding &told = tell(data, id, text, now.file.empty() ? was.file : now.file, now.line ? now.line : was.line);
    told.proxy = session.proxy;
    told.host = host;
    told.has_sides = true;
    told.before = was;
    told.after = now;
}

void review_diff(const std::string &before, const std::string &after, review_session &session) {
    if (!is_read(before, file_role::configuration, session) || !is_read(after, file_role::configuration, session))
        return;
    const configuration &was = *session.files.conf(before, conf_layout::translated);
    const configuration &is = *session.files.conf(after, conf_layout::translated);
    diff_configurations(was, is, session.data);
    session.before.set_maps(was);
    session.after.set_maps(is);
    compare(nullptr, nullptr, session);
}

void review_check(const std::string &path, review_session &session) {
    if (is_read(path, file_role::configuration, session))
        check_conf(*session.files.conf(path, conf_layout::translated), false, true, session.data);
}
