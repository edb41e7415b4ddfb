// Load on a squid helper through pipes, in squid's protocol: one line with a channel-ID for each question.
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <csignal>

#include "Fail.h"
#include "Load.h"
#include "Sockets.h"

namespace bench {

namespace {

class Helper {
public:
    explicit Helper(const std::vector<std::string>& command);
    ~Helper();
    Helper(const Helper&) = delete;
    Helper& operator=(const Helper&) = delete;

    int questions() const { return questions_; }
    int answers() const { return answers_; }

private:
    int questions_ = -1;
    int answers_ = -1;
    pid_t pid_ = -1;
};

Helper::Helper(const std::vector<std::string>& command) {
    int in[2];
    int out[2];
    if (pipe2(in, O_CLOEXEC) != 0 || pipe2(out, O_CLOEXEC) != 0) fail("no pipe: %s", strerror(errno));
    std::vector<char*> words;
    words.reserve(command.size() + 1);
    for (const std::string& word : command)
        words.push_back(const_cast<char*>(word.c_str()));
    words.push_back(nullptr);
    pid_ = fork();
    if (pid_ < 0) fail("cannot fork: %s", strerror(errno));
    if (pid_ == 0) {
        dup2(in[0], STDIN_FILENO);
        dup2(out[1], STDOUT_FILENO);
        execvp(words[0], words.data());
        fail("cannot run %s: %s", words[0], strerror(errno));
    }
    close(in[0]);
    close(out[1]);
    questions_ = in[1];
    answers_ = out[0];
}

Helper::~Helper() {
    close(questions_);
    char rest[4096];
    while (read(answers_, rest, sizeof(rest)) > 0) {
    }
    close(answers_);
    waitpid(pid_, nullptr, 0);
}

// The questions in flight, by channel.
class Window {
public:
    Window(const Questions& questions, unsigned size) : questions_(questions), asked_(size), sentAt_(size) {}

    void ask(unsigned channel, std::uint64_t now, std::string* lines) {
        char digits[16];
        lines->append(digits, std::to_chars(digits, digits + sizeof(digits), channel).ptr);
        *lines += ' ';
        const std::size_t begin = questions_.requestBegin(next_) + 8;
        lines->append(questions_.requests.data() + begin, questions_.requestEnd[next_] - begin);
        *lines += '\n';
        asked_[channel] = next_;
        sentAt_[channel] = now;
        next_ = next_ + 1 == questions_.count() ? 0 : next_ + 1;
    }

    // Checks the answer in [line, end). Returns its channel, which is free then.
    unsigned take(const char* line, const char* end, std::uint64_t now, Schedule* schedule) {
        unsigned channel = 0;
        const char* text = std::from_chars(line, end, channel).ptr;
        if (text == line || channel >= asked_.size())
            fail("no answer: %.*s", static_cast<int>(end - line), line);
        const int category = questions_.category(asked_[channel]);
        char expected[64];
        const int size = category < 0 ? snprintf(expected, sizeof(expected), " ERR\n")
                                      : snprintf(expected, sizeof(expected), " OK category_=%d ", category);
        if (end - text < size || memcmp(text, expected, static_cast<std::size_t>(size)) != 0)
            fail("wrong answer to %s: %.*s", questions_.url(asked_[channel]).c_str(),
                 static_cast<int>(end - line), line);
        schedule->answered(sentAt_[channel], now);
        return channel;
    }

private:
    const Questions& questions_;
    unsigned next_ = 0;
    std::vector<unsigned> asked_;
    std::vector<std::uint64_t> sentAt_;
};

// False if a signal interrupted it.
bool receive(int fd, char* to, std::size_t size, std::size_t* got) {
    const ssize_t result = read(fd, to, size);
    if (result < 0 && errno == EINTR) return false;
    if (result <= 0) fail("the helper has ended");
    *got = static_cast<std::size_t>(result);
    return true;
}

}  // namespace

void loadHelper(const ClientOptions& options, const Questions& questions, Schedule* schedule) {
    signal(SIGPIPE, SIG_IGN);
    Helper helper(options.helper);
    Window window(questions, options.window);
    std::string lines;
    for (unsigned channel = 0; channel < options.window; ++channel)
        window.ask(channel, nowNanoseconds(), &lines);
    std::vector<char> input(256 * 1024);
    std::size_t kept = 0;
    for (;;) {
        if (!lines.empty() && !writeAll(helper.questions(), lines.data(), lines.size()))
            fail("the helper has ended");
        lines.clear();
        std::size_t got = 0;
        if (!receive(helper.answers(), input.data() + kept, input.size() - kept, &got)) break;
        const std::uint64_t now = nowNanoseconds();
        const char* line = input.data();
        const char* const end = line + kept + got;
        while (const void* feed = memchr(line, '\n', static_cast<std::size_t>(end - line))) {
            const char* const next = static_cast<const char*>(feed) + 1;
            window.ask(window.take(line, next, now, schedule), now, &lines);
            line = next;
        }
        kept = static_cast<std::size_t>(end - line);
        memmove(input.data(), line, kept);
        if (schedule->isOver(now)) break;
    }
}

}  // namespace bench
