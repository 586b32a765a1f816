// What holds where the libraries are used without the program around them.
#include "support.h"
#include "upgrade.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <new>

TEST(library, containers_end_in_outofcore) { EXPECT_EQ(std::get_new_handler(), &outofcore); }

// Bytes and then a read error: what the error ends is no rule, what the end of the file ends is one.
TEST(library, half_a_rule) {
    static const char table[] = "a: permit-hosts 10.1.1.1\nb: permit-hosts 10.";
    struct bytes {
        size_t at;
        int error;
    };
    for (int error : {0, EIO}) {
        bytes source{0, error};
        auto read = [](void *cookie, char *buffer, size_t size) -> ssize_t {
            bytes &from = *static_cast<bytes *>(cookie);
            size_t len = std::min(size, sizeof table - 1 - from.at);
            memcpy(buffer, table + from.at, len);
            from.at += len;
            errno = from.error;
            return len == 0 && from.error ? -1 : static_cast<ssize_t>(len);
        };
        FILE *stream = fopencookie(&source, "r", {read, nullptr, nullptr, nullptr});
        tree db;
        EXPECT_EQ(readnpt(stream, db), 0);
        fclose(stream);
        EXPECT_STREQ(fval(db, "def_proxy_a_hosts_0"), "10.1.1.1");
        EXPECT_EQ(fval(db, "def_proxy_b_hosts_0") != nullptr, error == 0);
    }
}
