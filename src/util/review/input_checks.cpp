// Mistakes on the command line, and files that are not what their place asks for.
#include "input_checks.h"
#include "frag_tools.h"
#include "table_checks.h"
#include "upgrade.h"
#include "upgrade_run.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/format.h>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <sha256.h>
#include <sys/stat.h>
#include <unistd.h>

using fmt::format;

namespace {

using strings = std::vector<std::string>;

const char *trouble_with(const std::string &name, struct stat &status) {
    if (stat(name.c_str(), &status) != 0)
        return strerror(errno);
    if (S_ISDIR(status.st_mode))
        return "is a directory";
    if (!S_ISREG(status.st_mode))
        return "is no regular file, and can't be read more than once: copy it to a file";
    return access(name.c_str(), R_OK) == 0 ? nullptr : strerror(errno);
}

// Reads what can be read without waiting for it.
void read_regular(const std::string &path, FragList conf) {
    struct stat status {};
    if (!trouble_with(path, status))
        importffile(path.c_str(), conf, 0);
}

/// Keys of a configuration that tell what it is, read by the store's own rules.
struct conf_signs {
    bool numbered = false, versioned = false, has_records = false;
    int release = 32;
    explicit conf_signs(const std::string &path) {
        Frag *conf = nullptr;
        read_regular(path, &conf);
        for (const char *key : {"def_num_proxies", "cust_num_proxies", "policy_num_entries", "netobj_num_list"})
            numbered = numbered || ffind(&conf, key);
        versioned = ffind(&conf, "version_firewall") != nullptr;
        for (const char *key : {"def_proxy", "policy", "map"})
            has_records = has_records || ffind(&conf, key);
        release = old_config_type(&conf);
        freelist(conf);
    }
};

void check_words(const upgrade_command &command, review_data &data) {
    for (const upgrade_step &step : command.steps) {
        const std::string &word = command.words[step.index];
        if (step.attached && step.letter != 'V')
            tell(data, "command-line",
                 format("the text behind -{} in {} is ignored: the option takes the next word, {}", step.letter, word,
                        step.argument));
        if (step.attached && step.letter == 'm')
            tell(data, "command-line",
                 format("{} is merged but not looked at for the release, which only -m alone is", step.argument));
        if (step.letter == 'V' &&
            (step.argument.empty() || step.argument.find_first_not_of("0123456789") != std::string::npos))
            tell(
                data, "command-line",
                format("-V {} is not a whole number: it is read as {}", step.argument, decimal(step.argument.c_str())));
        if (step.letter != 'V' && step.argument[0] == '-')
            tell(data, "command-line", format("-{} takes the word {} for a file's name", step.letter, step.argument));
    }
    if (!command.numbered())
        tell(data, "command-line",
             format("the result is {} (-V {}), which is for reading: it can't be installed",
                    command.version == 99 ? "XML" : "in the canonical layout",
                    command.version == 99 ? 2 : command.version));
    for (size_t index : command.passed_over)
        tell(data, "command-line",
             format("{} is passed over: it belongs to no option and is not the last word", command.words[index]));
    if (!command.refused.empty())
        tell(data, "command-line", "the upgrade refuses this command line: " + command.refused);
    else if (!command.has_output)
        tell(data, "command-line",
             format("-{} took the last word, {}: no output is named, and the result goes to "
                    "standard output",
                    command.steps.back().letter, command.words.back()));
    else if (command.output[0] == '-')
        tell(data, "command-line", command.output + " is taken for the output's name, since it is the last word");
}

void check_order(const upgrade_command &command, review_data &data) {
    size_t first_merge = command.steps.size(), first_file = command.steps.size();
    for (size_t i = command.steps.size(); i-- > 0;) {
        if (command.steps[i].letter == 'm')
            first_merge = i;
        if (strchr("mne", command.steps[i].letter))
            first_file = i;
    }
    size_t merges = 0;
    const upgrade_step *merged = nullptr;
    for (size_t i = 0; i < command.steps.size(); i++) {
        const upgrade_step &step = command.steps[i];
        merges += step.letter == 'm';
        if (step.letter == 'm')
            merged = &step;
        if (step.letter == 'n' && merged && data.release < 40)
            tell(data, "command-line",
                 format("-n {} stands behind -m {}: the maps of what was merged decide ahead of the table's, its ports "
                        "go, and what both say is mixed",
                        step.argument, merged->argument));
        if (step.letter == 'e' && i < first_merge && first_merge < command.steps.size())
            tell(data, "command-line",
                 format("-e {} stands ahead of the first -m: what it brings is there before the "
                        "old configuration and wins over it, and the keys that it turns into "
                        "names come in once more, by number",
                        step.argument));
        if (step.letter == 'e' && merges > 1)
            tell(data, "command-line",
                 format("-e {} stands behind -m {}: the maps, proxies and policies of that go, too", step.argument,
                        merged->argument));
        if (step.letter == 'R' && i > first_file)
            tell(data, "command-line",
                 format("-R {} stands behind another option: the report does not tell what "
                        "came before",
                        step.argument));
    }
    if (command.old_conf.empty())
        tell(data, "command-line",
             "no old configuration is named by -m: nothing tells the release, so that it counts "
             "as one from before 4.0");
    else if (merges == 1 && command.init_conf.empty() && data.release != 55)
        tell(data, "command-line", "no initial environment is named by a second -m");
}

// Roles that were mixed up, as the files themselves tell.
void check_roles(const upgrade_command &command, review_data &data) {
    if (!command.old_conf.empty() && !command.init_conf.empty()) {
        conf_signs old_signs(command.old_conf), init_signs(command.init_conf);
        if (same_file(command.old_conf, command.init_conf))
            tell(data, "command-line",
                 command.old_conf + " is named as the old configuration and as the initial "
                                    "environment");
        else if (!old_signs.versioned && init_signs.versioned)
            tell(data, "command-line",
                 format("{} has no version_firewall and {} has: it looks like an initial "
                        "environment in the place of the old configuration",
                        command.old_conf, command.init_conf));
    }
    for (const std::string &file : step_files(command, 'm')) {
        strings imports = step_files(command, 'e');
        bool imported =
            std::any_of(imports.begin(), imports.end(), [&](const std::string &name) { return same_file(name, file); });
        conf_signs signs(file);
        if (signs.numbered && data.release == 55 && file == command.old_conf)
            tell(data, "command-line",
                 format(
                     "{} is of 5.5 and in the numbered layout, so it is in the new form already: leave it as it is; {}",
                     file,
                     imported ? "-e removes all its proxies, policies and maps"
                              : "its proxies, policies and lists come in under their numbers"));
        else if (!imported && signs.numbered)
            tell(data, "command-line",
                 format("{} is in the numbered layout and named by -m alone: its proxies, "
                        "policies and lists come in under their numbers; name it by -e, too",
                        file));
    }
    for (const std::string &file : step_files(command, 'e')) {
        conf_signs signs(file);
        if (!signs.numbered && signs.has_records)
            tell(data, "command-line",
                 format(
                     "{} is in the canonical layout: -e is for the numbered one, and removes all proxies, policies and "
                     "maps; leave it out",
                     file));
    }
    strings tables = step_files(command, 'n');
    for (size_t i = 1; i < tables.size(); i++)
        if (std::any_of(tables.begin(), tables.begin() + static_cast<long>(i),
                        [&](const std::string &name) { return same_file(name, tables[i]); }))
            tell(data, "command-line",
                 tables[i] + " is named twice by -n: its rules are translated once more, behind themselves");
    for (const std::string &file : tables) {
        if (data.release == 55)
            tell(data, "command-line",
                 format("a configuration of 5.5 takes no table: {} is not opened, and all that "
                        "was merged ahead of it is left out of the result",
                        file));
        else if (data.release >= 40)
            tell(data, "command-line", format("a configuration from 4.0 on takes no table: {} changes nothing", file));
    }
    if (data.release < 40 && step_files(command, 'n').empty() && step_files(command, 'e').empty())
        tell(data, "command-line",
             "no netperm table is named by -n, though the configuration is from before 4.0: "
             "nothing tells who got through");
}

void check_overwritten(const upgrade_command &command, review_data &data) {
    strings reports = step_files(command, 'R');
    for (const upgrade_step &step : command.steps) {
        if (!strchr("mne", step.letter))
            continue;
        if (command.has_output && same_file(command.output, step.argument))
            tell(data, "command-line",
                 format("the output {} is the input {}: the upgrade overwrites it", command.output, step.argument));
        for (const std::string &report : reports) {
            if (same_file(report, step.argument))
                tell(data, "command-line",
                     format("the report {} is the input {}: the upgrade empties it before it "
                            "reads it",
                            report, step.argument));
        }
    }
    for (const std::string &report : reports) {
        if (command.has_output && (report == command.output || same_file(report, command.output)))
            tell(data, "command-line", format("the report {} is the output: both are written into one file", report));
    }
}

/// What a look at a file's bytes tells.
struct text_signs {
    size_t assignments = 0, rules = 0;
    long lone_returns = 0, first_return = 0, trailing_blanks = 0, first_trailing = 0, zeros = 0;
    std::vector<long> run_on;
    std::vector<std::pair<long, size_t>> long_names;
};

size_t longest_component(std::string_view key) {
    size_t longest = 0;
    while (!key.empty()) {
        std::string_view part = key.substr(0, key.find('_'));
        longest = std::max(longest, part.size());
        key.remove_prefix(std::min(key.size(), part.size() + 1));
    }
    return longest;
}

bool is_rule_line(std::string_view line) {
    size_t colon = line.find(':');
    if (colon == line.npos || colon == 0 || line.substr(0, colon).find('=') != line.npos)
        return false;
    size_t word = line.find_first_not_of(" \t", colon + 1);
    return word != line.npos && line.find_first_of(" \t", word) != line.npos;
}

// `section` holds whether the file has come to its section form, `continued` whether the last value goes on here.
void look_at_line(std::string_view line, long number, bool &section, bool &continued, text_signs &signs) {
    if (line.find('\0') != line.npos)
        signs.zeros++;
    if (!line.empty() && line.back() == '\r')
        line.remove_suffix(1);
    if (line.find('\r') != line.npos && !signs.lone_returns++)
        signs.first_return = number;
    if (!line.empty() && is_blank(line.back()) && !signs.trailing_blanks++)
        signs.first_trailing = number;
    size_t start = line.find_first_not_of(" \t");
    if (start == line.npos || line[0] == '#') {
        // Blank, or a comment of a table; in a configuration it is an assignment like any other or runs on.
        if (start != line.npos && line.find('=') == line.npos)
            signs.run_on.push_back(number);
        return;
    }
    section = section || line[start] == '[';
    bool goes_on = section && line.find('\\', line.find('=')) != line.npos && line.find('=') != line.npos;
    size_t equals = line.find('=');
    if (continued || (section && line[start] == '[' && equals == line.npos)) {
        continued = continued ? line.find('\\') != line.npos : false;
        return;
    }
    continued = goes_on;
    bool rule = is_rule_line(line);
    signs.rules += rule;
    signs.assignments += !rule && equals != line.npos;
    if (equals == line.npos)
        signs.run_on.push_back(number);
    if (size_t longest = longest_component(line.substr(start, equals == line.npos ? equals : equals - start));
        longest > FRAGNAME_SIZE - 1)
        signs.long_names.emplace_back(number, longest);
}

text_signs look_at_text(std::string_view text) {
    text_signs signs;
    bool section = false, continued = false;
    for (long number = 1; !text.empty(); number++) {
        std::string_view line = text.substr(0, text.find('\n'));
        look_at_line(line, number, section, continued, signs);
        text.remove_prefix(std::min(text.size(), line.size() + 1));
    }
    return signs;
}

constexpr size_t SHOWN_LINES = 5; // of one kind in one file

void check_configuration_lines(const std::string &name, const text_signs &signs, review_data &data) {
    for (size_t i = 0; i < signs.run_on.size() && i < SHOWN_LINES; i++)
        tell(data, "file", "no = in this line: it runs on into the next", name, signs.run_on[i]).count =
            static_cast<long>(i == 0 ? signs.run_on.size() : 0);
    for (size_t i = 0; i < signs.long_names.size() && i < SHOWN_LINES; i++)
        tell(data, "file",
             format("a name of {} bytes: it is cut at 63, and the rest of the line becomes its value",
                    signs.long_names[i].second),
             name, signs.long_names[i].first);
}

// True if the bytes are text at all, so that a look at the lines has a meaning.
bool check_encoding(const std::string &name, std::string_view text, review_data &data) {
    if (text.empty()) {
        tell(data, "file", "the file is empty", name);
        return false;
    }
    if (text.substr(0, 2) == "\xff\xfe" || text.substr(0, 2) == "\xfe\xff" ||
        (text.size() > 3 && std::count(text.begin(), text.end(), '\0') * 3 > static_cast<long>(text.size()))) {
        tell(data, "file", "the file is UTF-16: convert it to plain text", name);
        return false;
    }
    if (text.substr(0, 3) == "\xef\xbb\xbf")
        tell(data, "file", "a byte order mark stands in front: it becomes part of the first name", name, 1);
    if (text.find('\n') == text.npos && text.find('\r') != text.npos) {
        tell(data, "file", "the lines end in CR alone: the whole file is read as one line", name, 1);
        return false;
    }
    return true;
}

void check_text(const std::string &name, const std::string &role, std::string_view text, review_data &data) {
    if (!check_encoding(name, text, data))
        return;
    text_signs signs = look_at_text(text);
    bool table = role == "netperm table";
    if (table && signs.assignments > signs.rules) {
        tell(data, "file", "looks like a configuration, in the place of a netperm table", name);
        return;
    }
    if (!table && signs.rules > signs.assignments) {
        tell(data, "file", format("looks like a netperm table, in the place of the {}", role), name);
        return;
    }
    if (signs.zeros)
        tell(data, "file", "lines with a zero byte", name).count = signs.zeros;
    if (signs.trailing_blanks)
        tell(data, "file", "blanks at the end of lines, which belong to the values", name, signs.first_trailing).count =
            signs.trailing_blanks;
    if (table) {
        check_table(name, text, data);
        return;
    }
    if (signs.lone_returns)
        tell(data, "file", "a CR within a line: it vanishes, and the line goes on", name, signs.first_return).count =
            signs.lone_returns;
    check_configuration_lines(name, signs, data);
}

std::string digest_of(std::string_view text) {
    SHA256_CTX context;
    SHA256Init(&context);
    SHA256Update(&context, reinterpret_cast<const uint8_t *>(text.data()), text.size());
    char digest[SHA256_DIGEST_STRING_LENGTH];
    return SHA256End(&context, digest);
}

// Records the file and hands over its bytes. False if it can't be read.
bool record_file(const std::string &name, const char *role, review_data &data, std::string &text) {
    data.files.push_back({role, name, "", -1});
    struct stat status {};
    if (const char *trouble = trouble_with(name, status)) {
        tell(data, "file", format("the {} can't be read: {}", role, trouble), name);
        return false;
    }
    std::ifstream stream(name, std::ios::binary);
    text.assign(std::istreambuf_iterator<char>(stream), {});
    data.files.back().size = static_cast<long long>(text.size());
    data.files.back().sha256 = digest_of(text);
    return true;
}

bool check_file(const std::string &name, const char *role, review_data &data) {
    for (const file_record &record : data.files) {
        if (record.name == name && record.role == role)
            return record.size >= 0;
    }
    std::string text;
    if (!record_file(name, role, data, text))
        return false;
    check_text(name, role, text, data);
    return true;
}

void check_output(const upgrade_command &command, review_data &data) {
    struct stat status {};
    if (stat(command.output.c_str(), &status) == 0) {
        if (S_ISDIR(status.st_mode)) {
            tell(data, "file", "the output's name is that of a directory", command.output);
            return;
        }
        if (access(command.output.c_str(), W_OK) != 0)
            tell(data, "file", "the output can't be written: " + std::string(strerror(errno)), command.output);
        std::string text;
        record_file(command.output, "result", data, text);
        return;
    }
    size_t slash = command.output.rfind('/');
    std::string folder = slash == std::string::npos ? "." : command.output.substr(0, slash + 1);
    if (access(folder.c_str(), W_OK) != 0)
        tell(data, "file", format("the output can't be written to {}: {}", folder, strerror(errno)), command.output);
}

} // namespace

finding &tell(review_data &data, const char *id, std::string text, const std::string &file, long line) {
    finding &told = data.findings.emplace_back();
    told.id = id;
    told.text = std::move(text);
    told.file = file;
    told.line = line;
    return told;
}

void check_command(const upgrade_command &command, review_data &data) {
    check_words(command, data);
    if (!command.refused.empty())
        return;
    check_order(command, data);
    check_roles(command, data);
    check_overwritten(command, data);
}

bool check_files(const upgrade_command &command, review_data &data) {
    bool readable = true;
    int merges = 0;
    for (const upgrade_step &step : command.steps) {
        const char *role = nullptr;
        if (step.letter == 'n')
            role = "netperm table";
        else if (step.letter == 'e')
            role = "environment";
        else if (step.letter == 'm')
            role = ++merges == 1 ? "old configuration" : merges == 2 ? "initial environment" : "merged file";
        if (role && !check_file(step.argument, role, data))
            readable = false;
    }
    if (command.has_output)
        check_output(command, data);
    return readable;
}

void detect_release(const upgrade_command &command, review_data &data) {
    Frag *conf = nullptr;
    if (!command.old_conf.empty())
        read_regular(command.old_conf, &conf);
    data.release = old_config_type(&conf);
    const char *version = fval(&conf, "version_firewall");
    if (command.old_conf.empty())
        data.release_reason = "no old configuration is named";
    else if (!ffind(&conf, "def_proxy"))
        data.release_reason = "no def_proxy in " + command.old_conf;
    else if (!ffind(&conf, "version_firewall"))
        data.release_reason = "def_proxy but no version_firewall in " + command.old_conf;
    else
        data.release_reason = format("version_firewall={} in {}", version ? version : "", command.old_conf);
    freelist(conf);
}

bool check_configuration(const std::string &path, const char *role, review_data &data) {
    return check_file(path, role, data);
}
