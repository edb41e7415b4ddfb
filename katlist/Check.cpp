#include "Check.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <limits>

#include "KatdUtil/Utils.h"
#include "Shared.h"
#include "StringList/StringList.h"

namespace katlist {

using KATD_SPACE::StringList;
using KATD_SPACE::Utils;

namespace {

constexpr std::size_t headerLimit = 1023;  // bytes that katd reads of the first line
constexpr std::size_t itemStart = 4;       // offset in an item line, after the category and the bar
constexpr std::int64_t spareBytes = 3;     // of katd's buffer, beyond the size in the first line
constexpr std::int64_t headerSizeLimit = std::numeric_limits<std::int32_t>::max() - spareBytes;

std::string numbered(std::uint64_t line) {
    return "line " + std::to_string(line);
}

std::string counted(std::int64_t number, const char* what) {
    return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

std::string bracketed(const std::string& text) {
    return "[" + printable(text) + "]";
}

class Checker {
public:
    Checker(const std::string& path, const CheckOptions& options)
        : path_(path), kind_(options.kind), findings_(stdout, options.show) {}

    // True if nothing was found. Throws Failure if the file cannot be read.
    bool run() {
        LineFile file(path_, LineFile::Source::listFile);
        if (kind_ == KindOption::guess) guessKind();
        list_.load(path_.c_str());
        while (file.next()) {
            progress_.step("lines checked", file.number);
            if (file.number == 1) {
                checkHeader(file.text, file.length);
            } else {
                checkLine(file.text, file.length, file.dropped, file.number);
            }
        }
        checkTotals(file.number);
        Progress::clear();
        findings_.end("findings");
        printResult();
        return findings_.count() == 0;
    }

private:
    struct Item {
        std::string text;
        std::uint64_t line;
    };

    void guessKind();
    void checkHeader(char* line, std::size_t length);
    void checkLine(char* line, std::size_t length, std::uint64_t dropped, std::uint64_t number);
    void checkCategory(const char* line, std::uint64_t number);
    void checkSpace(std::uint64_t bytes, std::uint64_t itemBytes, std::uint64_t number);
    void checkSpelling(const std::string& item, std::uint64_t number);
    void checkOrder(const std::string& item, std::uint64_t number);
    void checkNested(const std::string& item, std::uint64_t number);
    void checkTotals(std::uint64_t lines);
    void printResult() const;

    void find(std::uint64_t line, const std::string& text) {
        if (findings_.shows()) {
            findings_.add(path_ + ":" + std::to_string(line) + ": " + text);
        } else {
            findings_.add();
        }
    }
    void stop(std::uint64_t line, const std::string& text) {
        if (stopped_ == 0) find(line, text + ": katd reads no further");
        if (stopped_ == 0) stopped_ = line;
    }
    bool isUrls() const { return kind_ == KindOption::urls; }
    // True if katd holds the whole current item: only then its search result means anything.
    bool isHeld() const { return list_.loaded && stopped_ == 0 && items_ <= list_.count; }

    const std::string path_;
    KindOption kind_;
    Notes findings_;
    Progress progress_{false};
    StringList list_;  // as katd loads it
    std::int64_t headerCount_ = 0;
    std::int64_t headerSize_ = 0;
    bool headerIsGood_ = false;
    std::uint64_t stopped_ = 0;  // the line at which katd stops reading, or 0
    std::uint64_t beyond_ = 0;   // the first line beyond the count, or 0
    std::int64_t items_ = 0;     // item lines, including those beyond the count
    std::int64_t bytes_ = 0;     // that they need in katd's buffer
    Item last_{"", 0};           // the previous item; line 0: none
    std::vector<Item> above_;    // prefixes of the previous item, from the shortest on
};

void Checker::guessKind() {
    kind_ = KindOption::domains;
    LineFile file(path_, LineFile::Source::listFile);
    while (kind_ == KindOption::domains && file.next()) {
        if (file.number > 1 && file.length > itemStart && file.text[itemStart - 1] == '|' &&
            std::memchr(file.text, '/', file.length) != nullptr)
            kind_ = KindOption::urls;
    }
}

void Checker::checkHeader(char* line, std::size_t length) {
    if (length > headerLimit) {
        find(1, "the first line has more than 1023 characters: katd reads the rest as an item line");
        line[headerLimit] = '\0';
        stopped_ = 1;
    }
    if (std::strlen(line) < std::min(length, headerLimit)) find(1, "there is a zero byte in the line");
    Utils::trim(line);
    const char* bar = std::strchr(line, '|');
    if (bar != nullptr) {
        headerCount_ = Utils::toInt32(line);
        headerSize_ = Utils::toInt32(bar + 1);
    }
    headerIsGood_ = headerCount_ >= 1 && headerSize_ >= 1 && headerSize_ <= headerSizeLimit;
    const std::string canonical = std::to_string(headerCount_) + "|" + std::to_string(headerSize_);
    if (!headerIsGood_) {
        find(1, "the first line is not \"number of items|bytes\", both at least 1, the bytes at most " +
                    std::to_string(headerSizeLimit) + ", but " + bracketed(line) + ": katd refuses the file");
    } else if (canonical != line) {
        find(1, "the first line has other characters than the two numbers: katd reads " + bracketed(line) +
                    " as " + canonical);
    }
}

// `dropped` bytes of the line are not in `line`.
void Checker::checkLine(char* line, std::size_t length, std::uint64_t dropped, std::uint64_t number) {
    const bool isBeyond = headerIsGood_ && items_ >= headerCount_ && stopped_ == 0;
    const bool isItem = std::strlen(line) >= itemStart && line[itemStart - 1] == '|' &&
                        std::memchr(line, '\n', itemStart - 1) == nullptr;
    if (isBeyond) {
        const bool isBlank = *Utils::FirstChar(line) == '\0';
        if (beyond_ == 0 && !isBlank) beyond_ = number;
    }
    if (!isItem) {
        if (!isBeyond) {
            stop(number, "this is not an item line (a category of three characters, a | and the item), but " +
                             bracketed(std::string(line, std::strcspn(line, "\r\n"))));
        }
        return;
    }
    if (std::strlen(line) < length)
        find(number, "there is a zero byte in the line, where the item ends for katd");
    if (line[itemStart] == '\0') {
        if (!isBeyond) stop(number, "the file ends before the item");
        return;
    }
    const std::size_t bytes = std::strlen(line + itemStart);
    const std::string item = Utils::rtrim(line + itemStart);
    if (!isBeyond) checkSpace(bytes + dropped, item.size() + dropped, number);
    ++items_;
    bytes_ += static_cast<std::int64_t>(item.size() + dropped) + 1;
    checkCategory(line, number);
    checkSpelling(item, number);
    checkOrder(item, number);
    if (isUrls()) checkNested(item, number);
    last_ = {item, number};
}

// Reads the three characters as katd does.
void Checker::checkCategory(const char* line, std::uint64_t number) {
    const std::string characters(line, itemStart - 1);
    if (listreader::toCategory(characters, categoryLimit) >= 0) return;
    const std::int32_t category = Utils::toInt32(characters.c_str());
    const std::string reads =
        "the category " + bracketed(characters) + " is not a number from 0 to 255: katd ";
    if (category == -1) return find(number, reads + "treats the item as a miss");
    find(number, reads + "answers " + std::to_string(category & 0xff));
}

void Checker::checkSpace(std::uint64_t bytes, std::uint64_t itemBytes, std::uint64_t number) {
    if (!headerIsGood_ || stopped_ != 0) return;
    const std::int64_t room = headerSize_ + spareBytes - bytes_;
    if (room <= 0) {
        find(number, "the " + std::to_string(headerSize_) +
                         " bytes of the first line are used up before this line: katd refuses the file");
        stopped_ = number;
    } else if (room < 2) {
        stop(number, "the bytes of the first line are used up before this item");
    } else if (static_cast<std::int64_t>(bytes) > room - 1) {
        const bool isCut = static_cast<std::int64_t>(itemBytes) > room - 1;
        find(number, std::string("the line is too long for the bytes of the first line: katd ") +
                         (isCut ? "cuts the item and " : "") + "reads no further");
        stopped_ = number + 1;
    }
}

// The item must be spelt as katd would look for it.
void Checker::checkSpelling(const std::string& item, std::uint64_t number) {
    std::string asked;
    const char* reason = storedToItem(isUrls() ? Kind::urls : Kind::domains, item, &asked);
    if (item.empty()) {
        find(number, isUrls() ? "the item is empty: every URL begins with it" : "the item is empty");
    } else if (item.size() > itemLimit) {
        find(number, "the item is longer than 65535 bytes, which no URL in use is");
    } else if (reason != nullptr) {
        find(number, "of no use, " + std::string(reason) + ": " + bracketed(item));
    } else if (asked != item) {
        find(number, std::string("never found, ") +
                         (hasCapitals(item.c_str()) ? "it has capital letters" : "it is spelt otherwise") +
                         ": katd would look for " + bracketed(asked) + ", not " + bracketed(item));
    } else if (isHeld() && hasCapitals(item.c_str())) {
        Utils::toLower(asked.data());
        // Correct if both spellings are listed: an escape in a URL decodes to a capital letter.
        if (list_.find_sw(asked.c_str(), nullptr) == nullptr) {
            find(number, "capital letters in the path are found only where a URL has them as escapes: " +
                             bracketed(item) + " lacks " + bracketed(asked) + " beside it");
        }
    }
}

void Checker::checkOrder(const std::string& item, std::uint64_t number) {
    if (last_.line == 0) return;
    const std::int32_t order = StringList::cmp(item.c_str(), last_.text.c_str());
    if (order == 0) {
        find(number, "the same item as " + numbered(last_.line) + ": " + bracketed(item));
    } else if (order < 0) {
        find(number, "wrong order: " + bracketed(item) + " comes before " + bracketed(last_.text) + ", " +
                         numbered(last_.line));
    }
}

void Checker::checkNested(const std::string& item, std::uint64_t number) {
    while (!above_.empty() && StringList::cmp_sw(item.c_str(), above_.back().text.c_str()) != 0)
        above_.pop_back();
    if (isHeld() && !above_.empty() && above_.back().text != item) {
        const Item& prefix = above_.back();
        const char* found = list_.find_sw(item.c_str(), nullptr);
        const std::string pair =
            bracketed(item) + " begins with " + bracketed(prefix.text) + ", " + numbered(prefix.line) + ": ";
        if (found != nullptr && item != found) {
            find(number, "hidden: " + pair + "katd's search always finds " + bracketed(found) + " first");
        } else {
            find(number, "hides another: " + pair +
                             "katd misses URLs that begin with that one and sort after this one");
        }
    }
    if (!item.empty()) above_.push_back({item, number});
}

void Checker::checkTotals(std::uint64_t lines) {
    if (lines == 0) return find(1, "the file is empty: katd refuses it");
    if (!headerIsGood_) return;
    if (beyond_ != 0) {
        find(beyond_, "beyond the count: katd reads no line from here on, because the first line says " +
                          counted(headerCount_, "item"));
    }
    if (items_ != headerCount_) {
        find(1, "wrong count: the first line says " + counted(headerCount_, "item") + ", the file has " +
                    std::to_string(items_));
    }
    if (bytes_ != headerSize_) {
        find(1, "wrong size: the first line says " + counted(headerSize_, "byte") + ", the items need " +
                    std::to_string(bytes_));
    }
    if (!list_.loaded && stopped_ == 0) find(1, "katd refuses the file, perhaps for lack of memory");
}

void Checker::printResult() const {
    const char* kind = isUrls() ? "a list of URLs" : "a list of domains";
    const std::string items = counted(items_, "item");
    if (findings_.count() == 0) {
        std::printf("%s: fine, %s, %s in %s\n", path_.c_str(), kind, items.c_str(),
                    counted(bytes_, "byte").c_str());
    } else {
        std::printf("%s: %s in %s; katd holds %d of its %s\n", path_.c_str(),
                    counted(static_cast<std::int64_t>(findings_.count()), "finding").c_str(), kind,
                    static_cast<int>(list_.count), items.c_str());
    }
}

}  // namespace

ExitStatus check(const CheckOptions& options) {
    ExitStatus status = fine;
    for (const std::string& path : options.files) {
        try {
            if (!Checker(path, options).run()) status = std::max(status, wrong);
        } catch (const Failure& failure) {
            tell(failure.what());
            status = std::max(status, failure.status);
        }
    }
    return status;
}

}  // namespace katlist
