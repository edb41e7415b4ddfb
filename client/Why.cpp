#include "Why.h"

#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "KatdConf/ConfReader.h"
#include "KatdUtil/IniUtils.h"
#include "ResultPrinter.h"
#include "catalog/SharedAddress.h"
#include "engine/catalog/Settings.h"
#include "tools/CategoryNames.h"
#include "tools/Child.h"
#include "tools/Json.h"
#include "tools/ListLookUp.h"
#include "tools/Options.h"
#include "tools/Text.h"

namespace katc {

namespace {

using KATD_SPACE::ConfReader;
using KATD_SPACE::IniUtils;
using tools::Json;

constexpr const char* serviceHome = "/var/lib/katd";

constexpr const char* whyUsage = "Usage: katc why [--categories FILE] [--json] [--] URL...\n";
constexpr const char* whyFooter =
    "Looks each URL up in the list files that katd's settings name, as katd does: the\n"
    "settings are in KATD_DIR or, without that variable, in /var/lib/katd. For a URL that\n"
    "is in no list, prints what katcatalog find says of the catalogue, if it is readable,\n"
    "and how to ask the shared store if there is one and the catalogue has no answer.\n"
    "\n"
    "Exit status: 0 all URLs were looked up; 1 a file cannot be read, or the output not\n"
    "written; 2 bad usage or settings.";

// The path of a list; empty if the settings name none, or it does not exist: katd has no such list then.
// False, with a report, if it cannot be read.
bool listPath(IniUtils* settings, const std::string& home, const char* key, std::string* path) {
    std::string value;
    path->clear();
    if (!ConfReader::readValue(*settings, ConfReader::katdSection, key, value)) return true;
    const std::string whole = home + value;
    if (access(whole.c_str(), R_OK) == 0) {
        *path = whole;
    } else if (errno != ENOENT) {
        report("cannot read " + whole + " (" + std::strerror(errno) +
               "): use an account of the group that may ask");
        return false;
    }
    return true;
}

void reportRefused(const std::string& path, bool loaded) {
    if (!path.empty() && !loaded)
        report("katd refuses " + path + ": katlist check " + path + " explains why");
}

// What katcatalog says of a URL. Whether the engine is the catalogue engine cannot be seen from here.
struct CatalogAnswer {
    CatalogAnswer(const std::string& url, bool asJson) {
        engine::Settings settings;
        if (!engine::Settings::load(&settings, &problem)) return;
        path = settings.catalog;
        if (access(path.c_str(), R_OK) != 0) {
            problem = std::strerror(errno);
            return;
        }
        std::vector<std::string> words = {"katcatalog", "find", path, "--", url};
        if (asJson) words.insert(words.begin() + 2, "--json");
        constexpr int notCovered = 1;
        if (tools::runChild(words, std::nullopt, &output, &problem) == notCovered)
            storeCommand = commandFor(settings, url);
    }

    std::string path;
    std::string output;
    std::string problem;
    std::string storeCommand;  // shows what the engine goes on to ask for; empty if there is no shared store

private:
    // For a shell. The password stays out of it, and of katc's output.
    static std::string commandFor(const engine::Settings& settings, const std::string& url) {
        catalog::SharedAddress address;
        if (catalog::readSharedAddress(settings.shared, &address) != nullptr) return "";
        std::string command = "katcatalog find ";
        if (!settings.sharedPasswordFile.empty() || !address.password.empty())
            command += "--password-file " +
                       (settings.sharedPasswordFile.empty() ? "FILE" : quoted(settings.sharedPasswordFile)) +
                       " ";
        const std::string user = address.user.empty() ? "" : address.user + "@";
        return command + quoted("redis://" + user + address.hosts[0].text()) + " -- " + quoted(url);
    }
    static std::string quoted(const std::string& word) {
        std::string result = "'";
        for (const char c : word)
            result += c == '\'' ? "'\\''" : std::string(1, c);
        return result + "'";
    }
};

void printCatalog(const std::string& url) {
    const CatalogAnswer answer(url, false);
    const char* const separator = answer.path.empty() || answer.problem.empty() ? "" : ": ";
    std::printf("  catalogue     %s%s%s\n%s", answer.path.c_str(), separator, answer.problem.c_str(),
                answer.output.c_str());
    if (!answer.storeCommand.empty())
        std::printf(
            "  shared store  asked for what the catalogue does not cover; to see its entries:\n    %s\n",
            tools::printable(answer.storeCommand).c_str());
}

Json catalogJson(const std::string& url) {
    const CatalogAnswer answer(url, true);
    Json json = Json::object();
    if (answer.problem.empty()) {
        json = tools::parseJson(answer.output);
        if (!json.is_object()) json = {{"error", "katcatalog could not read it"}};
    } else {
        json["error"] = answer.problem;
    }
    json["catalog"] = answer.path;
    if (!answer.storeCommand.empty()) json["shared"] = answer.storeCommand;
    return json;
}

void printJson(const std::string& url, const tools::ListAnswer& answer, const tools::CategoryNames& names) {
    Json json = {{"url", url}};
    if (answer.key) json["looked_up"] = *answer.key;
    if (answer.file.empty()) {
        json["catalog"] = catalogJson(url);
    } else {
        const unsigned category = answer.category & tools::CategoryNames::katdHighest;
        json["category"] = category;
        if (const std::string& name = names.nameOf(category); !name.empty()) json["name"] = name;
        json["item"] = answer.item;
        json["match"] = answer.isPrefix ? "prefix" : "host";
        json["list"] = answer.file;
    }
    std::printf("%s\n", tools::jsonText(json).c_str());
}

}  // namespace

ExitStatus whyMain(int argc, const char* const* argv) {
    std::string namesFile;
    std::vector<std::string> urls;
    tools::CommandLine line("katc why", KATC_VERSION, "Says how katd comes to its answers.");
    line.setUsage(whyUsage);
    line.setFooter(whyFooter);
    line.text("--categories", "FILE", &namesFile, "Names of categories: a file of lines name = number");
    bool asJson = false;
    line.flag("--json", &asJson, "Print one JSON object a URL");
    line.operands("", &urls, "");
    line.check([&] {
        if (urls.empty()) throw tools::UsageError("no URL is given");
    });
    int status = answered;
    if (!line.parse(argc, argv, &status)) return static_cast<ExitStatus>(status);

    tools::CategoryNames names;
    std::string problem;
    if (!namesFile.empty() && names.read(namesFile, &problem) != tools::CategoryNames::Status::ok) {
        report(problem);
        return badUsage;
    }
    const char* const variable = std::getenv("KATD_DIR");
    if (variable == nullptr || *variable == '\0') setenv("KATD_DIR", serviceHome, 1);
    const std::string home = ConfReader::homePathOf(std::getenv("KATD_DIR"));
    const std::string settingsPath = home + ConfReader::settingsFile;
    IniUtils settings(settingsPath.c_str(), "r");
    if (!settings.opened) {
        const int error = errno;
        report("cannot open " + settingsPath + " (" + std::strerror(error) + "): " +
               (error == EACCES ? "use an account of the group that may ask"
                                : "set KATD_DIR to katd's home directory"));
        return badUsage;
    }
    std::string urlsFile;
    std::string domainsFile;
    if (!listPath(&settings, home, "urls_list_path", &urlsFile) ||
        !listPath(&settings, home, "domains_list_path", &domainsFile))
        return unanswered;
    tools::ListLookUp lists(urlsFile, domainsFile, tools::ListLookUp::Lists::scanned);
    reportRefused(urlsFile, lists.hasUrls());
    reportRefused(domainsFile, lists.hasDomains());
    for (const std::string& url : urls) {
        const tools::ListAnswer answer = lists.find(url);
        if (asJson) {
            printJson(url, answer, names);
            continue;
        }
        std::printf("%s", lists.text(url, answer, names).c_str());
        if (answer.file.empty()) printCatalog(url);
    }
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return answered;
    report(std::string("cannot write to standard output (") + std::strerror(errno) + ")");
    return unanswered;
}

}  // namespace katc
