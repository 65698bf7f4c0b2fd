#pragma once

#include <string>
#include <vector>

#include "data/RecordReader.h"

namespace halvern::morvane::client {

// A folder for each class, named after it, and one file for each text anywhere below; all in byte order of
// the paths. Hidden files are passed over, and so are files that lie in no class's folder, such as a README.
class FolderReader final : public RecordReader {
public:
    explicit FolderReader(const std::string& path);
    bool next(Record& record) override;
    std::uint64_t position() const override { return _position; }
    std::uint64_t size() const override { return _size; }

private:
    struct File {
        std::string path;
        std::string label;
    };

    std::vector<File> _files;
    std::size_t _next = 0;
    std::uint64_t _position = 0;
    std::uint64_t _size = 0;
};

}  // namespace halvern::morvane::client
