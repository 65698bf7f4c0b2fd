// Mixed load on the real server for as long as told, with trouble provoked in turn:
//
//     soak --minutes 30 [--round SECONDS]
//
// Four clients create, train, ask, untrain, remove and send what must be refused, all captured, while each
// round goes through the troubles of the table below. Behind each of them the server must be as it was before
// its first client, in descriptors and threads, and every error line of its log must be one that the table
// names. A line a round tells descriptors, threads, memory and the kinds of log lines; the resident memory
// must not grow from the second quarter of the rounds to the last.

#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <random>
#include <sstream>
#include <thread>
#include <utility>

#include "stress/Main.h"
#include "stress/Wire.h"
#include "support/Descriptors.h"
#include "system/Program.h"

namespace {

using namespace systemtest;
namespace fs = std::filesystem;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool SANITIZED = true;  // memory is then the sanitizer's matter, not the server's
#else
constexpr bool SANITIZED = false;
#endif

constexpr int CLIENTS = 4;
constexpr std::uint64_t MEBIBYTE = 1024UL * 1024;
const std::string LARGEST_REQUEST = "8000000";
const std::string CLASSES[] = {"sea", "hill"};

void demand(bool condition, const std::string& complaint) {
    if (!condition) {
        throw std::runtime_error(complaint);
    }
}

// A client that knows what it must be answered. Unless the server is short of memory: then a request may
// fail, and whether it has had its effect shows when the client begins anew.
class Client {
public:
    Client(std::uint16_t port, int number)
        : _port(port), _name("c" + std::to_string(number)), _dice(static_cast<unsigned>(number)) {}

    void run(const std::atomic<bool>& stop, bool mayFail) {
        _mayFail = mayFail;
        while (!stop) {
            if (_mustBegin) {
                answered(0, request(writeCalls(_name, "<remove id=\"1\"/>")));
                _mustBegin = !answered(
                    2000,
                    request(texts(lessons()) + writeCalls(_name, CREATE + calls("train", "className"))));
                continue;
            }
            act(_dice() % 16);
        }
    }

private:
    static constexpr const char* CREATE =
        "<create id=\"c\"/><addClass id=\"a\" className=\"sea\"/><addClass id=\"b\" className=\"hill\"/>";

    void act(unsigned kind) {
        const std::string read = request(texts(lessons()) + readCalls(calls("classify", "")));
        switch (kind) {
            case 0:
                _mustBegin = true;
                return;
            case 1:  // a batch
                answered(2000,
                         request(texts(lessons(1000)) + readCalls(calls("classifyKeywords", "", 1000))));
                return;
            case 2:
                answered(4000, request(readCalls(information("nobody"))));
                answered(4000, read.substr(0, read.size() / 2));
                answered(4000, request(readCalls("<create id=\"1\"/>")));
                return;
            case 3:
                answered(4000, request(texts(lessons()) +
                                       writeCalls(_name, calls("train", "className") +
                                                             "<removeClass id=\"x\" className=\"none\"/>")));
                return;
            case 4:
                if (_dice() % 8 == 0) {
                    answered(4013, std::string(std::stoul(LARGEST_REQUEST) + 1, ' '));
                }
                return;
            case 5:
            case 6:
                // What is learned here is forgotten here, so that the classifier stays as small as it is.
                for (const char* verb : {"train", "untrain"}) {
                    if (!answered(2000,
                                  request(texts(lessons()) + writeCalls(_name, calls(verb, "className"))))) {
                        _mustBegin = true;
                        return;
                    }
                }
                return;
            default:
                Answer answer;
                if (answered(2000, read, &answer)) {
                    for (unsigned i = 0; i < 10; ++i) {
                        const halvern::morvane::client::Classified& result =
                            answer.classification(std::to_string(i));
                        demand(result.best().className == CLASSES[i % 2], "A text went to another class.");
                    }
                }
        }
    }

    // Texts with the numbers 0 to count - 1 for ids; even ones of the sea, odd ones of the hill.
    std::string lessons(unsigned count = 10) {
        std::string all;
        for (unsigned i = 0; i < count; ++i) {
            const std::string number = std::to_string(i % 10);
            all += text(std::to_string(i), CLASSES[i % 2] + " " + CLASSES[i % 2] + "side" + number + " and " +
                                               CLASSES[i % 2] + "bird number " + number);
        }
        return all;
    }

    std::string calls(const char* verb, const std::string& classAttribute, unsigned count = 10) const {
        std::string all;
        for (unsigned i = 0; i < count; ++i) {
            const std::string number = std::to_string(i);
            all += std::string("<") + verb + " id=\"" + number + "\" textId=\"" + number + "\"" +
                   (classAttribute.empty() ? " classifierName=\"" + _name + "\""
                                           : " " + classAttribute + "=\"" + CLASSES[i % 2] + "\"") +
                   "/>";
        }
        return all;
    }

    // True if the answer has the code. Code 0 asks for nothing but an answer.
    bool answered(int code, const std::string& bytes, Answer* whole = nullptr) {
        Answer answer;
        try {
            answer = ask(_port, bytes);
        } catch (const std::runtime_error&) {
            if (!_mayFail) {
                throw;
            }
        }
        demand(_mayFail || code == 0 || answer.statusCode() == code,
               "Expected " + std::to_string(code) + ", got " + std::to_string(answer.statusCode()) + ": " +
                   answer.message() + "\n" + bytes.substr(0, 2000));
        if (whole != nullptr) {
            *whole = answer;
        }
        return answer.statusCode() == code;
    }

    const std::uint16_t _port;
    const std::string _name;
    std::mt19937 _dice;
    bool _mayFail = false;
    bool _mustBegin = true;
};

// How the lines of the log begin, and what ends a line of that kind: ids and other words that vary.
std::string kindOf(const std::string& text) {
    static const char* const KINDS[] = {"Creating connection",
                                        "Running connection",
                                        "Received a request",
                                        "Finished connection",
                                        "Client with id",
                                        "Validation of an request failed",
                                        "Failed to send status code",
                                        "An SocketException when running",
                                        "An Exception when running",
                                        "An error occurred when executing a classifier query.",
                                        "Caught an exception while iterating calls.",
                                        "A std exception occured when trying to read xml parameters",
                                        "Could not save a request:",
                                        "Error creating thread using"};
    for (const char* kind : KINDS) {
        if (text.starts_with(kind)) {
            return kind;
        }
    }
    return text.substr(0, text.find('\n'));
}

struct LogLines {
    std::map<std::string, int> plain;
    std::map<std::string, int> errors;
    int refusedDumps = 0;
};

LogLines linesOf(const std::string& log) {
    LogLines lines;
    std::istringstream in(log);
    std::string entry;
    const auto finish = [&] {
        const std::size_t level = entry.find(" [");
        const std::size_t text = entry.find_first_not_of(
            " \n", std::min(entry.find("]", entry.find("[ThreadId:")), entry.size() - 1) + 1);
        if (level == std::string::npos || text == std::string::npos) {
            return;
        }
        const bool plain = entry.compare(level, 6, " [Log]") == 0;
        ++(plain ? lines.plain : lines.errors)[kindOf(entry.substr(text))];
        lines.refusedDumps += entry.find("\nFailed to create") != std::string::npos ? 1 : 0;
    };
    for (std::string line; std::getline(in, line);) {
        if (line.find("] [ThreadId: ") != std::string::npos) {
            finish();
            entry.clear();
        }
        entry += line + "\n";
    }
    finish();
    return lines;
}

class Soak {
public:
    explicit Soak(std::chrono::milliseconds round) : _round(round) {
        _settings.maxInput = LARGEST_REQUEST;
        _settings.saveRequests = "true";
        _server = std::make_unique<Server>(_installation, _settings, std::vector<std::string>{"-quiet"});
        fs::remove(logFile());
        _threads = figure("Threads:");
        _descriptors = descriptors();
        for (int i = 0; i < CLIENTS; ++i) {
            _clients.emplace_back(_server->port(), i);
        }
    }

    void run(int rounds) {
        std::vector<std::uint64_t> memory;
        for (int i = 1; i <= rounds; ++i) {
            for (const Trouble& trouble : TROUBLES) {
                if (!SANITIZED || !trouble.mayFail) {
                    load(trouble);
                    settle(trouble);
                }
            }
            memory.push_back(figure("VmRSS:") / 1024);
            tell(i, memory.back());
        }
        for (const Trouble& trouble : TROUBLES) {
            for (const char* kind : trouble.mustShow) {
                demand(_kinds.errors[kind] > 0, std::string("Never brought about: ") + kind);
            }
        }
        demand(_server->stop() == 0, "The server didn't stop in order.");
        const LogLines last = linesOf(support::readFile(logFile()));
        demand(last.errors.size() == 1 &&
                   last.errors.begin()->first.starts_with("Error accepting a connection."),
               "Unexpected at the stop:\n" + support::readFile(logFile()));
        if (rounds < 8 || SANITIZED) {
            std::printf("Too few rounds to judge the memory by, or a sanitizer's build.\n");
            return;
        }
        const auto quarter = [&](int from, int to) {
            return *std::max_element(memory.begin() + rounds * from / 4, memory.begin() + rounds * to / 4);
        };
        std::printf("Resident at most %llu MiB in the second quarter, %llu MiB in the last.\n",
                    static_cast<unsigned long long>(quarter(1, 2)),
                    static_cast<unsigned long long>(quarter(3, 4)));
        demand(quarter(3, 4) <= quarter(1, 2) + quarter(1, 2) / 10 + 4, "The memory grows.");
    }

private:
    struct Trouble {
        const char* name;
        void (Soak::*provoke)();
        void (Soak::*begin)();
        void (Soak::*end)();
        bool mayFail;                       // honest requests, too
        std::vector<const char*> mustShow;  // error lines that it brings about
        std::vector<const char*> mayShow;
    };
    static const std::array<Trouble, 5> TROUBLES;

    void nothing() {}

    // An error line with its dump, and a client that breaks its connection.
    void provokeErrors() {
        const std::string calls =
            "<create id=\"1\"/><addClass id=\"2\" className=\"x\"/><train id=\"3\" className=\"x\" "
            "textId=\"t\"/>";
        std::string sequence = request(texts(text("t", "word")) + writeCalls("limited", calls));
        sequence.replace(sequence.find("<writeCalls"), 11, "<writeCalls maxSize=\"much\"");
        demand(ask(_server->port(), sequence).statusCode() == 5000, "A limit that is no number was taken.");
        support::LoopbackClient connection(_server->port());
        connection.send("<morvane>");
        connection.reset();
    }

    void takeCaptureAway() { fs::rename(captures(), captures() + ".away"); }
    void giveCaptureBack() { fs::rename(captures() + ".away", captures()); }

    // A file that no memory is large enough for: all that isn't in use is evicted, in vain.
    void makeHugeFile() {
        support::writeFile(_installation.classifier("huge"), "");
        fs::resize_file(_installation.classifier("huge"), 1ULL << 40);
    }
    void askHugeFile() {
        demand(ask(_server->port(), request(readCalls(information("huge")))).statusCode() == 5000,
               "It was loaded.");
    }
    void removeHugeFile() { fs::remove(_installation.classifier("huge")); }

    void limitMemory() { limitAddressSpace(figure("VmSize:") * 1024 + 20 * MEBIBYTE); }
    void needMemory() {
        std::string many;
        for (int i = 0; i < 100'000; ++i) {
            many += "<getInformation id=\"" + std::to_string(i) + "\" classifierName=\"c0\"/>";
        }
        try {
            replyTo(_server->port(), request(readCalls(many)));
        } catch (const std::runtime_error&) {
            return;  // there wasn't even enough for an answer
        }
    }
    void unlimitMemory() { limitAddressSpace(RLIM_INFINITY); }

    void limitAddressSpace(rlim_t bytes) {
        const rlimit limit = {bytes, RLIM_INFINITY};
        demand(::prlimit(_server->process().id(), RLIMIT_AS, &limit, nullptr) == 0, "prlimit failed.");
    }

    // All clients for a part of the round, with the trouble once and again.
    void load(const Trouble& trouble) {
        std::atomic<bool> stop = false;
        std::mutex mutex;
        std::string complaint;
        const auto guarded = [&](const auto& work) {
            try {
                work();
            } catch (const std::exception& e) {
                const std::lock_guard guard(mutex);
                complaint = e.what();
                stop = true;
            }
        };
        (this->*trouble.begin)();
        {
            std::vector<std::jthread> threads;
            for (Client& client : _clients) {
                threads.emplace_back([&] { guarded([&] { client.run(stop, trouble.mayFail); }); });
            }
            const auto end = std::chrono::steady_clock::now() + _round / TROUBLES.size();
            while (!stop && std::chrono::steady_clock::now() < end) {
                guarded([&] { (this->*trouble.provoke)(); });
                std::this_thread::sleep_for(std::chrono::milliseconds(50));
            }
            stop = true;
        }
        (this->*trouble.end)();
        demand(complaint.empty(), std::string(trouble.name) + ": " + complaint);
        demand(!_server->process().hasEnded(), std::string(trouble.name) + ": the server has ended.");
    }

    // Waits until nobody is served any more, and looks at what is left.
    void settle(const Trouble& trouble) {
        demand(eventually([&] { return figure("Threads:") == _threads && descriptors() == _descriptors; }),
               std::string(trouble.name) + ": descriptors or threads have been left behind: " +
                   std::to_string(descriptors()) + ", " + std::to_string(figure("Threads:")));
        const std::string log = support::readFile(logFile());
        fs::remove(logFile());
        const LogLines lines = linesOf(log);
        for (const auto& [kind, count] : lines.errors) {
            const auto names = [&](const char* known) { return kind == known; };
            demand(std::any_of(trouble.mustShow.begin(), trouble.mustShow.end(), names) ||
                       std::any_of(trouble.mayShow.begin(), trouble.mayShow.end(), names),
                   std::string(trouble.name) + ": an error line that nobody expects: " + kind + "\n" +
                       log.substr(log.find(kind), 2000));
            _kinds.errors[kind] += count;
        }
        for (const auto& [kind, count] : lines.plain) {
            _kinds.plain[kind] += count;
        }
        _kinds.refusedDumps += lines.refusedDumps;
        for (const auto& entry : fs::directory_iterator(captures())) {
            ++_captured;
            fs::remove(entry);
        }
        std::error_code ignored;
        for (const auto& entry : fs::directory_iterator(_installation.file("logs"))) {
            if (entry.path().extension() == ".dmp") {
                demand(entry.file_size() <= 256 * 1024, "A dump is too large.");
                ++_dumps;
                fs::remove(entry, ignored);
            }
        }
    }

    void tell(int round, std::uint64_t memory) {
        std::printf(
            "round %d: %llu descriptors, %llu threads, %llu MiB resident; %d captured, %d dumps, %d "
            "refused\n",
            round, static_cast<unsigned long long>(_descriptors), static_cast<unsigned long long>(_threads),
            static_cast<unsigned long long>(memory), std::exchange(_captured, 0), std::exchange(_dumps, 0),
            std::exchange(_kinds.refusedDumps, 0));
        for (const auto* kinds : {&_kinds.plain, &_kinds.errors}) {
            for (const auto& [kind, count] : *kinds) {
                std::printf("    %8d %s%s\n", count, kinds == &_kinds.errors ? "[Error] " : "", kind.c_str());
            }
        }
        std::fflush(stdout);
        _kinds.plain.clear();
    }

    std::string logFile() const { return _installation.file("logs/log.txt"); }
    std::string captures() const { return _installation.file("logs/requests"); }
    std::uint64_t descriptors() {
        return support::entriesOf(("/proc/" + std::to_string(_server->process().id()) + "/fd").c_str());
    }

    // A figure of the server's status as the kernel tells it; sizes in KiB.
    std::uint64_t figure(const std::string& key) {
        std::ifstream status("/proc/" + std::to_string(_server->process().id()) + "/status");
        for (std::string line; std::getline(status, line);) {
            if (line.starts_with(key)) {
                return std::stoull(line.substr(key.size()));
            }
        }
        throw std::runtime_error("The server has no " + key);
    }

    const std::chrono::milliseconds _round;
    Installation _installation;
    Settings _settings;
    std::unique_ptr<Server> _server;
    std::vector<Client> _clients;
    std::uint64_t _threads = 0;
    std::uint64_t _descriptors = 0;
    LogLines _kinds;
    int _captured = 0;
    int _dumps = 0;
};

const std::array<Soak::Trouble, 5> Soak::TROUBLES = {{
    {"none", &Soak::nothing, &Soak::nothing, &Soak::nothing, false, {}, {}},
    {"errors and dumps",
     &Soak::provokeErrors,
     &Soak::nothing,
     &Soak::nothing,
     false,
     {"An error occurred when executing a classifier query.", "An SocketException when running"},
     {}},
    {"capture fails",
     &Soak::nothing,
     &Soak::takeCaptureAway,
     &Soak::giveCaptureBack,
     false,
     {"Could not save a request:"},
     {}},
    {"evictions",
     &Soak::askHugeFile,
     &Soak::makeHugeFile,
     &Soak::removeHugeFile,
     false,
     {"Caught an exception while iterating calls."},
     {}},
    {"short of memory",
     &Soak::needMemory,
     &Soak::limitMemory,
     &Soak::unlimitMemory,
     true,
     {"A std exception occured when trying to read xml parameters"},
     {"Out of memory.", "Out of memory in ClassifyConnection::_respond.",
      "bad alloc in ThreadServer::_create_clients", "An Exception when running",
      "Error creating thread using"}},
}};

}  // namespace

int main(int argc, char** argv) {
    int minutes = 30;
    int round = 60;
    return stress::runMain(argc, argv,
                           {stress::number("--minutes", "N", minutes, 1, 10'000),
                            stress::number("--round", "SECONDS", round, 1, 3600)},
                           [&] {
                               Soak(std::chrono::seconds(round)).run(std::max(1, minutes * 60 / round));
                               std::printf("Nothing has grown, and every error line is explained.\n");
                               return 0;
                           });
}
