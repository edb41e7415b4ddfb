#include "Why.h"

#include <spawn.h>
#include <sys/wait.h>
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
#include "engine/catalog/Settings.h"
#include "tools/CategoryNames.h"
#include "tools/ListLookUp.h"
#include "tools/Options.h"

namespace katc {

namespace {

using KATD_SPACE::ConfReader;
using KATD_SPACE::IniUtils;

constexpr const char* serviceHome = "/var/lib/katd";

constexpr const char* usage = "Usage: katc why [--categories FILE] [--] URL...\n";
constexpr const char* footer =
    "Looks each URL up in the list files that katd's settings name, as katd does: the\n"
    "settings are in KATD_DIR or, without that variable, in /var/lib/katd. For a URL that\n"
    "is in no list, prints what katcatalog find says of the catalogue, if it is readable.\n"
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

// Whether the engine is the catalogue engine cannot be seen from here.
void askCatalog(const std::string& url) {
    engine::Settings settings;
    std::string problem;
    if (!engine::Settings::load(&settings, &problem)) {
        std::printf("  catalogue     %s\n", problem.c_str());
        return;
    }
    const std::string& path = settings.catalog;
    if (access(path.c_str(), R_OK) != 0) {
        std::printf("  catalogue     %s: %s\n", path.c_str(), std::strerror(errno));
        return;
    }
    std::printf("  catalogue     %s\n", path.c_str());
    std::fflush(stdout);
    const char* const words[] = {"katcatalog", "find", path.c_str(), "--", url.c_str(), nullptr};
    pid_t child = 0;
    const int error =
        posix_spawnp(&child, words[0], nullptr, nullptr, const_cast<char* const*>(words), environ);
    if (error != 0) {
        report(std::string("cannot run katcatalog: ") + std::strerror(error));
        return;
    }
    while (waitpid(child, nullptr, 0) < 0 && errno == EINTR) {
    }
}

}  // namespace

ExitStatus whyMain(int argc, const char* const* argv) {
    std::string namesFile;
    std::vector<std::string> urls;
    tools::CommandLine line("katc why", KATC_VERSION, "Says how katd comes to its answers.");
    line.setUsage(usage);
    line.setFooter(footer);
    line.text("--categories", "FILE", &namesFile, "Names of categories: a file of lines name = number");
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
        report("cannot open " + settingsPath + " (" + std::strerror(errno) +
               "): set KATD_DIR to katd's home directory");
        return badUsage;
    }
    std::string urlsFile;
    std::string domainsFile;
    if (!listPath(&settings, home, "urls_list_path", &urlsFile) ||
        !listPath(&settings, home, "domains_list_path", &domainsFile))
        return unanswered;
    const tools::ListLookUp lists(urlsFile, domainsFile);
    reportRefused(urlsFile, lists.hasUrls());
    reportRefused(domainsFile, lists.hasDomains());
    for (const std::string& url : urls) {
        std::string text;
        const bool isListed = lists.explain(url, names, &text);
        std::fwrite(text.data(), 1, text.size(), stdout);
        if (!isListed) askCatalog(url);
    }
    if (std::fflush(stdout) == 0 && std::ferror(stdout) == 0) return answered;
    report(std::string("cannot write to standard output (") + std::strerror(errno) + ")");
    return unanswered;
}

}  // namespace katc
