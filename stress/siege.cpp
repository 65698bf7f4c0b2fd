// Serves honest clients while hostile ones hold on to whatever they can get:
//
//     siege [--seconds N] [--hostile N] [--places N] [--queue N]    a row for each kind of hostility
//     siege --only "never read the answer"                          one of them
//     siege --requests N    descriptors, threads and memory over N honest requests
//
// Two honest clients send one small classification after the other, each on a connection of its own. Hostile
// clients that the server cuts off come back after a second.

#include <sys/epoll.h>
#include <sys/resource.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "stress/Main.h"
#include "stress/Wire.h"
#include "support/Descriptors.h"
#include "system/Program.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned HONEST = 2;

enum class Hostility { NONE, SILENT, A_BYTE_A_SECOND, RESETS, NEVER_READS, READS, HALF_CLOSES };

const std::vector<std::pair<Hostility, std::string>> KINDS = {
    {Hostility::NONE, "none"},
    {Hostility::SILENT, "say nothing"},
    {Hostility::A_BYTE_A_SECOND, "a byte a second"},
    {Hostility::RESETS, "reset in the middle"},
    {Hostility::NEVER_READS, "never read the answer"},
    {Hostility::READS, "read that answer"},  // not hostile, but as much work
    {Hostility::HALF_CLOSES, "half-close at once"},
};

// Many hostile clients on one thread, from construction to destruction.
class Siege {
public:
    Siege(std::uint16_t port, Hostility hostility, int clients, std::string longRequest)
        : _port(port), _hostility(hostility), _longRequest(std::move(longRequest)) {
        if (hostility != Hostility::NONE) {
            _thread = std::jthread([this, clients](const std::stop_token& stop) { run(stop, clients); });
        }
    }

    std::uint64_t connected() const { return _connected; }

private:
    struct Client {
        int socket = -1;
        std::size_t sent = 0;
        bool isConnected = false;
        Clock::time_point next;  // when it does something by itself
    };

    void run(const std::stop_token& stop, int count) {
        const int events = epoll_create1(EPOLL_CLOEXEC);
        std::vector<Client> clients(static_cast<std::size_t>(count));
        for (Client& client : clients) {
            open(client, events);
        }
        std::vector<epoll_event> ready(256);
        while (!stop.stop_requested()) {
            const int number = epoll_wait(events, ready.data(), static_cast<int>(ready.size()), 5);
            for (int i = 0; i < number; ++i) {
                act(*static_cast<Client*>(ready[static_cast<std::size_t>(i)].data.ptr), events,
                    ready[static_cast<std::size_t>(i)].events);
            }
            const Clock::time_point now = Clock::now();
            for (Client& client : clients) {
                if (client.socket == -1 && now >= client.next) {
                    open(client, events);
                } else if (_hostility == Hostility::A_BYTE_A_SECOND && client.isConnected &&
                           now >= client.next) {
                    client.next = now + std::chrono::seconds(1);
                    (void)::send(client.socket, "<", 1, MSG_NOSIGNAL);
                }
            }
        }
        for (const Client& client : clients) {
            if (client.socket != -1) {
                ::close(client.socket);
            }
        }
        ::close(events);
    }

    void open(Client& client, int events) {
        client = Client();
        client.socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
        if (_hostility == Hostility::NEVER_READS) {
            const int tiny = 4096;
            ::setsockopt(client.socket, SOL_SOCKET, SO_RCVBUF, &tiny, sizeof(tiny));
        }
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        address.sin_port = htons(_port);
        (void)::connect(client.socket, reinterpret_cast<sockaddr*>(&address), sizeof(address));
        epoll_event event{};
        event.events = EPOLLOUT | EPOLLRDHUP;
        event.data.ptr = &client;
        ::epoll_ctl(events, EPOLL_CTL_ADD, client.socket, &event);
    }

    // Called when the connection stands, can take more, or has been ended by the server.
    void act(Client& client, int events, std::uint32_t happened) {
        if ((happened & EPOLLIN) != 0) {
            takeWhatIsThere(client);
            return;
        }
        const std::uint32_t ended = EPOLLHUP | EPOLLERR | (client.isConnected ? EPOLLRDHUP : 0u);
        if ((happened & ended) != 0) {
            leave(client);
            return;
        }
        if (!client.isConnected) {
            client.isConnected = true;
            ++_connected;
        }
        epoll_event event{};
        event.events = EPOLLRDHUP;
        event.data.ptr = &client;
        switch (_hostility) {
            case Hostility::RESETS: {
                (void)::send(client.socket, "<?xml version=", 14, MSG_NOSIGNAL);
                const linger abort{1, 0};
                ::setsockopt(client.socket, SOL_SOCKET, SO_LINGER, &abort, sizeof(abort));
                leave(client);
                return;
            }
            case Hostility::HALF_CLOSES:
                ::shutdown(client.socket, SHUT_WR);
                break;
            case Hostility::READS:
            case Hostility::NEVER_READS: {
                const ssize_t sent = ::send(client.socket, _longRequest.data() + client.sent,
                                            _longRequest.size() - client.sent, MSG_NOSIGNAL);
                client.sent += sent > 0 ? static_cast<std::size_t>(sent) : 0;
                if (client.sent < _longRequest.size()) {
                    event.events |= EPOLLOUT;
                } else {
                    ::shutdown(client.socket, SHUT_WR);
                    // Who doesn't read never sees the end of the answer.
                    event.events = _hostility == Hostility::READS ? EPOLLIN : 0u;
                }
                break;
            }
            default:
                break;
        }
        ::epoll_ctl(events, EPOLL_CTL_MOD, client.socket, &event);
    }

    void takeWhatIsThere(Client& client) {
        ssize_t got = 0;
        do {
            got = ::recv(client.socket, _taken.data(), _taken.size(), 0);
        } while (got > 0);
        if (got == 0 || errno != EAGAIN) {
            leave(client);
        }
    }

    static void leave(Client& client) {
        ::close(client.socket);
        client = Client();
        client.next = Clock::now() + std::chrono::seconds(1);
    }

    const std::uint16_t _port;
    const Hostility _hostility;
    const std::string _longRequest;
    std::vector<char> _taken = std::vector<char>(1024UL * 1024);
    std::atomic<std::uint64_t> _connected = 0;
    std::jthread _thread;
};

// How honest clients fared.
struct Service {
    std::vector<double> milliseconds;
    std::uint64_t failed = 0;
    std::string firstFailure;
    double seconds = 0;

    double quantile(double part) const {
        const auto place = static_cast<std::size_t>(part * static_cast<double>(milliseconds.size()));
        return milliseconds.empty() ? 0 : milliseconds[std::min(place, milliseconds.size() - 1)];
    }
};

// One honest client after the other until the end, or until so many requests have been sent by all of them.
Service serve(std::uint16_t port, const std::string& request, Clock::time_point end, std::uint64_t requests) {
    Service all;
    std::mutex mutex;
    std::atomic<std::uint64_t> taken = 0;
    const Clock::time_point start = Clock::now();
    {
        std::vector<std::jthread> clients;
        for (unsigned i = 0; i < HONEST; ++i) {
            clients.emplace_back([&] {
                Service own;
                while (Clock::now() < end && taken++ < requests) {
                    const Clock::time_point sent = Clock::now();
                    bool answered = false;
                    std::string problem;
                    try {
                        problem = systemtest::replyTo(port, request);
                        answered = problem.find("success=\"true\"") != std::string::npos;
                    } catch (const std::runtime_error& e) {
                        problem = std::string(e.what()) + ", " + std::strerror(errno);
                    }
                    if (answered) {
                        own.milliseconds.push_back(
                            std::chrono::duration<double, std::milli>(Clock::now() - sent).count());
                    } else {
                        ++own.failed;
                        own.firstFailure = "'" + problem + "'";
                    }
                }
                const std::lock_guard guard(mutex);
                all.milliseconds.insert(all.milliseconds.end(), own.milliseconds.begin(),
                                        own.milliseconds.end());
                all.failed += own.failed;
                all.firstFailure += own.firstFailure;
            });
        }
    }
    all.seconds = std::chrono::duration<double>(Clock::now() - start).count();
    std::sort(all.milliseconds.begin(), all.milliseconds.end());
    return all;
}

std::string smallRequest() {
    return systemtest::request(
        systemtest::texts(systemtest::text("t", "the prize is waiting for you, call now")) +
        systemtest::readCalls("<classify id=\"0\" classifierName=\"c\" textId=\"t\"/>\n"));
}

// Asks little and gets much: several megabytes, more than the buffers of a connection take.
std::string requestWithLongAnswer() {
    std::string calls;
    for (int i = 0; i < 5; ++i) {
        calls += systemtest::information("wide", std::to_string(i));
    }
    return systemtest::request(systemtest::readCalls(calls));
}

void teach(std::uint16_t port) {
    const systemtest::Answer answer = systemtest::ask(
        port,
        systemtest::request(systemtest::texts(systemtest::text("h", "see you at home") +
                                              systemtest::text("s", "call now for your prize")) +
                            systemtest::writeCalls("c",
                                                   "<create id=\"1\"/><addClass id=\"2\" className=\"ham\"/>"
                                                   "<addClass id=\"3\" className=\"spam\"/>"
                                                   "<train id=\"4\" className=\"ham\" textId=\"h\"/>"
                                                   "<train id=\"5\" className=\"spam\" textId=\"s\"/>")));
    std::string classes = "<create id=\"c\"/>";
    for (int i = 0; i < 2000; ++i) {
        const std::string number = std::to_string(i);
        classes += "<addClass id=\"" + number + "\" className=\"" + std::string(250, 'c') + number + "\"/>";
    }
    const systemtest::Answer wide =
        systemtest::ask(port, systemtest::request(systemtest::writeCalls("wide", classes)));
    if (!answer.isSuccess() || !wide.isSuccess()) {
        throw std::runtime_error(answer.message() + wide.message());
    }
}

systemtest::Settings settingsFor(int places, int queue) {
    systemtest::Settings settings;
    settings.maxClients = std::to_string(places);
    settings.clientQueueSize = std::to_string(queue);
    settings.logLevel = "error";
    return settings;
}

// Of all threads, the finished ones included.
double cpuSeconds(pid_t process) {
    clockid_t clock{};
    timespec time{};
    if (clock_getcpuclockid(process, &clock) != 0 || clock_gettime(clock, &time) != 0) {
        throw std::runtime_error("The server's processor time can't be read.");
    }
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
}

int besiege(int seconds, int hostile, int places, int queue, const std::string& only) {
    std::printf("%d places, a queue of %d, %d hostile clients, %u honest ones, %d s each\n\n", places, queue,
                hostile, HONEST, seconds);
    std::printf(
        "| other clients | honest answers/s | p50 ms | p99 ms | longest ms | failed | "
        "their connections/s | server's CPU, s/s |\n|---|---|---|---|---|---|---|---|\n");
    bool allAnswered = true;
    for (const auto& [hostility, name] : KINDS) {
        if (!only.empty() && name != only) {
            continue;
        }
        const systemtest::Installation installation;
        systemtest::Server server(installation, settingsFor(places, queue), {"-quiet"});
        teach(server.port());
        Siege siege(server.port(), hostility, hostile, requestWithLongAnswer());
        std::this_thread::sleep_for(std::chrono::milliseconds(500));
        const std::uint64_t before = siege.connected();
        const double cpuBefore = cpuSeconds(server.process().id());
        const Service service = serve(server.port(), smallRequest(),
                                      Clock::now() + std::chrono::seconds(seconds), ~std::uint64_t(0));
        const double attacks = static_cast<double>(siege.connected() - before) / service.seconds;
        const double cpu = (cpuSeconds(server.process().id()) - cpuBefore) / service.seconds;
        std::printf("| %s | %.0f | %.2f | %.2f | %.1f | %llu | %.0f | %.2f |\n", name.c_str(),
                    static_cast<double>(service.milliseconds.size()) / service.seconds, service.quantile(0.5),
                    service.quantile(0.99), service.quantile(1),
                    static_cast<unsigned long long>(service.failed), attacks, cpu);
        if (service.failed != 0) {
            std::printf("%s\n", service.firstFailure.c_str());
        }
        std::fflush(stdout);
        allAnswered = allAnswered && !service.milliseconds.empty() && service.failed == 0;
    }
    return allAnswered ? 0 : 1;
}

std::uint64_t residentKilobytes(pid_t process) {
    const std::string status = support::readFile("/proc/" + std::to_string(process) + "/status");
    const std::string label = "VmRSS:";
    const std::size_t place = status.find(label);
    return place == std::string::npos ? 0 : std::stoull(status.substr(place + label.size()));
}

int holdStill(std::uint64_t requests) {
    constexpr std::uint64_t STEPS = 10;
    const systemtest::Installation installation;
    systemtest::Server server(installation, settingsFor(64, 100), {"-quiet"});
    teach(server.port());
    const std::string folder = "/proc/" + std::to_string(server.process().id());
    const std::string request = smallRequest();
    std::printf("| requests | descriptors | threads | resident KiB |\n|---|---|---|---|\n");
    std::uint64_t failed = 0;
    for (std::uint64_t step = 0; step <= STEPS; ++step) {
        if (step != 0) {
            failed += serve(server.port(), request, Clock::time_point::max(), requests / STEPS).failed;
        }
        // Clients that have their answers may not have been reaped yet.
        systemtest::eventually([&] { return support::entriesOf((folder + "/task").c_str()) <= 5; });
        std::printf(
            "| %llu | %zu | %zu | %llu |\n", static_cast<unsigned long long>(step * (requests / STEPS)),
            support::entriesOf((folder + "/fd").c_str()), support::entriesOf((folder + "/task").c_str()),
            static_cast<unsigned long long>(residentKilobytes(server.process().id())));
        std::fflush(stdout);
    }
    std::printf("%llu requests failed.\n", static_cast<unsigned long long>(failed));
    return failed == 0 ? 0 : 1;
}

}  // namespace

int main(int argc, char** argv) {
    int seconds = 10;
    int hostile = 1000;
    int places = 64;
    int queue = 100;
    int requests = 0;
    std::string only;
    std::vector<std::string> names;
    for (const auto& [hostility, name] : KINDS) {
        names.push_back(name);
    }
    return stress::runMain(argc, argv,
                           {stress::number("--seconds", "N", seconds, 1, 86'400),
                            stress::number("--hostile", "N", hostile, 1, 1'000'000),
                            stress::number("--places", "N", places, 1, 1'000'000),
                            stress::number("--queue", "N", queue, 1, 1'000'000),
                            stress::number("--requests", "N", requests, 1, 1'000'000'000),
                            stress::choice("--only", only, names)},
                           [&] {
                               // A descriptor for each hostile client, in this process.
                               rlimit descriptors{};
                               getrlimit(RLIMIT_NOFILE, &descriptors);
                               descriptors.rlim_cur = descriptors.rlim_max;
                               setrlimit(RLIMIT_NOFILE, &descriptors);
                               return requests == 0 ? besiege(seconds, hostile, places, queue, only)
                                                    : holdStill(static_cast<std::uint64_t>(requests));
                           });
}
