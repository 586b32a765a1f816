// What the upgrade writes as XML, which no reader takes back, against the same in the canonical layout.
#include "checks/checks.h"

#include <algorithm>
#include <unordered_set>

namespace {

// What stands below something, by a hash of all names on the way. Files call some attributes otherwise, behind whatever
// prefix.
size_t below(size_t above, std::string name) {
    for (size_t at = 0; at < name.size(); at = std::min(name.find('-', at), name.size()) + 1)
        name.replace(at, name.npos, file_attribute(name.c_str() + at));
    return std::hash<std::string>()(fmt::format("{}\n{}", above, name));
}

// A value below an element, which XML ends at the first quote with a blank behind it. Names can hold blanks: of an
// element's the first word counts, of a value's the last.
size_t value_below(size_t above, std::string_view name, std::string_view value) {
    size_t named = below(above, std::string(name.substr(name.rfind(' ') + 1)));
    return std::hash<std::string>()(fmt::format("{}={}", named, value.substr(0, value.find("\" "))));
}

// The values in XML, which stand with their names in the line that opens an element.
std::unordered_set<size_t> read_xml(std::string_view xml) {
    std::unordered_set<size_t> said;
    std::vector<size_t> open{0}; // elements
    while (!xml.empty()) {
        std::string_view line = take_line(xml);
        size_t start = std::min(line.find('<'), line.size()), depth = start / 2;
        bool opens = line.size() > start + 2 && line.substr(line.size() - 2) == " >";
        if (!opens || depth < 1 || depth > open.size())
            continue;
        line.remove_prefix(start + 1);
        open.resize(depth);
        open.push_back(below(open.back(), std::string(line.substr(0, line.find(' ')))));
        for (size_t sign, end; (sign = line.find("=\"")) != line.npos; line.remove_prefix(end)) {
            end = std::min(line.find("\" ", sign + 2), line.size());
            said.insert(value_below(open.back(), line.substr(0, sign), line.substr(sign + 2, end - sign - 2)));
        }
    }
    return said;
}

} // namespace

void check_xml(std::string_view xml, const configuration &own, const std::string &name, review_data &data) {
    const std::unordered_set<size_t> said = read_xml(xml);
    const conf_line *first = nullptr;
    long count = 0;
    for (const conf_line &line : own.lines) {
        if (line.key.find('\n') != line.key.npos) // with a line end in a name no line of XML is a whole one
            return;
        std::string_view key = own.bytes.substr(line.begin, line.end - line.begin);
        key = key.substr(0, key.find('='));
        size_t above = 0;
        for (size_t end; (end = key.find('_')) != key.npos; key.remove_prefix(end + 1)) {
            std::string element = decoded_name(key.substr(0, end));
            above = below(above, element.substr(0, element.find(' ')));
        }
        // XML has no place for what stands alone, another stamp, and blanks in front that a reader passes over.
        if (above && line.key != "version_moatwall.conf" && (line.begin == 0 || own.bytes[line.begin - 1] == '\n') &&
            said.count(value_below(above, decoded_name(key), line.value)) == 0 && count++ == 0)
            first = &line;
    }
    if (first)
        tell(data, "lost", fmt::format("{}: the XML that the upgrade writes lacks it", first->key), name).count = count;
}
