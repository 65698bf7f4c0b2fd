#pragma once

#include <limits>
#include <map>
#include <string>

#include "Store.h"
#include "Target.h"
#include "classifier/ClassifierException.h"
#include "server/ReadAccess.h"
#include "support/ServerInMemory.h"

namespace fuzz {

// All that stands behind a connection, with a few classifiers on a disk in memory.
class Server : public support::ServerInMemory {
public:
    using Files = std::map<std::string, util::Bytes>;

    Server() {
        const auto put = [this](const std::string& name, const util::Bytes& data) {
            files.put("root/" + name + ".dat", std::string(data.begin(), data.end()));
        };
        put("two", twoClasses().bytes());
        put("three", threeClasses(7).bytes());
        put("none", support::StoredClassifier().bytes());
        put("old", oldClasses(3).bytes());
        put("odd", smoothedBy(std::numeric_limits<double>::quiet_NaN()).bytes());
        put("broken", damaged(twoClasses().bytes()));
    }

    // Promises an answer that a strict parser reads and the response schema admits. Throws std::bad_alloc if
    // memory is short.
    std::string answerTo(const std::string& request) {
        static const support::LoadedSchema responses(MORVANE_SCHEMAS "/server/ResponseSchema.xsd");
        const std::string out = answer(request);
        PROMISE(isReadableXml(out));
        PROMISE(responses.problemOf(out).empty());
        return out;
    }
    static bool isSuccess(const std::string& answer) {
        return answer.find("<status success=\"true\" statusCode=\"2000\"/>") != std::string::npos;
    }
    Files allStored() const {
        Files all;
        for (const std::string& name : files.names()) {
            all[name] = files.load(name);
        }
        return all;
    }
    // Memory never holds what the disk doesn't.
    void checkMemory() {
        for (const auto& [name, data] : allStored()) {
            const auto fromDisk = factory.create(callbackFactory);
            try {
                fromDisk->setTrainingData(data);
            } catch (const halvern::classifier::ClassifierException&) {
                continue;
            }
            util::Bytes expected;
            fromDisk->getTrainingData(expected);
            util::Bytes held;
            halvern::morvane::ReadAccess(table, name)->getTrainingData(held);
            PROMISE(held == expected);
        }
    }
};

}  // namespace fuzz
