// The program's own command line, where its answer goes, and its progress line.
#include "frag_tools.h"
#include "page.h"
#include "report_json.h"
#include "report_text.h"
#include "review_commands.h"
#include "upgrade_run.h"

#include <CLI/CLI.hpp>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <new>
#include <sys/time.h>
#include <unistd.h>

namespace {

struct own_options {
    review_options review;
    text_options text;
    std::string html, conf, proxy, host, table, other;
    std::vector<std::string> written; // by the upgrade that is reviewed
    bool json = false;
};

pid_t program;         // whose exit counts
bool finished = false; // main came to its end

// The store ends the process by itself where memory runs out, with a message and the status of an upgrade.
void end_in_trouble() {
    if (finished || getpid() != program)
        return;
    remove_scratch();
    fflush(nullptr);
    _exit(2);
}

// Ahead of all other objects, whose making takes memory, too.
[[gnu::constructor(101)]] void begin() {
    program = getpid();
    atexit(end_in_trouble);
    std::set_new_handler(outofcore);
}

// The progress line, written by a timer so that a long step shows, too. Only the handler reads the text.
char progress_text[120];
volatile sig_atomic_t progress_shown = 0;

extern "C" void show_progress(int) {
    progress_shown = 1;
    ssize_t ignored = write(STDERR_FILENO, progress_text, strlen(progress_text));
    (void)ignored;
}

void start_progress(review_options &options) {
    if (!isatty(STDERR_FILENO))
        return;
    options.progress = [](const std::string &what) {
        sigset_t timer, old;
        sigemptyset(&timer);
        sigaddset(&timer, SIGALRM);
        sigprocmask(SIG_BLOCK, &timer, &old);
        snprintf(progress_text, sizeof progress_text, "\r\033[K%.100s ...", what.c_str());
        sigprocmask(SIG_SETMASK, &old, nullptr);
    };
    struct sigaction action {};
    action.sa_handler = show_progress;
    action.sa_flags = SA_RESTART;
    sigaction(SIGALRM, &action, nullptr);
    itimerval timer{{0, 500000}, {1, 0}};
    setitimer(ITIMER_REAL, &timer, nullptr);
}

void end_progress() {
    signal(SIGALRM, SIG_IGN);
    if (progress_shown)
        fputs("\r\033[K", stderr);
}

// How many words from the front are the program's own: long options with their values, up to the first other word.
size_t count_own_words(const CLI::App &app, const std::vector<std::string> &words) {
    size_t at = 0;
    while (at < words.size() && words[at].compare(0, 2, "--") == 0) {
        const CLI::Option *option = app.get_option_no_throw(words[at]);
        at += option && option->get_expected_min() > 0 ? 2 : 1;
        if (words[at - 1] == "--")
            break;
    }
    return std::min(at, words.size());
}

// Writes the text to the file, which must be none of the files that the review speaks of. False if it can't.
bool write_page_file(const own_options &own, const review_data &data, const review_sides &sides) {
    std::vector<std::string> taken = own.written;
    for (const file_record &file : data.files)
        taken.push_back(file.name);
    for (const std::string &name : taken) {
        if (own.html == name || same_file(own.html, name)) {
            fprintf(stderr, "moatwall-review: %s is an input or output of the upgrade and is not overwritten\n",
                    own.html.c_str());
            return false;
        }
    }
    FILE *stream = fopen(own.html.c_str(), "w");
    std::string page = stream ? make_page(data, sides.before, sides.after) : "";
    bool good = stream && fwrite(page.data(), 1, page.size(), stream) == page.size();
    good = (!stream || fclose(stream) == 0) && good;
    if (!good)
        fprintf(stderr, "moatwall-review: can't write %s: %s\n", own.html.c_str(), strerror(errno));
    return good;
}

int answer(const own_options &own, review_data &data, const review_sides &sides) {
    end_progress();
    sort_findings(data);
    data.status = review_status(data);
    if (!own.html.empty() && !write_page_file(own, data, sides))
        return 2;
    std::string text = own.json ? report_json(data) : report_text(data, own.text);
    if (own.html.empty() || own.json)
        fputs(text.c_str(), stdout);
    else
        printf("%s", (verdict_sentence(data) + "\n").c_str());
    if (fflush(stdout) != 0 || ferror(stdout)) {
        fprintf(stderr, "moatwall-review: can't write the answer: %s\n", strerror(errno));
        return 2;
    }
    return data.status;
}

void add_own_options(CLI::App &app, own_options &own) {
    app.add_option("--html", own.html, "write the page to this file");
    app.add_flag("--json", own.json, "print one JSON object");
    app.add_option("--proxy", own.review.proxy, "compare this proxy only");
    app.add_flag("--quiet", own.text.quiet, "print the verdict only");
    app.add_flag("--all", own.text.all, "list kept lines, too");
}

void review_one(const std::vector<std::string> &words, own_options &own, review_data &data, review_sides &sides) {
    upgrade_command command = parse_upgrade_command(words);
    own.written = step_files(command, 'R');
    if (command.has_output)
        own.written.push_back(command.output);
    review_upgrade(command, own.review, data, sides);
}

int run(const std::vector<std::string> &words) {
    own_options own;
    CLI::App app("Reviews an upgrade: the same words as for the upgrade, with this name in front.", "moatwall-review");
    app.set_help_flag("--help", "print this help");
    app.set_version_flag("--version", "moatwall-review " REVIEW_VERSION);
    app.footer("Everything from the first short option or name on is the upgrade's own command line:\n"
               "  moatwall-review [OPTIONS] [-Vx] [-R report] [-n netperm] [-m mergefile]... outputfile\n"
               "Exit status: 0 nothing to look at, 1 something to look at, 2 trouble.");
    add_own_options(app, own);
    CLI::App *explain = app.add_subcommand("explain", "why a host gets its answer from a configuration");
    explain->add_option("conf", own.conf)->required();
    explain->add_option("proxy", own.proxy)->required();
    explain->add_option("host", own.host)->required();
    explain->add_option("--netperm", own.table, "what this netperm table says to it");
    CLI::App *diff = app.add_subcommand("diff", "two configurations by meaning, in whatever layout each is");
    diff->add_option("before", own.conf)->required();
    diff->add_option("after", own.other)->required();
    CLI::App *check = app.add_subcommand("check", "what in a configuration hangs in the air");
    check->add_option("conf", own.conf)->required();
    for (CLI::App *command : {explain, diff, check}) {
        command->set_help_flag("--help", "print this help");
        add_own_options(*command, own);
    }

    size_t own_count = count_own_words(app, words);
    bool ended = own_count > 0 && words[own_count - 1] == "--"; // what stands behind it is the upgrade's
    bool single = !ended && own_count < words.size() &&
                  (words[own_count] == "explain" || words[own_count] == "diff" || words[own_count] == "check");
    std::vector<std::string> mine(words.begin(), single ? words.end() : words.begin() + static_cast<long>(own_count));
    std::vector<std::string> upgrade_words(words.begin() + static_cast<long>(own_count), words.end());
    if (ended)
        mine.pop_back();
    std::reverse(mine.begin(), mine.end());
    try {
        app.parse(mine);
    } catch (const CLI::ParseError &error) {
        return app.exit(error) == 0 ? 0 : 2;
    }
    if (!single && upgrade_words.empty()) {
        fputs(app.help().c_str(), stderr);
        return 2;
    }
    start_progress(own.review);
    review_data data;
    review_sides sides;
    if (explain->parsed())
        explain_host(own.conf, own.table, own.proxy, own.host, data, sides);
    else if (diff->parsed())
        review_diff(own.conf, own.other, own.review, data, sides);
    else if (check->parsed())
        review_check(own.conf, data);
    else
        review_one(upgrade_words, own, data, sides);
    return answer(own, data, sides);
}

} // namespace

int main(int argc, char **argv) {
    signal(SIGXFSZ, SIG_IGN); // a limit is told by whoever writes
    int status = 2;
    try {
        status = run(std::vector<std::string>(argv + std::min(argc, 1), argv + argc));
    } catch (const std::bad_alloc &) {
        fputs("moatwall-review: out of memory\n", stderr);
    } catch (const std::exception &error) {
        fprintf(stderr, "moatwall-review: %s\n", error.what());
    }
    finished = true;
    return status;
}
