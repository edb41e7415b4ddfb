#include <gmock/gmock.h>

#include "catalog/SharedAddress.h"

using namespace catalog;

namespace {

TEST(SharedAddressTest, hostsAndLogin) {
    const std::tuple<const char*, const char*, const char*, const char*> rows[] = {
        {"redis://store.example", "store.example:6379 ", "", ""},
        {"redis://a:1,[::1],[2001:db8::1]:65535,/run/r.sock",
         "a:1 [::1]:6379 [2001:db8::1]:65535 /run/r.sock ", "", ""},
        {"redis:///run/a@b.sock,/run/c", "/run/a@b.sock /run/c ", "", ""},
        {"redis://katd@h", "h:6379 ", "katd", ""},
        {"redis://:p:w@h", "h:6379 ", "", "p:w"},
        {"redis://katd:p@w/,@/run/r.sock", "/run/r.sock ", "katd", "p@w/,"},
    };
    for (const auto& [text, hosts, user, password] : rows) {
        SharedAddress address;
        ASSERT_EQ(nullptr, readSharedAddress(text, &address)) << text;
        std::string all;
        for (const SharedAddress::Host& host : address.hosts)
            all += host.text() + " ";
        EXPECT_EQ(hosts, all);
        EXPECT_EQ(user, address.user) << text;
        EXPECT_EQ(password, address.password) << text;
    }
    for (const char* const text :
         {"", "redis:/", "redis://", "http://h", "redis://h,", "redis://,h", "redis://h:", "redis://h:0",
          "redis://h:65536", "redis://h:4294967297", "redis://h:1x", "redis://[::1", "redis://[::1]1",
          "redis://[]", "redis://:6379", "redis://u@"}) {
        SharedAddress address;
        EXPECT_NE(nullptr, readSharedAddress(text, &address)) << text;
    }
}

}  // namespace
