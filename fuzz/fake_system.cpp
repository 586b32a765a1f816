#include "fake_system.h"
#include "upgrade.h"

#include <algorithm>
#include <cerrno>
#include <csetjmp>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <new>
#include <unistd.h>
#include <vector>

std::map<std::string, std::string> files;

extern "C" {
void *__real_malloc(size_t size);
void *__real_realloc(void *block, size_t size);
void __real_free(void *block);
int __real_open(const char *path, int flags, ...);
ssize_t __real_read(int file, void *buffer, size_t size);
int __real_close(int file);
FILE *__real_fopen(const char *path, const char *mode);
int __real_fclose(FILE *stream);
[[noreturn]] void __real_exit(int status);
}

namespace {

bool running;
jmp_buf end_of_run;
int exit_status;

uint64_t noise;
uint64_t next_noise() {
    noise ^= noise << 13;
    noise ^= noise >> 7;
    noise ^= noise << 17;
    return noise;
}

// The heap.

long allocations, failing_allocation;
bool failing_on, has_failed;

// The blocks that the run holds, in a table of open addresses that needs no heap of the run's own.
struct block_set {
    static constexpr size_t FEWEST = 1 << 10;
    std::vector<void *> slots = std::vector<void *>(FEWEST);
    size_t count = 0;

    size_t place(void *block) const {
        size_t at = (reinterpret_cast<uintptr_t>(block) >> 4) * 0x9E3779B97F4A7C15u;
        at = (at ^ at >> 32) * 0x9E3779B97F4A7C15u >> 32; // every bit counts: addresses come in rows
        for (at &= slots.size() - 1; slots[at] && slots[at] != block;)
            at = (at + 1) & (slots.size() - 1);
        return at;
    }
    void add(void *block) {
        if (count * 2 > slots.size())
            grow();
        slots[place(block)] = block;
        count++;
    }
    bool remove(void *block) {
        size_t at = place(block);
        if (!slots[at])
            return false;
        count--;
        slots[at] = nullptr;
        for (size_t next = (at + 1) & (slots.size() - 1); slots[next]; next = (next + 1) & (slots.size() - 1)) {
            void *moved = slots[next];
            slots[next] = nullptr;
            slots[place(moved)] = moved;
        }
        return true;
    }
    void grow() {
        std::vector<void *> old(slots.size() * 2);
        old.swap(slots);
        for (void *block : old)
            if (block)
                slots[place(block)] = block;
    }
    void free_all() {
        for (void *&block : slots)
            if (block) {
                __real_free(block);
                block = nullptr;
            }
        count = 0;
        if (slots.size() > FEWEST)
            slots = std::vector<void *>(FEWEST);
    }
};
block_set blocks;

bool allocation_fails() {
    if (!running)
        return false;
    allocations++;
    if (failing_allocation == 0 || allocations < failing_allocation || (has_failed && !failing_on))
        return false;
    has_failed = true;
    errno = ENOMEM;
    return true;
}

void *tracked(void *block) {
    if (running && block) {
        running = false; // the table's own growth is not the run's
        blocks.add(block);
        running = true;
    }
    return block;
}

// The files.

constexpr int FIRST_FILE = 100000; // a descriptor that the real system will not give
struct open_file {
    std::string content;
    size_t at;
};
std::vector<open_file> open_files;

std::vector<FILE *> streams;
FILE *found_input;
bool output_was_opened;

// What the fuzzer itself does in the middle of a run.
struct outside_run {
    bool was = running;
    outside_run() { running = false; }
    ~outside_run() { running = was; }
};

ssize_t write_to_file(void *file, const char *bytes, size_t size) {
    outside_run now;
    static_cast<std::string *>(file)->append(bytes, size);
    return static_cast<ssize_t>(size);
}

} // namespace

extern "C" {

void *__wrap_malloc(size_t size) { return allocation_fails() ? nullptr : tracked(__real_malloc(size)); }

void *__wrap_realloc(void *block, size_t size) {
    if (allocation_fails())
        return nullptr;
    if (running && block)
        blocks.remove(block);
    return tracked(__real_realloc(block, size));
}

void __wrap_free(void *block) {
    if (running && block)
        blocks.remove(block);
    __real_free(block);
}

int __wrap_open(const char *path, int flags, ...) {
    if (!running) {
        va_list rest;
        va_start(rest, flags);
        int mode = va_arg(rest, int);
        va_end(rest);
        return __real_open(path, flags, mode);
    }
    outside_run now;
    auto file = files.find(path);
    if (file == files.end())
        return -1;
    open_files.push_back({file->second, 0});
    return FIRST_FILE + static_cast<int>(open_files.size()) - 1;
}

ssize_t __wrap_read(int file, void *buffer, size_t size) {
    if (file < FIRST_FILE)
        return __real_read(file, buffer, size);
    open_file &from = open_files.at(static_cast<size_t>(file - FIRST_FILE));
    uint64_t odd = next_noise();
    if (odd % 4 != 0 && size > 0)
        size = odd % 4 == 1 ? 1 : 1 + (odd >> 8) % std::min<size_t>(size, 40);
    size = std::min(size, from.content.size() - from.at);
    memcpy(buffer, from.content.data() + from.at, size);
    from.at += size;
    return static_cast<ssize_t>(size);
}

int __wrap_close(int file) { return file < FIRST_FILE ? __real_close(file) : 0; }

FILE *__wrap_fopen(const char *path, const char *mode) {
    if (!running)
        return __real_fopen(path, mode);
    if (strstr(path, "fuzz/found/")) // the input of a run that hangs or crashes is saved while it lasts
        return found_input = __real_fopen(path, mode);
    if (allocation_fails())
        return nullptr;
    outside_run now;
    FILE *stream = nullptr;
    if (*mode == 'r') {
        auto file = files.find(path);
        if (file != files.end())
            stream = fmemopen(file->second.data(), file->second.size(), "r");
    } else if (*path) {
        std::string &file = files[path];
        file.clear();
        stream = fopencookie(&file, "w", {nullptr, write_to_file, nullptr, nullptr});
        output_was_opened |= strcmp(path, "out") == 0;
    }
    if (stream)
        streams.push_back(stream);
    return stream;
}

int __wrap_fclose(FILE *stream) {
    if (!running || stream == found_input)
        return __real_fclose(stream);
    outside_run now;
    if (stream == stdout)
        return fflush(stdout);
    auto open = std::find(streams.begin(), streams.end(), stream);
    check(open != streams.end(), "closed what was not open");
    streams.erase(open);
    return __real_fclose(stream);
}

[[noreturn]] void __wrap_exit(int status) {
    if (!running)
        __real_exit(status);
    running = false;
    exit_status = status;
    longjmp(end_of_run, 1);
}

int LLVMFuzzerInitialize(int *, char ***) {
    // What the store keeps from one save to the next must not belong to a run: it gets its full size ahead of all.
    std::string key;
    for (int level = 0; level < 20000; level++)
        key += "a_";
    Frag *deep = nullptr;
    fset(&deep, key.c_str(), nullptr);
    reserve_xml(&deep);
    freelist(deep);
    return 0;
}

} // extern "C"

void *operator new(size_t size) {
    for (;;) {
        if (void *block = malloc(size))
            return block;
        std::new_handler handler = std::get_new_handler();
        if (!handler)
            abort();
        handler();
    }
}
void *operator new(size_t size, const std::nothrow_t &) noexcept { return malloc(size); }
void operator delete(void *block) noexcept { free(block); }
void operator delete(void *block, size_t) noexcept { free(block); }

int run(uint64_t seed, const std::function<void()> &body) {
    noise = seed | 1;
    allocations = 0;
    failing_allocation = 0;
    has_failed = false;
    output_was_opened = false;
    exit_status = -1;
    if (next_noise() % 4 == 0) {
        failing_allocation = 1 + static_cast<long>(next_noise() % (next_noise() % 2 ? 50 : 2000));
        failing_on = next_noise() % 2;
    }
    if (setjmp(end_of_run) == 0) {
        running = true;
        body();
        running = false;
    }
    for (FILE *stream : streams)
        __real_fclose(stream);
    streams.clear();
    open_files.clear();
    blocks.free_all();
    reset_databases();
    if (has_failed) {
        check(exit_status == 1, "an allocation failed and the run went on");
        check(!output_was_opened, "an allocation failed behind the opening of the output");
    }
    return exit_status;
}

uint64_t hash_of(const uint8_t *data, size_t size) {
    uint64_t hash = 0xcbf29ce484222325u;
    for (size_t i = 0; i < size; i++)
        hash = (hash ^ data[i]) * 0x100000001b3u;
    return hash ^ hash >> 29;
}

void check(bool condition, const char *message) {
    if (condition)
        return;
    running = false;
    fprintf(stderr, "check failed: %s\n", message);
    abort();
}

void check_tree(FragList top) {
    outside_run now;
    struct level {
        FragList list;
        Frag *owner;
    };
    std::vector<level> levels{{top, nullptr}};
    while (!levels.empty()) {
        level here = levels.back();
        levels.pop_back();
        for (Frag *frag = *here.list; frag; frag = frag->next) {
            check(frag->name != nullptr, "a node without a name");
            check(frag->value ? frag->value[frag->vlen] == 0 : frag->vlen == 0, "a value and its length");
            check(!frag->parent || frag->parent == here.owner, "a parent that is not the owner");
            levels.push_back({&frag->child, frag});
        }
    }
}

void reset_databases() {
    def_database = oldconf = initconf = nptdatabase = nullptr;
    cur_database = nullptr;
    repf = nullptr;
}
