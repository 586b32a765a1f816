// What holds where the libraries are used without the program around them.
#include "support.h"
#include "upgrade.h"

#include <cerrno>
#include <cstring>
#include <gtest/gtest.h>
#include <new>
#include <utility>

TEST(library, containers_end_in_outofcore) { EXPECT_EQ(std::get_new_handler(), &outofcore); }

// Bytes and then a read error: what the error ends is no rule, what the end of the file ends is one.
TEST(library, half_a_rule) {
    static const char table[] = "a: permit-hosts 10.1.1.1\nb: permit-hosts 10.";
    static int error;
    static bool begun;
    auto read = [](void *, char *buffer, size_t) -> ssize_t {
        errno = error;
        if (std::exchange(begun, true))
            return error ? -1 : 0;
        memcpy(buffer, table, sizeof table - 1);
        return sizeof table - 1;
    };
    for (int how : {0, EIO}) {
        error = how;
        begun = false;
        FILE *stream = fopencookie(nullptr, "r", {read, nullptr, nullptr, nullptr});
        tree db;
        EXPECT_EQ(readnpt(stream, db), 0);
        fclose(stream);
        EXPECT_STREQ(fval(db, "def_proxy_a_hosts_0"), "10.1.1.1");
        EXPECT_EQ(fval(db, "def_proxy_b_hosts_0") != nullptr, error == 0);
    }
}
