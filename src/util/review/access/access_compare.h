/// Who gets through now compared with before, decided for all hosts.
#ifndef ACCESS_COMPARE_H
#define ACCESS_COMPARE_H

#include "access/access.h"

#include <functional>

struct access_options {
    std::string only_proxy;                             ///< empty for all
    const configuration *initial_environment = nullptr; ///< to name causes; may be null
    const configuration *own_result = nullptr; ///< what the upgrade writes where the side after is another; else null
    std::function<void(const std::string &proxy)> progress = [](const std::string &) {}; ///< told of each proxy ahead
    uint64_t work_limit = 150'000'000; ///< steps in all, after which proxies are not decided
};

/// Compares the two sides proxy by proxy: fills `data.access` and appends findings `wider`, `narrower`, `options` and
/// `not-decided`, each with the shortest host that is treated so.
void compare_access(const access_side &before, const access_side &after, const access_options &options,
                    review_data &data);

#endif
