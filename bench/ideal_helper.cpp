// The baseline of katc helper: a helper that has the lists in its own memory.
#include <string.h>
#include <unistd.h>

#include <memory>

#include "Category.h"
#include "Fail.h"
#include "Options.h"
#include "PlainList.h"
#include "Sockets.h"

namespace bench {

namespace {

constexpr std::size_t inputSize = 64 * 1024;

class Answers {
public:
    explicit Answers(const std::vector<std::string>& lists) {
        for (const std::string& list : lists)
            lists_.push_back(std::make_unique<PlainList>(list));
    }

    // line: "CHANNEL URL", with a zero byte in place of the line feed. It is modified.
    void append(char* line, std::string* out) const {
        char* const blank = strchr(line, ' ');
        if (blank == nullptr) fail("no question: %s", line);
        out->append(line, blank);
        const int category = categoryOfUrl(blank + 1);
        if (category < 0) {
            *out += " ERR\n";
            return;
        }
        char text[96];
        const int size = snprintf(text, sizeof(text), " OK category_=%d log=%d message=\"category %d\"\n",
                                  category, category, category);
        out->append(text, static_cast<std::size_t>(size));
    }

private:
    int categoryOfUrl(char* url) const {
        if (strncmp(url, SCHEME, SCHEME_LENGTH) == 0) url += SCHEME_LENGTH;
        if (lists_.size() > 1) {
            const int index = lists_.front()->findPrefix(url);
            if (index >= 0) return static_cast<int>(lists_.front()->category(index));
        }
        url[strcspn(url, "/")] = '\0';
        const int index = lists_.back()->find(url);
        return index < 0 ? -1 : static_cast<int>(lists_.back()->category(index));
    }

    std::vector<std::unique_ptr<PlainList>> lists_;
};

// Writes each answer as soon as it is known, as simple helpers do, or all answers to the lines of one read at
// once.
void serve(const Answers& answers, bool gathers) {
    std::vector<char> input(inputSize);
    std::size_t kept = 0;
    std::string out;
    for (ssize_t got; (got = read(STDIN_FILENO, input.data() + kept, inputSize - kept)) > 0;) {
        char* line = input.data();
        char* const end = line + kept + got;
        while (void* feed = memchr(line, '\n', static_cast<std::size_t>(end - line))) {
            *static_cast<char*>(feed) = '\0';
            answers.append(line, &out);
            if (!gathers) {
                if (!writeAll(STDOUT_FILENO, out.data(), out.size())) return;
                out.clear();
            }
            line = static_cast<char*>(feed) + 1;
        }
        if (!writeAll(STDOUT_FILENO, out.data(), out.size())) return;
        out.clear();
        kept = static_cast<std::size_t>(end - line);
        memmove(input.data(), line, kept);
    }
}

}  // namespace

}  // namespace bench

int main(int argc, char** argv) {
    using namespace bench;
    HelperOptions options;
    parse(argc, argv, &options);
    serve(Answers(options.lists), options.gathers);
}
