// Every line accounted for, on the examples and on random files: what is said to have no effect can be left out, all of
// it together, and what is kept stands where it is said to stand.
#include "checks/checks.h"
#include "lines/lines.h"
#include "support.h"

#include <algorithm>
#include <gtest/gtest.h>
#include <iterator>
#include <map>
#include <set>
#include <sstream>

using std::string;
using std::vector;

namespace {

/// One upgrade with its files, which are gone with the record.
struct upgrade_case {
    scratch_dir folder;
    std::map<string, string> files;
    upgrade_command command;
    review_data data;
    string output;

    void run(const char *version, const vector<string> &shape) {
        vector<string> words{version};
        for (const string &word : shape)
            words.push_back(word[0] == '-' ? word : folder.write(word, files[word]));
        words.push_back(folder.path + "/out");
        command = parse_upgrade_command(words);
        output = run_upgrade(command).output;
        loaded_files loaded;
        detect_release(command, loaded, data);
        auto result = read_configuration("out", output, conf_layout::translated);
        access_side before;
        for (const string &table : step_files(command, 'n'))
            if (data.release < 40)
                before.add_table(*loaded.table(table));
        std::function<void(const string &)> progress = [](const string &) {};
        account_lines({command, loaded, *result, *result, before, progress}, data);
    }
    string name(const line_fate &line) const { return data.files[line.file].name.substr(folder.path.size() + 1); }
    void blank(const line_fate &line, std::map<string, string> &texts) const {
        string &text = texts[name(line)];
        size_t at = 0;
        for (long left = line.line; left > 1; left--)
            at = text.find('\n', at) + 1;
        text.erase(at, std::min(text.find('\n', at), text.size()) - at);
    }
};

string line_of(const string &text, long number) {
    size_t at = 0;
    for (; number > 1; number--)
        at = text.find('\n', at) + 1;
    return text.substr(at, text.find('\n', at) - at);
}

// Holds what is said of the lines against the upgrade itself.
void expect_accounted(const upgrade_case &made) {
    std::set<std::pair<string, long>> told;
    std::map<string, string> without = made.files;
    for (const line_fate &line : made.data.lines) {
        told.emplace(made.name(line), line.line);
        const string text = line_of(made.files.at(made.name(line)), line.line);
        bool is_left_out = line.became == fate::overridden || line.became == fate::without_effect;
        if (is_left_out || line.became == fate::unexplained)
            made.blank(line, without);
        EXPECT_TRUE(!is_left_out || line.how == proof::run) << text;
        if (line.became != fate::kept)
            continue;
        // The value, if it is one of its own, stands in that line of the result, whatever its layout.
        const string there = line_of(made.output, line.result_line);
        const string value = text.substr(text.find('=') + 1);
        bool is_plain = text.find('=') != string::npos && text.find_first_of("\r\\") == string::npos;
        EXPECT_TRUE(!is_plain || there.find(value) != string::npos) << text << "\n" << there;
    }
    for (const auto &[name, text] : made.files)
        for (long number = 1; number <= std::count(text.begin(), text.end(), '\n'); number++) {
            const string line = line_of(text, number);
            bool speaks = line[0] != '#' && line.find_first_not_of(" \t\r") != string::npos;
            EXPECT_TRUE(!speaks || told.count({name, number}) != 0) << name << ":" << number << " " << line;
        }
    replaced_files instead;
    for (const auto &[name, text] : without)
        instead[made.folder.path + "/" + name] = text;
    EXPECT_EQ(run_upgrade(made.command, instead).output, made.output);
    EXPECT_EQ(static_cast<long>(made.data.origins.size()), std::count(made.output.begin(), made.output.end(), '\n'));
}

string random_table() {
    string text, line;
    for (unsigned left = 4 + random_below(25); left > 0; left--) {
        if (random_below(8) != 0)
            line = one_of({"*", "tn-px", "ftp_px", "ssl-px, tn-px", "http-px", "gui", "alerts", "policy-a", "global"}) +
                   one_of({": ", ":\t", ": ", ": "}) + one_of({"", "", "permit-", "deny-", "absorb-"}) +
                   one_of({"hosts", "hosts", "hosts", "hosts=x", "authenticate", "xforwarder", "port", "timeout", "url",
                           "destination", "logging", "enable", "xgateway", "proxy-type"}) +
                   one_of({" ", "  "}) + one_of({"", "", "%-permit%", "%-deny%"}) +
                   one_of({"10.*", "10.1.1.1", "*", "b", "B c 10.1.*", "10.1.* -log", "a -policy a", "a -permit-x",
                           "*.1 -x", "*.2.1"}) +
                   one_of({"\n", "\n", "\r\n", "\n", "\n# note\n", "\nno rule\n", "\n\n"});
        text += line;
    }
    return text;
}

const string conf_keys = // of random configurations
    "def_proxy_tn-px_timeout def_proxy_tn-px_proxy-type def_proxy_x_proxy-exec def_proxy_x_authenticate "
    "def_proxy_oracle-px_state def_proxy_rap_bind-port def_proxy_x_list_1 def_proxy_x_list map_1_pd map_1_src "
    "map_1_policy map_2_src map_2_pd policy_p_proxy_tn-px policy_p_parm_desc policy_p_parm_deny-url_0 "
    "policy_q_proxy_x netobj_list_Inside_element_1_addr netobj_list_Inside_element_2_addr "
    "netobj_list_Inside_element_1_interface netobj_list_Inside_element_2_interface "
    "netobj_list_Inside_element_2_alias netobj_list_L_element_1_addr netobj_group_G_member_1_name pki_CRLs "
    "pki_default_port pki_x network_loginok trusted_networks version_firewall permit-relay "
    "policy_permit-deny-hosts_proxy_x def_proxy_1_realname def_num_proxies netobj_list_1_name "
    "netobj_list_1_num_elements pfedit_lcl_rule1 pfedit_lcl_2_type pfedit_comment ip_insideaddr ip_insidiface "
    "proxy_telnet gui_client sroute_num_entries sroute_3_dest OS_Type a";

string any_word(const string &words) {
    std::istringstream text(words);
    const vector<string> all{std::istream_iterator<string>(text), {}};
    return all[random_below(static_cast<unsigned>(all.size()))];
}

string random_conf() {
    string text;
    for (unsigned left = 3 + random_below(40); left > 0; left--)
        text += one_of({"", "", "", "", " ", "permit-"}) + any_word(conf_keys) + "=" +
                one_of({"1", "", "P", "p", "q", "*", "on", "plug-px", "enabled", "eth0", "4.1", "NT40", "L", "yes"}) +
                one_of({"\n", "\n", "\n", "\r\n", "\n", "\n", "\nrun on\n"});
    return random_below(8) != 0 ? text : text + "[def_proxy_x]\nd=1\\\n  2\n[ e]i=2\n[f\\g]h=1\n";
}

const vector<string> shapes[] = {{"-n", "netperm-3.2.table", "-m", "old-3.2.conf", "-m", "init.conf"},
                                 {"-m", "old-4.1.conf", "-e", "old-4.1.conf", "-m", "init.conf"},
                                 {"-m", "env-4.1-nt.conf", "-e", "env-4.1-nt.conf", "-m", "init.conf"},
                                 {"-m", "old-5.5.conf", "-m", "init.conf"},
                                 {"-n", "t1", "-m", "c1", "-m", "c2"},
                                 {"-m", "c1", "-n", "t1", "-m", "c2", "-n", "t2"},
                                 {"-m", "c1", "-e", "c2", "-m", "c3"},
                                 {"-m", "c1", "-m", "c2", "-m", "c3"}};

} // namespace

TEST(lines_property, what_is_said_of_lines_is_true) {
    seed_random(24);
    for (unsigned round = 0; round < 100; round++) {
        upgrade_case made;
        const vector<string> &shape = shapes[round < 4 ? round : 4 + round % 4];
        for (size_t i = 1; i < shape.size(); i += 2)
            made.files[shape[i]] = shape[i][0] == 't'   ? random_table()
                                   : shape[i][0] == 'c' ? random_conf()
                                                        : read_file(EXAMPLES_DIR "/" + shape[i]);
        SCOPED_TRACE("round " + std::to_string(round));
        made.run(round % 3 == 2 ? "-V50" : "-V1", shape);
        expect_accounted(made);
        if (round < 4)
            for (const finding &told : made.data.findings)
                ADD_FAILURE() << told.id << " " << told.at.file << ":" << told.at.line << " " << told.text;
    }
}

// A field twice in a file, an address twice in a list, an interface of a list of one's own, a client that moves, an
// address without an interface; rules that say nothing.
TEST(lines_property, what_others_say_too_is_not_lost) {
    const vector<string> texts[] = {
        {"version_firewall=4.1\ndef_proxy_x_a=1\nnetobj_list_L_element_5_addr=b\nnetobj_list_L_element_5_netmask=1\n"
         "netobj_group_fw-admin_member_1_name=L\nnetobj_list_L_element_5_interface=i\n"
         "netobj_list_all%5Finterfaces_element_1_interface=i\nnetobj_list_all%5Finterfaces_element_1_location=L\n",
         "map_1_src=*\nmap_1_pd=D\nmap_1_pd=P\ngui_client=c\nip_insideaddr=h\nip_insidemask=m\n",
         "map_1_src=a\nmap_1_pd=D\nmap_1_pd=P\ngui_client=c\nnetobj_list_L_element_10_addr=b\n"
         "netobj_list_L_element_10_netmask=1\n"},
        {"version_firewall=4.1\ndef_proxy_x_a=1\npfedit_fwd_rule2=a+b\n",
         "def_num_proxies=0\npfedit_fwd_rule2=a+b\npfedit_lcl_rule1=+\n", ""},
        {"version_firewall=3.2\ntrusted_networks=a%0Aa\nuntrusted_networks=\n", "", "trusted_networks=b%0A\n"}};
    for (const vector<string> &files : texts)
        for (const char *version : {"-V50", "-V41"}) {
            upgrade_case made;
            for (size_t i = 0; i < 3; i++)
                made.files["c" + std::to_string(i)] = files[i];
            vector<string> shape = {"-m", "c0", "-e", "c1", "-m", "c2"};
            if (files[1].empty()) // a table
                shape[2] = "-n";
            made.run(version, shape);
            expect_accounted(made);
            size_t left_out = files[1].find("ip_") != string::npos && string(version) == "-V41" ? 1 : 0;
            for (const finding &told : made.data.findings)
                if (told.id != "left-out" || left_out-- == 0)
                    ADD_FAILURE() << version << " " << told.id << " " << told.at.file << " " << told.text;
            EXPECT_EQ(left_out, 0U);
        }
}

// What a merge leaves out, for whatever value a map lacks, has another map that stands for it; nothing else has.
TEST(lines_property, a_map_is_left_out_for_one_that_is_the_same) {
    seed_random(27);
    for (unsigned round = 0; round < 60; round++) {
        upgrade_case made;
        for (const char *file : {"c1", "c2", "c3"}) {
            string &text = made.files[file] = file[1] == '1' ? "version_firewall=4.1\ndef_proxy_x_a=1\n" : "";
            for (const char *map : {"map_1", "map_3", "map_02", "map_10", "map_x"})
                for (string field : {"_pd=", "_src=", "_proxy=", "_policy=", "_x="})
                    if (random_below(4) != 0 && text.find(map + field) == string::npos)
                        text += map + field + one_of({"P", "P", "D"}) + "\n";
            text += random_below(4) == 0 ? "map_num_entries=2\n" : "";
            for (const char *policy : {"policy_P_", "policy_D_"})
                for (const char *set : {"proxy_a=x\n", "proxy_b=x\n"})
                    text += random_below(2) != 0 ? policy + string(set) : "";
        }
        made.run("-V50", {"-m", "c1", "-m", "c2", round % 2 == 0 ? "-m" : "-e", "c3", "-m", "c2"});
        SCOPED_TRACE(made.files["c1"] + "\n" + made.files["c2"] + "\n" + made.files["c3"] + "\n" + made.output);
        expect_accounted(made);
        for (const finding &told : made.data.findings)
            ADD_FAILURE() << told.id << " " << told.at.file << ":" << told.at.line << " " << told.text;
    }
}
