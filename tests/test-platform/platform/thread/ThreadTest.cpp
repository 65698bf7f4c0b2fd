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
#include <vector>

#include "exceptions/IllegalArgumentException.h"
#include "platform/event/Event.h"
#include "platform/thread/InheritableThreadImpl.h"
#include "platform/thread/LoggingThreadFactoryImpl.h"
#include "platform/thread/LoggingThreadImpl.h"
#include "platform/thread/ThreadFactoryImpl.h"
#include "platform/thread/ThreadImpl.h"
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

class Words final : public windows::seh::SehExceptionMapper {
public:
    const char* getText(std::uint32_t code) const noexcept override { return code == 7 ? "Seven." : nullptr; }
};

}  // namespace

TEST(ThreadTest, RunsOnceAndKnowsItself) {
    std::unique_ptr<Thread> thread;
    std::size_t stackSize = 0;
    bool stackForSignals = false;
    bool current = false;
    Operation operation([&] {
        current = thread->isCurrent();
        pthread_attr_t attributes;
        pthread_getattr_np(pthread_self(), &attributes);
        pthread_attr_getstacksize(&attributes, &stackSize);
        pthread_attr_destroy(&attributes);
        stack_t stack{};
        sigaltstack(nullptr, &stack);
        stackForSignals = (stack.ss_flags & SS_DISABLE) == 0;
    });
    thread = ThreadFactoryImpl().create(operation);
    EXPECT_EQ(thread->getName(), "");
    EXPECT_FALSE(thread->isCurrent());
    thread->start();
    EXPECT_FALSE(thread->isCurrent());
    thread->join();
    EXPECT_TRUE(current);
    EXPECT_TRUE(stackForSignals);
    EXPECT_GE(stackSize, 2u * 1024 * 1024);
    thread->join();
    EXPECT_FALSE(thread->join(100));
}

TEST(ThreadTest, OneThatWasNeverStartedIsNotWaitedFor) {
    Operation operation([] { ADD_FAILURE(); });
    const auto thread = ThreadFactoryImpl().create(operation);
    thread->join();
    EXPECT_FALSE(thread->join(100));
}

TEST(ThreadTest, WaitsNoLongerThanAsked) {
    EventImpl end;
    Operation operation([&] { end.wait(); });
    const auto thread = ThreadFactoryImpl().create(operation);
    thread->start();
    EXPECT_FALSE(thread->join(0));
    EXPECT_FALSE(thread->join(1));
    EXPECT_THROW(thread->join(4294967296), util::ConverterException);
    end.set();
    EXPECT_TRUE(thread->join(4294967295));
    EXPECT_FALSE(thread->join(0));
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

TEST(ThreadTest, AClassMayBeItsOwnThread) {
    class Client final : public InheritableThreadImpl {
    public:
        using InheritableThreadImpl::InheritableThreadImpl;
        void run() override { wasCurrent = isCurrent(); }
        bool wasCurrent = false;
    };
    Client client{LoggingThreadFactoryImpl(nullptr, nullptr)};
    client.setName("client");
    EXPECT_EQ(client.getName(), "client");
    client.start();
    EXPECT_TRUE(client.join(4294967295));
    client.join();
    EXPECT_TRUE(client.wasCurrent);
}

TEST(ThreadTest, StartsAndEndsAreChecked) {
    const support::TempDir reports;
    Operation operation([] {});
    EXPECT_DEATH(
        {
            ASSERT_EQ(chdir(reports.path().c_str()), 0);
            const auto thread = ThreadFactoryImpl().create(operation);
            thread->start();
            thread->start();
        },
        "");
    EXPECT_DEATH(
        {
            ASSERT_EQ(chdir(reports.path().c_str()), 0);
            ThreadFactoryImpl().create(operation)->start();
        },
        "");
    const std::string report = support::readFile(reports.file("assertion.txt"));
    EXPECT_NE(report.find("_state == CREATED\n"), std::string::npos);
    EXPECT_NE(report.find("_state == CREATED || _state == DELETED"), std::string::npos);
}

// Sanitizers don't live with a limit on addresses, and lose a thread that tries to join itself.
#ifndef MORVANE_SANITIZED
TEST(ThreadTest, JoiningItselfIsRefused) {
    std::unique_ptr<Thread> thread;
    std::string failure;
    Operation operation([&] {
        try {
            thread->join();
        } catch (const ThreadException& exception) {
            failure = exception.what();
        }
    });
    thread = ThreadFactoryImpl().create(operation);
    thread->start();
    EXPECT_TRUE(thread->join(4294967295));
    EXPECT_EQ(
        failure,
        "WaitForSingleObject failed while waiting for a thread. System error message: Resource deadlock "
        "avoided. Error code: 35.");
}

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
    const struct {
        std::function<void()> operation;
        const char* logged;
        const char* report;
    } cases[] = {
        {[] { throw exceptions::IllegalArgumentException("no good"); },
         "\\[An Exception occurred in one of the running threads.\nThread name: worker.\nThread id: "
         "[0-9]+.\nno "
         "good\\]",
         "Message: false\nDescription: An Exception occurred in one of the running threads.\nThread name: "
         "worker.\nThread id: [0-9]+.\nno good\nFile: platform/thread/LoggingThreadImpl\n"},
        {[] { throw std::runtime_error("bad luck"); },
         "\\[A std exception occurred in one of the running threads.\nThread name: worker.\nThread id: "
         "[0-9]+.\nbad luck\\]",
         "Message: false\nDescription: bad luck\nFile: platform/thread/LoggingThreadImpl\n"},
        {[] { throw 5; },
         "\\[A running thread threw a ... exception.\nThread name: worker.\nThread id: [0-9]+.\\]",
         "Message: false\nFile: platform/thread/LoggingThreadImpl\n"},
    };
    for (const auto& row : cases) {
        const support::TempDir reports;
        EXPECT_DEATH(
            {
                ASSERT_EQ(chdir(reports.path().c_str()), 0);
                StandardError log;
                Operation operation(row.operation);
                const auto thread = LoggingThreadFactoryImpl(&log, nullptr).create(operation);
                thread->setName("worker");
                thread->start();
                thread->join();
            },
            row.logged);
        EXPECT_THAT(support::readFile(reports.file("assertion.txt")), testing::ContainsRegex(row.report));
    }
}

TEST(LoggingThreadTest, AFaultIsDescribedOnItsThread) {
    const Words words;
    std::vector<std::string> texts;
    Operation operation([&] {
        for (const std::uint32_t code : {7u, 8u}) {
            util::FixedStream<1024> text;
            LoggingThreadImpl::describeFault(code, text);
            texts.emplace_back(text.str());
        }
    });
    const auto thread = LoggingThreadFactoryImpl(nullptr, &words).create(operation);
    thread->setName("worker");
    thread->start();
    thread->join();
    operation.run();
    const std::string opening =
        "A SEH exception occurred in one of the running threads.\nThread name: worker.\nThread id: [0-9]+.\n";
    ASSERT_EQ(texts.size(), 4u);
    EXPECT_THAT(texts[0], testing::MatchesRegex(opening + "Seven."));
    EXPECT_THAT(texts[1],
                testing::MatchesRegex(opening +
                                      "Couldn't find a seh string representation of the exception code 8."));
    EXPECT_EQ(texts[2], "");
}
