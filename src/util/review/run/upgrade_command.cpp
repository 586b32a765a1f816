// The upgrade's command line: options from left to right, the last word never one of them.
#include "run/upgrade_command.h"
#include "frag_tools.h"
#include "nsym.h"

#include <cstring>

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
            command.version = decimal(step.argument.c_str());
        if (command.version == 2)
            command.version = 99;
        at = step.argument_index() + 1;
        command.steps.push_back(std::move(step));
    }
    command.has_output = at < words.size();
    if (command.has_output)
        command.output = words[at];
    return command;
}

std::vector<std::string> step_files(const upgrade_command &command, char letter) {
    std::vector<std::string> files;
    for (const upgrade_step &step : command.steps)
        if (step.letter == letter)
            files.push_back(step.argument);
    return files;
}
