#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>

#include "platform/event/Event.h"
#include "platform/mutex/ReaderWriterLockImpl.h"
#include "support/WaitingThread.h"

using platform::event::EventImpl;
using namespace platform::mutex;
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
    ASSERT_TRUE(first.becomesIn());
    Writer writer(lock);
    ASSERT_TRUE(writer.becomesBlocked());
    Reader second(lock);
    ASSERT_TRUE(second.becomesIn());
    first.leave();
    EXPECT_TRUE(writer.becomesBlocked());
    second.leave();
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

TEST(ReaderWriterLockTest, ReadersGoInTogetherWhenAWriterLeavesUnlessTheNextHasNoPatience) {
    for (const auto patience : {endless, none}) {
        ReaderWriterLockImpl lock(patience);
        Writer writer(lock);
        ASSERT_TRUE(writer.becomesIn());
        Writer next(lock);
        ASSERT_TRUE(next.becomesBlocked());
        Reader first(lock);
        Reader second(lock);
        ASSERT_TRUE(first.becomesBlocked() && second.becomesBlocked());
        writer.leave();
        if (patience == none) {
            ASSERT_TRUE(next.becomesIn());
            EXPECT_TRUE(first.becomesBlocked());
            next.leave();
        }
        EXPECT_TRUE(first.becomesIn() && second.becomesIn());
    }
}

TEST(ReaderWriterLockTest, TheWriterSideBelongsToItsThreadTheReaderSideToNone) {
    ReaderWriterLockImpl lock;
    lock.WriterLock::lock();
    std::thread([&] { EXPECT_THROW(lock.WriterLock::unlock(), MutexException); }).join();
    {
        Reader reader(lock);
        EXPECT_TRUE(reader.becomesBlocked());
        lock.WriterLock::unlock();
        EXPECT_TRUE(reader.becomesIn());
    }
    lock.ReaderLock::lock();
    std::thread([&] { lock.ReaderLock::unlock(); }).join();
    const WriterAutoLock free(lock);
}
