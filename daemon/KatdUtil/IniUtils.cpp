#include "KatdUtil/IniUtils.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <initializer_list>
#include <new>
#include <string>

#include "KatdUtil/Utils.h"

namespace KATD_SPACE {

namespace {

constexpr const char* logModule = "KatdUtil";

constexpr std::size_t lineSize = 256;         // bytes of a piece of a line, including the NUL
constexpr std::size_t sectionNameLimit = 59;  // characters
// Bytes reserved for the text around names, value and comment in a new line.
constexpr std::size_t decorationSize = 1024;

using Line = char[lineSize];

bool isAnyHeader(const char* line) {
    return *Utils::FirstChar(line) == '[';
}

bool isHeaderOf(const char* line, const char* section) {
    const char* c = Utils::FirstChar(line);
    if (*c != '[') return false;
    c = Utils::FirstChar(c + 1);
    const std::size_t length = std::strlen(section);
    return std::strncmp(c, section, length) == 0 && *Utils::FirstChar(c + length) == ']';
}

bool isComment(const char* line) {
    const char first = *Utils::FirstChar(line);
    return first == '#' || first == ';';
}

// The text after the "=" if the line is one of `key`, otherwise null.
const char* valueInLine(const char* line, const char* key) {
    const char* c = Utils::FirstChar(line);
    const std::size_t length = std::strlen(key);
    if (std::strncmp(c, key, length) != 0) return nullptr;
    c = Utils::FirstChar(c + length);
    return *c == '=' ? Utils::FirstChar(c + 1) : nullptr;
}

// Splits the text of a file into the same pieces as fgets(3).
class Pieces {
public:
    explicit Pieces(const std::string& text) : whole(text) {}

    // Copies the next piece to line. Returns false at the end.
    bool next(Line& line) {
        first = last;
        if (first == whole.size()) return false;
        const std::size_t lineFeed = whole.find('\n', first);
        last = std::min(
            {first + lineSize - 1, whole.size(), lineFeed == std::string::npos ? lineFeed : lineFeed + 1});
        line[whole.copy(line, last - first, first)] = '\0';
        return true;
    }
    // Offsets of the last piece; after the end both are the size of the text.
    std::size_t begin() const { return first; }
    std::size_t end() const { return last; }

private:
    const std::string& whole;
    std::size_t first = 0;
    std::size_t last = 0;
};

// Returns false if there is not enough memory.
bool reserve(std::string& text, unsigned long long bytes) {
    try {
        if (bytes > text.max_size()) return false;
        text.reserve(static_cast<std::size_t>(bytes));
        return true;
    } catch (const std::bad_alloc&) {
        return false;
    }
}

// Inserts a line at `position`. REQUIRES: text.capacity() suffices, so that nothing throws.
void insertLine(std::string& text, std::size_t position, std::initializer_list<const char*> parts) {
    const std::size_t oldSize = text.size();
    for (const char* part : parts)
        text += part;
    std::rotate(text.begin() + static_cast<std::ptrdiff_t>(position),
                text.begin() + static_cast<std::ptrdiff_t>(oldSize), text.end());
}

}  // namespace

IniUtils::IniUtils(const char* path) : IniUtils(path, "r+") {}

IniUtils::IniUtils(const char* path, const char* mode) : opened(false), file(nullptr) {
    if (path == nullptr) return;
    char closeOnExecMode[16];
    std::snprintf(closeOnExecMode, sizeof closeOnExecMode, "%se", mode);
    file = std::fopen(path, closeOnExecMode);
    opened = file != nullptr;
    if (!opened) ERR_MSG("fail to open ini file [%s]", path);
}

IniUtils::~IniUtils() {
    if (file != nullptr) std::fclose(file);
}

int IniUtils::QueryConfValue(const char* section, const char* key, char* value, int size) {
    if (file == nullptr || section == nullptr || *section == '\0' || key == nullptr || *key == '\0' ||
        value == nullptr) {
        ERR_MSG("Bad input arguments for %s", "QueryConfValue");
        return -1;
    }
    std::rewind(file);
    const std::size_t sectionLength = std::strlen(section);
    if (sectionLength > sectionNameLimit) {
        ERR_MSG("lenth of section name should in [1, %d],but lenth of [%s] is [%d] ",
                static_cast<int>(sectionNameLimit), section, static_cast<int>(sectionLength));
        return -1;
    }
    if (size < 1 || size > valueLimit) {
        ERR_MSG("lenth of value should in [1, %d], but input is %d", valueLimit, size);
        return -1;
    }

    Line line;
    do {
        if (std::fgets(line, sizeof line, file) == nullptr) return -1;
    } while (!isHeaderOf(line, section));
    while (std::fgets(line, sizeof line, file) != nullptr && !isAnyHeader(line)) {
        const char* found = isComment(line) ? nullptr : valueInLine(line, key);
        if (found == nullptr) continue;
        char* text = line + (found - line);
        text[std::strcspn(text, "#;")] = '\0';
        Utils::rtrim(text);
        const std::size_t length = std::min(std::strlen(text), static_cast<std::size_t>(size));
        std::memcpy(value, text, length);
        value[length] = '\0';
        return 0;
    }
    return -1;
}

int IniUtils::ModifyConfValue(const char* section, const char* key, const char* value, const char* comment) {
    if (file == nullptr || section == nullptr || key == nullptr) return -1;
    const std::size_t sectionLength = std::strlen(section);
    if (sectionLength < 1 || sectionLength > sectionNameLimit) {
        ERR_MSG("length of secname should in [1:%d], but now is [%d]", static_cast<int>(sectionNameLimit),
                static_cast<int>(sectionLength));
        return -1;
    }
    if (value == nullptr) value = "";
    if (comment == nullptr) comment = "";

    std::fseek(file, 0, SEEK_END);
    const off_t end = ftello(file);
    if (end < 0) return -1;
    std::rewind(file);
    std::string text;
    if (!reserve(text, static_cast<unsigned long long>(end) + sectionLength + std::strlen(key) +
                           std::strlen(value) + std::strlen(comment) + decorationSize)) {
        ERR_MSG("In [%s], fail to allocate memory", "ModifyConfValue");
        return -1;
    }
    const std::size_t oldSize = static_cast<std::size_t>(end);
    text.resize(oldSize);
    text.resize(std::fread(text.data(), 1, oldSize, file));
    if (std::ferror(file) != 0) return -1;

    Pieces pieces(text);
    Line line;
    bool found = false;
    while (!found && pieces.next(line))
        found = isHeaderOf(line, section);
    if (found) {
        // Stop at the key's line, the next header or the end of the file.
        while (pieces.next(line) && !isAnyHeader(line) && valueInLine(line, key) == nullptr) {
        }
        std::size_t position = pieces.begin();
        if (position == text.size()) {
            // The last line may have no line feed.
            if (text.back() != '\n') text += '\n';
            position = text.size();
        } else if (!isAnyHeader(line)) {
            text.erase(position, pieces.end() - position);
        }
        insertLine(text, position, {key, " = ", value, "\t;", comment, "\n"});
    } else {
        DBG_MSG("Can not find section [%s]", section);
        for (const char* part :
             {"\n\n[", section, "]\t\t\t#Added by program\n", key, "=", value, "\t\t#", comment, "\n"}) {
            text += part;
        }
    }
    if (text.size() < oldSize) text.append(oldSize - text.size(), ' ');
    std::rewind(file);
    std::fwrite(text.data(), 1, text.size(), file);
    return 0;
}

}  // namespace KATD_SPACE
