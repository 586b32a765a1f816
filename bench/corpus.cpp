// Prints one file of a benchmark corpus.
#include "shapes.h"

#include <cstdlib>

int main(int argc, char **argv) {
    long size = argc > 2 ? atol(argv[2]) : 0;
    if (argc < 4 || argc > 5 || size <= 0) {
        fprintf(stderr, "usage: corpus SHAPE SIZE SEED [lines|json|xml]\n%s", shape_help().c_str());
        return 1;
    }
    static char buffer[1 << 20];
    setvbuf(stdout, buffer, _IOFBF, sizeof buffer);
    if (!write_corpus(stdout, argv[1], size, strtoull(argv[3], nullptr, 10), argc > 4 ? argv[4] : "lines")) {
        fprintf(stderr, "corpus: no shape %s in that format\n%s", argv[1], shape_help().c_str());
        return 1;
    }
    return fflush(stdout) == 0 ? 0 : 1;
}
