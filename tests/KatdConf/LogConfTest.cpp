#include <gtest/gtest.h>

#include "KatdConf/LogConf.h"
#include "support/CapturedMessages.h"
#include "support/TempDir.h"

namespace {

using KATD_SPACE::LogConf;

TEST(LogConf, KeepsTheDefaultOfWhatIsUnusable) {
    const katd_test::TempDir dir;
    std::filesystem::create_directories(dir / "conf");
    const katd_test::CapturedMessages messages(2);  // information and errors
    struct Case {
        const char* text;
        int level, size, number;
        const char* path;
    };
    const Case cases[] = {
        {"log_level=DEBUG\nsize_limit=2048\nrotation_number=10\nlog_file_path=logs/d.log", 3, 2048, 10,
         "logs/d.log"},
        {"log_level=Info\nsize_limit=99999999999\nrotation_number=1", 0, 2147483647, 1, "log/katd.log"},
        {"log_level=warning", 2, 1024, 4, "log/katd.log"},
        {"log_level=error\nsize_limit=0\nrotation_number=0", 1, 1024, 4, "log/katd.log"},
        {"log_level=debugging\nsize_limit=\nrotation_number=3x\nlog_file_path=", 1, 1024, 4, "log/katd.log"}};
    for (const Case& c : cases) {
        katd_test::writeFile(dir / "conf/katd.ini", std::string("[katd]\n") + c.text + "\n");
        LogConf conf(dir.path().c_str());
        EXPECT_TRUE(conf.load());
        EXPECT_EQ(conf.getLogLevel(), c.level) << c.text;
        EXPECT_EQ(conf.getSizeLimit(), c.size) << c.text;
        EXPECT_EQ(conf.getRotationNumber(), c.number) << c.text;
        EXPECT_EQ(conf.getLogFilePath(), dir / c.path) << c.text;
    }
    EXPECT_EQ(messages.lines().size(), 0U);
    LogConf elsewhere((dir / "x/").c_str());
    EXPECT_FALSE(elsewhere.load());
    EXPECT_EQ(messages.texts().back(), "ERR bad config path [" + dir / "x/conf/katd.ini" + "]");
    EXPECT_EQ(elsewhere.getLogFilePath(), dir / "x/log/katd.log");
    EXPECT_STREQ(LogConf(nullptr).getLogFilePath(), "log/katd.log");
}

}  // namespace
