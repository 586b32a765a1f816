// The fragment-file reader.
//
// Two forms, one grammar. The flat form is a line `a_b_c=value` for each value. A `[` at the start of a component
// switches to the section form for the rest of the file: `[a_b]` goes down from the top, `c=value` sets a value
// there, and a `\` in a value continues it on the next line.
#include "frag_tools.h"
#include "name_index.h"
#include "nsym.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t BIGBUF_SIZE = 32767;
constexpr size_t NAME_LIMIT = FRAGNAME_SIZE - 1;

char bigbuf[BIGBUF_SIZE];
char fragnam[FRAGNAME_SIZE];

// Every state can be left at the end of the buffer and taken up again at the start of the next one, so that a
// boundary anywhere changes nothing.
enum read_state {
    FLAT_START,    // blanks before a component
    FLAT_NAME,     // inside one
    FLAT_VALUE,    // behind the `=`
    SECTION_START, // the same three in section form
    SECTION_NAME,
    SECTION_VALUE,
    CONTINUATION_SKIP,  // the rest of a line behind a `\`
    CONTINUATION_BLANKS // the blanks at the start of the line behind it
};

struct reader {
    FragList top;
    int mode;
    read_state state = FLAT_START;
    FragList list;          // where the next component belongs
    Frag *parent = nullptr; // the node that has that list, null at the top
    Frag *frag = nullptr;   // the node of the last component
    bool keep;              // set while a value that is there wins over the file's
    size_t namelen = 0;     // bytes in fragnam
    size_t stored = 0;      // bytes of the value of this assignment that the node has
    size_t room = 0;        // bytes of the block that they lie in, 0 as long as none is stored

    // Neighbouring lines share most of their path, so each depth remembers the last node that was met there.
    struct step {
        FragList list;
        Frag *frag;
        size_t len; // of its name
    };
    std::vector<step> path;
    size_t depth = 0;
    list_indexes indexes; // of the lists that have grown long

    // For inspection only what `keys` lead to is kept, and `nowhere` stands for all else. What is left of the key that
    // leads here, and of the one that leads below the node of the last component; null if none does.
    const char *const *keys = nullptr; // null: all is kept
    const char *here = nullptr;
    const char *below = nullptr;
    Frag nowhere{};

    reader(FragList target, int import_mode) : top(target), mode(import_mode), list(target), keep(import_mode != 0) {}

    void parse(const char *at, const char *end);
    void go_top();
    void go_down();
    bool is_wanted(std::string_view name);
    void go_nowhere();
    const char *take_flat_name(const char *at, const char *end);
    void find_or_make(const char *name, size_t len);
    void finish_flat_name();
    void begin_value(read_state value_state);
    void end_line(read_state next_state);
    void store(const char *stretch, size_t len);
};

bool is_space(char byte) { return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n'; }

const char *find_byte(const char *at, const char *end, char byte) {
    const void *found = memchr(at, byte, static_cast<size_t>(end - at));
    return found ? static_cast<const char *>(found) : end;
}

void reader::go_top() {
    list = top;
    parent = nullptr;
    depth = 0;
}

void reader::go_down() {
    parent = frag;
    list = &frag->child;
    depth++;
    here = below;
}

// True if the key leads to a component of that name, and on to `below`; behind its last `_` it leads to everything.
bool leads_to(const char *key, std::string_view name, const char **below) {
    *below = key;
    if (!key || !*key)
        return key;
    std::string_view component = key_component(key);
    key += component.size();
    *below = *key == '_' ? key + 1 : nullptr;
    return component == name;
}

bool reader::is_wanted(std::string_view name) {
    if (depth != 0)
        return leads_to(here, name, &below);
    for (const char *const *key = keys; *key; key++)
        if (leads_to(*key, name, &below))
            return true;
    return false;
}

// Adds the bytes up to the end of a name in flat form to `fragnam`. The result is where that ended.
const char *reader::take_flat_name(const char *at, const char *end) {
    size_t len = namelen; // the member would be read again for each byte
    while (at < end && *at != 0 && *at != '_' && *at != '=' && len < NAME_LIMIT)
        fragnam[len++] = *at++;
    namelen = len;
    return at;
}

void reader::go_nowhere() {
    frag = &nowhere;
    below = nullptr;
    keep = true;
}

void reader::find_or_make(const char *name, size_t len) {
    if (keys) {
        if (!is_wanted({name, len})) {
            go_nowhere();
            return;
        }
        keep = false;
    }
    if (depth >= path.size())
        path.push_back({nullptr, nullptr, 0});
    step &last = path[depth];
    if (last.list == list && last.len == len && is_named(last.frag, {name, len})) {
        frag = last.frag;
        return;
    }
    const Frag *head = *list;
    frag = indexes.find_or_make(list, {name, len}, parent);
    if (*list != head)
        keep = false;
    last = {list, frag, len};
}

// True for the letters that prefixes and the names of the attribute table begin with. All of these have a `-`.
bool can_begin_attribute(char letter) {
    letter = lowercase(letter);
    return letter == 'p' || letter == 'd' || letter == 'a' || letter == 'o';
}

void reader::finish_flat_name() {
    if (keys && depth != 0 && !here) {
        go_nowhere();
        return;
    }
    fragnam[namelen] = 0;
    const char *name = fragnam;
    long bits = 0;
    if (can_begin_attribute(*name) && memchr(name, '-', namelen)) {
        name = attr_remap(name);
        bits = strip_attr_prefixes(&name);
        namelen = strlen(name);
    }
    find_or_make(name, namelen);
    frag->attr = bits;
}

void reader::begin_value(read_state value_state) {
    stored = 0;
    room = 0;
    state = value_state;
}

void reader::end_line(read_state next_state) {
    if (!frag->value) {
        frag->value = static_cast<char *>(getcore(VALUE_END));
        frag->value[0] = 0;
    } else if (room > stored + VALUE_END) {
        frag->value = static_cast<char *>(growcore(frag->value, stored + VALUE_END));
    }
    keep = mode != 0;
    state = next_state;
}

void reader::store(const char *stretch, size_t len) {
    if (len == 0 || keep)
        return;
    size_t needed = stored + len + VALUE_END;
    if (needed > room) {
        // Most values come in one piece. One that doesn't gets half as much again, so that the pieces in front are not
        // moved once for each that follows; the end of the line gives back what is left.
        room = stored == 0 ? needed : needed + needed / 2;
        frag->value = static_cast<char *>(growcore(frag->value, room));
    }
    memcpy(frag->value + stored, stretch, len);
    stored += len;
    frag->value[stored] = 0;
    frag->vlen = static_cast<long>(stored);
}

void reader::parse(const char *at, const char *end) {
    const char *next_return = find_byte(at, end, '\r'); // few files have any, so it is looked for ahead of the lines
    while (at < end) {
        switch (state) {
        case FLAT_START:
            while (at < end && is_space(*at))
                at++;
            if (at == end)
                return;
            if (*at == '[') {
                at++;
                go_top();
                state = SECTION_START;
                break;
            }
            namelen = 0;
            state = FLAT_NAME;
            [[fallthrough]];

        case FLAT_NAME:
            at = take_flat_name(at, end);
            if (at == end)
                return;
            finish_flat_name();
            if (*at++ == '_') {
                go_down();
                state = FLAT_START;
            } else {
                begin_value(FLAT_VALUE);
            }
            break;

        case FLAT_VALUE: {
            const char *line_end = find_byte(at, end, '\n');
            if (next_return < at)
                next_return = find_byte(at, end, '\r');
            const char *stop = std::min(line_end, next_return);
            store(at, static_cast<size_t>(stop - at));
            if (stop == end)
                return;
            at = stop + 1;
            if (*stop == '\n') {
                end_line(FLAT_START);
                go_top();
            }
            break;
        }

        case SECTION_START:
            while (at < end && is_space(*at))
                at++;
            if (at == end)
                return;
            if (*at == '[') {
                at++;
                go_top();
            }
            namelen = 0;
            state = SECTION_NAME;
            break;

        case SECTION_NAME:
            for (; at < end && *at != 0 && *at != '\\' && *at != ']' && *at != '=' && *at != '_'; at++)
                if (namelen < NAME_LIMIT)
                    fragnam[namelen++] = *at;
            if (at == end)
                return;
            fragnam[namelen] = 0;
            find_or_make(fragnam, namelen);
            if (*at == '\\' || *at == ']' || *at == '_') {
                go_down();
                state = SECTION_START;
            } else {
                begin_value(SECTION_VALUE);
            }
            at++;
            break;

        case SECTION_VALUE: {
            const char *stop = at;
            while (stop < end && *stop != '\n' && *stop != '\r' && *stop != '\\')
                stop++;
            store(at, static_cast<size_t>(stop - at));
            if (stop == end)
                return;
            at = stop + 1;
            if (*stop == '\n')
                end_line(SECTION_START);
            else if (*stop == '\\')
                state = CONTINUATION_SKIP;
            break;
        }

        case CONTINUATION_SKIP:
            while (at < end && *at != 0 && *at != '\n')
                at++;
            if (at == end)
                return;
            at++;
            state = CONTINUATION_BLANKS;
            break;

        case CONTINUATION_BLANKS:
            while (at < end && is_blank(*at))
                at++;
            if (at == end)
                return;
            state = SECTION_VALUE;
            break;
        }
    }
}

} // namespace

static int read_file(const char *path, reader &reading) {
    int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return 1;
    for (;;) {
        ssize_t bigbufcnt = read(file, bigbuf, BIGBUF_SIZE - 1);
        if (bigbufcnt < 0 && errno == EINTR)
            continue;
        if (bigbufcnt <= 0)
            break;
        reading.parse(bigbuf, bigbuf + bigbufcnt);
    }
    close(file);
    return 0;
}

int importffile(const char *path, FragList list, int mode) {
    reader reading(list, mode);
    return read_file(path, reading);
}

int inspectffile(const char *path, FragList list, const char *const *keys) {
    static char nothing[] = "";
    reader reading(list, 0);
    reading.keys = keys;
    reading.nowhere.value = nothing;
    return read_file(path, reading);
}

static int import_current(const char *path, int mode) {
    if (!cur_database)
        cur_database = &def_database;
    return importffile(path, cur_database, mode);
}

int importenv(const char *path) { return import_current(path, 0); }

int importinitialenv(const char *path) { return import_current(path, 1); }
