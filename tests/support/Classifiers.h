#pragma once

#include <memory>
#include <string>

#include "classifier/ClassifierImpl.h"

namespace support {

inline util::Bytes bytesOf(const halvern::classifier::Classifier& classifier) {
    util::Bytes bytes;
    classifier.getTrainingData(bytes);
    return bytes;
}

// The classifier that these bytes describe.
inline std::unique_ptr<halvern::classifier::ClassifierImpl> classifierOf(
    const util::Bytes& stored, halvern::classifier::CallbackFactory* callbacks = nullptr) {
    auto classifier = std::make_unique<halvern::classifier::ClassifierImpl>(callbacks, 0.05);
    classifier->setTrainingData(stored);
    return classifier;
}

// "name unique/total" for each class.
inline std::string informationOf(const halvern::classifier::Classifier& classifier) {
    std::string text;
    for (const auto& [name, unique, total] : classifier.getInformation()) {
        text +=
            (text.empty() ? "" : ", ") + name + " " + std::to_string(unique) + "/" + std::to_string(total);
    }
    return text;
}

}  // namespace support
