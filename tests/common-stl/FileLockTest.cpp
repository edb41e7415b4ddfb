#include <gtest/gtest.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Mutex.h"
#include "support/TempDir.h"

using namespace QOR_SPACE;
using namespace katd_test;

namespace {

// Mode of the file itself, -1 when there is none.
int modeOf(const std::string& path) {
    struct stat status {};
    return lstat(path.c_str(), &status) == 0 ? static_cast<int>(status.st_mode & 07777) : -1;
}

}  // namespace

TEST(FileLock, WidensOnlyAFileOfItsOwn) {
    TempDir folder;
    const std::string victim = folder / "victim";
    writeFile(victim, "secret");
    chmod(victim.c_str(), 0600);
    ASSERT_EQ(0, symlink(victim.c_str(), (folder / "symbolic").c_str()));
    ASSERT_EQ(0, symlink((folder / "absent").c_str(), (folder / "dangling").c_str()));
    ASSERT_EQ(0, link(victim.c_str(), (folder / "hard").c_str()));
    for (const char* name : {"symbolic", "dangling", "hard"})
        FileLock(folder / name, true);
    EXPECT_EQ(0600, modeOf(victim));
    EXPECT_EQ(-1, modeOf(folder / "absent"));

    const mode_t mask = umask(0277);
    FileLock narrow(folder / "narrow", false);
    FileLock wide(folder / "wide", true);
    umask(mask);
    EXPECT_EQ(0400, modeOf(folder / "narrow"));
    EXPECT_EQ(0666, modeOf(folder / "wide"));
    EXPECT_EQ(0, wide.unlink());
    EXPECT_EQ(-1, modeOf(folder / "wide"));
    EXPECT_EQ(0, wide.lock());  // the lock outlives its name
    EXPECT_EQ(0, wide.close());
    EXPECT_EQ(-1, wide.close());
    EXPECT_EQ(-1, wide.lock());
}

TEST(FileLock, KeepsASecondProcessWaiting) {
    TempDir folder;
    int locked[2];
    ASSERT_EQ(0, pipe(locked));
    const pid_t child = fork();
    if (child == 0) {
        FileLock lock(folder / "x.lock", false);
        if (lock.lock() != 0 || write(locked[1], "x", 1) != 1) _exit(1);
        usleep(50000);
        writeFile(folder / "order", "first");
        _exit(lock.unlock() == 0 ? 0 : 1);
    }
    close(locked[1]);
    char token = 0;
    ASSERT_EQ(1, read(locked[0], &token, 1));
    close(locked[0]);
    FileLock lock(folder / "x.lock", false);
    EXPECT_EQ(0, lock.lock());
    EXPECT_EQ("first", readFile(folder / "order"));
    int status = -1;
    EXPECT_EQ(child, waitpid(child, &status, 0));
    EXPECT_EQ(0, status);
}
