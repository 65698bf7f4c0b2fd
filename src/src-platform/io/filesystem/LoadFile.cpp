#include "io/filesystem/LoadFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

#include "io/filesystem/FileSystemHelper.h"
#include "util/FixedStream.h"

namespace io::filesystem {

namespace {

// What the readers of stored data can address with signed 32-bit sizes.
constexpr std::uint64_t MAX_FILE_SIZE = 2147483647;

struct Words {
    const char* locked;
    const char* shared;
    const char* other;
};

constexpr Words OPEN_WORDS = {"A file lock violation occurred when trying to open the file for reading.",
                              "A sharing violation occurred when trying to open the file for reading.",
                              "An error occurred when trying to open the file for reading."};
constexpr Words READ_WORDS = {"A file lock violation occurred when trying to load the file.",
                              "A sharing violation occurred when trying to load the file.",
                              "An error occurred while trying to load the file."};

[[noreturn]] void fail(const Words& words, const std::string& name, int error, const char* cause) {
    switch (error) {
        // A lease, a mandatory lock, or a lock that the file's server holds for someone else.
        case EAGAIN:
        case EDEADLK:
        case ENOLCK:
            throw LoadFileLockedViolationException(fileErrorText(words.locked, name, error, cause));
        case EBUSY:
        case ETXTBSY:
            throw LoadFileSharingViolationException(fileErrorText(words.shared, name, error, cause));
        default:
            throw LoadFileExceptionImpl(fileErrorText(words.other, name, error, cause));
    }
}

[[noreturn]] void refuse(const char* message, const std::string& name) {
    throw LoadFileExceptionImpl(fileErrorText(message, name, 0, "None."));
}

std::uint64_t sizeOf(int file, const std::string& name) {
    const off_t size = lseek(file, 0, SEEK_END);
    if (size < 0 || lseek(file, 0, SEEK_SET) != 0) {
        const int error = errno;
        throw LoadFileExceptionImpl(
            fileErrorText("An error occurred while trying to get the size of the file.", name, error,
                          "The system call 'lseek' failed."));
    }
    return static_cast<std::uint64_t>(size);
}

// Bytes that are made are zeros first. Made in parts, these are still in the nearest cache when the file's
// take their place.
void readAll(int file, const std::string& name, std::size_t size, util::Bytes& data) {
    constexpr std::size_t PART = 512UL * 1024;
    data.reserve(size);
    for (std::size_t done = 0; done < size;) {
        if (done == data.size()) {
            data.resize(std::min(size, done + PART));
        }
        const ssize_t count = read(file, data.data() + done, data.size() - done);
        if (count > 0) {
            done += static_cast<std::size_t>(count);
        } else if (count == 0) {
            fail(READ_WORDS, name, 0, "The file became shorter while it was read.");
        } else if (errno != EINTR) {
            fail(READ_WORDS, name, errno, "The system call 'read' failed.");
        }
    }
}

}  // namespace

util::Bytes LoadFileImpl::load(const std::string& name, std::uint32_t bytes) const {
    if (name.empty()) {
        refuse("Cannot load file. No filename specified.", name);
    }
    // Without O_NONBLOCK a lease of another process or a pipe without a writer would hold the thread up.
    const ScopedDescriptor file(openFile(name.c_str(), O_RDONLY | O_NONBLOCK));
    if (!file.isOpen()) {
        fail(OPEN_WORDS, name, errno, "The system call 'open' failed.");
    }
    struct stat status {};
    if (fstat(file.get(), &status) == 0 && S_ISDIR(status.st_mode)) {
        fail(OPEN_WORDS, name, EISDIR, "None.");
    }
    const std::uint64_t size = sizeOf(file.get(), name);
    if (bytes > size) {
        util::FixedStream<512> message;
        message << "Tried to read a larger number of bytes from a file that it contained. Tried to read : "
                << bytes << " File size: " << size;
        refuse(message.str(), name);
    }
    const std::uint64_t wanted = bytes != 0 ? bytes : size;
    if (wanted > MAX_FILE_SIZE) {
        util::FixedStream<512> message;
        message << "Could not load the file because the file size was too big. The file size is " << wanted
                << ". The file cannot be bigger than " << MAX_FILE_SIZE << " bytes.";
        refuse(message.str(), name);
    }
    util::Bytes data;
    readAll(file.get(), name, wanted, data);
    return data;
}

}  // namespace io::filesystem
