#include "io/filesystem/SaveFile.h"

#include <fcntl.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <mutex>
#include <string_view>

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

void write(int file, const std::string& name, const util::Bytes& data) {
    if (const int error = writeAll(file, data.data(), data.size())) {
        failWriting(name, error, "The system call 'write' failed.");
    }
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

void append(const std::string& name, const util::Bytes& data) {
    static std::mutex mutex;
    static SpareDescriptor spare;
    const std::lock_guard guard(mutex);
    const util::MethodCaller0 keeper(spare, &SpareDescriptor::keep);
    const ScopedDescriptor file(spare.openForAppending(name));
    if (!file.isOpen()) {
        failOpening(name, errno, "The system call 'open' failed.");
    }
    write(file.get(), name, data);
}

// The new file beside the one that it will replace: on the same file system, and with a leading dot, which no
// classifier's file has. Deleted at the end of the scope unless it has taken the place of the old one.
class UnfinishedFile {
public:
    UnfinishedFile(int directory, const std::string& base, const std::string& name)
        : _directory(directory), _temporary(hiddenNeighbourOf(base)), _file(create()) {
        if (!_file.isOpen()) {
            failOpening(name, errno, "The system call 'openat' failed.");
        }
    }
    UnfinishedFile(const UnfinishedFile&) = delete;
    UnfinishedFile& operator=(const UnfinishedFile&) = delete;
    ~UnfinishedFile() {
        if (!_complete && _file.isOpen()) {
            unlinkat(_directory, _temporary.c_str(), 0);
        }
    }

    int get() const { return _file.get(); }

    // Gives 0, or the system's error.
    int renameTo(const std::string& base) {
        if (renameat(_directory, _temporary.c_str(), _directory, base.c_str()) != 0) {
            return errno;
        }
        _complete = true;
        return 0;
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
            file = openat(_directory, _temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0666);
            if (file >= 0 || (errno != EEXIST && errno != EINTR)) {
                break;
            }
        }
        return file;
    }

    const int _directory;
    std::string _temporary;
    ScopedDescriptor _file;
    bool _complete = false;
};

// The name that a save has to replace: behind a symbolic link, which stays, the file that it leads to.
std::string behindLinks(const std::string& name) {
    std::string file = name;
    // The system itself gives up after as many.
    for (int links = 0; links < 40; ++links) {
        char target[PATH_MAX];
        const ssize_t length = readlink(file.c_str(), target, sizeof(target));
        if (length <= 0) {
            return file;
        }
        const std::string_view next(target, static_cast<std::size_t>(length));
        file = (next.front() == '/' ? std::string() : directoryOf(file) + "/").append(next);
    }
    failOpening(name, ELOOP, "The system call 'readlink' found too many links.");
}

void replace(const std::string& name, const util::Bytes& data) {
    const std::string target = behindLinks(name);
    struct stat old {};
    const bool replaces = stat(target.c_str(), &old) == 0;
    if (replaces && !S_ISREG(old.st_mode)) {
        // A rename would put a plain file in the place of a device or a pipe.
        failOpening(name, S_ISDIR(old.st_mode) ? EISDIR : EINVAL, "None.");
    }
    if (replaces && faccessat(AT_FDCWD, target.c_str(), W_OK, AT_EACCESS) != 0) {
        // A rename asks only for rights on the directory, but a write-protected file is meant to stay.
        failOpening(name, errno, "The file is write-protected.");
    }
    const std::string base = target.substr(target.rfind('/') + 1);
    const ScopedDescriptor directory(openFile(directoryOf(target).c_str(), O_RDONLY | O_DIRECTORY));
    if (!directory.isOpen()) {
        failOpening(name, errno, "The system call 'open' failed for the directory of the file.");
    }
    UnfinishedFile file(directory.get(), base, name);
    if (replaces && fchmod(file.get(), old.st_mode & 07777) != 0) {
        failOpening(name, errno, "The system call 'fchmod' failed.");
    }
    write(file.get(), name, data);
    // The rename may reach the disk before the data does; without this a power cut leaves an empty file.
    // Never tried again: after a failure the kernel may have dropped the pages and would report success.
    if (fsync(file.get()) != 0) {
        failWriting(name, errno, "The system call 'fsync' failed.");
    }
    if (const int error = file.renameTo(base)) {
        failWriting(name, error, "The system call 'renameat' failed.");
    }
    if (const int error = synchroniseDirectory(directory.get())) {
        failWriting(name, error, "The system call 'fsync' failed for the directory of the file.");
    }
}

}  // namespace

void SaveFileImpl::save(const std::string& name, const util::Bytes& data, std::uint32_t mode) const {
    if (data.size() > MAX_DATA_SIZE) {
        util::FixedStream<512> message;
        message << "Could not save the file because the data size was too big. The data size is "
                << data.size() << ". The data cannot be bigger than " << MAX_DATA_SIZE << " bytes.";
        refuse(message.str(), name);
    }
    if (name.empty()) {
        refuse("Cannot open file. No filename specified.", name);
    }
    if ((mode & APPEND) != 0) {
        append(name, data);
    } else {
        replace(name, data);
    }
}

}  // namespace io::filesystem
