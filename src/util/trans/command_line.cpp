// The command line: its options and what each takes.
#include "command_line.h"
#include "upgrade.h"

#include <cstdlib>
#include <cstring>

namespace {

struct option_rec {
    char letter;
    bool attached; // its argument can stand right behind the letter; with the others such a text means nothing
    int behind;    // how many words must follow
};
const option_rec option_tab[] = {
    {'V', true, 0},  // output version
    {'R', false, 2}, // report file
    {'m', false, 2}, // fragment file to merge
    {'n', false, 2}, // netperm table
    {'e', false, 0}, // environment file of the 4.1 release
    {0, false, 0},
};

} // namespace

void usage(const char *program) {
    fprintf(stderr, "usage: %s [-Vx] [-n netperm] [-m mergefile] outputfile\n", program);
    exit(1);
}

command_line::command_line(int word_count, char **line) : count(word_count), words(line) {
    if (count < 4)
        usage(count > 0 ? words[0] : "upgrade");
}

const char *command_line::find_merge_file(int *from) const {
    while (*from < count && strcmp(words[*from], "-m") != 0)
        ++*from;
    const char *file = *from + 1 < count ? words[*from + 1] : nullptr;
    *from += 2;
    return file;
}

bool command_line::next_option(command_option &option) {
    do {
        if (left() <= 1)
            return false;
        at++;
    } while (words[at][0] != '-');
    const char *text = words[at] + 1;
    const option_rec *rec = option_tab;
    while (rec->letter && rec->letter != *text)
        rec++;
    if (!rec->letter || left() < rec->behind)
        usage(words[0]);
    option.letter = rec->letter;
    option.argument = rec->attached && text[1] ? text + 1 : words[++at];
    return true;
}
