#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "server/ClassifierTransaction.h"
#include "server/StringClassifier.h"

namespace windows::com::xml {
class SchemaCache;
}

namespace halvern::morvane {

class ClassifierTransaction;
class ErrorResponse;
class ErrorResponseFactory;
class JobDistribution;
class Log;
class RequestElement;
class RequestSequence;
class Response;
class ResponseFactory;
class XmlHook;
class XmlHookFactory;

// Obeys requests in XML: validates one, runs its read calls, then its write calls, and answers with all
// results or with one error, never with both.
//
// Read calls ask any number of classifiers and see nothing of the write calls of their request. Write calls
// change one classifier, all or nothing. Calls run in document order; the first that fails ends everything.
class XmlClassifier final : public StringClassifier {
public:
    // The references, but for the strings, must outlive this object. requestNamespace is the namespace of the
    // request schema in the cache.
    XmlClassifier(JobDistribution& jobDistribution, const ResponseFactory& responseFactory,
                  const ErrorResponseFactory& errorResponseFactory, const XmlHookFactory& xmlHookFactory,
                  const windows::com::xml::SchemaCache& schemaCache, const std::string& requestNamespace,
                  const std::string& rootPath, Log& log);
    ~XmlClassifier() override;

    std::string& handle(std::string& out, const std::string& request) override;

private:
    // What the calls of one write sequence share.
    struct WriteSequence {
        ClassifierTransaction& transaction;
        std::uint64_t maxSize;  // in bytes; 0 means no limit
    };

    using ReadCall = void (XmlClassifier::*)(const RequestElement& call);
    using WriteCall = void (XmlClassifier::*)(const RequestElement& call, WriteSequence& sequence);

    // All of handle() that a failure of the request can come from.
    std::string& run(std::string& out, const std::string& request);
    void runReadCalls(const RequestSequence& readCalls);
    // Leaves the response in out, and then commits.
    void runWriteCalls(const RequestSequence& writeCalls, std::string& out);
    // Runs runCall(method, call) for each element of the sequence; it says whether it knows the method. Every
    // failure of the program's own kind becomes a Failure, which is a CallException.
    template <class Failure, class RunCall>
    void runCalls(const RequestSequence& sequence, const char* sequenceName, RunCall runCall);

    void classify(const RequestElement& call);
    void classifyKeywords(const RequestElement& call);
    void getInformation(const RequestElement& call);

    void create(const RequestElement& call, WriteSequence& sequence);
    void remove(const RequestElement& call, WriteSequence& sequence);
    void addClass(const RequestElement& call, WriteSequence& sequence);
    void removeClass(const RequestElement& call, WriteSequence& sequence);
    void train(const RequestElement& call, WriteSequence& sequence);
    void untrain(const RequestElement& call, WriteSequence& sequence);

    void checkSize(const WriteSequence& sequence) const;
    std::string classifierPath(const RequestElement& element) const;

    JobDistribution& _jobDistribution;
    const ResponseFactory& _responseFactory;
    const ErrorResponseFactory& _errorResponseFactory;
    const windows::com::xml::SchemaCache& _schemaCache;
    const std::string _requestNamespace;
    const bool _knowsSchema;  // whether requests in plain form can be read without it
    std::string _callId;      // of the call that is running
    std::unique_ptr<Response> _response;
    std::unique_ptr<ErrorResponse> _errorResponse;
    std::unique_ptr<XmlHook> _xmlHook;
    Log& _log;
    const std::string _classifierRoot;
    Replaced _replaced;  // kept until the answer is on its way
};

// Everything but the strings must outlive the factory and all that it makes.
class XmlClassifierFactoryImpl final : public StringClassifierFactory {
public:
    XmlClassifierFactoryImpl(JobDistribution& jobDistribution, const ResponseFactory& responseFactory,
                             const ErrorResponseFactory& errorResponseFactory,
                             const XmlHookFactory& xmlHookFactory,
                             const windows::com::xml::SchemaCache& schemaCache,
                             const std::string& requestNamespace, const std::string& rootPath, Log& log);
    std::unique_ptr<StringClassifier> create() const override;

private:
    JobDistribution& _jobDistribution;
    const ResponseFactory& _responseFactory;
    const ErrorResponseFactory& _errorResponseFactory;
    const XmlHookFactory& _xmlHookFactory;
    const windows::com::xml::SchemaCache& _schemaCache;
    const std::string _requestNamespace;
    const std::string _rootPath;
    Log& _log;
};

}  // namespace halvern::morvane
