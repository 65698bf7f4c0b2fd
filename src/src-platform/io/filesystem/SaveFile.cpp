#include "io/filesystem/SaveFile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <cstdio>
#include <mutex>
#include <span>
#include <string_view>
#include <vector>

#include "io/filesystem/FileSystemHelper.h"
#include "util/FixedStream.h"
#include "util/MethodCaller.h"

namespace io::filesystem {

namespace {

// What the readers of stored data can address with signed 32-bit sizes.
constexpr std::uint64_t MAX_DATA_SIZE = 2147483647;

[[noreturn]] void refuse(const char* message, const std::string& name) {
    throw SaveFileExceptionImpl(fileErrorText(message, name, 0, "None."));
}

[[noreturn]] void failOpening(const std::string& name, int error, const char* cause) {
    throw SaveFileExceptionImpl(
        fileErrorText("An error occurred when trying to open the file for writing.", name, error, cause));
}

[[noreturn]] void failWriting(const std::string& name, int error, const char* cause) {
    throw SaveFileExceptionImpl(
        fileErrorText("An error occurred when trying to write the file.", name, error, cause));
}

// Appending is how the log writes, and it has to work when the process has no descriptor left: that is what
// the log has to tell then. So one is kept in hand, and given up for the time of an append that finds no
// other.
class SpareDescriptor {
public:
    int openForAppending(const std::string& name) {
        const int file = open(name);
        if (file >= 0 || (errno != EMFILE && errno != ENFILE) || _spare < 0) {
            return file;
        }
        close(_spare);
        _spare = -1;
        return open(name);
    }
    void keep() {
        if (_spare < 0) {
            _spare = openFile("/dev/null", O_RDONLY);
        }
    }

private:
    static int open(const std::string& name) {
        return openFile(name.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0666);
    }
    int _spare = -1;
};

void requireSavable(const std::string& name, std::uint64_t size) {
    if (size > MAX_DATA_SIZE) {
        util::FixedStream<512> message;
        message << "Could not save the file because the data size was too big. The data size is " << size
                << ". The data cannot be bigger than " << MAX_DATA_SIZE << " bytes.";
        refuse(message.str(), name);
    }
    if (name.empty()) {
        refuse("Cannot open file. No filename specified.", name);
    }
}

void append(const std::string& name, const util::Bytes& data) {
    static std::mutex mutex;
    static SpareDescriptor spare;
    const std::lock_guard guard(mutex);
    const util::MethodCaller0 keeper(spare, &SpareDescriptor::keep);
    const ScopedDescriptor file(spare.openForAppending(name));
    if (!file.isOpen()) {
        failOpening(name, errno, "The system call 'open' failed.");
    }
    if (const int error = writeAll(file.get(), data.data(), data.size())) {
        failWriting(name, error, "The system call 'write' failed.");
    }
}

// Gives -1 only with an error that is not EINTR.
template <class Call>
auto untilUninterrupted(Call call) {
    auto result = call();
    while (result < 0 && errno == EINTR) {
        result = call();
    }
    return result;
}

// The new file beside the one that it will replace: on the same file system, and with a leading dot, which no
// classifier's file has. Whatever has that name at the end of the scope is deleted: the new file of a save
// that failed, or the old one.
class UnfinishedFile {
public:
    UnfinishedFile(const FileCalls& calls, int directory, const std::string& base, const std::string& name)
        : _calls(calls), _directory(directory), _temporary(hiddenNeighbourOf(base)), _file(create()) {
        if (!_file.isOpen()) {
            failOpening(name, errno, "The system call 'openat' failed.");
        }
    }
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;
    ~UnfinishedFile() {
        if (_file.isOpen() && _isThere) {
            _calls.unlinkat(_directory, _temporary.c_str());
        }
    }

    int get() const { return _file.get(); }

    // Trades names with the file of the name base, so that the old one is still there to go back to. Gives 0,
    // or the system's error.
    int takeThePlaceOf(const std::string& base, bool exists) {
        if (exists && _calls.renameat2(_directory, _temporary.c_str(), base.c_str(), RENAME_EXCHANGE) == 0) {
            return 0;
        }
        // Some file systems can't trade names.
        if ((exists && errno != EINVAL && errno != ENOSYS) ||
            _calls.renameat2(_directory, _temporary.c_str(), base.c_str(), 0) != 0) {
            return errno;
        }
        _isThere = false;
        _replaced = exists;
        return 0;
    }

    // What has the temporary name, beyond the end of the scope. Open for nothing but that.
    ScopedDescriptor hold() const {
        return ScopedDescriptor(_isThere ? openat(_directory, _temporary.c_str(), O_PATH | O_CLOEXEC) : -1);
    }

    // Undoes it. Where names couldn't be traded the old file is gone for good, and the new one stays.
    void giveBack(const std::string& base) {
        if (_isThere) {
            _calls.renameat2(_directory, _temporary.c_str(), base.c_str(), RENAME_EXCHANGE);
        } else if (!_replaced) {
            _calls.unlinkat(_directory, base.c_str());
        }
    }

private:
    static std::string hiddenNeighbourOf(const std::string& base) { return "." + base + ".XXXXXX.tmp"; }

    // Not mkstemp: that would take away the rights that the process's mask leaves to group and others.
    int create() {
        constexpr std::string_view LETTERS = "abcdefghijklmnopqrstuvwxyz0123456789";
        const std::size_t place = _temporary.size() - std::string_view("XXXXXX.tmp").size();
        int file = -1;
        for (int tries = 0; tries < 100; ++tries) {
            std::array<unsigned char, 6> random{};
            if (getrandom(random.data(), random.size(), 0) < 0) {
                break;
            }
            for (std::size_t i = 0; i < random.size(); ++i) {
                _temporary[place + i] = LETTERS[random[i] % LETTERS.size()];
            }
            file = _calls.openat(_directory, _temporary.c_str());
            if (file >= 0 || (errno != EEXIST && errno != EINTR)) {
                break;
            }
        }
        return file;
    }

    const FileCalls& _calls;
    const int _directory;
    std::string _temporary;
    ScopedDescriptor _file;
    bool _isThere = true;    // something has the temporary name
    bool _replaced = false;  // an old file, which is gone
};

// One save in the place of whatever has the name.
class Replacement {
public:
    Replacement(const FileCalls& calls, const std::string& name) : _calls(calls), _name(name) {}

    ScopedDescriptor run(const util::Pieces& data) const {
        const std::string target = behindLinks();
        struct stat old {};
        const bool replaces = checkOldFile(target, old);
        const std::string base = target.substr(target.rfind('/') + 1);
        const std::string folder = directoryOf(target);
        const ScopedDescriptor directory(untilUninterrupted([&] { return _calls.open(folder.c_str()); }));
        if (!directory.isOpen()) {
            failOpening(_name, errno, "The system call 'open' failed for the directory of the file.");
        }
        UnfinishedFile file(_calls, directory.get(), base, _name);
        if (replaces && _calls.fchmod(file.get(), old.st_mode & 07777) != 0) {
            failOpening(_name, errno, "The system call 'fchmod' failed.");
        }
        writePieces(file.get(), data);
        // The rename may reach the disk before the data does; without this a power cut leaves an empty file.
        // Never tried again: after a failure the kernel may have dropped the pages and would report success.
        if (_calls.fsync(file.get()) != 0) {
            failWriting(_name, errno, "The system call 'fsync' failed.");
        }
        if (const int error = file.takeThePlaceOf(base, replaces)) {
            failWriting(_name, error, "The system call 'renameat2' failed.");
        }
        // File systems that keep no order to lose say EINVAL.
        if (_calls.fsync(directory.get()) != 0 && errno != EINVAL) {
            const int error = errno;
            file.giveBack(base);
            failWriting(_name, error, "The system call 'fsync' failed for the directory of the file.");
        }
        return replaces ? file.hold() : ScopedDescriptor(-1);
    }

private:
    // The name that has to be replaced: behind a symbolic link, which stays, the file that it leads to.
    std::string behindLinks() const {
        std::string file = _name;
        // The system itself gives up after as many.
        for (int links = 0; links < 40; ++links) {
            char target[PATH_MAX];
            const ssize_t length = _calls.readlink(file.c_str(), target, sizeof(target));
            if (length < 0 && errno != EINVAL && errno != ENOENT) {
                failOpening(_name, errno, "The system call 'readlink' failed.");
            }
            if (length <= 0) {
                return file;
            }
            const std::string_view next(target, static_cast<std::size_t>(length));
            file = (next.front() == '/' ? std::string() : directoryOf(file) + "/").append(next);
        }
        failOpening(_name, ELOOP, "The system call 'readlink' found too many links.");
    }

    // False if there is no old file.
    bool checkOldFile(const std::string& target, struct stat& old) const {
        if (_calls.stat(target.c_str(), old) != 0) {
            if (errno != ENOENT) {
                failOpening(_name, errno, "The system call 'stat' failed.");
            }
            return false;
        }
        if (!S_ISREG(old.st_mode)) {
            // A rename would put a plain file in the place of a device or a pipe.
            failOpening(_name, S_ISDIR(old.st_mode) ? EISDIR : EINVAL, "None.");
        }
        if (_calls.faccessat(target.c_str()) != 0) {
            // A rename asks only for rights on the directory, but a write-protected file is meant to stay.
            failOpening(_name, errno,
                        errno == EACCES || errno == EROFS ? "The file is write-protected."
                                                          : "The system call 'faccessat' failed.");
        }
        return true;
    }

    // In one call and onto disk that is reserved at once: of the time that the system takes to store 2 MB in
    // 30 pieces, each of both saves a tenth and more. Not all file systems reserve, and the write will tell
    // if there is no room.
    void writePieces(int file, const util::Pieces& pieces) const {
        std::vector<iovec> left;
        for (const std::string_view piece : pieces) {
            left.push_back({const_cast<char*>(piece.data()), piece.size()});
        }
        _calls.fallocate(file, pieces.size());
        for (std::size_t done = 0; done < left.size();) {
            const std::span next(&left[done], std::min<std::size_t>(left.size() - done, IOV_MAX));
            const ssize_t count = untilUninterrupted([&] { return _calls.writev(file, next); });
            if (count < 0) {
                failWriting(_name, errno, "The system call 'writev' failed.");
            }
            std::size_t written = static_cast<std::size_t>(count);
            for (; done < left.size() && written >= left[done].iov_len; ++done) {
                written -= left[done].iov_len;
            }
            if (written > 0) {
                left[done].iov_base = static_cast<char*>(left[done].iov_base) + written;
                left[done].iov_len -= written;
            }
        }
    }

    const FileCalls& _calls;
    const std::string& _name;
};

}  // namespace

SaveFileImpl::SaveFileImpl(const FileCalls& calls) : _calls(calls) {}

void SaveFileImpl::save(const std::string& name, const util::Bytes& data, std::uint32_t mode) const {
    if ((mode & APPEND) != 0) {
        requireSavable(name, data.size());
        append(name, data);
    } else {
        util::Pieces pieces;
        pieces.addView({data.data(), data.size()});
        replace(name, pieces);
    }
}

ScopedDescriptor SaveFileImpl::replace(const std::string& name, const util::Pieces& pieces) const {
    requireSavable(name, pieces.size());
    return Replacement(_calls, name).run(pieces);
}

}  // namespace io::filesystem
