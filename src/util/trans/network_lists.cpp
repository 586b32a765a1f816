// Network lists from the URL-encoded text of a configuration from before 4.0.
#include "frag_tools.h"
#include "merging.h"
#include "name_index.h"

namespace {

enum list_state { LINE_START, BETWEEN_WORDS, IN_WORD, IN_COMMENT };

// Makes words of decoded bytes, and an element of each word.
struct list_parser {
    Frag *elements;
    name_index numbers;
    int next_number;
    list_state state = LINE_START;
    std::string word{};

    void feed(char byte) {
        bool line_end = byte == '\r' || byte == '\n';
        switch (state) {
        case IN_COMMENT:
            if (byte == '\n')
                state = LINE_START;
            break;
        case LINE_START:
            if (byte == '#') {
                state = IN_COMMENT;
                break;
            }
            state = BETWEEN_WORDS;
            [[fallthrough]];
        case BETWEEN_WORDS:
            if (!is_blank(byte) && !line_end) {
                word = byte;
                state = IN_WORD;
            }
            break;
        case IN_WORD:
            if (is_blank(byte) || line_end) {
                end_word();
                state = line_end ? LINE_START : BETWEEN_WORDS;
            } else {
                word += byte;
            }
            break;
        }
    }

    void end_word() {
        std::string number = numbertext(next_number++);
        Frag *element = numbers.set_key(&elements->child, number.c_str(), nullptr, elements);
        fsetp(&element->child, "addr", word.c_str(), element);
        fsetp(&element->child, "name", word.c_str(), element);
    }
};

// The value of a hexadecimal digit, -1 for any other byte. Small letters are no digits in this text.
int capital_hexdigit(char byte) {
    if (is_digit(byte))
        return byte - '0';
    return byte >= 'A' && byte <= 'F' ? byte - 'A' + 10 : -1;
}

} // namespace

int xurl2netobj(FragList db, const char *name, char *text) {
    Frag *lists = ffind(db, "netobj_list");
    Frag *list = lists ? ffind(&lists->child, name) : nullptr;
    if (!list) {
        lists = fset(db, "netobj_list", nullptr);
        list = fsetp(&lists->child, name, nullptr, lists);
    }
    Frag *elements = fmake(&list->child, "element", list);

    list_parser parser{elements, name_index(&elements->child), 1};
    for (Frag *element = elements->child; element; element = element->next)
        parser.next_number++;
    while (*text) {
        char byte = *text++;
        if (byte == '%') {
            int high = capital_hexdigit(*text);
            if (high < 0)
                continue;
            int low = capital_hexdigit(*++text);
            if (low >= 0)
                text++;
            byte = static_cast<char>(high * 16 + (low < 0 ? 0 : low));
        }
        parser.feed(byte);
    }
    sort_frags(&elements->child);
    return 0;
}
