// The upgrade's command line: options from left to right, the last word never one of them.
#include "upgrade_command.h"
#include "frag_tools.h"
#include "nsym.h"

#include <cstring>

namespace {

// The file behind the next word `-m` from `at` on, as it is read ahead of the options. The result is the place behind.
size_t find_inspected(const std::vector<std::string> &words, size_t at, std::string &file) {
    while (at < words.size() && words[at] != "-m")
        at++;
    if (at + 1 < words.size())
        file = words[at + 1];
    return at + 2;
}

void read_version(upgrade_command &command, const upgrade_step &step) {
    command.version = decimal(step.argument.c_str());
    if (command.version == 2)
        command.version = 99;
}

} // namespace

upgrade_command parse_upgrade_command(const std::vector<std::string> &words) {
    upgrade_command command;
    command.words = words;
    if (words.size() < 3) {
        command.refused = "fewer than three words";
        return command;
    }
    find_inspected(words, find_inspected(words, 0, command.old_conf), command.init_conf);
    size_t at = 0;
    while (at + 1 < words.size()) {
        const std::string &word = words[at];
        if (word.empty() || word[0] != '-') {
            command.passed_over.push_back(at++);
            continue;
        }
        upgrade_step step{word.size() > 1 ? word[1] : '\0', "", at, word.size() > 2};
        if (!step.letter || !strchr("VRmne", step.letter)) {
            command.refused = "there is no option " + word;
            return command;
        }
        if (strchr("Rmn", step.letter) && at + 2 >= words.size()) {
            command.refused = word + " would take the last word, which is the output's name";
            return command;
        }
        step.argument = step.argument_index() == at ? word.substr(2) : words[at + 1];
        if (step.letter == 'V')
            read_version(command, step);
        at = step.argument_index() + 1;
        command.steps.push_back(std::move(step));
    }
    if (at < words.size()) {
        command.output = words[at];
        command.has_output = true;
    }
    return command;
}

std::vector<std::string> step_files(const upgrade_command &command, char letter) {
    std::vector<std::string> files;
    for (const upgrade_step &step : command.steps) {
        if (step.letter == letter)
            files.push_back(step.argument);
    }
    return files;
}
