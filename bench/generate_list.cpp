// Makes lists of any size, and questions for them.
#include <errno.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <vector>

#include "Category.h"
#include "Fail.h"
#include "Names.h"
#include "Options.h"

namespace bench {

namespace {

struct Item {
    std::uint64_t head;    // first eight characters, in sorting order
    std::uint32_t offset;  // of the item in `texts`
};

using File = std::unique_ptr<std::FILE, int (*)(std::FILE*)>;

File create(const std::string& path) {
    File file(std::fopen(path.c_str(), "we"), std::fclose);
    if (file == nullptr) fail("cannot write %s: %s", path.c_str(), strerror(errno));
    return file;
}

void finish(File file, const std::string& path) {
    if (std::fflush(file.get()) != 0 || std::ferror(file.get()) != 0)
        fail("cannot write %s: %s", path.c_str(), strerror(errno));
}

std::uint64_t headOf(const char* text) {
    std::uint64_t head = 0;
    std::memcpy(&head, text, sizeof(head));
    return __builtin_bswap64(head);
}

void writeList(const ListOptions& options, const Names& names) {
    std::string texts;
    texts.reserve(options.items * (options.areDomains ? 19UL : 27UL));
    std::vector<Item> items;
    items.reserve(options.items);
    for (std::uint32_t number = 0; number < options.items; ++number) {
        const std::size_t begin = texts.size();
        names.appendHost(number, &texts);
        if (!options.areDomains) names.appendPath(number, &texts);
        texts += '\0';
        items.push_back({headOf(&texts[begin]), static_cast<std::uint32_t>(begin)});
    }
    std::sort(items.begin(), items.end(), [&](const Item& left, const Item& right) {
        if (left.head != right.head) return left.head < right.head;
        return std::strcmp(&texts[left.offset], &texts[right.offset]) < 0;
    });
    File file = create(options.output);
    std::fprintf(file.get(), "%u|%zu\n", options.items, texts.size());
    for (const Item& item : items) {
        const char* const text = &texts[item.offset];
        std::fprintf(file.get(), "%03u|%s\n", categoryOf(text), text);
    }
    finish(std::move(file), options.output);
}

// A question is an item, or a string that is not in the list, followed by more of a path.
void writeQuestions(const ListOptions& options, const Names& names) {
    File file = create(options.questions);
    std::string url;
    for (std::uint32_t i = 0; i < options.questionCount; ++i) {
        const std::uint64_t random = Names::mix((options.seed << 32) + i);
        const bool isHit = random % 100 < options.hitPercent;
        const std::uint64_t outside = Names::COUNT - options.items;
        const std::uint32_t number = static_cast<std::uint32_t>(
            isHit ? random / 100 % options.items : options.items + random / 100 % outside);
        url.clear();
        names.appendHost(number, &url);
        const unsigned category = categoryOf(url.c_str());
        names.appendPath(number, &url);
        url += "/index.html";
        if (isHit) {
            std::fprintf(file.get(), "%u\t%s%s\n", category, SCHEME, url.c_str());
        } else {
            std::fprintf(file.get(), "-\t%s%s\n", SCHEME, url.c_str());
        }
    }
    finish(std::move(file), options.questions);
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    ListOptions options;
    parse(argc, argv, &options);
    const Names names(options.seed);
    writeList(options, names);
    if (!options.questions.empty()) writeQuestions(options, names);
}
