// Whole runs: each folder below tests/cases is a case.
//
// `cmd` is a shell script of runs, in which `upgrade` is the program. All other files of the folder are inputs, and
// `examples` leads to the examples. The folder `expected` holds, byte for byte, every file that the runs must leave
// behind or change, and `stdout`, `stderr` and `status` where they are not empty, empty and 0. The cases `review-*` are
// of the program `review` and are passed over where the build has none.
#include "support.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <map>

namespace fs = std::filesystem;

namespace {

std::map<std::string, std::string> files_in(const fs::path &folder) {
    std::map<std::string, std::string> files;
    for (const fs::directory_entry &entry : fs::directory_iterator(folder))
        if (entry.is_regular_file() && !entry.is_symlink())
            files[entry.path().filename().string()] = read_file(entry.path().string());
    return files;
}

} // namespace

TEST(cases, runs) {
    for (const fs::directory_entry &folder : fs::directory_iterator(CASES_DIR)) {
        const std::string name = folder.path().filename().string();
        if (name.compare(0, 7, "review-") == 0 && !fs::exists(PROGRAM_DIR "/review"))
            continue;
        scratch_dir dir;
        std::map<std::string, std::string> inputs = files_in(folder), wanted = files_in(folder.path() / "expected");
        const std::string script = "PATH=" PROGRAM_DIR ":$PATH\n" + inputs["cmd"];
        inputs.erase("cmd");
        for (const auto &[file, content] : inputs)
            dir.write(file, content);
        fs::create_directory_symlink(EXAMPLES_DIR, dir.path + "/examples");
        wanted.insert(inputs.begin(), inputs.end());
        wanted.insert({{"stdout", ""}, {"stderr", ""}, {"status", "0\n"}});

        run_result result = run_program(dir.path, {"/bin/sh", "-c", script});
        std::map<std::string, std::string> left = files_in(dir.path);
        left["stdout"] = result.out;
        left["stderr"] = result.err;
        left["status"] = std::to_string(result.status) + "\n";
        for (const auto &[file, content] : left)
            EXPECT_EQ(wanted.count(file), 1U) << name << ": " << file;
        for (const auto &[file, content] : wanted)
            EXPECT_EQ(left[file], content) << name << ": " << file;
    }
}
