#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "exceptions/Exception.h"

namespace windows::file {

class FindFilesException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

class FileEnumeratorException final : public exceptions::WithMessage<exceptions::Exception> {
public:
    using WithMessage::WithMessage;
};

// Lists the entries of one directory, without those of the directories in it.
class FindFiles {
public:
    // Attributes of an entry. Each entry is a directory or a file; one whose name begins with a dot is
    // hidden, too.
    static constexpr std::uint32_t HIDDEN = 0x2;
    static constexpr std::uint32_t DIRECTORY = 0x10;
    static constexpr std::uint32_t FILE = 0x80;
    static constexpr std::uint32_t ALL = 0xFFFFFFFF;

    virtual ~FindFiles() = default;

    // The paths of the entries that match one of the masks, which are shell patterns with ";" between them:
    // all that match the first mask, then all that match the second, each in the order in which the system
    // gives them. An entry counts if it has one of the attributes, its name is not one of excludes, and it is
    // no directory while filesOnly is set. Requires a directory name. Throws FindFilesException.
    virtual std::vector<std::string> find(const std::string& directory, const std::string& masks,
                                          std::uint32_t attributes, const std::vector<std::string>& excludes,
                                          bool filesOnly) const = 0;
};

class FindFilesImpl final : public FindFiles {
public:
    std::vector<std::string> find(const std::string& directory, const std::string& masks,
                                  std::uint32_t attributes, const std::vector<std::string>& excludes,
                                  bool filesOnly) const override;
};

// Lists all files of a directory whose names match a mask.
class FileEnumerator {
public:
    virtual ~FileEnumerator() = default;

    // As FindFiles::find, for files only. Throws FileEnumeratorException.
    virtual std::vector<std::string> enumerate(const std::string& directory,
                                               const std::string& masks) const = 0;
};

class FileEnumeratorImpl final : public FileEnumerator {
public:
    std::vector<std::string> enumerate(const std::string& directory, const std::string& masks) const override;
};

}  // namespace windows::file
