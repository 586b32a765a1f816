// The upgrade's command line: options from left to right, the last word never one of them. And a run of it in a child
// process. What it would write goes into memory, where no disk is too full for it.
#include "run/upgrade_run.h"
#include "frag_tools.h"
#include "read/files.h"
#include "upgrade.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

/// A file without a name in memory.
struct memory_file {
    int file = memfd_create("review", MFD_CLOEXEC);
    memory_file() = default;
    ~memory_file() { close(file); }
    memory_file(const memory_file &) = delete;
    memory_file &operator=(const memory_file &) = delete;
    /// A path that leads to it in this process and its children.
    std::string path() const { return "/proc/self/fd/" + std::to_string(file); }
    bool write(const std::string &bytes) const {
        return !!(std::ofstream(path(), std::ios::binary) << bytes << std::flush);
    }
};

/// The words of a run, and the files that it gets in the place of the user's, by their names.
struct planned_run {
    std::vector<std::string> words;
    std::unordered_map<std::string, memory_file> files{};
    memory_file output{}, messages{};
};

// Puts files in memory in the place of reports and of what `instead` has. A report that is an input empties that for
// whatever reads it later. False if there is no room.
bool replace_files(const upgrade_command &command, const replaced_files &instead, planned_run &run) {
    const auto reports = step_files(command, 'R');
    for (const upgrade_step &step : command.steps) {
        const std::string &name = step.argument;
        auto other = instead.find(name);
        auto report = std::find_if(reports.begin(), reports.end(),
                                   [&](const std::string &each) { return each == name || same_file(each, name); });
        if (step.letter == 'V' || (report == reports.end() && other == instead.end()))
            continue;
        auto [file, fresh] = run.files.try_emplace(report == reports.end() ? name : *report);
        if (fresh && !file->second.write(other == instead.end() ? read_bytes(name).value_or("") : other->second))
            return false;
        run.words[step.argument_index] = file->second.path();
    }
    return true;
}

[[noreturn]] void run_child(planned_run &run, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL); // nobody waits for the result of a program that was ended
    signal(SIGXFSZ, SIG_DFL);         // a limit on the size of files would else cut a result in silence
    if (getppid() != parent || dup2(run.messages.file, STDERR_FILENO) < 0 || dup2(run.output.file, STDOUT_FILENO) < 0)
        _exit(3);
    run.words.insert(run.words.begin(), "upgrade");
    std::vector<char *> arguments;
    for (std::string &word : run.words)
        arguments.push_back(word.data());
    arguments.push_back(nullptr);
    int status = upgrade(static_cast<int>(run.words.size()), arguments.data());
    fflush(nullptr);
    _exit(status);
}

void replace_all(std::string &text, const std::string &from, const std::string &to) {
    for (size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
}

} // namespace

upgrade_command parse_upgrade_command(const std::vector<std::string> &words) {
    upgrade_command command;
    command.words = words;
    if (words.size() < 3) {
        command.refused = "fewer than three words";
        return command;
    }
    std::string *const inspected[] = {&command.old_conf, &command.init_conf};
    for (size_t i = 0, count = 0; i + 1 < words.size() && count < 2; i++)
        if (words[i] == "-m")
            *inspected[count++] = words[++i];
    size_t at = 0;
    while (at + 1 < words.size()) {
        const std::string &word = words[at];
        if (word[0] != '-') {
            command.passed_over.push_back(at++);
            continue;
        }
        const char letter = word[1];
        if (!letter || !strchr("VRmne", letter))
            command.refused = "there is no option " + word;
        else if (strchr("Rmn", letter) && at + 2 >= words.size())
            command.refused = word + " would take the last word, which is the output's name";
        if (!command.refused.empty())
            return command;
        bool is_attached = letter == 'V' && word.size() > 2;
        command.steps.push_back({letter, is_attached ? word.substr(2) : words[at + 1], at, is_attached ? at : at + 1});
        if (letter == 'V')
            command.version = decimal(command.steps.back().argument.c_str());
        if (command.version == 2)
            command.version = 99;
        at = command.steps.back().argument_index + 1;
    }
    command.has_output = at < words.size();
    command.output = command.has_output ? words[at] : "";
    return command;
}

std::vector<std::string> step_files(const upgrade_command &command, char letter) {
    std::vector<std::string> files;
    for (const upgrade_step &step : command.steps)
        if (step.letter == letter)
            files.push_back(step.argument);
    return files;
}

bool same_file(const std::string &a, const std::string &b) {
    std::error_code failed;
    return std::filesystem::equivalent(a, b, failed);
}

upgrade_result run_upgrade(const upgrade_command &command, const replaced_files &instead, bool no_xml) {
    upgrade_result result;
    planned_run run{command.words};
    bool has_room = replace_files(command, instead, run);
    if (command.has_output)
        run.words.back() = run.output.path();
    for (const upgrade_step &step : command.steps)
        if (no_xml && command.version == 99 && step.letter == 'V')
            run.words[step.argument_index] = run.words[step.argument_index] == step.argument ? "50" : "-V50";
    fflush(nullptr);
    pid_t parent = getpid(), child = has_room ? fork() : -1;
    if (child == 0)
        run_child(run, parent);
    int status = 0;
    while (child > 0 && waitpid(child, &status, 0) < 0 && errno == EINTR)
        ;
    result.messages = read_bytes(run.messages.path()).value_or("");
    replace_all(result.messages, run.output.path(), command.output);
    for (const auto &[name, file] : run.files)
        replace_all(result.messages, file.path(), name);
    if (child < 0)
        result.trouble = std::string("no process for the upgrade: ") + strerror(errno);
    else if (WIFSIGNALED(status))
        result.trouble = std::string("the upgrade was ended by a signal: ") + strsignal(WTERMSIG(status));
    else if (status != 0)
        result.trouble = "the upgrade ends with status " + std::to_string(WEXITSTATUS(status));
    else
        result.output = read_bytes(run.output.path()).value_or("");
    return result;
}
