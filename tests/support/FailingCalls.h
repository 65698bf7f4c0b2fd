#pragma once

#include <algorithm>
#include <cerrno>
#include <map>
#include <string>
#include <vector>

#include "io/filesystem/FileCalls.h"

namespace support {

// The system's calls, of which one fails, once, and whose writes take no more than so many bytes each.
class FailingCalls final : public io::filesystem::FileCalls {
public:
    // Fails the call with this number, counted from 0; a negative one is never reached.
    FailingCalls(int number, int error, std::size_t mostBytes)
        : _untilFailure(number), _error(error), _mostBytes(mostBytes) {}
    // Fails the first call of that name.
    FailingCalls(const std::string& name, int error) : _name(name), _error(error) {}

    // From now on, fails the call with this number.
    void failAfter(int number) const { _untilFailure = number; }

    // The name of the call that has failed; empty if none has.
    const std::string& failed() const { return _failed; }
    int count(const std::string& name) const { return _counts[name]; }

    ssize_t readlink(const char* name, char* target, std::size_t size) const noexcept override {
        return fails("readlink") ? -1 : _system.readlink(name, target, size);
    }
    int stat(const char* name, struct stat& status) const noexcept override {
        return fails("stat") ? -1 : _system.stat(name, status);
    }
    int faccessat(const char* name) const noexcept override {
        return fails("faccessat") ? -1 : _system.faccessat(name);
    }
    int open(const char* name) const noexcept override { return fails("open") ? -1 : _system.open(name); }
    int openat(int directory, const char* name) const noexcept override {
        return fails("openat") ? -1 : _system.openat(directory, name);
    }
    int fchmod(int file, mode_t mode) const noexcept override {
        return fails("fchmod") ? -1 : _system.fchmod(file, mode);
    }
    int fallocate(int file, std::uint64_t size) const noexcept override {
        return fails("fallocate") ? -1 : _system.fallocate(file, size);
    }
    ssize_t writev(int file, std::span<const iovec> pieces) const noexcept override {
        std::vector<iovec> written(pieces.begin(), pieces.end());
        std::size_t room = _mostBytes;
        for (iovec& piece : written) {
            piece.iov_len = std::min(piece.iov_len, room);
            room -= piece.iov_len;
        }
        return fails("writev") ? -1 : _system.writev(file, written);
    }
    int fsync(int file) const noexcept override { return fails("fsync") ? -1 : _system.fsync(file); }
    int renameat2(int directory, const char* from, const char* to, unsigned flags) const noexcept override {
        return fails("renameat2") ? -1 : _system.renameat2(directory, from, to, flags);
    }
    int unlinkat(int directory, const char* name) const noexcept override {
        return fails("unlinkat") ? -1 : _system.unlinkat(directory, name);
    }

private:
    bool fails(const char* name) const noexcept {
        ++_counts[name];
        if (!_failed.empty() || (_name.empty() ? _untilFailure-- != 0 : _name != name)) {
            return false;
        }
        _failed = name;
        errno = _error;
        return true;
    }

    const io::filesystem::FileCallsImpl _system{};
    mutable int _untilFailure = 0;
    const std::string _name{};
    const int _error;
    const std::size_t _mostBytes = 1'000'000'000;
    mutable std::string _failed{};
    mutable std::map<std::string, int> _counts{};
};

}  // namespace support
