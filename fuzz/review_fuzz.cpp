// The review's readers and its comparison. The bytes up to the first 255 are one side, a table or a configuration as
// their hash says, the rest is the configuration of the other; without a 255 the translation of the table is.
#include "access_compare.h"
#include "access_maps.h"
#include "fake_system.h"
#include "fragment_lines.h"
#include "netperm_rules.h"
#include "upgrade.h"

namespace {

bool is_same(const decision &a, const decision &b) {
    return a.decision == b.decision && a.line == b.line && a.map == b.map && a.pattern == b.pattern;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    uint64_t hash = hash_of(data, size);
    std::string first(reinterpret_cast<const char *>(data), size);
    size_t cut = first.find('\377');
    files.clear();
    files["before"] = first.substr(0, cut);
    if (cut != std::string::npos)
        files["after"] = first.substr(cut + 1);
    bool is_table = cut == std::string::npos || hash % 3 != 0;
    if (cut == std::string::npos)
        run(hash, [&] {
            cur_database = &def_database;
            netperm_pass("before", 32);
            exportenv("after", hash % 2 ? 1 : 50);
        });
    bool real = true;
    run(hash >> 7, [&] {
        access_side before, after;
        review_data review;
        access_options options;
        options.work_limit = 500'000;
        access_causes causes;
        causes.initial_environment = "after";
        if (is_table)
            read_netperm_rules("before", before);
        else
            read_access_maps("before", before);
        read_access_maps("after", after);
        compare_access(before, after, causes, options, review);
        for (const finding &each : review.findings)
            real = real && (each.id == "not-decided" || (is_same(decide(before, each.proxy, each.host), each.before) &&
                                                         is_same(decide(after, each.proxy, each.host), each.after)));
    });
    check(real, "a difference that is none");
    return 0;
}
