#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "platform/mutex/AutoLock.h"
#include "platform/mutex/CriticalSection.h"
#include "platform/mutex/MutexImpl.h"
#include "platform/thread/ThreadId.h"
#include "support/TempDir.h"
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

void expectRecursive(Mutex& mutex) {
    mutex.lock();
    mutex.lock();
    WaitingThread other([&] { lockAndUnlock(mutex); });
    EXPECT_TRUE(other.becomesBlocked());
    mutex.unlock();
    EXPECT_TRUE(other.becomesBlocked());
    mutex.unlock();
    EXPECT_TRUE(other.becomesDone());
}

}  // namespace

TEST(MutexTest, IsFreeForOthersAfterAsManyUnlocksAsLocks) {
    MutexImpl mutex;
    expectRecursive(mutex);
    CriticalSection section;
    expectRecursive(section);
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

TEST(MutexTest, OneNameIsOneLock) {
    MutexImpl first("one name");
    MutexImpl other("another name");
    MutexImpl nameless;
    first.lock();
    {
        WaitingThread sameName([] {
            MutexImpl second("one name");
            lockAndUnlock(second);
        });
        EXPECT_TRUE(sameName.becomesBlocked());
        WaitingThread otherName([&] {
            MutexImpl second("another name");
            lockAndUnlock(second);
            lockAndUnlock(nameless);
        });
        EXPECT_TRUE(otherName.becomesDone());
        EXPECT_FALSE(sameName.isDone());
        // Recursive through another object of the name, too.
        MutexImpl again("one name");
        lockAndUnlock(again);
        first.unlock();
        EXPECT_TRUE(sameName.becomesDone());
    }
}

TEST(MutexTest, NamesThatComeAndGoStillExclude) {
    int counter = 0;
    std::vector<std::thread> threads;
    threads.reserve(4);
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int round = 0; round < 2000; ++round) {
                MutexImpl mutex("counter");
                AutoLock lock(mutex);
                lock.lock();
                ++counter;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(counter, 8000);
}

TEST(AutoLockTest, UnlocksOnlyWhatItHasLocked) {
    MutexImpl mutex;
    { AutoLock neverLocked(mutex); }  // an unlock would throw and end the process
    {
        AutoLock lock(mutex);
        lock.lock();
        WaitingThread other([&] { lockAndUnlock(mutex); });
        EXPECT_TRUE(other.becomesBlocked());
        mutex.unlock();
        EXPECT_TRUE(other.becomesDone());
        mutex.lock();
    }
    EXPECT_THROW(mutex.unlock(), MutexException);
}

TEST(MutexTest, IsNotDestroyedWhileLocked) {
    const support::TempDir reports;
    EXPECT_DEATH(
        {
            ASSERT_EQ(chdir(reports.path().c_str()), 0);
            MutexImpl mutex;
            mutex.lock();
        },
        "");
    EXPECT_NE(support::readFile(reports.file("assertion.txt")).find("_lockCount == 0"), std::string::npos);
}
