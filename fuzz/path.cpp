// Canonical forms of paths.
// Input: the path.
#include <algorithm>
#include <vector>

#include "Fuzz.h"
#include "io/File.h"

using namespace katd_fuzz;
using QOR_SPACE::File;

namespace {

// The canonical form, segment by segment. A path whose last segment is "", "." or ".." ends in "/".
std::string canonical(const std::string& absolute) {
    std::vector<std::string> kept;
    bool namesFolder = false;
    std::size_t end = 0;
    for (std::size_t begin = 1; end < absolute.size(); begin = end + 1) {
        end = std::min(absolute.find('/', begin), absolute.size());
        const std::string segment = absolute.substr(begin, end - begin);
        namesFolder = segment.empty() || segment == "." || segment == "..";
        if (!namesFolder) kept.push_back(segment);
        if (segment == ".." && !kept.empty()) kept.pop_back();
    }
    std::string path;
    for (const std::string& segment : kept)
        path += "/" + segment;
    return namesFolder ? path + "/" : path;
}

std::string workingFolder() {
    char* name = getcwd(nullptr, 0);
    const std::string folder = name;
    std::free(name);
    return folder;
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const std::string home = workingFolder();
    const std::string text = bytesOf(data, size);
    const File file(text);
    const std::string path = file.getCanonicalPath();

    const std::string absolute = startsWith(text, "/") ? text : home + "/" + text;
    REQUIRE(file.getAbsolutePath() == absolute);
    REQUIRE(path == canonical(absolute));
    REQUIRE(path[0] == '/');
    REQUIRE(path.find("//") == std::string::npos);
    REQUIRE(File(path).getCanonicalPath() == path);
    // Parent and name together are the path, except for repeated separators.
    if (!file.getParent().empty()) {
        REQUIRE(File(file.getParent(), file.getName()).getCanonicalPath() == path);
    }
    return 0;
}
