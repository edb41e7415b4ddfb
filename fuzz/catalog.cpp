// The catalogue: the reader of URLs, and look-ups in a damaged file.
// Input: "f" and the file, or any other byte and a URL.
#include "catalog/Catalog.h"

#include <memory>
#include <string>

#include "Fuzz.h"
#include "catalog/Guard.h"

namespace {

// What was read reads the same again.
void readUrl(std::string_view text) {
    for (const bool entry : {false, true}) {
        catalog::Url url;
        if ((entry ? catalog::readEntry(text, &url) : catalog::readUrl(text, &url)) != nullptr) continue;
        std::string again = catalog::hostText(url.kind, url.host);
        if (url.kind == catalog::Url::ipv6) again = "[" + again + "]";
        if (url.kind != catalog::Url::name && url.prefix != 8 * url.host.size()) {
            again += "/" + std::to_string(url.prefix);
        } else {
            again = "http://" + again + (url.portGiven ? ":" + std::to_string(url.port) : "") + url.path;
        }
        catalog::Url second;
        REQUIRE(catalog::readEntry(again, &second) == nullptr);
        REQUIRE(second.kind == url.kind && second.host == url.host && second.path == url.path);
        REQUIRE(second.prefix == url.prefix && second.portGiven == url.portGiven);
    }
}

void readFile(const std::uint8_t* data, std::size_t size) {
    char path[] = "/tmp/katd-fuzz-XXXXXX";
    const int fd = mkstemp(path);
    REQUIRE(fd >= 0 && write(fd, data, size) == static_cast<ssize_t>(size));
    close(fd);
    std::string failure;
    if (auto file = catalog::Catalog::open(path, &failure)) {
        const auto answer = std::make_unique<catalog::Answer>();
        for (const char* const text :
             {"www.a.example/x/y?z", "b.example:8080/x", "203.0.113.7", "[2001:db8::1]/x"}) {
            catalog::Reader reader(file);
            catalog::Url url;
            catalog::readUrl(text, &url);
            reader.classify(url, answer.get());
        }
    }
    unlink(path);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static const bool installed = [] {
        catalog::installFaultGuard();
        return true;
    }();
    static_cast<void>(installed);
    if (size == 0) return 0;
    if (data[0] == 'f') {
        readFile(data + 1, size - 1);
    } else {
        readUrl({reinterpret_cast<const char*>(data) + 1, size - 1});
    }
    return 0;
}
