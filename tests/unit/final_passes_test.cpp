// The last passes before saving.
#include "netperm_support.h"

#include <gtest/gtest.h>

namespace {

struct row {
    std::string before, after;
};

const std::string STATES = "def_proxy_svcgrd-rlogind_state=on\ndef_proxy_svcgrd-ftpd_state=on\n"
                           "def_proxy_svcgrd-telnetd_state=on\n";

} // namespace

TEST(final_passes, login_setting_becomes_states) {
    const row rows[] = {
        {"network_loginok=ENabled\nx=1\n", STATES + "x=1\n"},
        {"network_loginok=disabled\nnetwork_x=1\n", "network_x=1\n"},
        {"network_loginok=enabled \n", ""},
        {"network_loginok=\n", ""},
        {"network_loginok_x=enabled\n", ""},
        {"network_x=1\nloginok=enabled\n", "network_x=1\nloginok=enabled\n"},
        {"network_loginok=enabled\ndef_proxy_svcgrd-ftpd_x=1\ndef_proxy_svcgrd-ftpd_state=off\n",
         "def_proxy_svcgrd-rlogind_state=on\ndef_proxy_svcgrd-telnetd_state=on\ndef_proxy_svcgrd-ftpd_x=1\n"
         "def_proxy_svcgrd-ftpd_state=on\n"},
    };
    for (const row &r : rows) {
        tree db(r.before);
        pre_save_cleanup(db);
        EXPECT_EQ(db.text(), r.after) << r.before;
    }
}

TEST(final_passes, settings_of_the_new_release) {
    struct {
        std::string before, init, after;
    } rows[] = {
        {"def_proxy_ahttp-px_x=1\ndef_proxy_rap=2\ndef_proxy_a_authenticate=*\n", "x=1\n",
         "def_proxy_a_authenticate=*\n"},
        {"def_proxy_rap_x=1\ndef_proxy_a_authenticate=*\n", "def_proxy=x\n", "def_proxy_a_authenticate=*\n"},
        {"def_proxy_a_authenticate=*\ndef_proxy_ahttp-px_proxy-type=q\n",
         "def_proxy_b_proxy-exec=e\ndef_proxy_ahttp-px_proxy-type=t\n", "def_proxy_a_authenticate=*\n"},
        {"def_proxy_a_proxy-type=x\ndef_proxy_a_bind-port=1\ndef_proxy_a_authenticate=*\ndef_proxy_a_authenticate_q=1\n"
         "def_proxy_b_authenticate=*\ndef_proxy_b_bind-port=2\n",
         "def_proxy_a_proxy-type=y\ndef_proxy_a_proxy-exec=e\ndef_proxy_a_bind-port=\n"
         "def_proxy_a_other=o\ndef_proxy_b_bind-port=3\n",
         "def_proxy_a_proxy-exec=e\ndef_proxy_a_proxy-type=y\ndef_proxy_a_bind-port=1\ndef_proxy_b_bind-port=3\n"},
        {"def_proxy_a_authenticate=*\ndef_proxy_a_bind-port_x=1\n", "def_proxy_a=1\n", "def_proxy_a_bind-port_x=1\n"},
        {"x=1\n", "def_proxy_a_proxy-type=y\n", "x=1\n"},
    };
    for (const auto &r : rows) {
        tree db(r.before), init(r.init);
        EXPECT_EQ(copy_50_stuff(db, init), 0);
        EXPECT_EQ(db.text(), r.after) << r.before;
        EXPECT_EQ(init.text(), r.init);
    }
}

TEST(final_passes, changes_of_release_55) {
    struct {
        std::string before, after, report;
    } rows[] = {
        {"", "version_firewall=5.5\n", ""},
        {"def_proxy_oracle-px_x=1\ndef_proxy_a_proxy-type=PLUG-PX\ndef_proxy_a_proxy-exec=old\n"
         "def_proxy_permit-b_proxy-type=Http-px\ndef_proxy_c_proxy-type=tn-px\ndef_proxy_d_proxy-exec=keep\n"
         "def_proxy_e_proxy-type=plug-px \npki_CRLs_1=x\npki_default=0\npki_default_port=1\npki_default_server=2\n"
         "pki_keep=3\npki_LDAP=4\nversion_firewall=4.1\n",
         "def_proxy_a_proxy-type=PLUG-PX\ndef_proxy_a_proxy-exec=./plug-xtk\n"
         "def_proxy_permit-b_proxy-exec=./mgmt/rc/H110http\ndef_proxy_permit-b_proxy-type=Http-px\n"
         "def_proxy_c_proxy-type=tn-px\ndef_proxy_d_proxy-exec=keep\ndef_proxy_e_proxy-type=plug-px \npki_default=0\n"
         "pki_keep=3\nversion_firewall=5.5\n",
         "plug-px: set def_proxy_a_proxy-exec to ./plug-xtk\n"
         "http-px: set def_proxy_permit-b_proxy-exec to ./mgmt/rc/H110http\nremove: pki_CRLs\nremove: pki_LDAP\n"
         "remove: pki_default_port\nremove: pki_default_server\n"},
        {"pki_Xcerts=\npki_default_port_x=1\n", "version_firewall=5.5\n",
         "remove: pki_Xcerts\nremove: pki_default_port\n"},
    };
    for (const auto &r : rows) {
        tree silent(r.before), db(r.before);
        EXPECT_EQ(do_55_upgrades(silent), 0);
        EXPECT_EQ(silent.text(), r.after);
        char *text = nullptr;
        size_t size = 0;
        repf = open_memstream(&text, &size);
        do_55_upgrades(db);
        fclose(repf);
        repf = nullptr;
        EXPECT_EQ(db.text(), r.after);
        EXPECT_EQ(std::string(text, size), r.report);
        free(text);
        EXPECT_EQ(ffind(db, "pki_default") != nullptr, r.before.find("pki_default") != std::string::npos);
    }
}
