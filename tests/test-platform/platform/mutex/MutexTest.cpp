#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "platform/mutex/AutoLock.h"
#include "platform/mutex/CriticalSection.h"
#include "platform/mutex/MutexImpl.h"
#include "platform/thread/ThreadId.h"
#include "support/FailedCheck.h"
#include "support/WaitingThread.h"

using platform::mutex::AutoLock;
using platform::mutex::CriticalSection;
using platform::mutex::Mutex;
using platform::mutex::MutexException;
using platform::mutex::MutexImpl;
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
    struct Case {
        Mutex& first;
        Mutex& second;
    };
    for (const Case& each :
         {Case{nameless, nameless}, Case{section, section}, Case{named, named}, Case{named, sameName}}) {
        each.first.lock();
        each.second.lock();
        WaitingThread other([&] { lockAndUnlock(each.second); });
        EXPECT_TRUE(other.becomesBlocked());
        WaitingThread apart([&] { lockAndUnlock(otherName); });
        EXPECT_TRUE(apart.becomesDone());
        each.second.unlock();
        EXPECT_TRUE(other.becomesBlocked());
        each.first.unlock();
        EXPECT_TRUE(other.becomesDone());
    }
}

TEST(MutexTest, UnlockingOnAThreadThatDoesNotHoldItChangesNothing) {
    MutexImpl mutex;
    EXPECT_THROW(mutex.unlock(), MutexException);
    mutex.lock();
    std::string failure;
    std::uint32_t id = 0;
    std::thread([&] {
        id = platform::thread::currentThreadId();
        try {
            mutex.unlock();
        } catch (const MutexException& exception) {
            failure = exception.what();
        }
    }).join();
    EXPECT_EQ(
        failure,
        "Error unlocking the mutex. The thread calling unlock() was not the thread that lock()ed the mutex.\n"
        "The thread that locked the mutex has id: " +
            std::to_string(platform::thread::currentThreadId()) + "\nThe thread unlocking has id: " +
            std::to_string(id) + "System error message: Operation not permitted. Error code: 1.");
    WaitingThread other([&] { lockAndUnlock(mutex); });
    EXPECT_TRUE(other.becomesBlocked());
    mutex.unlock();
    EXPECT_TRUE(other.becomesDone());
}

TEST(MutexTest, NamesThatComeAndGoStillExclude) {
    int counter = 0;
    {
        std::vector<std::jthread> threads(4);
        for (std::jthread& thread : threads) {
            thread = std::jthread([&] {
                for (int round = 0; round < 2000; ++round) {
                    MutexImpl mutex("counter");
                    AutoLock lock(mutex);
                    lock.lock();
                    ++counter;
                }
            });
        }
    }
    EXPECT_EQ(counter, 8000);
}

TEST(MutexTest, GuardUnlocksOnlyWhatItHasLockedAndNothingLockedIsDestroyed) {
    MutexImpl mutex;
    { AutoLock neverLocked(mutex); }  // an unlock would throw and end the process
    {
        AutoLock lock(mutex);
        lock.lock();
    }
    EXPECT_THROW(mutex.unlock(), MutexException);
    EXPECT_EQ(support::failedCheck([] { MutexImpl().lock(); }), "_lockCount == 0");
}
