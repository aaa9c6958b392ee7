#include "terminal/printable.h"

#include <langinfo.h>
#include <wctype.h>

#include <algorithm>
#include <cwchar>

namespace quillon {
namespace {

bool isPlain(unsigned char byte) {
    return byte >= ' ' && byte <= '~';
}

// Marks of direction, joiners and the like: they move the text around them.
bool isInvisible(wint_t code) {
    return code == 0x061C || (code >= 0x200B && code <= 0x200F) ||
           (code >= 0x2028 && code <= 0x202E) || (code >= 0x2060 && code <= 0x206F) ||
           code == 0xFEFF || (code >= 0xFFF9 && code <= 0xFFFB);
}

}  // namespace

std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char byte) { return !isPlain(byte); }, '?');
    return text;
}

std::string printableText(const std::string &utf8) {
    if (std::string(nl_langinfo(CODESET)) != "UTF-8") return printable(utf8);
    std::string text;
    std::mbstate_t state{};
    for (std::size_t at = 0; at < utf8.size();) {
        wchar_t character = 0;
        const std::size_t size =
            std::mbrtowc(&character, utf8.data() + at, utf8.size() - at, &state);
        const bool whole = size != 0 && size <= utf8.size() - at;
        if (whole && iswprint(static_cast<wint_t>(character)) != 0 &&
            !isInvisible(static_cast<wint_t>(character)))
            text += utf8.substr(at, size);
        else
            text += '?';
        at += whole ? size : 1;
        if (!whole) state = {};
    }
    return text;
}

std::string printableLines(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char byte) { return !isPlain(byte) && byte != '\n'; },
        '?');
    return text;
}

}  // namespace quillon
