#include <atomic>
#include <chrono>
#include <climits>
#include <thread>

#include "Mutex.h"
#include "support/TempDir.h"

using namespace QOR_SPACE;

TEST(Semaphore, CountsUnits) {
    Semaphore semaphore(1);
    EXPECT_EQ(0, semaphore.wait());
    ASSERT_EQ(-1, semaphore.trywait());
    ASSERT_EQ(-1, semaphore.trywait());  // a refusal takes nothing
    std::thread waiting([&] { semaphore.wait(); });
    semaphore.post();
    waiting.join();
    EXPECT_EQ(-1, semaphore.trywait());
    semaphore.post();
    EXPECT_EQ(0, semaphore.trywait());
}

TEST(RWLock, AdmitsReadersTogetherAndWritersAlone) {
    RWLock lock;
    EXPECT_EQ(0, lock.rdlock());
    EXPECT_EQ(0, lock.tryrdlock());
    lock.unlock();
    EXPECT_EQ(-1, lock.trywrlock());  // one reader is left
    lock.unlock();
    EXPECT_EQ(0, lock.trywrlock());
    EXPECT_EQ(-1, lock.tryrdlock());
    int written = 1;
    std::atomic<int> started{0};
    std::vector<std::thread> others;
    for (int i = 0; i < 8; ++i) {
        others.emplace_back([&, i] {
            ++started;
            i % 2 == 0 ? lock.rdlock() : lock.wrlock();
            EXPECT_GE(i % 2 == 0 ? written : ++written, 1);
            lock.unlock();
        });
    }
    while (started < 8)
        std::this_thread::yield();
    std::this_thread::sleep_for(std::chrono::milliseconds(20));  // so that they most likely wait by now
    lock.unlock();
    for (std::thread& other : others)
        other.join();
    EXPECT_EQ(5, written);
}

TEST(Sequence, CountsReservesAndWraps) {
    Sequence sequence(5);
    EXPECT_EQ(5, sequence.getNext());
    EXPECT_EQ(6, sequence.getNext(10));
    EXPECT_EQ(16, sequence.getNext());
    Sequence single(INT_MAX), block(INT_MAX - 1);
    for (const int value : {INT_MAX, 0, 0, 1})
        EXPECT_EQ(value, single.getNext());
    for (const int value : {INT_MAX - 1, 0, 5})
        EXPECT_EQ(value, block.getNext(5));
}

TEST(FileLock, WidensNoFileOfOtherNamesAndOutlivesItsName) {
    const katd_test::TempDir folder;
    const std::string victim = folder / "victim", linked = folder / "linked";
    katd_test::writeFile(victim, "secret");
    // The victim is a file that this process has locked; locks of open file descriptions see those of processes.
    const int probe = open(victim.c_str(), O_RDWR | O_CLOEXEC);
    FileLock held(victim, false);
    EXPECT_EQ(0, held.lock());
    std::filesystem::permissions(victim, std::filesystem::perms::owner_read);
    std::filesystem::create_hard_link(victim, linked);
    FileLock(linked, true);
    EXPECT_EQ(std::filesystem::perms::owner_read, std::filesystem::status(victim).permissions());
    struct flock found {};
    found.l_type = F_WRLCK;
    EXPECT_EQ(0, fcntl(probe, F_OFD_GETLK, &found));
    EXPECT_EQ(F_WRLCK, found.l_type) << "the lock on the other file is lost";
    close(probe);
    FileLock lock(folder / "own", true);
    EXPECT_EQ(0, lock.unlink());
    EXPECT_EQ(0, lock.lock());
    EXPECT_EQ(0, lock.close());
    EXPECT_EQ(-1, lock.lock());
}
