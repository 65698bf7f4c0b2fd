#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "platform/event/Event.h"
#include "platform/mutex/ReaderWriterLockImpl.h"
#include "support/WaitingThread.h"

using platform::event::EventImpl;
using platform::mutex::MutexException;
using platform::mutex::ReaderAutoLock;
using platform::mutex::ReaderLock;
using platform::mutex::ReaderWriterLockImpl;
using platform::mutex::WriterAutoLock;
using platform::mutex::WriterLock;
using support::eventually;
using support::WaitingThread;

namespace {

constexpr std::chrono::milliseconds endless = std::chrono::hours(1000);
constexpr std::chrono::milliseconds none(0);

// A thread that takes one side, and keeps it until it is told to leave.
template <class Side>
class Holder {
public:
    explicit Holder(Side& lock)
        : _thread([this, &lock] {
              lock.lock();
              _isIn = true;
              _leave.wait();
              _isIn = false;
              lock.unlock();
          }) {}
    ~Holder() { _leave.set(); }

    bool isIn() const { return _isIn; }
    bool becomesIn() const {
        return eventually([this] { return isIn(); });
    }
    bool becomesBlocked() const { return _thread.becomesBlocked() && !_isIn; }
    void leave() {
        _leave.set();
        EXPECT_TRUE(_thread.becomesDone());
    }

private:
    EventImpl _leave;
    std::atomic<bool> _isIn = false;
    WaitingThread _thread;
};

using Reader = Holder<ReaderLock>;
using Writer = Holder<WriterLock>;

}  // namespace

TEST(ReaderWriterLockTest, ReadersPassAPatientWriterWhichWaitsForAll) {
    ReaderWriterLockImpl lock(endless);
    Reader first(lock);
    Reader second(lock);
    ASSERT_TRUE(first.becomesIn() && second.becomesIn());
    Writer writer(lock);
    ASSERT_TRUE(writer.becomesBlocked());
    Reader third(lock);
    ASSERT_TRUE(third.becomesIn());
    first.leave();
    second.leave();
    EXPECT_TRUE(writer.becomesBlocked());
    third.leave();
    EXPECT_TRUE(writer.becomesIn());
}

TEST(ReaderWriterLockTest, AWriterLosesItsPatienceWithTimeAndThenGoesFirst) {
    ReaderWriterLockImpl lock(std::chrono::milliseconds(5));
    Reader first(lock);
    ASSERT_TRUE(first.becomesIn());
    Writer writer(lock);
    ASSERT_TRUE(writer.becomesBlocked());
    std::unique_ptr<Reader> late;
    ASSERT_TRUE(eventually([&] {
        late = std::make_unique<Reader>(lock);
        return late->becomesBlocked();
    }));
    first.leave();
    EXPECT_TRUE(writer.becomesIn());
    EXPECT_TRUE(late->becomesBlocked());
    writer.leave();
    EXPECT_TRUE(late->becomesIn());
}

TEST(ReaderWriterLockTest, ReadersGoInTogetherWhenAWriterLeaves) {
    for (const auto patience : {endless, none}) {
        ReaderWriterLockImpl lock(patience);
        Writer writer(lock);
        ASSERT_TRUE(writer.becomesIn());
        Writer next(lock);
        ASSERT_TRUE(next.becomesBlocked());
        std::vector<std::unique_ptr<Reader>> readers(10);
        for (auto& reader : readers) {
            reader = std::make_unique<Reader>(lock);
            ASSERT_TRUE(reader->becomesBlocked());
        }
        writer.leave();
        if (patience == none) {
            ASSERT_TRUE(next.becomesIn());
            EXPECT_TRUE(readers.front()->becomesBlocked());
            next.leave();
        }
        for (const auto& reader : readers) {
            EXPECT_TRUE(reader->becomesIn());
        }
        if (patience == endless) {
            for (; !readers.empty(); readers.pop_back()) {
                EXPECT_TRUE(next.becomesBlocked());
            }
            EXPECT_TRUE(next.becomesIn());
        }
    }
}

TEST(ReaderWriterLockTest, TheWriterSideBelongsToItsThreadTheReaderSideToNone) {
    ReaderWriterLockImpl lock;
    lock.WriterLock::lock();
    std::thread([&] {
        try {
            lock.WriterLock::unlock();
            ADD_FAILURE();
        } catch (const MutexException& exception) {
            EXPECT_STREQ(exception.what(),
                         "'ReleaseMutex' failed in ReaderWriterLockImpl. System error message: Operation not "
                         "permitted. Error code: 1.");
        }
    }).join();
    Reader reader(lock);
    EXPECT_TRUE(reader.becomesBlocked());
    lock.WriterLock::unlock();
    EXPECT_TRUE(reader.becomesIn());
    reader.leave();

    lock.ReaderLock::lock();
    std::thread([&] { lock.ReaderLock::unlock(); }).join();
    const WriterAutoLock free(lock);
}

TEST(ReaderWriterLockTest, NoReaderSeesHalfAWrite) {
    for (const auto patience : {endless, none}) {
        ReaderWriterLockImpl lock(patience);
        std::uint64_t first = 0;
        std::uint64_t second = 0;
        std::atomic<bool> torn = false;
        {
            std::vector<std::jthread> threads;
            for (int i = 0; i < 6; ++i) {
                threads.emplace_back([&, isWriter = i < 2] {
                    for (int round = 0; round < 2000; ++round) {
                        if (isWriter) {
                            const WriterAutoLock writer(lock);
                            ++first;
                            ++second;
                        } else {
                            const ReaderAutoLock reader(lock);
                            torn = torn || first != second;
                        }
                    }
                });
            }
        }
        EXPECT_FALSE(torn);
        EXPECT_EQ(first, 4000u);
    }
}
