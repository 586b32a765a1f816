// The host pattern matcher against its plain definition. Pattern and subject are the first two lines.
#include "fake_system.h"
#include "upgrade.h"

#include <cstring>

namespace {

bool is_end(char byte) { return byte == 0 || byte == ' ' || byte == '\t'; }

// As told: equal bytes pair off first, a star that faces a star among them; then a star tries all that is left. Each
// pair of places is answered once.
struct definition {
    const char *pattern;
    const char *subject;
    size_t width = strlen(subject) + 1;
    std::vector<signed char> known = std::vector<signed char>((strlen(pattern) + 1) * width, -1);

    bool matches(size_t p, size_t s) {
        signed char &answer = known[p * width + s];
        if (answer < 0)
            answer = judge(p, s);
        return answer;
    }
    bool judge(size_t p, size_t s) {
        while (!is_end(pattern[p]) && pattern[p] == subject[s]) {
            p++;
            s++;
        }
        if (pattern[p] != '*')
            return is_end(pattern[p]) && is_end(subject[s]);
        p++;
        if (is_end(pattern[p]))
            return true;
        for (; !is_end(subject[s]); s++)
            if (matches(p, s))
                return true;
        return false;
    }
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::string text(reinterpret_cast<const char *>(data), size);
    size_t line_end = text.find('\n');
    std::string pattern = text.substr(0, line_end);
    std::string subject = line_end == std::string::npos ? "" : text.substr(line_end + 1);
    // Exact sizes, so that no read goes beyond the end.
    std::vector<char> exact_pattern(pattern.c_str(), pattern.c_str() + strlen(pattern.c_str()) + 1);
    std::vector<char> exact_subject(subject.c_str(), subject.c_str() + strlen(subject.c_str()) + 1);
    bool expected = definition{exact_pattern.data(), exact_subject.data()}.matches(0, 0);
    int found = -1;
    int status = run(hash_of(data, size), [&] { found = wildmatch(exact_pattern.data(), exact_subject.data()); });
    check(status == 1 || found == expected, "another verdict than that of the definition");
    return 0;
}
