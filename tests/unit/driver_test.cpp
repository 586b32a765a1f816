// The release that wrote a configuration.
#include "netperm_support.h"

#include <gtest/gtest.h>

TEST(driver, old_config_type) {
    struct {
        const char *version; // what stands behind "version_firewall", null for no such line
        int type;
    } rows[] = {
        {nullptr, 40},        {"=4.1\n", 41},  {"=5.5.1\n", 55}, {"=5.5\n", 55},   {"=V5.55b\n", 55}, {"=\n", 50},
        {"=new\n", 50},       {"=5.0\n", 50},  {"=4\n", 40},     {"=V4.0b\n", 40}, {"=5.6\n", 56},    {"=5.\n", 50},
        {"=45\n", 45},        {"=4..1\n", 40}, {"=4.x1\n", 40},  {"=4 .1\n", 40},  {"=3.2\n", 32},    {"=0.9\n", 9},
        {"=10.3\n", 10},      {"=.5.5\n", 55}, {"=4.1.9\n", 41}, {"=55\n", 55},    {"_x=1\n", 0},     {"=", 0},
        {"=r 6, v5.5\n", 60}, {"=.\n", 50},
    };
    for (const auto &r : rows) {
        std::string version = r.version ? "version_firewall" + std::string(r.version) : "";
        tree conf("def_proxy_a_x=1\n" + version), old(version);
        EXPECT_EQ(old_config_type(conf), r.type) << version;
        EXPECT_EQ(old_config_type(old), 32) << version;
    }
    tree bare("def_proxy=\n");
    EXPECT_EQ(old_config_type(bare), 40);
}
