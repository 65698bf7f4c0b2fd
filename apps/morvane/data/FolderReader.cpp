#include "data/FolderReader.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "Failure.h"

namespace halvern::morvane::client {

namespace {

bool isHidden(const std::filesystem::path& path) { return path.filename().string().starts_with('.'); }

}  // namespace

FolderReader::FolderReader(const std::string& path) {
    namespace fs = std::filesystem;
    try {
        for (const fs::directory_entry& folder : fs::directory_iterator(path)) {
            if (!folder.is_directory() || isHidden(folder.path())) {
                continue;
            }
            const std::string label = folder.path().filename().string();
            for (auto file = fs::recursive_directory_iterator(folder.path());
                 file != fs::recursive_directory_iterator(); ++file) {
                if (isHidden(file->path())) {
                    file.disable_recursion_pending();
                } else if (file->is_regular_file()) {
                    _files.push_back({file->path().string(), label});
                    _size += file->file_size();
                }
            }
        }
    } catch (const fs::filesystem_error& e) {
        throw Failure{ExitCode::LOCAL_FILE, std::string("Can't read the folder: ") + e.what() + "."};
    }
    std::sort(_files.begin(), _files.end(), [](const File& a, const File& b) { return a.path < b.path; });
}

bool FolderReader::next(Record& record) {
    record = Record();
    if (_next == _files.size()) {
        return false;
    }
    const File& file = _files[_next++];
    record.place = file.path;
    record.label = file.label;
    record.problem = problemOfLabel(record.label);
    std::ifstream in(file.path, std::ios::binary);
    std::ostringstream content;
    // Inserting nothing at all counts as a failure of the target stream only.
    content << in.rdbuf();
    if (!in.is_open() || in.bad()) {
        record.problem = "can't be read";
    }
    record.text = content.str();
    _position += record.text.size();
    return true;
}

}  // namespace halvern::morvane::client
