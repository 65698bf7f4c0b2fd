#pragma once

namespace platform::thread {

// The code that runs on a thread.
class Runnable {
public:
    virtual ~Runnable() = default;
    virtual void run() = 0;
};

}  // namespace platform::thread
