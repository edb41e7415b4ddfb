#include <gtest/gtest.h>

#include <climits>
#include <thread>

#include "Mutex.h"

using namespace QOR_SPACE;

TEST(Semaphore, CountsUnits) {
    Semaphore semaphore(1);
    EXPECT_EQ(0, semaphore.wait());
    ASSERT_EQ(-1, semaphore.trywait());
    std::thread posting([&] { semaphore.post(); });
    semaphore.wait();
    posting.join();
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
    int written = 0;
    for (int round = 1; round <= 2; ++round) {
        std::thread first([&] { lock.wrlock(), ++written, lock.unlock(); });
        std::thread second([&] { lock.wrlock(), ++written, lock.unlock(); });
        usleep(20000);  // both probably wait by now
        lock.unlock();
        first.join();
        second.join();
        EXPECT_EQ(2 * round, written);
        ASSERT_EQ(0, lock.trywrlock());
        EXPECT_EQ(-1, lock.tryrdlock());
    }
}

TEST(Sequence, StartsAgainAtZero) {
    Sequence sequence(5), single(INT_MAX), block(INT_MAX - 1);
    EXPECT_EQ(5, sequence.getNext(10));
    EXPECT_EQ(15, sequence.getNext());
    for (const int value : {INT_MAX, 0, 0, 1})
        EXPECT_EQ(value, single.getNext());
    EXPECT_EQ(INT_MAX - 1, block.getNext(5));
    EXPECT_EQ(0, block.getNext(5));
}
