// How the programs use the system's heap.
#include "program_heap.h"

#include <cstdlib>

// SYSTEM_HEAP: the programs are not linked to another allocator.
#if defined(SYSTEM_HEAP) && defined(__GLIBC__)

#include <cstdint>
#include <cstring>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/stat.h>

namespace {

constexpr size_t LARGE_PAGE = size_t{1} << 21;
constexpr size_t LARGE_HEAP = 16 * LARGE_PAGE; // a smaller one is not worth the zeroing of whole large pages

// The heap that the run with these files needs at most. Where that is too much, only addresses are taken for the rest.
size_t heap_estimate(int argc, char **argv) {
    constexpr size_t of_fragments = 24; // bytes of heap for a byte of a fragment file: most need 5, filter rules 20
    constexpr size_t of_rules = 144; // for one of a table: a rule can become a map, a policy, a list and a config set
    size_t size = 0;
    for (int at = 2; at < argc - 1; at++) {
        struct stat file;
        if (stat(argv[at], &file) == 0 && S_ISREG(file.st_mode))
            size += static_cast<size_t>(file.st_size) * (strcmp(argv[at - 1], "-n") == 0 ? of_rules : of_fragments);
    }
    return size;
}

} // namespace

void prepare_heap(int argc, char **argv, size_t times) {
    // Passes free many small blocks that lie side by side. Joined at once, their neighbours are still in the cache.
    mallopt(M_MXFAST, 0);
    size_t size = heap_estimate(argc, argv) * times;
    if (size < LARGE_HEAP)
        return;
    // One block of it all, given back, leaves the heap that large: without a mapping of its own, and never trimmed.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, -1);
    char *block = static_cast<char *>(malloc(size));
    while (!block && size > LARGE_HEAP) {
        size /= 2; // the system or a limit grants less
        block = static_cast<char *>(malloc(size));
    }
    if (!block)
        return;
    size_t before = LARGE_PAGE - reinterpret_cast<uintptr_t>(block) % LARGE_PAGE; // up to the first whole page
    madvise(block + before, (size - before) / LARGE_PAGE * LARGE_PAGE, MADV_HUGEPAGE);
    free(block);
}

#else

#include "nsym.h"

#include <new>

void prepare_heap(int, char **, size_t) {}

// An allocator's own `new` need not know the handler that the libraries set, and may end the process in its own way.
void *operator new(size_t size) { return getcore(size + (size == 0)); }
void *operator new[](size_t size) { return operator new(size); }
void operator delete(void *block) noexcept { free(block); }
void operator delete[](void *block) noexcept { free(block); }
void operator delete(void *block, size_t) noexcept { free(block); }
void operator delete[](void *block, size_t) noexcept { free(block); }

#endif
