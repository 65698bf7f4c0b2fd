#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pthread.h>
#include <sys/resource.h>

#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <stdexcept>
#include <string>

#include "exceptions/IllegalArgumentException.h"
#include "platform/event/Event.h"
#include "platform/thread/InheritableThreadImpl.h"
#include "platform/thread/LoggingThreadFactoryImpl.h"
#include "platform/thread/LoggingThreadImpl.h"
#include "platform/thread/ThreadFactoryImpl.h"
#include "platform/thread/ThreadImpl.h"
#include "support/FailedCheck.h"
#include "support/TempDir.h"
#include "util/Converter.h"

using platform::event::EventImpl;
using platform::thread::InheritableThreadImpl;
using platform::thread::LoggingThreadFactoryImpl;
using platform::thread::LoggingThreadImpl;
using platform::thread::Runnable;
using platform::thread::Thread;
using platform::thread::ThreadException;
using platform::thread::ThreadFactoryImpl;

namespace {

class Operation final : public Runnable {
public:
    explicit Operation(std::function<void()> operation) : _operation(std::move(operation)) {}
    void run() override { _operation(); }

private:
    const std::function<void()> _operation;
};

class StandardError final : public platform::thread::ThreadLog {
public:
    void log(const std::string& text) override { std::fprintf(stderr, "[%s]\n", text.c_str()); }
};

}  // namespace

TEST(ThreadTest, RunsOnceKnowsItselfAndIsWaitedForNoLongerThanAsked) {
    class Client final : public InheritableThreadImpl {
    public:
        using InheritableThreadImpl::InheritableThreadImpl;
        void run() override {
            wasCurrent = isCurrent();
            pthread_attr_t attributes;
            pthread_getattr_np(pthread_self(), &attributes);
            pthread_attr_getstacksize(&attributes, &stackSize);
            pthread_attr_destroy(&attributes);
            stack_t stack{};
            sigaltstack(nullptr, &stack);
            stackForSignals = (stack.ss_flags & SS_DISABLE) == 0;
            end.wait();
        }
        bool wasCurrent = false;
        std::size_t stackSize = 0;
        bool stackForSignals = false;
        EventImpl end;
    };
    Client client{LoggingThreadFactoryImpl(nullptr, nullptr)};
    client.setName("client");
    EXPECT_EQ(client.getName(), "client");
    client.join();
    EXPECT_FALSE(client.join(100));
    client.start();
    EXPECT_FALSE(client.isCurrent());
    EXPECT_FALSE(client.join(0));
    EXPECT_FALSE(client.join(1));
    EXPECT_THROW(client.join(4294967296), util::ConverterException);
    client.end.set();
    EXPECT_TRUE(client.join(4294967295));
    client.join();
    EXPECT_FALSE(client.join(0));
    EXPECT_TRUE(client.wasCurrent);
    EXPECT_TRUE(client.stackForSignals);
    EXPECT_GE(client.stackSize, 2u * 1024 * 1024);
}

// A server's client announces its end on its own thread, and whoever hears that joins and deletes it.
TEST(ThreadTest, MayBeJoinedAndDeletedByWhomeverItTells) {
    for (int round = 0; round < 200; ++round) {
        std::unique_ptr<Thread> thread;
        EventImpl toldSomebody;
        Operation operation([&] { toldSomebody.set(); });
        Operation reaping([&] {
            toldSomebody.wait();
            thread->join();
            thread.reset();
        });
        thread = ThreadFactoryImpl().create(operation);
        const auto reaper = ThreadFactoryImpl().create(reaping);
        reaper->start();
        Thread& started = *thread;
        started.start();
        reaper->join();
        EXPECT_EQ(thread, nullptr);
    }
}

TEST(ThreadTest, StartsAndEndsAreChecked) {
    Operation operation([] {});
    EXPECT_EQ(support::failedCheck([&] {
                  const auto thread = ThreadFactoryImpl().create(operation);
                  thread->start();
                  thread->start();
              }),
              "_state == CREATED");
    EXPECT_EQ(support::failedCheck([&] { ThreadFactoryImpl().create(operation)->start(); }),
              "_state == CREATED || _state == DELETED");
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
        "^Error creating thread using '_beginthreadex'. errno: 11. doserrno: 11. strerror: Resource "
        "temporarily unavailable. System error message: Resource temporarily unavailable. Error code: "
        "11.$");
}
#endif

TEST(LoggingThreadTest, WhatEscapesIsLoggedBeforeTheProcessEnds) {
    const std::string head = "\nThread name: worker.\nThread id: [0-9]+.";
    struct Case {
        std::function<void()> operation;
        std::string logged;
        std::string description;
    };
    const Case cases[] = {
        {[] { throw exceptions::IllegalArgumentException("no good"); },
         "An Exception occurred in one of the running threads." + head + "\nno good",
         "Description: An Exception occurred in one of the running threads." + head + "\nno good\n"},
        {[] { throw std::runtime_error("bad luck"); },
         "A std exception occurred in one of the running threads." + head + "\nbad luck",
         "Description: bad luck\n"},
        {[] { throw 5; }, "A running thread threw a ... exception." + head, ""},
    };
    for (const Case& each : cases) {
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
            "\\[" + each.logged + "\\]");
        EXPECT_THAT(support::readFile(reports.file("assertion.txt")),
                    testing::ContainsRegex("Message: false\n" + each.description +
                                           "File: platform/thread/LoggingThreadImpl\n"));
    }
}

TEST(LoggingThreadTest, AFaultIsDescribedOnItsThread) {
    util::FixedStream<1024> text;
    Operation operation([&] { LoggingThreadImpl::describeFault(8, text); });
    operation.run();
    EXPECT_STREQ(text.str(), "");
    const auto thread = LoggingThreadFactoryImpl(nullptr, nullptr).create(operation);
    thread->setName("worker");
    thread->start();
    thread->join();
    EXPECT_THAT(
        text.str(),
        testing::MatchesRegex(
            "A SEH exception occurred in one of the running threads.\nThread name: worker.\nThread id: "
            "[0-9]+.\nCouldn't find a seh string representation of the exception code 8."));
}
