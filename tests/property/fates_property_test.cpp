// Every line accounted for: reasons worked out by hand, and on examples and random files that no line is left out or
// unexplained and that what is said to be without effect can be left out.
#include "fate_check.h"
#include "line_fates.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <sstream>

using std::string;
using std::vector;

namespace {

std::mt19937 generator;
unsigned below(unsigned limit) { return static_cast<unsigned>(generator()) % limit; }
string one_of(const vector<string> &words) { return words[below(static_cast<unsigned>(words.size()))]; }

string read_file(const string &path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

string run(const upgrade_command &command) {
    memory_file output;
    EXPECT_TRUE(run_quietly(command, command.words, output));
    return read_file(output.path());
}

/// A folder with the inputs of one upgrade, which is gone with the record.
struct inputs {
    string folder = "/tmp/fates-XXXXXX";
    vector<string> words; // names of files stand there as they are
    std::map<string, string> files;

    inputs() { mkdtemp(folder.data()); }
    ~inputs() { std::filesystem::remove_all(folder); }
    inputs(const inputs &) = delete;
    inputs &operator=(const inputs &) = delete;

    upgrade_command command(const char *first) const {
        vector<string> all{first};
        for (const string &word : words)
            all.push_back(files.count(word) ? folder + "/" + word : word);
        all.push_back(folder + "/out");
        return parse_upgrade_command(all);
    }
    void write() const {
        for (const auto &[name, text] : files)
            std::ofstream(folder + "/" + name, std::ios::binary) << text;
    }
    review_data account(const char *version) const {
        write();
        memory_file result, canonical;
        run_quietly(command(version), command(version).words, result);
        run_quietly(command("-V0"), command("-V0").words, canonical);
        review_data data;
        account_lines(command(version), {result.path(), canonical.path()}, data);
        for (line_fate &line : data.lines)
            line.file.erase(0, folder.size() + 1);
        return data;
    }
    void blank(const line_fate &line) {
        string &text = files[line.file];
        size_t at = 0;
        for (long left = line.line; left > 1; left--)
            at = text.find('\n', at) + 1;
        text.erase(at, std::min(text.find('\n', at), text.size()) - at);
    }
};

bool says_something(const string &line) { return line[0] != '#' && line.find_first_not_of(" \t\r") != string::npos; }

// Holds what is said of the lines against the upgrade itself.
void expect_accounted(inputs &in, const char *version, unsigned singles) {
    review_data data = in.account(version);
    string as_it_was = run(in.command(version));
    for (const finding &found : data.findings)
        ADD_FAILURE() << found.text;
    std::set<std::pair<string, long>> told;
    for (const line_fate &line : data.lines)
        told.emplace(line.file, line.line);
    for (const auto &[name, text] : in.files) {
        std::istringstream lines(text);
        string line;
        for (long number = 1; std::getline(lines, line); number++)
            EXPECT_EQ(told.count({name, number}), says_something(line) ? 1u : 0u) << name << " " << number;
    }
    vector<line_fate> left_out;
    std::copy_if(data.lines.begin(), data.lines.end(), std::back_inserter(left_out),
                 [](const line_fate &line) { return line.fate == "without effect"; });
    const std::map<string, string> files = in.files;
#if defined(__SANITIZE_ADDRESS__)
    singles = 1; // each takes a process, which costs much there
#endif
    for (unsigned i = 0; i < singles && !left_out.empty(); i++) {
        std::shuffle(left_out.begin(), left_out.end(), generator);
        size_t count = i % 4 == 3 ? 1 + below(static_cast<unsigned>(left_out.size())) : 1;
        for (size_t n = 0; n < count; n++)
            in.blank(left_out[n]);
        in.write();
        EXPECT_TRUE(run(in.command(version)) == as_it_was)
            << count << " lines, with " << left_out[0].text << ": " << left_out[0].reason;
        in.files = files;
    }
}

string random_table() {
    string text;
    string line;
    for (unsigned left = 4 + below(25); left > 0; left--) {
        line =
            below(8) == 0
                ? line
                : one_of({"*", "tn-px", "ftp_px", "ssl-px, tn-px", "http-px", "gui", "alerts", "policy-a", "global",
                          "onlyon-url", "permit-deny-hosts, absorb-relay-permit", "policy-onlyon-url"}) +
                      ":" + one_of({" ", "\t"}) + one_of({"", "", "permit-", "deny-", "absorb-"}) +
                      one_of({"hosts", "hosts", "hosts", "hosts=x", "onlyon-url", "authenticate", "xforwarder", "port",
                              "timeout", "url", "destination", "logging", "enable", "xgateway", "proxy-type"}) +
                      one_of({" ", "  "}) + one_of({"", "", "%-permit%", "%-deny%"}) +
                      one_of({"10.*", "10.1.1.1", "*", "b", "B c 10.1.*", "10.1.* -log", "a -policy a",
                              "a -policy onlyon-url -permit-x", "*.1 -x", "*.2.1"}) +
                      one_of({"\n", "\n", "\r\n", "\n# note\n", "\nno rule\n", "\n\n"});
        text += line;
    }
    return text;
}

string random_conf() {
    const vector<string> keys = {"def_proxy_tn-px_timeout",
                                 "def_proxy_tn-px_proxy-type",
                                 "def_proxy_x_proxy-exec",
                                 "def_proxy_x_authenticate",
                                 "def_proxy_oracle-px_state",
                                 "def_proxy_rap_bind-port",
                                 "def_proxy_x_list_1",
                                 "def_proxy_x_list",
                                 "map_1_pd",
                                 "map_1_src",
                                 "map_1_policy",
                                 "map_1_proxy",
                                 "map_02_pd",
                                 "map_02_src",
                                 "policy_p_proxy_tn-px",
                                 "policy_p_parm_desc",
                                 "policy_q_proxy_x",
                                 "netobj_list_Inside_element_1_addr",
                                 "netobj_list_Inside_element_1_interface",
                                 "netobj_list_L_element_1_addr",
                                 "netobj_group_G_member_1_name",
                                 "pki_CRLs",
                                 "pki_default_port",
                                 "pki_x",
                                 "network_loginok",
                                 "network_mtu",
                                 "trusted_networks",
                                 "version_firewall",
                                 "permit-relay",
                                 "onlyon-url",
                                 "def_proxy_onlyon-url_permit-deny-hosts",
                                 "def_proxy_absorb-relay-permit_timeout",
                                 "policy_permit-deny-hosts_proxy_onlyon-url",
                                 "def_proxy_1_realname",
                                 "def_num_proxies",
                                 "netobj_list_1_name",
                                 "netobj_list_1_num_elements",
                                 "pfedit_lcl_rule1",
                                 "pfedit_lcl_2_type",
                                 "ip_insideaddr",
                                 "ip_insidiface",
                                 "proxy_telnet",
                                 "gui_client",
                                 "sroute_num_entries",
                                 "OS_Type",
                                 "a"};
    string text;
    for (unsigned left = 3 + below(40); left > 0; left--)
        text += one_of({"", "", "", "", " ", "\n", "permit-"}) + one_of(keys) + "=" +
                one_of({"1", "", "P", "p", "q", "*", "on", "plug-px", "enabled", "eth0", "4.1", "NT40", "L", "none"}) +
                one_of({"\n", "\n", "\n", "\r\n", "\n", "\n", "\nrun on\n"});
    return below(8) ? text : text + "[def_proxy_x]\nd=1\\\n  2\n[ e]i=2\n[f\\g]h=" + one_of({"1\n", "", "\n", "1"});
}

} // namespace

TEST(fates_property, reasons_are_those_of_the_passes) {
    inputs in;
    in.words = {"-n", "table", "-m", "old", "-m", "init"};
    in.files["table"] = "*: authenticate *\n# note\ntn-px: permit-hosts 10.* -log\ntn-px: hosts 10.1.1.1 b\n"
                        "tn-px: deny-hosts 10.9.*\ntn-px: port 23\nssl-px: xforwarder x\nssl-px: timeout 5\n"
                        "gui: timeout 5\nno rule\n*: logging x\npolicy-a: timeout 1\n";
    in.files["old"] = "version_firewall=3.2\npki_CRLs=x\nnetwork_loginok=Enabled\nhostname=a\nrun\non=1\n"
                      "trusted_networks=10.0.0.0%0A\n";
    in.files["init"] = "def_proxy_ssl-px_timeout=9\nhostname=b\nmap_1_pd=P\nmap_1_src=$$NETOBJ.tn-px-1\nmap_7_pd=D\n"
                       "map_7_src=$$NETOBJ.x\nmap_7_proxy=*\nmap_7_policy=*\npolicy_tn-px-1_parm_desc=x\n"
                       "def_proxy_svcgrd-ftpd_state=off\ndef_proxy_oracle-px_state=on\ndef_proxy_x_proxy-type=plug-px\n"
                       "def_proxy_x_proxy-exec=./a\nend";
    string told;
    for (const line_fate &line : in.account("-V50").lines)
        told += line.file + " " + std::to_string(line.line) + " " + line.fate + ": " + line.reason + "\n";
    for (size_t at; (at = told.find(in.folder + "/")) != string::npos;)
        told.erase(at, in.folder.size() + 1);
    EXPECT_EQ(told,
              "old 1 overridden: overridden: the upgrade tells its own release and version\n"
              "old 2 without effect: removed by release 5.5\n"
              "old 3 reshaped: the state of svcgrd-telnetd, svcgrd-ftpd and svcgrd-rlogind is on\n"
              "old 4 kept: as it stands\n"
              "old 5 kept: as it stands; it runs over the lines 5 to 6\n"
              "old 6 kept: as it stands; it runs over the lines 5 to 6\n"
              "old 7 reshaped: as elements of netobj_list_Trusted$LIST\n"
              "init 1 overridden: overridden by table line 8\n"
              "init 2 overridden: overridden by old line 4\n"
              "init 3 without effect: this map is the same as map 1 of table\n"
              "init 4 without effect: this map is the same as map 1 of table\n"
              "init 5 reshaped: as map_3_pd\n"
              "init 6 reshaped: as map_3_src\n"
              "init 7 reshaped: as map_3_proxy\n"
              "init 8 reshaped: as map_3_policy\n"
              "init 9 without effect: the policy tn-px-1 exists already of table\n"
              "init 10 overridden: overridden by old line 3\n"
              "init 11 without effect: release 5.5 removes the proxy oracle-px\n"
              "init 12 kept: as it stands\n"
              "init 13 overridden: overridden: release 5.5 has its own program for this type of proxy\n"
              "init 14 without effect: the file ends before a `=` makes it an assignment\n"
              "table 1 kept: as def_proxy_tn-px_authenticate\n"
              "table 3 reshaped: for tn-px map 1 permits\n"
              "table 4 reshaped: for tn-px map 2 permits; covered: 10.1.1.1 by line 3\n"
              "table 5 without effect: an earlier rule, line 3, covers its host\n"
              "table 6 without effect: ports come from the initial environment\n"
              "table 7 reshaped: names the proxy ssl-px first, which gives it its place; else the proxy ssl-px has "
              "no use for xforwarder\n"
              "table 8 kept: as def_proxy_ssl-px_timeout\n"
              "table 9 without effect: its proxy gui is gone\n"
              "table 10 without effect: no colon, so this is no rule\n"
              "table 11 without effect: a rule for all proxies that reaches none: they are named before it, or it "
              "is one of the whole firewall, which is no proxy now\n"
              "table 12 without effect: no rule that stays names the policy a\n");
}

TEST(fates_property, what_is_said_to_be_without_effect_can_be_left_out) {
    const vector<vector<string>> shapes = {{"-n", "netperm-3.2.table", "-m", "old-3.2.conf", "-m", "init.conf"},
                                           {"-m", "old-4.1.conf", "-e", "old-4.1.conf", "-m", "init.conf"},
                                           {"-m", "env-4.1-nt.conf", "-e", "env-4.1-nt.conf", "-m", "init.conf"},
                                           {"-m", "old-4.1.conf", "-m", "init.conf", "-n", "netperm-3.2.table"},
                                           {"-m", "old-5.5.conf", "-m", "init.conf"},
                                           {"-n", "t1", "-m", "c1", "-m", "c2"},
                                           {"-m", "c1", "-n", "t1", "-m", "c2", "-n", "t2"},
                                           {"-m", "c1", "-e", "c2", "-m", "c3"},
                                           {"-m", "c1", "-m", "c2", "-m", "c3"},
                                           {"-n", "t1", "-e", "c1", "-m", "c2", "-e", "c1"}};
    generator.seed(24);
    for (unsigned round = 0; round < 120; round++) {
        inputs in;
        in.words = shapes[round < 5 ? round : 5 + round % 5];
        for (size_t i = 1; i < in.words.size(); i += 2) {
            const string &name = in.words[i];
            in.files[name] = name[0] == 't'   ? random_table()
                             : name[0] == 'c' ? random_conf()
                                              : read_file(EXAMPLES_DIR "/" + name);
        }
        SCOPED_TRACE("round " + std::to_string(round));
        expect_accounted(in, round % 3 ? "-V1" : "-V50", round < 5 ? 30 : 8);
    }
}
