#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstdlib>
#include <ctime>

#include "support/CapturedMessages.h"
#include "support/TempDir.h"
#include "support/Ticks.h"

namespace {

using KATD_SPACE::Utils;
using Texts = std::vector<std::string>;

class Host : public testing::Test {
protected:
    katd_test::TempDir dir;
    katd_test::CapturedMessages messages;
};

TEST_F(Host, DnsCheckPutsOneInPlaceOfPercentD) {
    EXPECT_TRUE(Utils::checkDNS("127.0.0.%d"));
    EXPECT_FALSE(Utils::checkDNS("no..host%d"));  // no name can have an empty label: nobody is asked
    EXPECT_EQ(messages.texts(),
              (Texts{"DBG Check DNS with [127.0.0.1] succ", "ERR Check DNS with [no..host1] failed"}));
}

TEST_F(Host, ParentFoldersAreCreatedUpToTheLastSlash) {
    for (const std::string& path :
         {dir / "a/b/c.log", dir / "d/", std::string("name"), std::string("/name")}) {
        Utils::makeParentDir(path.c_str());
    }
    EXPECT_TRUE(std::filesystem::is_empty(dir / "a/b"));
    EXPECT_TRUE(std::filesystem::is_directory(dir / "d"));
    EXPECT_FALSE(std::filesystem::exists("name"));
}

TEST_F(Host, SleepGoesOnAfterSignals) {
    Utils::sleepn(0);
    Utils::sleepn(-5);
    EXPECT_EQ(messages.texts(), Texts{});
    const katd_test::Ticks ticks;
    Utils::sleepn(3);
    int expected = 3;
    for (const std::string& text : messages.texts()) {
        int asked = 0, left = 0;
        std::sscanf(text.c_str(), "DBG Awake from sleeping, sleep time [%d], left time [%d]", &asked, &left);
        EXPECT_EQ(asked, expected) << text;
        expected = left;
    }
    EXPECT_EQ(expected, 0);
}

TEST_F(Host, TimeMatchesItsMinuteOfTheHourOrOfAnyHour) {
    std::time_t now = std::time(nullptr);
    while (now % 60 > 55)
        now = std::time(nullptr);  // the minute must not end in between
    std::tm local{};
    localtime_r(&now, &local);
    EXPECT_TRUE(Utils::checkTime(local.tm_hour, local.tm_min));
    EXPECT_TRUE(Utils::checkTime(-1, local.tm_min));
    EXPECT_FALSE(Utils::checkTime((local.tm_hour + 1) % 24, local.tm_min));
    EXPECT_FALSE(Utils::checkTime(local.tm_hour, (local.tm_min + 1) % 60));
    EXPECT_FALSE(Utils::checkTime(-1, -1));
}

TEST_F(Host, SystemLogProgramGetsTheEventAsOneWordAndFreshSignals) {
    const std::string program = dir / "syslog", result = dir / "result";
    const auto oldHandler = std::signal(SIGPIPE, SIG_IGN);
    sigset_t oldMask;
    pthread_sigmask(SIG_SETMASK, nullptr, &oldMask);
    katd_test::Ticks::blockInThisThread();
    // Built-in words alone: a shell blocks signals while it starts a program.
    const std::string script =
        "exec > " + result +
        "\nprintf '%s:%s\\n' $# \"$1\"\n"
        "while read -r line; do\ncase $line in SigBlk*|SigIgn*) echo \"$line\";; esac\n"
        "done < /proc/$$/status\nexit 3\n";
    setenv("WRITE_SYSLOG", program.c_str(), 1);
    for (const char* firstLine : {"#!/bin/sh\n", ""}) {
        katd_test::writeFile(program, firstLine + script);
        chmod(program.c_str(), 0755);
        Utils::writeSysLog("Check; $HOME");
        const std::string text = katd_test::readFile(result);
        unsigned long long blocked = ~0ULL, ignored = ~0ULL;
        std::sscanf(text.c_str(), "1:Check; $HOME\nSigBlk: %llx SigIgn: %llx", &blocked, &ignored);
        EXPECT_EQ(blocked, 0U) << text;
        EXPECT_EQ(ignored & 0x7FFFFFFF, 0U) << text;  // the C library ignores two of its own above
        std::filesystem::remove(result);
    }
    EXPECT_EQ(messages.texts(), Texts(2, "DBG write sys log with [" + program + " Check; $HOME]"));
    pthread_sigmask(SIG_SETMASK, &oldMask, nullptr);
    std::signal(SIGPIPE, oldHandler);

    messages.clear();
    Utils::writeSysLog(nullptr);
    for (const std::string& path : {dir.path(), dir / "missing"}) {
        setenv("WRITE_SYSLOG", path.c_str(), 1);
        Utils::writeSysLog("event");
    }
    unsetenv("WRITE_SYSLOG");
    Utils::writeSysLog("event");
    EXPECT_EQ(messages.texts(), Texts{});
    EXPECT_FALSE(std::filesystem::exists(result));
}

}  // namespace
