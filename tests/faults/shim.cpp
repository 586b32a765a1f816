// Preloaded into the program: makes its allocations fail, its reads short or failing and its disk full, as told.
#include "shim.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#if !defined(__SANITIZE_ADDRESS__)
#define FAULTY_HEAP 1 // a sanitizer has a heap of its own
extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_calloc(size_t count, size_t size);
extern "C" void *__libc_realloc(void *block, size_t size);
#endif

namespace {

constexpr int TIME_LIMIT = 20; // seconds for one run
constexpr int FILES = 64;      // descriptors that are looked after; the program opens few

fault_order order{NO_FAULT, 0};
long *hits; // shared with the process that answers
long read_so_far[FILES];

long allocations;
enum { BRANCHING, FAILED_ONCE, FAILING_ON } heap; // the run itself, and its copies

bool is_watched(int file) { return file >= 0 && file < FILES; }

void tell(const fault_answer &answer) {
    if (write(ORDER_FD, &answer, sizeof answer) != static_cast<ssize_t>(sizeof answer))
        _exit(125);
}

// The files that a copy shares with the run, put back as they were when its answer has been looked at; whoever gave the
// standard streams looks after them.
struct open_files {
    off_t position[FILES];

    open_files() {
        for (int file = 0; file < FILES; file++)
            position[file] = file == 1 || file == 2 ? -1 : lseek(file, 0, SEEK_CUR);
    }
    void put_back() const {
        for (int file = 0; file < FILES; file++)
            if (position[file] >= 0) {
                bool for_writing = (fcntl(file, F_GETFL) & O_ACCMODE) == O_WRONLY;
                if ((for_writing && ftruncate(file, position[file]) != 0) || lseek(file, position[file], SEEK_SET) < 0)
                    _exit(124);
            }
    }
};

// Branches off a copy for which this allocation fails. True in the copy.
bool branch_off(bool from_then) {
    open_files files;
    *hits = 0;
    pid_t copy = fork();
    if (copy == 0) {
        heap = from_then ? FAILING_ON : FAILED_ONCE;
        alarm(TIME_LIMIT);
        return true;
    }
    fault_answer answer{-1, false, from_then, allocations, 0};
    waitpid(copy, &answer.status, 0);
    answer.hits = *hits;
    tell(answer);
    fault_order go_on;
    if (syscall(SYS_read, ORDER_FD, &go_on, sizeof go_on) != static_cast<long>(sizeof go_on))
        _exit(0);
    files.put_back();
    return false;
}

[[maybe_unused]] bool allocation_fails() {
    if (order.kind != EVERY_ALLOCATION)
        return false;
    if (heap == BRANCHING) {
        allocations++;
        // A copy that ended without a further allocation would do the same if that had failed too.
        if (!branch_off(false) && (*hits == 0 || !branch_off(true)))
            return false;
    } else {
        ++*hits;
        if (heap == FAILED_ONCE)
            return false;
    }
    errno = ENOMEM;
    return true;
}

ssize_t faulty_read(int file, void *buffer, size_t size) {
    if (order.kind == READ_AT_MOST && size > static_cast<size_t>(order.n)) {
        size = static_cast<size_t>(order.n);
        ++*hits;
    }
    if (order.kind == READ_FAILS && is_watched(file)) {
        long left = order.n - read_so_far[file];
        if (left <= 0) {
            ++*hits;
            errno = EIO;
            return -1;
        }
        if (size > static_cast<size_t>(left))
            size = static_cast<size_t>(left);
    }
    ssize_t got = syscall(SYS_read, file, buffer, size);
    if (got > 0 && is_watched(file))
        read_so_far[file] += got;
    return got;
}

ssize_t cookie_read(void *cookie, char *buffer, size_t size) {
    return faulty_read(fileno(static_cast<FILE *>(cookie)), buffer, size);
}

int cookie_close(void *cookie) {
    FILE *stream = static_cast<FILE *>(cookie);
    read_so_far[fileno(stream)] = 0;
    return fclose(stream);
}

void fill_disk() {
    signal(SIGXFSZ, SIG_IGN);
    rlimit limit{static_cast<rlim_t>(order.n), static_cast<rlim_t>(order.n)};
    setrlimit(RLIMIT_FSIZE, &limit);
}

// Returns in each run, with its order.
[[gnu::constructor]] void serve() {
    if (fcntl(ORDER_FD, F_GETFD) < 0)
        return;
    hits =
        static_cast<long *>(mmap(nullptr, 2 * sizeof(long), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0));
    fault_order next;
    while (syscall(SYS_read, ORDER_FD, &next, sizeof next) == static_cast<long>(sizeof next)) {
        *hits = 0;
        pid_t child = fork();
        if (child == 0) {
            order = next;
            if (order.kind == DISK_FULL)
                fill_disk();
            if (order.kind != EVERY_ALLOCATION)
                alarm(TIME_LIMIT);
            return;
        }
        fault_answer answer{-1, true, false, 0, 0};
        waitpid(child, &answer.status, 0);
        answer.hits = *hits;
        tell(answer);
    }
    _exit(0);
}

} // namespace

extern "C" ssize_t read(int file, void *buffer, size_t size) { return faulty_read(file, buffer, size); }

// The C library's own reads can't be replaced, but a stream can be told how to read.
extern "C" FILE *fopen(const char *path, const char *mode) {
    static const auto real = reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "fopen"));
    if (order.kind == EVERY_ALLOCATION && heap != BRANCHING && *mode == 'w' && strcmp(path, "out") == 0)
        return real("out.copy", mode);
    FILE *stream = real(path, mode);
    if (!stream || *mode != 'r' || (order.kind != READ_AT_MOST && order.kind != READ_FAILS))
        return stream;
    return fopencookie(stream, mode, {cookie_read, nullptr, nullptr, cookie_close});
}

extern "C" int close(int file) {
    if (is_watched(file))
        read_so_far[file] = 0;
    return static_cast<int>(syscall(SYS_close, file));
}

#ifdef FAULTY_HEAP
extern "C" void *malloc(size_t size) { return allocation_fails() ? nullptr : __libc_malloc(size); }
extern "C" void *calloc(size_t count, size_t size) { return allocation_fails() ? nullptr : __libc_calloc(count, size); }
extern "C" void *realloc(void *block, size_t size) {
    return allocation_fails() ? nullptr : __libc_realloc(block, size);
}
#endif
