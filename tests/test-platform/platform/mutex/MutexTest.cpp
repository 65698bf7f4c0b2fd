#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "platform/mutex/AutoLock.h"
#include "platform/mutex/CriticalSection.h"
#include "platform/mutex/MutexImpl.h"
#include "support/FailedCheck.h"
#include "support/WaitingThread.h"

using namespace platform::mutex;
using support::WaitingThread;

namespace {

void lockAndUnlock(Mutex& mutex) {
    mutex.lock();
    mutex.unlock();
}

}  // namespace

TEST(MutexTest, IsFreeForOthersAfterAsManyUnlocksAsLocks) {
    MutexImpl nameless;
    CriticalSection section;
    MutexImpl named("one name");
    MutexImpl sameName("one name");
    MutexImpl otherName("another name");
    using Pair = std::pair<Mutex&, Mutex&>;
    for (const auto& [first, second] :
         {Pair(nameless, nameless), Pair(section, section), Pair(named, sameName)}) {
        first.lock();
        second.lock();
        WaitingThread other([&mutex = second] { lockAndUnlock(mutex); });
        EXPECT_TRUE(other.becomesBlocked());
        WaitingThread apart([&] { lockAndUnlock(otherName); });
        EXPECT_TRUE(apart.becomesDone());
        second.unlock();
        EXPECT_TRUE(other.becomesBlocked());
        first.unlock();
        EXPECT_TRUE(other.becomesDone());
    }
}

TEST(MutexTest, OnlyTheThreadThatHoldsItCanUnlock) {
    MutexImpl mutex;
    { AutoLock neverLocked(mutex); }  // an unlock would throw and end the process
    std::unique_ptr<WaitingThread> other;
    {
        AutoLock lock(mutex);
        lock.lock();
        std::jthread([&] { EXPECT_THROW(mutex.unlock(), MutexException); }).join();
        other = std::make_unique<WaitingThread>([&] { lockAndUnlock(mutex); });
        EXPECT_TRUE(other->becomesBlocked());
    }
    EXPECT_TRUE(other->becomesDone());
    EXPECT_EQ(support::failedCheck([] { MutexImpl().lock(); }), "_lockCount == 0");
}
