#include "windows/services/Systemctl.h"

#include <fcntl.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <utility>

#include "io/filesystem/FileSystemHelper.h"

namespace windows::services {

namespace {

constexpr std::size_t MAX_MESSAGE = 2000;

Systemctl::Result failure(int error) { return {error, std::strerror(error)}; }

class FileActions {
public:
    FileActions() { posix_spawn_file_actions_init(&_actions); }
    FileActions(const FileActions&) = delete;
    FileActions& operator=(const FileActions&) = delete;
    ~FileActions() { posix_spawn_file_actions_destroy(&_actions); }

    posix_spawn_file_actions_t* get() { return &_actions; }

private:
    posix_spawn_file_actions_t _actions;
};

// The child starts with no signal blocked, whatever this process keeps for a thread of its own.
class OpenSignals {
public:
    OpenSignals() {
        sigset_t none;
        sigemptyset(&none);
        posix_spawnattr_init(&_attributes);
        posix_spawnattr_setsigmask(&_attributes, &none);
        posix_spawnattr_setflags(&_attributes, POSIX_SPAWN_SETSIGMASK);
    }
    OpenSignals(const OpenSignals&) = delete;
    OpenSignals& operator=(const OpenSignals&) = delete;
    ~OpenSignals() { posix_spawnattr_destroy(&_attributes); }

    const posix_spawnattr_t* get() const { return &_attributes; }

private:
    posix_spawnattr_t _attributes;
};

// Reads to the end, so that the writer never waits, but keeps only the beginning.
std::string readAll(int file) {
    std::string text;
    char buffer[4096];
    for (;;) {
        const ssize_t count = read(file, buffer, sizeof(buffer));
        if (count > 0) {
            const std::size_t room = MAX_MESSAGE - text.size();
            text.append(buffer, std::min(room, static_cast<std::size_t>(count)));
        } else if (count == 0 || errno != EINTR) {
            return text;
        }
    }
}

std::string oneLine(std::string text) {
    text.erase(text.find_last_not_of(" \n") + 1);
    for (char& c : text) {
        c = c == '\n' ? ' ' : c;
    }
    return text;
}

int exitCodeOf(pid_t child) {
    int status = 0;
    while (waitpid(child, &status, 0) < 0) {
        if (errno != EINTR) {
            return errno;
        }
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
}

}  // namespace

SystemctlImpl::SystemctlImpl(std::string program) : _program(std::move(program)) {}

Systemctl::Result SystemctlImpl::run(const std::vector<std::string>& arguments) const {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) {
        return failure(errno);
    }
    const io::filesystem::ScopedDescriptor output(ends[0]);
    FileActions actions;
    posix_spawn_file_actions_addopen(actions.get(), STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_adddup2(actions.get(), ends[1], STDOUT_FILENO);
    posix_spawn_file_actions_adddup2(actions.get(), ends[1], STDERR_FILENO);

    std::vector<char*> argv{const_cast<char*>(_program.c_str())};
    for (const std::string& argument : arguments) {
        argv.push_back(const_cast<char*>(argument.c_str()));
    }
    argv.push_back(nullptr);
    pid_t child = -1;
    int error = 0;
    {
        // Closed once the child has its copy; while it stays open, the reading never comes to an end.
        const io::filesystem::ScopedDescriptor input(ends[1]);
        error =
            posix_spawn(&child, _program.c_str(), actions.get(), OpenSignals().get(), argv.data(), environ);
    }
    if (error != 0) {
        return failure(error);
    }
    std::string message = oneLine(readAll(output.get()));
    return {exitCodeOf(child), std::move(message)};
}

std::string errorText(const Systemctl::Result& result) {
    std::string text =
        "System error message: " + (result.message.empty() ? "Error message not found" : result.message);
    if (text.back() != '.') {
        text += '.';
    }
    return text + " Error code: " + std::to_string(result.exitCode) + ".";
}

}  // namespace windows::services
