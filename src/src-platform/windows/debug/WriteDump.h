#pragma once

#include <string>

#include "exceptions/Exception.h"
#include "windows/debug/MiniDump.h"
#include "windows/file/DeleteFile.h"

namespace windows::debug {

class MiniDumpException : public exceptions::Exception {};

class WriteDumpException final : public exceptions::WithMessage<MiniDumpException> {
public:
    using WithMessage::WithMessage;
};

// Leaves a dump of the calling thread in a file.
class WriteDump {
public:
    virtual ~WriteDump() = default;

    // Writes the dump to path, replacing a file that stands there, or throws a WriteDumpException and leaves
    // no file. What is no plain file, such as a link, is left alone.
    virtual void write(const std::string& path) = 0;
};

// Refuses what dumpRefusal refuses.
class WriteDumpImpl final : public WriteDump {
public:
    WriteDumpImpl(const MiniDump& miniDump, const windows::file::DeleteFile& deleteFile)
        : _miniDump(miniDump), _deleteFile(deleteFile) {}

    void write(const std::string& path) override;

private:
    const MiniDump& _miniDump;
    const windows::file::DeleteFile& _deleteFile;
};

}  // namespace windows::debug
