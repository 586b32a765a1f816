// A run of the upgrade in a child process, with all that it would write kept in a scratch folder.
#include "upgrade_run.h"
#include "upgrade.h"

#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// All files that a scratch folder can hold, so that a signal handler can remove them without taking memory.
const char *const scratch_names[] = {"result", "canonical", "output", "report", "messages", nullptr};
constexpr size_t PATH_SIZE = 512;
char scratch_paths[6][PATH_SIZE]; // the folder itself last

void remove_scratch() {
    for (char *path : scratch_paths) {
        if (*path && unlink(path) != 0)
            rmdir(path);
    }
}

// Takes only paths whose length was tested.
void path_to(char *entry, const std::string &path) { memcpy(entry, path.c_str(), path.size() + 1); }

extern "C" void end_by_signal(int number) {
    remove_scratch();
    signal(number, SIG_DFL);
    raise(number);
}

std::string read_all(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

void replace_all(std::string &text, const std::string &from, const std::string &to) {
    for (size_t at = 0; !from.empty() && (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
}

// The words of a run and what they put in the place of the user's: pairs of a path in the scratch folder and a name.
struct scratch_run {
    std::vector<std::string> words;
    std::vector<std::pair<std::string, std::string>> names;
};

void redirect(scratch_run &run, size_t index, const std::string &path) {
    run.names.emplace_back(path, run.words[index]);
    run.words[index] = path;
}

scratch_run plan_run(const upgrade_command &command, const scratch_folder &scratch, const char *output) {
    scratch_run run{command.words, {}};
    std::string report;
    for (const upgrade_step &step : command.steps) {
        if (step.letter == 'R') {
            report = step.argument;
            redirect(run, step.argument_index(), scratch.file("report"));
        }
    }
    // An input that the report overwrites is read as the upgrade would find it: whole before the option, cut behind.
    for (const upgrade_step &step : command.steps) {
        if (!strchr("mne", step.letter) || report.empty() || !same_file(step.argument, report))
            continue;
        std::error_code ignored;
        std::filesystem::copy_file(step.argument, scratch.file("report"),
                                   std::filesystem::copy_options::overwrite_existing, ignored);
        redirect(run, step.argument_index(), scratch.file("report"));
    }
    if (command.has_output)
        redirect(run, run.words.size() - 1, scratch.file(output));
    return run;
}

// Turns the words into those of a run whose result is in the canonical layout.
void ask_canonical(const upgrade_command &command, scratch_run &run) {
    bool asked = false;
    for (const upgrade_step &step : command.steps) {
        if (step.letter != 'V')
            continue;
        run.words[step.argument_index()] = step.attached ? "-V0" : "0";
        asked = true;
    }
    if (!asked)
        run.words.insert(run.words.begin(), "-V0");
}

[[noreturn]] void run_child(const std::vector<std::string> &words, const scratch_folder &scratch, const char *output) {
    for (int number : {SIGINT, SIGTERM, SIGHUP})
        signal(number, SIG_DFL);
    int messages = open(scratch.file("messages").c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    int result = open(scratch.file(output).c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    if (messages < 0 || result < 0 || dup2(messages, STDERR_FILENO) < 0 || dup2(result, STDOUT_FILENO) < 0)
        _exit(3);
    end_as_upgrade(words);
}

// Runs the words to their end. What the child says goes to `result`.
bool run_words(const scratch_run &run, const scratch_folder &scratch, const char *output, upgrade_result &result) {
    fflush(nullptr);
    pid_t child = fork();
    if (child < 0) {
        result.trouble = std::string("no process for the upgrade: ") + strerror(errno);
        return false;
    }
    if (child == 0)
        run_child(run.words, scratch, output);
    int status = wait_for(child);
    result.messages = read_all(scratch.file("messages"));
    for (const auto &[path, name] : run.names)
        replace_all(result.messages, path, name);
    if (!WIFEXITED(status)) {
        result.trouble = "the upgrade was ended by signal " + std::to_string(WTERMSIG(status));
        return false;
    }
    result.ran = true;
    result.exit_status = WEXITSTATUS(status);
    return result.exit_status == 0;
}

} // namespace

scratch_folder::scratch_folder() {
    const char *base = getenv("TMPDIR");
    std::string name = std::string(base && *base ? base : "/tmp") + "/review.XXXXXX";
    if (name.size() + 16 > PATH_SIZE || !mkdtemp(name.data()))
        return;
    path = name;
    size_t count = 0;
    for (const char *const *scratch_name = scratch_names; *scratch_name; scratch_name++)
        path_to(scratch_paths[count++], file(*scratch_name));
    path_to(scratch_paths[count], path);
    for (int number : {SIGINT, SIGTERM, SIGHUP})
        signal(number, end_by_signal);
}

scratch_folder::~scratch_folder() {
    for (int number : {SIGINT, SIGTERM, SIGHUP})
        signal(number, SIG_DFL);
    remove_scratch();
    for (char *entry : scratch_paths)
        *entry = 0;
}

void end_as_upgrade(std::vector<std::string> words) {
    words.insert(words.begin(), "upgrade");
    std::vector<char *> arguments(words.size() + 1);
    for (size_t i = 0; i < words.size(); i++)
        arguments[i] = words[i].data();
    int status = upgrade(static_cast<int>(words.size()), arguments.data());
    fflush(nullptr);
    _exit(status);
}

int wait_for(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR)
            break;
    }
    return status;
}

bool same_file(const std::string &a, const std::string &b) {
    struct stat first {
    }, second{};
    return stat(a.c_str(), &first) == 0 && stat(b.c_str(), &second) == 0 && first.st_dev == second.st_dev &&
           first.st_ino == second.st_ino;
}

upgrade_result run_upgrade(const upgrade_command &command, const scratch_folder &scratch) {
    upgrade_result result;
    if (scratch.path.empty()) {
        result.trouble = "no scratch folder can be made";
        return result;
    }
    const char *output = command.has_output ? "result" : "output";
    scratch_run run = plan_run(command, scratch, output);
    if (!run_words(run, scratch, "output", result))
        return result;
    result.output_bytes_path = scratch.file(output);
    if (!command.numbered() && command.version != 99) {
        result.canonical_path = result.output_bytes_path;
        return result;
    }
    scratch_run again = plan_run(command, scratch, "canonical");
    ask_canonical(command, again);
    upgrade_result second;
    if (run_words(again, scratch, command.has_output ? "output" : "canonical", second))
        result.canonical_path = scratch.file("canonical");
    return result;
}
