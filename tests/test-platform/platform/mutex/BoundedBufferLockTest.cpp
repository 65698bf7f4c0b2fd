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
    WaitingThread producer([&] {
        lock.lockProducer();
        lock.unlockProducer(true);
    });
    EXPECT_TRUE(producer.becomesBlocked());
    lock.lockConsumer();
    lock.unlockConsumer(true);
}

TEST(BoundedBufferLockTest, NothingIsLostBetweenManyProducersAndConsumers) {
    constexpr std::size_t CAPACITY = 3;
    constexpr int ROUNDS = 2000;
    BoundedBufferLockImpl lock(CAPACITY);
    std::vector<int> buffer;
    std::atomic<std::int64_t> taken = 0;
    std::atomic<bool> broken = false;
    {
        std::vector<std::jthread> threads;
        for (int i = 0; i < 6; ++i) {
            threads.emplace_back([&, produces = i % 2 == 0] {
                for (int item = 1; item <= ROUNDS; ++item) {
                    if (produces) {
                        lock.lockProducer();
                        broken = broken || buffer.size() >= CAPACITY;
                        buffer.push_back(item);
                        lock.unlockProducer(true);
                    } else {
                        lock.lockConsumer();
                        broken = broken || buffer.empty();
                        taken += buffer.back();
                        buffer.pop_back();
                        lock.unlockConsumer(true);
                    }
                }
            });
        }
    }
    EXPECT_FALSE(broken);
    EXPECT_EQ(taken, 3ll * ROUNDS * (ROUNDS + 1) / 2);
}
