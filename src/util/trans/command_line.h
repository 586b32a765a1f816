/// The words of the command line, read from left to right as the run goes on.
#ifndef COMMAND_LINE_H
#define COMMAND_LINE_H

/// One option as it stands on the line.
struct command_option {
    char letter = 0;
    const char *argument = nullptr; ///< the word behind it or, for `V` alone, the text behind the letter
};

/// A command line and how far it has been read. The last word names the output and is never an option, though an option
/// may take it as its argument.
struct command_line {
    /// Ends the process through `usage` if there are too few words.
    command_line(int word_count, char **line);
    /// The program's name.
    const char *program() const { return words[0]; }
    /// The file of the next word that is exactly "-m", looked for from `*at` on, which goes behind the file; null if
    /// there is none. What has been read does not change.
    const char *find_merge_file(int *at) const;
    /// Reads the next option and passes over words that are none. False, and nothing is read, once only the output is
    /// left. An unknown option, and one that lacks its argument, end the process through `usage`.
    bool next_option(command_option &option);
    /// The word behind what has been read; null if an option has taken the last.
    const char *output() const { return left() > 0 ? words[at + 1] : nullptr; }

private:
    int left() const { return count - 1 - at; }

    int count;
    char **words;
    int at = 0; // the word that was read last
};

#endif
