#pragma once

#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "classifier/Classification.h"
#include "classifier/Classifier.h"
#include "platform/memory/MemoryStatus.h"
#include "server/ClassifierCallbackFactoryImpl.h"
#include "server/ClassifierFactoryImpl.h"
#include "server/JobDistribution.h"
#include "support/Failure.h"
#include "support/MemoryFiles.h"
#include "support/RecordingLog.h"

namespace support {

class ScriptedMemory final : public platform::memory::MemoryStatus {
public:
    static std::uint64_t plenty() { return std::numeric_limits<std::uint64_t>::max(); }

    std::function<std::uint64_t()> script = plenty;

    std::uint64_t available() const override { return script(); }
    std::uint64_t total() const override { return plenty(); }
};

// The table of classifiers with all that it stands on, below the root directory "root".
struct ClassifierTable {
    RecordingLog log;
    MemoryFiles files;
    ScriptedMemory memory;
    halvern::morvane::ClassifierFactoryImpl factory;
    halvern::morvane::ClassifierCallbackFactoryImpl callbackFactory{log};
    halvern::morvane::JobDistributionImpl table{factory, memory, files,           files,  files,
                                                files,   files,  callbackFactory, "root", log};

    // The class names of a stored classifier.
    std::vector<std::string> classesIn(const util::Bytes& data) {
        const auto classifier = factory.create(callbackFactory);
        classifier->setTrainingData(data);
        return classesOf(*classifier);
    }
    static std::vector<std::string> classesOf(const halvern::classifier::Classifier& classifier) {
        std::vector<std::string> names;
        for (const auto& each : classifier.getInformation()) {
            names.push_back(each.name);
        }
        return names;
    }
};

}  // namespace support
