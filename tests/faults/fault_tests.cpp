// Whole runs of the program on a failing heap, on short and failing reads, and on a full disk.
//
// The inputs stand in the folder `inputs`: some 500 lines and 60 rules each, of every family that the passes touch.
#include "shim.h"
#include "support.h"

#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <map>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif

std::string repeated(const std::string &block, int times) {
    std::string text;
    for (int time = 0; time < times; time++)
        for (size_t at = 0; at < block.size(); at++) {
            bool has_divisor = block.compare(at, 2, "@%") == 0;
            if (block[at] == '@')
                text += std::to_string(has_divisor ? time % (block[at + 2] - '0') : time);
            else if (block.compare(at, 2, "\\r") == 0)
                text += '\r';
            else
                text += block[at];
            at += has_divisor ? 2 : text.back() == '\r' ? 1 : 0;
        }
    return text;
}

struct fault_run {
    const char *name;
    std::vector<std::string> arguments; // the last is the output, but where an option takes it
    const char *output;
};

const fault_run runs[] = {
    {"numbered", {"-n", "table", "-m", "old", "-m", "init", "out"}, "out"},
    {"environment", {"-m", "old41", "-m", "init", "-e", "env", "-V", "41", "out"}, "out"},
    {"xml", {"-V2", "-R", "report", "-n", "table", "-m", "old", "-m", "init", "out"}, "out"},
    {"standard_output", {"-V50", "-m", "old41", "-m", "init", "-e", "env"}, "stdout"},
};

// `old` is a configuration from before 4.0, `old41` one of 4.1, `init` the new initial environment, `env` a numbered
// environment, `table` a netperm table.
const char *const input_names[] = {"old", "old41", "init", "env", "table"};

// Writes the inputs at `share` of 60 times their size. Each is a file of lines here. Those between `repeat N` and `end`
// come N times, with the number of the time for a `@` and its remainder for `@%D`; a `\r` is a carriage return.
void write_inputs(const scratch_dir &dir, int share) {
    for (const char *name : input_names) {
        std::istringstream lines(read_file(std::string(INPUTS_DIR) + "/" + name));
        std::string text, block;
        int times = 1;
        for (std::string line; std::getline(lines, line);) {
            bool begins = line.compare(0, 7, "repeat ") == 0;
            if (!begins && line != "end") {
                block += line + "\n";
                continue;
            }
            text += repeated(block, times);
            block.clear();
            times = begins ? (atoi(line.c_str() + 7) * share + 59) / 60 : 1;
        }
        dir.write(name, text + repeated(block, times));
    }
}

// What tells one state of a file from another without reading it.
std::string state_of(const std::string &path) {
    struct stat state;
    if (stat(path.c_str(), &state) != 0)
        return "none";
    return std::to_string(state.st_ino) + " " + std::to_string(state.st_size) + " " +
           std::to_string(state.st_mtim.tv_sec) + "." + std::to_string(state.st_mtim.tv_nsec);
}

// The program, held in front of its main(), that runs as often as it is told.
class program_server {
public:
    program_server(const std::string &dir, const fault_run &run) {
        int ends[2];
        EXPECT_EQ(socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends), 0);
        std::vector<char *> words;
        words.push_back(const_cast<char *>(UPGRADE_PROGRAM));
        for (const std::string &word : run.arguments)
            words.push_back(const_cast<char *>(word.c_str()));
        words.push_back(nullptr);
        server = fork();
        if (server == 0) {
            int out = open((dir + "/stdout").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
            int err = open((dir + "/stderr").c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
            if (chdir(dir.c_str()) != 0 || dup2(out, 1) < 0 || dup2(err, 2) < 0 || dup2(ends[1], ORDER_FD) < 0)
                _exit(126);
            setenv("LD_PRELOAD", FAULT_SHIM, 1);
            setenv("ASAN_OPTIONS", "verify_asan_link_order=0:detect_leaks=0", 1);
            execv(words[0], words.data());
            _exit(127);
        }
        close(ends[1]);
        channel = ends[0];
    }
    ~program_server() {
        close(channel);
        waitpid(server, nullptr, 0);
    }
    program_server(const program_server &) = delete;
    program_server &operator=(const program_server &) = delete;

    fault_answer run(fault_kind kind, long n) {
        fault_order order{};
        order.kind = kind;
        order.n = n;
        fault_answer answer{-1, true, false, 0, 0};
        if (write(channel, &order, sizeof order) != static_cast<ssize_t>(sizeof order) ||
            read(channel, &answer, sizeof answer) != static_cast<ssize_t>(sizeof answer))
            answer = {-1, true, false, 0, 0};
        return answer;
    }

private:
    pid_t server;
    int channel;
};

// Faults of one kind are told once, with the place that shows it first and their number.
struct found_faults {
    std::map<std::string, std::pair<long, long>> found;
    void add(const std::string &what, long n) { found.emplace(what, std::make_pair(n, 0L)).first->second.second++; }
    ~found_faults() {
        for (const auto &fault : found)
            ADD_FAILURE() << fault.first << ": first at " << fault.second.first << ", " << fault.second.second
                          << " times";
    }
};

struct faults : testing::TestWithParam<fault_run> {
    scratch_dir dir;
    std::string whole; // what the output holds after a run without faults
    std::map<std::string, std::string> untouched;
    found_faults found;

    std::string path(const std::string &name) const { return dir.path + "/" + name; }
    bool to_file() const { return std::string(GetParam().output) == "out"; }
    std::string output() const { return read_file(path(GetParam().output)); }
    std::string errors() const { return read_file(path("stderr")); }

    void write_inputs(int count) {
        ::write_inputs(dir, count);
        for (const char *name : input_names)
            untouched[name] = state_of(path(name));
        program_server server(dir.path, GetParam());
        ASSERT_EQ(server.run(NO_FAULT, 0).status, 0);
        whole = output();
        ASSERT_EQ(errors(), "");
        ASSERT_GT(whole.size(), 1000u);
        clear_streams();
    }
    void TearDown() override {
        for (const auto &file : untouched)
            EXPECT_EQ(state_of(path(file.first)), file.second) << file.first;
    }
    void clear_streams() {
        for (const char *stream : {"stdout", "stderr"})
            dir.write(stream, "");
    }
};

// A copy of the run whose n-th allocation failed, once or with all behind it, has either stopped with its message and
// left an output from before as it was, or gone on as if nothing had been.
TEST_P(faults, exhausted_heap) {
    if (SANITIZED)
        GTEST_SKIP() << "a sanitizer has a heap of its own, which can't be made to fail";
    write_inputs(60);
    dir.write("out", "from before\n");
    std::string before = state_of(path("out"));
    program_server server(dir.path, GetParam());
    for (;;) {
        fault_answer answer = server.run(EVERY_ALLOCATION, 0);
        if (answer.ended) {
            EXPECT_EQ(answer.status, 0);
            break;
        }
        long n = answer.allocation;
        RecordProperty("allocations", std::to_string(n));
        bool has_opened = access(path("out.copy").c_str(), F_OK) == 0;
        std::string left = to_file() && has_opened ? read_file(path("out.copy")) : "";
        if (answer.status == 1 << 8) {
            std::string told = errors();
            if (told != "Outofcore()\n")
                found.add("message '" + told + "'", n);
            if (to_file() && has_opened && left != whole)
                found.add("damaged output", n);
            if (to_file() && !has_opened && state_of(path("out")) != before && output() != whole)
                found.add("output damaged while it was written", n);
        } else if (answer.status == 0) {
            if (!errors().empty())
                found.add("message of a copy that went on", n);
            if ((to_file() && has_opened ? left : output()) != whole)
                found.add("other output with status 0", n);
        } else {
            found.add("wait status " + std::to_string(answer.status), n);
        }
        unlink(path("out.copy").c_str());
        clear_streams();
    }
}

// Under a sanitizer the many small steps take too long, so only some of them are made.
constexpr size_t STEPS = SANITIZED ? 37 : 1;

// Reads of one byte and of every odd size give what whole reads give.
TEST_P(faults, short_reads) {
    write_inputs(3);
    program_server server(dir.path, GetParam());
    size_t longest = 0;
    for (const char *name : input_names)
        longest = std::max(longest, read_file(path(name)).size());
    for (size_t size = 1; size <= longest; size += 2 * STEPS) {
        fault_answer answer = server.run(READ_AT_MOST, static_cast<long>(size));
        ASSERT_EQ(answer.status, 0) << size;
        ASSERT_GT(answer.hits, 0) << size; // the reader asks for more than any of these files has
        if (output() != whole || !errors().empty())
            found.add("other output", static_cast<long>(size));
        clear_streams();
    }
}

// A read error counts as the end of the file, wherever it comes.
TEST_P(faults, failing_reads) {
    write_inputs(3);
    program_server server(dir.path, GetParam());
    scratch_dir cut;
    program_server cut_server(cut.path, GetParam());
    std::map<std::string, std::string> inputs;
    size_t longest = 0;
    for (const char *name : input_names) {
        inputs[name] = read_file(path(name));
        longest = std::max(longest, inputs[name].size());
    }
    for (size_t n = 0; n < longest; n += STEPS) {
        fault_answer answer = server.run(READ_FAILS, static_cast<long>(n));
        ASSERT_EQ(answer.status, 0) << n;
        ASSERT_GT(answer.hits, 0) << n;
        for (const auto &input : inputs)
            cut.write(input.first, input.second.substr(0, n));
        for (const char *stream : {"stdout", "stderr"})
            cut.write(stream, "");
        ASSERT_EQ(cut_server.run(NO_FAULT, 0).status, 0) << n;
        if (output() != read_file(cut.path + "/" + GetParam().output))
            found.add("other output than that of the files cut there", static_cast<long>(n));
        if (errors() != read_file(cut.path + "/stderr"))
            found.add("other messages", static_cast<long>(n));
        clear_streams();
    }
}

// A disk that is full behind any byte leaves the output's beginning up to there, and the run ends like any other.
TEST_P(faults, full_disk) {
    write_inputs(3);
    program_server server(dir.path, GetParam());
    for (size_t n = 0; n <= whole.size(); n += STEPS) {
        fault_answer answer = server.run(DISK_FULL, static_cast<long>(n));
        if (answer.status != 0)
            found.add("wait status " + std::to_string(answer.status), static_cast<long>(n));
        if (output() != whole.substr(0, n))
            found.add("not the beginning of the output", static_cast<long>(n));
        if (!errors().empty())
            found.add("message", static_cast<long>(n));
        clear_streams();
    }
}

INSTANTIATE_TEST_SUITE_P(runs, faults, testing::ValuesIn(runs), [](const auto &name) { return name.param.name; });

// The following need no preloaded library: the system itself is at fault.

struct odd_files : testing::Test {
    scratch_dir dir;

    void SetUp() override { write_inputs(dir, 20); }
    std::string path(const std::string &name) const { return dir.path + "/" + name; }
    run_result run(std::vector<std::string> arguments) {
        arguments.insert(arguments.begin(), UPGRADE_PROGRAM);
        return run_program(dir.path, arguments);
    }
    bool is_as_expected(const char *name) const { return read_file(path(name)) == read_file(path(name) + ".expected"); }
    // The program through a shell, which opens and closes its descriptors.
    run_result run_shell(const std::string &arguments) {
        return run_program(dir.path, {"/bin/sh", "-c", std::string(UPGRADE_PROGRAM) + " " + arguments});
    }
};

TEST_F(odd_files, full_device) {
    for (const char *version : {"-V1", "-V50", "-V2"}) {
        run_result result = run({version, "-R", "/dev/full", "-n", "table", "-m", "old", "-m", "init", "/dev/full"});
        EXPECT_EQ(result.status, 0) << version;
        EXPECT_EQ(result.err, "") << version;
    }
}

TEST_F(odd_files, output_that_cannot_be_opened) {
    mkdir(path("folder").c_str(), 0700);
    for (const char *output : {"folder", "none/out", ""}) {
        run_result result = run({"-n", "table", "-m", "old", "-m", "init", output});
        EXPECT_EQ(result.status, 0) << output;
        EXPECT_EQ(result.out + result.err, "") << output;
    }
}

TEST_F(odd_files, directories_as_inputs) {
    mkdir(path("folder").c_str(), 0700);
    dir.write("empty", "");
    ASSERT_EQ(run({"-n", "empty", "-m", "empty", "-m", "init", "expected"}).status, 0);
    run_result result = run({"-n", "folder", "-m", "folder", "-m", "init", "out"});
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(read_file(path("out")), read_file(path("expected")));
    ASSERT_EQ(run({"-m", "old41", "-m", "init", "-e", "empty", "-V1", "expected"}).status, 0);
    ASSERT_EQ(run({"-m", "old41", "-m", "init", "-e", "folder", "-V1", "out"}).status, 0);
    EXPECT_EQ(read_file(path("out")), read_file(path("expected")));
}

// Pipes give their bytes in pieces; a merged file is opened twice, and its writer has to serve both.
TEST_F(odd_files, pipes_as_inputs) {
    const std::vector<std::string> arguments{"-n", "table", "-m", "old", "-m", "init", "-e", "env", "-V1"};
    auto with_output = [&](const char *output) {
        std::vector<std::string> all = arguments;
        all.push_back(output);
        return all;
    };
    ASSERT_EQ(run(with_output("expected")).status, 0);
    std::vector<std::thread> writers;
    for (const char *name : {"table", "old", "init", "env"}) {
        std::string content = read_file(path(name));
        unlink(path(name).c_str());
        ASSERT_EQ(mkfifo(path(name).c_str(), 0600), 0);
        int times = strcmp(name, "old") == 0 || strcmp(name, "init") == 0 ? 2 : 1;
        writers.emplace_back([file = path(name), content, times] {
            for (int i = 0; i < times; i++) {
                int pipe = open(file.c_str(), O_WRONLY | O_CLOEXEC);
                for (size_t at = 0; at < content.size();) {
                    ssize_t written = write(pipe, content.data() + at, std::min<size_t>(content.size() - at, 777));
                    if (written <= 0)
                        break;
                    at += static_cast<size_t>(written);
                }
                close(pipe);
                // The reader must have closed its end, or it would take the next time's bytes for this time's.
                std::this_thread::sleep_for(std::chrono::milliseconds(200));
            }
        });
    }
    run_result result = run(with_output("out"));
    for (std::thread &writer : writers)
        writer.join();
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
    EXPECT_EQ(read_file(path("out")), read_file(path("expected")));
}

// A heap that really is too small, for a value that grows until it is exhausted.
TEST_F(odd_files, small_address_space) {
    if (SANITIZED)
        GTEST_SKIP() << "a sanitizer needs a large address space";
    ASSERT_EQ(truncate(dir.write("zeros", "a=").c_str(), 200 << 20), 0);
    dir.write("out", "from before\n");
    run_result result =
        run_program(dir.path, {"/bin/sh", "-c", "ulimit -v 65536; exec " UPGRADE_PROGRAM " -V50 -m zeros -m init out"});
    EXPECT_EQ(result.status, 1);
    EXPECT_EQ(result.err, "Outofcore()\n");
    EXPECT_EQ(read_file(path("out")), "from before\n");
}

TEST_F(odd_files, closed_standard_output) {
    run_result result = run_shell("-V50 -m old41 -m init -e env >&-");
    EXPECT_EQ(result.status, 0);
    EXPECT_EQ(result.err, "");
}

// With the standard descriptors closed, no file that is opened takes their place: what the program prints stays out
// of them.
TEST_F(odd_files, closed_descriptors_stay_out_of_files) {
    ASSERT_EQ(run_shell("-V50 -R report.expected -m old41 -m init -e env >out.expected").status, 0);
    ASSERT_EQ(run_shell("-V50 -R report -m old41 -m init -e env >&-").status, 0);
    EXPECT_TRUE(is_as_expected("report"));

    ASSERT_EQ(run_shell("-V50 -R report.expected -m old -m none out.expected").status, 0);
    for (const char *closed : {"<&-", ">&-", "2>&-", "<&- >&- 2>&-"}) {
        ASSERT_EQ(run_shell(std::string("-V50 -R report -m old -m none out ") + closed).status, 0) << closed;
        EXPECT_TRUE(is_as_expected("report")) << closed;
        EXPECT_TRUE(is_as_expected("out")) << closed;
    }
}

} // namespace
