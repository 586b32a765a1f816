#include "upgrade.h"

int main(int argc, char **argv) { return upgrade(argc, argv); }
