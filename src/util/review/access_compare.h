/// Who gets through now compared with before, decided for all hosts.
#ifndef ACCESS_COMPARE_H
#define ACCESS_COMPARE_H

#include "access.h"

#include <functional>

/// What the comparison may know beside the two sides, to name causes. Each may be empty.
struct access_causes {
    std::string initial_environment; ///< its path
    std::string old_configuration;
    std::vector<std::string> merged;      ///< further merged files
    const access_side *written = nullptr; ///< what the upgrade writes where the side after is another; else null
    std::string changed = {};             ///< why it is
};

struct access_options {
    std::string only_proxy;                                 ///< empty for all
    uint64_t work_limit = 150'000'000;                      ///< steps in all, after which proxies are not decided
    std::function<void(const std::string &proxy)> progress; ///< told of each proxy before it is compared; may be empty
};

/// Compares the two sides proxy by proxy: fills `data.access` and appends findings `wider`, `narrower`, `options` and
/// `not-decided`, each with the shortest host that is treated so.
void compare_access(const access_side &before, const access_side &after, const access_causes &causes,
                    const access_options &options, review_data &data);

#endif
