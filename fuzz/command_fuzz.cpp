// A whole run: its arguments, one a line, then files, each behind a line of `@@` and its name.
#include "fake_system.h"
#include "upgrade.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    std::vector<std::string> arguments{"upgrade"};
    std::string *file = nullptr;
    files.clear();
    std::string text(reinterpret_cast<const char *>(data), size);
    for (size_t at = 0; at < text.size();) {
        size_t end = text.find('\n', at);
        end = end == std::string::npos ? text.size() : end + 1;
        std::string line = text.substr(at, end - at);
        at = end;
        std::string word = line.substr(0, line.find_first_of(std::string("\n\0", 2)));
        if (line.compare(0, 2, "@@") == 0)
            file = &files[word.substr(2)];
        else if (file)
            *file += line;
        else // a report is opened early, so it must not have the name of the output, which may not
            arguments.push_back(word == "out" && arguments.back().compare(0, 2, "-R") == 0 ? "report" : word);
    }
    std::vector<char *> words;
    for (std::string &argument : arguments)
        words.push_back(argument.data());
    words.push_back(nullptr);
    std::map<std::string, std::string> before = files;
    int status = run(hash_of(data, size), [&] {
        check(upgrade(static_cast<int>(words.size()) - 1, words.data()) == 0, "an odd exit status");
        check_tree(&def_database);
        check_tree(&nptdatabase);
    });
    check(status == -1 || status == 1, "an odd exit status");
    return 0;
}
