// The fragment-file reader.
//
// A file has two forms. The flat form is a line `a_b_c=value` for each value. A `[` at the start of a component
// switches to the section form for the rest of the file: `[a_b]` goes down from the top, `c=value` sets a value
// there, and a `\` in a value continues it on the next line.
#include "frag_tools.h"
#include "key_filter.h"
#include "name_index.h"
#include "nsym.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <unistd.h>
#include <vector>

namespace {

constexpr size_t BIGBUF_SIZE = 32767;
constexpr size_t NAME_LIMIT = FRAGNAME_SIZE - 1;

char bigbuf[BIGBUF_SIZE];
char fragnam[FRAGNAME_SIZE];

// What the next byte belongs to. The buffer can end in every state, and the next one goes on in it.
enum read_state {
    FLAT_START,    // blanks before a component
    FLAT_NAME,     // a component
    FLAT_VALUE,    // what follows the `=`
    SECTION_START, // the same three in section form
    SECTION_NAME,
    SECTION_VALUE,
    CONTINUATION_SKIP,  // the rest of a line behind a `\`
    CONTINUATION_BLANKS // the blanks at the start of the line behind it
};

struct reader {
    FragList top;
    int mode;
    key_filter *filter; // for an inspection; null if everything is kept
    read_state state = FLAT_START;
    const char *next_return = nullptr; // the next carriage return in the buffer, or the buffer's end
    FragList list;                     // where the next component belongs
    Frag *parent = nullptr;            // the node that has that list, null at the top
    Frag *frag = nullptr;              // the node of the last component
    bool keep;                         // set while the node's value stays and the file's is passed over
    size_t namelen = 0;                // bytes in fragnam
    size_t stored = 0;                 // bytes of this assignment's value that the node has
    size_t room = 0;                   // bytes of the block that they lie in, 0 as long as none is stored

    // Neighbouring lines share most of their path, so the last node that was met on each level is tried first.
    struct step {
        FragList list;
        Frag *frag;
        size_t len;    // of its name
        bool is_plain; // flat form: the file has the name as it is stored
    };
    std::vector<step> path;
    size_t depth = 0;
    list_indexes indexes; // of the lists that have grown long

    reader(FragList target, int import_mode, key_filter *wanted)
        : top(target), mode(import_mode), filter(wanted), list(target), keep(import_mode != 0) {}

    void parse(const char *at, const char *end);

private:
    // One for each state. They take bytes from `at` on; the result is where they stopped, which is `end` if the state
    // goes on in the next buffer.
    const char *flat_start(const char *at, const char *end);
    const char *flat_name(const char *at, const char *end);
    const char *flat_interior(const char *at, const char *end);
    const char *flat_value(const char *at, const char *end);
    const char *section_start(const char *at, const char *end);
    const char *section_name(const char *at, const char *end);
    const char *section_value(const char *at, const char *end);
    const char *continuation_skip(const char *at, const char *end);
    const char *continuation_blanks(const char *at, const char *end);

    void go_top();
    void go_down();
    void find_or_make(const char *name, size_t len);
    void finish_flat_name();
    void begin_value(read_state value_state);
    void end_line(read_state next_state);
    void store(const char *stretch, size_t len);
};

bool is_space(char byte) { return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n'; }

const char *skip_spaces(const char *at, const char *end) {
    while (at < end && is_space(*at))
        at++;
    return at;
}

const char *find_byte(const char *at, const char *end, char byte) {
    const void *found = memchr(at, byte, static_cast<size_t>(end - at));
    return found ? static_cast<const char *>(found) : end;
}

void reader::go_top() {
    list = top;
    parent = nullptr;
    depth = 0;
    if (filter)
        filter->go_top();
}

void reader::go_down() {
    parent = frag;
    list = &frag->child;
    depth++;
    if (filter)
        filter->go_down();
}

// Makes `frag` the node of that name. One that is not wanted gets no node, and what the file says of it is passed over.
void reader::find_or_make(const char *name, size_t len) {
    if (filter) {
        keep = !filter->wants({name, len});
        if (keep) {
            frag = &filter->unwanted;
            return;
        }
    }
    if (depth >= path.size())
        path.push_back({nullptr, nullptr, 0, false});
    step &last = path[depth];
    if (last.list == list && last.len == len && is_named(last.frag, {name, len})) {
        frag = last.frag;
        return;
    }
    const Frag *head = *list;
    frag = indexes.find_or_make(list, {name, len}, parent);
    if (*list != head) // a new node
        keep = false;
    last = {list, frag, len, false};
}

// True for the letters that prefixes and the names of the attribute table begin with. All of these have a `-`.
bool can_begin_attribute(char letter) {
    letter = lowercase(letter);
    return letter == 'p' || letter == 'd' || letter == 'a' || letter == 'o';
}

void reader::finish_flat_name() {
    if (filter && filter->wants_nothing()) {
        find_or_make(fragnam, namelen);
        return;
    }
    fragnam[namelen] = 0;
    const char *name = fragnam;
    long bits = 0;
    bool is_plain = !can_begin_attribute(*name) || !memchr(name, '-', namelen);
    if (!is_plain) {
        name = attr_remap(name);
        bits = strip_attr_prefixes(&name);
        namelen = strlen(name);
    }
    find_or_make(name, namelen);
    frag->attr = bits;
    if (!filter)
        path[depth].is_plain = is_plain;
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

// Adds a stretch of the file to the value of this assignment.
void reader::store(const char *stretch, size_t len) {
    if (len == 0 || keep)
        return;
    size_t needed = stored + len + VALUE_END;
    if (needed > room) {
        // Most values come in one stretch. A longer one gets half as much again, so that what is there is not moved for
        // each stretch that follows, and gives the rest back at the end of the line.
        room = stored == 0 ? needed : needed + needed / 2;
        frag->value = static_cast<char *>(growcore(frag->value, room));
    }
    memcpy(frag->value + stored, stretch, len);
    stored += len;
    frag->value[stored] = 0;
    frag->vlen = static_cast<long>(stored);
}

const char *reader::flat_start(const char *at, const char *end) {
    at = skip_spaces(at, end);
    if (at == end)
        return at;
    if (*at == '[') {
        go_top();
        state = SECTION_START;
        return at + 1;
    }
    if (const char *behind = flat_interior(at, end))
        return behind;
    namelen = 0;
    state = FLAT_NAME;
    return flat_name(at, end);
}

// Takes the component at `at` and its `_` if they are the last ones that were met on this level. Null if they are not.
const char *reader::flat_interior(const char *at, const char *end) {
    if (filter || depth >= path.size())
        return nullptr;
    const step &last = path[depth];
    if (last.list != list || !last.is_plain || static_cast<size_t>(end - at) <= last.len || at[last.len] != '_' ||
        memcmp(at, last.frag->name, last.len) != 0)
        return nullptr;
    frag = last.frag;
    frag->attr = 0;
    go_down();
    return at + last.len + 1;
}

const char *reader::flat_name(const char *at, const char *end) {
    size_t len = namelen; // the member would be read again for each byte
    while (at < end && *at != 0 && *at != '_' && *at != '=' && len < NAME_LIMIT)
        fragnam[len++] = *at++;
    namelen = len;
    if (at == end)
        return at;
    finish_flat_name();
    if (*at == '_') {
        go_down();
        state = FLAT_START;
    } else {
        begin_value(FLAT_VALUE);
    }
    return at + 1;
}

const char *reader::flat_value(const char *at, const char *end) {
    const char *line_end = find_byte(at, end, '\n');
    if (next_return < at)
        next_return = find_byte(at, end, '\r');
    const char *stop = std::min(line_end, next_return);
    store(at, static_cast<size_t>(stop - at));
    if (stop == end)
        return end;
    if (*stop == '\n') {
        end_line(FLAT_START);
        go_top();
    }
    return stop + 1;
}

const char *reader::section_start(const char *at, const char *end) {
    at = skip_spaces(at, end);
    if (at == end)
        return at;
    if (*at == '[') {
        go_top();
        at++;
    }
    namelen = 0;
    state = SECTION_NAME;
    return at;
}

const char *reader::section_name(const char *at, const char *end) {
    for (; at < end && *at != 0 && *at != '\\' && *at != ']' && *at != '=' && *at != '_'; at++)
        if (namelen < NAME_LIMIT)
            fragnam[namelen++] = *at;
    if (at == end)
        return at;
    find_or_make(fragnam, namelen);
    if (*at == '\\' || *at == ']' || *at == '_') {
        go_down();
        state = SECTION_START;
    } else {
        begin_value(SECTION_VALUE);
    }
    return at + 1;
}

const char *reader::section_value(const char *at, const char *end) {
    const char *stop = at;
    while (stop < end && *stop != '\n' && *stop != '\r' && *stop != '\\')
        stop++;
    store(at, static_cast<size_t>(stop - at));
    if (stop == end)
        return end;
    if (*stop == '\n')
        end_line(SECTION_START);
    else if (*stop == '\\')
        state = CONTINUATION_SKIP;
    return stop + 1;
}

const char *reader::continuation_skip(const char *at, const char *end) {
    while (at < end && *at != 0 && *at != '\n')
        at++;
    if (at == end)
        return at;
    state = CONTINUATION_BLANKS;
    return at + 1;
}

const char *reader::continuation_blanks(const char *at, const char *end) {
    while (at < end && is_blank(*at))
        at++;
    if (at < end)
        state = SECTION_VALUE;
    return at;
}

void reader::parse(const char *at, const char *end) {
    next_return = find_byte(at, end, '\r'); // few files have any, so it is looked for once and not in each line
    while (at < end) {
        switch (state) {
        case FLAT_START:
            at = flat_start(at, end);
            break;
        case FLAT_NAME:
            at = flat_name(at, end);
            break;
        case FLAT_VALUE:
            at = flat_value(at, end);
            break;
        case SECTION_START:
            at = section_start(at, end);
            break;
        case SECTION_NAME:
            at = section_name(at, end);
            break;
        case SECTION_VALUE:
            at = section_value(at, end);
            break;
        case CONTINUATION_SKIP:
            at = continuation_skip(at, end);
            break;
        case CONTINUATION_BLANKS:
            at = continuation_blanks(at, end);
            break;
        }
    }
}

int read_file(const char *path, FragList list, int mode, key_filter *filter) {
    int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return 1;
    reader reading(list, mode, filter);
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

int import_current(const char *path, int mode) {
    if (!cur_database)
        cur_database = &def_database;
    return importffile(path, cur_database, mode);
}

} // namespace

int importffile(const char *path, FragList list, int mode) { return read_file(path, list, mode, nullptr); }

int inspectffile(const char *path, FragList list, const char *const *keys) {
    key_filter filter(keys);
    return read_file(path, list, 0, &filter);
}

int importenv(const char *path) { return import_current(path, 0); }

int importinitialenv(const char *path) { return import_current(path, 1); }
