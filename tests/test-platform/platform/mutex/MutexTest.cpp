#include <gtest/gtest.h>

#include <memory>
#include <thread>
#include <vector>

#include "platform/mutex/AutoLock.h"
#include "platform/mutex/CriticalSection.h"
#include "platform/mutex/MutexImpl.h"
#include "platform/thread/ThreadId.h"
#include "support/FailedCheck.h"
#include "support/Failure.h"
#include "support/WaitingThread.h"

using namespace platform::mutex;
using platform::thread::currentThreadId;
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
        std::jthread([&, holder = currentThreadId()] {
            EXPECT_EQ(support::failureOf<MutexException>([&] { mutex.unlock(); }),
                      "Error unlocking the mutex. The thread calling unlock() was not the thread that "
                      "lock()ed the mutex.\n"
                      "The thread that locked the mutex has id: " +
                          std::to_string(holder) +
                          "\nThe thread unlocking has id: " + std::to_string(currentThreadId()) +
                          "System error message: Operation not permitted. Error code: 1.");
        }).join();
        other = std::make_unique<WaitingThread>([&] { lockAndUnlock(mutex); });
        EXPECT_TRUE(other->becomesBlocked());
    }
    EXPECT_TRUE(other->becomesDone());
    EXPECT_EQ(support::failedCheck([] { MutexImpl().lock(); }), "_lockCount == 0");
}
