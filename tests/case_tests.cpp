// Golden cases: each folder below tests/cases is one run of the program.
//
// `cmd` holds its arguments, one a line. All other files of the folder are its inputs; the folder `expected` holds,
// byte for byte, every file that the run must leave behind or change, and `stdout`, `stderr` and `status` where they
// are not empty, empty and 0.
#include "support.h"

#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

namespace fs = std::filesystem;

namespace {

std::vector<std::string> case_names() {
    std::vector<std::string> names;
    for (const fs::directory_entry &entry : fs::directory_iterator(CASES_DIR))
        if (entry.is_directory())
            names.push_back(entry.path().filename().string());
    return names;
}

class golden : public testing::TestWithParam<std::string> {};

TEST_P(golden, run) {
    fs::path folder = fs::path(CASES_DIR) / GetParam();
    scratch_dir dir;
    std::map<std::string, std::string> expected;
    for (const fs::directory_entry &entry : fs::directory_iterator(folder)) {
        std::string name = entry.path().filename().string();
        if (name != "cmd" && name != "expected") {
            fs::copy(entry.path(), fs::path(dir.path) / name);
            expected[name] = read_file(entry.path().string());
        }
    }
    std::string out, err;
    int status = 0;
    for (const fs::directory_entry &entry : fs::directory_iterator(folder / "expected")) {
        std::string name = entry.path().filename().string();
        std::string content = read_file(entry.path().string());
        if (name == "stdout")
            out = content;
        else if (name == "stderr")
            err = content;
        else if (name == "status")
            status = std::stoi(content);
        else
            expected[name] = content;
    }
    std::vector<std::string> command{UPGRADE_PROGRAM};
    std::istringstream words(read_file((folder / "cmd").string()));
    for (std::string word; std::getline(words, word);)
        command.push_back(word);

    run_result result = run_program(dir.path, command);
    // Messages begin with the program's path, which differs from build to build.
    for (size_t at; (at = result.err.find(UPGRADE_PROGRAM)) != std::string::npos;)
        result.err.replace(at, sizeof UPGRADE_PROGRAM - 1, "upgrade");
    EXPECT_EQ(result.status, status);
    EXPECT_EQ(result.out, out);
    EXPECT_EQ(result.err, err);
    std::map<std::string, std::string> left;
    for (const fs::directory_entry &entry : fs::directory_iterator(dir.path))
        left[entry.path().filename().string()] = read_file(entry.path().string());
    for (const auto &file : expected)
        EXPECT_EQ(left[file.first], file.second) << file.first;
    EXPECT_EQ(left.size(), expected.size());
}

INSTANTIATE_TEST_SUITE_P(cases, golden, testing::ValuesIn(case_names()), [](const auto &name) {
    std::string text = name.param;
    for (char &byte : text)
        if (!isalnum(static_cast<unsigned char>(byte)))
            byte = '_';
    return text;
});

} // namespace
