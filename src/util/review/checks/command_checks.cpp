// Words of the command line that do something else than they seem to, and files that seem to be in another's place.
#include "checks/checks.h"
#include "frag_tools.h"
#include "nupgrade.h"
#include "upgrade.h"

#include <algorithm>
#include <cstring>
#include <fmt/ranges.h>
#include <unistd.h>

using fmt::format;

namespace {

using strings = std::vector<std::string>;

bool is_one_of(const strings &names, const std::string &file) {
    return std::any_of(names.begin(), names.end(), [&](const std::string &name) { return same_file(name, file); });
}

// The advice where a word was meant for an option and taken for a name, under which a file may have been written.
std::string name_it(const char *advice, const std::string &word) {
    return access(word.c_str(), F_OK) ? advice : format("{}; a stray file is there: rm ./{}", advice, word);
}

bool has_own_name(const configuration &conf) {
    std::string name = conf.value("hostname");
    return !name.empty() && !has_prefix_nocase(name.c_str(), "localhost");
}

/// One command line under check. Its configurations are as written, null where there is none.
struct checking {
    const upgrade_command &command;
    loaded_files &files;
    review_data &data;
    adviser doubt{data, "command-line"}, cause{data, "command-line", true}, doubt_file{data, "file"};
    strings merges = step_files(command, 'm'), imports = step_files(command, 'e'), tables = step_files(command, 'n');
    const configuration *old = files.conf(command.old_conf, conf_layout::as_written);
    const configuration *init = files.conf(command.init_conf, conf_layout::as_written);

    // The words by themselves.
    void check_words() const {
        for (const auto &[letter, file, index, argument_index] : command.steps) {
            if (letter == 'V' && (file.empty() || file.find_first_not_of("0123456789") != file.npos))
                doubt({}, "leave out -V", "-V {} is not a whole number: it is read as {}", file, decimal(file.c_str()));
            if (letter != 'V' && command.words[index].size() > 2)
                cause({}, format("write -{} alone", letter),
                      "the text behind -{} in {} is ignored: the option takes the next word, {}", letter,
                      command.words[index], file);
            if (letter != 'V' && file[0] == '-')
                doubt({}, name_it("name a file behind it", file), "-{} takes the word {} for a file's name", letter,
                      file);
        }
        if (!command.numbered())
            doubt({}, "leave out -V", "the result is {}, which is for reading: it can't be installed",
                  command.version == 99 ? "XML" : format("in the canonical layout (-V {})", command.version));
        for (size_t index : command.passed_over)
            doubt({}, "leave it out", "{} is passed over: it belongs to no option and is not the last word",
                  command.words[index]);
        if (!command.refused.empty())
            cause({}, command.refused.find("output") == std::string::npos ? "correct the word" : "name the output last",
                  "the upgrade refuses this command line: {}", command.refused);
        else if (!command.has_output)
            doubt({}, "name the output last", "-{} took the last word, {}: the result goes to standard output",
                  command.steps.back().letter, command.words.back());
        else if (command.output[0] == '-')
            doubt({}, name_it("name the output last", command.output),
                  "{} is taken for the output's name, since it is the last word", command.output);
    }

    // Files that are read and written.
    void check_overwritten() const {
        const std::string &output = command.output;
        strings reports = step_files(command, 'R');
        std::set<std::string> inputs(merges.begin(), merges.end());
        inputs.insert(imports.begin(), imports.end());
        inputs.insert(tables.begin(), tables.end());
        for (const std::string &file : inputs) {
            if (command.has_output && same_file(output, file)) {
                const configuration *conf = files.conf(file);
                bool has_run = conf && conf->numbered && release_of(conf->value("version_firewall")) == 55;
                cause({}, has_run ? "take it from its copy, and name another output" : "name another output",
                      "the output {} is the input {}: {}", output, file,
                      has_run ? "it holds a result, so that the input is gone" : "the upgrade overwrites it");
            }
            if (is_one_of(reports, file))
                cause({}, "name another report, and take the input from its copy if the upgrade has run",
                      "the input {} is the report, too: the upgrade empties it first", file);
        }
        if (command.has_output && (std::count(reports.begin(), reports.end(), output) || is_one_of(reports, output)))
            doubt({}, "name another report", "the report {} is the output: both are written into one file", output);
    }

    // Whether an import takes in what the file says.
    bool is_imported(const std::string &file) const {
        return std::any_of(imports.begin(), imports.end(), [&](const std::string &import) {
            return files.bytes(import) && *files.bytes(import) == *files.bytes(file);
        });
    }

    // One option after the other: its place among the others, and the release and layout that it is for.
    void check_options() const {
        bool newest = data.release == 55, by_table = data.release < 40 && !tables.empty();
        std::map<char, strings> ahead; // files of the options so far, by letter
        const strings &merged = ahead['m'], &met = ahead['n'], &imported = ahead['e'];
        for (const auto &[letter, file, index, argument_index] : command.steps) {
            const configuration *conf = strchr("me", letter) ? files.conf(file) : nullptr;
            bool numbered = conf && conf->numbered, is_old = file == command.old_conf;
            if (letter == 'R' && !(merged.empty() && met.empty() && imported.empty()))
                doubt({}, "put -R first", "-R {} stands behind another option: the report lacks what came before",
                      file);
            if (strchr("ne", letter) && is_one_of(ahead[letter], file))
                doubt({}, "name it once", "{} is named twice by -{}: what it says is taken in twice", file, letter)
                    .leads = letter == 'e';
            if (letter == 'n' && data.release >= 40 && !is_swapped())
                doubt({}, "leave out -n", "a configuration from 4.0 on takes no table: {} {}", file,
                      newest ? "is not opened, and all that was merged ahead of it is left out" : "changes nothing");
            else if (letter == 'n' && !merged.empty())
                doubt({}, "put -n first", "-n {} stands behind -m {}: the maps of what was merged decide ahead of it",
                      file, merged.back())
                    .leads = merged.size() > 1; // what the initial environment says of all goes into each proxy
            if (letter == 'e' && merged.empty() && !merges.empty())
                doubt({},
                      by_table                  ? "leave out -e"
                      : is_one_of(merges, file) ? "put -e behind the first -m"
                                                : "name it by a first -m, too, and put -e behind that",
                      "-e {} stands ahead of the first -m: what it brings wins over the old configuration", file);
            if (letter == 'e' && !met.empty() && by_table)
                cause({}, "leave out -e", "-e {} stands behind -n {}: the maps, proxies and policies of that go, too",
                      file, met.back());
            if (letter == 'e' && merged.size() > 1)
                doubt({}, "put -e in front of the second -m",
                      "-e {} stands behind -m {}: the maps, proxies and policies of that go, too", file, merged.back());
            if (letter == 'e' && !numbered && conf &&
                (conf->find("def_proxy") || conf->find("policy") || conf->find("map")))
                doubt({}, "leave out -e",
                      "{} is in the canonical layout: -e is for the numbered one, and removes proxies, policies, maps",
                      file);
            bool is_output = command.has_output && same_file(file, command.output); // which is told
            if (letter == 'm' && numbered && newest && is_old && !is_output)
                cause({}, "leave it as it is",
                      "{} is of 5.5 and in the numbered layout, so it is in the new form already", file);
            else if (letter == 'm' && numbered && !is_output && !is_imported(file))
                cause({}, is_old && !by_table ? "name it by -e, too" : "take it in the canonical layout",
                      "{} is in the numbered layout and named by -m alone: its entries come in under their numbers",
                      file);
            ahead[letter].push_back(file);
        }
    }

    // Whether the old configuration can't be what it is named as, which is told.
    bool is_doubted() const {
        return std::any_of(data.findings.begin(), data.findings.end(), [&](const finding &told) {
            return !told.at.line && !told.at.file.empty() && told.at.file == command.old_conf;
        });
    }

    void check_missing() const {
        if (command.old_conf.empty())
            doubt({}, "name it by -m", "no old configuration is named by -m: it counts as one from before 4.0");
        else if (merges.size() == 1 && command.init_conf.empty() && data.release != 55)
            doubt({}, "name that of the new release", "no initial environment is named by a second -m");
        if (data.release < 40 && tables.empty() && imports.empty() && !is_doubted())
            doubt({}, "name it by -n", "no netperm table is named by -n, though the configuration is from before 4.0");
    }

    // The proxies that were in use, and for which the release has a program, but this environment has none.
    std::set<std::string> without_program() const {
        std::set<std::string> lacking,
            used = switched(files.conf(imports.empty() ? command.old_conf : imports[0]), true);
        for (const std::string &file : data.release < 40 ? tables : strings())
            for (const table_rule &rule : files.table(file) ? files.table(file)->rules : std::vector<table_rule>())
                if (rule.attribute == "hosts")
                    used.insert(rule.names.begin(), rule.names.end());
        for (const std::string &name : used) {
            bool is_known = is_listed(login_services, name) || find_maprec(map_unix, &maprec::proxy, name.c_str()) ||
                            find_maprec(map_nt, &maprec::proxy, name.c_str());
            if (is_known && !is_dropped_proxy(name, data.release) &&
                init->value(("def_proxy_" + name + "_proxy-exec").c_str()).empty())
                lacking.insert(name);
        }
        return lacking;
    }

    void check_environment() const {
        const Frag *version = init->find("version_firewall"), *host = init->find("hostname");
        if (!value_of(version).empty() && release_of(value_of(version)) != 55)
            doubt_file({init->name, init->line_of(version)}, "take that of the new release",
                       "is of release {}, and the new one is 5.5: is it an initial environment?", value_of(version));
        if (has_own_name(*init))
            doubt_file({init->name, init->line_of(host)}, "take it as the new release came with it",
                       "has the host name {} of its own: is it of another site?", value_of(host));
        if (std::set<std::string> lacking = without_program(); !lacking.empty())
            doubt_file({init->name}, "compare it with what the new release came with",
                       "has no program (proxy-exec) for {}, in use before: is it whole, and of the new release?",
                       fmt::join(lacking, ", "));
        for (const Frag *list : init->children("netobj_list"))
            for (const Frag *element : configuration::children(list, "element"))
                if (std::string addr = value_of(element, "addr"), network = network_pattern(addr);
                    !network.empty() && value_of(element, "interface").empty())
                    doubt_file({init->name, init->line_of(element)}, network + " is meant?",
                               "{} in the list {} stands for itself alone and covers no real host", addr,
                               clear_name(list));
    }

    std::string was = old ? old->value("version_firewall") : "", is = init ? init->value("version_firewall") : "";

    // Whether the initial environment seems to stand in the place of the old configuration.
    bool is_swapped() const {
        bool is_own = !is.empty() && (release_of(is) != 55 || has_own_name(*init));
        return is_own && ((data.release == 40 && was.empty()) || (release_of(was) == 55 && release_of(is) != 55)) &&
               !same_file(old->name, init->name);
    }

    // An old configuration that lacks what each has, or is of another release than it seems.
    void check_old() const {
        const place at{old->name, old->line_of(old->find("version_firewall"))};
        bool has_proxies = old->find("def_proxy") != nullptr;
        if (was.empty() && !has_proxies && !has_own_name(*old) && !is_doubted())
            doubt_file(at, "name the old configuration",
                       "has no version_firewall, no hostname and no def_proxy: is it one?");
        else if (was.empty() && data.release == 40)
            doubt_file(at, "add version_firewall with the release that wrote it",
                       "has def_proxy and no version_firewall, so that it counts as one of 4.0: is it?");
        else if (!was.empty() && has_proxies != (release_of(was) >= 40))
            doubt_file(at, "compare it with its copy", "is of release {} and has {} def_proxy: is it whole?", was,
                       has_proxies ? "a" : "no");
        else if (release_of(was) > 55)
            doubt_file(at, "name the old configuration", "is of release {}, and the new one is 5.5: is it older?", was);
    }

    // Configurations that seem to be of another site or release, or to have changed places.
    void check_places() const {
        if (old && init && same_file(old->name, init->name)) {
            doubt({}, "name the new release's environment by the second -m",
                  "{} is named as the old configuration and as the initial environment", old->name);
        } else if (is_swapped()) {
            cause({}, "put the old configuration's -m first",
                  "{} has {} and {} has {}: it looks like an initial environment in the place of the old configuration",
                  old->name, was.empty() ? "no version_firewall" : was, init->name, is);
        } else {
            if (old)
                check_old();
            if (init && data.release != 55 && !(command.has_output && same_file(init->name, command.output)))
                check_environment();
        }
    }
};

} // namespace

void check_command(const upgrade_command &command, loaded_files &files, review_data &data) {
    checking check{command, files, data};
    check.check_words();
    if (!command.refused.empty())
        return;
    check.check_overwritten();
    check.check_options();
    check.check_missing();
    check.check_places();
}
