// Cases as data: every file tests/passes/*.case shows what passes make of a database.
//
// Blank lines and comments (`#`) stand between the cases of a file; a comment right in front of a case names it. A
// section is a line that tells its kind, then its text, then a line `end`. A case holds in this order:
//
//     pass NAME ARG...    a row of the table below, `-` for a null; several run one after the other, and none stands
//                         for those of the case in front
//     result N            what the last pass must return, if not 0
//     in ... end          the database before, as the lines of a fragment file, siblings in list order; if not empty
//     file NAME ... end   a further input, for a pass that takes a file's name
//     stderr ... end      what must be printed there, if not nothing; reports go there where this section is
//     out ... end         the database behind the passes, as lines in list order, or what was saved if they saved
//
// The last section can be `dump` instead, for what no file shows: name:bits=value{children}, a line end being a
// blank. Or it is the one line `unchanged`. A whole case in one line, with the passes of the one in front or its own:
//
//     row TEXT -> DUMP    TEXT is the database before, or the file `row` if a pass names that; \n, \r, \t and \0 in
//                         both stand for those bytes, any other backslash for itself
//
// Numbers that go on through the whole process, those of maps that a table's rules become and of `dest` records, are
// shown from 1 on if the database had none before.
#include "dump.h"
#include "netperm_support.h"
#include "nupgrade.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <sstream>

using std::string;

namespace {

struct run {
    FragList db;
    scratch_dir dir;
    std::vector<string> words; // the pass and its arguments
    bool saved = false;

    const char *arg(size_t at) const { return at < words.size() && words[at] != "-" ? words[at].c_str() : nullptr; }
    int number(size_t at) const { return at < words.size() ? decimal(words[at].c_str()) : 0; }
    string path(size_t at) const { return dir.path + "/" + (at < words.size() ? words[at] : "none"); }
    string file(size_t at) const { return read_file(path(at)); }
    Frag *frag() const { return ffind(db, arg(1) ? arg(1) : ""); }
    Frag *children() const { return frag() ? frag()->child : nullptr; }
};
using pass = std::function<int(run &)>;

template <typename Function> pass plain(Function function) {
    return [function](run &r) {
        if constexpr (std::is_void_v<decltype(function(r.db))>)
            return function(r.db), 0;
        else
            return function(r.db);
    };
}

pass keyed(int (*function)(FragList, const char *)) {
    return [function](run &r) { return function(r.db, r.arg(1)); };
}

/// The pass with what it numbers below `top` from `first()` on numbered from 1 on.
pass renumbered(const char *top, int (*first)(), const pass &inner) {
    return [=](run &r) {
        int from = first(), result = inner(r);
        Frag *family = ffind(r.db, top);
        for (Frag *frag = family ? family->child : nullptr; frag; frag = frag->next)
            renumberfrag(frag, decimal(frag->name) - from + 1);
        return result;
    };
}

int untrans_all(FragList db) {
    translation run(db);
    int result = 1;
    Frag *def_proxy = ffind(db, "def_proxy");
    for (Frag *proxy = def_proxy ? def_proxy->child : nullptr; proxy; proxy = proxy->next)
        result = untrans_hosts(run, proxy);
    return result;
}

/// Tells each step of a walk as "name:address"; the address `arg` ends the walk.
int tell(Frag *element, const char *name, void *arg) {
    const char *address = element ? fval(&element->child, "addr") : "-";
    fprintf(stderr, "%s:%s\n", name, address ? address : "?");
    return same_text(address, static_cast<const char *>(arg)) ? 7 : 0;
}

/// Gives all below `attributes` to the config set `set` of the proxy that the argument names.
int addparm_all(run &r) {
    Frag *attributes = fdel(r.db, "attributes"), *set = ffind(r.db, "set");
    while (Frag *attribute = attributes->child) {
        attributes->child = attribute->next;
        attribute->parent = set;
        addparm(set, attribute, r.arg(1));
    }
    freefrag(attributes);
    return 0;
}

/// Replaces the database by a short view of what its rules have become.
int show_rules(run &r) {
    tree view(rules_of(r.db, r.arg(1)));
    std::swap(*r.db, view.head);
    return 0;
}

const std::map<string, pass> passes = {
    {"importffile", [](run &r) { return importffile(r.path(1).c_str(), r.db, r.number(2)); }},
    {"exportenv", [](run &r) { return r.saved = true, exportenv((r.dir.path + "/saved").c_str(), r.number(1)); }},
    {"norm_fragtree", plain(norm_fragtree)},
    {"canon_def", plain(canon_def)},
    {"canon_cust", plain(canon_cust)},
    {"canon_parm", [](run &r) { return canon_parm(r.frag(), r.arg(2), r.arg(3), r.arg(4)); }},
    {"canon_netobj", keyed(canon_netobj)},
    {"canon_interfaces", plain(canon_interfaces)},
    {"canon_policy", keyed(canon_policy)},
    {"canon_pfrules", plain(canon_pfrules)},
    {"canon_ip", plain(canon_ip)},
    {"norm41", plain(norm41)},
    {"norm_netobj", [](run &r) { return norm_netobj(r.children(), r.arg(2), r.arg(3)); }},
    {"norm_renumber", [](run &r) { return norm_renumber(r.db, r.arg(1), r.arg(2), r.arg(3)); }},
    {"norm_pfrules", [](run &r) { return norm_pfrules(r.db, r.arg(1), r.arg(2)); }},
    {"norm_vpndata", keyed(norm_vpndata)},
    {"norm_parm", [](run &r) { return norm_parm(r.frag(), r.arg(2), r.arg(3)); }},
    {"norm_interfaces", plain(norm_interfaces)},
    {"up41", plain(up41)},
    {"norm41states", plain(norm41states)},
    {"enum_netobj", [](run &r) { return enum_netobj(r.db, r.arg(1), tell, const_cast<char *>(r.arg(2))); }},
    {"do_http_hack", plain(do_http_hack)},
    {"readnpt", [](run &r) { return read_table(r.db, r.file(1)), 0; }},
    {"clean_auth_etc", plain(clean_auth_etc)},
    {"conv_plugdata", plain(conv_plugdata)},
    {"untrans_hosts", renumbered("map", next_map_number, plain(untrans_all))},
    {"rules", show_rules},
    {"expand_maps", plain(expand_maps)},
    {"shorten_maps", plain(shorten_maps)},
    {"addparm", addparm_all},
    {"merge_maps", plain(merge_maps)},
    {"conv_dests", renumbered("dest", next_dest_number, plain(conv_dests))},
    {"netperm_pass",
     renumbered("dest", next_dest_number, [](run &r) { return netperm_pass(r.path(1).c_str(), 32), 0; })},
    {"conf_merge", [](run &r) { return conf_merge(r.db, r.path(1).c_str()), 0; }},
    {"xurl2netobj", [](run &r) { return xurl2netobj(r.db, r.arg(1), r.file(2).data()); }},
    {"pre_save_cleanup", plain(pre_save_cleanup)},
    {"copy_50_stuff", [](run &r) { return copy_50_stuff(r.db, tree(r.file(1))); }},
    {"do_55_upgrades", plain(do_55_upgrades)},
};

struct pass_case {
    string name;
    std::vector<std::vector<string>> passes;
    std::map<string, string> sections; // by their first line
    int result = 0;
};

string unescaped(const string &text) {
    string bytes;
    for (size_t at = 0; at < text.size(); at++) {
        const char *found = text[at] == '\\' && at + 1 < text.size() ? strchr("n\nr\rt\t0\0", text[at + 1]) : nullptr;
        bytes += found ? found[1] : text[at];
        at += found ? 1 : 0;
    }
    return bytes;
}

void add_row(pass_case &now, const string &row) {
    size_t arrow = std::min(row.find(" ->"), row.size());
    auto takes_it = [](const std::vector<string> &words) { return std::count(words.begin(), words.end(), "row") != 0; };
    bool file = std::any_of(now.passes.begin(), now.passes.end(), takes_it);
    now.sections[file ? "file row" : "in"] = unescaped(row.substr(0, arrow));
    now.sections["dump"] = unescaped(row.substr(std::min(row.size(), arrow + strlen(" -> ")))) + " ";
}

std::ostream &operator<<(std::ostream &out, const pass_case &one) { return out << one.name; }

void read_cases(const std::filesystem::path &path, std::vector<pass_case> &cases) {
    std::istringstream lines(read_file(path.string()));
    pass_case now;
    string comment;
    int number = 0;
    bool began = false; // the passes are this case's own
    for (string line; std::getline(lines, line);) {
        number++;
        string word = line.substr(0, line.find(' ')), rest = line.substr(std::min(line.size(), word.size() + 1));
        if (line.empty() || line[0] == '#') {
            comment = line.empty() ? "" : comment + line;
        } else if (word == "pass") {
            now.passes.resize(began ? now.passes.size() : 0);
            now.passes.push_back(split(rest, ' '));
            began = true;
        } else if (word == "result") {
            now.result = decimal(rest.c_str());
        } else {
            string text;
            if (word == "row")
                add_row(now, rest);
            else if (word == "unchanged")
                now.sections["dump"] = dump(tree(now.sections["in"]).head) + " ";
            else
                for (string more; std::getline(lines, more) && ++number && more != "end";)
                    text += more + (line == "dump" ? " " : "\n");
            now.sections.emplace(line, text);
            if (word != "row" && word != "out" && word != "dump" && word != "unchanged")
                continue;
            now.name = path.stem().string() + "_line_" + std::to_string(number) + comment;
            for (char &byte : now.name)
                byte = isalnum(static_cast<unsigned char>(byte)) ? byte : '_';
            cases.push_back(now);
            now = pass_case{"", now.passes, {}, 0};
            comment.clear();
            began = false;
        }
    }
    if (began || !now.sections.empty())
        throw std::runtime_error("unfinished case in " + path.string());
}

std::vector<pass_case> all_cases() {
    std::vector<pass_case> cases;
    for (const auto &entry : std::filesystem::directory_iterator(PASSES_DIR))
        if (entry.path().extension() == ".case")
            read_cases(entry.path(), cases);
    return cases;
}

struct on_database : testing::TestWithParam<pass_case> {};

TEST_P(on_database, gives) {
    pass_case c = GetParam();
    tree db(c.sections["in"]);
    run r{db, {}, {}};
    for (const auto &[key, text] : c.sections)
        if (has_prefix(key.c_str(), "file "))
            r.dir.write(key.substr(strlen("file ")), text);
    for (const std::vector<string> &words : c.passes)
        ASSERT_EQ(passes.count(words[0]), 1U) << words[0];
    testing::internal::CaptureStderr();
    repf = c.sections.count("stderr") ? stderr : nullptr;
    int result = 0;
    for (const std::vector<string> &words : c.passes) {
        cur_database = db;
        r.words = words;
        result = passes.at(words[0])(r);
    }
    cur_database = nullptr;
    repf = nullptr;
    string told = testing::internal::GetCapturedStderr();
    for (size_t at; (at = told.find(r.dir.path + "/")) != string::npos;)
        told.erase(at, r.dir.path.size() + 1);
    EXPECT_EQ(told, c.sections["stderr"]);
    EXPECT_EQ(result, c.result);
    if (c.sections.count("dump"))
        EXPECT_EQ(dump(db.head) + " ", c.sections["dump"]);
    else
        EXPECT_EQ(r.saved ? read_file(r.dir.path + "/saved") : db.text(), c.sections["out"]);
    EXPECT_TRUE(linked(db.head, nullptr));
}

INSTANTIATE_TEST_SUITE_P(passes, on_database, testing::ValuesIn(all_cases()),
                         [](const auto &one) { return one.param.name; });

} // namespace
