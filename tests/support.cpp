#include "support.h"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <sys/wait.h>
#include <unistd.h>

namespace fs = std::filesystem;

// Puts every level in the order of creation; trees of tests are shallow or single-branched, so a stack will do.
static void reverse_levels(FragList top) {
    std::vector<FragList> lists{top};
    while (!lists.empty()) {
        FragList list = lists.back();
        lists.pop_back();
        reverse_frags(list);
        for (Frag *frag = *list; frag; frag = frag->next)
            lists.push_back(&frag->child);
    }
}

tree::tree(const std::string &text) {
    scratch_dir dir;
    importffile(dir.write("tree", text).c_str(), &head, 0);
    reverse_levels(&head);
}

std::string tree::text() const { return text_of(head); }

std::string text_of(Frag *first) {
    char *buffer = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&buffer, &size);
    keynamelen = 0;
    outffile(stream, first, keynamebuf);
    fclose(stream);
    std::string text(buffer, size);
    free(buffer);
    return text;
}

std::string names_of(const Frag *first) {
    std::string names;
    for (; first; first = first->next)
        names += (names.empty() ? "" : " ") + std::string(first->name);
    return names;
}

static std::mt19937 generator;

unsigned random_below(unsigned limit) { return static_cast<unsigned>(generator() % limit); }

void seed_random(unsigned seed) { generator.seed(seed); }

scratch_dir::scratch_dir() {
    std::string pattern = (fs::temp_directory_path() / "upgrade-test-XXXXXX").string();
    path = mkdtemp(pattern.data());
}

scratch_dir::~scratch_dir() {
    std::error_code ignored;
    fs::remove_all(path, ignored);
}

std::string scratch_dir::write(const std::string &name, const std::string &content) const {
    std::string file = path + "/" + name;
    std::ofstream(file, std::ios::binary) << content;
    return file;
}

std::string read_file(const std::string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

run_result run_program(const std::string &dir, const std::vector<std::string> &command) {
    scratch_dir streams;
    std::string out = streams.path + "/out";
    std::string err = streams.path + "/err";
    pid_t child = fork();
    if (child == 0) {
        std::vector<char *> words;
        for (const std::string &word : command)
            words.push_back(const_cast<char *>(word.c_str()));
        words.push_back(nullptr);
        if (chdir(dir.c_str()) != 0 || !freopen(out.c_str(), "w", stdout) || !freopen(err.c_str(), "w", stderr))
            _exit(126);
        execv(words[0], words.data());
        _exit(127);
    }
    int status = 0;
    waitpid(child, &status, 0);
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, read_file(out), read_file(err)};
}
