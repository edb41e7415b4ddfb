#include "Settings.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>
#include <optional>
#include <set>

#include "KatdConf/ConfReader.h"
#include "KatdUtil/IniUtils.h"
#include "tools/CategoryNames.h"
#include "tools/Numbers.h"

namespace gateway {

namespace {

constexpr char mainSection[] = "katd-http";
constexpr char policyPrefix[] = "policy ";
const std::set<std::string, std::less<>> mainKeys = {
    "listen",   "admin_listen",   "socket",          "katd_log",     "categories",     "connections",
    "policies", "answer_timeout", "max_connections", "idle_timeout", "request_timeout"};
const std::set<std::string, std::less<>> policyKeys = {"block", "allow",  "on_unknown", "on_failure",
                                                       "proxy", "refuse", "block_page", "title",
                                                       "text",  "contact"};

std::string_view trimmed(std::string_view string) {
    constexpr char blanks[] = " \t\r";
    const std::size_t begin = string.find_first_not_of(blanks);
    if (begin == string.npos) return {};
    return string.substr(begin, string.find_last_not_of(blanks) + 1 - begin);
}

// The settings file. Unknown keys are refused: they are probably misspelt.
class File {
public:
    File(const std::string& path, const std::string& home)
        : path_(path), home_(home), ini_(path.c_str(), "r") {
        if (!ini_.opened) throw SettingsError("cannot open " + path + " (" + std::strerror(errno) + ")");
        checkNames();
    }

    std::optional<std::string> value(const std::string& section, const char* key) {
        std::string result;
        if (!KATD_SPACE::ConfReader::readValue(ini_, section.c_str(), key, result)) return std::nullopt;
        return result;
    }
    std::string value(const std::string& section, const char* key, const std::string& otherwise) {
        return value(section, key).value_or(otherwise);
    }
    unsigned number(const char* key, unsigned otherwise, unsigned least, unsigned most) {
        const std::optional<std::string> string = value(mainSection, key);
        if (!string) return otherwise;
        const std::optional<std::uint64_t> result = tools::parseDecimal(*string, most);
        if (!result || *result < least)
            fail(mainSection, key,
                 "must be a number from " + std::to_string(least) + " to " + std::to_string(most) + ", not " +
                     *string);
        return static_cast<unsigned>(*result);
    }
    // Index of the value among the words; the first without the key.
    std::size_t word(const std::string& section, const char* key, const std::vector<std::string>& words) {
        const std::string string = value(section, key, words[0]);
        const auto found = std::find(words.begin(), words.end(), string);
        if (found == words.end()) {
            std::string list;
            for (const std::string& one : words)
                list += (list.empty() ? "" : ", ") + one;
            fail(section, key, "must be one of " + list + ", not " + string);
        }
        return static_cast<std::size_t>(found - words.begin());
    }
    std::vector<std::string> list(const char* key) {
        std::vector<std::string> result;
        const std::string string = value(mainSection, key, "");
        for (std::size_t begin = 0; begin <= string.size();) {
            const std::size_t end = std::min(string.find(',', begin), string.size());
            if (const std::string_view item = trimmed(std::string_view(string).substr(begin, end - begin));
                !item.empty())
                result.emplace_back(item);
            begin = end + 1;
        }
        return result;
    }
    std::string pathOf(const std::string& string) const {
        return string.empty() || string[0] == '/' ? string : home_ + string;
    }
    [[noreturn]] void fail(const std::string& section, const std::string& key,
                           const std::string& reason) const {
        throw SettingsError(path_ + ": " + key + " in [" + section + "] " + reason);
    }

private:
    void checkNames() const {
        std::ifstream file(path_);
        const std::set<std::string, std::less<>>* keys = nullptr;
        std::set<std::string, std::less<>> sections;
        std::size_t number = 0;
        for (std::string line; std::getline(file, line);) {
            ++number;
            const std::string_view string =
                trimmed(std::string_view(line).substr(0, line.find_first_of("#;")));
            const std::string where = path_ + ", line " + std::to_string(number) + ": ";
            if (line.size() >= KATD_SPACE::IniUtils::valueLimit - 1)
                throw SettingsError(where + "a line has at most 254 bytes");
            if (string.empty()) continue;
            if (string[0] == '[') {
                const std::string_view name = trimmed(string.substr(1, string.find(']') - 1));
                if (name == mainSection)
                    keys = &mainKeys;
                else if (name.substr(0, sizeof policyPrefix - 1) == policyPrefix)
                    keys = &policyKeys;
                else
                    throw SettingsError(where + "no section " + std::string(name) + " is known");
                if (!sections.emplace(name).second)
                    throw SettingsError(where + "the section " + std::string(name) + " is there twice");
                continue;
            }
            const std::string_view key = trimmed(string.substr(0, string.find('=')));
            if (keys == nullptr || string.find('=') == string.npos || keys->count(key) == 0)
                throw SettingsError(where + "no key " + std::string(key) + " is known here");
        }
    }

    const std::string path_;
    const std::string home_;
    KATD_SPACE::IniUtils ini_;
};

Policy readPolicy(File* file, const std::string& section, const tools::CategoryNames& names) {
    Policy policy;
    const std::optional<std::string> block = file->value(section, "block");
    const std::optional<std::string> allow = file->value(section, "allow");
    if (block.has_value() == allow.has_value())
        file->fail(section, "block", "or allow must be given, one of them");
    policy.allows = allow.has_value();
    std::string problem;
    if (!names.resolveList(policy.allows ? *allow : *block, &policy.named, &problem))
        file->fail(section, policy.allows ? "allow" : "block", "is wrong: " + problem);
    const std::vector<std::string> unknownWords =
        policy.allows ? std::vector<std::string>{"block", "pass"} : std::vector<std::string>{"pass", "block"};
    const std::string unknown = unknownWords[file->word(section, "on_unknown", unknownWords)];
    policy.onUnknown = unknown == "block" ? Verdict::refuse : Verdict::pass;
    constexpr Verdict failureVerdicts[] = {Verdict::fail, Verdict::pass, Verdict::refuse};
    policy.onFailure = failureVerdicts[file->word(section, "on_failure", {"error", "pass", "block"})];
    constexpr UrlSource sources[] = {UrlSource::nginx, UrlSource::forwarded, UrlSource::forwarded,
                                     UrlSource::envoy, UrlSource::none};
    if (!file->value(section, "proxy"))
        file->fail(section, "proxy", "must be nginx, traefik, caddy, envoy or squid");
    policy.source = sources[file->word(section, "proxy", {"nginx", "traefik", "caddy", "envoy", "squid"})];
    constexpr unsigned statuses[] = {403, 302};
    policy.refusedStatus = statuses[file->word(section, "refuse", {"403", "302"})];
    policy.blockPage = file->value(section, "block_page", "");
    if (policy.refusedStatus == 302 && policy.blockPage.empty())
        file->fail(section, "refuse", "302 needs block_page, the address to go to");
    policy.title = file->value(section, "title", "This page is blocked");
    policy.text = file->value(section, "text", "The address belongs to a category that is blocked here.");
    policy.contact = file->value(section, "contact", "");
    return policy;
}

}  // namespace

Settings readSettings(const std::string& path, const std::string& home) {
    File file(path, home);
    Settings settings;
    settings.listen = file.list("listen");
    if (settings.listen.empty()) settings.listen = {"127.0.0.1:8480"};
    settings.adminListen = file.list("admin_listen");
    settings.socket = file.pathOf(file.value(mainSection, "socket", "run/katd.sock"));
    settings.katdLog = file.pathOf(file.value(mainSection, "katd_log", ""));
    settings.connections = file.number("connections", 4, 1, 64);
    settings.answerMs = file.number("answer_timeout", 5000, 1, 3600000);
    settings.limits.connections = file.number("max_connections", 512, 1, 20000);
    settings.limits.request = std::chrono::seconds(file.number("request_timeout", 10, 1, 3600));
    settings.limits.reply = settings.limits.request;
    settings.limits.idle = std::chrono::seconds(file.number("idle_timeout", 60, 1, 3600));
    return settings;
}

Rules readRules(const std::string& path, const std::string& home) {
    File file(path, home);
    Rules rules;
    std::string problem;
    if (const std::string namesPath = file.pathOf(file.value(mainSection, "categories", ""));
        !namesPath.empty()) {
        if (rules.names.read(namesPath, &problem) != tools::CategoryNames::Status::ok)
            throw SettingsError(problem);
    }
    for (const std::string& name : file.list("policies")) {
        // The name is part of a path and of a link.
        if (name.find_first_not_of("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_") !=
            name.npos)
            file.fail(mainSection, "policies", "takes names of letters, digits, - and _, not " + name);
        rules.policies.emplace(name, readPolicy(&file, policyPrefix + name, rules.names));
    }
    return rules;
}

}  // namespace gateway
