#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/mutex/ReaderWriterLockImpl.h"

namespace halvern::classifier {
class CallbackFactory;
class Classifier;
}  // namespace halvern::classifier

namespace io::filesystem {
class LoadFile;
}

namespace halvern::morvane {

class ClassifierFactory;

// One classifier in memory, together with the readers-writer lock that guards it.
//
// An object leaves the table of classifiers for good in one of two ways: it is evicted, which happens only
// while nobody but the table holds a pointer to it, or its removal is marked in it by a thread that has its
// writer lock. So whoever holds a pointer and either lock learns from isRemoved() whether the object is still
// the one that its name stands for, and this can't change before the lock is released.
class ThreadSafeClassifier final : public platform::mutex::ReaderWriterLockImpl {
public:
    // Makes a classifier without classes.
    ThreadSafeClassifier(const ClassifierFactory& classifierFactory,
                         classifier::CallbackFactory& callbackFactory);

    // Loads a stored classifier. Passes on what the load throws (io::IOException family) and what the
    // classifier says of the bytes (classifier::ClassifierException).
    ThreadSafeClassifier(const ClassifierFactory& classifierFactory, const io::filesystem::LoadFile& loadFile,
                         const std::string& file, classifier::CallbackFactory& callbackFactory);
    ~ThreadSafeClassifier() override;

    // Reading requires the reader or the writer lock, changing the writer lock.
    classifier::Classifier& getClassifier() { return *_classifier; }

    // Requires the reader or the writer lock.
    bool isRemoved() const { return _removed; }
    // Requires the writer lock.
    void markRemoved() { _removed = true; }

    // Seconds since 1970. Requires the mutex of the table.
    std::int64_t getLastUsed() const { return _lastUsed; }
    void setLastUsed(std::int64_t seconds) { _lastUsed = seconds; }

private:
    std::int64_t _lastUsed;
    std::unique_ptr<classifier::Classifier> _classifier;
    bool _removed = false;
};

}  // namespace halvern::morvane
