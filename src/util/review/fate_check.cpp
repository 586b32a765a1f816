// What is said to be without effect is left out, and the upgrade must come to the same bytes.
#include "fate_check.h"

#include <algorithm>
#include <chrono>
#include <fcntl.h>
#include <fstream>
#include <iterator>
#include <memory>
#include <sys/wait.h>
#include <unistd.h>
#include <utility>

namespace {

[[noreturn]] void run_child(const std::vector<std::string> &words, int output) {
    int null = open("/dev/null", O_RDWR);
    if (null < 0 || dup2(null, STDERR_FILENO) < 0 || dup2(output, STDOUT_FILENO) < 0)
        _exit(3);
    end_as_upgrade(words);
}

} // namespace

bool run_quietly(const upgrade_command &command, std::vector<std::string> words, const memory_file &output) {
    if (output.file < 0)
        return false;
    if (command.has_output)
        words.back() = output.path();
    fflush(nullptr);
    pid_t child = fork();
    if (child < 0)
        return false;
    if (child == 0)
        run_child(words, output.file);
    int status = wait_for(child);
    return WIFEXITED(status) && WEXITSTATUS(status) == 0;
}

std::vector<std::string> words_up_to(const upgrade_command &command, size_t step) {
    // A file behind `-m` that is not to be merged is still read for the release: `-V` takes the `-m` for its number,
    // which gives 0, and the name behind it is passed over.
    std::vector<std::string> words;
    for (size_t i = 0; i < command.steps.size(); i++) {
        const upgrade_step &at = command.steps[i];
        bool exact_merge = command.words[at.index] == "-m";
        if (at.letter == 'V' || at.letter == 'R' || (i > step && !exact_merge))
            continue;
        if (i > step)
            words.push_back("-V");
        words.push_back(std::string("-") + (at.letter == 'm' && !exact_merge ? "m " : std::string(1, at.letter)));
        words.push_back(at.argument[0] == '-' ? "./" + at.argument : at.argument);
    }
    words.insert(words.end(), {"-V50", "result"});
    return words;
}

namespace {

constexpr std::chrono::milliseconds MOST_SINGLE{50};   // for lines one by one, which nobody notices
constexpr std::chrono::milliseconds MOST_IDLE{2000};   // what a reader waits without a thought
constexpr std::chrono::milliseconds MOST_SEARCH{8000}; // for a result that takes long

/// The lines that are claimed, and what was found of them.
struct claims {
    const upgrade_command &command;
    const std::unordered_map<std::string, std::string> &texts;
    std::vector<line_fate> &lines;
    std::string result;
    std::vector<size_t> proved, refuted;
    bool failed = false; // a run did
    std::chrono::steady_clock::time_point end;

    // The words of the command with the texts for files, the lines of `left_out` being blank in them.
    bool same_without(const std::vector<size_t> &left_out);
    void prove(const std::vector<size_t> &asked);
    void prove_halves(const std::vector<size_t> &asked);
    void try_singly();
};

bool claims::same_without(const std::vector<size_t> &left_out) {
    std::unordered_map<std::string, std::vector<bool>> blank;
    for (size_t i : left_out) {
        std::vector<bool> &of_file = blank[lines[i].file];
        size_t line = static_cast<size_t>(lines[i].line);
        if (of_file.size() <= line)
            of_file.resize(line + 1);
        of_file[line] = true;
    }
    std::vector<std::string> words = command.words;
    std::vector<std::unique_ptr<memory_file>> files;
    std::unordered_map<std::string, std::string> paths;
    for (const auto &[name, of_file] : blank) {
        const std::string &text = texts.at(name);
        std::string without;
        size_t line = 1;
        for (size_t at = 0; at < text.size(); line++) {
            size_t line_end = std::min(text.find('\n', at), text.size() - 1) + 1;
            bool is_blank_now = line < of_file.size() && of_file[line];
            if (!is_blank_now)
                without.append(text, at, line_end - at);
            else if (text[line_end - 1] == '\n')
                without += '\n';
            at = line_end;
        }
        files.push_back(std::make_unique<memory_file>());
        if (!files.back()->write(without)) {
            failed = true;
            return false;
        }
        paths[name] = files.back()->path();
    }
    for (size_t i = 1; i < words.size(); i++) {
        bool is_output = command.has_output && i + 1 == words.size();
        bool is_argument = !is_output && !words[i - 1].empty() && words[i - 1][0] == '-';
        auto path = paths.find(words[i]);
        if (is_argument && path != paths.end())
            words[i] = path->second;
    }
    for (const upgrade_step &step : command.steps)
        if (step.letter == 'R')
            words[step.index + 1] = "/dev/null";
    memory_file output;
    failed = !run_quietly(command, words, output) || failed;
    return !failed && output.text() == result;
}

// Adds those of `asked` that can be left out together with what is proved so far.
void claims::prove(const std::vector<size_t> &asked) {
    if (asked.empty() || failed || std::chrono::steady_clock::now() > end)
        return;
    std::vector<size_t> together = proved;
    together.insert(together.end(), asked.begin(), asked.end());
    if (same_without(together)) {
        proved = std::move(together);
        return;
    }
    if (failed)
        return;
    if (asked.size() == 1)
        refuted.push_back(asked[0]);
    else
        prove_halves(asked);
}

void claims::prove_halves(const std::vector<size_t> &asked) {
    auto middle = asked.begin() + static_cast<std::ptrdiff_t>(asked.size() / 2);
    prove({asked.begin(), middle});
    prove({middle, asked.end()});
}

// Lines that have no effect together can have one by themselves.
void claims::try_singly() {
    std::vector<size_t> together = std::exchange(proved, {});
    end = std::chrono::steady_clock::now() + MOST_SINGLE;
    for (size_t i : together) {
        bool is_proved = failed || std::chrono::steady_clock::now() > end || same_without({i});
        (is_proved ? proved : refuted).push_back(i);
    }
}

} // namespace

bool check_claims(const upgrade_command &command, const std::string &result_path,
                  const std::unordered_map<std::string, std::string> &texts, std::vector<line_fate> &lines) {
    std::vector<size_t> claimed;
    for (size_t i = 0; i < lines.size(); i++)
        if (lines[i].fate == "without effect")
            claimed.push_back(i);
    if (claimed.empty())
        return true;
    claims under_test{command, texts, lines, {}, {}, {}, false, {}};
    std::ifstream file(result_path, std::ios::binary);
    under_test.result.assign(std::istreambuf_iterator<char>(file), {});
    // A search takes as long as some runs of its own.
    using duration = std::chrono::steady_clock::duration;
    auto begin = std::chrono::steady_clock::now();
    bool all = under_test.same_without(claimed);
    duration one_run = std::chrono::steady_clock::now() - begin;
    if (all) {
        under_test.proved = claimed;
    } else {
        under_test.end = begin + std::max<duration>(MOST_IDLE, std::min<duration>(8 * one_run, MOST_SEARCH));
        under_test.prove_halves(claimed);
    }
    if (one_run < MOST_SINGLE)
        under_test.try_singly();
    std::vector<std::string> notes(lines.size(), ", as far as could be told in time");
    for (size_t i : under_test.refuted)
        notes[i] = ", yet the line decides the order or shape of what is saved";
    for (size_t i : under_test.proved)
        notes[i].clear();
    for (size_t i : claimed)
        if (!notes[i].empty()) {
            lines[i].fate = "reshaped";
            lines[i].reason += notes[i];
        }
    return !under_test.failed;
}
