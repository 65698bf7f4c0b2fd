#include "platform/mutex/BoundedBufferLock.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

TEST(BoundedBufferLockTest, NothingIsLostBetweenManyProducersAndConsumers) {
    constexpr std::size_t CAPACITY = 3;
    platform::mutex::BoundedBufferLockImpl lock(CAPACITY);
    std::vector<int> buffer;
    std::atomic<bool> broken = false;
    std::vector<std::jthread> threads;
    for (int i = 0; i < 3; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 4000; ++round) {
                const bool produces = round % 2 == 0;  // or gives its unit back
                lock.lockProducer();
                broken = broken || buffer.size() >= CAPACITY;
                const std::size_t size = buffer.size() + (produces ? 1 : 0);
                std::this_thread::yield();
                buffer.resize(size);
                lock.unlockProducer(produces);
            }
        });
        threads.emplace_back([&] {
            for (int round = 0; round < 2000; ++round) {
                lock.lockConsumer();
                broken = broken || buffer.empty();
                buffer.resize(buffer.size() - (buffer.empty() ? 0 : 1));
                lock.unlockConsumer(true);
            }
        });
    }
    threads.clear();
    EXPECT_TRUE(!broken && buffer.empty());
}
