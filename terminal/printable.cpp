#include "terminal/printable.h"

#include <algorithm>

namespace quillon {
namespace {

bool isPlain(unsigned char byte) {
    return byte >= ' ' && byte <= '~';
}

}  // namespace

std::string printable(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char byte) { return !isPlain(byte); }, '?');
    return text;
}

std::string printableLines(std::string text) {
    std::replace_if(
        text.begin(), text.end(), [](unsigned char byte) { return !isPlain(byte) && byte != '\n'; },
        '?');
    return text;
}

}  // namespace quillon
