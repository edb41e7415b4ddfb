// URLs as clients write them, looked up in containers of lists.
// Input: the URL.
#include <optional>
#include <vector>

#include "Fuzz.h"
#include "UrlContainer/UrlContainer.h"

using namespace katd_fuzz;
using KATD_SPACE::UrlContainer;
using KATD_SPACE::Utils;

namespace {

struct Item {
    const char* text;
    std::uint32_t category;
};
// No prefix is a prefix of another, so that each is found wherever it matches.
constexpr Item prefixes[] = {{"a b/", 1}, {"ads.example/x y", 2}, {"shop.example/t", 3}, {"z", 999}};
constexpr Item hosts[] = {{"ads.example", 12}, {"http:", 13}, {"shop.example", 34}};
constexpr const char* prefixFile = "4|38\n001|a b/\n002|ads.example/x y\n003|shop.example/t\n999|z\n";
constexpr const char* hostFile = "3|31\n012|ads.example\n013|http:\n034|shop.example\n";

constexpr std::uint32_t notListed = 0xFFFFFFFF;

struct Container : UrlContainer {
    Container(const char* urls, const char* domains) {
        const InputFile urlFile(urls);
        const InputFile domainFile(domains);
        REQUIRE(load(urlFile.path(), domainFile.path()));
    }
};

std::string lowerCase(std::string text) {
    for (char& c : text) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c + ('a' - 'A'));
    }
    return text;
}

std::string withoutScheme(const std::string& url) {
    for (const std::string scheme : {"http://", "https://", "ftp://"}) {
        if (startsWith(url, scheme)) return url.substr(scheme.size());
    }
    return url;
}

std::optional<int> hexByte(const std::string& digits) {
    if (digits.size() != 2) return std::nullopt;
    const std::string all = "0123456789abcdef";
    const std::size_t high = all.find(lowerCase(digits.substr(0, 1)));
    const std::size_t low = all.find(lowerCase(digits.substr(1)));
    if (high == std::string::npos || low == std::string::npos) return std::nullopt;
    return static_cast<int>(high * 16 + low);
}

std::string decoded(const std::string& text) {
    std::string result;
    for (std::size_t i = 0; i < text.size(); ++i) {
        const auto byte = text[i] == '%' ? hexByte(text.substr(i + 1, 2)) : std::nullopt;
        result += byte ? static_cast<char>(*byte) : text[i];
        if (byte) i += 2;
    }
    return upToZero(result);
}

std::string withDecodedPath(const std::string& url) {
    const std::size_t path = url.find('/');
    return path == std::string::npos ? url : url.substr(0, path) + decoded(url.substr(path));
}

std::uint32_t byPrefix(const std::string& url) {
    for (const Item& item : prefixes) {
        if (startsWith(url, item.text)) return item.category;
    }
    return notListed;
}

std::uint32_t byHost(const std::string& url) {
    for (const Item& item : hosts) {
        if (url.substr(0, url.find('/')) == item.text) return item.category;
    }
    return notListed;
}

// A copy on the heap, of the exact size: the sanitizer detects an access beyond it.
std::vector<char> copyOf(const std::string& text) {
    return std::vector<char>(text.c_str(), text.c_str() + text.size() + 1);
}

std::string applied(char* (*operation)(char*), const std::string& text) {
    std::vector<char> copy = copyOf(text);
    REQUIRE(operation(copy.data()) == copy.data());
    return copy.data();
}

void requireLookUp(const UrlContainer& container, const std::string& url, const std::string& normalised,
                   std::uint32_t expected) {
    std::vector<char> copy = copyOf(url);
    std::uint32_t category = 1234;
    REQUIRE(container.getUrlCategory(copy.data(), &category));
    REQUIRE(copy.data() == normalised);
    REQUIRE(category == expected);
}

}  // namespace

int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    formatMessages();
    static const Container both(prefixFile, hostFile);
    static const Container prefixesAlone(prefixFile, "");
    static const Container hostsAlone("", hostFile);
    const std::string url = upToZero(bytesOf(data, size));

    REQUIRE(applied(Utils::trim, url) == trimmed(url));
    REQUIRE(applied(Utils::ltrim, applied(Utils::rtrim, url)) == trimmed(url));
    REQUIRE(applied(Utils::trim, trimmed(url)) == trimmed(url));
    REQUIRE(applied(Utils::toLower, url) == lowerCase(url));
    REQUIRE(applied(Utils::toLower, applied(Utils::toUpper, url)) == lowerCase(url));
    REQUIRE(applied(Utils::removePTP, url) == withoutScheme(url));
    REQUIRE(applied(Utils::decodeHexString, url) == decoded(url));

    const std::string plain = withoutScheme(lowerCase(trimmed(url)));
    const std::string whole = withDecodedPath(plain);
    const std::uint32_t listed = byPrefix(whole);
    requireLookUp(both, url, whole, listed != notListed ? listed : byHost(whole));
    requireLookUp(prefixesAlone, url, whole, listed);
    requireLookUp(hostsAlone, url, plain, byHost(plain));
    return 0;
}
