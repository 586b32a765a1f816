// A numbered environment into the canonical layout and back.
#include "fake_system.h"
#include "nupgrade.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    files.clear();
    files["env"].assign(reinterpret_cast<const char *>(data), size);
    run(hash_of(data, size), [] {
        importenv("env");
        norm_fragtree(cur_database);
        check_tree(cur_database);
        norm41(cur_database);
        check_tree(cur_database);
        exportffile("out", cur_database, 50);
    });
    return 0;
}
