#include "support.h"

#include <cstdlib>
#include <cstring>
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

// The length of a name, which ends where its bits, its value or what lies below begin; a lone `:` is part of it.
static size_t name_len(const char *at) {
    static const char ends[] = "=_{} }"; // and the text's end
    size_t len = 0;
    while (!strchr(ends, at[len])) {
        size_t digits = at[len] == ':' ? strspn(at + len + 1, "0123456789") : 0;
        if (digits != 0 && strchr(ends, at[len + 1 + digits]))
            break;
        len++;
    }
    return len;
}

static Frag *find_or_append(FragList list, const std::string &name, Frag *parent) {
    while (*list && (*list)->name != name)
        list = &(*list)->next;
    if (!*list)
        pushfrag(list, newsymfrag(name.data(), name.size()), parent);
    return *list;
}

// Reads siblings up to the text's end or a `}`, and what lies below each.
static void read_siblings(const char *&at, FragList list, Frag *parent) {
    while (*at && *at != '}') {
        Frag *frag = nullptr;
        do {
            at += frag ? 1 : 0;
            size_t len = name_len(at);
            frag = find_or_append(frag ? &frag->child : list, {at, len}, frag ? frag : parent);
            at += len;
            if (*at == ':')
                frag->attr = strtol(at + 1, const_cast<char **>(&at), 10);
        } while (*at == '_');
        if (*at == '=') {
            std::string value(at + 1, strcspn(at + 1, "{} "));
            at += 1 + value.size();
            for (size_t blank; (blank = value.find("\\s")) != std::string::npos;)
                value.replace(blank, 2, " ");
            setvalue(frag, std::string_view(value));
        }
        if (*at == '{') {
            read_siblings(++at, &frag->child, frag);
            at += *at == '}';
        }
        at += *at == ' ';
    }
}

tree::tree(const std::string &text) {
    if (text.empty() || text.back() != '\n') {
        const char *at = text.c_str();
        read_siblings(at, &head, nullptr);
        return;
    }
    scratch_dir dir;
    importffile(dir.write("tree", text).c_str(), &head, 0);
    reverse_levels(&head);
}

std::string dump(const Frag *frag) {
    std::string text;
    for (bool first = true; frag; frag = frag->next, first = false) {
        text += (first ? "" : " ") + std::string(frag->name);
        if (frag->attr)
            text += ":" + std::to_string(frag->attr);
        if (frag->value)
            text += "=" + std::string(frag->value, static_cast<size_t>(frag->vlen));
        if (frag->child) {
            bool only = !frag->value && !frag->child->next;
            text += (only ? "_" : "{") + dump(frag->child) + (only ? "" : "}");
        }
    }
    return text;
}

bool linked(const Frag *frag, const Frag *parent) {
    for (; frag; frag = frag->next)
        if (frag->parent != parent || !linked(frag->child, frag))
            return false;
    return true;
}

std::string tree::text() const {
    char *buffer = nullptr;
    size_t size = 0;
    FILE *stream = open_memstream(&buffer, &size);
    keynamelen = 0;
    outffile(stream, head, keynamebuf);
    fclose(stream);
    std::string text(buffer, size);
    free(buffer);
    return text;
}

static std::mt19937 generator;

unsigned random_below(unsigned limit) { return static_cast<unsigned>(generator() % limit); }

void seed_random(unsigned seed) { generator.seed(seed); }

scratch_dir::scratch_dir() {
    fs::path base =
        access("/dev/shm", W_OK) == 0 ? "/dev/shm" : fs::temp_directory_path(); // memory, where there is some
    std::string pattern = (base / "upgrade-test-XXXXXX").string();
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
    fflush(nullptr);
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
