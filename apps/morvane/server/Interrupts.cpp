#include "server/Interrupts.h"

#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>

#include "Failure.h"

namespace halvern::morvane::client {

namespace {

// All that the handler touches; it may run in any thread at any time.
std::atomic<bool> isRequested = false;
std::atomic<int> wakingEnd = -1;

std::mutex mutex;  // guards what follows
int users = 0;
int pollingEnd = -1;
struct sigaction before = {};

void note(int) {
    const int error = errno;
    isRequested = true;
    const char byte = 0;
    // The pipe is empty, so this can't fail in a way that matters.
    [[maybe_unused]] const ssize_t written = ::write(wakingEnd, &byte, 1);
    errno = error;
}

}  // namespace

Interrupts::Interrupts() {
    const std::lock_guard lock(mutex);
    if (users == 0) {
        int ends[2];
        if (::pipe2(ends, O_CLOEXEC | O_NONBLOCK) != 0) {
            throw Failure{ExitCode::UNREACHABLE, "This process has no file descriptors left."};
        }
        pollingEnd = ends[0];
        wakingEnd = ends[1];
        isRequested = false;
        ::sigaction(SIGINT, nullptr, &before);
        if (before.sa_handler != SIG_IGN) {  // whoever started us with it ignored, as nohup does, means it
            struct sigaction action = {};
            action.sa_handler = note;
            action.sa_flags = static_cast<int>(SA_RESETHAND);
            ::sigaction(SIGINT, &action, nullptr);
        }
    }
    ++users;
}

Interrupts::~Interrupts() {
    const std::lock_guard lock(mutex);
    if (--users == 0) {
        ::sigaction(SIGINT, &before, nullptr);
        ::close(wakingEnd.exchange(-1));
        ::close(pollingEnd);
        isRequested = false;
    }
}

bool Interrupts::requested() const { return isRequested; }

int Interrupts::descriptor() const { return pollingEnd; }

void Interrupts::check() const {
    if (requested()) {
        throw Failure{ExitCode::INTERRUPTED, "Interrupted."};
    }
}

}  // namespace halvern::morvane::client
