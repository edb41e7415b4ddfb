#include <gtest/gtest.h>
#include <unistd.h>

#include <climits>
#include <thread>

#include "Mutex.h"

using namespace QOR_SPACE;

TEST(Locks, CountUnitsReadersAndWriters) {
    Semaphore semaphore(1);
    EXPECT_EQ(0, semaphore.wait());
    ASSERT_EQ(-1, semaphore.trywait());
    RWLock lock;
    EXPECT_EQ(0, lock.rdlock());
    EXPECT_EQ(0, lock.tryrdlock());
    lock.unlock();
    EXPECT_EQ(-1, lock.trywrlock());  // one reader is left
    std::thread writing([&] { lock.wrlock(), semaphore.post(); });
    usleep(20000);  // it probably waits by now
    lock.unlock();
    writing.join();
    EXPECT_EQ(0, semaphore.trywait());
    EXPECT_EQ(-1, lock.tryrdlock());
    std::thread readers[] = {std::thread([&] { lock.rdlock(); }), std::thread([&] { lock.rdlock(); })};
    usleep(20000);  // they probably wait by now
    lock.unlock();
    for (std::thread& reader : readers)
        reader.join();
}

TEST(Sequence, StartsAgainAtZero) {
    Sequence single(INT_MAX), block(INT_MAX - 1);
    for (const int value : {INT_MAX, 0, 0, 1})
        EXPECT_EQ(value, single.getNext());
    EXPECT_EQ(INT_MAX - 1, block.getNext(5));
    EXPECT_EQ(0, block.getNext(5));
    EXPECT_EQ(5, block.getNext());
}
