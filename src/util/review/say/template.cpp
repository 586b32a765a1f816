// Templates: text with values and sections, every value escaped.
#include "say/say.h"

#include <cstring>
#include <ctime>
#include <fmt/format.h>
#include <nlohmann/json.hpp>
#include <resolv.h>
#include <sha256.h>

namespace {

constexpr size_t TEXT_LIMIT = 4000; // bytes of one text

// The value as text of an element or an attribute.
void add_value(const json &value, std::string &page) {
    std::string text = value.is_string() ? value.get<std::string>() : value.is_null() ? "" : value.dump();
    for (char byte : shown(std::string_view(text).substr(0, TEXT_LIMIT)))
        page += strchr("&<>\"'", byte) ? fmt::format("&#{};", int{byte}) : std::string(1, byte);
    if (text.size() > TEXT_LIMIT)
        page += fmt::format(" ... ({} bytes in all)", text.size());
}

using scopes = std::vector<const json *>;

const json &look_up(const scopes &inside, const std::string &name) {
    static const json none;
    if (name == ".")
        return *inside.back();
    for (size_t i = inside.size(); i-- > 0;)
        if (inside[i]->is_object() && inside[i]->contains(name))
            return (*inside[i])[name];
    return none;
}

// Fills the text up to the end of its section and takes off what it has used.
void fill(std::string_view &text, scopes &inside, std::string &page) {
    for (size_t open; (open = text.find("{{")) != std::string_view::npos;) {
        page += text.substr(0, open);
        std::string name(text.substr(open + 2, text.find("}}", open) - open - 2));
        text.remove_prefix(open + 2 + name.size() + 2);
        char kind = name[0];
        if (kind == '/')
            return;
        if (kind != '#' && kind != '^') {
            add_value(look_up(inside, name), page);
            continue;
        }
        const std::string_view section = text;
        const std::string end = "{{/" + name.substr(1) + "}}";
        const json &value = look_up(inside, name.substr(1));
        bool is_there = !value.empty() && value != false && value != "";
        scopes elements;
        if (is_there && kind == '#' && value.is_array())
            for (const json &each : value)
                elements.push_back(&each);
        else if (is_there == (kind == '#'))
            elements.push_back(&value);
        for (const json *each : elements) {
            text = section;
            inside.push_back(each);
            fill(text, inside, page);
            inside.pop_back();
        }
        text = section.substr(section.find(end) + end.size());
    }
    page += text;
}

// The source expression that lets what stands between the marks run under the page's own policy.
std::string policy_hash(std::string_view text, std::string_view open, std::string_view close) {
    text.remove_prefix(text.find(open) + open.size());
    text = text.substr(0, text.find(close));
    uint8_t digest[SHA256_DIGEST_LENGTH];
    SHA256_CTX context;
    SHA256Init(&context);
    SHA256Update(&context, reinterpret_cast<const uint8_t *>(text.data()), text.size());
    SHA256Final(digest, &context);
    char coded[64] = "";
    b64_ntop(digest, sizeof digest, coded, sizeof coded);
    return coded;
}

} // namespace

std::string render_page(json values) {
    char made[64] = "";
    time_t now = time(nullptr);
    strftime(made, sizeof made, "%Y-%m-%d %H:%M %Z", localtime(&now));
    std::string_view text = page_template;
    values.update({{"made", made}, {"version", REVIEW_VERSION}});
    values["style_hash"] = policy_hash(text, "<style>", "</style>");
    values["script_hash"] = policy_hash(text, "<script>", "</script>");
    std::string page;
    scopes inside{&values};
    fill(text, inside, page);
    return page;
}
