#include "platform/Semaphore.h"

#include <gtest/gtest.h>

#include "support/WaitingThread.h"
#include "util/Converter.h"

using platform::Semaphore;
using support::WaitingThread;

TEST(SemaphoreTest, EachUnitLetsOneThreadPass) {
    Semaphore semaphore(1);
    semaphore.wait();
    WaitingThread first([&] { semaphore.wait(); });
    EXPECT_TRUE(first.becomesBlocked());
    semaphore.release(1);
    EXPECT_TRUE(first.becomesDone());

    WaitingThread second([&] { semaphore.wait(); });
    WaitingThread third([&] { semaphore.wait(); });
    WaitingThread fourth([&] { semaphore.wait(); });
    EXPECT_TRUE(second.becomesBlocked() && third.becomesBlocked() && fourth.becomesBlocked());
    semaphore.release(3);
    EXPECT_TRUE(second.becomesDone() && third.becomesDone() && fourth.becomesDone());
}

TEST(SemaphoreTest, UnitsPastTheMaximumChangeNothing) {
    Semaphore semaphore(1);
    semaphore.release(2147483647);
    semaphore.wait();
    WaitingThread waiting([&] { semaphore.wait(); });
    EXPECT_TRUE(waiting.becomesBlocked());
    semaphore.release(0);
    EXPECT_TRUE(waiting.becomesBlocked());
    semaphore.release(2147483647);
    EXPECT_TRUE(waiting.becomesDone());
}

TEST(SemaphoreTest, CountsThatNeverFitAreRefused) {
    constexpr const char* expected =
        "Conversion failed. The supplied number, 2147483648, is larger than the max value, 2147483647 of the "
        "destination type.";
    try {
        Semaphore semaphore(2147483648);
        ADD_FAILURE();
    } catch (const util::ConverterException& exception) {
        EXPECT_STREQ(exception.what(), expected);
    }
    Semaphore semaphore(2147483647);
    EXPECT_THROW(semaphore.release(2147483648), util::ConverterException);
}
