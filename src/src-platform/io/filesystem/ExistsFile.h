#pragma once

#include <string>

namespace io::filesystem {

class ExistsFile {
public:
    virtual ~ExistsFile() = default;

    // True if the name stands for something other than a directory. What exists but cannot be reached, for
    // lack of rights for instance, counts as existing.
    virtual bool exists(const std::string& name) const noexcept = 0;
};

class ExistsFileImpl final : public ExistsFile {
public:
    bool exists(const std::string& name) const noexcept override;
};

}  // namespace io::filesystem
