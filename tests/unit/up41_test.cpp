// The service tables and the upgrade of a 4.1 environment.
#include "dump.h"
#include "nupgrade.h"
#include "support.h"

#include <gtest/gtest.h>

using std::string;

TEST(up41, platform_by_os_type) {
    struct row {
        const char *os;
        const maprec *table;
    };
    for (const row &r : {row{"", map_unix},
                         {"NT", map_nt},
                         {"NT40", map_nt},
                         {"NT351", map_nt},
                         {"nt", map_unix},
                         {"N", map_unix},
                         {" NT", map_unix},
                         {"BSD40", map_unix},
                         {"SOL28", map_unix},
                         {"AIX", map_unix},
                         {"other", map_unix}}) {
        tree db("x=1\n");
        fset(db, "OS_Type", r.os);
        EXPECT_EQ(determine_os_maprec(db), r.table) << r.os;
    }
    tree none, interior("OS_Type_NT=1\n");
    EXPECT_EQ(determine_os_maprec(none), map_unix);
    EXPECT_EQ(determine_os_maprec(interior), map_unix);
}

TEST(up41, first_row_wins) {
    struct row {
        const maprec *table;
        const char *maprec::*column;
        const char *text, *proxy, *port, *exec;
    };
    const row rows[] = {
        {map_unix, &maprec::service, "rap", "RealAudio", "7070", "./mmp-px"},
        {map_unix, &maprec::proxy, "rap", "rap", "7070", "./mmp-px"},
        {map_unix, &maprec::type, "plug-px", "ldap-px", "ldap", "./plug-px"},
        {map_unix, &maprec::type, "mmp-px", "VDOLive", "7000", "./mmp-px"},
        {map_unix, &maprec::type, "", "NOT_DEF", "", ""},
        {map_unix, &maprec::proxy, "gopher-px", "gopher-px", "70", "./http-px"},
        {map_unix, &maprec::service, "custom6", "NOT_DEF", "", ""},
        {map_unix, &maprec::service, "sybase", "syb-px", "", ""},
        {map_unix, &maprec::proxy, "cyberpatrol", "cyberpatrol", "8999", ""},
        {map_unix, &maprec::proxy, "mssql-px", "mssql-px", "1433", ""},
        {map_unix, &maprec::proxy, "snmp-px", "snmp-px", "161", ""},
        {map_unix, &maprec::service, "news", "nntp-px", "119", "./plug-px"},
        {map_nt, &maprec::service, "rap", "rap", "7070", "RealAudio.exe"},
        {map_nt, &maprec::service, "sybase", "NOT_DEF", "", ""},
        {map_nt, &maprec::service, "cyberpatrol", "NOT_DEF", "", ""},
        {map_nt, &maprec::proxy, "mssql-px", "mssql-px", "", ""},
        {map_nt, &maprec::proxy, "snmp-px", "snmp-px", "snmp", "snmp-px.exe"},
        {map_nt, &maprec::type, "VDOlive", "VDOLive", "7000", "vdolive.exe"},
    };
    for (const row &r : rows) {
        const maprec *found = find_maprec(r.table, r.column, r.text);
        ASSERT_NE(found, nullptr) << r.text;
        EXPECT_STREQ(found->proxy, r.proxy);
        EXPECT_STREQ(found->port, r.port) << r.text;
        EXPECT_STREQ(found->exec, r.exec) << r.text;
    }
    for (const char *proxy : {"rlogin-px", "info-px", "lp-px", "gopher-px", "ck-px", "ssl-px", "RealAudio"}) {
        EXPECT_NE(find_maprec(map_unix, &maprec::proxy, proxy), nullptr) << proxy;
        EXPECT_EQ(find_maprec(map_nt, &maprec::proxy, proxy), nullptr) << proxy;
    }
    EXPECT_EQ(find_maprec(map_unix, &maprec::service, "TELNET"), nullptr);
    EXPECT_EQ(find_maprec(map_nt, &maprec::type, "VDOLive"), nullptr);
}

namespace {
struct pass_row {
    const char *before, *after;
    int result = 0;
};
} // namespace

TEST(up41, states_go_back_on_nt) {
    const pass_row rows[] = {
        {"OS_Type=NT\n", "OS_Type=NT\n", 1},
        {"OS_Type=NT\nproxy_telnet=off\nproxy_odd=1\ndef_proxy_tn-px_state=on\ndef_proxy_ftp-px_x=1\n",
         "OS_Type=NT\nproxy_telnet=on\nproxy_odd=1\ndef_proxy_tn-px_state=on\ndef_proxy_ftp-px_x=1\n"},
        // In the order of the table, each new one at the head; a cell with a `_` is a path.
        {"OS_Type=NT40\ndef_proxy_nntp_ext_state=a\ndef_proxy_http-px_state=b\ndef_proxy_rap_state=c\n"
         "def_proxy_NOT%5FDEF_state=d\ndef_proxy_NOT_DEF_z=e\ndef_proxy_RealAudio_state=f\n",
         "proxy_rap=c\nproxy_nntp_ext=a\nproxy_http=b\n"
         "OS_Type=NT40\ndef_proxy_nntp_ext_state=a\ndef_proxy_http-px_state=b\ndef_proxy_rap_state=c\n"
         "def_proxy_NOT%5FDEF_state=d\ndef_proxy_NOT_DEF_z=e\ndef_proxy_RealAudio_state=f\n"},
        {"OS_Type=NT\ndef_proxy_tn-px_state_z=on\nproxy_telnet=off\n",
         "OS_Type=NT\ndef_proxy_tn-px_state_z=on\nproxy_telnet=\n"},
        {"OS_Type=BSD\nproxy_telnet=off\ndef_proxy_tn-px_state=on\n",
         "OS_Type=BSD\nproxy_telnet=off\ndef_proxy_tn-px_state=on\n"},
    };
    for (const pass_row &r : rows) {
        tree db(r.before);
        EXPECT_EQ(norm41states(db), r.result) << r.before;
        EXPECT_EQ(db.text(), r.after);
    }
    tree db("def_proxy_tn-px_state=on\n"), none("x=1\n");
    EXPECT_EQ(norm41states(db), 0);
    EXPECT_EQ(dump(db.head), "proxy def{proxy{tn-px{state=on}}}");
    EXPECT_EQ(norm41states(none), 1);
    EXPECT_EQ(dump(none.head), "x=1");
}

static void expect_up41(const std::vector<pass_row> &rows) {
    for (const pass_row &r : rows) {
        tree db(r.before);
        EXPECT_EQ(up41(db), r.result) << r.before;
        EXPECT_EQ(db.text(), r.after);
    }
}

TEST(up41, gui_client) {
    expect_up41({
        {"gui_client=a\nnetobj_group_fw-admin=\n",
         "netobj_list_fw-admin$LIST_element_1_addr=a\nnetobj_list_fw-admin$LIST_element_1_name=gui_client\n"
         "netobj_group_fw-admin=\n",
         1},
        {"gui_client=\nnetobj_group_fw-admin=\n", "gui_client=\nnetobj_group_fw-admin=\n", 1},
        {"gui_client_x=1\nnetobj_group_fw-admin=\n", "gui_client_x=1\nnetobj_group_fw-admin=\n", 1},
        {"gui_client=a\nnetobj_group_fw=\n", "gui_client=a\nnetobj_group_fw=\n", 1},
        {"netobj_list_fw-admin$LIST_element_5_addr=x\nnetobj_list_fw-admin$LIST_element_2_addr=y\n"
         "netobj_list_fw-admin$LIST_element_z_addr=y\nnetobj_group_fw-admin=\ngui_client=a\ndef_proxy=\n",
         "netobj_list_fw-admin$LIST_element_6_addr=a\nnetobj_list_fw-admin$LIST_element_6_name=gui_client\n"
         "netobj_list_fw-admin$LIST_element_5_addr=x\nnetobj_list_fw-admin$LIST_element_2_addr=y\n"
         "netobj_list_fw-admin$LIST_element_z_addr=y\nnetobj_group_fw-admin=\ndef_proxy=\n"},
        {"netobj_list_fw-admin$LIST_element_1_addr=x\nnetobj_list_fw-admin$LIST_element_3_addr=a\n"
         "netobj_list_fw-admin$LIST_element_3_name=old\nnetobj_list_fw-admin$LIST_element_9_addr=a\n"
         "netobj_group_fw-admin=\ngui_client=a\ndef_proxy=\n",
         "netobj_list_fw-admin$LIST_element_1_addr=x\nnetobj_list_fw-admin$LIST_element_3_addr=a\n"
         "netobj_list_fw-admin$LIST_element_3_name=gui_client\nnetobj_list_fw-admin$LIST_element_9_addr=a\n"
         "netobj_group_fw-admin=\ndef_proxy=\n"},
    });
}

TEST(up41, plug_proxy) {
    expect_up41({
        {"def_proxy_plug-px_logging=on\ndef_proxy_plug-px_port=9\ndef_proxy_plug-px_config-sets_a_port=1\n"
         "def_proxy_plug-px_config-sets_a_host=h\ndef_proxy_plug-px_config-sets_a_x=1\n"
         "def_proxy_plug-px_config-sets_b_port_z=1\ndef_proxy_plug-px_config-sets_c_x=2\ndef_proxy_c_old=1\n",
         "def_proxy_b_bind-port=\ndef_proxy_b_proxy-type=plug-px\ndef_proxy_b_logging=on\ndef_proxy_b_port=9\n"
         "def_proxy_a_bind-port=1\ndef_proxy_a_proxy-type=plug-px\ndef_proxy_a_config-sets_a_host=h\n"
         "def_proxy_a_config-sets_a_x=1\ndef_proxy_a_logging=on\ndef_proxy_a_port=9\n"
         "def_proxy_c_proxy-type=plug-px\ndef_proxy_c_config-sets_c_x=2\ndef_proxy_c_logging=on\ndef_proxy_c_port=9\n"},
        {"def_proxy_plug-px_logging=on\ndef_proxy_x_y=1\n", "def_proxy_x_y=1\n"},
        // The set's clear name is a path, and what lies deeper is no proxy to the later steps.
        {"def_proxy_plug-px_config-sets_a%5Fb_port=1\nproxy_odd=on\n",
         "def_proxy_a_b_bind-port=1\ndef_proxy_a_b_proxy-type=plug-px\nproxy_odd=on\n"},
    });
    tree db("def_proxy_plug-px_x=1\ndef_proxy_plug-px_config-sets_a%5Fb_y=2\n");
    up41(db);
    EXPECT_EQ(dump(db.head), "def{proxy{a{b{proxy-type=plug-px config-sets{a%5Fb{y=2}} x=1}}}}");
    EXPECT_TRUE(linked(db.head, nullptr));
}

TEST(up41, services) {
    expect_up41({
        {"OS_Type=BSD40\ndef_proxy_plug-px_port=9\ndef_proxy_plug-px_config-sets_aol-px_host=h\n"
         "def_proxy_plug-px_config-sets_my-px_port=77\ndef_proxy_plug-px_config-sets_my-px_x=1\n"
         "def_proxy_tn-px_proxy-exec=mine\ndef_proxy_tn-px_bind-port=2323\ndef_proxy_fingerd_z=1\ndef_proxy_own_z=1\n"
         "proxy_telnet=on\nproxy_custom1=on\nproxy_odd=on\nproxy_even=off\nproxy_rap=on\n",
         "OS_Type=BSD40\n"
         "def_proxy_my-px_proxy-exec=./plug-px\ndef_proxy_my-px_bind-port=9\ndef_proxy_my-px_proxy-type=plug-px\n"
         "def_proxy_my-px_config-sets_my-px_x=1\n"
         "def_proxy_aol-px_proxy-exec=./plug-px\ndef_proxy_aol-px_bind-port=9\ndef_proxy_aol-px_proxy-type=plug-px\n"
         "def_proxy_tn-px_proxy-type=tn-px\ndef_proxy_tn-px_state=on\ndef_proxy_tn-px_proxy-exec=mine\n"
         "def_proxy_tn-px_bind-port=2323\n"
         "def_proxy_fingerd_proxy-exec=\ndef_proxy_fingerd_proxy-type=\ndef_proxy_fingerd_bind-port=\n"
         "def_proxy_fingerd_z=1\ndef_proxy_own_z=1\nproxy_even=off\nproxy_odd=on\n"},
        {"def_proxy_rap_z=1\ndef_proxy_RealAudio_state=off\nproxy_rap=on\n",
         "def_proxy_rap_proxy-exec=./mmp-px\ndef_proxy_rap_proxy-type=RealAudio\ndef_proxy_rap_bind-port=7070\n"
         "def_proxy_rap_z=1\n"
         "def_proxy_RealAudio_proxy-exec=./mmp-px\ndef_proxy_RealAudio_proxy-type=RealAudio\n"
         "def_proxy_RealAudio_bind-port=7070\ndef_proxy_RealAudio_state=on\n"},
        {"OS_Type=NT40\ndef_proxy_rap_z=1\ndef_proxy_RealAudio_z=2\nproxy_rap=on\nproxy_ssl=on\nproxy_sybase=on\n",
         "OS_Type=NT40\ndef_proxy_rap_proxy-exec=RealAudio.exe\ndef_proxy_rap_proxy-type=RealAudio\n"
         "def_proxy_rap_bind-port=7070\ndef_proxy_rap_state=on\ndef_proxy_rap_z=1\ndef_proxy_RealAudio_z=2\n"
         "proxy_ssl=on\n"},
        // A service without a value takes the state away; the type is always the row's, port and program are not.
        {"def_proxy_ftp-px_state=on\ndef_proxy_ftp-px_proxy-type=old\ndef_proxy_ftp-px_bind-port_z=1\nproxy_ftp_z=1\n",
         "def_proxy_ftp-px_proxy-exec=./ftp-px\ndef_proxy_ftp-px_proxy-type=ftp-px\ndef_proxy_ftp-px_bind-port_z=1\n"},
        // The last port of several sets wins, and only the exact type counts.
        {"def_proxy_p_proxy-type=plug-px\ndef_proxy_p_proxy-exec=e\ndef_proxy_p_config-sets_1_port=5\n"
         "def_proxy_p_config-sets_1_host=h\ndef_proxy_p_config-sets_2_port=6\ndef_proxy_p_config-sets_3_x=1\n"
         "def_proxy_q_proxy-type=PLUG-PX\ndef_proxy_q_port=5\nproxy=\n",
         "def_proxy_p_bind-port=6\ndef_proxy_p_proxy-type=plug-px\ndef_proxy_p_proxy-exec=e\n"
         "def_proxy_p_config-sets_3_x=1\ndef_proxy_q_proxy-type=PLUG-PX\ndef_proxy_q_port=5\nproxy=\n"},
        // Without the services nothing of this is touched.
        {"def_proxy_tn-px_z=1\ndef_proxy_p_proxy-type=plug-px\ndef_proxy_p_port=5\n",
         "def_proxy_tn-px_z=1\ndef_proxy_p_proxy-type=plug-px\ndef_proxy_p_port=5\n"},
    });
    tree db("def_proxy_p_proxy-type=plug-px\ndef_proxy_p_bind-port=1\ndef_proxy_p_port_z=1\nproxy_x=1\n");
    up41(db);
    EXPECT_EQ(dump(db.head), "def{proxy{p{proxy-exec=./plug-px proxy-type=plug-px bind-port}}} proxy{x=1}");
}
