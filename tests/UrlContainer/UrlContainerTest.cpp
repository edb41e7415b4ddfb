#include <cstring>
#include <optional>
#include <random>

#include "UrlContainer/UrlContainer.h"
#include "support/CapturedMessages.h"
#include "support/Home.h"

namespace {

constexpr std::uint32_t none = 0xFFFFFFFF;

class Container : public testing::Test {
protected:
    Container() {
        katd_test::writeFile(
            urls, katd_test::listFile({"011|ads.example.com/a b", "012|example.com", "013|x%41.test"}));
        katd_test::writeFile(
            domains, katd_test::listFile({"021|ads.example.com", "022|example.com", "023|site.test"}));
    }
    std::optional<std::uint32_t> categoryOf(std::string url) const {
        std::uint32_t category = 77;
        if (container.getUrlCategory(url.data(), &category)) return category;
        EXPECT_EQ(category, 77U);
        return std::nullopt;
    }

    katd_test::TempDir dir;
    const std::string urls = dir / "urls", domains = dir / "domains", missing = dir / "missing";
    katd_test::CapturedMessages messages;
    KATD_SPACE::UrlContainer container;
};

TEST_F(Container, NormalisesTheUrlAndAsksBothLists) {
    ASSERT_TRUE(container.load(urls.c_str(), domains.c_str()));
    const std::pair<const char*, std::uint32_t> cases[] = {
        {" \tHTTP://Ads.Example.COM/a%20b\r\n", 11},
        {"ftp://ads.example.com/a%20bc/d", 11},
        {"https://ads.example.com/a%20%00b", 21},
        {"example.com.other.net/x", 12},  // by text, not by host
        {"x%41.test/%41", 13},            // escapes of the host stay
        {"sit%65.test/", none},
        {"shop.example.com", none},
        {"site.test:80/x", none},
        {"http://", none}};
    for (const auto& [url, category] : cases)
        EXPECT_EQ(categoryOf(url), category) << url;
    EXPECT_EQ(messages.count("DBG Url matched [example.com]"), 1U);
    std::string url = "FTP://Site.test/%41/B";
    std::uint32_t category = 0;
    EXPECT_TRUE(container.getUrlCategory(url.data(), &category));
    EXPECT_STREQ(url.c_str(), "site.test/A/b");  // the "/" is back in its place
    EXPECT_EQ(messages.texts().back(), "DBG Site matched :[site.test]");
}

// The text, and that its host and path are where the helpers leave them.
TEST(NormalUrl, IsWhatTheTextHelpersMakeStepByStep) {
    using KATD_SPACE::Utils;
    std::mt19937 random(3);
    const std::string pieces[] = {"http://", "HTTPS://", "fTp://", "http:/",   "f",   " ",   "\t",
                                  "\r\n",    "/",        "%",      "%4",       "%41", "%2F", "%00",
                                  "%",       "Z",        "a",      "\xC4\xFF", "%e0", "G"};
    int decoded = 0;
    for (int round = 0; round < 60000; ++round) {
        std::string url;
        for (auto left = random() % 12; left > 0; --left) {
            const std::size_t kind = random() % 25;
            url += kind < 20 ? pieces[kind] : std::string(1, static_cast<char>(1 + random() % 255));
        }
        const bool decodesPath = round % 2 != 0;
        std::string expected = url;
        Utils::removePTP(Utils::toLower(Utils::trim(expected.data())));
        const bool isEmpty = expected.c_str()[0] == '\0';
        char* path = std::strchr(expected.data(), '/');
        const std::size_t host = path == nullptr ? std::strlen(expected.c_str())
                                                 : static_cast<std::size_t>(path - expected.data());
        const std::size_t before = std::strlen(expected.c_str());
        if (path != nullptr && decodesPath) Utils::decodeHexString(path);
        decoded += std::strlen(expected.c_str()) != before;

        // On the heap and of the exact size, so that a byte too many is noticed; then in place.
        std::vector<char> copy(url.c_str(), url.c_str() + url.size() + 1);
        std::vector<char> other(copy.size());
        for (char* to : {other.data(), copy.data()}) {
            const auto normal = KATD_SPACE::normalise(copy.data(), url.size(), to, decodesPath);
            ASSERT_STREQ(to, expected.c_str()) << "[" << url << "]";
            ASSERT_EQ(normal.length, std::strlen(to)) << "[" << url << "]";
            ASSERT_EQ(normal.hostLength, host) << "[" << url << "]";
            ASSERT_EQ(normal.hasPath, path != nullptr) << "[" << url << "]";
            ASSERT_EQ(normal.empty(), isEmpty) << "[" << url << "]";
        }
    }
    EXPECT_GT(decoded, 5000);
}

TEST_F(Container, LeavesAUrlOfItsOwnAlone) {
    ASSERT_TRUE(container.load(urls.c_str(), domains.c_str()));
    const char url[] = " HTTP://Site.test/%41";
    char room[sizeof url];
    std::uint32_t category = 0;
    EXPECT_TRUE(container.getUrlCategory(url, std::strlen(url), room, &category));
    EXPECT_EQ(category, 23U);
    EXPECT_STREQ(url, " HTTP://Site.test/%41");
    EXPECT_STREQ(room, "site.test/A");
}

TEST_F(Container, OneListIsEnough) {
    EXPECT_EQ(categoryOf("example.com"), std::nullopt);
    EXPECT_TRUE(container.load(missing.c_str(), domains.c_str()));
    EXPECT_EQ(categoryOf("example.com/%41"), 22U);
    EXPECT_EQ(categoryOf("example.com.net"), none);
    EXPECT_FALSE(container.load(urls.c_str(), domains.c_str()));
    EXPECT_EQ(messages.texts().back(),
              "ERR UrlContainer can not load url lists twice, you should reset it first");
    container.reset();
    EXPECT_TRUE(container.load(urls.c_str(), nullptr));
    EXPECT_EQ(messages.texts().back(), "DBG fail to load domains list file [(null)]");
    EXPECT_EQ(categoryOf("example.com.net"), 12U);
    container.reset();
    EXPECT_FALSE(container.load(missing.c_str(), nullptr));
}

}  // namespace
