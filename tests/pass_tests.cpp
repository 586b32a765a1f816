// What passes make of small trees, a row a case, in tests/passes/*.case; `support.h` tells how a tree is written.
//
// - pass NAME ARG... ; NAME ARG...: for the rows behind it, passes of the table below in that order, `-` for a null
// - row TREE -> TREE: the database before and after; with `=>` only what a fragment file shows of it is compared
// - row TREE ==: the passes change nothing
// - row TREE ++ FILE => TREE: a pass that takes the name `file` finds FILE there, a text or a tree as lines
// - row FILE -> TREE: if a pass takes the name `row`
// - form ROW: for the `each` behind it, a row with `?` on both sides
// - each TEXT -> TEXT ; TEXT ; ...: what stands for those, in a row each; a single text stands on both sides
//
// These hold up to the next of their kind or the next `pass`:
// - with TREE: the database before, for rows of which a pass takes the name `row`
// - result N: what the last pass returns, if not 0
// - says TEXT: what a row prints on standard error, if not nothing, and with a report there
//
// A line that begins with blanks goes on with the one above, behind one blank, but without it where that one ends in
// `{` or `\n` and no arrow or `++` follows. In all texts \n, \r, \t, \0 are those bytes, and \<63n> is n, 63 times.
// Numbers that go on through the whole process, of maps that rules become and of `dest` records, begin at 1 here.
#include "netperm_support.h"
#include "nupgrade.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <gtest/gtest.h>
#include <map>
#include <regex>

using std::string;

namespace {

struct run {
    FragList db;
    scratch_dir dir;
    std::vector<string> words; // the pass and its arguments

    const char *arg(size_t at) const { return at < words.size() && words[at] != "-" ? words[at].c_str() : nullptr; }
    string path(size_t at) const { return dir.path + "/" + words[at]; }
    string file(size_t at) const { return read_file(path(at)); }
    Frag *frag() const { return ffind(db, arg(1)); }
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

/// The pass with what it numbers below `top`, the lowest of it first, numbered from 1 on.
pass renumbered(const char *top, const pass &inner) {
    return [=](run &r) {
        int result = inner(r), lowest = 0;
        for (Frag *frag = children_of(r.db, top); frag; frag = frag->next)
            lowest = lowest == 0 ? decimal(frag->name) : std::min(lowest, decimal(frag->name));
        for (Frag *frag = children_of(r.db, top); frag; frag = frag->next)
            renumberfrag(frag, decimal(frag->name) - lowest + 1);
        return result;
    };
}

int untrans_all(FragList db) {
    int result = 1;
    for (Frag *proxy = children_of(db, "def_proxy"); proxy; proxy = proxy->next)
        result = untrans_hosts(db, proxy);
    return result;
}

/// Tells each step of a walk as "name:address"; the address `arg` ends the walk.
int tell(Frag *element, const char *name, void *arg) {
    const char *address = element ? fval(&element->child, "addr") : "-";
    fprintf(stderr, "%s:%s\n", name, address ? address : "?");
    return same_text(address, static_cast<const char *>(arg)) ? 7 : 0;
}

int tell_services(FragList db) {
    const char *between = "";
    for (const maprec *row = determine_os_maprec(db); row->proxy; row++, between = " ")
        fprintf(stderr, "%s%s:%s:%s:%s:%s", between, row->proxy, row->service, row->type, row->port, row->exec);
    return 0;
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

/// Replaces the database by what the text tells.
int replace(run &r, const string &text) {
    tree view(text);
    std::swap(*r.db, view.head);
    return 0;
}

/// Keeps nothing but the node of that key.
int keep_only(run &r) {
    tree left;
    left.head = *r.db;
    *r.db = fdel(left, r.arg(1));
    if (*r.db)
        (*r.db)->next = nullptr;
    return 0;
}

const std::map<string, pass> passes = {
    {"importffile", [](run &r) { return importffile(r.path(1).c_str(), r.db, atoi(r.arg(2))); }},
    {"saved", // the database as it is saved and read again
     [](run &r) {
         return exportenv((r.dir.path + "/out").c_str(), atoi(r.arg(1))) + replace(r, read_file(r.dir.path + "/out"));
     }},
    {"only", keep_only},
    {"norm_fragtree", plain(norm_fragtree)},
    {"canon_def", plain(canon_def)},
    {"canon_cust", plain(canon_cust)},
    {"canon_parm", [](run &r) { return canon_parm(r.frag(), r.arg(2), r.arg(3), r.arg(4)); }},
    {"canon_netobj", [](run &r) { return canon_netobj(r.db, r.arg(1)); }},
    {"canon_interfaces", plain(canon_interfaces)},
    {"canon_if", [](run &r) { return canon_if(r.db, r.arg(1)); }},
    {"canon_policy", [](run &r) { return canon_policy(r.db, r.arg(1)); }},
    {"canon_pfrules", plain(canon_pfrules)},
    {"canon_ip", plain(canon_ip)},
    {"norm41", plain(norm41)},
    {"norm_netobj", [](run &r) { return norm_netobj(r.frag()->child, r.arg(2), r.arg(3)); }},
    {"norm_renumber", [](run &r) { return norm_renumber(r.db, r.arg(1), r.arg(2), r.arg(3)); }},
    {"norm_pfrules", [](run &r) { return norm_pfrules(r.db, r.arg(1), r.arg(2)); }},
    {"norm_parm", [](run &r) { return norm_parm(r.frag(), r.arg(2), r.arg(3)); }},
    {"norm_interfaces", plain(norm_interfaces)},
    {"norm_if", [](run &r) { return norm_if(r.db, r.arg(1)); }},
    {"services", plain(tell_services)},
    {"up41", plain(up41)},
    {"norm41states", plain(norm41states)},
    {"enum_netobj", [](run &r) { return enum_netobj(r.db, r.arg(1), tell, const_cast<char *>(r.arg(2))); }},
    {"do_http_hack", plain(do_http_hack)},
    {"readnpt", [](run &r) { return read_table(r.db, r.file(1)), 0; }},
    {"clean_auth_etc", plain(clean_auth_etc)},
    {"conv_plugdata", plain(conv_plugdata)},
    {"untrans_hosts", renumbered("map", plain(untrans_all))},
    {"rules", [](run &r) { return replace(r, rules_of(r.db, r.arg(1))); }},
    {"expand_maps", plain(expand_maps)},
    {"shorten_maps", plain(shorten_maps)},
    {"addparm", addparm_all},
    {"merge_maps", plain(merge_maps)},
    {"conv_dests", renumbered("dest", plain(conv_dests))},
    {"conf_merge", [](run &r) { return conf_merge(r.db, r.path(1).c_str()), 0; }},
    {"xurl2netobj", [](run &r) { return xurl2netobj(r.db, r.arg(1), r.file(2).data()); }},
    {"pre_save_cleanup", plain(pre_save_cleanup)},
    {"copy_50_stuff", [](run &r) { return copy_50_stuff(r.db, tree(r.file(1))); }},
    {"do_55_upgrades", plain(do_55_upgrades)},
};

struct pass_case {
    std::vector<std::vector<string>> passes;
    std::map<string, string> given; // by the first word of the line

    string text(const string &kind) const { return given.count(kind) ? given.at(kind) : ""; }
};

string unescaped(const string &text) {
    string bytes;
    for (size_t at = 0; at < text.size(); at++) {
        if (text.compare(at, 2, "\\<") == 0) {
            const size_t times = std::stoul(text.substr(at + 2));
            at = text.find('>', at);
            bytes.append(times, text[at - 1]);
            continue;
        }
        const char *found = text[at] == '\\' && at + 1 < text.size() ? strchr("n\nr\rt\t0\0", text[at + 1]) : nullptr;
        bytes += found ? found[1] : text[at];
        at += found ? 1 : 0;
    }
    return bytes;
}

// The text in front of the separator, which is cut off with it; all the text if there is none.
string cut_off(string &text, const string &separator) {
    string front = text.substr(0, text.find(separator));
    text.erase(0, std::min(text.size(), front.size() + separator.size()));
    return front;
}

void try_row(const pass_case &c, const string &row) {
    const bool unchanged = row.size() > 2 && row.substr(row.size() - 3) == " ==";
    const bool shown = row.find(" ->") == string::npos;
    string after = row,
           file = cut_off(after, unchanged ? " =="
                                 : shown   ? " =>"
                                           : " ->"),
           before = cut_off(file, " ++ ");
    bool takes_row = false;
    for (const std::vector<string> &words : c.passes)
        takes_row |= std::count(words.begin(), words.end(), "row") != 0;
    tree db(takes_row ? c.text("with") : unescaped(before));
    run r{db, {}, {}};
    r.dir.write("row", unescaped(before));
    file = unescaped(file);
    if (!file.empty())
        r.dir.write("file", file.back() == '\n' ? file : tree(file).text());
    after = unchanged ? dump(db.head) : unescaped(after.substr(std::min<size_t>(1, after.size())));
    testing::internal::CaptureStderr();
    repf = c.given.count("says") ? stderr : nullptr;
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
    EXPECT_EQ(told, unescaped(c.text("says"))) << row;
    EXPECT_EQ(result, atoi(c.text("result").c_str())) << row;
    EXPECT_EQ(shown && !unchanged ? dump(tree(db.text()).head) : dump(db.head), after) << row;
    EXPECT_TRUE(linked(db.head, nullptr)) << row;
}

// Tries the form with each of the small rows.
void try_each(const pass_case &c, string cases) {
    while (!cases.empty()) {
        string right = cut_off(cases, " ; "), row = c.text("form");
        const bool one = right.find(" ->") == string::npos;
        const string left = cut_off(right, " ->");
        right = one ? left : right.substr(std::min<size_t>(1, right.size()));
        size_t at = row.find('?');
        row.replace(at, 1, left);
        for (at += left.size(); (at = row.find('?', at)) != string::npos; at += right.size())
            row.replace(at, 1, right);
        try_row(c, row);
    }
}

// The lines of a file, each with those that it goes on in.
std::vector<string> whole_lines(const string &path) {
    string text = std::regex_replace(read_file(path), std::regex("\n +(->|=>|\\+\\+) "), " $1 ");
    text = std::regex_replace(text, std::regex("(\\{|\\\\n)\n +"), "$1");
    return split(std::regex_replace(text, std::regex("\n +"), " "), '\n');
}

} // namespace

static void try_rows(const string &path) {
    pass_case now;
    for (string rest : whole_lines(path)) {
        if (rest.empty() || rest[0] == '#')
            continue;
        const string kind = cut_off(rest, " ");
        EXPECT_NE(string("pass row each with result says form ").find(kind + " "), string::npos) << kind << " " << rest;
        now.given[kind] = rest;
        if (kind == "pass") {
            now = {};
            while (!rest.empty())
                now.passes.push_back(split(cut_off(rest, " ; "), ' '));
        } else if (kind == "row" || kind == "each") {
            kind == "row" ? try_row(now, rest) : try_each(now, rest);
        }
    }
}

TEST(passes, rows) {
    for (const auto &entry : std::filesystem::directory_iterator(PASSES_DIR))
        try_rows(entry.path().string());
}
