#include "server/XmlHookImpl.h"

#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>

#include "exceptions/Exception.h"
#include "io/filesystem/SaveFile.h"
#include "server/Log.h"
#include "util/Bytes.h"
#include "util/FixedStream.h"
#include "windows/file/DiskSpace.h"

namespace halvern::morvane {
namespace {

constexpr std::int64_t LEAST_FREE_SPACE = 1'000'000'000;  // bytes

// Counts from the nanosecond of its first use. So a number never repeats within a process, and one that
// starts later begins above all that an earlier one can have used: captured requests outlive restarts, thread
// ids repeat.
std::uint64_t nextNumber() {
    static std::atomic<std::uint64_t> next(static_cast<std::uint64_t>(
        std::chrono::system_clock::now().time_since_epoch() / std::chrono::nanoseconds(1)));
    return next.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace

XmlHookImpl::XmlHookImpl(const io::filesystem::SaveFile& saveFile, Log& log, const std::string& directory,
                         const windows::file::DiskSpace& diskSpace)
    : _saveFile(saveFile), _log(log), _directory(directory), _diskSpace(diskSpace) {}

void XmlHookImpl::save(const std::string& request) {
    if (request.empty()) {
        return;
    }
    try {
        const auto free = static_cast<std::int64_t>(_diskSpace.free(_directory));
        if (free < LEAST_FREE_SPACE) {
            util::FixedStream<256> text;
            text << "Skipping to save request, to little harddrive space (less than 1gb). Free space: "
                 << free;
            _log.log(text.str());
            return;
        }
        util::FixedStream<512> name;
        if (!_directory.empty()) {
            name << _directory.c_str() << "/";
        }
        name << "request_threadid_" << ::gettid() << "_uid_" << nextNumber() << ".xml";
        _saveFile.save(name.str(), util::Bytes(request.begin(), request.end()), 0);
    } catch (const exceptions::Exception& exception) {
        _log.error(std::string("Could not save a request: ") + exception.what());
    }
}

XmlHookFactoryImpl::XmlHookFactoryImpl(const io::filesystem::SaveFile& saveFile, Log& log,
                                       const std::string& directory,
                                       const windows::file::DiskSpace& diskSpace)
    : _saveFile(saveFile), _log(log), _directory(directory), _diskSpace(diskSpace) {}

std::unique_ptr<XmlHook> XmlHookFactoryImpl::create() const {
    return std::make_unique<XmlHookImpl>(_saveFile, _log, _directory, _diskSpace);
}

}  // namespace halvern::morvane
