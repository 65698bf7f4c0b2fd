#pragma once

#include <fcntl.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstddef>
#include <filesystem>
#include <iterator>

namespace support {

inline std::size_t entriesOf(const char* directory) {
    const std::filesystem::directory_iterator entries(directory);
    return static_cast<std::size_t>(std::distance(begin(entries), end(entries)));
}

// Open descriptors of this process; counting opens one, which counts too.
inline std::size_t openDescriptors() { return entriesOf("/proc/self/fd"); }

inline std::size_t runningThreads() { return entriesOf("/proc/self/task"); }

// As long as this lives, the process gets no further descriptor.
class NoDescriptorsLeft {
public:
    NoDescriptorsLeft() {
        getrlimit(RLIMIT_NOFILE, &_before);
        const int next = fcntl(0, F_DUPFD_CLOEXEC, 0);
        close(next);
        rlimit none = _before;
        none.rlim_cur = static_cast<rlim_t>(next);
        setrlimit(RLIMIT_NOFILE, &none);
    }
    NoDescriptorsLeft(const NoDescriptorsLeft&) = delete;
    NoDescriptorsLeft& operator=(const NoDescriptorsLeft&) = delete;
    ~NoDescriptorsLeft() { setrlimit(RLIMIT_NOFILE, &_before); }

private:
    rlimit _before = {};
};

}  // namespace support
