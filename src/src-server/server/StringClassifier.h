#pragma once

#include <memory>
#include <string>

namespace halvern::morvane {

// Answers requests. Belongs to the thread of one connection, from create() to its end.
class StringClassifier {
public:
    virtual ~StringClassifier() = default;

    // Runs the request, replaces out by the whole answer and returns it. A request that fails is answered
    // too; only what no answer can be made for is thrown: memory (std::bad_alloc) and what nobody foresaw.
    virtual std::string& handle(std::string& out, const std::string& request) = 0;
};

// Makes one StringClassifier for each connection. Shared by all connections.
class StringClassifierFactory {
public:
    virtual ~StringClassifierFactory() = default;
    virtual std::unique_ptr<StringClassifier> create() const = 0;
};

}  // namespace halvern::morvane
