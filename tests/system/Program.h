#pragma once

#include <arpa/inet.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "support/Eventually.h"
#include "support/LoopbackClient.h"
#include "support/TempDir.h"

// The real program in a folder of its own, as an operator would set it up.
namespace systemtest {

using support::eventually;

// A process that this test started; killed by its id if it is still there at the end.
class Process {
public:
    // inChild runs in the new process just before the program does.
    Process(
        const std::string& program, std::vector<std::string> arguments, const std::string& output,
        const std::function<void()>& inChild = [] {}) {
        std::vector<char*> argv{const_cast<char*>(program.c_str())};
        for (std::string& argument : arguments) {
            argv.push_back(argument.data());
        }
        argv.push_back(nullptr);
        const int out = ::open(output.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
        _id = ::fork();
        if (_id == 0) {
            ::dup2(out, STDOUT_FILENO);
            ::dup2(out, STDERR_FILENO);
            inChild();
            ::execv(program.c_str(), argv.data());
            ::_exit(127);
        }
        ::close(out);
        if (_id < 0) {
            throw std::runtime_error("fork failed");
        }
    }
    Process(const Process&) = delete;
    Process& operator=(const Process&) = delete;
    ~Process() {
        if (!_result) {
            ::kill(_id, SIGKILL);
            ::waitpid(_id, nullptr, 0);
        }
    }

    pid_t id() const { return _id; }
    void signal(int number) { ::kill(_id, number); }

    // True once the process has ended.
    bool hasEnded() {
        int status = 0;
        if (!_result && ::waitpid(_id, &status, WNOHANG) == _id) {
            _result = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        return _result.has_value();
    }

    // Waits for the end. Gives the exit code, or 128 and the number of the signal that ended it.
    int wait() {
        if (!eventually([this] { return hasEnded(); })) {
            throw std::runtime_error("The process " + std::to_string(_id) + " doesn't end");
        }
        return *_result;
    }

private:
    pid_t _id = -1;
    std::optional<int> _result;
};

// Holds a running process to a limit until the end of the scope.
class Limit {
public:
    Limit(pid_t process, __rlimit_resource resource, rlim_t limit) : _process(process), _resource(resource) {
        ::prlimit(_process, _resource, nullptr, &_before);
        const rlimit wanted = {limit, _before.rlim_max};
        if (::prlimit(_process, _resource, &wanted, nullptr) != 0) {
            throw std::runtime_error("prlimit failed");
        }
    }
    Limit(const Limit&) = delete;
    Limit& operator=(const Limit&) = delete;
    ~Limit() { ::prlimit(_process, _resource, &_before, nullptr); }

private:
    const pid_t _process;
    const __rlimit_resource _resource;
    rlimit _before{};
};

// A bound socket of the loopback on a port that the system chose.
class BoundPort {
public:
    explicit BoundPort(int family = AF_INET) : _socket(::socket(family, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in6 address{};
        address.sin6_family = static_cast<sa_family_t>(family);
        if (family == AF_INET6) {
            address.sin6_addr = in6addr_loopback;
        } else {
            reinterpret_cast<sockaddr_in&>(address).sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        }
        socklen_t size = sizeof(address);
        if (::bind(_socket, reinterpret_cast<sockaddr*>(&address), size) != 0 ||
            ::getsockname(_socket, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            ::close(_socket);
            throw std::runtime_error("No port to be had");
        }
        _port = ntohs(address.sin6_port);  // at the same place in both families
    }
    BoundPort(const BoundPort&) = delete;
    BoundPort& operator=(const BoundPort&) = delete;
    ~BoundPort() { ::close(_socket); }
    void listen() { ::listen(_socket, 5); }
    std::uint16_t port() const { return _port; }
    int descriptor() const { return _socket; }

private:
    int _socket;
    std::uint16_t _port = 0;
};

inline bool isListening(std::uint16_t port) {
    try {
        const support::LoopbackClient probe(port);
        return true;
    } catch (const std::system_error&) {
        return false;
    }
}

struct Settings {
    std::string port = "0";
    std::string maxInput = "20000000";
    std::string maxClients = "20";
    std::string clientQueueSize = "100";
    std::string classifierRootPath = "";
    std::string logLevel = "log";
    std::string logMemory = "false";
    std::string saveRequests = "false";
};

inline std::string configuration(const Settings& settings) {
    return "<?xml version=\"1.0\" encoding=\"utf-8\" ?>\n"
           "<morvane xmlns=\"http://morvane.example/1/config/ConfigSchema\">\n<port>" +
           settings.port + "</port>\n<maxInput>" + settings.maxInput + "</maxInput>\n<maxClients>" +
           settings.maxClients + "</maxClients>\n<clientQueueSize>" + settings.clientQueueSize +
           "</clientQueueSize>\n<classifierRootPath>" + settings.classifierRootPath +
           "</classifierRootPath>\n<logLevel>" + settings.logLevel + "</logLevel>\n<logMemory>" +
           settings.logMemory + "</logMemory>\n<saveRequests>" + settings.saveRequests +
           "</saveRequests>\n</morvane>\n";
}

// A folder with the executable and its schemas, one level below a folder that nobody but the test writes to.
class Installation {
public:
    Installation() {
        namespace fs = std::filesystem;
        fs::create_directory(path());
        // A symbolic link wouldn't do: the program looks for everything beside the file that it really is.
        std::error_code otherFileSystem;
        fs::create_hard_link(MORVANE_PROGRAM, program(), otherFileSystem);
        if (otherFileSystem) {
            fs::copy_file(MORVANE_PROGRAM, program());
        }
        fs::copy(fs::path(MORVANE_PROGRAM).parent_path() / "xml", file("xml"), fs::copy_options::recursive);
    }

    std::string outside() const { return _folder.path(); }
    std::string path() const { return _folder.file("app"); }
    std::string file(const std::string& name) const { return path() + "/" + name; }
    std::string program() const { return file("morvaneserver"); }
    std::string classifier(const std::string& name) const { return file("classifiers/" + name + ".dat"); }
    std::string log() const { return support::readFile(file("logs/log.txt")); }
    std::string output() const { return support::readFile(file("output.txt")); }

    std::unique_ptr<Process> run(std::vector<std::string> arguments) const {
        return std::make_unique<Process>(program(), std::move(arguments), file("output.txt"));
    }

private:
    support::TempDir _folder;
};

// A server that takes requests when the constructor returns.
class Server {
public:
    explicit Server(const Installation& installation, Settings settings = {},
                    const std::vector<std::string>& moreArguments = {}) {
        std::vector<std::string> arguments{"-config", "config.xml"};
        arguments.insert(arguments.end(), moreArguments.begin(), moreArguments.end());
        for (int attempt = 0; attempt < 10; ++attempt) {
            // Somebody else may take the port between here and the server's own bind.
            _port = BoundPort().port();
            settings.port = std::to_string(_port);
            support::writeFile(installation.file("config.xml"), configuration(settings));
            const std::size_t before = installation.log().size();
            const auto news = [&] { return installation.log().substr(before); };
            _process = installation.run(arguments);
            eventually([&] {
                return _process->hasEnded() ||
                       news().find("Waiting for connections...") != std::string::npos ||
                       (settings.logLevel == "error" && isListening(_port));
            });
            if (!_process->hasEnded()) {
                return;
            }
            if (news().find("already in use") == std::string::npos &&
                news().find("Could not bind") == std::string::npos) {
                break;
            }
        }
        throw std::runtime_error("The server didn't start:\n" + installation.output());
    }

    std::uint16_t port() const { return _port; }
    Process& process() { return *_process; }

    // Asks it to stop, as a service manager does, and gives its exit code.
    int stop() {
        _process->signal(SIGTERM);
        return _process->wait();
    }

private:
    std::unique_ptr<Process> _process;
    std::uint16_t _port = 0;
};

}  // namespace systemtest
