/// How the program `upgrade` uses the system's heap. The libraries leave the heap of whoever uses them as it is.
#ifndef PROGRAM_HEAP_H
#define PROGRAM_HEAP_H

/// Readies the heap for a run with these words: where the files are large, what they will need is set apart at once and
/// the kernel is asked to back it by large pages. Nothing is lost where that can't be had.
void prepare_heap(int argc, char **argv);

#endif
