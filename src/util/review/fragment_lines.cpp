// Fragment files by their grammar, assignment by assignment.
//
// A reader of its own, so that what the store reads can be held against it. It differs from the store in
// one thing: no key is longer than the store could render, since a long section path would stand in every key below.
#include "fragment_lines.h"
#include "frag_tools.h"
#include "nsym.h"

#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <unistd.h>

namespace {

constexpr size_t NAME_LIMIT = FRAGNAME_SIZE - 1;
constexpr size_t KEY_LIMIT = 1020; // a component that would bring a key beyond it is left out, as in a rendered key

struct line_reader {
    enum place { FLAT_BLANKS, FLAT_NAME, VALUE, SECTION_BLANKS, SECTION_NAME, SKIPPED, CONTINUED };

    std::vector<assignment> &into;
    place at = FLAT_BLANKS;
    bool sections = false; // from the first `[` to the end of the file
    bool below = false;    // the next component belongs below `path`, on the same line
    std::string path;      // the components in front of the one that is read, each with its `_`
    std::string name;
    assignment current;
    long line = 1;

    explicit line_reader(std::vector<assignment> &target) : into(target) {}

    void read(const char *from, const char *end);
    const char *take_run(const char *from, const char *end);
    void take(char byte);
    void begin_name();
    void take_name_byte(char byte);
    void take_value_byte(char byte);
    void end_flat_name(char delimiter);
    void end_section_name(char delimiter);
    std::string key_of_name() const;
    void go_down();
    void end_value();
    void end_file();
};

bool is_space(char byte) { return byte == ' ' || byte == '\t' || byte == '\r' || byte == '\n'; }

void line_reader::begin_name() {
    name.clear();
    if (!below)
        current.line = line;
    at = sections ? SECTION_NAME : FLAT_NAME;
}

std::string line_reader::key_of_name() const {
    if (path.size() + name.size() <= KEY_LIMIT)
        return path + name;
    return path;
}

void line_reader::go_down() {
    if (path.size() + name.size() <= KEY_LIMIT)
        path += name;
    if (path.size() < KEY_LIMIT)
        path += '_';
    below = true;
}

void line_reader::end_flat_name(char delimiter) {
    current.attr = 0;
    if (name.find('-') != std::string::npos) { // no prefix and no name that is mapped is without one
        const char *text = attr_remap(name.c_str());
        current.attr = strip_attr_prefixes(&text);
        if (text != name.c_str())
            name = std::string(text);
    }
    if (delimiter == '_') {
        go_down();
        at = FLAT_BLANKS;
        return;
    }
    current.key = key_of_name();
    at = VALUE;
}

void line_reader::end_section_name(char delimiter) {
    if (delimiter == '_' || delimiter == '\\' || delimiter == ']') {
        go_down();
        below = delimiter != ']';
        at = SECTION_BLANKS;
        return;
    }
    current.attr = 0;
    current.key = key_of_name();
    at = VALUE;
}

void line_reader::take_name_byte(char byte) {
    if (sections) {
        if (byte == 0 || byte == '_' || byte == '\\' || byte == ']' || byte == '=')
            end_section_name(byte);
        else if (name.size() < NAME_LIMIT)
            name += byte;
        return;
    }
    if (byte == 0 || byte == '_' || byte == '=' || name.size() == NAME_LIMIT)
        end_flat_name(byte);
    else
        name += byte;
}

void line_reader::take_value_byte(char byte) {
    if (byte == '\n') {
        end_value();
        if (!sections)
            path.clear();
        below = false;
        at = sections ? SECTION_BLANKS : FLAT_BLANKS;
    } else if (sections && byte == '\\') {
        at = SKIPPED;
    } else if (byte != '\r') {
        current.value += byte;
    }
}

void line_reader::end_value() {
    current.end_line = line;
    current.section_form = sections;
    into.push_back(std::move(current));
    current = {};
}

void line_reader::take(char byte) {
    switch (at) {
    case FLAT_BLANKS:
    case SECTION_BLANKS:
        if (is_space(byte))
            break;
        if (byte == '[') {
            path.clear();
            below = false;
            sections = true;
            // Blanks are passed over behind the bracket that begins the form, not behind a later one.
            if (at == SECTION_BLANKS)
                begin_name();
            else
                at = SECTION_BLANKS;
            break;
        }
        begin_name();
        take_name_byte(byte);
        break;
    case FLAT_NAME:
    case SECTION_NAME:
        take_name_byte(byte);
        break;
    case VALUE:
        take_value_byte(byte);
        break;
    case SKIPPED:
        if (byte == 0 || byte == '\n')
            at = CONTINUED;
        break;
    case CONTINUED:
        if (!is_blank(byte)) {
            at = VALUE;
            take_value_byte(byte);
        }
        break;
    }
    if (byte == '\n')
        line++;
}

// Takes the bytes that mean nothing but themselves where the reader stands; the result is the first behind them.
const char *line_reader::take_run(const char *from, const char *end) {
    const char *stop = from;
    if (at == VALUE) {
        while (stop < end && *stop != '\n' && *stop != '\r' && *stop != '\\')
            stop++;
        current.value.append(from, stop);
    } else if (at == FLAT_NAME) {
        end = from + std::min(static_cast<size_t>(end - from), NAME_LIMIT - name.size());
        while (stop < end && *stop != 0 && *stop != '_' && *stop != '=' && *stop != '\n')
            stop++;
        name.append(from, stop);
    }
    return stop;
}

void line_reader::read(const char *from, const char *end) {
    while (from < end) {
        from = take_run(from, end);
        if (from < end)
            take(*from++);
    }
}

// A value that the file's end cuts off stands, unless it is empty.
void line_reader::end_file() {
    bool in_value = at == VALUE || at == SKIPPED || at == CONTINUED;
    if (in_value && !current.value.empty())
        end_value();
}

} // namespace

bool read_assignments(const char *path, std::vector<assignment> &into) {
    int file = open(path, O_RDONLY | O_CLOEXEC);
    if (file < 0)
        return false;
    line_reader reader(into);
    std::vector<char> buffer(size_t{1} << 16);
    for (;;) {
        ssize_t count = read(file, buffer.data(), buffer.size());
        if (count < 0 && errno == EINTR)
            continue;
        if (count <= 0)
            break;
        reader.read(buffer.data(), buffer.data() + count);
    }
    close(file);
    reader.end_file();
    return true;
}
