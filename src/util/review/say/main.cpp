// The program's own command line, where its answer goes, and its progress line.
#include "nsym.h"
#include "run/upgrade_run.h"
#include "say/say.h"

#include <CLI/CLI.hpp>
#include <clocale>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <fmt/ranges.h>
#include <fstream>
#include <iostream>
#include <new>
#include <nlohmann/json.hpp>
#include <sys/ioctl.h>
#include <unistd.h>

namespace {

struct own_options {
    say_options say;
    std::string html, table;
    std::vector<std::string> words; ///< of the command
    bool json = false;
};

/// The commands for single questions, with their words. Ends with a null.
const struct command_row {
    const char *id, *words;
    int least, most; // of them
    const char *help, *title;
} commands[] = {
    {"explain", "CONF PROXY HOST", 3, 3, "why a host gets its answer from a configuration", "Explain"},
    {"line", "FILE:N", 1, 1, "what would be another without a line: FILE:N, then the upgrade's words",
     "Upgrade review"},
    {"diff", "BEFORE AFTER", 2, 2, "two configurations by meaning, in whatever layout each is", "Diff"},
    {"check", "CONF", 1, 1, "what in a configuration hangs in the air", "Check"},
    {"fleet", "ANSWER...", 1, 1 << 20, "many answers, made with --json, in one list, the worst first", "Fleet"},
    {nullptr, "", 0, 0, "", "Upgrade review"},
};

pid_t program; // whose exit counts, 0 when main came to its end

// The store ends the process by itself where memory runs out, with a message and the status of an upgrade.
void end_in_trouble() {
    if (getpid() != program)
        return;
    fflush(nullptr);
    _exit(2);
}

// Ahead of all other objects, whose making takes memory, too.
[[gnu::constructor(101)]] void begin() {
    program = getpid();
    atexit(end_in_trouble);
    std::set_new_handler(outofcore);
}

int refuse(const std::string &text) {
    fprintf(stderr, "moatwall-review: %s\n", text.c_str());
    return 2;
}

// Writes the page to its file, which must be none of those that it speaks of, and the text to standard output.
int write_answer(const own_options &own, const json &answer, const std::vector<std::string> &taken,
                 const std::string &page, const std::string &text) {
    if (isatty(STDERR_FILENO))
        fputs("\r\033[K", stderr); // the progress line ends
    if (!own.html.empty()) {
        for (const std::string &name : taken)
            if (own.html == name || same_file(own.html, name))
                return refuse(own.html + " is an input or output of what the page is about and is not overwritten");
        std::ofstream stream(own.html);
        if (!(stream << page << std::flush))
            return refuse("can't write " + own.html + ": " + strerror(errno));
    }
    if (!(std::cout << text << std::flush))
        return refuse(std::string("can't write the answer: ") + strerror(errno));
    return answer["status"];
}

int sum_up(const own_options &own) {
    json fleet = sum_up_fleet(own.words, own.html);
    std::string text = own.json ? dumped(fleet, 2) + "\n" : own.html.empty() ? fleet_text(fleet) : "";
    return write_answer(own, fleet, own.words, own.html.empty() ? "" : fleet_page(fleet), text);
}

int answer(own_options &own, const std::string &command, const std::vector<std::string> &upgrade_words,
           review_session &session) {
    const std::vector<std::string> &words = own.words;
    std::vector<std::string> taken;
    own.say.subject = fmt::format("{}", fmt::join(words, " "));
    if (command == "fleet") {
        return sum_up(own);
    } else if (command == "explain") {
        session.proxy = words[1];
        explain_host(words[0], own.table, words[2], session);
    } else if (command == "diff") {
        review_diff(words[0], words[1], session);
    } else if (command == "check") {
        review_check(words[0], session);
    } else {
        std::string place = command == "line" ? words[0] : "";
        size_t colon = place.rfind(':');
        long line = colon == place.npos ? 0 : strtol(place.c_str() + colon + 1, nullptr, 10);
        if (command == "line" && line < 1)
            return refuse(place + " is no place: FILE:N is one");
        upgrade_command upgrade = parse_upgrade_command(upgrade_words);
        taken = step_files(upgrade, 'R');
        own.say.subject = upgrade.has_output ? upgrade.output : "standard output";
        if (upgrade.has_output)
            taken.push_back(upgrade.output);
        review_upgrade(upgrade, place.substr(0, colon), line, session);
    }
    json told = answer_object(session.data);
    for (const file_record &file : session.data.files)
        taken.push_back(file.name);
    std::string page = own.html.empty() ? "" : report_page(told, session, own.say);
    own.say.quiet = own.say.quiet || !own.html.empty();
    return write_answer(own, told, taken, page,
                        own.json ? report_json(told, session.data) : report_text(told, session.data, own.say));
}

void add_own_options(CLI::App &app, own_options &own, review_session &session) {
    app.fallthrough(); // the commands take them, too
    app.set_help_flag("--help", "print this help");
    app.set_version_flag("--version", "moatwall-review " REVIEW_VERSION);
    app.add_option("--html", own.html, "write the page to this file");
    app.add_flag("--json", own.json, "print one JSON object");
    app.add_option("--proxy", session.proxy, "compare this proxy only");
    app.add_option("--only", own.say.only, "print these findings and things to do only, such as wider,todo.off")
        ->delimiter(',')
        ->allow_extra_args(false)
        ->check([](const std::string &name) {
            return is_told_name(name) ? "" : "there is no finding and nothing to do with the name " + name;
        });
    app.add_flag("--lines", own.say.lines, "list what became of lines, like ones together");
    app.add_flag("--all", own.say.all, "list every line of the inputs and of the result");
    app.add_flag("--quiet", own.say.quiet, "print the verdict only");
    app.footer("Everything from the first short option or name on is the upgrade's own command line:\n"
               "  moatwall-review [OPTIONS] [-Vx] [-R report] [-n netperm] [-m mergefile]... outputfile\n"
               "Exit status: 0 nothing to look at, 1 something to look at, 2 trouble.");
    for (const command_row *row = commands; row->id; row++)
        app.add_subcommand(row->id, row->help)
            ->add_option("words", own.words)
            ->option_text(row->words)
            ->expected(row->least, row->most)
            ->required();
    app.get_subcommand("explain")->add_option("--netperm", own.table, "what this netperm table says to it");
}

int run(const std::vector<std::string> &words) {
    own_options own;
    review_session session;
    CLI::App app("Reviews an upgrade: the same words as for the upgrade, with this name in front.", "moatwall-review");
    add_own_options(app, own, session);
    // Long options with their values come first, then a command or the upgrade's words.
    size_t mine = 0;
    while (mine < words.size() && words[mine].compare(0, 2, "--") == 0 && words[mine] != "--") {
        const CLI::Option *option = app.get_option_no_throw(words[mine]);
        mine = std::min(words.size(), mine + (option && option->get_expected_min() > 0 ? 2 : 1));
    }
    bool ended = mine < words.size() && words[mine] == "--"; // what stands behind it is the upgrade's
    const command_row *command = find_row(commands, ended || mine == words.size() ? "" : words[mine]);
    if (command->id) // a line's place belongs to the program, what follows to the upgrade
        mine = strcmp(command->id, "line") == 0 ? std::min(mine + 2, words.size()) : words.size();
    auto end = words.begin() + static_cast<long>(mine);
    std::vector<std::string> upgrade_words(end + ended, words.end()), own_words(words.begin(), end);
    std::reverse(own_words.begin(), own_words.end());
    try {
        app.parse(own_words);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (!command->id && upgrade_words.empty()) {
        fputs(app.help().c_str(), stderr);
        return 2;
    }
    winsize terminal{};
    if (isatty(STDOUT_FILENO) && ioctl(STDOUT_FILENO, TIOCGWINSZ, &terminal) == 0)
        own.say.width = terminal.ws_col;
    if (isatty(STDERR_FILENO))
        session.progress = [](const std::string &what) {
            fprintf(stderr, "\r\033[K%s ...", shown(what.substr(0, 100)).c_str());
        };
    own.say.title = command->title;
    return answer(own, command->id ? command->id : "", upgrade_words, session);
}

} // namespace

int main(int argc, char **argv) {
    signal(SIGXFSZ, SIG_IGN);       // a limit is told by whoever writes
    setlocale(LC_CTYPE, "C.UTF-8"); // characters are shown, else every byte above 127 is escaped
    int status = 2;
    try {
        status = run(std::vector<std::string>(argv + std::min(argc, 1), argv + argc));
    } catch (const std::bad_alloc &) {
        status = refuse("out of memory");
    } catch (const std::exception &error) {
        status = refuse(error.what());
    }
    program = 0;
    return status;
}
