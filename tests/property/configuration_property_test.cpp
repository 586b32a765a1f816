// The review's own reader of configurations against the store's reader and the passes that make the canonical layout.
#include "frag_tools.h"
#include "nupgrade.h"
#include "read/configuration.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <map>
#include <random>
#include <set>
#include <sstream>
#include <unistd.h>

using std::string;
using std::vector;

static std::mt19937 generator;
static unsigned below(size_t limit) { return static_cast<unsigned>(generator() % limit); }
static string any_of(const vector<string> &texts) { return texts[below(texts.size())]; }

// Lines of both layouts, whole records and halves of them. Each `^` is one of the families that have names, `#` and `!`
// are numbers, `@` is a name, `&` one of a parameter, `~` any value, `;` a line end.
static std::istringstream all_patterns(R"(
    def_proxy_#_realname=@ cust_proxy_#_realname=@ ^_#_name=@ ^_#_name=@ ^_#_name_deep=~
    ^_#_parm_!_name=&;^_#_parm_!_value=~ ^_#_parm_!_value=~;^_#_parm_!_name=& ^_#_parm_!_name=& ^_#_parm_!_value=~
    ^_#_parm_!_other=~ ^_#_parm=~ ^_#_num_parms=~ ^_#_num_proxies=~ ^_#_num_elements=~ ^_#_num_other=~ ^_#_num=~
    ^_#_num_parms_deep=~ ^_#_proxy_!_name=@ ^_#_proxy_!_name=@ ^_#_proxy_!=~
    ^_#_cyberurl_!_access=~;^_#_cyberurl_!_url=~ ^_#_cyberurl_!_other=~ ^_#_cyberurl_!=~ ^_#_other_permit-!=~
    ^_#_config-sets_c_x=~ ^_#_hosts_0=~ ^_#_element_!_addr=~ pfedit_lcl_rule!=~ pfedit_lcl_rule0!=~
    pfedit_lcl_rule!_type=~ pfedit_fwd_x!=~ pfedit_lcl_numrules=~ netobj_list_7_name=Inside
    netobj_list_8_name=eth0$INTERFACE netobj_list_7_element_!_interface=eth0 netobj_list_7_element_!_alias=yes
    netobj_list_8_element_!_addr=~ netobj_list_8_element_!_interface=~ netobj_list_8_element_!=~
    netobj_list_8_element_!_deny-x=~ map_num_entries=~ map_num=~ map_numrules=~ map_permit-1_pd=~ map_!_src=~
    dest_num_x=~ netobj_num_list=~ policy_num_x=~ ip_insideaddr=~ a_permit-b=~ deny-a_b=~ def_proxy_*_x=~
    def_proxy_onlyon-a_x=~ policy_deny-#_name=@)");
static const vector<string> patterns(std::istream_iterator<string>(all_patterns), {});

static string any_lines() {
    std::map<char, string> chosen = {
        {'^', any_of({"def_proxy", "cust_proxy", "policy", "netobj_list", "netobj_group"})},
        {'#', any_of({"1", "2", "02", "10"})},
        {'!', any_of({"1", "2", "02", "10"})},
        {'@', any_of({"a", "b", "a_b", "a%b", "deny-p", "1", "", "*", "10"})},
        {'&', any_of({"x", "permit-x", "hosts_0", "deny-Permit-hosts_1", "use_logs", "x_", "hosts", "url_0", "x=y",
                      "permit-relay", "a_1_2", "onlyon-a_b"})},
        {'~', any_of({"", "1", "yes", "eth0", "a+b++c", "1+2+3+4+5+6+7+8+9+10", "v"})},
        {';', "\n"}};
    string made;
    for (char byte : any_of(patterns))
        made += chosen.count(byte) ? chosen[byte] : string(1, byte);
    return made + "\n";
}

using node_texts = std::multiset<string>;

// Each node with its prefixes and value, without what stands empty where a family was; or the values alone.
static void add_nodes(node_texts &nodes, const string &path, const Frag *first, bool values_alone) {
    for (const Frag *frag = first; frag; frag = frag->next) {
        string key = path + "_" + (values_alone ? "" : std::to_string(bits_of(frag))) + frag->name;
        if (frag->value || (path.size() > 12 && !values_alone))
            nodes.insert(key + (frag->value ? "=" + string(frag->value, static_cast<size_t>(frag->vlen)) : ""));
        add_nodes(nodes, key, frag->child, values_alone);
    }
}

// What the reader's tree or the expected one, which goes, has and the other has not, and a line that has no node of the
// tree and yet means something.
static vector<string> differences(const configuration &conf, Frag *expected_tree, bool values_alone = false) {
    node_texts made, expected;
    vector<string> different;
    add_nodes(made, "", conf.tree, values_alone);
    add_nodes(expected, "", expected_tree, values_alone);
    std::set_symmetric_difference(made.begin(), made.end(), expected.begin(), expected.end(),
                                  std::back_inserter(different));
    freelist(expected_tree);
    vector<Frag *> all = nodes_of(conf.tree);
    std::set<const Frag *> nodes(all.begin(), all.end());
    for (const conf_line &line : conf.lines)
        if ((line.role == line_role::setting || line.role == line_role::name) != (nodes.count(line.node) != 0) ||
            (line.node && nodes.count(line.node) == 0))
            different.push_back("line " + std::to_string(line.line));
    return different;
}

static Frag *imported(const string &content, int mode = 0) {
    string path = std::filesystem::temp_directory_path() / ("configuration-" + std::to_string(getpid()));
    std::ofstream(path, std::ios::binary) << content;
    Frag *tree = nullptr;
    importffile(path.c_str(), &tree, mode);
    std::filesystem::remove(path);
    return tree;
}

TEST(configuration_property, any_bytes_are_read_as_the_store_reads_them) {
    const string bytes("abc__==\n\n\r \t1\0\\][", 18);
    const vector<string> parts = {"permit-", "Deny-",       "permit-relay", "onlyon-",
                                  "a_b=",    "\\x\n \t2\n", string(62, 'n')};
    generator.seed(1);
    for (int round = 0; round < 1000; round++) {
        string content = round % 3 == 0 ? "[" : "";
        for (unsigned count = below(50); count > 0; count--)
            content += below(4) ? string(1, bytes[below(round % 2 ? 18 : 13)]) : any_of(parts);
        content += "\n\n=1\n";
        bool has_broken_keys = content.find('[') != string::npos; // whose nodes mean nothing
        for (auto [layout, mode] : {std::pair(conf_layout::as_written, 0), {conf_layout::merged, 1}}) {
            auto conf = read_configuration("c", content, layout);
            ASSERT_EQ(differences(*conf, imported(content, mode), has_broken_keys), vector<string>()) << content;
        }
    }
    auto conf = read_configuration("c", string("\n \na_b=1\nfoo\nbar=2\n[s]\nx=1\\\n 2\n"), conf_layout::as_written);
    vector<size_t> lines;
    for (const conf_line &line : conf->lines)
        for (size_t place : {size_t{line.line}, size_t{line.end_line}, line.begin, line.end})
            lines.push_back(place);
    EXPECT_EQ(lines, (vector<size_t>{3, 3, 3, 9, 4, 5, 9, 19, 7, 8, 23, 31}));
    EXPECT_EQ(conf->line_of(conf->find("s")), 7);
}

TEST(configuration_property, the_tree_is_what_the_passes_make) {
    int rounds = getenv("ROUNDS") ? atoi(getenv("ROUNDS")) : 400;
    for (int round = 0; round < rounds; round++) {
        generator.seed(static_cast<unsigned>(round));
        bool numbered = round % 4 != 0;
        string content = string("version_moatwall.conf=") + (numbered ? "001" : "050") + "\nnetobj_num_list=1\n";
        content += below(5) ? "def_num_proxies=1\ncust_num_proxies=1\n" : "";
        for (unsigned count = below(50); count > 0; count--)
            content += any_lines();
        Frag *tree = imported(content);
        Frag *addresses = fdel(&tree, "ip");
        if (numbered)
            norm_fragtree(&tree);
        else if (Frag *all = ffind(&tree, "def_proxy_*")) {
            renamefrag(all, "global");
            fset(&tree, "def_proxy_global_name", "global");
        }
        if (addresses)
            pushfrag(&tree, addresses, nullptr);
        auto conf = read_configuration("c", content, conf_layout::translated);
        EXPECT_EQ(conf->numbered, numbered);
        for (const char *location : {"Inside", "Outside", "Service"}) { // only the passes make what is missing of these
            list_indexes known;
            string list = string("netobj_list_") + location;
            conf->make(known, nullptr, list + "_element", 0);
            fmake(&fmake(&tree, list.c_str())->child, "element");
        }
        for (const char *family : {"def_proxy", "policy", "netobj_list", "netobj_group"}) // each name finds the same
            for (const Frag *each : configuration::children(ffind(&tree, family), "")) {
                string key = string(family) + "_" + each->name;
                node_texts found, expected;
                add_nodes(found, "", conf->find(key.c_str())->child, false);
                add_nodes(expected, "", ffind(&tree, key.c_str())->child, false);
                ASSERT_EQ(found, expected) << round << " " << key << "\n" << content;
            }
        ASSERT_EQ(differences(*conf, tree), vector<string>()) << round << "\n" << content;
    }
}
