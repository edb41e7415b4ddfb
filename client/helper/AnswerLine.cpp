#include "helper/AnswerLine.h"

#include <charconv>

namespace katc {

namespace {

struct Decision {
    Verdict verdict;
    int category;  // the one that decided; -1: none
};

Decision decide(const HelperOptions& options, const katclient_answer& answer) {
    if (answer.status != KATCLIENT_OK) return {options.onFailure, -1};
    int category = -1;
    for (unsigned i = 0; i < answer.count && category < 0; ++i) {
        if (options.named[answer.categories[i]]) category = answer.categories[i];
    }
    const bool isNamed = category >= 0;
    if (!isNamed && answer.known == 0 && options.onUnknown) return {*options.onUnknown, -1};
    if (!options.rewrites) return {isNamed ? Verdict::ok : Verdict::err, category};
    if (isNamed != options.allows) return {Verdict::redirect, category};
    return {Verdict::ok, category};
}

const char* reasonOf(const katclient_answer& answer) {
    return answer.status == KATCLIENT_OK ? "katd has no certain answer"
                                         : katclient_status_text(answer.status);
}

void appendNumber(unsigned number, std::string* out) {
    char digits[16];
    out->append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

void appendEscaped(std::string_view text, std::string* out) {
    for (const char c : text) {
        if (c == '"' || c == '\\') *out += '\\';
        *out += c;
    }
}

void appendQuoted(std::string_view text, std::string* out) {
    *out += '"';
    appendEscaped(text, out);
    *out += '"';
}

void appendChannel(const RequestLine& line, std::string* out) {
    if (line.channel.empty()) return;
    *out += line.channel;
    *out += ' ';
}

// The categories as annotations of the request, by number and by name, and all of them as one value for
// squid's log.
void appendCategories(const tools::CategoryNames& names, const katclient_answer& answer, std::string* out) {
    if (answer.count == 0) return;
    for (unsigned i = 0; i < answer.count; ++i) {
        *out += " category_=";
        appendNumber(answer.categories[i], out);
    }
    for (unsigned i = 0; i < answer.count; ++i) {
        const std::string& name = names.nameOf(answer.categories[i]);
        if (name.empty()) continue;
        *out += " name_=";
        appendQuoted(name, out);
    }
    const char* const quote = names.empty() ? "" : "\"";
    *out += " log=";
    *out += quote;
    for (unsigned i = 0; i < answer.count; ++i) {
        if (i != 0) *out += ',';
        const std::string& name = names.nameOf(answer.categories[i]);
        if (name.empty())
            appendNumber(answer.categories[i], out);
        else
            appendEscaped(name, out);
    }
    *out += quote;
}

// For squid's error page.
void appendMessage(const tools::CategoryNames& names, unsigned category, std::string* out) {
    *out += " message=";
    const std::string& name = names.nameOf(category);
    if (!name.empty()) {
        appendQuoted(name, out);
    } else {
        *out += "\"category ";
        appendNumber(category, out);
        *out += '"';
    }
}

void appendRedirect(const HelperOptions& options, const RequestLine& line, int category, std::string* out) {
    std::string number;
    if (category >= 0) appendNumber(static_cast<unsigned>(category), &number);
    const std::string_view name =
        category < 0 ? std::string_view() : options.names.nameOf(static_cast<unsigned>(category));
    *out += "OK status=";
    appendNumber(options.redirectStatus, out);
    *out += " url=\"";
    options.redirect.append(number, name.empty() ? number : name, line.url, out);
    *out += '"';
}

}  // namespace

void appendAnswer(const HelperOptions& options, const RequestLine& line, const katclient_answer& answer,
                  std::string* out) {
    Decision decision = decide(options, answer);
    // A block page that is itself blocked would be redirected to itself.
    if (decision.verdict == Verdict::redirect && options.redirect.leadsTo(line.url))
        decision.verdict = Verdict::ok;
    if (decision.verdict == Verdict::bh) return appendProblem(line, reasonOf(answer), out);

    appendChannel(line, out);
    if (decision.verdict == Verdict::redirect) {
        const int first = answer.count == 0 ? -1 : answer.categories[0];
        appendRedirect(options, line, decision.category >= 0 ? decision.category : first, out);
    } else {
        *out += decision.verdict == Verdict::ok ? "OK" : "ERR";
        if (!options.rewrites) {
            appendCategories(options.names, answer, out);
            if (decision.category >= 0)
                appendMessage(options.names, static_cast<unsigned>(decision.category), out);
        }
    }
    *out += '\n';
}

void appendProblem(const RequestLine& line, const char* problem, std::string* out) {
    appendChannel(line, out);
    *out += "BH message=";
    appendQuoted(problem, out);
    *out += '\n';
}

}  // namespace katc
