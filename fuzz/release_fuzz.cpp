// Any tree through the release pass, and the states back to their services.
#include "fake_system.h"
#include "nupgrade.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    files.clear();
    files["env"].assign(reinterpret_cast<const char *>(data), size);
    run(hash_of(data, size), [] {
        importenv("env");
        up41(cur_database);
        check_tree(cur_database);
        do_http_hack(cur_database);
        norm41states(cur_database);
        check_tree(cur_database);
        exportenv("out", 99);
    });
    return 0;
}
