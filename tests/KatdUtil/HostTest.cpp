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

TEST_F(Host, SleepGoesOnAfterSignals) {
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

TEST_F(Host, ChecksTimeAndNameAndMakesFolders) {
    std::time_t now = std::time(nullptr);
    while (now % 60 > 55)
        now = std::time(nullptr);  // the minute must not end in between
    std::tm local{};
    localtime_r(&now, &local);
    EXPECT_TRUE(Utils::checkTime(-1, local.tm_min));
    EXPECT_FALSE(Utils::checkTime((local.tm_hour + 1) % 24, local.tm_min));
    EXPECT_TRUE(Utils::checkDNS("127.0.0.%d"));  // "%d" becomes 1
    Utils::makeParentDir((dir / "a/b//c/").c_str());
    EXPECT_TRUE(std::filesystem::exists(dir / "a/b/c"));
}

TEST_F(Host, SystemLogProgramGetsTheEventAsOneWordAndFreshSignals) {
    const std::string program = dir / "syslog", result = dir / "result";
    const auto oldHandler = std::signal(SIGPIPE, SIG_IGN);
    sigset_t oldMask;
    pthread_sigmask(SIG_SETMASK, nullptr, &oldMask);
    katd_test::Ticks::blockInThisThread();
    // No interpreter line. Built-in commands alone: a shell blocks signals while it starts a program.
    katd_test::writeFile(program, "exec > " + result +
                                      "\nprintf '%s:%s\\n' $# \"$1\"\n"
                                      "while read -r line; do\ncase $line in SigBlk*|SigIgn*) echo "
                                      "\"$line\";; esac\ndone < /proc/$$/status\nexit 3\n");
    std::filesystem::permissions(program, std::filesystem::perms::owner_all);
    for (const char* variable : {program.c_str(), dir.path().c_str()}) {
        setenv("WRITE_SYSLOG", variable, 1);
        Utils::writeSysLog("Check; $HOME");
    }
    unsetenv("WRITE_SYSLOG");
    Utils::writeSysLog("Check; $HOME");
    EXPECT_EQ(messages.texts(), Texts{"DBG write sys log with [" + program + " Check; $HOME]"});
    const std::string text = katd_test::readFile(result);
    unsigned long long blocked = ~0ULL, ignored = ~0ULL;
    std::sscanf(text.c_str(), "1:Check; $HOME\nSigBlk: %llx SigIgn: %llx", &blocked, &ignored);
    EXPECT_EQ(blocked, 0U) << text;
    EXPECT_EQ(ignored & 0x7FFFFFFF, 0U) << text;  // the C library ignores two of its own above
    pthread_sigmask(SIG_SETMASK, &oldMask, nullptr);
    std::signal(SIGPIPE, oldHandler);
}

}  // namespace
