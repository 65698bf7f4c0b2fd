#include "platform/mutex/BoundedBufferLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "support/WaitingThread.h"

using platform::mutex::BoundedBufferLockImpl;
using support::WaitingThread;

TEST(BoundedBufferLockTest, AUnitThatWasNotUsedGoesBackWhereItCameFrom) {
    BoundedBufferLockImpl lock(1);
    lock.lockProducer();
    lock.unlockProducer(false);
    {
        WaitingThread consumer([&] {
            lock.lockConsumer();
            lock.unlockConsumer(false);
        });
        EXPECT_TRUE(consumer.becomesBlocked());
        lock.lockProducer();
        lock.unlockProducer(true);
    }
    {
        WaitingThread producer([&] {
            lock.lockProducer();
            lock.unlockProducer(true);
        });
        EXPECT_TRUE(producer.becomesBlocked());
        lock.lockConsumer();
        lock.unlockConsumer(true);
    }
    lock.lockConsumer();
    lock.unlockConsumer(true);
}

TEST(BoundedBufferLockTest, NothingIsLostBetweenManyProducersAndConsumers) {
    constexpr std::size_t capacity = 3;
    constexpr int rounds = 2000;
    BoundedBufferLockImpl lock(capacity);
    std::vector<int> buffer;
    std::atomic<std::int64_t> taken = 0;
    std::atomic<bool> broken = false;
    std::vector<std::thread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int item = 1; item <= rounds; ++item) {
                lock.lockProducer();
                broken = broken || buffer.size() >= capacity;
                buffer.push_back(item);
                lock.unlockProducer(true);
            }
        });
        threads.emplace_back([&] {
            for (int item = 1; item <= rounds; ++item) {
                lock.lockConsumer();
                broken = broken || buffer.empty();
                taken += buffer.back();
                buffer.pop_back();
                lock.unlockConsumer(true);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_FALSE(broken);
    EXPECT_EQ(taken, 3ll * rounds * (rounds + 1) / 2);
}
