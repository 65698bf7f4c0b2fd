#pragma once

#include <cstdint>
#include <string>

#include "exceptions/Exception.h"
#include "io/IOException.h"
#include "io/filesystem/FileCalls.h"
#include "io/filesystem/FileSystemHelper.h"
#include "util/Bytes.h"
#include "util/Pieces.h"

namespace io::filesystem {

class SaveFileException : public io::IOException {};

class SaveFileExceptionImpl final : public exceptions::WithMessage<SaveFileException> {
public:
    using WithMessage::WithMessage;
};

// Writes files of at most 2,147,483,647 bytes whole. Safe from any thread, but two saves of one name are not
// ordered by it.
class SaveFile {
public:
    static constexpr std::uint32_t APPEND = 8;

    virtual ~SaveFile() = default;

    // Mode 0 makes data the content of the file, mode APPEND adds it to the end; both create a missing file.
    //
    // A name that is a symbolic link stays one; what it leads to is saved.
    //
    // A replaced file is durable when save returns, and at no moment does the name stand for a part of the
    // data: a save that throws a SaveFileException leaves the old content, whatever stopped it. The one
    // exception is a directory that cannot be brought to the disk, on a file system where two files can't
    // trade names: the new content is visible then, but may be lost again in a power cut. An append that
    // fails may have added the beginning of the data.
    virtual void save(const std::string& name, const util::Bytes& data, std::uint32_t mode = 0) const = 0;

    // The same as save in mode 0, for content that lies in pieces. May give what still holds the old content,
    // which has no name any more. To drop it frees memory and disk, and takes as long as it took to hand
    // the new content to the system: for a moment when nobody waits.
    virtual ScopedDescriptor replace(const std::string& name, const util::Pieces& pieces) const {
        util::Bytes data;
        pieces.appendTo(data);
        save(name, data);
        return ScopedDescriptor(-1);
    }
};

// Keeps one descriptor of the process in hand, so that an append works where there is none left.
class SaveFileImpl final : public SaveFile {
public:
    // calls must outlive this object. Appends always go to the system itself.
    explicit SaveFileImpl(const FileCalls& calls = systemCalls());
    void save(const std::string& name, const util::Bytes& data, std::uint32_t mode = 0) const override;
    // Copies no large piece.
    ScopedDescriptor replace(const std::string& name, const util::Pieces& pieces) const override;

private:
    const FileCalls& _calls;
};

}  // namespace io::filesystem
