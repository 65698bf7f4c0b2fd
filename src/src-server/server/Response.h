#pragma once

#include <memory>
#include <string>
#include <vector>

#include "server/ResponseVersion.h"

namespace halvern::classifier {
class Classification;
class Keywords;
struct ClassInformation;
}  // namespace halvern::classifier

namespace halvern::morvane {

// Collects the results of one request's calls, in the order in which they ran, and renders them as one
// document. Belongs to the thread of one connection. Nothing fails here but memory (std::bad_alloc).
class Response {
public:
    virtual ~Response() = default;

    // One result of a read call. Everything is copied during the call, so the classifier needs to stay
    // unchanged only that long. classify requires at least one class.
    virtual void classify(const std::string& id, const classifier::Classification& classification) = 0;
    virtual void classifyKeywords(const std::string& id, const classifier::Keywords& keywords) = 0;
    virtual void getInformation(const std::string& id,
                                const std::vector<classifier::ClassInformation>& classes) = 0;

    // One result of a write call, which is no more than the call's id.
    virtual void create(const std::string& id) = 0;
    virtual void remove(const std::string& id) = 0;
    virtual void addClass(const std::string& id) = 0;
    virtual void removeClass(const std::string& id) = 0;
    virtual void train(const std::string& id) = 0;
    virtual void untrain(const std::string& id) = 0;

    // Replaces out by the whole document and returns it. Without any result the document reports a failure.
    virtual std::string& render(std::string& out) = 0;

    // Forgets all results.
    virtual void clear() = 0;
};

// Makes the response of each request. Shared by all connections.
class ResponseFactory {
public:
    virtual ~ResponseFactory() = default;
    virtual std::unique_ptr<Response> create(const ResponseVersion& version) const = 0;
};

}  // namespace halvern::morvane
