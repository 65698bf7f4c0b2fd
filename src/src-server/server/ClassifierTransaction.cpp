#include "server/ClassifierTransaction.h"

#include <utility>

#include "debug/Assertion.h"
#include "server/BadRequestException.h"
#include "util/Pieces.h"

namespace halvern::morvane {

ClassifierTransactionImpl::ClassifierTransactionImpl(JobDistribution& jobDistribution,
                                                     const std::string& name)
    : _jobDistribution(jobDistribution), _name(name) {}

ClassifierTransactionImpl::~ClassifierTransactionImpl() { cleanUp(); }

void ClassifierTransactionImpl::create() {
    HeldClassifier created = _jobDistribution.create(_name, _classifierInfo.held.classifier.get());
    _classifierInfo.created = true;
    hold(std::move(created), State::CREATED);
}

classifier::Classifier& ClassifierTransactionImpl::get() {
    if (_classifierInfo.state == State::REMOVED) {
        throw ClassifierNotFoundException("Trying to get a classifier that has been marked for deletion '" +
                                          _name + "'.");
    }
    if (!_classifierInfo.copy) {
        HeldClassifier existing;
        do {
            existing.lock.reset();
            existing.classifier = _jobDistribution.get(_name);
            existing.lock = std::make_unique<platform::mutex::WriterAutoLock>(*existing.classifier);
        } while (existing.classifier->isRemoved());
        hold(std::move(existing), State::LOADED);
    }
    return *_classifierInfo.copy;
}

void ClassifierTransactionImpl::remove() {
    _classifierInfo.copy.reset();
    _classifierInfo.state = State::REMOVED;
}

Replaced ClassifierTransactionImpl::commit() {
    Replaced replaced;
    if (_classifierInfo.state == State::REMOVED) {
        _jobDistribution.remove(_name, _classifierInfo.held.classifier.get());
        _classifierInfo.created = false;
        return replaced;
    }
    if (_classifierInfo.held.lock) {
        // The file first: if that fails, memory still agrees with the file that was there before.
        util::Pieces data;
        _classifierInfo.copy->compact();
        _classifierInfo.copy->getTrainingData(data);
        replaced.file = _jobDistribution.save(_name, data);
        _classifierInfo.held.classifier->getClassifier().swap(*_classifierInfo.copy);
        replaced.classifier = std::move(_classifierInfo.copy);
    }
    _classifierInfo.state = State::COMMITTED;
    _classifierInfo.created = false;
    cleanUp();
    return replaced;
}

void ClassifierTransactionImpl::hold(HeldClassifier held, State state) {
    CHECK(!_classifierInfo.copy);
    // Stored before the copy is made, so that the end of the transaction finds it if memory runs out here.
    _classifierInfo.held = std::move(held);
    _classifierInfo.state = state;
    _classifierInfo.copy = _classifierInfo.held.classifier->getClassifier().clone();
}

void ClassifierTransactionImpl::cleanUp() noexcept {
    if (_classifierInfo.created) {
        _jobDistribution.discard(_name, *_classifierInfo.held.classifier);
    }
    // What was held goes in the reverse order of its making: the copy, the lock, the classifier.
    const ClassifierInfo ended = std::exchange(_classifierInfo, ClassifierInfo());
}

}  // namespace halvern::morvane
