#include "tools/Text.h"

#include <cstdio>

namespace tools {

namespace {

void appendEscape(unsigned char byte, std::string* out) {
    constexpr char digits[] = "0123456789abcdef";
    *out += "\\x";
    *out += digits[byte >> 4U];
    *out += digits[byte & 15U];
}

}  // namespace

void appendPrintable(std::string_view text, std::string* out) {
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = static_cast<unsigned char>(text[i]);
        const auto next = static_cast<unsigned char>(i + 1 < text.size() ? text[i + 1] : 0);
        if (byte < 0x20 || byte == 0x7f) {
            appendEscape(byte, out);
        } else if (byte == 0xc2 && next >= 0x80 && next < 0xa0) {
            appendEscape(byte, out);
            appendEscape(next, out);
            ++i;
        } else {
            *out += text[i];
        }
    }
}

std::string printable(std::string_view text, std::size_t limit) {
    std::string result;
    appendPrintable(text.substr(0, limit), &result);
    if (text.size() > limit) result += "...";
    return result;
}

void printError(std::string_view program, std::string_view sentence) {
    std::string line(program);
    line += ": ";
    appendPrintable(sentence, &line);
    line += ".\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

}  // namespace tools
