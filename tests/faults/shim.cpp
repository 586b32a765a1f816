// Preloaded into the program: what FAULT names fails, as told. "alloc 7" is the 7th allocation and all behind it, "once
// 7" that one alone, "read 7" all reads behind the 7th byte of a file, "short 7" reads of 7 bytes at most.
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <dlfcn.h>
#include <sys/syscall.h>
#include <unistd.h>

static char kind;
static long limit, allocations, read_so_far;

[[gnu::constructor]] static void take_order() {
    if (const char *order = getenv("FAULT")) {
        kind = *order;
        limit = atol(strchr(order, ' '));
    }
}

[[maybe_unused]] static bool allocation_fails() {
    if ((kind != 'a' && kind != 'o') || ++allocations < limit || (kind == 'o' && allocations > limit))
        return false;
    errno = ENOMEM;
    return true;
}

extern "C" ssize_t read(int file, void *buffer, size_t size) {
    if (kind == 's' && size > static_cast<size_t>(limit))
        size = static_cast<size_t>(limit);
    if (kind == 'r' && size > static_cast<size_t>(limit - read_so_far))
        size = static_cast<size_t>(limit - read_so_far);
    if (kind == 'r' && size == 0) {
        errno = EIO;
        return -1;
    }
    ssize_t got = syscall(SYS_read, file, buffer, size);
    read_so_far += got > 0 ? got : 0;
    return got;
}

// The C library's own reads can't be replaced, but a stream can be told how to read.
static ssize_t cookie_read(void *cookie, char *buffer, size_t size) {
    return read(fileno(static_cast<FILE *>(cookie)), buffer, size);
}
static int cookie_close(void *cookie) {
    read_so_far = 0;
    return fclose(static_cast<FILE *>(cookie));
}
extern "C" FILE *fopen(const char *path, const char *mode) {
    static const auto real = reinterpret_cast<FILE *(*)(const char *, const char *)>(dlsym(RTLD_NEXT, "fopen"));
    FILE *stream = real(path, mode);
    bool faulty = stream && *mode == 'r' && (kind == 'r' || kind == 's');
    return faulty ? fopencookie(stream, mode, {cookie_read, nullptr, nullptr, cookie_close}) : stream;
}
extern "C" int close(int file) {
    read_so_far = 0;
    return static_cast<int>(syscall(SYS_close, file));
}

#if !defined(__SANITIZE_ADDRESS__) // a sanitizer has a heap of its own
extern "C" void *__libc_malloc(size_t size);
extern "C" void *__libc_realloc(void *block, size_t size);
extern "C" void *malloc(size_t size) { return allocation_fails() ? nullptr : __libc_malloc(size); }
extern "C" void *realloc(void *block, size_t size) {
    return allocation_fails() ? nullptr : __libc_realloc(block, size);
}
#endif
