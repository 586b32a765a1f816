// The review's readers, its comparison and its checks. The bytes up to the first 255 are one side, a table or a
// configuration as their hash says, the rest is the configuration of the other; without a 255 the translation of the
// table is.
#include "access/access.h"
#include "checks/checks.h"
#include "fake_system.h"
#include "upgrade.h"

namespace {

bool is_same(const decision &a, const decision &b) {
    return a.made == b.made && a.line == b.line && a.map == b.map && a.pattern == b.pattern;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    uint64_t hash = hash_of(data, size);
    std::string first(reinterpret_cast<const char *>(data), size), second;
    size_t cut = first.find('\377');
    bool is_table = cut == std::string::npos || hash % 3 != 0;
    files.clear();
    files["before"] = first.substr(0, cut);
    if (cut == std::string::npos) {
        run(hash, [&] {
            cur_database = &def_database;
            netperm_pass("before", 32);
            exportenv("after", hash % 2 ? 1 : 50);
        });
        second = files["after"];
    } else {
        second = first.substr(cut + 1);
    }
    bool real = true;
    run(hash >> 7, [&] {
        auto table = read_netperm_table("before", files["before"]);
        auto old = read_configuration("before", files["before"], conf_layout::translated);
        auto result = read_configuration("after", second, conf_layout::translated);
        access_side before, after;
        review_data review;
        access_options options;
        options.work_limit = 500'000;
        options.initial_environment = result.get();
        if (is_table)
            before.add_table(*table);
        else
            before.set_maps(*old);
        after.set_maps(*result);
        compare_access(before, after, options, review);
        for (const finding &each : review.findings)
            real = real && (each.id == "not-decided" || each.host == "any host" ||
                            (is_same(decide(before, each.proxy, each.host), each.before) &&
                             is_same(decide(after, each.proxy, each.host), each.after)));
        check_conf(*result, hash % 2 != 0, true, review);
        diff_configurations(*old, *result, review);
    });
    check(real, "a difference that is none");
    return 0;
}
