// Text of files as text of a page.
#include "page_parts.h"

#include <fmt/format.h>
#include <sha256.h>

using fmt::format;

namespace {

constexpr size_t CODE_LIMIT = 400;

/// A character as it stands in UTF-8; `size` 0 for bytes that are none.
struct character {
    char32_t value = 0;
    size_t size = 0;
};

character read_character(std::string_view bytes) {
    unsigned char first = static_cast<unsigned char>(bytes[0]);
    if (first < 0x80)
        return {first, 1};
    size_t size = first >= 0xF0 ? 4 : first >= 0xE0 ? 3 : 2;
    if (first < 0xC2 || first > 0xF4 || bytes.size() < size)
        return {};
    char32_t value = first & (0x7Fu >> size);
    for (char byte : bytes.substr(1, size - 1)) {
        if ((byte & 0xC0) != 0x80)
            return {};
        value = value << 6 | (byte & 0x3Fu);
    }
    static const char32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    bool is_surrogate = value >= 0xD800 && value <= 0xDFFF;
    return value < least[size] || value > 0x10FFFF || is_surrogate ? character{} : character{value, size};
}

// Controls, marks without width, line separators, and what turns the direction of writing.
bool is_unseen(char32_t value) {
    static const struct {
        char32_t first, last;
    } ranges[] = {{0, 8},           {10, 31},         {0x7F, 0x9F},      {0xAD, 0xAD},
                  {0x61C, 0x61C},   {0x200B, 0x200F}, {0x2028, 0x202E},  {0x2060, 0x206F},
                  {0xFEFF, 0xFEFF}, {0xFFF9, 0xFFFB}, {0xE0000, 0xE0FFF}};
    for (const auto &range : ranges)
        if (value >= range.first && value <= range.last)
            return true;
    return false;
}

const char *entity_of(char byte) {
    switch (byte) {
    case '&':
        return "&amp;";
    case '<':
        return "&lt;";
    case '>':
        return "&gt;";
    case '"':
        return "&quot;";
    case '\'':
        return "&#39;";
    default:
        return nullptr;
    }
}

} // namespace

std::string html(std::string_view bytes, size_t limit) {
    std::string safe;
    for (size_t at = 0; at < bytes.size();) {
        if (at >= limit)
            return safe + format(" &hellip; ({} bytes in all)", grouped(static_cast<long long>(bytes.size())));
        character next = read_character(bytes.substr(at));
        if (next.size == 0)
            safe += format("\\x{:02X}", static_cast<unsigned char>(bytes[at]));
        else if (is_unseen(next.value))
            safe += format(next.value < 0x80 ? "\\x{:02X}" : "\\u{{{:X}}}", static_cast<uint32_t>(next.value));
        else if (const char *entity = entity_of(bytes[at]))
            safe += entity;
        else
            safe += bytes.substr(at, next.size);
        at += next.size ? next.size : 1;
    }
    return safe;
}

std::string code(std::string_view bytes) { return "<code>" + html(bytes, CODE_LIMIT) + "</code>"; }

std::string grouped(long long number) {
    std::string digits = std::to_string(number);
    for (size_t at = digits.size(); at > 3 && digits[at - 4] != '-';)
        digits.insert(at -= 3, ",");
    return digits;
}

std::string counted(size_t number, const char *one) {
    std::string word = one;
    if (number != 1 && word.back() == 'y')
        word.replace(word.size() - 1, 1, "ies");
    else if (number != 1)
        word += word.back() == 'x' ? "es" : "s";
    return grouped(static_cast<long long>(number)) + " " + word;
}

std::string left_out(size_t shown, size_t all, const char *one, const char *rest) {
    if (shown >= all)
        return "";
    return format("<p class=\"more\">{} more, not shown here: {}</p>\n", counted(all - shown, one), rest);
}

std::string place(const std::string &file, long line) {
    if (file.empty())
        return line ? format("line {}", line) : "";
    return line ? format("{}:{}", file, line) : file;
}

std::string place_html(const std::string &file, long line) {
    if (file.empty() || !line)
        return html(place(file, line));
    return html(file) + format("<span class=\"at\">:{}</span>", line);
}

std::string policy_hash(std::string_view text) {
    uint8_t digest[SHA256_DIGEST_LENGTH + 1] = {}; // a multiple of three bytes
    SHA256_CTX context;
    SHA256Init(&context);
    SHA256Update(&context, reinterpret_cast<const uint8_t *>(text.data()), text.size());
    SHA256Final(digest, &context);
    static const char alphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string coded;
    for (size_t at = 0; at < sizeof digest; at += 3) {
        uint32_t bits = static_cast<uint32_t>(digest[at] << 16 | digest[at + 1] << 8 | digest[at + 2]);
        for (int shift = 18; shift >= 0; shift -= 6)
            coded += alphabet[bits >> shift & 63];
    }
    coded.resize(43); // the last of the 44 only fills up
    return "'sha256-" + coded + "='";
}
