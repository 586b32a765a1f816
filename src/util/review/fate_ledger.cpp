// The inputs' lines and their fates.
#include "fate_ledger.h"
#include "fragment_lines.h"

#include <cstring>
#include <fstream>
#include <iterator>

const char *fate_name(fate f) {
    static const char *const names[] = {"unexplained", "without effect", "overridden", "reshaped", "kept"};
    return names[static_cast<int>(f)];
}

std::string_view fate_input::line(long number) const {
    size_t begin = starts[static_cast<size_t>(number) - 1];
    std::string_view rest = std::string_view(text).substr(begin);
    rest = rest.substr(0, rest.find('\n'));
    return !rest.empty() && rest.back() == '\r' ? rest.substr(0, rest.size() - 1) : rest;
}

std::string name_in_file(const char *name, long attr) {
    const char *prefix = attr_prefix(attr);
    std::string written = std::string(prefix) + attr_revmap(name);
    const char *read = written.c_str() + strspn(written.c_str(), " \t\r\n");
    if (!strchr(read, '-'))
        return read;
    read = attr_remap(read);
    strip_attr_prefixes(&read);
    return read;
}

std::string name_in_file(const Frag *frag) { return name_in_file(frag->name, frag->attr); }

size_t fate_ledger::open(const std::string &name, bool table) {
    for (size_t i = 0; i < inputs.size(); i++)
        if (inputs[i].name == name && inputs[i].table == table)
            return i;
    fate_input input;
    input.name = name;
    input.table = table;
    std::ifstream file(name, std::ios::binary);
    input.text.assign(std::istreambuf_iterator<char>(file), {});
    for (size_t at = 0; at < input.text.size();) {
        input.starts.push_back(at);
        at = input.text.find('\n', at);
        at = at == std::string::npos ? input.text.size() : at + 1;
    }
    input.first = input.end = entries.size();
    std::vector<assignment> assignments;
    if (!table && read_assignments(name.c_str(), assignments)) {
        for (assignment &a : assignments)
            entries.push_back({inputs.size(),
                               a.line,
                               a.end_line,
                               std::move(a.key),
                               std::move(a.value),
                               a.attr,
                               a.section_form,
                               0,
                               0,
                               fate::open,
                               {}});
        input.end = entries.size();
    }
    inputs.push_back(std::move(input));
    return inputs.size() - 1;
}

std::string fate_ledger::where(size_t id) const {
    return inputs[entries[id].input].name + " line " + std::to_string(entries[id].line);
}

void fate_ledger::say(size_t id, fate f, std::string reason) {
    if (!id || knows(id, f))
        return;
    entries[id].known = f;
    entries[id].reason = std::move(reason);
}
