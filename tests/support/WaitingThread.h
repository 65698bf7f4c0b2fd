#pragma once

#include <unistd.h>

#include <atomic>
#include <fstream>
#include <functional>
#include <string>
#include <thread>

#include "support/Eventually.h"

namespace support {

// A thread that is expected to wait in its operation, so that a test can go on once it does.
class WaitingThread {
public:
    explicit WaitingThread(std::function<void()> operation)
        : _thread([this, operation = std::move(operation)] {
              _id = gettid();
              operation();
              _isDone = true;
          }) {}
    ~WaitingThread() { _thread.join(); }

    bool isDone() const { return _isDone; }
    bool becomesDone() const {
        return eventually([this] { return isDone(); });
    }

    // True once the thread sleeps inside its operation; false if the operation ends instead.
    bool becomesBlocked() const {
        bool blocked = false;
        return eventually([&] { return (blocked = isAsleep()) || isDone(); }) && blocked;
    }

private:
    bool isAsleep() const {
        if (_id == 0 || _isDone) {
            return false;
        }
        std::ifstream file("/proc/self/task/" + std::to_string(_id) + "/stat");
        std::string stat;
        std::getline(file, stat);
        // The state follows the name, which stands in parentheses and may hold anything.
        const std::size_t end = stat.rfind(')');
        return end != std::string::npos && stat.compare(end, 3, ") S") == 0;
    }

    std::atomic<pid_t> _id = 0;
    std::atomic<bool> _isDone = false;
    std::thread _thread;
};

}  // namespace support
