// Files that can't be read or written, whose bytes read otherwise than they look, or that are of another kind.
#include "checks/checks.h"
#include "frag_tools.h"
#include "say/say.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
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
    sighting open{"no line end behind the last line: is the file whole?", "compare it with its copy"};
    sighting cut{"a name of more than 63 bytes: it is cut there, and the rest of the line is its value", "shorten it"};
};

line_signs look_at_lines(std::string_view text) {
    line_signs signs;
    const char *end_of_all = text.data() + text.size();
    for (long number = 1; !text.empty(); number++) {
        std::string_view line = take_line(text);
        if (line.data() + line.size() == end_of_all)
            signs.open.see(number);
        line.remove_suffix(!line.empty() && line.back() == '\r');
        if (line.find('\0') != line.npos)
            signs.zeros.see(number);
        if (line.find('\r') != line.npos)
            signs.returns.see(number);
        size_t sign = line.find_first_of(":=");
        bool is_hosts = sign < line.find("hosts") && line[sign] == ':'; // which blanks separate
        if (size_t end = line.find_last_not_of(" \t") + 1;
            end > 0 && end < line.size() && !is_hosts && !strchr(">:$#?", line[end - 1]) && // as a prompt ends
            line.substr(0, 7) != "pfedit_") // where a comment that is cut can end so
            signs.blanks.see(number);
        if (sign != line.npos && line[0] != '#')
            (line[sign] == ':' ? signs.rules : signs.assignments)++;
    }
    return signs;
}

// Names that run on over a line's end, and those that the reader cuts, which the section form does not.
void look_at_names(const configuration &conf, line_signs &signs) {
    for (const conf_line &line : conf.lines) {
        std::string_view text = std::string_view(conf.bytes).substr(line.begin, line.end - line.begin);
        text = text.substr(0, line.section_form ? 0 : text.find('='));
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
    if (text.substr(0, 2) == "\x1f\x8b")
        return {"the file is compressed", "unpack it"};
    if (is_wide || text.substr(0, 2) == "\xff\xfe" || text.substr(0, 2) == "\xfe\xff")
        return {"the file is UTF-16", "convert it to plain text"};
    if (text.find('\n') == text.npos && text.find('\r') != text.npos)
        return {"the lines end in CR alone: the whole file is one line", "end them in LF"};
    if (text.substr(0, 3) == "\xef\xbb\xbf")
        return {"a byte order mark stands in front: it becomes part of the first name", "save the file without it"};
    return {};
}

/// The files of a command under check.
struct checking {
    const upgrade_command &command;
    loaded_files &files;
    review_data &data;
    adviser doubt{data, "file"};

    void check_text(const std::string &name, file_role role) const {
        std::string_view bytes = *files.bytes(name);
        bool is_table = role == file_role::table;
        if (auto [sign, advice] = sign_of_all(bytes); sign)
            return void(doubt({name}, advice, "{}", sign));
        line_signs signs = look_at_lines(bytes);
        const adviser cause{data, "file", true};
        if (is_table ? signs.assignments > signs.rules : signs.rules > signs.assignments)
            return void(cause({name}, "name the table by -n and configurations by -m",
                              "looks like a {}, in the place of the {}", is_table ? "configuration" : "netperm table",
                              word(role)));
        if (!is_table)
            look_at_names(*files.conf(name, conf_layout::as_written), signs);
        else if (data.release < 40)
            check_table(*files.table(name), command, files, data);
        for (const sighting *each :
             {&signs.open, &signs.zeros, &signs.blanks, &signs.returns, &signs.run_on, &signs.cut})
            if (each->count)
                doubt({name, each->first}, each->advice, "{}", each->text).count = each->count > 1 ? each->count : 0;
    }

    // Enters the file's size and sum, or tells why it can't be read.
    void take_note(file_record &file) const {
        struct stat status {};
        bool there = stat(file.name.c_str(), &status) == 0 && access(file.name.c_str(), R_OK) == 0;
        if (const std::string *bytes = there ? files.bytes(file.name) : nullptr) {
            char digest[SHA256_DIGEST_STRING_LENGTH];
            file.size = static_cast<long long>(bytes->size());
            file.sha256 = SHA256Data(reinterpret_cast<const uint8_t *>(bytes->data()), bytes->size(), digest);
            return;
        }
        const char *why = !there || S_ISREG(status.st_mode) ? strerror(errno)
                          : S_ISDIR(status.st_mode)         ? "is a directory"
                                                            : "is no regular file, and can't be read more than once";
        adviser{data, "trouble"}({file.name}, "name a file that can be read", "the {} can't be read: {}",
                                 word(file.role), why);
    }

    // Takes note of a file, and checks the text of an input once for each kind that it is named as. False if it can't
    // be read.
    bool check(const std::string &name, file_role role) const {
        size_t met = data.files.size();
        file_record &file = data.files[file_number(data, name, role)];
        bool is_new = data.files.size() > met;
        if (is_new)
            take_note(file);
        bool is_other_kind = (file.role == file_role::table) != (role == file_role::table);
        if (file.size >= 0 && role != file_role::result && (is_new || is_other_kind))
            check_text(name, role);
        return file.size >= 0;
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
            check(output, file_role::result);
    }
};

} // namespace

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

int release_of(std::string version) {
    version.erase(0, version.find_first_of("0123456789"));
    if (version.empty())
        return 50;
    size_t next = version[1] == '.' ? 2 : 1;
    return (version[0] - '0') * 10 + (is_digit(version[next]) ? version[next] - '0' : 0);
}

void detect_release(const upgrade_command &command, loaded_files &files, review_data &data) {
    const std::string &file = command.old_conf;
    const configuration *conf = files.conf(file, conf_layout::as_written);
    const Frag *proxies = conf ? conf->find("def_proxy") : nullptr,
               *version = conf ? conf->find("version_firewall") : nullptr;
    data.host_name = conf ? conf->value("hostname") : "";
    data.release = !proxies ? 32 : !version ? 40 : !version->value ? 0 : release_of(value_of(version));
    data.release_reason = file.empty() ? "no old configuration is named"
                          : !proxies   ? "no def_proxy in " + file
                          : !version   ? "def_proxy but no version_firewall in " + file
                                       : fmt::format("version_firewall={} in {}", value_of(version), file);
}
