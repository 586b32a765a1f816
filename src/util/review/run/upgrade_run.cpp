// A run of the upgrade in a child process. What it would write goes into memory, where no disk is too full for it.
#include "run/upgrade_run.h"
#include "read/configuration.h"
#include "upgrade.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <list>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

std::string bytes_of(const std::string &path) {
    std::string bytes;
    read_bytes(path, bytes);
    return bytes;
}

/// A file without a name in memory.
struct memory_file {
    int file = memfd_create("review", MFD_CLOEXEC);
    memory_file() = default;
    ~memory_file() { close(file); }
    memory_file(const memory_file &) = delete;
    memory_file &operator=(const memory_file &) = delete;
    /// A path that leads to it in this process and its children.
    std::string path() const { return "/proc/self/fd/" + std::to_string(file); }
    std::string text() const { return bytes_of(path()); }
};

/// The words of a run and the files that it gets in the place of the user's.
struct planned_run {
    std::vector<std::string> words;
    std::list<memory_file> files;
    std::vector<std::pair<std::string, std::string>> names; // paths of such files and the user's names
    memory_file output, messages, nothing;
    bool good = output.file >= 0 && messages.file >= 0 && nothing.file >= 0;

    void replace(size_t word, const memory_file &file) {
        names.emplace_back(file.path(), words[word]);
        words[word] = file.path();
    }
    const memory_file &add_file() {
        files.emplace_back();
        good = good && files.back().file >= 0;
        return files.back();
    }
    void write(const memory_file &file, const std::string &bytes) {
        good = good && std::ofstream(file.path(), std::ios::binary)
                           .write(bytes.data(), static_cast<std::streamsize>(bytes.size()))
                           .flush();
    }
};

// Reports go into memory, too. One that is an input empties that input for whatever reads it later.
void replace_files(const upgrade_command &command, const replaced_files &instead, planned_run &run) {
    std::unordered_map<std::string, const memory_file *> files; // by the name of the report, or else of the input
    for (const upgrade_step &step : command.steps) {
        auto other = instead.find(step.argument);
        auto report = std::find_if(command.steps.begin(), command.steps.end(), [&](const upgrade_step &each) {
            return each.letter == 'R' && (each.argument == step.argument || same_file(each.argument, step.argument));
        });
        bool is_report = report != command.steps.end();
        if (step.letter == 'V' || (!is_report && other == instead.end()))
            continue;
        const memory_file *&file = files[is_report ? report->argument : step.argument];
        file = file ? file : &run.add_file();
        run.replace(step.argument_index(), *file);
        if (step.letter == 'R')
            continue;
        run.write(*file, other == instead.end() ? bytes_of(step.argument) : other->second);
        // What is inspected for the release can stand behind a word that is no step.
        for (size_t i = 1; i + 1 < command.words.size(); i++)
            if (command.words[i - 1] == "-m" && command.words[i] == step.argument && run.words[i] == step.argument)
                run.replace(i, *file);
    }
}

void ask_version(const upgrade_command &command, int version, planned_run &run) {
    bool asked = false;
    for (const upgrade_step &step : command.steps) {
        if (step.letter != 'V')
            continue;
        asked = true;
        if (step.argument != "-m") // which is read as 0, and also names a file to look at
            run.words[step.argument_index()] = (step.attached ? "-V" : "") + std::to_string(version);
    }
    if (!asked)
        run.words.insert(run.words.begin(), "-V" + std::to_string(version));
}

[[noreturn]] void run_child(planned_run &run, bool has_output, pid_t parent) {
    prctl(PR_SET_PDEATHSIG, SIGKILL); // nobody waits for the result of a program that was ended
    for (int number : {SIGINT, SIGTERM, SIGHUP, SIGALRM, SIGXFSZ})
        signal(number, SIG_DFL); // a limit on the size of files would else cut a result in silence
    int standard_output = has_output ? run.nothing.file : run.output.file;
    if (getppid() != parent || dup2(run.messages.file, STDERR_FILENO) < 0 || dup2(standard_output, STDOUT_FILENO) < 0)
        _exit(3);
    run.words.insert(run.words.begin(), "upgrade");
    std::vector<char *> arguments(run.words.size() + 1);
    for (size_t i = 0; i < run.words.size(); i++)
        arguments[i] = run.words[i].data();
    int status = upgrade(static_cast<int>(run.words.size()), arguments.data());
    fflush(nullptr);
    _exit(status);
}

void take_messages(const planned_run &run, upgrade_result &result) {
    result.messages = run.messages.text();
    for (const auto &[path, name] : run.names)
        for (size_t at = 0; (at = result.messages.find(path, at)) != std::string::npos; at += name.size())
            result.messages.replace(at, path.size(), name);
}

} // namespace

bool same_file(const std::string &a, const std::string &b) {
    std::error_code failed;
    return std::filesystem::equivalent(a, b, failed);
}

upgrade_result run_upgrade(const upgrade_command &command, const replaced_files &instead, int version) {
    upgrade_result result;
    planned_run run;
    run.words = command.words;
    replace_files(command, instead, run);
    if (command.has_output)
        run.replace(run.words.size() - 1, run.output);
    if (version >= 0)
        ask_version(command, version, run);
    fflush(nullptr);
    pid_t parent = getpid(), child = run.good ? fork() : -1;
    if (child == 0)
        run_child(run, command.has_output, parent);
    if (child < 0) {
        result.trouble = std::string("no process for the upgrade: ") + strerror(errno);
        return result;
    }
    int status = 0;
    while (waitpid(child, &status, 0) < 0 && errno == EINTR)
        ;
    take_messages(run, result);
    result.ran = WIFEXITED(status);
    if (!result.ran) {
        result.trouble = std::string("the upgrade was ended by a signal: ") + strsignal(WTERMSIG(status));
        return result;
    }
    result.status = WEXITSTATUS(status);
    if (result.status == 0)
        result.output = run.output.text();
    return result;
}
