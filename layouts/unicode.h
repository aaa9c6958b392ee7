// UTF-8, code points, and canonical composition (Unicode's NFC and NFD, by utf8proc).
#pragma once

#include <string>

namespace quillon {

/// The code points of a UTF-8 text; a byte that belongs to none becomes kNoCharacter plus the byte.
std::u32string codePoints(const std::string &utf8);
constexpr char32_t kNoCharacter = 0x110000;

std::string utf8(char32_t character);

/// Canonical composition and decomposition of valid code points; the same text when they fail.
std::u32string composed(const std::u32string &text);
std::u32string decomposed(const std::u32string &text);

/// Whether it combines with the character before it, as an accent does.
bool isCombining(char32_t character);

/// "U+00E4".
std::string codePointName(char32_t character);

}  // namespace quillon
