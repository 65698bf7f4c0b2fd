#pragma once

#include <cstdint>
#include <string>

namespace io::filesystem {

// Deletes the files that saves cut short by a crash or a power cut have left in the directory, and returns
// their number. Only for a directory in which nobody saves at the moment: a save at work would lose its file.
// Throws windows::file::FileEnumeratorException if the directory cannot be read, and RemoveFileException.
std::uint64_t removeLeftovers(const std::string& directory);

}  // namespace io::filesystem
