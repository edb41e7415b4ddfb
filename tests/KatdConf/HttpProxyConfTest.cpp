#include <gtest/gtest.h>

#include "KatdConf/HttpProxyConf.h"
#include "support/CapturedMessages.h"
#include "support/TempDir.h"

namespace {

using KATD_SPACE::HttpProxyConf;

TEST(HttpProxyConf, DescribesAProxyOrNone) {
    const katd_test::TempDir dir;
    const std::string path = dir / "proxy.ini", access = "ProxyAccess=1\n",
                      start = access + "ProxyServerAddress=p\n", basic = start + "ProxyAuth=Basic\n",
                      user = basic + "ProxyUserName=u\n",
                      encoded = user + "ProxyPassword=p\nProxyEncodedPassword=";
    struct Case {
        std::string lines, result;  // "" or address:port, scheme, user name and password
        std::string error;          // the one message above debug level
    };
    const Case cases[] = {
        {start, "p:80 NoAuth", ""},
        {"ProxyAccess = 1  ; on\nProxyServerAddress=q\nProxyPort=99999\n", "q:99999 NoAuth", ""},
        {"ProxyAccess=0\nProxyServerAddress=p\n", "", ""},
        {"ProxyAccess=01\n", "", "bad value of ProxyAccess [01]"},
        {"ProxyAccess=\n", "", "fail to read ProxyAccess from [" + path + "]"},
        {access, "", "fail to read ProxyServerAddress from [" + path + "]"},
        {start + "ProxyPort=8o\n", "p:80 NoAuth",
         "bad value of ProxyPort [8o], default value [80] will be used"},
        {start + "ProxyAuth=basic\n", "p:80 NoAuth",
         "bad value of ProxyAuth [basic], default value [NoAuth] will be used"},
        {basic, "", "fail to read ProxyUserName from [" + path + "]"},
        {user, "p:80 Basic u:", ""},
        {user + "ProxyPassword=p w\n", "p:80 Basic u:p w", ""},
        {encoded + "4a4B\n", "p:80 Basic u:JK", ""},
        {encoded + "\n", "p:80 Basic u:", ""},
        {encoded + "414\n", "p:80 Basic u:", ""},
        {encoded + "41x2\n", "p:80 Basic u:", ""}};
    katd_test::CapturedMessages messages(2);
    HttpProxyConf none;
    none.loadConfig(path.c_str());
    EXPECT_EQ(messages.texts().back(), "ERR fail to open http proxy config file [" + path + "]");
    for (const Case& c : cases) {
        katd_test::writeFile(path, "[Connectivity]\n" + c.lines);
        messages.clear();
        HttpProxyConf conf;
        conf.loadConfig(path.c_str());
        std::string result;
        if (conf.isValid()) {
            result = std::string(conf.getProxyServerAddress()) + ":" + conf.getProxyPort() + " " +
                     conf.getProxyAuth();
            if (*conf.getProxyUserName() != '\0')
                result += std::string(" ") + conf.getProxyUserName() + ":" + conf.getProxyPassword();
        }
        EXPECT_EQ(result, c.result) << c.lines;
        EXPECT_EQ(messages.texts(), std::vector<std::string>(c.error.empty() ? 0 : 1, "ERR " + c.error))
            << c.lines;
    }
}

}  // namespace
