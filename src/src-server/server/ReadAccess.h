#pragma once

#include <boost/shared_ptr.hpp>
#include <optional>
#include <string>

#include "platform/mutex/ReaderWriterLock.h"
#include "server/JobDistribution.h"

namespace halvern::morvane {

// The live classifier that a path names, with its reader lock: what it shows is committed, and stays so. A
// classifier that is only being made is waited for, and not found if nothing comes of it.
class ReadAccess {
public:
    // Throws what JobDistribution::get() throws.
    ReadAccess(JobDistribution& jobDistribution, const std::string& path) {
        do {
            _lock.reset();
            _classifier = jobDistribution.get(path);
            _lock.emplace(*_classifier);
        } while (_classifier->isRemoved());
    }

    const classifier::Classifier& operator*() const { return _classifier->getClassifier(); }
    const classifier::Classifier* operator->() const { return &**this; }

private:
    boost::shared_ptr<ThreadSafeClassifier> _classifier;  // goes after the lock that lies in it
    std::optional<platform::mutex::ReaderAutoLock> _lock;
};

}  // namespace halvern::morvane
