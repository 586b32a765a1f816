// The floor that runs of the upgrader are held against: the least that a program has to do that keeps a configuration
// as a tree. It reads `a_b_c=value` lines, makes for each key component one node with its name and its value on the
// heap, finds nodes through one hash index over parent and name, and prints the tree back in order of first sight.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace {

struct node {
    node *parent, *next, *first, *last;
    char *name;
    char *value;
    size_t hash;
};

char *copy(std::string_view text) {
    char *result = static_cast<char *>(malloc(text.size() + 1));
    if (!result)
        abort();
    memcpy(result, text.data(), text.size());
    result[text.size()] = 0;
    return result;
}

// An open-addressing table of nodes, at most half full.
struct node_index {
    std::vector<node *> slots = std::vector<node *>(1024);
    size_t count = 0;

    static size_t hash_of(const node *parent, std::string_view name) {
        return std::hash<std::string_view>()(name) ^ reinterpret_cast<size_t>(parent) * 0x9E3779B97F4A7C15u;
    }

    node **slot(const node *parent, std::string_view name, size_t hash) {
        size_t mask = slots.size() - 1;
        size_t at = (hash ^ hash >> 32) & mask;
        while (node *found = slots[at]) {
            if (found->hash == hash && found->parent == parent && found->name == name)
                break;
            at = (at + 1) & mask;
        }
        return &slots[at];
    }

    void grow() {
        std::vector<node *> old(slots.size() * 2);
        old.swap(slots);
        for (node *entry : old)
            if (entry)
                *slot(entry->parent, entry->name, entry->hash) = entry;
    }

    node *find_or_make(node *parent, std::string_view name) {
        size_t hash = hash_of(parent, name);
        node **place = slot(parent, name, hash);
        if (*place)
            return *place;
        node *made = new node{parent, nullptr, nullptr, nullptr, copy(name), nullptr, hash};
        (parent->last ? parent->last->next : parent->first) = made;
        parent->last = made;
        *place = made;
        if (++count * 2 > slots.size())
            grow();
        return made;
    }
};

void read(FILE *file, node *root) {
    node_index index;
    char *line = nullptr;
    size_t room = 0;
    ssize_t len;
    while ((len = getline(&line, &room, file)) > 0) {
        std::string_view rest(line, static_cast<size_t>(len));
        if (rest.back() == '\n')
            rest.remove_suffix(1);
        size_t equals = rest.find('=');
        if (equals == std::string_view::npos)
            continue;
        std::string_view key = rest.substr(0, equals);
        node *at = root;
        for (;;) {
            size_t end = key.find('_');
            at = index.find_or_make(at, key.substr(0, end));
            if (end == std::string_view::npos)
                break;
            key.remove_prefix(end + 1);
        }
        free(at->value);
        at->value = copy(rest.substr(equals + 1));
    }
    free(line);
}

void print(FILE *file, const node *list, std::string &key) {
    for (; list; list = list->next) {
        size_t len = key.size();
        key += list->name;
        if (list->value) {
            fwrite(key.data(), 1, key.size(), file);
            putc_unlocked('=', file);
            fputs(list->value, file);
            putc_unlocked('\n', file);
        }
        key += '_';
        print(file, list->first, key);
        key.resize(len);
    }
}

} // namespace

int main(int argc, char **argv) {
    FILE *in = argc == 3 ? fopen(argv[1], "r") : nullptr;
    FILE *out = in ? fopen(argv[2], "w") : nullptr;
    if (!out) {
        fputs("usage: floor INPUT OUTPUT\n", stderr);
        return 1;
    }
    setvbuf(in, nullptr, _IOFBF, 1 << 18);
    setvbuf(out, nullptr, _IOFBF, 1 << 18);
    node root{};
    read(in, &root);
    std::string key;
    print(out, root.first, key);
    return fclose(out) == 0 ? 0 : 1;
}
