// Files that can't be read, whose bytes read otherwise than they look, or that are not what their place asks for.
#include "checks/checks.h"
#include "frag_tools.h"
#include "nupgrade.h"
#include "run/upgrade_run.h"
#include "say/say.h"
#include "upgrade.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fmt/ranges.h>
#include <sha256.h>
#include <sys/stat.h>
#include <unistd.h>

namespace {

/// Lines of one kind in a file: what they are, what to do, how many there are, and the first.
struct sighting {
    const char *text, *advice;
    long count = 0, first = 0;
    void see(long line) { first = count++ ? first : line; }
};

/// What a look at a file's lines tells.
struct line_signs {
    long assignments = 0, rules = 0;
    sighting zeros{"a zero byte, which no text holds", "take the file from its copy"};
    sighting blanks{"blanks at the end of a line, which belong to its value", "remove them"};
    sighting returns{"a CR within a line: it is lost, in a table with all behind it", "end lines in LF"};
    sighting run_on{"no = in this line: it runs on into the next", "write name=value, or remove it"};
    sighting cut{"a name of more than 63 bytes: it is cut there, and the rest of the line is its value", "shorten it"};
};

bool is_rule_line(std::string_view line) {
    size_t colon = std::min(line.find(':'), line.size() - 1), word = line.find_first_not_of(" \t", colon + 1);
    return colon && word != line.npos && line.find_first_of(" \t", word) != line.npos && line.find('=') > colon;
}

line_signs look_at_lines(std::string_view text) {
    line_signs signs;
    for (long number = 1; !text.empty(); number++) {
        std::string_view line = text.substr(0, text.find('\n'));
        text.remove_prefix(std::min(text.size(), line.size() + 1));
        line.remove_suffix(!line.empty() && line.back() == '\r');
        if (line.find('\0') != line.npos)
            signs.zeros.see(number);
        if (line.find('\r') != line.npos)
            signs.returns.see(number);
        if (size_t end = line.find_last_not_of(" \t") + 1; end > 0 && end < line.size())
            signs.blanks.see(number);
        if (line.find_first_of(":=") != line.npos && line[0] != '#')
            (is_rule_line(line) ? signs.rules : signs.assignments)++;
    }
    return signs;
}

// Names that run on over a line's end, and those that the reader cuts, which the section form does not.
void look_at_names(const configuration &conf, line_signs &signs) {
    for (const conf_line &line : conf.lines) {
        std::string_view text = std::string_view(conf.bytes).substr(line.begin, line.end - line.begin);
        text = text.substr(0, line.section_form ? 0 : text.find('='));
        text.remove_prefix(std::min(text.find_first_not_of(" \t\r\n"), text.size()));
        if (text.find('\n') != text.npos)
            signs.run_on.see(line.line);
        for (size_t at = 0, end; at < text.size(); at = end + 1)
            if (end = std::min(text.find('_', at), text.size()); end - at >= FRAGNAME_SIZE)
                signs.cut.see(line.line);
    }
}

// What is wrong with the bytes as a whole and what to do about it, nulls if nothing is.
std::pair<const char *, const char *> sign_of_all(std::string_view text) {
    bool is_wide = text.size() > 3 && std::count(text.begin(), text.end(), '\0') * 3 > static_cast<long>(text.size());
    if (text.empty())
        return {"the file is empty", "take it from its copy"};
    if (is_wide || text.substr(0, 2) == "\xff\xfe" || text.substr(0, 2) == "\xfe\xff")
        return {"the file is UTF-16", "convert it to plain text"};
    if (text.find('\n') == text.npos && text.find('\r') != text.npos)
        return {"the lines end in CR alone: the whole file is one line", "end them in LF"};
    if (text.substr(0, 3) == "\xef\xbb\xbf")
        return {"a byte order mark stands in front: it becomes part of the first name", "save the file without it"};
    return {};
}

bool has_own_name(const configuration &conf) {
    std::string name = conf.value("hostname");
    return !name.empty() && !has_prefix_nocase(name.c_str(), "localhost");
}

/// The files of a command under check. Its first two configurations are null where there is none.
struct checking {
    const upgrade_command &command;
    loaded_files &files;
    review_data &data;
    const configuration *old = files.conf(command.old_conf, conf_layout::as_written);
    const configuration *init = files.conf(command.init_conf, conf_layout::as_written);
    adviser doubt{data, "file"};

    void check_text(const std::string &name, file_role role) const {
        std::string_view bytes = *files.bytes(name);
        bool is_table = role == file_role::table;
        if (auto [sign, advice] = sign_of_all(bytes); sign)
            return void(doubt({name}, advice, "{}", sign));
        line_signs signs = look_at_lines(bytes);
        if (is_table ? signs.assignments > signs.rules : signs.rules > signs.assignments)
            return void(doubt({name}, "name the table by -n and configurations by -m",
                              "looks like a {}, in the place of the {}", is_table ? "configuration" : "netperm table",
                              word(role)));
        if (!is_table)
            look_at_names(*files.conf(name, conf_layout::as_written), signs);
        else if (data.release < 40)
            check_table(*files.table(name), old, init, data);
        for (const sighting *each : {&signs.zeros, &signs.blanks, &signs.returns, &signs.run_on, &signs.cut})
            if (each->count)
                doubt({name, each->first}, each->advice, "{}", each->text).count = each->count > 1 ? each->count : 0;
    }

    // Takes note of a file. False if it can't be read, which is told.
    bool record(const std::string &name, file_role role) const {
        file_record &made = data.files[file_number(data, name, role)];
        struct stat status {};
        bool there = stat(name.c_str(), &status) == 0 && access(name.c_str(), R_OK) == 0;
        const std::string *bytes = there ? files.bytes(name) : nullptr;
        if (!bytes) {
            doubt({name}, "name a file that can be read", "the {} can't be read: {}", word(role),
                  !there || S_ISREG(status.st_mode) ? strerror(errno)
                  : S_ISDIR(status.st_mode)         ? "is a directory"
                                                    : "is no regular file, and can't be read more than once");
            return false;
        }
        char digest[SHA256_DIGEST_STRING_LENGTH];
        made.size = static_cast<long long>(bytes->size());
        made.sha256 = SHA256Data(reinterpret_cast<const uint8_t *>(bytes->data()), bytes->size(), digest);
        return true;
    }

    bool check(const std::string &name, file_role role) const {
        for (const file_record &known : data.files)
            if (known.name == name && known.role == role)
                return known.size >= 0;
        bool is_readable = record(name, role);
        if (is_readable)
            check_text(name, role);
        return is_readable;
    }

    void check_output() const {
        const std::string &output = command.output;
        struct stat status {};
        std::string folder = output.find('/') == output.npos ? "." : output.substr(0, output.rfind('/') + 1);
        bool there = stat(output.c_str(), &status) == 0;
        if (there && S_ISDIR(status.st_mode))
            return void(doubt({output}, "name a file in it", "the output's name is that of a directory"));
        if (access(there ? output.c_str() : folder.c_str(), W_OK) != 0)
            doubt({output}, "name another", "the output can't be written{}: {}", there ? "" : " to " + folder,
                  strerror(errno));
        if (there)
            record(output, file_role::result);
    }

    // The proxies that were in use, and for which the release has a program, but this environment has none.
    std::set<std::string> without_program() const {
        std::vector<std::string> imports = step_files(command, 'e');
        const std::string &was = imports.empty() ? command.old_conf : imports[0];
        const configuration *conf = files.conf(was, conf_layout::translated);
        std::set<std::string> lacking, used = conf ? switched_on(*conf) : lacking;
        for (const std::string &file : data.release < 40 ? step_files(command, 'n') : std::vector<std::string>())
            for (const table_rule &rule : files.table(file) ? files.table(file)->rules : std::vector<table_rule>())
                if (rule.attribute == "hosts")
                    used.insert(rule.names.begin(), rule.names.end());
        for (const std::string &name : used)
            for (const maprec *services : {map_unix, map_nt})
                if (const maprec *row = find_maprec(services, &maprec::proxy, name.c_str());
                    row && *row->exec && init->value(("def_proxy_" + name + "_proxy-exec").c_str()).empty())
                    lacking.insert(name);
        return lacking;
    }

    void check_environment() const {
        const Frag *version = init->find("version_firewall"), *host = init->find("hostname");
        if (!value_of(version).empty() && !is_new_release(value_of(version)))
            doubt({init->name, init->line_of(version)}, "take that of the new release",
                  "is of release {}, and the new one is 5.5: is it an initial environment?", value_of(version));
        if (has_own_name(*init))
            doubt({init->name, init->line_of(host)}, "take it as the new release came with it",
                  "has the host name {} of its own: is it of another site?", value_of(host));
        if (std::set<std::string> lacking = without_program(); !lacking.empty())
            doubt({init->name}, "compare it with what the new release came with",
                  "has no program (proxy-exec) for {}, in use before: is it whole, and of the new release?",
                  fmt::join(lacking, ", "));
        for (const Frag *list : init->children("netobj_list"))
            for (const Frag *element : configuration::children(list, "element"))
                if (std::string addr = value_of(element, "addr"), network = network_pattern(addr);
                    !network.empty() && value_of(element, "interface").empty())
                    doubt({init->name, init->line_of(element)}, network + " is meant?",
                          "{} in the list {} stands for itself alone and covers no real host", addr, clear_name(list));
    }
};

} // namespace

bool is_new_release(const std::string &version) {
    size_t digit = version.find_first_of("0123456789");
    return digit != version.npos && version.compare(digit, 3, "5.5") == 0;
}

bool check_configuration(const std::string &path, file_role role, loaded_files &files, review_data &data) {
    return checking{{}, files, data}.check(path, role);
}

bool check_files(const upgrade_command &command, loaded_files &files, review_data &data) {
    const file_role merged[] = {file_role::old_configuration, file_role::initial_environment, file_role::merged};
    checking check{command, files, data};
    bool readable = true;
    size_t merges = 0;
    for (const upgrade_step &step : command.steps) {
        file_role role = step.letter == 'm'   ? merged[std::min<size_t>(merges++, 2)]
                         : step.letter == 'n' ? file_role::table
                                              : file_role::environment;
        if (strchr("mne", step.letter))
            readable = check.check(step.argument, role) && readable;
    }
    if (command.has_output)
        check.check_output();
    return readable;
}

void detect_release(const upgrade_command &command, loaded_files &files, review_data &data) {
    const std::string &file = command.old_conf;
    const configuration *conf = files.conf(file, conf_layout::as_written);
    data.release = conf ? old_config_type(conf->db()) : 32;
    data.host_name = conf ? conf->value("hostname") : "";
    data.release_reason = file.empty()                        ? "no old configuration is named"
                          : !conf || !conf->find("def_proxy") ? "no def_proxy in " + file
                          : !conf->find("version_firewall")
                              ? "def_proxy but no version_firewall in " + file
                              : fmt::format("version_firewall={} in {}", conf->value("version_firewall"), file);
}

void check_places(const upgrade_command &command, loaded_files &files, review_data &data) {
    checking check{command, files, data};
    const configuration *old = check.old, *init = check.init;
    adviser doubt{data, "command-line"};
    std::string was = old ? old->value("version_firewall") : "", is = init ? init->value("version_firewall") : "";
    bool unversioned = old && old->find("def_proxy") && !old->find("version_firewall");
    bool is_own = init && !is.empty() && (!is_new_release(is) || has_own_name(*init));
    if (old && init && same_file(old->name, init->name)) {
        doubt({}, "name the new release's environment by the second -m",
              "{} is named as the old configuration and as the initial environment", old->name);
    } else if (old && is_own && (unversioned || (is_new_release(was) && !is_new_release(is)))) {
        doubt({}, "put the old configuration's -m first",
              "{} has {} and {} has {}: it looks like an initial environment in the place of the old configuration",
              old->name, unversioned ? "no version_firewall" : was, init->name, is)
            .leads = true;
    } else {
        if (unversioned)
            check.doubt({old->name}, "add version_firewall with the release that wrote it",
                        "has def_proxy and no version_firewall, so that it counts as one of 4.0: is it?");
        if (init && data.release != 55)
            check.check_environment();
    }
}
