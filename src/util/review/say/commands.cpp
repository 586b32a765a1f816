// The commands as sequences of what the other folders know.
#include "checks/checks.h"
#include "lines/lines.h"
#include "run/upgrade_run.h"
#include "say/say.h"

#include <algorithm>
#include <cstring>
#include <fmt/format.h>
#include <set>
#include <sys/stat.h>
#include <unistd.h>

using fmt::format;

namespace {

void trouble(review_session &session, std::string text) { tell(session.data, "trouble", std::move(text)); }

bool is_read(const std::string &path, file_role role, review_session &session) {
    return check_configuration(path, role, session.files, session.data);
}

// Leaves out doubts about single lines of files, but for the one that is asked for.
void forget_other_lines(review_data &data, const place &asked) {
    auto is_other = [&](const finding &told) {
        return told.id == "file" && told.at.line != 0 && (told.at.line != asked.line || told.at.file != asked.file);
    };
    data.findings.erase(std::remove_if(data.findings.begin(), data.findings.end(), is_other), data.findings.end());
}

// Both sides of the first line that differs.
std::string first_difference(const std::string &is, const std::string &should_be) {
    std::string same(is.begin(), std::mismatch(is.begin(), is.end(), should_be.begin(), should_be.end()).first);
    auto line_of = [begin = same.rfind('\n') + 1](const std::string &text) {
        std::string line = text.substr(begin, 80);
        return line.empty() ? "nothing" : '"' + line.substr(0, line.find('\n')) + '"';
    };
    return format("line {} is {}, and the upgrade writes {}", std::count(same.begin(), same.end(), '\n') + 1,
                  line_of(is), line_of(should_be));
}

// An input that was changed after the result was made; empty for none.
std::string newer_input(const upgrade_command &command) {
    struct stat result = {}, input = {};
    stat(command.output.c_str(), &result);
    for (const upgrade_step &step : command.steps)
        if (strchr("nme", step.letter) && stat(step.argument.c_str(), &input) == 0 && input.st_mtime > result.st_mtime)
            return step.argument;
    return "";
}

// Whether the output is what the upgrade writes, and if not, what is the matter with it.
void compare_bytes(const upgrade_command &command, const std::string &should_be, review_session &session) {
    const place at{command.output};
    const std::string *is = session.files.bytes(at.file), *old = session.files.bytes(command.old_conf);
    const adviser doubt{session.data, "not-written"}, cause{session.data, "not-written", true};
    if (is)
        session.data.result = *is == should_be ? written::same : written::different;
    if (!command.has_output || session.data.result == written::same)
        return;
    std::string newer = newer_input(command), first = first_difference(is ? *is : "", should_be);
    if (!is && access(at.file.c_str(), F_OK) != 0)
        doubt(at, "run the upgrade", "not there yet: this is a preview of what would be written");
    else if (!is)
        doubt(at, "name a file to keep the result in",
              "nothing can be read back from it: what is told is what would be written");
    else if (is->size() < should_be.size() && should_be.compare(0, is->size(), *is) == 0)
        cause(at, "look at the disk and at limits on the size of files, then run the upgrade again",
              "cut short: {} of {} bytes are there", is->size(), should_be.size());
    else if (old && *old == *is)
        cause(at, "if the upgrade wrote into its input, that has to come from its copy",
              "it is the old configuration, byte for byte: {}", first);
    else if (!newer.empty())
        cause(at, "run the upgrade again", "an older result: {} was changed after it; {}", newer, first);
    else
        doubt(at, "run the upgrade again, or make sure that the change is meant",
              "made of other inputs or with other options, or changed by hand: {}", first);
}

// Who decided before: the tables, or from 4.0 on the old configuration's maps. False if nothing tells.
bool read_before(const upgrade_command &command, review_session &session) {
    bool is_old = session.data.release < 40;
    std::vector<std::string> tables = step_files(command, 'n'), imports = step_files(command, 'e');
    for (const std::string &table : is_old ? tables : std::vector<std::string>())
        session.before.add_table(*session.files.table(table));
    imports.push_back("");
    const configuration *conf = session.files.conf(is_old ? imports.front() : command.old_conf);
    if (conf && session.before.tables.empty())
        session.before.set_maps(*conf);
    return conf || !session.before.tables.empty();
}

void compare(const configuration *init, const configuration *own, review_session &session) {
    const std::string &only = session.proxy;
    if (!only.empty() && !session.before.knows(only) && !session.after.knows(only))
        return trouble(session, format("no proxy {} is known there", only));
    compare_access(session.before, session.after, {only, init, own, session.progress}, session.data);
}

// Each configuration of the command line once, as far as it says something by itself.
void check_inputs(const upgrade_command &command, review_session &session) {
    std::set<std::string> checked;
    for (char letter : {'e', 'm'})
        for (const std::string &file : step_files(command, letter)) {
            const configuration *conf = session.files.conf(file);
            if (!conf || !checked.insert(file).second)
                continue;
            bool is_old = letter == 'm' && file == command.old_conf && session.data.release >= 40;
            check_conf(*conf, true, letter == 'e' || is_old, session.data);
            check_input_doubles(letter == 'm' ? *session.files.conf(file, conf_layout::merged) : *conf, !is_old,
                                session.data);
        }
}

// What is told of the content comes of a cause, if there is one.
void mark_followers(review_data &data) {
    bool has_cause =
        std::any_of(data.findings.begin(), data.findings.end(), [](const finding &told) { return told.leads; });
    static const std::set<std::string> apart = {"trouble", "command-line", "file", "not-written", "message"};
    for (finding &told : data.findings)
        told.follows = has_cause && !told.leads && !apart.count(told.id);
}

// The upgrade's bytes, and as `session.own` what a reader takes back of them: null if it came to no end.
file_bytes run(const upgrade_command &command, review_session &session) {
    session.progress("running the upgrade");
    upgrade_result run = run_upgrade(command);
    for (std::string_view left = run.messages; !left.empty();)
        if (std::string_view line = take_line(left); !line.empty())
            tell(session.data, "message", format("the upgrade says: {}", line));
    file_bytes bytes(std::move(run.output)), readable = bytes;
    std::string name = session.subject;
    if (run.good() && command.version == 99) { // XML
        run = run_upgrade(command, {}, true);
        readable = std::move(run.output);
        name += " (in the canonical layout)";
    }
    if (run.good())
        session.own = read_configuration(name, readable, conf_layout::translated);
    else
        trouble(session, run.trouble);
    if (run.good() && command.version == 99)
        check_xml(*bytes.held, *session.own, session.subject, session.data);
    return bytes;
}

} // namespace

void review_upgrade(review_session &session) {
    std::string place = session.words.empty() ? "" : session.words[0];
    size_t colon = place.rfind(':');
    long line = colon == place.npos ? 0 : strtol(place.c_str() + colon + 1, nullptr, 10);
    if (!session.words.empty() && line < 1)
        throw std::runtime_error(place + " is no place: FILE:N is one");
    upgrade_command command = parse_upgrade_command(session.upgrade_words);
    session.subject = command.has_output ? command.output : "standard output";
    review_data &data = session.data;
    loaded_files &files = session.files;
    data.command = command.words;
    detect_release(command, files, data);
    bool is_readable = check_files(command, files, data);
    check_command(command, files, data);
    if (!command.refused.empty())
        return trouble(session, "the upgrade would not run");
    if (!is_readable)
        return;
    if (line) {
        forget_other_lines(data, {place.substr(0, colon), line});
        return review_line(command, place.substr(0, colon), line, files, data);
    }
    file_bytes bytes = run(command, session);
    if (!session.own)
        return;
    compare_bytes(command, *bytes.held, session);
    bool is_own = data.result != written::different || command.version == 99;
    const configuration &result = is_own ? *session.own : *files.conf(command.output);
    session.after.set_maps(result);
    if (read_before(command, session))
        compare(data.release == 55 ? nullptr : files.conf(command.init_conf), is_own ? nullptr : &*session.own,
                session);
    session.progress("accounting for every line");
    account_lines({command, files, result, *session.own, session.before, session.progress}, data);
    session.progress("checking the result");
    check_conf(result, false, true, data);
    check_inputs(command, session);
    list_todo(command, files, result, session.before, data);
    mark_followers(data);
}

void explain_host(review_session &session) {
    const std::string &conf = session.words[0], &host = session.words[2];
    std::string proxy = session.words[1];
    if (host.empty() || host.find_first_of("* \t") != std::string::npos)
        return trouble(session, format("{} is no host: a host is a word without *", host));
    if (!is_read(conf, file_role::configuration, session) ||
        (!session.table.empty() && !is_read(session.table, file_role::table, session)))
        return;
    forget_other_lines(session.data, {});
    session.after.set_maps(*session.files.conf(conf));
    const netperm_table *table = session.files.table(session.table);
    if (table)
        session.before.add_table(*table);
    if (table && !session.after.knows(proxy)) // a table writes it either way
        std::replace(proxy.begin(), proxy.end(), '_', '-');
    bool is_named = table && session.before.filed[0].count(proxy) != 0; // also one that is no proxy
    if (!is_named && !session.after.knows(proxy))
        return trouble(session, format("no proxy {} is known there", proxy));
    decision now = decide(session.after, proxy, host), was = table ? decide(session.before, proxy, host) : now;
    int gain = (now.made == ruling::permit) - (was.made == ruling::permit);
    const char *id = !table ? "explain" : gain == 0 ? "same" : gain > 0 ? "wider" : "narrower";
    finding &told = tell_change(session.data, id, was, now);
    told.proxy = proxy;
    told.host = host;
    if (!table)
        told.text = decision_text(now);
}

void review_diff(review_session &session) {
    const std::string &before = session.words[0], &after = session.words[1];
    if (!is_read(before, file_role::configuration, session) || !is_read(after, file_role::configuration, session))
        return;
    session.before.set_maps(*session.files.conf(before));
    session.after.set_maps(*session.files.conf(after));
    diff_configurations(*session.before.conf, *session.after.conf, session.data);
    compare(nullptr, nullptr, session);
}

void review_check(review_session &session) {
    const std::string &path = session.words[0];
    if (is_read(path, file_role::configuration, session))
        check_conf(*session.files.conf(path), false, true, session.data);
}
