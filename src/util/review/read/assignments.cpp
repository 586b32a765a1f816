// Configurations by their grammar, assignment by assignment, and the tree of what they say as it is written.
//
// A reader of its own, so that what the store reads can be held against it. It differs from the store in one thing: no
// key is longer than the store could render, since a long section path would stand in every key below.
#include "frag_tools.h"
#include "read/configuration.h"

#include <algorithm>
#include <utility>

using namespace std::string_view_literals;

namespace {

constexpr size_t NAME_LIMIT = FRAGNAME_SIZE - 1;
constexpr size_t KEY_LIMIT = 1020; // a component that would bring those in front of the last beyond it is left out

struct line_reader {
    configuration &conf;
    bool merged;        // a value stays unless its node is new
    bool keep = merged; // of the node that is read
    std::string_view bytes = conf.bytes;
    list_indexes indexes{};
    size_t at = 0;
    size_t counted = 0; // the bytes whose line ends are in `line`
    uint32_t line = 1;
    bool sections = false; // from the first `[` to the end of the file
    std::string path{};    // the components in front of the one that is read, each with its `_`
    Frag *node = nullptr;  // of the last of them
    std::string name{};
    long name_bits = 0;
    conf_line current{};

    bool at_end() const { return at == bytes.size(); }
    uint32_t line_here() {
        std::string_view passed = bytes.substr(counted, at - counted);
        line += static_cast<uint32_t>(std::count(passed.begin(), passed.end(), '\n'));
        counted = at;
        return line;
    }
    // A text as a view: the bytes that begin at `from` if they are the same, else a copy that stays.
    std::string_view view_of(const std::string &text, size_t from) {
        std::string_view there = bytes.substr(from, text.size());
        return there == text ? there : std::string_view(conf.keep(text), text.size());
    }

    // Goes to the next component. True if a bracket stands there, which leads back to the top.
    bool begin_name() {
        at = std::min(bytes.find_first_not_of(" \t\r\n", at), bytes.size());
        if (at_end() || bytes[at] != '[')
            return false;
        at++;
        // Blanks are passed over behind the bracket that begins the form, not behind a later one.
        if (!std::exchange(sections, true))
            begin_name();
        return true;
    }

    // Takes the bytes up to the end of a component; those that are more than the limit are left out, or end it in the
    // flat form. False if the file ends in it.
    bool take_name() {
        std::string_view rest = bytes.substr(at, sections ? bytes.npos : NAME_LIMIT);
        rest = rest.substr(0, rest.find_first_of(sections ? "\0\\]=_"sv : "\0_="sv));
        name = rest.substr(0, NAME_LIMIT);
        at += rest.size();
        name_bits = 0;
        if (!sections && name.find('-') != name.npos) { // else it has no prefix and is not mapped
            const char *text = stored_attribute(name.c_str());
            name_bits = take_prefixes(&text);
            name = std::string(text);
        }
        return !at_end();
    }

    long number() const { return static_cast<long>(conf.lines.size() + 1); }

    // The node of the component; every flat line sets the bits of all that its key names.
    Frag *make_node() {
        size_t known = conf.nodes.size();
        Frag *made = conf.make(indexes, node, name, number());
        keep = keep && conf.nodes.size() == known;
        if (!sections)
            made->attr = (made->attr & ~15L) | name_bits;
        return made;
    }

    // Whether the component behind the path names a record, whose prefix is part of that name.
    bool is_record() const {
        auto is_in = [this](std::string_view front, std::string_view back, long depth) {
            return has_prefix(path.c_str(), front) && std::count(path.begin(), path.end(), '_') == depth &&
                   path.size() >= back.size() && path.compare(path.size() - back.size(), back.size(), back) == 0;
        };
        return is_in("def_proxy_", "", 2) || is_in("netobj_list_", "", 2) || is_in("netobj_group_", "", 2) ||
               is_in("def_proxy_", "_config-sets_", 4) || is_in("policy_", "", 1) || is_in("policy_", "_proxy_", 3);
    }

    // Takes the components up to the one that ends the key. False if the file ends in them.
    bool take_key() {
        for (bool begins = true;;) {
            bool is_bracket = begin_name();
            if (is_bracket || (begins && !sections)) {
                path.clear();
                node = nullptr;
            }
            if (is_bracket || begins) {
                current = {};
                current.begin = at;
                current.line = line_here();
            }
            if (!take_name())
                return false;
            char delimiter = bytes[at++];
            if (name_bits != 0 && !is_record())
                current.bits = static_cast<uint8_t>(current.bits | name_bits);
            if (delimiter != '_' && (!sections || (delimiter != '\\' && delimiter != ']'))) {
                current.key = view_of(path + name, current.begin);
                return true;
            }
            if (path.size() + name.size() < KEY_LIMIT) {
                node = make_node();
                path += name + '_';
            }
            begins = delimiter == ']';
        }
    }

    // False for an empty value that the file's end cuts off, which doesn't stand.
    bool take_value() {
        size_t from = at;
        std::string value;
        for (;;) {
            size_t stop = std::min(sections ? bytes.find_first_of("\n\\", at) : bytes.find('\n', at), bytes.size());
            value += bytes.substr(at, stop - at);
            at = stop;
            if (at_end() || bytes[at] == '\n')
                break;
            // The rest of a continued line goes, and the blanks in front of the next.
            at = std::min(bytes.find_first_of("\0\n"sv, at), bytes.size() - 1) + 1;
            at = std::min(bytes.find_first_not_of(" \t", at), bytes.size());
        }
        value.erase(std::remove(value.begin(), value.end(), '\r'), value.end());
        current.value = view_of(value, from);
        current.end_line = line_here();
        if (at_end() && value.empty())
            return false;
        current.end = at = std::min(at + 1, bytes.size());
        current.section_form = sections;
        return true;
    }

    void read() {
        conf.lines.reserve(static_cast<size_t>(
            std::min(std::count(bytes.begin(), bytes.end(), '\n'), std::count(bytes.begin(), bytes.end(), '='))));
        while (take_key() && take_value()) {
            Frag *made = current.node = make_node();
            if (!made->value || (!keep && !current.value.empty())) {
                conf.set_value(made, keep ? "" : current.value);
                made->attr = bits_of(made) | number() << 4;
            }
            keep = merged;
            conf.lines.push_back(current);
        }
    }
};

} // namespace

void read_assignments(configuration &conf, conf_layout layout) {
    line_reader{conf, layout == conf_layout::merged}.read();
}
