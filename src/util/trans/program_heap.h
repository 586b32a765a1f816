/// How the programs use the system's heap. The libraries leave the heap of whoever uses them as it is.
#ifndef PROGRAM_HEAP_H
#define PROGRAM_HEAP_H

#include <cstddef>

/// Readies the heap for a run with these words: where the files are large, what they will need is set apart at once and
/// the kernel is asked to back it by large pages: as many times over as one upgrade needs. Nothing is lost where that
/// can't be had.
void prepare_heap(int argc, char **argv, size_t times = 1);

#endif
