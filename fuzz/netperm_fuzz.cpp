// A netperm table, or several with a byte 255 between them, through the whole pass and the numbered save.
#include "fake_system.h"
#include "upgrade.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<std::string> tables(1);
    for (size_t i = 0; i < size; i++)
        if (data[i] == 255)
            tables.emplace_back();
        else
            tables.back() += static_cast<char>(data[i]);
    files.clear();
    for (size_t i = 0; i < tables.size(); i++)
        files["table" + std::to_string(i)] = tables[i];
    int version = hash_of(data, size) % 2 ? 1 : 50;
    run(hash_of(data, size), [&] {
        cur_database = &def_database;
        for (size_t i = 0; i < tables.size(); i++) {
            netperm_pass(("table" + std::to_string(i)).c_str(), 32);
            check_tree(&def_database);
        }
        exportenv("out", version);
        check_tree(&def_database);
    });
    return 0;
}
