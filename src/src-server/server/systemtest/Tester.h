#pragma once

#include <string>

#include "server/StringClassifier.h"

namespace halvern::morvane {

// Passes scripted requests through whoever answers them, and compares the answers with what they must say.
//
// An expectation that fails is a failed check, which ends the process; its report shows the request and the
// answer. Several testers may share one server: what one does may make another's writes fail, and only that
// is allowed for. Leaves the classifier "test_engswe" behind.
class Tester {
public:
    // classifier must outlive the tester; schemaPath is the folder of the response schema, with its slash.
    Tester(StringClassifier& classifier, const std::string& schemaPath)
        : _classifier(classifier), _schemaPath(schemaPath) {}

    // Everything, in both versions of the protocol.
    void runAll();

private:
    StringClassifier& _classifier;
    const std::string _schemaPath;
};

}  // namespace halvern::morvane
