// The model of an INI file: what a look-up finds.
#ifndef KATD_FUZZ_INITEXT_H
#define KATD_FUZZ_INITEXT_H

#include <algorithm>
#include <optional>
#include <string>
#include <vector>

#include "Fuzz.h"

namespace katd_fuzz {

// The lines with their line feeds; a long one in pieces of 255 bytes.
inline std::vector<std::string> linePieces(const std::string& file) {
    constexpr std::size_t pieceLimit = 255;
    std::vector<std::string> pieces;
    std::string piece;
    for (const char c : file) {
        piece += c;
        if (c != '\n' && piece.size() < pieceLimit) continue;
        pieces.push_back(piece);
        piece.clear();
    }
    if (!piece.empty()) pieces.push_back(piece);
    return pieces;
}

inline bool isHeader(const std::string& piece) {
    return startsWith(afterBlanks(upToZero(piece)), "[");
}

inline bool isHeaderOf(const std::string& piece, const std::string& section) {
    if (!isHeader(piece)) return false;
    const std::string name = afterBlanks(afterBlanks(upToZero(piece)).substr(1));
    return startsWith(name, section) && startsWith(afterBlanks(name.substr(section.size())), "]");
}

// The value, if the piece is a line of the key.
inline std::optional<std::string> valueIn(const std::string& piece, const std::string& key) {
    const std::string line = afterBlanks(upToZero(piece));
    if (!startsWith(line, key)) return std::nullopt;
    const std::string rest = afterBlanks(line.substr(key.size()));
    if (!startsWith(rest, "=")) return std::nullopt;
    const std::string value = rest.substr(1);
    return trimmed(value.substr(0, value.find_first_of("#;")));
}

inline std::optional<std::string> valueOf(const std::string& file, const std::string& section,
                                          const std::string& key) {
    if (section.empty() || section.size() > 59 || key.empty()) return std::nullopt;
    bool inside = false;
    for (const std::string& piece : linePieces(file)) {
        if (!inside) {
            inside = isHeaderOf(piece, section);
            continue;
        }
        if (isHeader(piece)) return std::nullopt;
        const std::string line = afterBlanks(upToZero(piece));
        if (startsWith(line, "#") || startsWith(line, ";")) continue;
        if (const auto value = valueIn(piece, key)) return value;
    }
    return std::nullopt;
}

}  // namespace katd_fuzz

#endif
