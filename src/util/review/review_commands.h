/// The program's four commands. Each fills the data and, where it compares, the sides, and prints nothing.
#ifndef REVIEW_COMMANDS_H
#define REVIEW_COMMANDS_H

#include "access.h"
#include "review.h"
#include "upgrade_command.h"

#include <functional>

struct review_options {
    std::string proxy; ///< only this one is compared; empty for all
    std::function<void(const std::string &what)> progress = [](const std::string &) {}; ///< told of each step
};

/// The rules that were compared.
struct review_sides {
    access_side before, after;
};

/// An upgrade, before or after it was made.
void review_upgrade(const upgrade_command &command, const review_options &options, review_data &data,
                    review_sides &sides);
/// Why a host gets its answer from a configuration and, if `table` is not empty, from a netperm table.
void explain_host(const std::string &conf, const std::string &table, const std::string &proxy, const std::string &host,
                  review_data &data, review_sides &sides);
/// Two configurations by meaning, and who gets through.
void review_diff(const std::string &before, const std::string &after, const review_options &options, review_data &data,
                 review_sides &sides);
/// What hangs in the air in one configuration.
void review_check(const std::string &conf, review_data &data);

/// 0, 1 or 2 for what the data hold. `trouble`, `not-decided` and files that can't be read come to 2.
int review_status(const review_data &data);

#endif
