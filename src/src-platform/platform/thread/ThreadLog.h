#pragma once

#include <string>

namespace platform::thread {

// Where threads report what escaped from them. Called from any thread.
class ThreadLog {
public:
    virtual ~ThreadLog() = default;
    virtual void log(const std::string& text) = 0;
};

}  // namespace platform::thread
