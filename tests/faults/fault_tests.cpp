// Whole runs of the program on the examples, on a failing heap, on short and failing reads, and on a full disk.
//
// Of each kind some faults are tried, drawn by a fixed seed; with FAULTS=all in the environment every one.
#include "support.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <map>

using std::string;
using std::to_string;

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool SANITIZED = true;
#else
constexpr bool SANITIZED = false;
#endif

struct faults : testing::TestWithParam<const char *> {
    scratch_dir dir;
    std::map<string, string> examples;
    string whole; // what the output holds after a run without faults

    // The run under a fault, or with a limit of the shell's. It prints its messages, and `out` is there from before.
    run_result run(const string &fault, const string &limit = "", const string &program = "/upgrade' ",
                   const string &streams = " 2>&1 >stdout") {
        dir.write("out", "from before\n");
        return run_program(dir.path, {"/bin/sh", "-c",
                                      limit + "FAULT='" + fault + "' LD_PRELOAD='" FAULT_SHIM "' " +
                                          "ASAN_OPTIONS=verify_asan_link_order=0:detect_leaks=0 exec '" PROGRAM_DIR +
                                          program + GetParam() + streams});
    }
    string output() {
        return read_file(dir.path + (string(GetParam()).find(" out") != string::npos ? "/out" : "/stdout"));
    }
    void write_examples(size_t longest) {
        for (const auto &[name, content] : examples) {
            string text = content.substr(0, longest);
            if (longest < content.size() && name.find(".table") != string::npos)
                text.erase(text.rfind('\n') + 1);
            dir.write(name, text);
        }
    }
    void SetUp() override {
        for (const auto &file : std::filesystem::directory_iterator(EXAMPLES_DIR))
            if (file.is_regular_file())
                examples[file.path().filename().string()] = read_file(file.path().string());
        write_examples(string::npos);
        EXPECT_EQ(run("none 0").status, 0);
        whole = output();
        seed_random(7);
    }
    // Numbers below `limit`: some by chance, or all.
    static std::vector<size_t> numbers(size_t limit) {
        std::vector<size_t> chosen;
        const bool all = getenv("FAULTS") && string(getenv("FAULTS")) == "all";
        for (size_t n = 0; n < (all ? limit : SANITIZED ? 10 : 40); n++)
            chosen.push_back(all ? n : random_below(static_cast<unsigned>(limit)));
        return chosen;
    }
};

// A run whose n-th allocation failed, alone or with all behind it, has either stopped with its message and left an
// output from before as it was, or gone on as if nothing had been.
TEST_P(faults, exhausted_heap) {
    if (SANITIZED)
        GTEST_SKIP() << "a sanitizer has a heap of its own, which can't be made to fail";
    const string messages = run("none 0").out;
    size_t most = 1, stopped = 0;
    while (run("alloc " + to_string(most)).status != 0)
        most *= 2;
    for (size_t n : numbers(most))
        for (const string &fault : {"alloc " + to_string(n + 1), "once " + to_string(n + 1)}) {
            run_result result = run(fault);
            string left = output(),
                   end = result.out.substr(result.out.size() - std::min<size_t>(12, result.out.size()));
            if (result.status == 0)
                EXPECT_TRUE(result.out == messages && left == whole) << fault;
            else
                EXPECT_TRUE(result.status == 1 && end == "Outofcore()\n" &&
                            (left == "from before\n" || left.empty() || left == whole))
                    << fault;
            stopped += result.status == 1;
        }
    EXPECT_GT(stopped, 10U);
}

// Short reads give what whole reads give. A read error counts as the end of the file, wherever it comes, but what it
// leaves of a table's line is no rule.
TEST_P(faults, reads) {
    for (size_t n : numbers(16000)) {
        EXPECT_EQ(run("short " + to_string(n / 40 + 1)).status, 0);
        EXPECT_EQ(output(), whole) << n / 40 + 1;
        EXPECT_EQ(run("read " + to_string(n)).status, 0) << n;
        const string left = output();
        EXPECT_NE(left.find("moatwall.conf="), string::npos) << n;
        write_examples(n);
        EXPECT_EQ(run("none 0").status, 0) << n;
        EXPECT_EQ(output(), left) << n;
        write_examples(string::npos);
    }
}

// A disk that is full behind any block leaves the output's beginning up to there, and the run ends like any other.
TEST_P(faults, full_disk) {
    for (size_t n : numbers(whole.size() / 512)) {
        EXPECT_EQ(run("none 0", "trap '' XFSZ; ulimit -f " + to_string(n) + "; ").status, 0) << n;
        const string left = output();
        EXPECT_TRUE(left.size() < whole.size() && left == whole.substr(0, left.size())) << n;
    }
}

// A review that has no memory or no room for what it looks at ends with trouble, or says what it always says.
TEST_P(faults, review) {
    if (!std::filesystem::exists(PROGRAM_DIR "/review"))
        GTEST_SKIP() << "the build has none";
    auto review = [&](const string &fault, const string &limit) {
        return run(fault, "export TMPDIR=$PWD; " + limit, "/review' ", "");
    };
    const string always = review("none 0", "").out;
    for (size_t n : numbers(whole.size() / 512))
        EXPECT_EQ(review("none 0", "trap '' XFSZ; ulimit -f " + to_string(n) + "; ").status, 2) << n;
    size_t most = 1, stopped = 0;
    while (!SANITIZED && review("alloc " + to_string(most), "").status != 1)
        most *= 2;
    for (size_t n : SANITIZED ? std::vector<size_t>() : numbers(most)) {
        const string fault = (n % 2 ? "alloc " : "once ") + to_string(n + 1);
        run_result result = review(fault, "");
        bool told = !result.err.empty() || result.out.find("[trouble]") != string::npos;
        EXPECT_TRUE(result.status == 2 ? told : result.out == always) << fault << ": " << result.err;
        stopped += result.status == 2;
    }
    EXPECT_TRUE(SANITIZED || stopped > 10);
    for (const auto &left : std::filesystem::directory_iterator(dir.path))
        EXPECT_FALSE(left.is_directory()) << left.path() << " holds what the review looked at";
}

INSTANTIATE_TEST_SUITE_P(runs, faults,
                         testing::Values("-n netperm-3.2.table -m old-3.2.conf -m init.conf out",
                                         "-m old-4.1.conf -e old-4.1.conf -m init.conf -V 41",
                                         "-V2 -R report -n netperm-3.2.table -m old-3.2.conf -m init.conf out"));

} // namespace
