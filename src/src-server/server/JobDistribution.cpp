#include "server/JobDistribution.h"

#include <algorithm>
#include <boost/make_shared.hpp>
#include <ctime>
#include <exception>
#include <optional>
#include <string_view>

#include "io/filesystem/ExistsFile.h"
#include "io/filesystem/LoadFile.h"
#include "io/filesystem/RemoveFile.h"
#include "io/filesystem/SaveFile.h"
#include "io/filesystem/SizeFile.h"
#include "platform/event/Event.h"
#include "platform/memory/MemoryStatus.h"
#include "platform/mutex/AutoLock.h"
#include "platform/mutex/ReaderWriterLock.h"
#include "server/BadRequestException.h"
#include "server/ClassifierPath.h"
#include "server/Log.h"
#include "util/FixedStream.h"
#include "util/StringHelper.h"

using platform::mutex::AutoLock;
using platform::mutex::MutexImpl;
using platform::mutex::ReaderAutoLock;
using platform::mutex::WriterAutoLock;

namespace halvern::morvane {

namespace {

// A MutexImpl that is locked from construction to destruction.
class ScopedLock {
public:
    explicit ScopedLock(MutexImpl& mutex) : _lock(mutex) { _lock.lock(); }

private:
    AutoLock<MutexImpl> _lock;
};

// Excludes everybody else in the process from one file.
class FileLock {
public:
    explicit FileLock(const std::string& file) : _name(nameOf(file)), _mutex(_name.c_str()), _lock(_mutex) {}

private:
    static std::string nameOf(std::string file) {
        std::replace(file.begin(), file.end(), '/', ':');
        return file;
    }

    const std::string _name;
    MutexImpl _mutex;
    ScopedLock _lock;
};

}  // namespace

// The table's mutex, taken at a moment when the file isn't being loaded.
class JobDistributionImpl::SettledTable {
public:
    SettledTable(JobDistributionImpl& table, const std::string& file) {
        for (;;) {
            _lock.emplace(table._mutex);
            const auto loading = table._loading.find(file);
            if (loading == table._loading.end()) {
                return;
            }
            const boost::shared_ptr<platform::event::EventImpl> ended = loading->second;
            _lock.reset();
            ended->wait();
        }
    }

private:
    std::optional<ScopedLock> _lock;
};

// One load, from its announcement to its end, whatever the end is. Made with the mutex held, and ended
// without it.
class JobDistributionImpl::Loading {
public:
    Loading(JobDistributionImpl& table, const std::string& file)
        : _table(table), _needed(2 * table._sizeFile.size(file, false)) {
        _announced = table._loading.emplace(file, boost::make_shared<platform::event::EventImpl>()).first;
        table._neededByLoads += _needed;
    }
    Loading(const Loading&) = delete;
    Loading& operator=(const Loading&) = delete;
    ~Loading() {
        const ScopedLock table(_table._mutex);
        _announced->second->set();
        _table._neededByLoads -= _needed;
        _table._loading.erase(_announced);
    }

private:
    JobDistributionImpl& _table;
    const std::uint64_t _needed;  // the bytes of the file, and as many for a write sequence on it
    std::map<std::string, boost::shared_ptr<platform::event::EventImpl>>::iterator _announced;
};

JobDistributionImpl::JobDistributionImpl(
    const ClassifierFactory& classifierFactory, const platform::memory::MemoryStatus& memoryStatus,
    const io::filesystem::LoadFile& loadFile, const io::filesystem::SaveFile& saveFile,
    const io::filesystem::ExistsFile& existsFile, const io::filesystem::SizeFile& sizeFile,
    const io::filesystem::RemoveFile& removeFile, classifier::CallbackFactory& callbackFactory,
    const std::string& rootPath, Log& log)
    : _classifierFactory(classifierFactory),
      _memoryStatus(memoryStatus),
      _loadFile(loadFile),
      _saveFile(saveFile),
      _existsFile(existsFile),
      _sizeFile(sizeFile),
      _removeFile(removeFile),
      _callbackFactory(callbackFactory),
      _root(classifierRoot(rootPath)),
      _log(log) {}

HeldClassifier JobDistributionImpl::create(const std::string& name, const ThreadSafeClassifier* held) {
    const std::string file = fileOf(name);
    HeldClassifier created;
    created.classifier = boost::make_shared<ThreadSafeClassifier>(_classifierFactory, _callbackFactory);
    created.lock = std::make_unique<WriterAutoLock>(*created.classifier);
    for (;;) {
        const boost::shared_ptr<ThreadSafeClassifier> inTheWay = enter(name, file, created.classifier);
        if (!inTheWay) {
            return created;
        }
        if (inTheWay.get() != held) {
            const ReaderAutoLock settled(*inTheWay);
            if (inTheWay->isRemoved()) {
                continue;
            }
        }
        throw ClassifierExistsException("Trying to create a classifier that already exists (in memory) '" +
                                        name + "'.");
    }
}

boost::shared_ptr<ThreadSafeClassifier> JobDistributionImpl::get(const std::string& name) {
    const std::string file = fileOf(name);
    std::optional<Loading> loading;
    {
        const SettledTable table(*this, file);
        const auto entry = _classifiers.find(file);
        if (entry != _classifiers.end()) {
            entry->second->setLastUsed(std::time(nullptr));
            return entry->second;
        }
        loading.emplace(*this, file);
        while (_memoryStatus.available() < _neededByLoads && evict()) {
        }
    }
    boost::shared_ptr<ThreadSafeClassifier> loaded;
    {
        const FileLock lock(file);
        if (!_existsFile.exists(file)) {
            throw ClassifierNotFoundException("The requested classifier could not be found. '" + name + "'.");
        }
        loaded =
            boost::make_shared<ThreadSafeClassifier>(_classifierFactory, _loadFile, file, _callbackFactory);
    }
    // The load is still announced, so nobody has changed what the table or the disk say of it.
    const ScopedLock table(_mutex);
    _classifiers.emplace(file, loaded);
    return loaded;
}

std::uint64_t JobDistributionImpl::getSize(const std::string& name) {
    const std::string file = fileOf(name);
    const FileLock lock(file);
    return _sizeFile.size(file, false);
}

io::filesystem::ScopedDescriptor JobDistributionImpl::save(const std::string& name,
                                                           const util::Pieces& data) {
    const std::string file = fileOf(name);
    const FileLock lock(file);
    return _saveFile.replace(file, data);
}

void JobDistributionImpl::remove(const std::string& name, const ThreadSafeClassifier* held) {
    const std::string file = fileOf(name);
    for (;;) {
        const boost::shared_ptr<ThreadSafeClassifier> known = find(file);
        std::optional<WriterAutoLock> alone;
        if (known && known.get() != held) {
            alone.emplace(*known);
            if (known->isRemoved()) {
                continue;
            }
        }
        const SettledTable table(*this, file);
        const auto entry = _classifiers.find(file);
        if ((entry == _classifiers.end() ? nullptr : entry->second) != known) {
            continue;  // somebody has created or loaded it meanwhile
        }
        const FileLock lock(file);
        _removeFile.remove(file);
        if (known) {
            known->markRemoved();
            _classifiers.erase(entry);
        }
        return;
    }
}

void JobDistributionImpl::discard(const std::string& name, ThreadSafeClassifier& held) noexcept {
    util::FixedStream<4096> text;
    text << "Could not remove the file of a classifier whose creation was rolled back '" << name.c_str()
         << "'. ";
    try {
        held.markRemoved();
        const ScopedLock table(_mutex);
        // Found by its address and taken out as a whole, for this must not depend on free memory.
        const auto entry = std::find_if(_classifiers.begin(), _classifiers.end(),
                                        [&held](const auto& each) { return each.second.get() == &held; });
        if (entry != _classifiers.end()) {
            const auto taken = _classifiers.extract(entry);
            const FileLock lock(taken.key());
            _removeFile.remove(taken.key());
        }
    } catch (const exceptions::Exception& exception) {
        text << exception.what();
        _log.error(text.str());
    } catch (const std::exception& exception) {
        text << exception.what();
        _log.error(text.str());
    }
}

std::string JobDistributionImpl::fileOf(const std::string& name) const {
    const bool inside = name.compare(0, _root.size(), _root) == 0;
    const std::string last = inside ? name.substr(_root.size()) : std::string();
    // The request schema lets no such name through; this wall stands for the day when it does. A zero byte
    // would end the path early.
    if (last.empty() || last == "." || last == ".." ||
        last.find_first_of(std::string_view("/\0", 2)) != std::string::npos) {
        throw ClassifierPathException("The classifier '" + name +
                                      "' can't be used, since its file would not lie directly in the "
                                      "classifier root directory.");
    }
    return _root + util::StringHelper::toLower(last);
}

boost::shared_ptr<ThreadSafeClassifier> JobDistributionImpl::find(const std::string& file) {
    const ScopedLock table(_mutex);
    const auto entry = _classifiers.find(file);
    return entry == _classifiers.end() ? nullptr : entry->second;
}

boost::shared_ptr<ThreadSafeClassifier> JobDistributionImpl::enter(
    const std::string& name, const std::string& file,
    const boost::shared_ptr<ThreadSafeClassifier>& created) {
    const SettledTable table(*this, file);
    const auto entry = _classifiers.find(file);
    if (entry != _classifiers.end()) {
        return entry->second;
    }
    const FileLock lock(file);
    if (_existsFile.exists(file)) {
        throw ClassifierExistsException("Trying to create a classifier that already exists (on disk) '" +
                                        name + "'.");
    }
    _classifiers.emplace(file, created);
    return nullptr;
}

bool JobDistributionImpl::evict() {
    auto oldest = _classifiers.end();
    for (auto entry = _classifiers.begin(); entry != _classifiers.end(); ++entry) {
        // Pointers are copied from the table only under _mutex, so one that is not shared now stays so.
        const bool held = entry->second.use_count() > 1;
        if (!held &&
            (oldest == _classifiers.end() || entry->second->getLastUsed() < oldest->second->getLastUsed())) {
            oldest = entry;
        }
    }
    if (oldest == _classifiers.end()) {
        return false;
    }
    _classifiers.erase(oldest);
    return true;
}

}  // namespace halvern::morvane
