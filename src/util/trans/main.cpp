#include "program_heap.h"
#include "upgrade.h"

int main(int argc, char **argv) {
    prepare_heap(argc, argv);
    return upgrade(argc, argv);
}
