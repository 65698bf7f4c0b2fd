#include "server/SocketExchange.h"

#include <netdb.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <system_error>
#include <utility>

#include "Failure.h"
#include "util/StringHelper.h"

namespace halvern::morvane::client {

namespace {

constexpr std::size_t MEGABYTE = std::size_t{1024} * 1024;
constexpr std::size_t LARGE_ANSWER = 64 * MEGABYTE;

constexpr const char* MAY_HAVE_RUN =
    "The request may have run or not. For a write, look with 'morvane info CLASSIFIER' before sending it "
    "again.";

class Descriptor {
public:
    explicit Descriptor(int number) : _number(number) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor() {
        if (_number >= 0) {
            ::close(_number);
        }
    }
    int get() const { return _number; }
    int release() { return std::exchange(_number, -1); }

private:
    int _number;
};

// Whether closing throws away what is still to be sent, and tells the other side so.
void setLinger(int descriptor, bool isReset) {
    const linger now = {isReset ? 1 : 0, 0};
    ::setsockopt(descriptor, SOL_SOCKET, SO_LINGER, &now, sizeof(now));
}

std::string words(int error) { return std::generic_category().message(error); }

// A caller whose own port the system happens to choose equal to the one that it calls is connected to itself.
bool isConnectedToItself(int descriptor) {
    sockaddr_storage local = {};
    sockaddr_storage remote = {};
    socklen_t localSize = sizeof(local);
    socklen_t remoteSize = sizeof(remote);
    return ::getsockname(descriptor, reinterpret_cast<sockaddr*>(&local), &localSize) == 0 &&
           ::getpeername(descriptor, reinterpret_cast<sockaddr*>(&remote), &remoteSize) == 0 &&
           localSize == remoteSize && std::memcmp(&local, &remote, localSize) == 0;
}

}  // namespace

SocketExchange::SocketExchange(Settings settings)
    : SocketExchange(std::move(settings), std::make_unique<platform::memory::MemoryStatusImpl>(),
                     LARGE_ANSWER) {}

SocketExchange::SocketExchange(Settings settings, std::unique_ptr<platform::memory::MemoryStatus> memory,
                               std::size_t largeAnswer)
    : _settings(std::move(settings)), _memory(std::move(memory)), _largeAnswer(largeAnswer) {}

std::string SocketExchange::ask(const std::string& request) {
    const Interrupts interrupts;
    if (_endpoints.empty()) {
        resolve();
    }
    const Descriptor connection(connectAny(interrupts));
    // Whoever gives up, or dies, resets the connection: what the system hasn't delivered yet must not reach
    // the server at a time when the request is taken for lost and sent again.
    setLinger(connection.get(), true);
    std::string answer = converse(connection.get(), request, interrupts);
    setLinger(connection.get(), false);
    return answer;
}

void SocketExchange::resolve() {
    addrinfo hints = {};
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    // The loopback by definition (RFC 6761, 6.3). Small machines have no hosts file that says so.
    const bool isLocal = util::StringHelper::toLower(_settings.address.host) == "localhost";
    addrinfo* found = nullptr;
    const int result = ::getaddrinfo(isLocal ? nullptr : _settings.address.host.c_str(),
                                     std::to_string(_settings.address.port).c_str(), &hints, &found);
    if (result != 0) {
        throw Failure{
            ExitCode::UNREACHABLE,
            "The host '" + _settings.address.host + "' isn't known: " + ::gai_strerror(result) + ".",
            "Mind the spelling, or give its address: --server 192.0.2.1:9400."};
    }
    for (const addrinfo* entry = found; entry != nullptr; entry = entry->ai_next) {
        Endpoint endpoint;
        endpoint.size = entry->ai_addrlen;
        std::memcpy(&endpoint.address, entry->ai_addr, entry->ai_addrlen);
        _endpoints.push_back(endpoint);
    }
    ::freeaddrinfo(found);
}

int SocketExchange::connectAny(const Interrupts& interrupts) const {
    int error = 0;
    for (const Endpoint& endpoint : _endpoints) {
        const int descriptor = connectTo(endpoint, interrupts, error);
        if (descriptor >= 0) {
            return descriptor;
        }
    }
    const std::string server = _settings.address.text();
    if (error == ECONNREFUSED) {
        throw Failure{ExitCode::UNREACHABLE, "No server listens at " + server + ".",
                      "Start the server, or name another one: --server HOST:PORT, or MORVANE_SERVER."};
    }
    throw Failure{ExitCode::UNREACHABLE,
                  "The server at " + server + " can't be reached: " + words(error) + ".",
                  "Is the address right? Name another one with --server HOST:PORT, or MORVANE_SERVER."};
}

// Returns -1 and sets error if nobody answers there.
int SocketExchange::connectTo(const Endpoint& endpoint, const Interrupts& interrupts, int& error) const {
    Descriptor connection(
        ::socket(endpoint.address.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (connection.get() < 0) {
        error = errno;
        return -1;
    }
    const auto* address = reinterpret_cast<const sockaddr*>(&endpoint.address);
    error = ::connect(connection.get(), address, endpoint.size) == 0 ? 0 : errno;
    if (error == EINPROGRESS) {
        if (wait(connection.get(), POLLOUT, interrupts) == 0) {
            error = ETIMEDOUT;
            return -1;
        }
        socklen_t size = sizeof(error);
        ::getsockopt(connection.get(), SOL_SOCKET, SO_ERROR, &error, &size);
        if (error == ECONNRESET) {
            error = 0;  // There was a connection, and whoever talks over it will find that it broke off.
        }
    }
    if (error == 0 && isConnectedToItself(connection.get())) {
        // A reset frees the port for a server that may want it.
        setLinger(connection.get(), true);
        error = ECONNREFUSED;
    }
    return error == 0 ? connection.release() : -1;
}

// Sends all, ends the sending, reads to the end. Reads while it sends: whoever answers early, and so isn't a
// Morvane server or fails, must not leave both sides waiting for each other.
std::string SocketExchange::converse(int descriptor, const std::string& request,
                                     const Interrupts& interrupts) const {
    const std::string server = _settings.address.text();
    std::string answer;
    std::size_t sent = 0;
    bool isSending = true;
    char buffer[64 * 1024];
    const auto brokeOff = [&](const std::string& how) {
        return Failure{ExitCode::UNREACHABLE, "The server at " + server + " broke off: " + how, MAY_HAVE_RUN};
    };
    while (true) {
        if (isSending && sent == request.size()) {
            ::shutdown(descriptor, SHUT_WR);
            isSending = false;
        }
        const auto events = static_cast<short>(isSending ? POLLIN | POLLOUT : POLLIN);
        const short ready = wait(descriptor, events, interrupts);
        if (ready == 0) {
            throw Failure{ExitCode::UNREACHABLE,
                          "The server at " + server + " has been silent for " +
                              std::to_string(_settings.timeout.count()) + " ms.",
                          std::string("Give it more time with --timeout SECONDS. ") + MAY_HAVE_RUN};
        }
        if (isSending && (ready & POLLOUT) != 0) {
            const ssize_t bytes =
                ::send(descriptor, request.data() + sent, request.size() - sent, MSG_NOSIGNAL);
            if (bytes >= 0) {
                sent += static_cast<std::size_t>(bytes);
            } else if (errno == EPIPE || errno == ECONNRESET) {
                isSending = false;  // what it said before it left may still be there to be read
            } else if (errno != EAGAIN && errno != EINTR) {
                throw brokeOff(words(errno) + ".");
            }
            if ((ready & POLLIN) == 0 && isSending) {
                continue;
            }
        }
        const ssize_t bytes = ::recv(descriptor, buffer, sizeof(buffer), 0);
        if (bytes > 0) {
            append(answer, buffer, static_cast<std::size_t>(bytes));
        } else if (bytes == 0) {
            break;
        } else if (errno != EAGAIN && errno != EINTR) {
            throw brokeOff(words(errno) + ".");
        }
    }
    if (answer.empty()) {
        throw brokeOff("it closed the connection without an answer.");
    }
    return answer;
}

void SocketExchange::append(std::string& answer, const char* bytes, std::size_t size) const {
    // A string that has to grow doubles, and both are there for a moment.
    const bool grows = answer.size() + size > answer.capacity();
    if (grows && answer.size() >= _largeAnswer && _memory->available() / 2 < answer.capacity()) {
        throw Failure{ExitCode::UNREACHABLE,
                      "The answer is larger than the memory of this machine allows: " +
                          std::to_string(answer.size() / MEGABYTE) + " MB came, and it goes on.",
                      "Ask for less at once."};
    }
    answer.append(bytes, size);
}

// Returns what is ready, or 0 after the timeout.
short SocketExchange::wait(int descriptor, short events, const Interrupts& interrupts) const {
    const auto timeout = _settings.timeout.count() == 0
                             ? -1
                             : static_cast<int>(std::min<std::int64_t>(_settings.timeout.count(), INT32_MAX));
    pollfd places[] = {{descriptor, events, 0}, {interrupts.descriptor(), POLLIN, 0}};
    int count = 0;
    do {
        count = ::poll(places, 2, timeout);
    } while (count < 0 && errno == EINTR && !interrupts.requested());
    if (interrupts.requested()) {
        throw Failure{ExitCode::INTERRUPTED, "Interrupted.", MAY_HAVE_RUN};
    }
    return places[0].revents;
}

}  // namespace halvern::morvane::client
