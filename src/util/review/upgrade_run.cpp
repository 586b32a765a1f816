// A run of the upgrade in a child process, with all that it would write kept in a scratch folder.
#include "upgrade_run.h"
#include "upgrade.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

// All files that a scratch folder can hold, so that a signal handler can remove them without taking memory.
const char *const scratch_names[] = {"result", "canonical", "report", "canonical-report", nullptr};
constexpr size_t PATH_SIZE = 512;
char scratch_paths[5][PATH_SIZE]; // the folder itself last

// Takes only paths whose length was tested.
void path_to(char *entry, const std::string &path) { memcpy(entry, path.c_str(), path.size() + 1); }

extern "C" void end_by_signal(int number) {
    remove_scratch();
    signal(number, SIG_DFL);
    raise(number);
}

void replace_all(std::string &text, const std::string &from, const std::string &to) {
    for (size_t at = 0; !from.empty() && (at = text.find(from, at)) != std::string::npos; at += to.size())
        text.replace(at, from.size(), to);
}

bool write_all(int file, std::string_view text) {
    while (!text.empty()) {
        ssize_t count = write(file, text.data(), text.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            return false;
        text.remove_prefix(static_cast<size_t>(count));
    }
    return true;
}

/// A run in a child: its words, and what they put in the place of the user's: pairs of a path and a name. The upgrade
/// doesn't tell that a disk is full, so that it writes into memory.
struct scratch_run {
    std::vector<std::string> words;
    std::vector<std::pair<std::string, std::string>> names;
    memory_file output, messages, null;
    pid_t child = -1;
};

void redirect(scratch_run &run, size_t index, const std::string &path) {
    run.names.emplace_back(path, run.words[index]);
    run.words[index] = path;
}

// False if an input that is the report, too, can't be copied.
bool plan_run(const upgrade_command &command, const scratch_folder &scratch, const char *report_name, scratch_run &run,
              upgrade_result &result) {
    run.words = command.words;
    std::string report;
    for (const upgrade_step &step : command.steps) {
        if (step.letter == 'R') {
            report = step.argument;
            redirect(run, step.argument_index(), scratch.file(report_name));
        }
    }
    // An input that the report overwrites is read as the upgrade would find it: whole before the option, cut behind.
    for (const upgrade_step &step : command.steps) {
        if (!strchr("mne", step.letter) || report.empty() || !same_file(step.argument, report))
            continue;
        std::error_code failed;
        std::filesystem::copy_file(step.argument, scratch.file(report_name),
                                   std::filesystem::copy_options::overwrite_existing, failed);
        if (failed) {
            result.trouble = "can't copy " + step.argument + " to " + scratch.path + ": " + failed.message();
            return false;
        }
        redirect(run, step.argument_index(), scratch.file(report_name));
    }
    if (command.has_output)
        redirect(run, run.words.size() - 1, run.output.path());
    return true;
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

[[noreturn]] void run_child(const scratch_run &run, int standard_output) {
    for (int number : {SIGINT, SIGTERM, SIGHUP})
        signal(number, SIG_DFL);
    if (dup2(run.messages.file, STDERR_FILENO) < 0 || dup2(standard_output, STDOUT_FILENO) < 0)
        _exit(3);
    end_as_upgrade(run.words);
}

void start_run(const upgrade_command &command, scratch_run &run, upgrade_result &result) {
    bool has_files = run.output.file >= 0 && run.messages.file >= 0 && run.null.file >= 0;
    fflush(nullptr);
    run.child = has_files ? fork() : -1;
    if (run.child < 0)
        result.trouble = std::string("no process for the upgrade: ") + strerror(errno);
    if (run.child == 0)
        run_child(run, command.has_output ? run.null.file : run.output.file);
}

// Waits for the run's end. False if it has no result.
bool end_run(const scratch_run &run, upgrade_result &result) {
    if (run.child < 0)
        return false;
    int status = wait_for(run.child);
    result.messages = run.messages.text();
    for (const auto &[path, name] : run.names)
        replace_all(result.messages, path, name);
    if (!WIFEXITED(status)) {
        result.trouble = std::string("the upgrade was ended by a signal: ") + strsignal(WTERMSIG(status));
        return false;
    }
    result.ran = true;
    result.exit_status = WEXITSTATUS(status);
    return result.exit_status == 0;
}

// Moves a result to the scratch folder. The path is empty if it has no room there.
std::string keep(const memory_file &output, const std::string &path, upgrade_result &result) {
    int file = open(path.c_str(), O_CREAT | O_WRONLY | O_TRUNC, 0600);
    bool good = file >= 0 && write_all(file, output.text());
    int error = errno;
    if (file >= 0 && close(file) != 0 && good) {
        error = errno;
        good = false;
    }
    if (good)
        return path;
    result.trouble =
        "the scratch folder, which TMPDIR names, has no room for the result: " + path + ": " + strerror(error);
    return "";
}

} // namespace

void remove_scratch() {
    for (char *path : scratch_paths) {
        if (*path && unlink(path) != 0)
            rmdir(path);
    }
}

static std::string scratch_base() {
    const char *base = getenv("TMPDIR");
    return base && *base ? base : "/tmp";
}

scratch_folder::scratch_folder() {
    std::string name = scratch_base() + "/review.XXXXXX";
    if (name.size() + 32 > PATH_SIZE || !mkdtemp(name.data()))
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

memory_file::memory_file() : file(memfd_create("review", 0)) {}

memory_file::~memory_file() {
    if (file >= 0)
        close(file);
}

std::string memory_file::path() const { return "/proc/self/fd/" + std::to_string(file); }

bool memory_file::write(std::string_view text) const { return file >= 0 && write_all(file, text); }

std::string memory_file::text() const {
    off_t size = lseek(file, 0, SEEK_END);
    std::string text(size > 0 ? static_cast<size_t>(size) : 0, '\0');
    size_t at = 0;
    for (ssize_t count = 1; at < text.size() && count > 0; at += static_cast<size_t>(std::max<ssize_t>(count, 0)))
        count = pread(file, text.data() + at, text.size() - at, static_cast<off_t>(at));
    text.resize(at);
    return text;
}

void end_as_upgrade(std::vector<std::string> words) {
    signal(SIGXFSZ, SIG_DFL); // else a limit on the size of files would cut a result in silence
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
        result.trouble = "no scratch folder can be made in " + scratch_base();
        return result;
    }
    scratch_run saved, canonical;
    upgrade_result second;
    bool twice = command.numbered() || command.version == 99;
    if (!plan_run(command, scratch, "report", saved, result) ||
        (twice && !plan_run(command, scratch, "canonical-report", canonical, result)))
        return result;
    start_run(command, saved, result);
    if (twice) {
        ask_canonical(command, canonical);
        start_run(command, canonical, second);
    }
    bool is_canonical = twice && end_run(canonical, second);
    if (!end_run(saved, result))
        return result;
    std::string path = keep(saved.output, scratch.file("result"), result);
    result.canonical_path = !twice         ? path
                            : is_canonical ? keep(canonical.output, scratch.file("canonical"), second)
                                           : "";
    if (result.canonical_path.empty() && result.trouble.empty())
        result.trouble = second.trouble.empty() ? "the upgrade fails in the canonical layout" : second.trouble;
    if (result.trouble.empty())
        result.output_bytes_path = path;
    return result;
}
