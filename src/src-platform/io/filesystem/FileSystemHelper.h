#pragma once

#include <cstddef>
#include <string>
#include <utility>

namespace io::filesystem {

// A file descriptor that is closed at the end of the scope. Holds nothing if the descriptor is negative.
class ScopedDescriptor {
public:
    explicit ScopedDescriptor(int descriptor) : _descriptor(descriptor) {}
    ScopedDescriptor(const ScopedDescriptor&) = delete;
    ScopedDescriptor(ScopedDescriptor&& other) noexcept : _descriptor(std::exchange(other._descriptor, -1)) {}
    ScopedDescriptor& operator=(ScopedDescriptor&& other) noexcept {
        std::swap(_descriptor, other._descriptor);
        return *this;
    }
    ~ScopedDescriptor();

    int get() const { return _descriptor; }
    bool isOpen() const { return _descriptor >= 0; }

private:
    int _descriptor;
};

// open(2), tried again when a signal cuts it short. Gives -1 and errno on failure.
int openFile(const char* name, int flags, unsigned mode = 0) noexcept;

// Writes all of the bytes, in as many calls as that takes. Gives 0, or the system's error. Neither this nor
// openFile takes a lock or heap memory.
int writeAll(int file, const char* bytes, std::size_t size) noexcept;

// The directory that holds the file: "." for a plain name.
std::string directoryOf(const std::string& name);

// The pattern of the names under which replacing saves keep their data until it is complete.
inline constexpr const char* UNFINISHED_SAVE_MASK = ".*.??????.tmp";

// Brings the entries of an open directory to the disk. Gives 0, or the system's error.
int synchroniseDirectory(int directory);

// The message of a failed load or save: what was tried, on which file, from which directory, the words for
// the system's error (an errno value, 0 where the system did not fail), and the step that failed.
std::string fileErrorText(const char* message, const std::string& name, int systemError, const char* cause);

}  // namespace io::filesystem
