// Drives a running server with requests, each on a connection of its own as clients send them, and tells how
// many it answers and how long they take:
//
//     load 127.0.0.1 7000 request.xml 4 10s     four clients for ten seconds
//     load 127.0.0.1 7000 request.xml 4 5000    four clients, 5000 requests altogether
//     load --echo 4 10s                         the same against a bare echo in this process
//
// The echo takes a connection, gives it a thread, returns 512 bytes and closes: what the machine itself
// allows, to set beside the figures of the server. An error is a connection that failed or an answer that
// says so.

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <vector>

#include "exceptions/Exception.h"
#include "net/socket/ClientSocketImpl.h"
#include "net/socket/ServerSocketImpl.h"
#include "net/socket/SocketException.h"
#include "net/socket/SocketStreamImpl.h"
#include "util/Numbers.h"
#include "windows/net/winsock/WinsockErrors.h"

namespace {

using Clock = std::chrono::steady_clock;
using net::socket::SocketStream;

constexpr std::size_t ECHO_SIZE = 512;

const windows::net::winsock::WinsockErrors mapper;
const net::socket::SocketStreamFactoryImpl streams(mapper);

struct Load {
    std::string host;
    std::uint16_t port = 0;
    std::string request;
    std::int32_t clients = 0;
    std::chrono::seconds time{0};  // 0: until count requests have been sent
    std::int64_t count = 0;
};

struct Result {
    std::vector<std::chrono::nanoseconds> latencies;
    std::uint64_t errors = 0;
    std::string firstError;
};

std::string ask(const Load& load) {
    net::socket::ClientSocketImpl client(mapper, streams);
    SocketStream& stream = client.connect(load.host, load.port);
    stream.write(load.request.data(), load.request.size());
    stream.shutdown(SocketStream::SEND);
    std::string answer;
    char buffer[16384];
    while (const std::size_t bytes = stream.read(buffer, sizeof(buffer))) {
        answer.append(buffer, bytes);
    }
    return answer;
}

void runClient(const Load& load, Clock::time_point end, std::atomic<std::int64_t>& left, Result& result) {
    const auto fail = [&result](std::string text) {
        if (result.errors++ == 0) {
            result.firstError = std::move(text);
        }
    };
    while (load.time.count() != 0 ? Clock::now() < end : left-- > 0) {
        const Clock::time_point start = Clock::now();
        try {
            const std::string answer = ask(load);
            result.latencies.push_back(Clock::now() - start);
            if (answer.empty() || answer.find("success=\"false\"") != std::string::npos) {
                fail(answer.empty() ? "An empty answer." : answer);
            }
        } catch (const exceptions::Exception& e) {
            fail(e.what());
        }
    }
}

double milliseconds(std::chrono::nanoseconds time) {
    return std::chrono::duration<double, std::milli>(time).count();
}

int run(const Load& load) {
    std::vector<Result> results(static_cast<std::size_t>(load.clients));
    std::atomic<std::int64_t> left = load.count;
    const Clock::time_point start = Clock::now();
    {
        std::vector<std::jthread> clients;
        clients.reserve(results.size());
        for (Result& result : results) {
            clients.emplace_back([&] { runClient(load, start + load.time, left, result); });
        }
    }
    const std::chrono::duration<double> seconds = Clock::now() - start;

    Result all;
    for (Result& result : results) {
        all.latencies.insert(all.latencies.end(), result.latencies.begin(), result.latencies.end());
        all.errors += result.errors;
        if (all.firstError.empty()) {
            all.firstError = result.firstError;
        }
    }
    std::sort(all.latencies.begin(), all.latencies.end());
    const auto quantile = [&all](double part) {
        const std::size_t size = all.latencies.size();
        const auto place = static_cast<std::size_t>(part * static_cast<double>(size));
        return size == 0 ? 0.0 : milliseconds(all.latencies[std::min(place, size - 1)]);
    };
    std::printf("answers       %zu in %.2f s\n", all.latencies.size(), seconds.count());
    std::printf("per second    %.1f\n", static_cast<double>(all.latencies.size()) / seconds.count());
    std::printf("latency in ms p50 %.3f, p99 %.3f, p999 %.3f, longest %.3f\n", quantile(0.5), quantile(0.99),
                quantile(0.999), quantile(1.0));
    std::printf("errors        %llu\n", static_cast<unsigned long long>(all.errors));
    if (all.errors != 0) {
        std::printf("first error   %s\n", all.firstError.c_str());
    }
    return all.errors == 0 ? 0 : 1;
}

// Knows how much will come, so it need not wait for the end of the stream.
void echo(SocketStream& stream) {
    try {
        char buffer[ECHO_SIZE];
        stream.readExact(buffer, sizeof(buffer));
        stream.write(buffer, sizeof(buffer));
        stream.shutdown(SocketStream::SEND);
    } catch (const net::socket::SocketException& e) {
        std::fprintf(stderr, "%s\n", e.what());
    }
}

int runEcho(Load load) {
    net::socket::ServerSocketImpl listener(mapper, streams, 0, 1024);
    load.host = "127.0.0.1";
    load.port = listener.port();
    load.request.assign(ECHO_SIZE, 'x');
    std::atomic<std::int32_t> running = 0;
    std::jthread acceptor([&] {
        try {
            while (true) {
                ++running;
                std::thread([&running, stream = listener.accept()] {
                    echo(*stream);
                    --running;
                }).detach();
            }
        } catch (const net::socket::AcceptException&) {
            --running;
        }
    });
    const int result = run(load);
    listener.shutdown();
    acceptor.join();
    while (running != 0) {
        std::this_thread::yield();
    }
    return result;
}

}  // namespace

int main(int argc, char** argv) {
    const bool isEcho = argc == 4 && std::strcmp(argv[1], "--echo") == 0;
    if (!isEcho && argc != 6) {
        std::fprintf(stderr,
                     "Usage: load HOST PORT REQUEST-FILE CLIENTS SECONDSs|COUNT\n"
                     "       load --echo CLIENTS SECONDSs|COUNT\n");
        return 2;
    }
    try {
        Load load;
        load.clients = static_cast<std::int32_t>(util::toInteger(argv[argc - 2], 1, 10000));
        std::string amount = argv[argc - 1];
        if (amount.ends_with('s')) {
            amount.pop_back();
            load.time = std::chrono::seconds(util::toInteger(amount, 1, 86400));
        } else {
            load.count = util::toInteger(amount, 1, 1000000000);
        }
        if (isEcho) {
            return runEcho(std::move(load));
        }
        load.host = argv[1];
        load.port = static_cast<std::uint16_t>(util::toInteger(argv[2], 1, 65535));
        std::ifstream file(argv[3], std::ios::binary);
        load.request.assign(std::istreambuf_iterator<char>(file), {});
        if (load.request.empty()) {
            std::fprintf(stderr, "The request file '%s' is empty or can't be read.\n", argv[3]);
            return 2;
        }
        return run(load);
    } catch (const exceptions::Exception& e) {
        std::fprintf(stderr, "%s\n", e.what());
        return 2;
    }
}
