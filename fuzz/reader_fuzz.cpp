// The fragment reader against its grammar taken literally, byte by byte from one buffer, and what it read through the
// writer and back.
#include "fake_system.h"

#include <cstring>
#include <memory>
#include <strings.h>

namespace {

// A tree of the grammar's own, so that nothing of the store's takes part in the verdict.
struct node {
    std::string name, value;
    bool has_value = false;
    long attr = 0;
    std::vector<std::unique_ptr<node>> children; // the newest last
};

node *find(const node &parent, const std::string &name) {
    for (const auto &child : parent.children)
        if (child->name == name)
            return child.get();
    return nullptr;
}

struct name_pair {
    const char *file_name, *stored_name;
};
const name_pair name_pairs[] = {{"permit-route-char", "route-char-permit"},
                                {"deny-route-char", "route-char-deny"},
                                {"permit-relay", "relay-permit"},
                                {"deny-relay", "relay-deny"},
                                {"permit-spam", "spam-permit"},
                                {"deny-spam", "spam-deny"}};

struct prefix_pair {
    const char *prefix;
    long bit;
};
const prefix_pair prefixes[] = {{"permit-", 1}, {"deny-", 2}, {"absorb-", 4}, {"onlyon-", 8}};
const prefix_pair shown_prefixes[] = {{"deny-", 2}, {"permit-", 1}, {"absorb-", 4}, {"onlyon-", 8}};

long take_prefixes(std::string &name) {
    for (const name_pair &pair : name_pairs)
        if (name == pair.file_name) {
            name = pair.stored_name;
            break;
        }
    long bits = 0;
    for (bool more = true; more;) {
        more = false;
        for (const prefix_pair &pair : prefixes)
            if (strncasecmp(name.c_str(), pair.prefix, strlen(pair.prefix)) == 0) {
                bits |= pair.bit;
                name.erase(0, strlen(pair.prefix));
                more = true;
            }
    }
    return bits;
}

// Reads the text as the two forms' rules say.
struct plain_reader {
    const std::string &text;
    node *top;
    bool mode;
    size_t at = 0;
    node *parent = top;
    node *last = nullptr;
    bool keep = mode;
    size_t stored = 0;

    bool is_end() const { return at == text.size(); }
    bool is_one_of(const char *bytes) const {
        return text[at] == 0 || std::string_view(bytes).find(text[at]) != std::string_view::npos;
    }
    void skip_space() {
        while (!is_end() && (text[at] == ' ' || text[at] == '\t' || text[at] == '\r' || text[at] == '\n'))
            at++;
    }
    void find_or_make(const std::string &name) {
        last = find(*parent, name);
        if (!last) {
            parent->children.push_back(std::make_unique<node>());
            last = parent->children.back().get();
            last->name = name;
            keep = false;
        }
    }
    void store(const std::string &stretch) {
        if (stretch.empty() || keep)
            return;
        last->value.resize(stored);
        last->value += stretch;
        last->has_value = true;
        stored = last->value.size();
    }
    void end_line() {
        last->has_value = true;
        keep = mode;
    }

    void read_flat() {
        for (;;) {
            skip_space();
            if (is_end())
                return;
            if (text[at] == '[') {
                at++;
                parent = top;
                read_sections();
                return;
            }
            std::string name;
            while (!is_end() && !is_one_of("_=") && name.size() < 63)
                name += text[at++];
            if (is_end())
                return;
            long bits = take_prefixes(name);
            find_or_make(name);
            last->attr = bits;
            if (text[at++] == '_') {
                parent = last;
                continue;
            }
            stored = 0;
            for (std::string stretch;;) {
                while (!is_end() && text[at] != '\n' && text[at] != '\r')
                    stretch += text[at++];
                store(stretch);
                stretch.clear();
                if (is_end())
                    return;
                if (text[at++] == '\n')
                    break;
            }
            end_line();
            parent = top;
        }
    }

    void read_sections() {
        for (;;) {
            skip_space();
            if (!is_end() && text[at] == '[') {
                at++;
                parent = top;
            }
            std::string name;
            for (; !is_end() && !is_one_of("\\]=_"); at++)
                if (name.size() < 63)
                    name += text[at];
            if (is_end())
                return;
            find_or_make(name);
            char byte = text[at++];
            if (byte == '\\' || byte == ']' || byte == '_') {
                parent = last;
                continue;
            }
            stored = 0;
            for (;;) {
                std::string stretch;
                while (!is_end() && text[at] != '\n' && text[at] != '\r' && text[at] != '\\')
                    stretch += text[at++];
                store(stretch);
                if (is_end())
                    return;
                byte = text[at++];
                if (byte == '\n')
                    break;
                if (byte == '\\') {
                    while (!is_end() && text[at] != 0 && text[at] != '\n')
                        at++;
                    if (is_end())
                        return;
                    at++;
                    while (!is_end() && (text[at] == ' ' || text[at] == '\t'))
                        at++;
                    if (is_end())
                        return;
                }
            }
            end_line();
        }
    }
};

// True if the list is that of the node: the newest first or, read back from a file, the oldest first.
bool is_same(const Frag *frag, const node &expected, bool newest_first) {
    size_t count = expected.children.size();
    for (size_t i = 0; i < count; i++, frag = frag->next) {
        const node &child = *expected.children[newest_first ? count - 1 - i : i];
        if (!frag || child.name != frag->name || child.attr != frag->attr ||
            child.has_value != (frag->value != nullptr))
            return false;
        if (frag->value && child.value != std::string_view(frag->value, static_cast<size_t>(frag->vlen)))
            return false;
        if (!is_same(frag->child, child, newest_first))
            return false;
    }
    return !frag;
}

std::string shown_name(const node &frag) {
    std::string name = frag.name;
    for (const name_pair &pair : name_pairs)
        if (name == pair.stored_name) {
            name = pair.file_name;
            break;
        }
    for (const prefix_pair &pair : shown_prefixes)
        if (frag.attr & pair.bit)
            return pair.prefix + name;
    return name;
}

// Reduces the tree to what a file can show. False if some name would read back as another one or if a key is too long
// for the writer.
bool reduce_to_shown(node &parent, size_t key_len) {
    for (size_t i = 0; i < parent.children.size();) {
        node &child = *parent.children[i];
        std::string shown = shown_name(child);
        std::string back = shown;
        for (const prefix_pair &pair : shown_prefixes)
            if (child.attr & pair.bit) {
                child.attr = pair.bit;
                break;
            }
        long bits = take_prefixes(back);
        size_t len = key_len + shown.size();
        if (back != child.name || bits != child.attr || shown.size() > 63 || len >= 1000 ||
            (!child.children.empty() && key_len >= 180) || (!shown.empty() && strchr(" \t\r\n[", shown[0])))
            return false;
        if (!reduce_to_shown(child, len + 1))
            return false;
        if (!child.has_value && child.children.empty())
            parent.children.erase(parent.children.begin() + static_cast<long>(i));
        else
            i++;
    }
    return true;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    if (size > 1 << 16)
        return 0;
    uint64_t hash = hash_of(data, size);
    // Two files, the second read in either mode into what the first made.
    size_t cut = hash % 3 ? size : hash / 3 % (size + 1);
    std::string first(reinterpret_cast<const char *>(data), cut);
    std::string second(reinterpret_cast<const char *>(data) + cut, size - cut);
    bool mode = hash >> 40 & 1;

    node expected;
    plain_reader{first, &expected, false}.read_flat();
    plain_reader{second, &expected, mode}.read_flat();

    files.clear();
    files["first"] = first;
    files["second"] = second;
    bool same = true;
    int status = run(hash, [&] {
        importffile("first", &def_database, 0);
        importffile("second", &def_database, mode);
        check_tree(&def_database);
        same = is_same(def_database, expected, true);
        exportffile("out", &def_database, 50);
        check_tree(&def_database);
    });
    check(same, "another tree than that of the grammar");
    if (status != -1)
        return 0;

    bool shown = reduce_to_shown(expected, 0);
    std::string saved = files["out"];
    status = run(hash >> 7, [&] {
        importffile("out", &def_database, 0);
        if (shown)
            same = is_same(def_database, expected, false);
        exportffile("again", &def_database, 50);
    });
    check(same, "another tree read back");
    if (shown && status == -1)
        check(files["again"].size() == saved.size(), "another file written from what was read back");
    return 0;
}
