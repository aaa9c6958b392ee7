#include "layouts/unicode.h"

#include <utf8proc.h>

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace quillon {
namespace {

std::u32string mapped(const std::u32string &text, utf8proc_option_t options) {
    std::string bytes;
    for (const char32_t character : text) bytes += utf8(character);
    utf8proc_uint8_t *result = nullptr;
    const auto size = utf8proc_map(reinterpret_cast<const utf8proc_uint8_t *>(bytes.data()),
                                   static_cast<utf8proc_ssize_t>(bytes.size()), &result, options);
    if (size < 0) return text;
    const std::string normal(reinterpret_cast<const char *>(result),
                             static_cast<std::size_t>(size));
    free(result);
    return codePoints(normal);
}

}  // namespace

std::u32string codePoints(const std::string &utf8) {
    std::u32string text;
    const auto *bytes = reinterpret_cast<const utf8proc_uint8_t *>(utf8.data());
    for (std::size_t at = 0; at < utf8.size();) {
        utf8proc_int32_t character = 0;
        const auto used = utf8proc_iterate(
            bytes + at, static_cast<utf8proc_ssize_t>(utf8.size() - at), &character);
        text += used > 0 ? static_cast<char32_t>(character) : kNoCharacter + bytes[at];
        at += used > 0 ? static_cast<std::size_t>(used) : 1;
    }
    return text;
}

std::string utf8(char32_t character) {
    utf8proc_uint8_t bytes[4];
    const auto size = utf8proc_encode_char(static_cast<utf8proc_int32_t>(character), bytes);
    return std::string(reinterpret_cast<const char *>(bytes), static_cast<std::size_t>(size));
}

std::u32string composed(const std::u32string &text) {
    return mapped(text, static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
}

std::u32string decomposed(const std::u32string &text) {
    return mapped(text, static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_DECOMPOSE));
}

bool isCombining(char32_t character) {
    const utf8proc_property_t *property =
        utf8proc_get_property(static_cast<utf8proc_int32_t>(character));
    return property->combining_class != 0;
}

std::string codePointName(char32_t character) {
    char name[16];
    snprintf(name, sizeof name, "U+%04X", static_cast<unsigned>(character));
    return name;
}

}  // namespace quillon
