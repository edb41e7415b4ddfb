#include <gtest/gtest.h>
#include <time.h>

#include <cerrno>
#include <climits>
#include <thread>
#include <vector>

#include "Mutex.h"

using namespace QOR_SPACE;

TEST(Condition, TimesOutWhenTheDeadlinePassed) {
    Mutex mutex;
    Condition condition(mutex);
    const time_t start = time(nullptr);
    condition.lock();
    int result = 0;
    while (result == 0)
        result = condition.wait(1);
    condition.unlock();
    EXPECT_EQ(ETIMEDOUT, result);
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    EXPECT_GE(now.tv_sec, start + 1);
}

TEST(Semaphore, CountsUnits) {
    Semaphore semaphore(1);
    EXPECT_EQ(0, semaphore.wait());
    EXPECT_EQ(-1, semaphore.trywait());
    EXPECT_EQ(-1, semaphore.trywait());  // a refusal takes nothing
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
    EXPECT_EQ(-1, lock.trywrlock());

    int written = 0;
    std::vector<std::thread> others;
    for (int i = 0; i < 4; ++i) {
        others.emplace_back([&] {
            lock.rdlock();
            EXPECT_GE(written, 1);
            lock.unlock();
        });
        others.emplace_back([&] {
            lock.wrlock();
            ++written;
            lock.unlock();
        });
    }
    ++written;
    lock.unlock();
    for (std::thread& other : others)
        other.join();
    EXPECT_EQ(5, written);
}

TEST(Sequence, CountsReservesAndWraps) {
    Sequence sequence(5);
    for (const int value : {5, 6, 7})
        EXPECT_EQ(value, sequence.getNext());
    EXPECT_EQ(8, sequence.getNext(10));
    EXPECT_EQ(18, sequence.getNext());
    Sequence single(INT_MAX);
    for (const int value : {INT_MAX, 0, 0, 1})
        EXPECT_EQ(value, single.getNext());
    Sequence block(INT_MAX - 1);
    for (const int value : {INT_MAX - 1, 0, 5})
        EXPECT_EQ(value, block.getNext(5));
}

TEST(MutexDeathTest, PreconditionsAbortWithTheirUnit) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_DEATH(Semaphore(0), "Mutex\\.cpp.*count >= 1");
    EXPECT_DEATH(Sequence(-1), "Mutex\\.cpp.*initVal >= 0");
    EXPECT_DEATH(Sequence(0).getNext(0), "Mutex\\.cpp.*size > 0");
}
