// How the program uses the system's heap.
#include "program_heap.h"

#include <cstdlib>

#ifdef __GLIBC__
#include <malloc.h>
#include <sys/mman.h>
#endif

#if defined(__GLIBC__) && defined(MADV_HUGEPAGE)

#include <cstdint>
#include <cstring>
#include <sys/stat.h>

namespace {

constexpr size_t LARGE_PAGE = size_t{1} << 21;
constexpr size_t LARGE_HEAP = 8 * LARGE_PAGE; // a smaller one is not worth the zeroing of whole large pages

// What the tree of the files takes, roughly and rather too much: of what is not used only the addresses are taken.
size_t heap_estimate(int argc, char **argv) {
    constexpr size_t of_fragments = 8; // bytes of heap for a byte of a fragment file
    constexpr size_t of_rules = 144;   // of a table, whose every rule becomes a map, a policy, a list
    size_t size = 0;
    for (int at = 2; at < argc - 1; at++) {
        struct stat file;
        if (stat(argv[at], &file) == 0 && S_ISREG(file.st_mode))
            size += static_cast<size_t>(file.st_size) * (strcmp(argv[at - 1], "-n") == 0 ? of_rules : of_fragments);
    }
    return size;
}

} // namespace

void prepare_heap(int argc, char **argv) {
    // Passes free many small blocks that lie side by side. Joined at once, their neighbours are still in the cache.
    mallopt(M_MXFAST, 0);
    size_t size = heap_estimate(argc, argv);
    if (size < LARGE_HEAP)
        return;
    // One block of it all, given back, leaves the heap that large: without a mapping of its own, and never trimmed.
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, -1);
    char *block = static_cast<char *>(malloc(size));
    if (!block)
        return;
    uintptr_t begin = (reinterpret_cast<uintptr_t>(block) + LARGE_PAGE - 1) / LARGE_PAGE * LARGE_PAGE;
    uintptr_t end = (reinterpret_cast<uintptr_t>(block) + size) / LARGE_PAGE * LARGE_PAGE;
    madvise(reinterpret_cast<void *>(begin), end - begin, MADV_HUGEPAGE);
    free(block);
}

#else

void prepare_heap(int, char **) {}

#endif
