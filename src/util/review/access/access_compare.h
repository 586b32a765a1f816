/// Who gets through now compared with before, decided for all hosts.
#ifndef ACCESS_COMPARE_H
#define ACCESS_COMPARE_H

#include "access/access.h"

#include <functional>

struct access_options {
    std::string only_proxy;                             ///< empty for all
    const configuration *initial_environment = nullptr; ///< to name causes; may be null
    const configuration *own_result = nullptr; ///< what the upgrade writes where the side after is another; else null
    std::function<void(const std::string &proxy)> progress; ///< told of each proxy before it is compared; may be empty
    uint64_t work_limit = 150'000'000;                      ///< steps in all, after which proxies are not decided
};

/// Compares the two sides proxy by proxy: fills `data.access` and appends findings `wider`, `narrower`, `options` and
/// `not-decided`, each with the shortest host that is treated so.
void compare_access(const access_side &before, const access_side &after, const access_options &options,
                    review_data &data);

/// Two rules of one proxy, one of each side, that say the same of the same host word and stand in the same order: the
/// longest such sequence.
struct rule_partners {
    std::vector<access_rule> before, after;
    std::vector<std::pair<size_t, size_t>> pairs; ///< indexes in both, ascending
};
/// The partners of a proxy. Rules that an earlier one covers word for word have none.
rule_partners align_rules(const access_side &before, const access_side &after, const std::string &proxy);

#endif
