#pragma once

#include <string>

#include "server/XmlHook.h"

namespace io::filesystem {
class SaveFile;
}  // namespace io::filesystem

namespace windows::file {
class DiskSpace;
}  // namespace windows::file

namespace halvern::morvane {

class Log;

// Writes each request, byte for byte, to a file of its own in one folder. Nothing deletes these files, so a
// disk with less than a gigabyte free gets no more of them; that, and every failure, goes to the log only.
class XmlHookImpl final : public XmlHook {
public:
    XmlHookImpl(const io::filesystem::SaveFile& saveFile, Log& log, const std::string& directory,
                const windows::file::DiskSpace& diskSpace);
    void save(const std::string& request) override;

private:
    const io::filesystem::SaveFile& _saveFile;
    Log& _log;
    std::string _directory;
    const windows::file::DiskSpace& _diskSpace;
};

class XmlHookFactoryImpl final : public XmlHookFactory {
public:
    XmlHookFactoryImpl(const io::filesystem::SaveFile& saveFile, Log& log, const std::string& directory,
                       const windows::file::DiskSpace& diskSpace);
    std::unique_ptr<XmlHook> create() const override;

private:
    const io::filesystem::SaveFile& _saveFile;
    Log& _log;
    std::string _directory;
    const windows::file::DiskSpace& _diskSpace;
};

}  // namespace halvern::morvane
