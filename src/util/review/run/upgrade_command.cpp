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
