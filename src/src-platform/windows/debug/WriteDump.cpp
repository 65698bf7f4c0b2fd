#include "windows/debug/WriteDump.h"

#include <cerrno>
#include <optional>

#include "io/filesystem/FileSystemHelper.h"
#include "util/FixedStream.h"
#include "windows/debug/DumpFolder.h"

namespace windows::debug {

void WriteDumpImpl::write(const std::string& path) {
    const auto refusal = dumpRefusal(io::filesystem::directoryOf(path).c_str());
    if (*refusal.str() != 0) {
        throw WriteDumpException(refusal.str());
    }
    util::FixedStream<4096> text;
    std::optional<io::filesystem::ScopedDescriptor> file(openDump(path.c_str()));
    if (!file->isOpen()) {
        const int error = errno;
        text << "Couldn't create a file to write a dump file to with name " << path.c_str() << ".\n\n";
        text.appendSystemError(static_cast<std::uint32_t>(error));
        throw WriteDumpException(text.str());
    }
    const int error =
        _miniDump.write(file->get(), DumpCause::ofCallingThread("The program asked for a dump."));
    file.reset();
    if (error == 0) {
        return;
    }
    text << "Couldn't write dump.\n\n";
    text.appendSystemError(static_cast<std::uint32_t>(error));
    try {
        _deleteFile.remove(path, false);
    } catch (const windows::file::DeleteFileException& e) {
        text << e.what();
    }
    throw WriteDumpException(text.str());
}

}  // namespace windows::debug
