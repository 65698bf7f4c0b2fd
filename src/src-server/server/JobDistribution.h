#pragma once

#include <boost/shared_ptr.hpp>
#include <cstdint>
#include <map>
#include <memory>
#include <string>

#include "io/filesystem/FileSystemHelper.h"
#include "platform/mutex/MutexImpl.h"
#include "platform/mutex/ReaderWriterLock.h"
#include "server/ThreadSafeClassifier.h"

namespace io::filesystem {
class ExistsFile;
class LoadFile;
class RemoveFile;
class SaveFile;
class SizeFile;
}  // namespace io::filesystem

namespace util {
class Pieces;
}

namespace platform::event {
class EventImpl;
}

namespace platform::memory {
class MemoryStatus;
}

namespace halvern::morvane {

class ClassifierFactory;
class Log;

// A classifier together with its writer lock. The lock goes first when both go.
struct HeldClassifier {
    boost::shared_ptr<ThreadSafeClassifier> classifier;
    std::unique_ptr<platform::mutex::WriterAutoLock> lock;
};

// The one way to a classifier, shared by all connections.
//
// A classifier is named by the path of its file, directly in the root directory. Names that differ only in
// the case of ASCII letters behind the last separator are one classifier. It exists if it is in memory or on
// disk.
//
// What several threads do to one classifier always looks as if they had done it one after the other. The
// rules behind that, for whoever adds an operation here or in ClassifierTransaction:
//
// 1. The content and the existence of a classifier in memory are guarded by its own reader-writer lock. A new
//    object enters the table with its writer lock taken, so nobody reads or writes it, or concludes anything
//    from it, before its creator has committed it or taken it back.
// 2. get() hands out a pointer, not a lock. By the time the caller has a lock, the classifier may have been
//    removed, or its creator may have given up. So whoever gets a lock asks isRemoved(), and starts again
//    with get() if that is true: then there is another object, or the file, or a clear "could not be found".
// 3. Only a thread with the writer lock removes an object, so a removal waits for every sequence that works
//    on it. Eviction takes only what nobody else holds: such an object is committed, and its file says the
//    same. Together these make "I hold a lock and isRemoved() is false" the same as "this is the table's
//    object".
// 4. That a classifier exists already is said only of one that is committed: create() waits, like a reader,
//    for the writer of an object in its way. Otherwise a client could be told of a classifier that, its own
//    creator having failed, never was.
//
// 5. A load is part of the table: whoever asks the table about a classifier that is being loaded, or is about
//    to change what the table says of it, waits for the end of the load first.
//
// Locks, from outside in: the writer or reader lock of one classifier, the table's mutex, the lock of one
// file. A thread holds the lock of one classifier at a time, and waits for no classifier's lock and no load
// with the mutex held.
//
// All operations but discard() throw ClassifierPathException for a name that leads anywhere but directly into
// the root directory, and pass on what file operations and classifiers throw.
class JobDistribution {
public:
    virtual ~JobDistribution() = default;

    // Enters a new classifier without classes, which is not on disk, and gives it with its writer lock. It is
    // the caller's to commit with save() or to take back with discard(). held is the object of that name
    // which the calling thread has the writer lock of, or null. Throws ClassifierExistsException.
    virtual HeldClassifier create(const std::string& name, const ThreadSafeClassifier* held) = 0;

    // The classifier of that name, loaded if need be. Throws ClassifierNotFoundException.
    virtual boost::shared_ptr<ThreadSafeClassifier> get(const std::string& name) = 0;

    // The size of the file in bytes, 0 if there is none. Changes only under the writer lock.
    virtual std::uint64_t getSize(const std::string& name) = 0;

    // Replaces the file, and gives what SaveFile::replace gives. Requires the writer lock of the classifier.
    virtual io::filesystem::ScopedDescriptor save(const std::string& name, const util::Pieces& data) = 0;

    // Removes the file and the object in memory, as far as there are any, and marks the object. Waits for the
    // writer lock, unless held (see create) is that object. If the file can't be removed, nothing has
    // changed.
    virtual void remove(const std::string& name, const ThreadSafeClassifier* held) = 0;

    // Takes back a create(), and a save() behind it that failed. Requires the writer lock. The object leaves
    // the table in any case; a file that can't be removed is logged.
    virtual void discard(const std::string& name, ThreadSafeClassifier& held) noexcept = 0;
};

// Loads a file without the mutex, so that a load holds up nobody but those who want the same classifier: they
// find it announced, wait for its end, and look again, so that no file is loaded twice at once. Before a
// load, classifiers that nobody works with leave memory, the one unused for the longest time first, until
// twice the size of the file is free, and of all others that are being loaded. Nothing else ever leaves, and
// nothing is saved then: what is in the table is on disk or in somebody's hands.
class JobDistributionImpl final : public JobDistribution {
public:
    // rootPath is the root directory as configured; an empty one means the current directory.
    JobDistributionImpl(const ClassifierFactory& classifierFactory,
                        const platform::memory::MemoryStatus& memoryStatus,
                        const io::filesystem::LoadFile& loadFile, const io::filesystem::SaveFile& saveFile,
                        const io::filesystem::ExistsFile& existsFile,
                        const io::filesystem::SizeFile& sizeFile,
                        const io::filesystem::RemoveFile& removeFile,
                        classifier::CallbackFactory& callbackFactory, const std::string& rootPath, Log& log);

    HeldClassifier create(const std::string& name, const ThreadSafeClassifier* held) override;
    boost::shared_ptr<ThreadSafeClassifier> get(const std::string& name) override;
    std::uint64_t getSize(const std::string& name) override;
    io::filesystem::ScopedDescriptor save(const std::string& name, const util::Pieces& data) override;
    void remove(const std::string& name, const ThreadSafeClassifier* held) override;
    void discard(const std::string& name, ThreadSafeClassifier& held) noexcept override;

private:
    class Loading;
    class SettledTable;

    // The path that stands for the name in every file operation and in the table.
    std::string fileOf(const std::string& name) const;
    boost::shared_ptr<ThreadSafeClassifier> find(const std::string& file);
    // Gives the object that is in the way, or null if the new one has been entered.
    boost::shared_ptr<ThreadSafeClassifier> enter(const std::string& name, const std::string& file,
                                                  const boost::shared_ptr<ThreadSafeClassifier>& created);
    // _mutex held. False if there was nothing to evict.
    bool evict();

    const ClassifierFactory& _classifierFactory;
    const platform::memory::MemoryStatus& _memoryStatus;
    const io::filesystem::LoadFile& _loadFile;
    const io::filesystem::SaveFile& _saveFile;
    const io::filesystem::ExistsFile& _existsFile;
    const io::filesystem::SizeFile& _sizeFile;
    const io::filesystem::RemoveFile& _removeFile;
    classifier::CallbackFactory& _callbackFactory;
    const std::string _root;
    Log& _log;

    // Shared, because a classifier that leaves the table lives on for whoever still works with it.
    std::map<std::string, boost::shared_ptr<ThreadSafeClassifier>> _classifiers;
    // By file. The event is set when the load has ended, well or not.
    std::map<std::string, boost::shared_ptr<platform::event::EventImpl>> _loading;
    std::uint64_t _neededByLoads = 0;   // bytes
    platform::mutex::MutexImpl _mutex;  // guards all of these
};

}  // namespace halvern::morvane
