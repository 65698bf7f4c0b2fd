#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/resource.h>

#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "exceptions/IllegalArgumentException.h"
#include "platform/event/Event.h"
#include "platform/thread/LoggingThreadFactoryImpl.h"
#include "platform/thread/ThreadFactoryImpl.h"
#include "platform/thread/ThreadImpl.h"
#include "support/TempDir.h"

using platform::event::EventImpl;
using namespace platform::thread;

namespace {

class Operation final : public Runnable {
public:
    explicit Operation(std::function<void()> operation) : _operation(std::move(operation)) {}
    void run() override { _operation(); }

private:
    const std::function<void()> _operation;
};

class StandardError final : public ThreadLog {
public:
    void log(const std::string& text) override { std::fprintf(stderr, "[%s]\n", text.c_str()); }
};

}  // namespace

TEST(ThreadTest, IsWaitedForNoLongerThanAsked) {
    EventImpl end;
    bool wasCurrent = false;
    std::unique_ptr<Thread> thread;
    Operation operation([&] {
        wasCurrent = thread->isCurrent();
        end.wait();
    });
    thread = ThreadFactoryImpl().create(operation);
    thread->start();
    EXPECT_FALSE(thread->isCurrent() || thread->join(0) || thread->join(1));
    end.set();
    EXPECT_TRUE(thread->join(4294967295));
    EXPECT_TRUE(wasCurrent);
}

// A server's client announces its end on its own thread, and whoever hears that joins and deletes it.
TEST(ThreadTest, MayBeJoinedAndDeletedByWhomeverItTells) {
    for (int round = 0; round < 200; ++round) {
        EventImpl toldSomebody;
        Operation operation([&] { toldSomebody.set(); });
        std::unique_ptr<Thread> thread = ThreadFactoryImpl().create(operation);
        std::jthread reaper([&] {
            toldSomebody.wait();
            thread->join();
            thread.reset();
        });
        Thread& started = *thread;
        started.start();
    }
}

// Sanitizers don't live with a limit on addresses.
#ifndef MORVANE_SANITIZED
TEST(ThreadTest, NoMemoryForAThreadIsAFailureThatNamesItself) {
    const auto startUntilRefused = [] {
        const rlimit nothingMore{1, 1};
        setrlimit(RLIMIT_AS, &nothingMore);
        EventImpl never;
        Operation operation([&] { never.wait(); });
        for (;;) {  // the run time keeps the stacks of threads that have ended, so the first may get one
            const auto thread = ThreadFactoryImpl().create(operation).release();
            try {
                thread->start();
            } catch (const ThreadException& exception) {
                std::fprintf(stderr, "%s", exception.what());
                _exit(3);
            }
        }
    };
    EXPECT_EXIT(
        startUntilRefused(), testing::ExitedWithCode(3),
        "^Error creating thread using '_beginthreadex'.*Resource temporarily unavailable. Error code: 11.$");
}
#endif

TEST(LoggingThreadTest, WhatEscapesIsLoggedBeforeTheProcessEnds) {
    const struct {
        std::function<void()> operation;
        std::string logged;
    } cases[] = {
        {[] { throw exceptions::IllegalArgumentException("no good"); }, "An Exception occurred.*no good"},
        {[] { throw std::runtime_error("bad luck"); }, "A std exception occurred.*bad luck"},
        {[] { throw 5; }, "A running thread threw a ... exception."},
    };
    for (const auto& each : cases) {
        const support::TempDir reports;
        EXPECT_DEATH(
            {
                ASSERT_EQ(chdir(reports.path().c_str()), 0);
                StandardError log;
                Operation operation(each.operation);
                const auto thread = LoggingThreadFactoryImpl(&log, nullptr).create(operation);
                thread->setName("worker");
                thread->start();
                thread->join();
            },
            "\\[" + each.logged);
        EXPECT_THAT(support::readFile(reports.file("assertion.txt")),
                    testing::HasSubstr("File: platform/thread/LoggingThreadImpl\n"));
    }
}
