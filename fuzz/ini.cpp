// Looks up and changes settings in INI files.
// Input: section, key, value and comment, one per line, then the file.
#include <utility>

#include "IniText.h"
#include "KatdUtil/IniUtils.h"

using namespace katd_fuzz;

namespace {

struct Change {
    std::string section, key, value, comment;

    // Whether the format can represent the setting, so that it can be found again.
    bool isHeld() const {
        return !section.empty() && section.size() <= 59 && afterBlanks(section) == section && !key.empty() &&
               afterBlanks(key) == key && std::strchr("[#;", key[0]) == nullptr && trimmed(value) == value &&
               value.find_first_of("#;") == std::string::npos && key.size() + 3 + value.size() <= 255;
    }

    // The file after the change.
    std::string madeTo(const std::string& file) const {
        std::string before;
        bool inside = false;
        for (const std::string& piece : linePieces(file)) {
            if (inside && (isHeader(piece) || valueIn(piece, key))) {
                const std::string after = file.substr(before.size() + (isHeader(piece) ? 0 : piece.size()));
                return padded(before + line() + after, file.size());
            }
            inside = inside || isHeaderOf(piece, section);
            before += piece;
        }
        // A last line without a line feed gets one: the new line must not become part of it.
        if (inside) return file + (file.back() == '\n' ? "" : "\n") + line();
        return file + "\n\n[" + section + "]\t\t\t#Added by program\n" + key + "=" + value + "\t\t#" +
               comment + "\n";
    }

private:
    std::string line() const { return key + " = " + value + "\t;" + comment + "\n"; }
    static std::string padded(std::string text, std::size_t size) {
        if (text.size() < size) text.resize(size, ' ');
        return text;
    }
};

void requireLookUp(KATD_SPACE::IniUtils& ini, const std::string& file, const Change& change) {
    const auto expected = valueOf(file, change.section, change.key);
    for (const int size : {1, 5, 256}) {
        // On the heap, of the exact size: the sanitizer detects an access beyond it.
        std::vector<char> value(static_cast<std::size_t>(size) + 1, '~');
        const std::vector<char> untouched = value;
        const int result = ini.QueryConfValue(change.section.c_str(), change.key.c_str(), value.data(), size);
        REQUIRE(result == (expected ? 0 : -1));
        if (expected) {
            REQUIRE(value.data() == expected->substr(0, static_cast<std::size_t>(size)));
        } else {
            REQUIRE(value == untouched);
        }
    }
}

const char* orNull(const std::string& text) {
    return text.empty() ? nullptr : text.c_str();
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static InputFile file;
    formatMessages();
    std::string text = bytesOf(data, size);
    Change change;
    for (std::string* part : {&change.section, &change.key, &change.value, &change.comment})
        *part = upToZero(takeLine(text));
    const bool isTaken = !change.section.empty() && change.section.size() <= 59;

    file.write(text);
    const std::string changed = isTaken ? change.madeTo(text) : text;
    {
        KATD_SPACE::IniUtils ini(file.path());
        REQUIRE(ini.opened);
        requireLookUp(ini, text, change);
        const int result = ini.ModifyConfValue(change.section.c_str(), change.key.c_str(),
                                               orNull(change.value), orNull(change.comment));
        REQUIRE(result == (isTaken ? 0 : -1));
        requireLookUp(ini, changed, change);
    }
    REQUIRE(file.read() == changed);
    if (change.isHeld()) REQUIRE(valueOf(changed, change.section, change.key) == change.value);
    return 0;
}
