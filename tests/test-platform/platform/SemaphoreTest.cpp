#include "platform/Semaphore.h"

#include <gtest/gtest.h>

#include "support/WaitingThread.h"
#include "util/Converter.h"

using platform::Semaphore;
using support::WaitingThread;

TEST(SemaphoreTest, EachUnitLetsOneThreadPass) {
    Semaphore semaphore(1);
    semaphore.wait();
    {
        WaitingThread first([&] { semaphore.wait(); });
        WaitingThread second([&] { semaphore.wait(); });
        WaitingThread third([&] { semaphore.wait(); });
        EXPECT_TRUE(first.becomesBlocked() && second.becomesBlocked() && third.becomesBlocked());
        semaphore.release(1);
        EXPECT_TRUE(support::eventually([&] { return first.isDone() || second.isDone() || third.isDone(); }));
        EXPECT_EQ(first.isDone() + second.isDone() + third.isDone(), 1);
        semaphore.release(2);
    }
    semaphore.release(1);
    semaphore.release(2147483647);  // units past the maximum change nothing
    semaphore.wait();
    WaitingThread waiting([&] { semaphore.wait(); });
    EXPECT_TRUE(waiting.becomesBlocked());
    semaphore.release(2147483647);
}

TEST(SemaphoreTest, CountsThatNeverFitAreRefused) {
    try {
        Semaphore semaphore(2147483648);
        ADD_FAILURE();
    } catch (const util::ConverterException& exception) {
        EXPECT_STREQ(exception.what(),
                     "Conversion failed. The supplied number, 2147483648, is larger than the max value, "
                     "2147483647 of the destination type.");
    }
    Semaphore semaphore(2147483647);
    EXPECT_THROW(semaphore.release(2147483648), util::ConverterException);
}
