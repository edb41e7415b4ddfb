#include "listreader/Reader.h"

#include <arpa/inet.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

#include "Text.h"
#include "listreader/Failure.h"

namespace listreader {

namespace {

constexpr std::size_t barOffset = 3;  // in an item line of a list file of katd

// Names in hosts files that mean the machine itself.
constexpr std::string_view ownNames[] = {"localhost",      "localhost.localdomain", "local",
                                         "broadcasthost",  "ip6-localhost",         "ip6-loopback",
                                         "ip6-localnet",   "ip6-mcastprefix",       "ip6-allnodes",
                                         "ip6-allrouters", "ip6-allhosts",          "0.0.0.0"};

bool isOwnName(std::string_view name) {
    return std::any_of(std::begin(ownNames), std::end(ownNames),
                       [name](std::string_view own) { return equals(name, own); });
}

bool isIpAddress(std::string_view text) {
    const std::string address(text.substr(0, std::min<std::size_t>(text.find('%'), INET6_ADDRSTRLEN)));
    in6_addr ignored;
    return inet_pton(AF_INET, address.c_str(), &ignored) == 1 ||
           inet_pton(AF_INET6, address.c_str(), &ignored) == 1;
}

std::string_view withoutLineEnd(std::string_view line) {
    if (!line.empty() && line.back() == '\n') line.remove_suffix(1);
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    return line;
}

// Distinguishes "12|345", the header of a list file, from an item of digits with its category: the two
// numbers must be plausible, and an item line must follow.
bool isHeader(std::string_view line, LineFile* file) {
    const std::size_t bar = line.find('|');
    if (bar == line.npos || bar == 0 || bar > 10 || line[0] == '0') return false;
    const std::string count(line.substr(0, bar));
    const std::string size(line.substr(bar + 1));
    if (size.empty() || size.size() > 10 || (count + size).find_first_not_of("0123456789") != count.npos)
        return false;
    if (std::strtoull(size.c_str(), nullptr, 10) >
        std::strtoull(count.c_str(), nullptr, 10) * (entryLimit + 1))
        return false;
    const std::string next = file->peek(barOffset + 1);
    return next.size() > barOffset && next[barOffset] == '|' && next.find('\n') == next.npos;
}

// Removes a comment that follows a blank.
std::string_view withoutComment(std::string_view text, char mark) {
    for (std::size_t at = 0; (at = text.find(mark, at)) != text.npos; ++at) {
        if (at > 0 && blanks.find(text[at - 1]) != blanks.npos) return trimmed(text.substr(0, at));
    }
    return text;
}

std::string_view unquoted(std::string_view text) {
    if (text.size() >= 2 && (text[0] == '"' || text[0] == '\'') && text.back() == text[0])
        return text.substr(1, text.size() - 2);
    return text;
}

bool isOneOf(std::string_view word, std::initializer_list<std::string_view> words) {
    return std::any_of(words.begin(), words.end(),
                       [word](std::string_view one) { return equals(word, one); });
}

}  // namespace

Reader::Reader(const Options& options, Take take, Progress* progress)
    : options_(options),
      take_(std::move(take)),
      progress_(progress),
      bad_(options.kept != nullptr ? Notes(options.kept, options.show) : Notes(stderr, options.show)) {}

Reader::Counts Reader::counts() const {
    Counts counts = counts_;
    counts.bad = bad_.count();
    return counts;
}

void Reader::read(const Source& source) {
    LineFile file(source.path);
    file_ = &file;
    sourceCategory_ = source.category;
    isListFile_ = false;
    isInRecord_ = false;
    origin_.clear();
    while (file.next()) {
        progress_->sharedStep("lines read", ++counts_.lines);
        takeLine(&file);
    }
    file_ = nullptr;
}

void Reader::takeLine(LineFile* file) {
    std::string_view line(file->text, file->length);
    // Nearly all lines: skip the questions of all other formats.
    if (!isListFile_ && !isInRecord_ && parsePlainHost(withoutLineEnd(line), &entry_)) {
        category_ = sourceCategory_;
        entry_.isException = false;
        return hand(withoutLineEnd(line));
    }
    if (line.find('\0') != line.npos)
        return badLine(line.substr(0, line.find('\0')), "it contains a zero byte");
    constexpr std::string_view byteOrderMark = "\xef\xbb\xbf";  // some editors begin files with it
    if (file->number == 1 && line.substr(0, byteOrderMark.size()) == byteOrderMark)
        line.remove_prefix(byteOrderMark.size());
    const bool isContinued = blanks.find(line[0]) != blanks.npos;
    line = trimmed(line);
    if (file->dropped > 0) return badLine(line, "it is longer than 1 MiB");
    // The first line does not move when peek() reads on.
    if (file->number == 1 && isHeader(line, file)) {
        isListFile_ = true;
        ++counts_.empty;
        return;
    }
    if (line.empty() || line[0] == '#') {
        ++counts_.empty;
        return;
    }
    category_ = sourceCategory_;
    const std::size_t bar = line.find('|');
    const std::string_view before = line.substr(0, bar == line.npos ? 0 : bar);
    if (before.find_first_not_of(" \t+-0123456789") == before.npos &&
        before.find_first_of("0123456789") != before.npos) {
        category_ = toCategory(before, options_.highestCategory);
        if (category_ < 0) {
            return badLine(
                line, "its category is not a number from 0 to " + std::to_string(options_.highestCategory));
        }
        line = trimmed(line.substr(bar + 1));
        if (isListFile_ || line.empty()) return takePlain(line);
    } else if (isListFile_) {
        return badLine(line, "it is not an item line, unlike the others of this list");
    }
    if (takeComment(line) || takeFilterRule(line)) return;
    line = withoutComment(line, '#');
    if (takeDnsmasq(line) || takeUnbound(line)) return;
    const std::size_t word = line.find_first_of(" \t");
    if (word != line.npos) {
        if (isIpAddress(line.substr(0, word))) return takeHosts(line.substr(word));
        if (takeRecord(line, isContinued)) return;
    }
    takePlain(line);
}

// Comments and headings of the formats other than plain lists.
bool Reader::takeComment(std::string_view line) {
    const bool isComment = isInRecord_ || line[0] == '!' || line[0] == ';' || startsWith(line, "[adblock") ||
                           equals(line, "server:");
    if (isInRecord_) isInRecord_ = line.find(')') == line.npos;
    if (isComment) ++counts_.empty;
    return isComment;
}

bool Reader::takeFilterRule(std::string_view line) {
    const bool isException = line.substr(0, 2) == "@@";
    std::string_view rule = isException ? line.substr(2) : line;
    if (rule.substr(0, 2) != "||") {
        if (isException) badLine(line, "it is a filter rule for more than a host");
        return isException;
    }
    rule.remove_prefix(2);
    if (rule.empty() || rule.back() != '^' || rule.find_first_of("^/*$|") != rule.size() - 1) {
        badLine(line, "it is a filter rule for more than a host");
    } else {
        takeHost(rule.substr(0, rule.size() - 1), Scope::hostAndBelow, isException);
    }
    return true;
}

bool Reader::takeDnsmasq(std::string_view line) {
    const std::size_t sign = line.find('=');
    if (sign == line.npos || line.substr(sign + 1, 1) != "/") return false;
    const std::string_view option = line.substr(0, sign);
    if (!isOneOf(option, {"address", "server", "local"})) return false;
    const std::size_t last = line.rfind('/');
    const std::string_view target = line.substr(last + 1);
    const bool isException = target == "#" && !equals(option, "address");
    if (last == sign + 1) {
        badLine(line, "it names no host");
        return true;
    }
    if (!target.empty() && !isException && !equals(option, "address")) {
        badLine(line, "it names a server to ask instead of blocking");
        return true;
    }
    std::string_view hosts = line.substr(sign + 2, last - sign - 1);
    while (!hosts.empty()) {
        const std::size_t slash = hosts.find('/');
        takeHost(hosts.substr(0, slash), Scope::hostAndBelow, isException);
        hosts.remove_prefix(slash + 1);
    }
    return true;
}

bool Reader::takeUnbound(std::string_view line) {
    const bool isZone = startsWith(line, "local-zone:");
    if (!isZone && !startsWith(line, "local-data:")) return false;
    std::string_view rest = trimmed(line.substr(line.find(':') + 1));
    if (!isZone) {
        if (!takeRecord(unquoted(rest), false)) badLine(line, "its record blocks no host");
        return true;
    }
    const std::string_view host = unquoted(takeWord(&rest));
    const std::string_view type = takeWord(&rest);
    if (isOneOf(type, {"transparent", "always_transparent", "typetransparent"})) {
        takeHost(host, Scope::hostAndBelow, true);
    } else if (isOneOf(type, {"deny", "refuse", "static", "redirect", "inform_deny", "inform_redirect",
                              "always_deny", "always_refuse", "always_nxdomain", "always_nodata",
                              "always_null", "block_a"})) {
        takeHost(host, Scope::hostAndBelow, false);
    } else {
        badLine(line, "the type of its zone does not block");
    }
    return true;
}

// A record of a zone file: "OWNER [TTL] [IN] TYPE DATA".
bool Reader::takeRecord(std::string_view line, bool isContinued) {
    std::string_view rest = withoutComment(line, ';');
    std::string_view owner;
    if (!isContinued) owner = takeWord(&rest);
    if (equals(owner, "$origin")) {
        origin_ = takeWord(&rest);
        lower(origin_.data(), origin_.size());
        if (!origin_.empty() && origin_.back() == '.') origin_.pop_back();
    }
    std::string_view type = takeWord(&rest);
    if (!type.empty() && type.find_first_not_of("0123456789smhdwSMHDW") == type.npos && isDigit(type[0]))
        type = takeWord(&rest);
    if (equals(type, "in")) type = takeWord(&rest);
    const bool isData = isOneOf(type, {"cname", "a", "aaaa"});
    const bool isOther = isOneOf(type, {"soa", "ns", "txt", "mx", "srv", "ptr", "dname", "hinfo"});
    if (!isData && !isOther && !isOneOf(owner, {"$origin", "$ttl"})) return false;
    if (equals(type, "soa")) {
        isInRecord_ = rest.find('(') != rest.npos && rest.find(')') == rest.npos;
        if (origin_.empty() && owner.size() > 1 && owner.back() == '.') {
            origin_ = owner.substr(0, owner.size() - 1);
            lower(origin_.data(), origin_.size());
        }
    }
    const std::string_view data = takeWord(&rest);
    if (isData && !equals(type, "cname") && !isIpAddress(data)) return false;  // prose: "this A that"
    // Further records of the same owner add nothing.
    if (!isData || isContinued) {
        ++counts_.empty;
        return true;
    }
    if (equals(type, "cname") && equals(data, "rpz-tcp-only.")) {
        badLine(line, "its record does not block");
    } else {
        takeOwner(owner, equals(type, "cname") && equals(data, "rpz-passthru."));
    }
    return true;
}

void Reader::takeOwner(std::string_view owner, bool isException) {
    std::string_view host = owner;
    if (!host.empty() && host.back() == '.') {
        host.remove_suffix(1);
        const std::size_t before = host.size() - std::min(host.size(), origin_.size());
        if (!origin_.empty() && before > 1 && host[before - 1] == '.' && equals(host.substr(before), origin_))
            host = host.substr(0, before - 1);
    }
    const std::string_view last = host.substr(host.rfind('.') + 1);
    if (isOneOf(last, {"rpz-ip", "rpz-client-ip", "rpz-nsdname", "rpz-nsip"}))
        return badLine(owner, "it is a rule for more than a host");
    const bool isBelow = host.substr(0, 2) == "*.";
    takeHost(isBelow ? host.substr(2) : host, isBelow ? Scope::below : Scope::host, isException);
}

void Reader::takeHosts(std::string_view names) {
    for (std::string_view name = takeWord(&names); !name.empty(); name = takeWord(&names)) {
        if (isOwnName(name)) {
            ++counts_.ownNames;
        } else {
            takeHost(name, Scope::host, false);
        }
    }
}

// Handles a host from a format that has its own rules for subdomains.
void Reader::takeHost(std::string_view host, Scope scope, bool isException) {
    if (!host.empty() && host.back() == '.') host.remove_suffix(1);
    if (host.empty()) return badLine(host, "it names no host");
    if (const char* reason = parseEntry(host, &entry_)) return badLine(host, reason);
    if (entry_.scope == Scope::unsaid) entry_.scope = scope;
    entry_.isException = isException;
    hand(host);
}

void Reader::takePlain(std::string_view text) {
    if (const char* reason = parseEntry(text, &entry_)) return badLine(text, reason);
    entry_.isException = false;
    hand(text);
}

void Reader::hand(std::string_view written) {
    if (category_ < 0) return badLine(written, "it has no category, and --category is not given");
    entry_.isStored = isListFile_;
    entry_.category = category_;
    entry_.line = file_->number;
    if (const char* reason = take_(entry_)) return badLine(written, reason);
    ++counts_.entries;
}

void Reader::badLine(std::string_view text, const std::string& reason) {
    const auto place = [this] { return file_->name + ":" + std::to_string(file_->number) + ": "; };
    if (options_.strict) throw Failure(wrong, place() + reason + ": [" + printable(text) + "] (--strict)");
    if (bad_.shows()) {
        bad_.add(place() + "skipped, " + reason + ": [" + printable(text) + "]");
    } else {
        bad_.add();
    }
}

}  // namespace listreader
