// The program's own command line, where its answer goes, and its progress line.
#include "nsym.h"
#include "program_heap.h"
#include "run/upgrade_run.h"
#include "say/say.h"

#include <CLI/CLI.hpp>
#include <algorithm>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fmt/ranges.h>
#include <fstream>
#include <iostream>
#include <new>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

/// The commands for single questions, with their words. Ends with the review of an upgrade, which has no name.
const struct command_row {
    const char *id, *words;
    int count; // of them, -1 for one or more
    const char *help, *title;
    void (*ask)(review_session &session); // null for a fleet
} commands[] = {
    {"explain", "CONF PROXY HOST", 3, "why a host gets its answer from a configuration", "Explain", explain_host},
    {"line", "FILE:N", 1, "what would be another without a line: FILE:N, then the upgrade's words", "Upgrade review",
     review_upgrade},
    {"diff", "BEFORE AFTER", 2, "two configurations by meaning, in whatever layout each is", "Diff", review_diff},
    {"check", "CONF", 1, "what in a configuration hangs in the air", "Check", review_check},
    {"fleet", "ANSWER...", -1, "many answers, made with --json, in one list, the worst first", "Fleet", nullptr},
    {nullptr, "", 0, "", "Upgrade review", review_upgrade},
};

pid_t program; // whose exit counts, 0 when main came to its end

// Ahead of all other objects, whose making takes memory, too. The store ends the process by itself where memory runs
// out, with a message and the status of an upgrade.
[[gnu::constructor(101)]] void begin() {
    program = getpid();
    std::set_new_handler(outofcore);
    atexit([] {
        if (getpid() == program)
            _exit(2);
    });
}

// Writes the page to its file, which must be none of those that it speaks of, and the rest to standard output.
void write_reply(const reply &said, const review_session &session) {
    const std::string &html = session.html;
    if (isatty(STDERR_FILENO))
        fputs("\r\033[K", stderr); // the progress line ends
    for (const auto &taken : {session.words, session.upgrade_words, std::vector<std::string>{session.table}})
        for (const std::string &name : taken)
            if (!html.empty() && (html == name || same_file(html, name)))
                throw std::runtime_error(html + " is an input or output of what the page is about"
                                                " and is not overwritten");
    if (!html.empty() && !(std::ofstream(html) << said.page << std::flush))
        throw std::runtime_error("can't write " + html + ": " + strerror(errno));
    if (!(std::cout << said.text << std::flush))
        throw std::runtime_error(std::string("can't write the answer: ") + strerror(errno));
}

void add_options(CLI::App &app, review_session &session) {
    app.fallthrough(); // the commands take them, too
    app.set_help_flag("--help", "print this help");
    app.set_version_flag("--version", "moatwall-review " REVIEW_VERSION);
    app.add_option("--html", session.html, "write the page to this file");
    app.add_flag("--json", session.as_json, "print one JSON object");
    app.add_option("--proxy", session.proxy, "compare this proxy only");
    app.add_option("--only", session.only, "print these findings and things to do only, such as wider,todo.off")
        ->delimiter(',')
        ->option_text("NAME[,NAME]")
        ->allow_extra_args(false)
        ->check([](const std::string &name) {
            return is_told_name(name) ? "" : "there is no finding and nothing to do with the name " + name;
        });
    app.add_flag("--lines", session.lines, "list what became of lines, like ones together");
    app.add_flag("--all", session.all, "list every line of the inputs and of the result");
    app.add_flag("--quiet", session.quiet, "print the verdict only");
    app.footer("Everything from the first short option or name on is the upgrade's own command line:\n"
               "  moatwall-review [OPTIONS] [-Vx] [-R report] [-n netperm]\n"
               "                  [-m mergefile]... outputfile\n"
               "Exit status: 0 nothing to look at, 1 something to look at, 2 trouble.");
    for (const command_row *row = commands; row->id; row++)
        app.add_subcommand(row->id, row->help)
            ->add_option("words", session.words)
            ->option_text(row->words)
            ->expected(row->count)
            ->required();
    app.get_subcommand("explain")->add_option("--netperm", session.table, "what this netperm table says to it");
}

// Takes the words apart: long options with their values come first, then a command or the upgrade's words. Throws for
// words that can't be understood, and for those that ask for help.
const command_row &parse_words(const std::vector<std::string> &words, CLI::App &app, review_session &session) {
    size_t mine = 0;
    while (mine < words.size() && words[mine].compare(0, 2, "--") == 0 && words[mine] != "--") {
        const CLI::Option *option = app.get_option_no_throw(words[mine]);
        mine = std::min(words.size(), mine + (option && option->get_expected_min() > 0 ? 2 : 1));
    }
    std::string first = mine < words.size() ? words[mine] : ""; // what stands behind `--` is the upgrade's
    const command_row *command = find_row(commands, first);
    if (command->id) // a line's place belongs to the program, what follows to the upgrade
        mine = command->ask == review_upgrade ? std::min(mine + 2, words.size()) : words.size();
    auto end = words.begin() + static_cast<long>(mine);
    session.upgrade_words.assign(end + (first == "--"), words.end());
    app.parse(std::vector<std::string>(std::make_reverse_iterator(end), words.rend()));
    if (!command->id && session.upgrade_words.empty()) {
        fputs(app.help().c_str(), stderr);
        throw CLI::RuntimeError(2);
    }
    return *command;
}

int run(const std::vector<std::string> &words) {
    static review_session &session = *new review_session; // the process frees nothing at its end
    CLI::App app("Reviews an upgrade: the same words as for the upgrade, with this name in front.", "moatwall-review");
    add_options(app, session);
    const command_row *command = nullptr;
    try {
        command = &parse_words(words, app, session);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    winsize terminal{};
    if (isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &terminal) == 0)
        session.width = terminal.ws_col;
    if (isatty(STDERR_FILENO))
        session.progress = [](const std::string &what) {
            fprintf(stderr, "\r\033[K%s ...", shown(what.substr(0, 100)).c_str());
        };
    session.title = command->title;
    session.subject = fmt::format("{}", fmt::join(session.words, " "));
    if (command->ask)
        command->ask(session);
    reply said = command->ask ? report(session) : sum_up_fleet(session);
    write_reply(said, session);
    return said.status;
}

} // namespace

int main(int argc, char **argv) {
    prepare_heap(argc, argv, 3);
    signal(SIGXFSZ, SIG_IGN);       // a limit is told by whoever writes
    setlocale(LC_CTYPE, "C.UTF-8"); // characters are shown, else every byte above 127 is escaped
    int status = 2;
    try {
        status = run(std::vector<std::string>(argv + std::min(argc, 1), argv + argc));
    } catch (const std::exception &error) {
        fprintf(stderr, "moatwall-review: %s\n", error.what());
    }
    program = 0;
    return status;
}
