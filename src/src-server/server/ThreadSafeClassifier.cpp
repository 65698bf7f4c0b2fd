#include "server/ThreadSafeClassifier.h"

#include <ctime>

#include "classifier/Callback.h"
#include "classifier/Classifier.h"
#include "io/filesystem/LoadFile.h"
#include "server/ClassifierFactory.h"

namespace halvern::morvane {

ThreadSafeClassifier::ThreadSafeClassifier(const ClassifierFactory& classifierFactory,
                                           classifier::CallbackFactory& callbackFactory)
    : _lastUsed(std::time(nullptr)), _classifier(classifierFactory.create(callbackFactory)) {}

ThreadSafeClassifier::ThreadSafeClassifier(const ClassifierFactory& classifierFactory,
                                           const io::filesystem::LoadFile& loadFile, const std::string& file,
                                           classifier::CallbackFactory& callbackFactory)
    : ThreadSafeClassifier(classifierFactory, callbackFactory) {
    _classifier->setTrainingData(loadFile.load(file));
}

ThreadSafeClassifier::~ThreadSafeClassifier() = default;

}  // namespace halvern::morvane
