#include <cstring>
#include <optional>

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
        katd_test::writeFile(domains, katd_test::listFile({"020|", "021|ads.example.com", "022|example.com",
                                                           "023|site.test"}));
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
    // clang-format off
    const std::pair<const char*, std::uint32_t> cases[] = {
        {" \tHTTP://Ads.Example.COM/a%20b\r\n", 11}, {"ftp://ads.example.com/a%20bc/d", 11},
        {"https://ads.example.com/a%20%00b", 21},
        {"example.com.other.net/x", 12},  // by text, not by host
        {"x%41.test/%41", 13},            // escapes of the host stay
        {"sit%65.test/", none}, {"shop.example.com", none}, {"site.test:80/x", none}, {" \t", none}, {"http://", none},
    };
    // clang-format on
    for (const auto& [url, category] : cases)
        EXPECT_EQ(categoryOf(url), category) << url;
    EXPECT_THAT(messages.texts(), testing::Contains("DBG Url matched [example.com]").Times(1));
    // Neither the URL nor, behind the host, its copy is changed by the look-up.
    const char url[] = "FTP://Site.test/B%41";
    char copy[sizeof url], check[] = "site.test/%41";
    std::uint32_t category = 0;
    EXPECT_TRUE(container.getUrlCategory(url, std::strlen(url), copy, &category));
    EXPECT_STREQ(url, "FTP://Site.test/B%41");
    EXPECT_STREQ(copy, "site.test/bA");
    EXPECT_EQ(messages.texts().back(), "DBG Site matched :[site.test]");
    EXPECT_EQ(container.checkSiteList(check), 23);
    EXPECT_EQ(container.checkUrlList(check), -1);
    EXPECT_STREQ(check, "site.test/A");
    char decoded[] = "a/%00b";
    EXPECT_EQ(KATD_SPACE::normalise(decoded, 6, decoded, true).length, 2U);
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
