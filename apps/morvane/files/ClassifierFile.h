#pragma once

#include <cstdint>
#include <string>

#include "files/ClassifierView.h"
#include "files/Inspection.h"
#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/LoadFile.h"
#include "io/filesystem/SaveFile.h"
#include "io/filesystem/SizeFile.h"
#include "util/Bytes.h"

namespace halvern::morvane::client::files {

// A sound classifier with its bytes. Can be moved, not copied, since the view points into the data.
struct ClassifierFile {
    ClassifierFile() = default;
    ClassifierFile(ClassifierFile&&) = default;
    ClassifierFile& operator=(ClassifierFile&&) = default;

    std::string name;                     // for messages
    std::uint32_t storedVersion = 5;      // of the file; the data here is always of version 5
    std::uint64_t storedSize = 0;         // of the file, in bytes
    std::vector<std::string> notes = {};  // what is no fault but worth knowing
    util::Bytes data;
    ClassifierView view;
};

// Reads and writes classifiers on this machine's disk. All operations throw Failure.
class ClassifierFiles {
public:
    // The longest file that the server reads or writes.
    static constexpr std::uint64_t maxSize = 2'147'483'647;

    ClassifierFiles(const io::filesystem::LoadFile& loadFile, const io::filesystem::SaveFile& saveFile,
                    const io::filesystem::SizeFile& sizeFile, const io::filesystem::ExistsFile& existsFile)
        : _loadFile(loadFile), _saveFile(saveFile), _sizeFile(sizeFile), _existsFile(existsFile) {}

    // The bytes as they are.
    util::Bytes read(const std::string& path) const;
    // Refuses, with DIFFERENT, a file that breaks a guarantee of the format: sums of what isn't sound aren't
    // either. Versions 3 and 4 are brought forward in memory.
    ClassifierFile open(const std::string& path) const;
    // To be asked before the work for what may not be written in the end.
    void requireWritable(const std::string& path, bool force) const;
    // Replaces the file as a whole, or leaves it as it was.
    void save(const std::string& path, const util::Bytes& data, bool force) const;

private:
    const io::filesystem::LoadFile& _loadFile;
    const io::filesystem::SaveFile& _saveFile;
    const io::filesystem::SizeFile& _sizeFile;
    const io::filesystem::ExistsFile& _existsFile;
};

// The classifier that the bytes describe; see ClassifierFiles::open.
ClassifierFile makeClassifier(const std::string& name, util::Bytes data);

// Adds a note if the server wouldn't find a classifier in a file of this name.
void noteName(const std::string& path, std::vector<std::string>& notes);

// What the server would say to these bytes: the reason for which it refuses them, or nothing.
std::string refusalOfServer(const util::Bytes& data);

}  // namespace halvern::morvane::client::files
